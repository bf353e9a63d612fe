// Output variables: where a column's values go, and the conversions on the way there.
// A define belongs to a statement handle (statement.h) and lives as long as that or until the
// position is defined again. The conversions work on values as the engine border gives them
// (engine.h) and write into the caller's arrays without any allocation for text, numbers and bytes.
#ifndef OCI8_DEFINE_H
#define OCI8_DEFINE_H

#include <cstddef>

#include "engine.h"
#include "oci.h"

namespace oci8 {

class StatementHandle;

/// ORA-24345: a value was cut, and the call succeeds with info.
inline constexpr int kCutWithInfo = 24345;

/// What a conversion did. The value was cut when `full` is greater than `length`.
struct Placed {
  size_t length = 0;  // bytes written, without a terminator
  size_t full = 0;  // bytes that the whole value has
  int code = 0;  // Oracle error: nothing usable was written
};

/// Writes a value that is not NULL to the `room` bytes at `target`.
using Converter = Placed (*)(const Value& value, ub1* target, size_t room);

/// The conversion from a column of type `internal` to the external type `external` with elements
/// of `room` bytes; null where there is none (ORA-00932).
Converter find_converter(ub2 external, size_t room, ub2 internal);

/// True for the external types that a define may name.
bool definable(ub2 external, size_t room);

/// True when a column of this type can be fetched in pieces as this external type: as the bytes
/// that it is made of.
bool fetchable_in_pieces(ub2 external, ub2 internal);

/// A variable of the caller; the arrays have one element for each row and are the caller's.
/// Indicators, lengths and return codes are null where the caller gave none. Elements stand side by
/// side: the next one begins `room` bytes further on.
struct HostVariable {
  ub1* buffer = nullptr;
  size_t room = 0;  // bytes of one element
  ub2 type = 0;  // external
  sb2* indicators = nullptr;
  ub2* lengths = nullptr;
  ub2* codes = nullptr;
  Converter convert = nullptr;  // chosen when the type of what is stored is known

  /// Stores a value as element `row`. Returns 0, or the Oracle code that the call reports:
  /// kCutWithInfo for a value that was cut and has that in its return code.
  int store(const Value& value, size_t row) const noexcept;
};

/// Where a column's values go.
struct DefineHandle : HostVariable {
  StatementHandle* statement = nullptr;
  ub4 position = 0;
  // Set by OCI_DYNAMIC_FETCH: the buffer stays unused and every value is asked for piece by piece.
  bool in_pieces = false;
};

/// Keeps the code that a call with several values reports: the first error, or else that one of
/// them was cut.
void keep_worst(int& kept, int code) noexcept;

/// The code that NULL is reported with: 0 with an indicator, which is set, else 1405.
int store_null(sb2* indicator, ub2* length, ub2* code) noexcept;
/// Marks a whole value of `size` bytes.
void store_fine(sb2* indicator, ub2* length, ub2* code, size_t size) noexcept;

}  // namespace oci8

#endif
