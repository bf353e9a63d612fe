// Arithmetic in engine SQL: by the engine's own operators where they are sure to be exact, by
// functions of sqlite_functions.h everywhere else. Values that are not of the operator's class are
// converted.
#ifndef OCI8_DIALECT_ARITHMETIC_H
#define OCI8_DIALECT_ARITHMETIC_H

#include <string_view>

#include "dialect_fragment.h"
#include "dialect_types.h"

namespace oci8 {

/// A value as a number, or as what a placeholder in it turns out to be.
Fragment numeric(Fragment value);
/// One of the server's operators as a call of a function.
Fragment operate(std::string_view function, const Fragment& left, const Fragment& right,
                 const StaticType& type);
/// A sum or difference, of dates and days as well: ORA-00975 for two dates added up.
Fragment add_or_subtract(Fragment left, const Fragment& right, bool add);
Fragment multiply(const Fragment& left, const Fragment& right);
/// -value. A negative literal stays a literal: positions, limits and defaults look for one.
Fragment negate(const Fragment& value, ub4 offset);

}  // namespace oci8

#endif
