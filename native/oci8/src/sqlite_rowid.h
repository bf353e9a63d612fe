// ROWIDs: SQLite's row numbers in the 18 characters that clients keep and send back.
//
//   rowid_text(number)  18 characters
//   chartorowid(text)   the same text, checked
//   rowid_number(text)  the row number; ORA-01410 for text that rowid_text never writes
#ifndef OCI8_SQLITE_ROWID_H
#define OCI8_SQLITE_ROWID_H

#include <sqlite3.h>

namespace oci8 {

/// For `db`. A row keeps its ROWID as long as it exists; SQLite may give it to another row
/// afterwards.
void register_rowid_functions(sqlite3* db);

}  // namespace oci8

#endif
