// The schema is SQLite's own; nothing is cached here, as SQLite keeps it parsed in memory and
// notices changes by other connections. Types are read back from the spellings of declared_type.h.
#include "sqlite_schema.h"

#include <algorithm>

#include "declared_type.h"

namespace oci8 {
namespace {

constexpr std::string_view kTable =
    "SELECT name, type, \"notnull\" OR pk, \"notnull\" AND NOT pk FROM pragma_table_info(?1)";
// SQLite takes names that differ in case only for the same, here as everywhere.
constexpr std::string_view kView =
    "SELECT sql FROM sqlite_schema WHERE type = 'view' AND name = ?1 COLLATE NOCASE";
// SQLite counts this up in the file's header with every change of the schema.
constexpr std::string_view kVersion = "PRAGMA schema_version";
constexpr std::string_view kJournal = "PRAGMA journal_mode";

constexpr ub2 kNumberSize = 22;

// Without regard to case, as SQLite looks at types. `word` is in upper case.
bool mentions(std::string_view spelling, std::string_view word) {
  // Good for letters only, which is all that the words consist of.
  const auto same = [](char left, char right) { return (left & ~0x20) == right; };
  return std::search(spelling.begin(), spelling.end(), word.begin(), word.end(), same) !=
         spelling.end();
}

// The index of the write-ahead log lies in memory that all connections share; its format is part
// of SQLite's documented ones (walformat.html). It stays in place as long as the connection.
const volatile ub4* log_index(sqlite3* db) {
  constexpr int kRegion = 32768;
  const SqliteStatementOwner journal = prepare_sql(db, kJournal);
  // Asking a file without a log for its index would make one.
  if (!step_sql(journal.get()) || column_text(journal.get(), 0) != "wal") return nullptr;
  sqlite3_file* file = nullptr;
  if (sqlite3_file_control(db, "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK) {
    return nullptr;
  }
  volatile void* index = nullptr;
  const bool there = file->pMethods != nullptr && file->pMethods->iVersion >= 2 &&
                     file->pMethods->xShmMap(file, 0, kRegion, 0, &index) == SQLITE_OK;
  return there ? static_cast<const volatile ub4*>(index) : nullptr;
}

}  // namespace

SqliteSchema::SqliteSchema(sqlite3* db, const std::string& user)
    : db_(db), user_(user), log_(log_index(db)) {}

void read_column_type(std::string_view spelling, ColumnInfo& column) {
  if (read_type(spelling, column)) return;
  // A column without any type counts as text here: SQLite lets it keep everything, and everything
  // can be shown as text.
  const bool text = mentions(spelling, "CHAR") || mentions(spelling, "CLOB") ||
                    mentions(spelling, "TEXT") || spelling.empty();
  if (text && !mentions(spelling, "INT")) {
    column.type = SQLT_CHR;
    column.size = kMaxText;
  } else if (mentions(spelling, "BLOB")) {
    column.type = SQLT_LBI;
    column.size = 0;
  } else {
    column.type = SQLT_NUM;
    column.size = kNumberSize;
    column.precision = 0;
    column.scale = kNoScale;
  }
}

bool SqliteSchema::read_view_columns(std::string_view name, std::vector<ColumnInfo>& columns) {
  sqlite3_stmt* row = prepared(db_, view_, kView);
  const ResetOnExit reset(row);
  bind_text(row, 1, name);
  return step_sql(row) && read_view(column_text(row, 0), columns);
}

// Views first: SQLite knows the types of those columns of a view only that are plain columns of a
// table.
std::optional<std::vector<ColumnInfo>> SqliteSchema::columns_of(std::string_view name) {
  std::vector<ColumnInfo> columns;
  if (read_view_columns(name, columns)) return columns;
  sqlite3_stmt* row = prepared(db_, table_, kTable);
  const ResetOnExit reset(row);
  bind_text(row, 1, name);
  while (step_sql(row)) {
    ColumnInfo& column = columns.emplace_back();
    column.name = column_text(row, 0);
    read_column_type(column_text(row, 1), column);
    column.nullable = sqlite3_column_int(row, 2) == 0;
    column.not_null = sqlite3_column_int(row, 3) != 0;
  }
  // The pragma has no error for a table that is not there, and no table is without columns.
  if (columns.empty()) return std::nullopt;
  return columns;
}

// Asked for with every statement that is prepared, and to ask the database takes a transaction. The
// head of the log's index is how SQLite itself tells that nothing was changed since its last one.
// Within a transaction what is seen may be older than the head.
int SqliteSchema::version() {
  if (log_ == nullptr || sqlite3_txn_state(db_, "main") != SQLITE_TXN_NONE) return read_version();
  LogHead head;
  std::copy_n(log_, head.size(), head.begin());
  if (head != head_) {
    version_at_head_ = read_version();
    // Read before the version: a change in between is another head.
    head_ = head;
  }
  return version_at_head_;
}

int SqliteSchema::read_version() {
  sqlite3_stmt* row = prepared(db_, version_, kVersion);
  const ResetOnExit reset(row);
  step_sql(row);
  return sqlite3_column_int(row, 0);
}

}  // namespace oci8
