// Input variables: the caller's values on their way to the engine, and values that are asked for
// by callback while the statement executes.
// A bind is checked when it is made (oci_bind.cpp) and read when the statement executes
// (execute.cpp), each time anew: callers change the values in place between two executions.
#ifndef OCI8_BIND_H
#define OCI8_BIND_H

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <vector>

#include "define.h"
#include "engine.h"
#include "oci.h"

namespace oci8 {

class StatementHandle;

/// A placeholder's variable. A block may also assign to it.
struct BindHandle : HostVariable {
  StatementHandle* statement = nullptr;
  ub4 position = 0;
  bool at_execution = false;  // the callback has the value, the buffer is not used
  OCICallbackInBind callback = nullptr;
  void* context = nullptr;  // the callback's
};

/// Memory for one value that has to outlast the call that brought it; kept from value to value.
class HeldBytes {
 public:
  const char* data() const { return data_.get(); }
  size_t size() const { return size_; }

  /// Takes a copy, in the place of what was held. Raises std::bad_alloc, as everything here that
  /// grows.
  void assign(const char* bytes, size_t size);
  /// Adds a piece; `expected` bytes are announced in all, which is not relied on. ORA-01401 for
  /// more than a value may have.
  void append(const void* bytes, size_t size, size_t expected);
  /// Room for a value of `size` bytes, which is for the caller to fill.
  char* make_room(size_t size);
  /// Forgets the value and keeps the memory for the next one.
  void clear() { size_ = 0; }
  /// Gives the memory back: a value of many megabytes must not stay until the handle is freed.
  void release() noexcept;

 private:
  struct Free {
    void operator()(char* memory) const noexcept { std::free(memory); }
  };
  void grow(size_t capacity);

  std::unique_ptr<char, Free> data_;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

/// 0 for an external type that a bind may name with elements of `size` bytes, else the Oracle
/// code of what is wrong with it.
int bind_error(ub2 type, size_t size) noexcept;
/// True for the external types whose values may come in pieces.
bool arrives_in_pieces(ub2 type) noexcept;

/// Sets `value` to element `row`, text and bytes where they stand in the caller's memory. ORA-01426
/// for a number outside of NUMBER's range, ORA-01458 for a length beyond the element, ORA-01480 for
/// a string that does not end in it, ORA-01841 and its siblings for bytes that are no date,
/// ORA-22275 for a variable that holds no locator, or an empty one.
void read_value(const BindHandle& bind, size_t row, Value& value);

/// Where the pieces of a value go.
class PieceSink {
 public:
  virtual ~PieceSink() = default;
  /// The bytes are the caller's and good for this call only.
  virtual void take(const void* bytes, size_t size) = 0;
};

/// Has the callback bring the value for iteration `row`, piece by piece; false for NULL, whatever
/// came before it was known. ORA-24343 when the callback gives up.
bool pull_value(BindHandle& bind, ub4 row, PieceSink& sink);
/// Whether a value of the external type is kept byte for byte in a column of type `internal` that
/// takes large values: only then its pieces can go there as they come.
bool streams_into(ub2 external, ub2 internal) noexcept;
/// What was pulled, as a value of the bind's type.
Value held_value(const BindHandle& bind, const HeldBytes& held);

/// Stores what a block assigned; the result is that of HostVariable::store.
int store_output(const BindHandle& bind, const Value& value, size_t row) noexcept;

/// What a block does with a placeholder.
struct PlaceholderUse {
  bool read = false;
  bool opened = false;  // by OPEN: a cursor variable
};

/// For each placeholder of a block. A variable that is only assigned to may hold anything before.
std::vector<PlaceholderUse> find_uses(const SqlText& text);

}  // namespace oci8

#endif
