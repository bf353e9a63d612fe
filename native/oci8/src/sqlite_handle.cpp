// Every connection of the library is opened here, with one set of settings, and every statement is
// prepared here: what SQLite reports becomes an Oracle error at the call that it comes from.
#include "sqlite_handle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

namespace oci8 {
namespace {

// Full synchronisation makes a commit survive a power failure as well as a killed process, as
// callers of a database server expect. What is deleted is not written over where that costs writes
// of its own (some builds of SQLite do by default): long values would take as long to go as to
// come. A log that was long gives its place back when it begins anew.
constexpr std::string_view kSettings =
    "PRAGMA synchronous = FULL; PRAGMA foreign_keys = ON; PRAGMA case_sensitive_like = ON;"
    "PRAGMA secure_delete = FAST; PRAGMA journal_size_limit = 16777216";

// SQLite 3.40 reads a value from an index of its expression also where an outer join has the row of
// the table without that index, and so finds another row's value. The number is that of the
// optimisation in SQLite's own source; searches by such an index do not depend on it.
constexpr int kValuesFromIndexes = 0x01000000;

void configure(sqlite3* db) {
  // The table of errors tells constraints apart by their extended codes.
  sqlite3_extended_result_codes(db, 1);
  // A quoted name that is no column must be an error, never quietly a string.
  for (const int option : {SQLITE_DBCONFIG_DQS_DML, SQLITE_DBCONFIG_DQS_DDL}) {
    check(db, sqlite3_db_config(db, option, 0, nullptr));
  }
  // No statement may damage the file on purpose, by writing to the schema's own table for example.
  check(db, sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr));
  check(db, sqlite3_test_control(SQLITE_TESTCTRL_OPTIMIZATIONS, db, kValuesFromIndexes));
  execute_sql(db, kSettings);
}

/// Whether this user may write to what the path leads to, which may be gone at any time.
bool may_write(const std::string& path, mode_t type) {
  struct stat status;
  if (stat(path.c_str(), &status) == 0 && (status.st_mode & S_IFMT) != type) return false;
  return faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0 || errno == ENOENT;
}

// SQLite would go on for reading only. The log and its index that a reader makes are its own, and
// would be in the owner's way; with one that cannot be written each change would fail.
bool read_only(sqlite3* db) {
  if (sqlite3_db_readonly(db, "main") == 1) return true;
  const char* file = sqlite3_db_filename(db, "main");
  if (file == nullptr || *file == '\0') return false;  // in memory
  const std::string path = file;
  return !may_write(path.substr(0, path.rfind('/') + 1), S_IFDIR) ||
         !may_write(path + "-wal", S_IFREG) || !may_write(path + "-shm", S_IFREG);
}

}  // namespace

// Without SQLite's own mutex: one thread at a time uses a connection, and the break does not go
// through SQLite at all.
SqliteOwner open_file(const std::string& path, int flags) {
  // Without statistics of memory, which cost a lock at each allocation. For the process, and so
  // refused where it uses SQLite already: then all stays as its owner has set it.
  [[maybe_unused]] static const int configured = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
  constexpr int kOpeningWaitMs = 5000;  // another process may be recovering or closing the log
  // A failed open may leave an object too: it carries the message, and has to be closed.
  sqlite3* opened = nullptr;
  const int result = sqlite3_open_v2(path.c_str(), &opened, flags | SQLITE_OPEN_NOMUTEX, nullptr);
  SqliteOwner db(opened);
  if (opened == nullptr) throw std::bad_alloc();
  check(opened, result);
  // Before the first statement: any of them reads the file, and makes what reading needs.
  if (read_only(opened)) fail(16000);
  check(opened, sqlite3_busy_timeout(opened, kOpeningWaitMs));
  configure(opened);
  return db;
}

SqliteStatementOwner prepare_sql(sqlite3* db, std::string_view sql, const ErrorContext& context,
                                 std::string_view* rest) {
  // SQLite counts in int: a greater length would be taken for "up to the zero byte".
  if (sql.size() > INT_MAX) fail(24373);
  sqlite3_stmt* prepared = nullptr;
  const char* tail = nullptr;
  const int result = sqlite3_prepare_v3(db, sql.data(), static_cast<int>(sql.size()),
                                        SQLITE_PREPARE_PERSISTENT, &prepared, &tail);
  if (result != SQLITE_OK) throw sqlite_failure(db, result, context);
  if (rest != nullptr) *rest = sql.substr(static_cast<size_t>(tail - sql.data()));
  return SqliteStatementOwner(prepared);
}

void execute_sql(sqlite3* db, std::string_view sql, const ErrorContext& context) {
  ErrorContext part = context;
  // Statement by statement, because a later one may name what an earlier one makes.
  for (std::string_view rest = sql; !rest.empty();) {
    part.base = sql.size() - rest.size();
    const SqliteStatementOwner statement = prepare_sql(db, rest, part, &rest);
    // Null for blanks behind the last semicolon.
    while (statement != nullptr && step_sql(statement.get(), part)) {
    }
  }
}

void bind_text(sqlite3_stmt* statement, int position, std::string_view text) {
  check(sqlite3_db_handle(statement), sqlite3_bind_text64(statement, position, text.data(),
                                                          text.size(), SQLITE_STATIC, SQLITE_UTF8));
}

bool step_sql(sqlite3_stmt* statement, const ErrorContext& context) {
  const int result = sqlite3_step(statement);
  if (result == SQLITE_ROW) return true;
  if (result == SQLITE_DONE) return false;
  throw sqlite_failure(sqlite3_db_handle(statement), result, context);
}

void add_function(sqlite3* db, const char* name, int arguments, SqlCallback function, void* data,
                  int flags) {
  check(db, sqlite3_create_function_v2(db, name, arguments, SQLITE_UTF8 | flags, data, function,
                                       nullptr, nullptr, nullptr));
}

std::string_view column_text(sqlite3_stmt* statement, int column) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
  if (text == nullptr) return {};
  return {text, static_cast<size_t>(sqlite3_column_bytes(statement, column))};
}

}  // namespace oci8
