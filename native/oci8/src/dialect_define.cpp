// CREATE, DROP, ALTER and their siblings, but for what stands in a CREATE TABLE.
// A definition may need several engine statements, which are written one after the other with ";\n"
// between them and run in one transaction (SqliteStatement::run_define). Conditions that the engine
// does not check are statements of their own in front, which raise an Oracle error by ora_raise.
#include <algorithm>
#include <limits>

#include "declared_type.h"
#include "dialect_statement.h"
#include "number.h"

namespace oci8 {
namespace {

// The object that a definition makes or removes, which messages name.
std::string object(Context& context, int code = 903) {
  std::string name = context.tokens.object_name(context.schema.user(), code);
  if (context.object.empty()) context.object = name;
  return name;
}

// The name of a table or view that there is: looked up here rather than left to the engine, whose
// message has no offset.
std::string existing_table(Context& context) {
  const ub4 offset = context.tokens.offset();
  std::string name = context.tokens.object_name(context.schema.user(), 903);
  table_columns(context, name, offset);
  return name;
}

// --- Indexes and views ---------------------------------------------------------------------------

// Index expressions name columns without their table: the engine insists. Functions in them must
// give the same result for the same values; it checks that, too.
Fragment create_index(Context& context, bool unique) {
  Tokens& tokens = context.tokens;
  const std::string name = object(context, 953);
  tokens.expect_word("ON", 969);
  const ub4 offset = tokens.offset();
  const std::string table = tokens.object_name(context.schema.user(), 903);
  Scope scope(nullptr);
  scope.sources.emplace_back().name = table;
  for (ColumnInfo& column : table_columns(context, table, offset)) {
    std::string sql = quote_name(column.name);
    scope.sources.front().columns.push_back({std::move(column), std::move(sql)});
  }
  Fragment sql = fragment(unique ? "CREATE UNIQUE INDEX " : "CREATE INDEX ", 0);
  sql.add(quote_name(name) + " ON " + quote_name(table));
  tokens.expect_symbol("(", 906);
  std::string separator = " (";
  do {
    const Fragment key = expression(context, scope);
    refuse_large(key);
    sql.add(separator).add(key);
    // In a descending index the engine overlooks a NULL when it searches for NOT IN. It reads an
    // ascending one from either end.
    if (!tokens.accept_word("DESC")) tokens.accept_word("ASC");
    separator = ", ";
  } while (tokens.accept_symbol(","));
  tokens.expect_symbol(")", 907);
  skip_storage(tokens);
  return sql.add(")");
}

// Empty without a list: the query's own names hold then.
std::vector<std::string> listed_names(Tokens& tokens) {
  std::vector<std::string> names;
  if (!tokens.accept_symbol("(")) return names;
  do {
    names.push_back(tokens.name(904));
  } while (tokens.accept_symbol(","));
  tokens.expect_symbol(")", 907);
  return names;
}

// Types of view columns are settled now, in the heading: later only the view's text is there to
// ask. REPLACE is two engine statements, the first of which would give a table of that name another
// error.
Fragment create_view(Context& context, bool replace) {
  Tokens& tokens = context.tokens;
  const std::string name = object(context, 999);
  // So that a view that selects from itself is found out now and not as an endless recursion of the
  // engine.
  context.defines = name;
  const std::vector<std::string> names = listed_names(tokens);
  tokens.expect_word("AS");
  const ub4 offset = tokens.offset();
  const std::string text = view_text(tokens.rest());
  Query inner = query(context, nullptr, Naming::Names);
  if (!context.sequences.empty()) fail(2287, {}, static_cast<int>(offset));
  if (names.empty() && inner.unnamed >= 0) fail(998, {}, inner.unnamed);
  if (!names.empty() && names.size() != inner.columns.size()) tokens.fail_here(1730);
  for (size_t i = 0; i < names.size(); ++i) inner.columns[i].name = names[i];
  // Two columns of one name could never be told apart by those who select from the view. Select
  // lists are short enough for the quadratic search.
  for (size_t i = 0; i < inner.columns.size(); ++i) {
    for (size_t j = 0; j < i; ++j) {
      if (inner.columns[j].name == inner.columns[i].name) tokens.fail_here(957);
    }
  }
  if (tokens.accept_word("WITH")) {
    const bool known = tokens.accept_word("READ")
                           ? tokens.accept_word("ONLY")
                           : tokens.accept_word("CHECK") && tokens.accept_word("OPTION");
    if (!known) tokens.fail_here(933);
  }
  Fragment sql = fragment("", 0);
  if (replace) {
    sql.add("SELECT ora_raise(955) WHERE EXISTS (SELECT 1 FROM sqlite_schema WHERE type = 'table'");
    sql.add(" AND name = " + quote_text(name) + ");\n");
    sql.add("DROP VIEW IF EXISTS " + quote_name(name) + ";\n");
  }
  return sql.add(view_heading(name, inner.columns)).add(text).add(inner.sql);
}

// --- Sequences -----------------------------------------------------------------------------------

// Defaults depend on the direction, so what was not said must be known as such.
struct Sequence {
  long long increment = 1;
  std::optional<long long> start, minimum, maximum;
  bool cycle = false;
};

// The server counts up to 28 digits; here a bound beyond 64 bits is the greatest that there is.
long long sequence_number(Tokens& tokens) {
  const bool negative = tokens.accept_symbol("-");
  Number value;
  const NumberParse read = tokens.kind() == TokenKind::Number
                               ? parse_number(tokens.spelling(), value)
                               : NumberParse::Invalid;
  if (read == NumberParse::Invalid) tokens.fail_here(1722);
  tokens.skip();
  const bool fits = read == NumberParse::Ok && value.is_integer;
  using Limits = std::numeric_limits<long long>;
  if (!fits) return negative ? Limits::min() : Limits::max();
  return negative ? -value.integer : value.integer;
}

// CACHE and ORDER say how the server draws numbers, which a database in one file does anyhow.
bool sequence_option(Tokens& tokens, Sequence& sequence) {
  if (tokens.accept_word("INCREMENT")) {
    tokens.expect_word("BY");
    sequence.increment = sequence_number(tokens);
  } else if (tokens.accept_word("START")) {
    tokens.expect_word("WITH");
    sequence.start = sequence_number(tokens);
  } else if (tokens.accept_word("MINVALUE")) {
    sequence.minimum = sequence_number(tokens);
  } else if (tokens.accept_word("MAXVALUE")) {
    sequence.maximum = sequence_number(tokens);
  } else if (tokens.accept_word("CACHE")) {
    sequence_number(tokens);
  } else if (tokens.accept_word("CYCLE")) {
    sequence.cycle = true;
  } else {
    static constexpr std::string_view kWithout[] = {"NOMINVALUE", "NOMAXVALUE", "NOCYCLE",
                                                    "NOCACHE",    "ORDER",      "NOORDER"};
    return std::ranges::any_of(kWithout,
                               [&](std::string_view word) { return tokens.accept_word(word); });
  }
  return true;
}

// --- Dropping and emptying -----------------------------------------------------------------------

// To drop a table the engine deletes its rows first, and either way rows of other tables would go
// with them where those are declared ON DELETE CASCADE.
Fragment unless_referenced(const std::string& table, int code) {
  // Foreign keys of the table on itself are no obstacle: their rows go with it.
  std::string sql = "SELECT ora_raise(" + std::to_string(code) + ") WHERE EXISTS (SELECT 1 FROM";
  sql += " sqlite_schema AS s, pragma_foreign_key_list(s.name) AS k WHERE s.type = 'table' AND";
  sql += " s.name <> " + quote_text(table) + " AND k.\"table\" = " + quote_text(table) + ");\n";
  return fragment(sql, 0);
}

// The engine cannot take a foreign key from the table that has it: CASCADE CONSTRAINTS is done
// where there is none.
Fragment drop_table(Context& context) {
  const ub4 offset = context.tokens.offset();
  const std::string name = existing_table(context);
  const bool cascade = context.tokens.accept_word("CASCADE");
  if (cascade) context.tokens.expect_word("CONSTRAINTS");
  Fragment sql = unless_referenced(name, cascade ? 3001 : 2449);
  // Dropping a table fires no triggers, so that its large values have to be taken away by hand.
  for (const ColumnInfo& column : table_columns(context, name, offset)) {
    if (may_be_large(column.type)) sql.add(release_values(name, column.name));
  }
  return sql.add("DROP TABLE " + quote_name(name));
}

// --- Dispatch ------------------------------------------------------------------------------------

// Words that stand before the kind of object are taken in the only order that the server takes.
Fragment create(Context& context) {
  Tokens& tokens = context.tokens;
  bool replace = false;
  if (tokens.accept_word("OR")) {
    tokens.expect_word("REPLACE");
    replace = true;
  }
  // FORCE would make a view of tables that are not there, which is not done here: such a view is
  // refused with or without it.
  if (!tokens.accept_word("FORCE")) tokens.accept_word("NOFORCE");
  if (tokens.accept_word("VIEW")) return create_view(context, replace);
  if (replace) tokens.fail_here(3001);
  const bool unique = tokens.accept_word("UNIQUE");
  if (!unique) tokens.accept_word("BITMAP");
  if (tokens.accept_word("INDEX")) return create_index(context, unique);
  if (unique) tokens.fail_here(968);
  if (tokens.accept_word("TABLE")) return create_table(context, object(context));
  if (tokens.accept_word("SEQUENCE")) return create_sequence(context, object(context, 2277));
  if (tokens.kind() != TokenKind::Word) tokens.fail_here(901);
  tokens.fail_here(3001);
}

// Other kinds of objects than these four do not exist here: no half success for them.
Fragment drop(Context& context) {
  Tokens& tokens = context.tokens;
  if (tokens.accept_word("TABLE")) return drop_table(context);
  if (tokens.accept_word("VIEW")) {
    return fragment("DROP VIEW " + quote_name(existing_table(context)), 0);
  }
  if (tokens.accept_word("INDEX")) {
    return fragment("DROP INDEX " + quote_name(object(context, 953)), 0);
  }
  const ub4 offset = tokens.offset();
  if (tokens.accept_word("SEQUENCE")) return drop_sequence(object(context, 2277), offset);
  tokens.fail_here(tokens.kind() == TokenKind::Word ? 3001 : 950);
}

Fragment alter_index(Context& context) {
  const ub4 offset = context.tokens.offset();
  const std::string name = object(context, 953);
  context.tokens.expect_word("REBUILD", 3001);
  context.tokens.accept_word("ONLINE");
  skip_storage(context.tokens);
  return fragment(
      "SELECT ora_raise(1418) WHERE NOT EXISTS (SELECT 1 FROM sqlite_schema WHERE"
      " type = 'index' AND name = " +
          quote_text(name) + "); REINDEX " + quote_name(name),
      offset);
}

Fragment alter(Context& context) {
  if (context.tokens.accept_word("INDEX")) return alter_index(context);
  context.tokens.expect_word("TABLE", 3001);
  return alter_table(context, existing_table(context));
}

// Views and indexes follow a renamed table by themselves; privileges there are none.
Fragment rename(Context& context) {
  const ub4 offset = context.tokens.offset();
  const std::string from = existing_table(context);
  context.tokens.expect_word("TO");
  const std::string to = context.tokens.name(903);
  return rename_table(from, to, table_columns(context, from, offset));
}

// Deleting everything without a condition is the engine's own way to empty a table at once.
Fragment truncate(Context& context) {
  Tokens& tokens = context.tokens;
  tokens.expect_word("TABLE", 3291);
  const std::string name = existing_table(context);
  if (tokens.accept_word("REUSE") || tokens.accept_word("DROP")) {
    if (!tokens.accept_word("STORAGE")) tokens.fail_here(3291);
  }
  return unless_referenced(name, 2266).add("DELETE FROM " + quote_name(name));
}

// Comments are kept nowhere: the statement is checked and does nothing.
Fragment comment(Context& context) {
  Tokens& tokens = context.tokens;
  tokens.expect_word("ON");
  const bool table = tokens.accept_word("TABLE");
  if (!table) tokens.expect_word("COLUMN");
  const ub4 offset = tokens.offset();
  std::vector<std::string> parts;
  do {
    parts.push_back(tokens.name(903));
  } while (tokens.accept_symbol("."));
  if (!table && parts.size() > 1) parts.pop_back();
  table_columns(context, parts.back(), offset);
  tokens.expect_word("IS");
  if (tokens.kind() != TokenKind::String) tokens.fail_here(1780);
  tokens.skip();
  return fragment("", 0);
}

// Statistics are kept nowhere either: the engine plans without.
Fragment analyze(Context& context) {
  Tokens& tokens = context.tokens;
  tokens.expect_word("TABLE", 3001);
  existing_table(context);
  const bool estimate = tokens.accept_word("ESTIMATE");
  if (!estimate && !tokens.accept_word("COMPUTE")) tokens.expect_word("DELETE", 3001);
  tokens.expect_word("STATISTICS");
  if (estimate && tokens.accept_word("SAMPLE")) {
    tokens.integer(std::numeric_limits<int>::max(), 905);
    if (!tokens.accept_word("PERCENT")) tokens.expect_word("ROWS");
  }
  return fragment("", 0);
}

}  // namespace

// Sequences are rows, not objects of the engine: names are compared with its objects here, because
// the server has one name space for both.
Fragment create_sequence(Context& context, const std::string& name) {
  constexpr long long kGreatest = std::numeric_limits<long long>::max();
  Sequence sequence;
  while (sequence_option(context.tokens, sequence)) {
  }
  const bool up = sequence.increment > 0;
  const long long minimum = sequence.minimum.value_or(up ? 1 : -kGreatest);
  const long long maximum = sequence.maximum.value_or(up ? kGreatest : -1);
  const long long start = sequence.start.value_or(up ? minimum : maximum);
  if (sequence.increment == 0) context.tokens.fail_here(4002);
  // Each of these checks presumes the ones before.
  if (minimum >= maximum) context.tokens.fail_here(4004);
  if (start < minimum) context.tokens.fail_here(4006);
  if (start > maximum) context.tokens.fail_here(4008);
  const std::string quoted = quote_text(name);
  std::string sql = "SELECT ora_raise(955) WHERE EXISTS (SELECT 1 FROM \"OCI8$SEQUENCES\"";
  sql += " WHERE name = " + quoted + " UNION ALL SELECT 1 FROM sqlite_schema WHERE name = ";
  sql += quoted + " AND type IN ('table','view'));\n";
  sql += "INSERT INTO \"OCI8$SEQUENCES\"(name,next,increment,minimum,maximum,cycle) VALUES (";
  sql += quoted;
  for (const long long value :
       {start, sequence.increment, minimum, maximum, static_cast<long long>(sequence.cycle)}) {
    sql += "," + std::to_string(value);
  }
  return fragment(sql + ")", 0);
}

// A delete of no row is no error for the engine.
Fragment drop_sequence(const std::string& name, ub4 offset) {
  const std::string quoted = quote_text(name);
  std::string sql = "SELECT ora_raise(2289) WHERE NOT EXISTS (SELECT 1 FROM \"OCI8$SEQUENCES\"";
  sql += " WHERE name = " + quoted + ");\nDELETE FROM \"OCI8$SEQUENCES\" WHERE name = " + quoted;
  return fragment(sql, offset);
}

// Scripts made from real databases are full of these clauses, and none changes what a query gives.
void skip_storage(Tokens& tokens) {
  static constexpr std::string_view kAlone[] = {"LOGGING",    "NOLOGGING", "CACHE",  "NOCACHE",
                                                "NOPARALLEL", "PARALLEL",  "NOSORT", "REVERSE"};
  static constexpr std::string_view kWithArgument[] = {"TABLESPACE", "PCTFREE",  "PCTUSED",
                                                       "INITRANS",   "MAXTRANS", "ORGANIZATION"};
  const auto at = [&](std::string_view word) { return tokens.is_word(word); };
  while (!tokens.at_end()) {
    if (tokens.accept_word("STORAGE")) {
      tokens.expect_symbol("(", 906);
      tokens.skip_parenthesis();
    } else if (std::ranges::any_of(kWithArgument, at)) {
      tokens.skip(2);
    } else if (std::ranges::any_of(kAlone, at)) {
      tokens.skip();
    } else {
      return;
    }
  }
}

Fragment define_statement(Context& context) {
  Tokens& tokens = context.tokens;
  if (tokens.accept_word("CREATE")) return create(context);
  if (tokens.accept_word("DROP")) return drop(context);
  if (tokens.accept_word("ALTER")) return alter(context);
  if (tokens.accept_word("RENAME")) return rename(context);
  if (tokens.accept_word("TRUNCATE")) return truncate(context);
  if (tokens.accept_word("COMMENT")) return comment(context);
  if (tokens.accept_word("ANALYZE")) return analyze(context);
  tokens.fail_here(3001);
}

}  // namespace oci8
