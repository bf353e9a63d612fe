// Output variables: where a column's values go, and the conversions on the way there.
// A define belongs to a statement handle (statement.h) and lives as long as that or until the
// position is defined again. The conversions work on values as the engine border gives them
// (engine.h) and write into the caller's arrays without any allocation for text, numbers and bytes.
#ifndef OCI8_DEFINE_H
#define OCI8_DEFINE_H

#include <algorithm>
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
  ub4 full = 0;  // bytes that the whole value has, or the greatest ub4
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

/// An element of an array that may be missing: null then.
template <class T>
T* element(T* array, size_t row) {
  return array == nullptr ? nullptr : array + row;
}

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

 private:
  int store_nothing(size_t row) const noexcept;
  int tell(Placed placed, size_t row) const noexcept;
};

/// Where a column's values go.
struct DefineHandle : HostVariable {
  StatementHandle* statement = nullptr;
  ub4 position = 0;
  // Set by OCI_DYNAMIC_FETCH: the buffer stays unused and every value is asked for piece by piece.
  bool in_pieces = false;
  ub2 internal = 0;  // type of the column that the conversion was chosen for; 0 for none
};

/// Keeps the code that a call with several values reports: the first error, or else that one of
/// them was cut.
void keep_worst(int& kept, int code) noexcept;

/// The code that NULL is reported with: 0 with an indicator, which is set, else 1405.
int store_null(sb2* indicator, ub2* length, ub2* code) noexcept;
/// Marks a whole value of `size` bytes.
inline void store_fine(sb2* indicator, ub2* length, ub2* code, size_t size) noexcept {
  // The interface's length arrays have 16 bits. A longer value in a large LONG buffer is there in
  // full, and only its reported length stops at the limit.
  if (length != nullptr) *length = static_cast<ub2>(std::min<size_t>(size, 65535));
  if (code != nullptr) *code = 0;
  if (indicator != nullptr) *indicator = 0;
}

// In the header, as it is what a fetch does for each value.
inline int HostVariable::store(const Value& value, size_t row) const noexcept {
  if (value.kind == Value::Kind::Null) return store_nothing(row);
  const Placed placed = convert(value, buffer + row * room, room);
  store_fine(element(indicators, row), element(lengths, row), element(codes, row), placed.length);
  return placed.code == 0 && placed.full <= placed.length ? 0 : tell(placed, row);
}

}  // namespace oci8

#endif
