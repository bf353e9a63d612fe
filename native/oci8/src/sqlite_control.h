// SQL functions by which a translated statement decides its own course.
//
//   ora_raise(code [, argument])  raises that Oracle error
//   go_on()                       true, or ORA-01013 after a break
//   ora_single(x)                 aggregate: the one value of its group, NULL for none, ORA-01427
//                                 for more
#ifndef OCI8_SQLITE_CONTROL_H
#define OCI8_SQLITE_CONTROL_H

#include <sqlite3.h>

namespace oci8 {

/// None is declared deterministic: SQLite may evaluate such a call before it knows whether a row
/// needs it.
void register_control_functions(sqlite3* db);

}  // namespace oci8

#endif
