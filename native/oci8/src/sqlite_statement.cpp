// The life of a statement: translated and prepared when it is made; bound and stepped, any number
// of times; translated anew when the schema has changed under it. Queries keep their engine
// statement open from row to row, or until their session changes something and they are read out;
// everything else is done within one step.
#include "sqlite_statement.h"

#include <algorithm>
#include <limits>

#include "ascii.h"
#include "declared_type.h"
#include "dialect_tokens.h"
#include "sqlite_functions.h"

namespace oci8 {
namespace {

// Function codes as SqlText::function has them.
constexpr ub2 kUpdate = 6;
constexpr ub2 kDelete = 7;

constexpr std::string_view kForeignKeys = "SELECT \"from\" FROM pragma_foreign_key_list(?1)";

// Without a copy: the caller keeps the bytes in place for the run. Empty values are NULL, as they
// are for the server.
int bind_bytes(sqlite3_stmt* statement, int position, const Value& value) {
  if (value.size == 0) return sqlite3_bind_null(statement, position);
  if (value.kind == Value::Kind::Bytes) {
    return sqlite3_bind_blob64(statement, position, value.data, value.size, SQLITE_STATIC);
  }
  return sqlite3_bind_text64(statement, position, value.data, value.size, SQLITE_STATIC,
                             SQLITE_UTF8);
}

bool is_name(const Tokens& at, const std::string& upper_name) {
  const bool quoted = at.kind() == TokenKind::QuotedName;
  return upper(quoted ? unquote(at.spelling()) : at.spelling()) == upper_name;
}

/// Whether the UPDATE assigns to `column`, alone or in a list (a, b) = ...; names are compared
/// without case, as the engine does.
bool assigns(const SqlText& text, std::string_view column) {
  const std::string wanted = upper(column);
  int depth = 0;
  bool target = false;  // before an assignment's mark
  for (Tokens at(text); !at.at_end(); at.skip()) {
    if (at.is_symbol("(")) ++depth;
    if (at.is_symbol(")")) --depth;
    if (depth == 0 && at.is_word("WHERE")) return false;
    if (depth == 0 && (at.is_word("SET") || at.is_symbol(","))) target = true;
    if (depth == 0 && at.is_symbol("=")) target = false;
    // A table's alias may stand before the name.
    if (target && !at.is_symbol(".", 1) && is_name(at, wanted)) return true;
  }
  return false;
}

// The value's own type decides, not the column's: text and bytes are handed out where they stand.
void read_value(sqlite3_value* held, Value& value) {
  value = Value();
  switch (sqlite3_value_type(held)) {
    case SQLITE_INTEGER:
      value.kind = Value::Kind::Integer;
      value.integer = sqlite3_value_int64(held);
      return;
    case SQLITE_FLOAT:
      value.kind = Value::Kind::Real;
      value.real = sqlite3_value_double(held);
      return;
    case SQLITE_TEXT:
      value.kind = Value::Kind::Text;
      value.data = reinterpret_cast<const char*>(sqlite3_value_text(held));
      break;
    case SQLITE_BLOB:
      value.kind = Value::Kind::Bytes;
      value.data = static_cast<const char*>(sqlite3_value_blob(held));
      break;
    default:
      return;
  }
  value.size = static_cast<size_t>(sqlite3_value_bytes(held));
  // Empty text and bytes are NULL for the server.
  if (value.size == 0) value = Value();
  // Bytes without an address: SQLite had no memory to bring them into place.
  if (value.data == nullptr && value.size > 0) throw std::bad_alloc();
}

ub4 rows_of(sqlite3* db) {
  const sqlite3_int64 most = std::numeric_limits<ub4>::max();
  return static_cast<ub4>(std::min(sqlite3_changes64(db), most));
}

}  // namespace

SqliteStatement::SqliteStatement(std::shared_ptr<SqliteSession> session, const SqlText& source)
    : session_(std::move(session)),
      text_(source),
      inputs_(source.placeholders.size() + source.variables.size()) {
  const int version = session_->schema().version();
  std::optional<Translated> kept;
  // What the variables of a block stand for is not in the text.
  if (text_.variables.empty()) kept = session_->cache().take(text_.text);
  const bool good = kept && kept->schema_version == version;
  now_ = good ? std::move(*kept) : translate_text(version);
}

SqliteStatement::~SqliteStatement() {
  SqliteStatement::reset();
  sqlite3_stmt* statement = now_.statement.get();
  if (statement == nullptr || !text_.variables.empty() || session_->closed()) return;
  // The inputs are the caller's memory.
  sqlite3_clear_bindings(statement);
  session_->cache().keep(text_.text, std::move(now_));
}

// DDL and transaction control are prepared when they run: each of their engine statements may
// need what the one before it made.
Translated SqliteStatement::translate_text(int schema_version) const {
  if (text_.tokens.empty()) fail(900);
  Translated made;
  made.schema_version = schema_version;
  made.translation = translate(text_, session_->schema(), checks_);
  const Translation& translation = made.translation;
  if (translation.action != Action::Query && translation.action != Action::Change) return made;
  made.statement = prepare_sql(session_->db(), translation.sql, {&translation});
  // Only blanks and comments were left of the text.
  if (made.statement == nullptr) fail(900);
  made.placeholders = static_cast<ub4>(sqlite3_bind_parameter_count(made.statement.get()));
  const auto width = static_cast<size_t>(sqlite3_column_count(made.statement.get()));
  if (translation.action == Action::Query && translation.columns.size() != width) {
    fail(600, "select list");
  }
  return made;
}

// Another session, or this one, has changed a table since: column lengths and the like that are
// part of the translation may be out of date. The select list keeps its place in memory and its
// width, because callers hold on to it.
void SqliteStatement::translate_again() {
  Translated made = translate_text(session_->schema().version());
  std::vector<ColumnInfo>& described = now_.translation.columns;
  const bool same = made.translation.columns.size() == described.size() &&
                    made.translation.action == now_.translation.action;
  if (!same) fail(1007);
  std::ranges::move(made.translation.columns, described.begin());
  made.translation.columns = std::move(described);
  now_ = std::move(made);
  suspect_ = false;
}

std::span<Value> SqliteStatement::inputs() {
  session_->require_open();
  reset();
  return inputs_;
}

// For each run anew: a former run's values are gone.
void SqliteStatement::bind_inputs() {
  for (size_t i = 0; i < inputs_.size(); ++i) {
    if (inputs_[i].kind == Value::Kind::Large) note_large(i);
    // The dialect may have left out the expression that the placeholder stood in.
    if (i < now_.placeholders) check(session_->db(), bind_input(i));
  }
}

int SqliteStatement::bind_input(size_t index) {
  sqlite3_stmt* statement = now_.statement.get();
  const int position = static_cast<int>(index) + 1;
  const Value& value = inputs_[index];
  switch (value.kind) {
    case Value::Kind::Null:
      break;
    case Value::Kind::Integer:
      return sqlite3_bind_int64(statement, position, value.integer);
    case Value::Kind::Real:
      return sqlite3_bind_double(statement, position, value.real);
    case Value::Kind::Text:
    case Value::Kind::Bytes:
      return bind_bytes(statement, position, value);
    case Value::Kind::Large:
      if (takes_large(static_cast<ub4>(position)) == 0) fail(932);
      // As a pointer, which is NULL to everything but the function that stores it. The object is
      // this statement's, as SQLite's may be made again.
      return sqlite3_bind_pointer(statement, position, &large_[index], kLargeInput, nullptr);
  }
  return sqlite3_bind_null(statement, position);
}

void SqliteStatement::note_large(size_t index) {
  const Value& value = inputs_[index];
  if (value.large.id == 0) fail(22275);
  large_.resize(inputs_.size());
  large_[index] = {value.large, value.given};
}

ub2 SqliteStatement::takes_large(ub4 position) const {
  for (const LargePlace& place : now_.translation.large_places) {
    if (place.position == position) return place.type;
  }
  return 0;
}

// Everything but a query is over, and reset, within its step.
void SqliteStatement::reset() {
  if (now_.translation.action != Action::Query) return;
  sqlite3_reset(now_.statement.get());
  row_read_ = false;
  if (row_stands_) session_->leave(*this);
  rows_.reset();
  row_stands_ = false;
  at_end_ = false;
}

bool SqliteStatement::step() {
  session_->require_open();
  switch (now_.translation.action) {
    case Action::Query:
      return step_query();
    case Action::Change:
      run_change();
      break;
    case Action::Define:
      run_define();
      break;
    case Action::Control:
      run_control();
      break;
    case Action::Commit:
      session_->commit();
      break;
    case Action::Rollback:
      session_->rollback();
      break;
  }
  return false;
}

Failure SqliteStatement::failure(int result) {
  if ((result & 0xff) == SQLITE_BUSY && session_->stopping()) return {1013, error_text(1013)};
  ErrorContext context{&now_.translation};
  context.update = text_.function == kUpdate;
  if (result == SQLITE_CONSTRAINT_FOREIGNKEY) context.foreign_key = violated_side();
  return sqlite_failure(session_->db(), result, context);
}

// SQLite does not say which side of a foreign key a statement has hurt.
int SqliteStatement::violated_side() {
  constexpr int kNoParent = 2291;
  constexpr int kChildFound = 2292;
  if (text_.function == kDelete) return kChildFound;
  if (text_.function == kUpdate && !sets_foreign_key()) return kChildFound;
  return kNoParent;
}

// By the columns of the failed UPDATE: where it sets one of the table's own references, that is
// what has no parent; otherwise it has changed a key that others refer to.
bool SqliteStatement::sets_foreign_key() {
  const SqliteStatementOwner keys = prepare_sql(session_->db(), kForeignKeys);
  bind_text(keys.get(), 1, now_.translation.object);
  while (step_sql(keys.get())) {
    if (assigns(text_, column_text(keys.get(), 0))) return true;
  }
  return false;
}

/// Whether the schema is no longer the one that the text was translated for.
bool SqliteStatement::outdated() {
  return session_->schema().version() != now_.schema_version;
}

// The first step of a query: true for a row, nothing when the translation has to be made again.
// SQLite prepares a statement again by itself when the schema changes; that, or its failure, is
// what brings the change up here, so that it costs nothing in all other runs. SQLite tells it once
// only, while a translation that fails leaves the old one for the next run: hence the suspicion.
std::optional<bool> SqliteStatement::first_step() {
  if (suspect_ && outdated()) return std::nullopt;
  const int result = sqlite3_step(now_.statement.get());
  const bool good = result == SQLITE_ROW || result == SQLITE_DONE;
  // A column that was dropped makes SQLite's own repreparation fail; a translation for the new
  // schema may succeed, or fail with the error that the server would give.
  const bool wrong = (result & 0xff) == SQLITE_ERROR;
  const bool prepared_again =
      sqlite3_stmt_status(now_.statement.get(), SQLITE_STMTSTATUS_REPREPARE, 1) != 0;
  suspect_ = prepared_again || wrong;
  const Failure raised = good ? Failure() : failure(result);
  if (!good && !wrong) throw raised;
  suspect_ = suspect_ && outdated();
  if (suspect_) return std::nullopt;
  if (wrong) throw raised;
  return result == SQLITE_ROW;
}

bool SqliteStatement::start_query() {
  for (;;) {
    bind_inputs();
    if (const std::optional<bool> row = first_step()) return *row;
    sqlite3_reset(now_.statement.get());
    translate_again();
  }
}

bool SqliteStatement::next_row() {
  row_read_ = false;
  const int result = sqlite3_step(now_.statement.get());
  if (result == SQLITE_ROW) return true;
  if (result == SQLITE_DONE) return false;
  throw failure(result);
}

bool SqliteStatement::step_kept() {
  try {
    if (rows_->next()) return true;
  } catch (...) {
    reset();
    throw;
  }
  reset();
  at_end_ = true;
  return false;
}

// The row that stands goes first, and is taken at once: from then on it needs SQLite no more.
void SqliteStatement::read_out() {
  auto rows = std::make_unique<KeptRows>(columns().size());
  rows->add(*this);
  rows->next();
  try {
    while (session_->attempt([&] { return next_row(); })) {
      if (session_->stopping()) fail(1013);
      rows->add(*this);
    }
  } catch (...) {
    rows->end_with(std::current_exception());
  }
  sqlite3_reset(now_.statement.get());
  rows_ = std::move(rows);
  session_->leave(*this);
}

// Under the lock, because SQLite refuses a draw where another session has written since the query
// began; and all rows at once, because the lock cannot be held until they are fetched.
void SqliteStatement::draw_rows() {
  if (row_stands_) read_out();
  if (session_->stopping()) fail(1013);
}

bool SqliteStatement::step_query() {
  if (at_end_) return false;
  if (rows_ != nullptr) return step_kept();
  const SqliteSession::Operation running(*session_);
  const bool first = !row_stands_;
  const bool draws = first && now_.translation.draws;
  // Before the first row only, and where no transaction holds the lock already.
  const bool begins = first && !session_->in_transaction();
  std::optional<SqliteSession::Change> change;
  try {
    if (draws || (begins && now_.translation.locks)) {
      change.emplace(*session_, !now_.translation.nowait);
    }
    row_stands_ = session_->attempt([&] { return first ? start_query() : next_row(); });
    if (draws) draw_rows();
    if (draws && begins && !now_.translation.locks) change->commit();
    if (first && row_stands_ && !draws) session_->enter(*this);
  } catch (...) {
    reset();
    throw;
  }
  if (change) change->keep();
  if (row_stands_) return true;
  // Given back at once: an open query keeps its view of the database, and with it this session
  // from changing what others have changed since.
  session_->leave(*this);
  sqlite3_reset(now_.statement.get());
  at_end_ = true;
  return false;
}

bool SqliteStatement::inputs_fit() const {
  return std::ranges::all_of(now_.translation.stored_places, [&](const StoredPlace& place) {
    return stored_unchanged(inputs_[place.position - 1], place.column);
  });
}

// Values that are stored as they are, which nearly all are, spare SQLite a call for each of them.
// The first other one brings the calls in, and with them conversions and errors, from then on.
void SqliteStatement::prepare_change() {
  // Under the lock for writing, where the schema cannot change any more.
  if (session_->transaction_schema() != now_.schema_version) translate_again();
  if (!inputs_fit()) {
    checks_ = Checks::All;
    translate_again();
  }
  bind_inputs();
  // A break is otherwise noticed at the first call of a function, and here may be none.
  if (session_->stopping()) fail(1013);
}

// SQLite undoes a failed statement as a whole by itself, errors of SQL functions included; only
// where it gives up the transaction with it does the client have to be told.
void SqliteStatement::run_change() {
  changed_ = 0;
  const SqliteSession::Operation running(*session_);
  session_->read_out();
  SqliteSession::Change change(*session_, !now_.translation.nowait);
  prepare_change();
  // The values that a statement makes are not its own changes to SQLite, which may find that there
  // is nothing to undo.
  std::optional<SqliteSession::Whole> whole;
  if (now_.translation.large) whole.emplace(*session_);
  const ResetOnExit reset(now_.statement.get());
  session_->attempt([&] {
    while (next_row()) {
    }
  });
  changed_ = rows_of(session_->db());
  if (whole) {
    remove_untaken();
    whole->keep();
  }
  change.keep();
}

// Of an UPDATE that found no row, for example.
void SqliteStatement::remove_untaken() {
  for (size_t i = 0; i < large_.size(); ++i) {
    LargeInput& input = large_[i];
    if (inputs_[i].kind != Value::Kind::Large || !input.given || input.taken) continue;
    input.taken = true;
    session_->large().remove(input.name);
  }
}

// The commit before is outside of what a break or a failure undoes: the server does it first, and
// keeps it when the definition turns out to be wrong.
void SqliteStatement::run_define() {
  session_->commit();
  const SqliteSession::Operation running(*session_);
  // What was missing at the time may be there now.
  if (now_.translation.failure) translate_again();
  if (now_.translation.failure) throw *now_.translation.failure;
  SqliteSession::Change change(*session_);
  ErrorContext context{&now_.translation};
  context.foreign_key = 2449;  // DROP TABLE of a table that others refer to
  execute_sql(session_->db(), now_.translation.sql, context);
  change.keep();
  // The definition is in effect for others when the call returns.
  session_->commit();
}

void SqliteStatement::run_control() {
  const Translation& control = now_.translation;
  if (control.sql.empty()) return;
  const SqliteSession::Operation running(*session_);
  if (control.sql.starts_with("SAVEPOINT")) return session_->set_savepoint(control.object);
  // What goes back to a savepoint changes tables.
  session_->read_out();
  session_->return_to_savepoint(control.object);
}

void SqliteStatement::name_large(ub2 type, Value& value) {
  const bool characters = type == SQLT_CLOB;
  value.kind = Value::Kind::Large;
  value.large = session_->large().name_of(
      value.integer, characters ? LargeName::Unit::Character : LargeName::Unit::Byte);
}

// All at once, because nearly all are asked for, and with one sqlite3_column_ call for each,
// because every such call would find the value anew. SQLite lets a value of it be read where one
// thread at a time uses the connection. Large values are looked up, whether or not the caller will
// read them.
std::span<const Value> SqliteStatement::row() {
  if (rows_ != nullptr) return rows_->row();
  if (row_read_) return row_;
  const std::vector<ColumnInfo>& all = columns();
  row_.resize(all.size());
  for (size_t i = 0; i < all.size(); ++i) {
    Value& value = row_[i];
    read_value(sqlite3_column_value(now_.statement.get(), static_cast<int>(i)), value);
    if (value.kind == Value::Kind::Integer && may_be_large(all[i].type)) {
      name_large(all[i].type, value);
    }
  }
  row_read_ = true;
  return row_;
}

}  // namespace oci8
