// Three sources of an error, asked in this order: a text that begins with "ORA-" comes from one of
// our own functions and is passed on as it is; a wrong number of values is recognised by its
// numbers; everything else goes through the table.
#include "sqlite_errors.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <new>

namespace oci8 {
namespace {

/// What of SQLite's message goes into the Oracle message.
enum class Detail : ub1 {
  None,
  Rest,  // what follows the row's pattern
  Column,  // the same, "T.C" written as "T"."C"
  Object,  // the table that the statement names
  Line  // all of it, on a line of its own
};

// Matched by code and message, because SQLite reports most faults of a statement as SQLITE_ERROR
// and says only in words what is wrong; the words have been stable over many releases.
struct Row {
  int result;  // extended code, or a primary one (below 256) that stands for all of its
  std::string_view pattern;  // part of the message
  int code;
  Detail detail;
};

// A foreign key's code depends on the statement; see ErrorContext.
constexpr int kForeignKey = -1;

// The first row that fits decides: particular messages and extended codes before general ones.
constexpr Row kRows[] = {
    {SQLITE_CONSTRAINT_PRIMARYKEY, "failed: ", 1, Detail::Rest},
    {SQLITE_CONSTRAINT_UNIQUE, "failed: ", 1, Detail::Rest},
    {SQLITE_CONSTRAINT_ROWID, "failed: ", 1, Detail::Rest},
    {SQLITE_CONSTRAINT_NOTNULL, "failed: ", 1400, Detail::Column},
    {SQLITE_CONSTRAINT_CHECK, "failed: ", 2290, Detail::Rest},
    {SQLITE_CONSTRAINT_FOREIGNKEY, "", kForeignKey, Detail::Object},
    // Only an INTEGER PRIMARY KEY refuses values by their type, which is a number that is none.
    {SQLITE_MISMATCH, "", 1722, Detail::None},
    // The session reads from an older state (an open query) than the one it would have to change.
    {SQLITE_BUSY_SNAPSHOT, "", 8177, Detail::None},
    {SQLITE_BUSY, "", 54, Detail::None},
    // The session's own open query keeps a table from being dropped or altered.
    {SQLITE_LOCKED, "", 54, Detail::Line},
    {SQLITE_INTERRUPT, "", 1013, Detail::None},
    // An open query whose tables a rollback has changed beneath it.
    {SQLITE_ABORT_ROLLBACK, "", 1002, Detail::None},
    {SQLITE_AUTH, "", 1031, Detail::None},
    {SQLITE_ERROR, "no such table: ", 942, Detail::None},
    {SQLITE_ERROR, "no such view: ", 942, Detail::None},
    {SQLITE_ERROR, "to delete table ", 942, Detail::None},
    {SQLITE_ERROR, "to delete view ", 942, Detail::None},
    {SQLITE_ERROR, "no such column: ", 904, Detail::Column},
    {SQLITE_ERROR, "has no column named ", 904, Detail::Column},
    {SQLITE_ERROR, "no such function: ", 904, Detail::Column},
    {SQLITE_ERROR, "ambiguous column name", 918, Detail::None},
    {SQLITE_ERROR, "no such index: ", 1418, Detail::None},
    {SQLITE_ERROR, "no such savepoint: ", 1086, Detail::Rest},
    {SQLITE_ERROR, "already exists", 955, Detail::None},
    {SQLITE_ERROR, "there is already ", 955, Detail::None},
    {SQLITE_ERROR, "duplicate column name", 957, Detail::None},
    {SQLITE_ERROR, "more than one primary key", 2260, Detail::None},
    {SQLITE_ERROR, "foreign key mismatch", 2270, Detail::None},
    {SQLITE_ERROR, "NOT NULL column with default value NULL", 1758, Detail::None},
    {SQLITE_ERROR, "because it is a view", 1732, Detail::None},
    {SQLITE_ERROR, "may not be modified", 1031, Detail::None},
    {SQLITE_ERROR, "same number of result columns", 1789, Detail::None},
    {SQLITE_ERROR, "ORDER BY term", 1785, Detail::None},
    {SQLITE_ERROR, "misuse of aggregate", 934, Detail::None},
    {SQLITE_ERROR, "wrong number of arguments", 909, Detail::None},
    {SQLITE_ERROR, "ESCAPE expression must be", 1425, Detail::None},
    {SQLITE_ERROR, "is not constant", 984, Detail::None},
    {SQLITE_ERROR, "subqueries prohibited in", 2251, Detail::None},
    {SQLITE_ERROR, "prohibited in index expressions", 1743, Detail::None},
    {SQLITE_ERROR, "number of columns in foreign key", 2256, Detail::None},
    {SQLITE_ERROR, "too many columns", 1792, Detail::None},
    {SQLITE_ERROR, "too many terms in ", 3001, Detail::Line},
    {SQLITE_ERROR, "Expression tree is too large", 3001, Detail::Line},
    {SQLITE_ERROR, "may not be altered", 3001, Detail::Line},
    {SQLITE_ERROR, "parser stack overflow", 3001, Detail::Line},
    {SQLITE_ERROR, "integer overflow", 1426, Detail::None},
    {SQLITE_ERROR, "near \",\"", 936, Detail::None},
    {SQLITE_ERROR, "near \")\"", 936, Detail::None},
    {SQLITE_ERROR, "near \"FROM\"", 936, Detail::None},
    {SQLITE_ERROR, "near \"WHERE\"", 936, Detail::None},
    {SQLITE_ERROR, "syntax error", 933, Detail::None},
    {SQLITE_ERROR, "incomplete input", 921, Detail::None},
    {SQLITE_ERROR, "unrecognized token", 911, Detail::None},
    {SQLITE_RANGE, "", 1036, Detail::None},
    {SQLITE_TOOBIG, "", 1489, Detail::None},
    // What the machine is to blame for: an administrator needs SQLite's own words beside the code.
    {SQLITE_FULL, "", 1653, Detail::Line},
    {SQLITE_READONLY, "", 16000, Detail::Line},
    {SQLITE_IOERR, "", 1115, Detail::Line},
    {SQLITE_CANTOPEN, "", 1116, Detail::Line},
    {SQLITE_PERM, "", 1116, Detail::Line},
    {SQLITE_CORRUPT, "", 1578, Detail::Line},
    {SQLITE_NOTADB, "", 1251, Detail::Line},
};

// Nothing that SQLite says is lost: the default carries its message as the argument.
constexpr Row kDefault = {0, "", 600, Detail::Rest};

// Extended result codes have their primary code in the low byte.
bool fits(const Row& row, int result, std::string_view message) {
  const bool same = row.result > 0xff ? row.result == result : row.result == (result & 0xff);
  return same && message.find(row.pattern) != std::string_view::npos;
}

const Row& row_for(int result, std::string_view message) {
  for (const Row& row : kRows) {
    if (fits(row, result, message)) return row;
  }
  return kDefault;
}

/// `T.C` as `"T"."C"`, the way that columns stand in messages.
std::string quoted_path(std::string_view path) {
  std::string quoted = "\"";
  for (const char c : path) {
    if (c == '.') {
      quoted += "\".\"";
    } else if (c != '"') {
      quoted += c;
    }
  }
  return quoted += '"';
}

std::string text_for(const Row& row, int code, std::string_view message,
                     const ErrorContext& context) {
  const std::string_view rest =
      message.substr(std::min(message.size(), message.find(row.pattern) + row.pattern.size()));
  switch (row.detail) {
    case Detail::Rest:
      return error_text(code, rest);
    case Detail::Column:
      return error_text(code, quoted_path(rest));
    case Detail::Object:
      return error_text(code, context.translation ? context.translation->object : "");
    case Detail::Line:
      return error_text(code).append(message) + '\n';
    case Detail::None:
      break;
  }
  return error_text(code);
}

// SQLite gives the place of the token that it stumbled over in the engine's SQL; the mark at or
// before it is the beginning of what the caller wrote there.
int source_offset(sqlite3* db, const ErrorContext& context) {
  const int found = sqlite3_error_offset(db);
  if (found < 0 || context.translation == nullptr) return found;
  // A definition is run statement by statement, while the marks count from the beginning of all of
  // them.
  const size_t offset = context.base + static_cast<size_t>(found);
  const std::vector<SourceMark>& marks = context.translation->marks;
  const auto after = std::upper_bound(
      marks.begin(), marks.end(), offset,
      [](size_t wanted, const SourceMark& mark) { return wanted < mark.engine_offset; });
  return after == marks.begin() ? -1 : static_cast<int>((after - 1)->source_offset);
}

/// The code of an error text that a SQL function reported ("ORA-01722: ..."), or 0.
int reported_code(std::string_view message) {
  constexpr std::string_view kPrefix = "ORA-";
  int code = 0;
  if (message.starts_with(kPrefix)) {
    std::from_chars(message.data() + kPrefix.size(), message.data() + message.size(), code);
  }
  return code;
}

/// Both messages on a wrong number of values give the two numbers, in different order.
int value_count_code(const char* message) {
  int columns = 0;
  int values = 0;
  if (std::sscanf(message, "%d values for %d columns", &values, &columns) == 2 ||
      std::sscanf(message, "table %*s has %d columns but %d values", &columns, &values) == 2) {
    return values > columns ? 913 : 947;
  }
  return 0;
}

}  // namespace

Failure sqlite_failure(sqlite3* db, int result, const ErrorContext& context) {
  // No text can be composed without memory; the border of the interface has one ready.
  if ((result & 0xff) == SQLITE_NOMEM) throw std::bad_alloc();
  const char* message = sqlite3_errmsg(db);
  const int offset = source_offset(db, context);
  if (const int code = reported_code(message); code != 0) {
    std::string text = message;
    if (text.back() != '\n') text += '\n';
    return {code, std::move(text), offset};
  }
  if (const int code = value_count_code(message); code != 0) {
    return {code, error_text(code), offset};
  }
  const Row& row = row_for(result, message);
  int code = row.code == kForeignKey ? context.foreign_key : row.code;
  // The engine has one message for both, the server has two codes.
  if (code == 1400 && context.update) code = 1407;
  return {code, text_for(row, code, message, context), offset};
}

}  // namespace oci8
