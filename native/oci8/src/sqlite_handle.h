// Owners of SQLite's objects, and the few ways in which the engine uses them.
// sqlite3_stmt objects are reset as soon as their rows are read: one that is left standing keeps
// its view of the database, which keeps the log from being emptied and this session from writing.
#ifndef OCI8_SQLITE_HANDLE_H
#define OCI8_SQLITE_HANDLE_H

#include <sqlite3.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "sqlite_errors.h"

namespace oci8 {

struct CloseDatabase {
  // The second form of close waits for statements that are still alive instead of failing.
  void operator()(sqlite3* db) const noexcept { sqlite3_close_v2(db); }
};
/// Null only where nothing has been opened yet.
using SqliteOwner = std::unique_ptr<sqlite3, CloseDatabase>;

struct FinalizeStatement {
  void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
};
/// Null for a statement that has not been prepared yet.
using SqliteStatementOwner = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

struct CloseBlob {
  void operator()(sqlite3_blob* blob) const noexcept { sqlite3_blob_close(blob); }
};
using SqliteBlobOwner = std::unique_ptr<sqlite3_blob, CloseBlob>;

/// Gives a statement back for its next use when the scope ends, so that none keeps a snapshot.
class ResetOnExit {
 public:
  explicit ResetOnExit(sqlite3_stmt* statement) : statement_(statement) {}
  ~ResetOnExit() { sqlite3_reset(statement_); }
  ResetOnExit(const ResetOnExit&) = delete;
  ResetOnExit& operator=(const ResetOnExit&) = delete;

  /// Leaves the statement as it stands to the caller.
  sqlite3_stmt* release() { return std::exchange(statement_, nullptr); }

 private:
  sqlite3_stmt* statement_;
};

/// Opens a database file (SQLITE_OPEN_* in `flags`) with the settings that every connection has.
/// ORA-16000, with nothing made beside the file, for a user who could not write to it or to what
/// stands beside it. One that is no database may be found out at its first use only.
SqliteOwner open_file(const std::string& path, int flags);

/// Readers go on beside a writer then. Kept in the file; SQLite refuses it, without waiting, where
/// another session is about to do the same.
inline constexpr std::string_view kUseLog = "PRAGMA journal_mode = WAL";

/// Prepares the first statement of `sql`; null for blanks and comments only. `rest`, where given,
/// receives what follows it.
SqliteStatementOwner prepare_sql(sqlite3* db, std::string_view sql,
                                 const ErrorContext& context = {},
                                 std::string_view* rest = nullptr);

/// The statement in `owner`, prepared when it is first asked for and kept: for what runs with every
/// statement, row or part of a value.
inline sqlite3_stmt* prepared(sqlite3* db, SqliteStatementOwner& owner, std::string_view sql) {
  if (owner == nullptr) owner = prepare_sql(db, sql);
  return owner.get();
}

/// Runs all statements of `sql` one after another, each prepared when the one before it is done;
/// rows that they return are passed over.
void execute_sql(sqlite3* db, std::string_view sql, const ErrorContext& context = {});

/// Binds text without a copy: it stays the caller's and must outlive the run.
void bind_text(sqlite3_stmt* statement, int position, std::string_view text);

/// Steps; true for a row. Raises what SQLite reports.
bool step_sql(sqlite3_stmt* statement, const ErrorContext& context = {});

using SqlCallback = void (*)(sqlite3_context*, int, sqlite3_value**);

/// Registers a scalar SQL function; `data` is its sqlite3_user_data, `flags` as
/// SQLITE_DETERMINISTIC.
void add_function(sqlite3* db, const char* name, int arguments, SqlCallback function,
                  void* data = nullptr, int flags = 0);

/// A text column of the current row, empty for NULL; valid until the next step.
std::string_view column_text(sqlite3_stmt* statement, int column);

}  // namespace oci8

#endif
