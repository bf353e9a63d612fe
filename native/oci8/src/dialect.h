// From the server's SQL to the engine's: a statement's tokens in, engine SQL and a typed select
// list out. Tokens and a small expression parser decide, never string search.
// The parts, from the outside in: dialect.cpp chooses the statement,
// dialect_query/_change/_define/_table read one kind of statement each,
// dialect_expression/_comparison/_function read values, dialect_scope resolves names,
// dialect_fragment writes SQL with types. Nothing here runs anything: sqlite_statement.cpp does,
// and sqlite_errors.cpp maps error offsets back by the marks.
#ifndef OCI8_DIALECT_H
#define OCI8_DIALECT_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine.h"
#include "error.h"
#include "sql_text.h"

namespace oci8 {

/// What the dialect asks of the database while it translates.
class Schema {
 public:
  virtual ~Schema() = default;
  /// Columns of a table or view, in order; nothing where there is none of that name. `name` is in
  /// the case that the database keeps (upper case unless it was quoted).
  virtual std::optional<std::vector<ColumnInfo>> columns_of(std::string_view name) = 0;
  /// The session's user in upper case, as an owner qualifier may name it.
  virtual std::string_view user() const = 0;
};

/// What running the translated statement means for the transaction.
enum class Action : ub1 {
  Query,
  Change,  // INSERT, UPDATE, DELETE: begins a transaction where none is open
  Define,  // DDL: commits before and after itself; `sql` may hold several engine statements
  Commit,
  Rollback,
  Control,  // SAVEPOINT, ROLLBACK TO, LOCK TABLE ...: engine SQL (may be empty) in the transaction
};

/// Where a run of engine SQL came from, for error offsets.
/// A place behind one mark and before the next belongs to the token that the mark names: engine
/// text that was made up has no place of its own.
struct SourceMark {
  ub4 engine_offset;
  ub4 source_offset;
};

/// A placeholder whose value goes as it is into a column that takes large values.
struct LargePlace {
  ub4 position;
  ub2 type;  // of the column
};

/// A placeholder that is all of the value for a column: its value goes there unchecked.
struct StoredPlace {
  ub4 position;
  ColumnInfo column;
};

/// Whether a translation checks every value on its way into a column, or leaves to its caller the
/// bound ones that go there as they are (Translation::stored_places).
enum class Checks : ub1 { All, ButBound };

struct Translation {
  Action action = Action::Query;
  std::string sql;  // engine SQL; placeholders as ?1, ?2, ... by position
  std::vector<ColumnInfo> columns;  // select list of a query
  std::vector<SourceMark> marks;  // ascending by engine_offset
  std::string object;  // the table or other object that the statement names, for messages
  std::vector<LargePlace> large_places;
  std::vector<StoredPlace> stored_places;  // with Checks::ButBound only
  bool large = false;  // a change of a table that has columns for large values
  bool locks = false;  // a query FOR UPDATE
  bool draws = false;  // NEXTVAL is in it
  bool nowait = false;  // fails where another session has the lock
  std::optional<Failure> failure;  // that a run of the definition comes to
};

/// Translates one statement. Raises Failure with a source offset for text that is no statement
/// (ORA-00900 and its siblings) or not supported. A definition's wrong names are no such failure.
/// An anonymous block is not translated here.
Translation translate(const SqlText& text, Schema& schema, Checks checks = Checks::All);

}  // namespace oci8

#endif
