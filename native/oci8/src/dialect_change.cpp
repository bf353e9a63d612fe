// INSERT, UPDATE, DELETE.
// Each value on its way into a column goes through store(), which checks and converts by the
// column's declaration: the engine itself would keep anything anywhere. A bound value alone may be
// left to who binds it and can see that nothing needs to be done to it. Large values need one more
// thing, that every row gets one of its own, and get it from functions that make one each time they
// are called.
#include <algorithm>

#include "declared_type.h"
#include "dialect_statement.h"

namespace oci8 {
namespace {

constexpr std::string_view kNumbered = "\"OCI8$N\"";

// The table that a statement changes. Its columns decide how each value is stored.
struct Target {
  std::string name;
  std::vector<ColumnInfo> columns;
};

// A value on its way into a column of the table.
Fragment stored(Context& context, const Fragment& value, const ColumnInfo& column) {
  Fragment result = store(value, column);
  if (!is_placeholder(value)) return result;
  // The digits are our own, written by the reader of placeholders; no text of the client's is read
  // here.
  const auto position = static_cast<ub4>(std::stoul(value.sql.substr(1)));
  if (may_be_large(column.type)) {
    context.large_places.push_back({position, column.type});
  } else if (context.checks == Checks::ButBound) {
    context.stored_places.push_back({position, column});
    return value;
  }
  return result;
}

// Columns that values go into are those of the one table; no scope around it can offer others.
const ColumnInfo& column_named(const Target& target, const std::string& name, ub4 offset) {
  const auto found = std::ranges::find(target.columns, name, &ColumnInfo::name);
  if (found == target.columns.end()) {
    fail(904, "\"" + name + "\"", static_cast<int>(offset));
  }
  return *found;
}

// Reads the table that a statement changes, and its alias, into the scope. INSERT takes no alias:
// behind its table a word can only be VALUES or SELECT.
Target target_table(Context& context, Scope& scope, Fragment& sql, bool with_alias) {
  Tokens& tokens = context.tokens;
  const ub4 offset = tokens.offset();
  if (tokens.is_symbol("(")) tokens.fail_here(3001);
  Target target;
  target.name = tokens.object_name(context.schema.user(), 903);
  target.columns = table_columns(context, target.name, offset);
  context.large = has_large(target.columns);
  Fragment name = fragment(quote_name(target.name), offset);
  std::string alias = target.name;
  if (with_alias && tokens.at_name()) {
    alias = tokens.name(933);
    name.add(" AS " + quote_name(alias));
  }
  scope.sources.push_back(table_source(alias, target.columns));
  sql.add(name);
  return target;
}

// [table.]column of the target.
const ColumnInfo& target_column(Context& context, const Target& target) {
  Tokens& tokens = context.tokens;
  const ub4 offset = tokens.offset();
  std::string name = tokens.name(1747);
  while (tokens.accept_symbol(".")) name = tokens.name(1747);
  return column_named(target, name, offset);
}

// Pointers into the target, which outlives the lists.
using Columns = std::vector<const ColumnInfo*>;

// Reads a column that gets a value; one that has been read before would have two.
const ColumnInfo& next_column(Context& context, const Target& target, Columns& before) {
  const ub4 offset = context.tokens.offset();
  const ColumnInfo& column = target_column(context, target);
  if (std::ranges::find(before, &column) != before.end()) {
    fail(957, {}, static_cast<int>(offset));
  }
  before.push_back(&column);
  return column;
}

// Adds the columns of a list.
void column_list(Context& context, const Target& target, Columns& columns) {
  Tokens& tokens = context.tokens;
  do {
    next_column(context, target, columns);
  } while (tokens.accept_symbol(","));
  tokens.expect_symbol(")", tokens.at_name() ? 917 : 907);
}

// The server tells both cases apart, and clients test for the codes.
void check_count(size_t values, size_t columns, ub4 offset) {
  if (values > columns) fail(913, {}, static_cast<int>(offset));
  if (values < columns) fail(947, {}, static_cast<int>(offset));
}

// The columns of a query as they are stored into columns of a table.
Fragment store_query(const Query& inner, const Columns& columns) {
  std::vector<Fragment> values;
  for (size_t i = 0; i < columns.size(); ++i) {
    values.push_back(store(column_of(inner, i), *columns[i]));
  }
  return select_from(inner, values);
}

// VALUES sees no table: a name there is a mistake with an error of its own (a word in place of a
// literal, most often), not an unknown column.
Fragment insert_values(Context& context, const Columns& columns) {
  Tokens& tokens = context.tokens;
  const ub4 offset = tokens.offset();
  Scope nothing(nullptr);
  tokens.expect_symbol("(", 906);
  std::vector<Fragment> values;
  do {
    context.item = tokens.position();
    values.push_back(expression(context, nothing));
  } while (tokens.accept_symbol(","));
  tokens.expect_symbol(")", 917);
  check_count(values.size(), columns.size(), offset);
  for (size_t i = 0; i < values.size(); ++i) values[i] = stored(context, values[i], *columns[i]);
  if (context.sequences.empty()) return call(" VALUES ", values, offset);
  // The engine makes the values of VALUES in the order of the table's columns, and a query's in
  // the order of the text, which NEXTVAL and CURRVAL beside each other depend on.
  Fragment query = fragment(" SELECT ", offset);
  for (size_t i = 0; i < values.size(); ++i) query.add(i > 0 ? "," : "").add(values[i]);
  return query;
}

// A WHERE clause; with a row limit, which the engine has for queries only, as a query of rows. It
// begins with the function at which a break stops the statement without the transaction.
void add_where(Context& context, Scope& scope, Fragment& sql, bool finds_first = false) {
  sql.add(" WHERE go_on()");
  if (!context.tokens.accept_word("WHERE")) return;
  scope.sequences = false;
  std::vector<Fragment> parts = conjuncts(context, scope);
  std::string limit = take_limit(parts);
  // A DELETE takes away each row that it finds before it looks for the next one, which its queries
  // must not see: it finds them all first.
  if (limit.empty() && finds_first && context.queries > 0) limit = "-1";
  for (const Fragment& part : parts) {
    if (part.outer != 0) fail(1719, {}, static_cast<int>(part.offset));
  }
  Fragment whole = join_conditions(parts, " AND ");
  deepen(whole, 2);
  if (limit.empty()) {
    sql.add(" AND ").add(whole);
    return;
  }
  const Source& source = scope.sources.front();
  sql.add(" AND " + source.rowid + " IN (SELECT " + source.rowid + " FROM ");
  sql.add(quote_name(context.object) + " AS " + quote_name(source.name));
  sql.add(" WHERE go_on() AND ").add(whole).add(" LIMIT " + limit + ")");
}

// For an UPDATE that stores ROWNUM: the rows that the WHERE clause lets pass, with their numbers,
// as a table to join with.
void add_numbered_rows(Context& context, Scope& scope, Fragment& sql) {
  const std::string name = scope.sources.front().name, rowid = scope.sources.front().rowid;
  sql.add(" FROM (SELECT " + rowid + " AS \"r\", row_number() OVER () AS \"n\" FROM ");
  sql.add(quote_name(context.object) + " AS " + quote_name(name));
  add_where(context, scope, sql);
  sql.add(") AS ").add(kNumbered).add(" WHERE " + rowid + " = ").add(kNumbered).add(".\"r\"");
}

// a = (SELECT ...), b = (SELECT ...). The engine runs a query that does not depend on the row once
// for all rows, and each needs a large value of its own: it is made outside of the query.
Fragment assign_each(const Columns& columns, const Query& inner,
                     const std::vector<Fragment>& values) {
  Fragment result;
  for (size_t i = 0; i < columns.size(); ++i) {
    Fragment one = fragment("(", inner.sql.offset);
    one.add(select_from(inner, {values[i]})).add(")");
    deepen(one, 6);
    one.type = inner.types[i];
    result.add(i > 0 ? ", " : "").add(quote_name(columns[i]->name)).add(" = ");
    result.add(store(one, *columns[i]));
  }
  return result;
}

// (a, b) = (SELECT ...)
Fragment assign_row(Context& context, Scope& scope, const Target& target, Columns& assigned) {
  Tokens& tokens = context.tokens;
  const auto before = static_cast<std::ptrdiff_t>(assigned.size());
  column_list(context, target, assigned);
  const Columns columns(assigned.begin() + before, assigned.end());
  tokens.expect_symbol("=", 927);
  const ub4 offset = tokens.offset();
  tokens.expect_symbol("(", 906);
  if (!at_query(tokens)) tokens.fail_here(928);
  Query inner = query(context, &scope, Naming::Positions);
  tokens.expect_symbol(")", 907);
  check_count(inner.columns.size(), columns.size(), offset);
  std::vector<Fragment> values;
  for (size_t i = 0; i < columns.size(); ++i) {
    values.push_back(call("ora_single", {column_of(inner, i)}, offset));
    // The function gives back one of the query's values unchanged, so that their type goes on to
    // hold.
    values.back().type = inner.types[i];
  }
  if (std::ranges::any_of(columns, [](const auto* one) { return may_be_large(one->type); })) {
    return assign_each(columns, inner, values);
  }
  for (size_t i = 0; i < columns.size(); ++i) values[i] = store(values[i], *columns[i]);
  Fragment result = fragment("(", offset);
  for (size_t i = 0; i < columns.size(); ++i) {
    result.add(i > 0 ? "," : "").add(quote_name(columns[i]->name));
  }
  return result.add(") = (").add(select_from(inner, values)).add(")");
}

// Right sides read the row as it was, also where a column is assigned before: so does the engine.
Fragment assignment(Context& context, Scope& scope, const Target& target, Columns& assigned) {
  Tokens& tokens = context.tokens;
  if (tokens.accept_symbol("(")) return assign_row(context, scope, target, assigned);
  const ub4 offset = tokens.offset();
  const ColumnInfo& column = next_column(context, target, assigned);
  tokens.expect_symbol("=", 927);
  Fragment result = fragment(quote_name(column.name) + " = ", offset);
  return result.add(stored(context, expression(context, scope), column));
}

}  // namespace

// The column list is written out even where the statement has none, so that a column added to the
// table between preparation and run is an error rather than a shift of values.
Fragment insert_statement(Context& context) {
  Tokens& tokens = context.tokens;
  tokens.skip();
  tokens.expect_word("INTO", 925);
  Scope scope(nullptr);
  Fragment sql = fragment("INSERT INTO ", 0);
  const Target target = target_table(context, scope, sql, false);
  Columns columns;
  if (tokens.is_symbol("(") && !at_query(tokens)) {
    tokens.skip();
    column_list(context, target, columns);
  } else {
    for (const ColumnInfo& column : target.columns) columns.push_back(&column);
  }
  for (size_t i = 0; i < columns.size(); ++i) {
    sql.add(i > 0 ? "," : "(").add(quote_name(columns[i]->name));
  }
  sql.add(")");
  if (tokens.accept_word("VALUES")) return sql.add(insert_values(context, columns));
  if (!at_query(tokens)) tokens.fail_here(926);
  const ub4 offset = tokens.offset();
  const Query inner = query(context, nullptr, Naming::Positions);
  check_count(inner.columns.size(), columns.size(), offset);
  return sql.add(" ").add(store_query(inner, columns));
}

// The alias goes along, because sources are named by it in every expression that follows.
Fragment update_statement(Context& context) {
  Tokens& tokens = context.tokens;
  tokens.skip();
  Scope scope(nullptr);
  Fragment sql = fragment("UPDATE ", 0);
  const Target target = target_table(context, scope, sql, true);
  tokens.expect_word("SET", 971);
  std::string separator = " SET ";
  Columns assigned;
  scope.select_list = true;
  scope.row_number = std::string(kNumbered) + ".\"n\"";
  do {
    sql.add(separator).add(assignment(context, scope, target, assigned));
    separator = ", ";
  } while (tokens.accept_symbol(","));
  scope.select_list = false;
  scope.row_number.clear();
  if (scope.row_number_used) {
    add_numbered_rows(context, scope, sql);
    return sql;
  }
  Fragment where;
  add_where(context, scope, where);
  // Its queries must see no row changed yet: of a join, the engine makes all new values first.
  if (context.queries > 0) sql.add(" FROM (SELECT 1)");
  return sql.add(where);
}

// FROM may be missing.
Fragment delete_statement(Context& context) {
  context.tokens.skip();
  context.tokens.accept_word("FROM");
  Scope scope(nullptr);
  Fragment sql = fragment("DELETE FROM ", 0);
  target_table(context, scope, sql, true);
  // Without a condition the engine empties the table at once, with no look at its rows.
  if (context.tokens.is_word("WHERE")) add_where(context, scope, sql, true);
  return sql;
}

}  // namespace oci8
