// A statement is read once, from left to right but for select lists, which wait for their FROM
// clause. There is no syntax tree: each piece of grammar returns engine SQL together with what is
// known of its value, because all decisions (which function stands for an operator, which side of
// a comparison is converted) need the types of the parts and nothing that comes later.

#include "dialect.h"

#include <algorithm>
#include <utility>

#include "declared_type.h"
#include "dialect_statement.h"

namespace oci8 {
namespace {

// ORA-00911 and its siblings for tokens that are none, wherever they stand.
void check_tokens(const SqlText& sql) {
  for (const Token& token : sql.tokens) {
    const std::string_view spelling = sql.spelling(token);
    // The tokenizer never fails, because describe and the block reader want its tokens as well; the
    // codes for what it could not read are given here.
    int code = 0;
    if (token.kind == TokenKind::Invalid) {
      code = spelling.starts_with('\'')   ? 1756
             : spelling.starts_with('"')  ? 1740
             : spelling.starts_with("/*") ? 1742
                                          : 911;
    }
    // The engine takes its text up to the first zero byte.
    if (spelling == ";" || spelling.find('\0') != std::string_view::npos) code = 911;
    if (code != 0) fail(code, {}, static_cast<int>(token.offset));
  }
}

// Fragments keep marks in the order in which they were put together, which for a select list (read
// behind its FROM clause) is not that of the text: the engine looks marks up by halving.
Translation finish(Action action, Fragment sql, Context& context) {
  Translation result;
  result.action = action;
  result.sql = std::move(sql.sql);
  result.marks = std::move(sql.marks);
  result.object = context.object;
  result.large_places = std::move(context.large_places);
  result.stored_places = std::move(context.stored_places);
  result.large = context.large;
  result.draws = context.draws;
  result.nowait = context.nowait;
  std::ranges::stable_sort(result.marks, {}, &SourceMark::engine_offset);
  return result;
}

// A column of a FOR UPDATE OF says which table is locked, but has to be there.
void locked_column(Context& context, Scope& scope) {
  Tokens& tokens = context.tokens;
  const ub4 offset = tokens.offset();
  std::string table, column = tokens.name(904);
  while (tokens.accept_symbol(".")) table = std::exchange(column, tokens.name(904));
  if (!find_column(scope, table, column, offset)) {
    fail(904, "\"" + column + "\"", static_cast<int>(offset));
  }
}

// Rows are not locked one by one here: the lock for writing stands for them all.
bool for_update(Context& context, std::vector<Source> sources) {
  Tokens& tokens = context.tokens;
  if (!tokens.accept_word("FOR")) return false;
  tokens.expect_word("UPDATE");
  if (tokens.accept_word("OF")) {
    Scope scope(nullptr);
    scope.sources = std::move(sources);
    do {
      locked_column(context, scope);
    } while (tokens.accept_symbol(","));
  }
  context.nowait = tokens.accept_word("NOWAIT");
  return true;
}

// The only statement with a select list; everything that may follow a query belongs to it alone,
// because subqueries take neither FOR UPDATE nor the end of the text.
Translation select(Context& context) {
  Query whole = query(context, nullptr, Naming::Names);
  if (context.tokens.is_word("FOR") && !whole.lockable) context.tokens.fail_here(1786);
  const bool locks = for_update(context, std::move(whole.sources));
  context.tokens.expect_end();
  Translation result = finish(Action::Query, std::move(whole.sql), context);
  result.locks = locks;
  result.columns = std::move(whole.columns);
  return result;
}

// A change is one engine statement: its effect is whole or none without help from here.
Translation change(Context& context, Fragment (*read)(Context&)) {
  Fragment sql = read(context);
  context.tokens.expect_end();
  return finish(Action::Change, std::move(sql), context);
}

// Whether a name is missing, ambiguous, or there already. ORA-00904 also says that something else
// stands in a name's place; it quotes real names only.
bool is_about_a_name(const Failure& raised) {
  static constexpr int kCodes[] = {902, 918, 942, 957, 1430, 1731};
  if (raised.code == 904) return raised.text.find('"') != std::string::npos;
  return std::ranges::find(kCodes, raised.code) != std::end(kCodes);
}

// A definition is kept as text by the engine, where no value could be bound to it later.
// The server commits before it looks at a definition's names: what is wrong with them waits for
// the run.
Translation define(Context& context, const SqlText& sql) {
  if (!sql.placeholders.empty()) {
    fail(1027, {}, static_cast<int>(sql.placeholders.front().offset));
  }
  try {
    Fragment translated = define_statement(context);
    if (!context.tokens.at_end()) context.tokens.fail_here(922);
    return finish(Action::Define, std::move(translated), context);
  } catch (const Failure& raised) {
    if (!is_about_a_name(raised)) throw;
    Translation result = finish(Action::Define, {}, context);
    result.failure = raised;
    return result;
  }
}

// --- Transaction control -------------------------------------------------------------------------

// COMMIT and ROLLBACK carry no engine SQL: whether a transaction is open is the session's matter.
Translation commit(Context& context) {
  Tokens& tokens = context.tokens;
  tokens.skip();
  tokens.accept_word("WORK");
  if (tokens.accept_word("COMMENT")) {
    if (tokens.kind() != TokenKind::String) tokens.fail_here(933);
    tokens.skip();
  }
  tokens.expect_end();
  return finish(Action::Commit, {}, context);
}

// Back to a savepoint the transaction stays open: that is no rollback for the session.
Translation rollback(Context& context) {
  Tokens& tokens = context.tokens;
  tokens.skip();
  tokens.accept_word("WORK");
  if (!tokens.accept_word("TO")) {
    tokens.expect_end();
    return finish(Action::Rollback, {}, context);
  }
  tokens.accept_word("SAVEPOINT");
  context.object = tokens.name(3001);
  tokens.expect_end();
  return finish(Action::Control, fragment("ROLLBACK TO " + quote_name(context.object), 0), context);
}

// The engine keeps savepoints of one name as a stack and goes back to the newest, which is the one
// that the server would have moved.
Translation savepoint(Context& context) {
  context.tokens.skip();
  context.object = context.tokens.name(3001);
  context.tokens.expect_end();
  return finish(Action::Control, fragment("SAVEPOINT " + quote_name(context.object), 0), context);
}

// All modes come to the same here, as the engine has one lock for a whole database.
void lock_mode(Tokens& tokens) {
  const bool row = tokens.accept_word("ROW");
  const bool share = !row && tokens.accept_word("SHARE");
  if (share && tokens.accept_word("ROW")) {
    if (!tokens.accept_word("EXCLUSIVE")) tokens.fail_here(1737);
  } else if (share) {
    tokens.accept_word("UPDATE");
  } else if (!tokens.accept_word("EXCLUSIVE") && !(row && tokens.accept_word("SHARE"))) {
    tokens.fail_here(1737);
  }
  tokens.expect_word("MODE", 1737);
}

// A change of no row: what waits for other writers, and keeps them waiting, as the lock would.
Translation lock_table(Context& context) {
  Tokens& tokens = context.tokens;
  tokens.skip();
  tokens.expect_word("TABLE");
  const ub4 offset = tokens.offset();
  const std::string name = tokens.object_name(context.schema.user(), 903);
  // Looked up for its error only: the engine's own message would have no place.
  table_columns(context, name, offset);
  tokens.expect_word("IN");
  lock_mode(tokens);
  context.nowait = tokens.accept_word("NOWAIT");
  tokens.expect_end();
  return finish(Action::Change, fragment("DELETE FROM " + quote_name(name) + " WHERE 0", offset),
                context);
}

// Every transaction of the engine is serializable already, and rollback segments it has none: what
// can be asked for here is so or means nothing. But a client that asks for READ ONLY relies on its
// changes being refused, which they would not be.
Translation set_transaction(Context& context) {
  Tokens& tokens = context.tokens;
  tokens.skip();
  tokens.expect_word("TRANSACTION", 922);
  if (tokens.is_word("READ") && tokens.is_word("ONLY", 1)) tokens.fail_here(3001);
  return finish(Action::Control, {}, context);
}

// Only what is so already: the default date format.
Translation alter_session(Context& context) {
  Tokens& tokens = context.tokens;
  tokens.skip(2);
  tokens.expect_word("SET", 922);
  if (!tokens.is_word("NLS_DATE_FORMAT") || !tokens.is_symbol("=", 1)) tokens.fail_here(3001);
  tokens.skip(2);
  if (tokens.spelling() != "'DD-MON-YY'") tokens.fail_here(3001);
  tokens.skip();
  tokens.expect_end();
  return finish(Action::Control, {}, context);
}

// Verbs that begin a statement of their own form; the defining ones share one path below.
struct Reader {
  std::string_view verb;
  Translation (*read)(Context& context);
};

constexpr Reader kStatements[] = {
    {"INSERT", [](Context& context) { return change(context, insert_statement); }},
    {"UPDATE", [](Context& context) { return change(context, update_statement); }},
    {"DELETE", [](Context& context) { return change(context, delete_statement); }},
    {"COMMIT", commit},
    {"ROLLBACK", rollback},
    {"SAVEPOINT", savepoint},
    {"LOCK", lock_table},
    {"SET", set_transaction},
    {"WITH", [](Context& context) -> Translation { context.tokens.fail_here(3001); }},
};

constexpr std::string_view kDefinitions[] = {"CREATE",   "DROP",    "ALTER",  "RENAME",
                                             "TRUNCATE", "COMMENT", "GRANT",  "REVOKE",
                                             "ANALYZE",  "AUDIT",   "EXPLAIN"};

}  // namespace

Translation translate(const SqlText& text, Schema& schema, Checks checks) {
  check_tokens(text);
  Context context(text, schema);
  context.checks = checks;
  const Tokens& tokens = context.tokens;
  if (at_query(tokens)) return select(context);
  for (const Reader& known : kStatements) {
    if (tokens.is_word(known.verb)) return known.read(context);
  }
  if (tokens.is_word("ALTER") && tokens.is_word("SESSION", 1)) return alter_session(context);
  const bool defines = std::ranges::any_of(
      kDefinitions, [&](std::string_view verb) { return tokens.is_word(verb); });
  if (!defines) fail(900, {}, static_cast<int>(tokens.offset()));
  return define(context, text);
}

}  // namespace oci8
