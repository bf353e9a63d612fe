// LOB locators: descriptors that name a CLOB or BLOB value, and the caller's variables that hold
// the address of one.
#ifndef OCI8_LOCATOR_H
#define OCI8_LOCATOR_H

#include <cstddef>

#include "engine.h"
#include "handles.h"

namespace oci8 {

/// A locator as it is allocated names nothing. It is a name only: the value is the database's.
struct Locator : Handle {
  /// The value's name; ORA-22275 where there is none.
  const LargeName& named() const;

  LargeName name;
};

/// True for the external types whose variables hold a locator's address.
inline bool is_locator(ub2 external) noexcept {
  return external == SQLT_CLOB || external == SQLT_BLOB;
}

/// Bytes of an element of a caller's array of variables, of which the caller announced a size.
/// Callers announce four bytes for an address on every platform, which is what it has on some of
/// them: the address's own width is what counts. Elements of an array lie as close as that.
size_t element_size(ub2 external, size_t announced) noexcept;

/// What the locator named in the caller's variable names. ORA-22275 for a variable that holds no
/// locator and for a locator that names nothing, ORA-00932 for a value of the other type.
LargeName name_in_variable(const ub1* variable, ub2 external);

/// Has the locator that the caller's variable holds name `name`, or nothing if that is the empty
/// name; 0, or the code of what is wrong with the variable.
int fill_variable(const ub1* variable, const LargeName& name) noexcept;

}  // namespace oci8

#endif
