// SQLite's result codes and messages as Oracle errors: one table, with a row for everything else.
// Results are matched together with words of SQLite's messages, because its codes alone say too
// little. Memory that ran out (SQLITE_NOMEM) comes up as std::bad_alloc.
#ifndef OCI8_SQLITE_ERRORS_H
#define OCI8_SQLITE_ERRORS_H

#include <sqlite3.h>

#include "dialect.h"
#include "error.h"

namespace oci8 {

/// What a statement knows that SQLite's message does not say.
struct ErrorContext {
  const Translation* translation = nullptr;  // maps error offsets back into the caller's text
  size_t base = 0;  // where the prepared part stands in translation->sql
  bool update = false;  // an UPDATE: NULL is refused with ORA-01407
  int foreign_key = 2291;  // the side of a foreign key that was violated
};

/// The Oracle error for `result`, which the last call on `db` returned. Must be called before
/// anything else runs on the connection: SQLite keeps one message.
Failure sqlite_failure(sqlite3* db, int result, const ErrorContext& context = {});

/// Raises the Oracle error unless `result` is SQLITE_OK.
inline void check(sqlite3* db, int result) {
  if (result != SQLITE_OK) throw sqlite_failure(db, result);
}

}  // namespace oci8

#endif
