// Comparisons: operators, IN, BETWEEN, LIKE, IS NULL, EXISTS, ANY and ALL, and ROWNUM as a bound.
// Two things decide how a comparison is written: the classes of its sides, which the engine would
// compare by kind before value, and whether a side is a row, a query or ROWNUM, which need forms of
// their own. All of them come back as fragments that are marked as conditions.
#include <algorithm>
#include <optional>
#include <utility>

#include "dialect_expression.h"
#include "dialect_query.h"

namespace oci8 {
namespace {

enum class Operator : ub1 { None, Equal, NotEqual, Less, LessEqual, Greater, GreaterEqual };

// Three spellings of unequal come together here.
struct OperatorMark {
  std::string_view mark;
  Operator operation;
};

constexpr OperatorMark kMarks[] = {
    {"=", Operator::Equal},     {"<>", Operator::NotEqual},     {"!=", Operator::NotEqual},
    {"^=", Operator::NotEqual}, {"<", Operator::Less},          {"<=", Operator::LessEqual},
    {">", Operator::Greater},   {">=", Operator::GreaterEqual},
};

// In the order of the enumeration.
std::string_view engine_mark(Operator operation) {
  static constexpr std::string_view kEngine[] = {"", " = ", " <> ", " < ", " <= ", " > ", " >= "};
  return kEngine[static_cast<size_t>(operation)];
}

Operator operator_at(const Tokens& tokens, size_t ahead = 0) {
  if (tokens.kind(ahead) != TokenKind::Symbol) return Operator::None;
  const auto* found = std::ranges::find(kMarks, tokens.spelling(ahead), &OperatorMark::mark);
  return found == std::end(kMarks) ? Operator::None : found->operation;
}

// The operator with its sides exchanged: 5 >= ROWNUM is ROWNUM <= 5.
Operator mirrored(Operator operation) {
  switch (operation) {
    case Operator::Less:
      return Operator::Greater;
    case Operator::LessEqual:
      return Operator::GreaterEqual;
    case Operator::Greater:
      return Operator::Less;
    case Operator::GreaterEqual:
      return Operator::LessEqual;
    default:
      return operation;
  }
}

// The operator that holds where this one does not.
Operator opposite(Operator operation) {
  switch (operation) {
    case Operator::Equal:
      return Operator::NotEqual;
    case Operator::NotEqual:
      return Operator::Equal;
    case Operator::Less:
      return Operator::GreaterEqual;
    case Operator::LessEqual:
      return Operator::Greater;
    case Operator::Greater:
      return Operator::LessEqual;
    default:
      return Operator::Less;
  }
}

// Conditions are no values on the server: the mark keeps a comparison out of select lists and
// values out of WHERE, which the engine would both accept.
Fragment as_condition(Fragment result, int entries = 0) {
  deepen(result, entries);
  result.condition = true;
  return result;
}

[[noreturn]] void fail_at(int code, const Fragment& where) {
  fail(code, {}, static_cast<int>(where.offset));
}

// Rows of values compare in few places only; everywhere else one is a mistake.
Fragment single(Fragment value) {
  if (value.condition || !value.row.empty()) fail_at(920, value);
  return value;
}

// Members may be rows; who asked for the list knows whether they must be.
std::vector<Fragment> value_list(Context& context, Scope& scope) {
  std::vector<Fragment> values;
  context.tokens.expect_symbol("(", 906);
  do {
    values.push_back(operand(context, scope));
  } while (context.tokens.accept_symbol(","));
  context.tokens.expect_symbol(")", 907);
  return values;
}

// --- ROWNUM --------------------------------------------------------------------------------------

// Rows are numbered as they pass, so ROWNUM can only bound how many do: a condition that row
// number 1 fails lets none pass.
// A bound is an expression of the client's and may be NULL: a comparison with NULL lets no row
// pass, hence the coalesce to 0. Fractions count as the comparison would: ROWNUM < 2.5 passes two
// rows, which ceil(2.5) - 1 gives, too.
std::string row_limit(Operator operation, const std::string& number) {
  static const std::string kAll = "9223372036854775807";
  switch (operation) {
    case Operator::NotEqual:
      return "CASE WHEN " + number + " < 1 OR " + number + " <> CAST(" + number +
             " AS INTEGER) THEN " + kAll + " ELSE coalesce(CAST(" + number +
             " AS INTEGER)-1,0) END";
    case Operator::Less:
      return "coalesce(max(0,CAST(ceil(" + number + ") AS INTEGER)-1),0)";
    case Operator::LessEqual:
      return "coalesce(max(0,CAST(floor(" + number + ") AS INTEGER)),0)";
    case Operator::Equal:
      return "(" + number + " IS 1)";
    case Operator::Greater:
      return "CASE WHEN " + number + " < 1 THEN " + kAll + " ELSE 0 END";
    default:
      return "CASE WHEN " + number + " <= 1 THEN " + kAll + " ELSE 0 END";
  }
}

// A bound that reads a column would be different for each row, which a limit cannot be.
std::string row_bound_number(const Fragment& bound) {
  if (bound.sources != 0 || !bound.row.empty() || bound.condition) fail_at(3001, bound);
  return "ora_number(" + bound.sql + ")";
}

Fragment row_bound(Operator operation, const Fragment& bound) {
  Fragment result = fragment("1", bound.offset);
  // The condition itself says nothing any more; the limit is written at the end of the query
  // (take_limit).
  const std::string number = row_bound_number(bound);
  result.limit = row_limit(operation, number);
  result.other_limit = row_limit(opposite(operation), number);
  return as_condition(std::move(result));
}

// Rows pass as long as their number is in the list: up to the first number that is not.
Fragment row_list(const std::vector<Fragment>& numbers) {
  Fragment result = fragment("1", numbers.front().offset);
  std::string list;
  for (const Fragment& number : numbers) {
    list += (list.empty() ? "" : ",") + row_bound_number(number);
  }
  result.limit = R"((WITH RECURSIVE "OCI8$N"(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM "OCI8$N")";
  result.limit += " WHERE n IN (" + list + R"()) SELECT max(n) - 1 FROM "OCI8$N"))";
  return as_condition(std::move(result), 12);
}

// Two bounds in one: the lesser limit holds.
Fragment row_bounds_between(Context& context, Scope& scope) {
  Fragment result = row_bound(Operator::GreaterEqual, operand(context, scope));
  context.tokens.expect_word("AND");
  const Fragment high = row_bound(Operator::LessEqual, operand(context, scope));
  result.limit = "min(" + result.limit + "," + high.limit + ")";
  result.other_limit.clear();
  return result;
}

// ROWNUM as a side of a condition. As a value of the select list it goes through operand(), as does
// what cannot be a limit.
std::optional<Fragment> row_condition(Context& context, Scope& scope) {
  Tokens& tokens = context.tokens;
  if (!tokens.is_word("ROWNUM") || scope.select_list) return std::nullopt;
  const Operator operation = operator_at(tokens, 1);
  const bool between = tokens.is_word("BETWEEN", 1);
  const bool listed = tokens.is_word("IN", 1) && !tokens.is_word("SELECT", 3);
  if (operation == Operator::None && !between && !listed) return std::nullopt;
  tokens.skip(2);
  if (between) return row_bounds_between(context, scope);
  if (listed) return row_list(value_list(context, scope));
  return row_bound(operation, operand(context, scope));
}

// --- Two sides -----------------------------------------------------------------------------------

// A row is found by its number, not by the text of every row's number.
void use_row_number(Fragment& left, Fragment& right) {
  if (left.rowid.empty()) return;
  left.sql = left.rowid;
  // The marks belong to the text that is replaced, their offsets would point behind the new one's
  // end.
  left.marks.clear();
  if (right.rowid.empty()) {
    right = call("rowid_number", {right}, right.offset);
  } else {
    right.sql = right.rowid;
    right.marks.clear();
  }
}

// Equality with a ROWID is worth a way of its own: that is how clients come back to a row that
// they have read. Only equality, because the texts sort as the numbers do not.
Fragment compare_values(Fragment left, Operator operation, Fragment right) {
  if (operation == Operator::Equal || operation == Operator::NotEqual) {
    if (left.rowid.empty()) std::swap(left, right);
    if (!left.rowid.empty()) {
      use_row_number(left, right);
      return as_condition(infix(left, engine_mark(operation), right));
    }
    std::swap(left, right);
  }
  make_comparable({&left, &right});
  return as_condition(infix(left, engine_mark(operation), right));
}

// A single value as a row of one, so that both go one way.
std::vector<Fragment> members(Fragment value) {
  if (!value.row.empty()) return std::move(value.row);
  std::vector<Fragment> only;
  only.push_back(std::move(value));
  return only;
}

// The engine refuses (a) IN (...) with the parentheses of a row around one value.
Fragment row_of(const std::vector<Fragment>& values) {
  if (values.size() == 1) return values.front();
  return call("", values, values.front().offset);
}

// How a query stands behind IN or NOT IN: with its columns converted, or as it is.
Fragment query_list(const Query& inner, const std::vector<Fragment>& columns, bool converted) {
  // Only then the query is wrapped in another one: a plain query of one column stays open to the
  // engine's own plans for IN.
  if (converted) return select_from(inner, columns);
  Fragment result = inner.sql;
  // An index that has the columns in another order would be searched with their affinities mixed
  // up. With a limit, also one that cuts nothing, the engine makes a list of its own.
  if (columns.size() > 1 && !inner.limited) result.add(" LIMIT -1");
  return result;
}

// How a query stands behind = or <>: the engine alone would take the first of several rows.
Fragment query_row(const Query& inner, std::vector<Fragment> columns) {
  for (Fragment& column : columns) column = call("ora_single", {column}, column.offset);
  return select_from(inner, columns);
}

// left = (SELECT ...) and left IN (SELECT ...): the columns are converted inside the query.
Fragment compare_to_query(Fragment left_side, std::string_view operation, const Query& inner) {
  std::vector<Fragment> left = members(std::move(left_side));
  if (left.size() < inner.columns.size()) fail_at(913, inner.sql);
  if (left.size() > inner.columns.size()) fail_at(947, inner.sql);
  std::vector<Fragment> right;
  bool converted = false;
  for (size_t i = 0; i < left.size(); ++i) {
    right.push_back(column_of(inner, i));
    const std::string plain = right.back().sql;
    if (left[i].condition || !left[i].row.empty()) fail_at(920, left[i]);
    make_comparable({&left[i], &right.back()});
    converted = converted || right.back().sql != plain;
  }
  Fragment result = fragment("(", left.front().offset);
  result.add(row_of(left)).add(operation).add("(");
  const bool listed = operation.ends_with(" IN ");
  result.add(listed ? query_list(inner, right, converted) : query_row(inner, right)).add("))");
  return as_condition(std::move(result), 6);
}

// What the inner query reads of this one counts as read here: join order depends on it.
Query parenthesized_query(Context& context, Scope& scope) {
  context.tokens.expect_symbol("(", 906);
  Query inner = query(context, &scope, Naming::Positions);
  context.tokens.expect_symbol(")", 907);
  inner.sql.sources |= std::exchange(scope.correlated, std::uint64_t{0});
  return inner;
}

Fragment in_list(Fragment left, std::vector<Fragment> values, bool negated);

// (a,b) IN ((1,2),(3,4)): the engine knows no list of rows there, but a table of them.
Fragment rows_in_list(Fragment left_side, std::vector<Fragment> rows, bool negated) {
  std::vector<Fragment> left = std::move(left_side.row);
  for (size_t i = 0; i < left.size(); ++i) {
    std::vector<Fragment*> column = {&left[i]};
    for (Fragment& row : rows) {
      if (row.row.size() != left.size()) fail_at(row.row.size() > left.size() ? 913 : 947, row);
      column.push_back(&row.row[i]);
    }
    make_comparable(column);
  }
  Fragment result = fragment("(", left.front().offset);
  result.add(row_of(left)).add(negated ? " NOT IN (VALUES " : " IN (VALUES ");
  for (size_t i = 0; i < rows.size(); ++i) {
    if (i > 0) result.add(",");
    result.add(row_of(rows[i].row));
  }
  result.add("))");
  return as_condition(std::move(result), 6);
}

// Whether a column of the rows has members that are blank-padded, and others that are not.
bool rows_pad_some(const Fragment& left, const std::vector<Fragment>& rows) {
  for (size_t i = 0; i < left.row.size(); ++i) {
    std::vector<Fragment> column;
    for (const Fragment& row : rows) {
      if (i < row.row.size()) column.push_back(row.row[i]);
    }
    if (pads_some(left.row[i], column)) return true;
  }
  return false;
}

// A list for each member.
Fragment lists_of_one(const Fragment& left, const std::vector<Fragment>& values, bool negated) {
  std::vector<Fragment> lists;
  lists.reserve(values.size());
  for (const Fragment& value : values) lists.push_back(in_list(left, {value}, negated));
  return join_conditions(lists, negated ? " AND " : " OR ");
}

// All members and the left side are converted to one class together: with single conversions the
// left side would have to be written once per member. Members that are blank-padded and members
// that are not make two lists.
Fragment in_list(Fragment left, std::vector<Fragment> values, bool negated) {
  if (pads_some(left, values)) {
    const auto padded = [](const Fragment& value) { return value.type.code == SQLT_AFC; };
    const auto others = std::stable_partition(values.begin(), values.end(), padded);
    const Fragment lists[] = {in_list(left, {values.begin(), others}, negated),
                              in_list(left, {others, values.end()}, negated)};
    return join_conditions(lists, negated ? " AND " : " OR ");
  }
  if (rows_pad_some(left, values)) return lists_of_one(left, values, negated);
  if (!left.row.empty()) return rows_in_list(std::move(left), std::move(values), negated);
  std::vector<Fragment*> compared = {&left};
  for (Fragment& value : values) {
    value = single(std::move(value));
    if (!left.rowid.empty()) value = call("rowid_number", {value}, value.offset);
    compared.push_back(&value);
  }
  if (!left.rowid.empty()) {
    left.sql = left.rowid;
    left.marks.clear();
  } else {
    make_comparable(compared);
  }
  Fragment result = fragment("(", left.offset);
  result.add(left).add(negated ? " NOT IN (" : " IN (");
  for (size_t i = 0; i < values.size(); ++i) {
    if (i > 0) result.add(",");
    result.add(values[i]);
  }
  result.add("))");
  return as_condition(std::move(result), 5);
}

// A list that begins with a query is that query; any other list may hold queries as values.
Fragment in_operator(Context& context, Scope& scope, Fragment left, bool negated) {
  if (context.tokens.is_symbol("(") && context.tokens.is_word("SELECT", 1)) {
    return compare_to_query(std::move(left), negated ? " NOT IN " : " IN ",
                            parenthesized_query(context, scope));
  }
  return in_list(std::move(left), value_list(context, scope), negated);
}

// = ANY is IN and <> ALL is NOT IN; the engine has none of the others.
Fragment quantified(Context& context, Scope& scope, Fragment left, Operator operation) {
  const bool all = context.tokens.is_word("ALL");
  if (operation != (all ? Operator::NotEqual : Operator::Equal)) context.tokens.fail_here(3001);
  context.tokens.skip();
  return in_operator(context, scope, std::move(left), all);
}

// Rows of values side by side become comparisons of pairs, each converted by its own types.
Fragment compare_rows(Fragment left, Operator operation, Fragment right) {
  if (right.row.size() != left.row.size()) {
    fail_at(right.row.size() > left.row.size() ? 913 : 947, right);
  }
  if (operation != Operator::Equal && operation != Operator::NotEqual) fail_at(920, left);
  std::vector<Fragment> pairs;
  for (size_t i = 0; i < left.row.size(); ++i) {
    pairs.push_back(compare_values(single(left.row[i]), operation, single(right.row[i])));
  }
  return join_conditions(pairs, operation == Operator::Equal ? " AND " : " OR ");
}

// A row may be compared to a query as a whole; a single value is compared to the query's value,
// which takes the ordinary way through operand().
Fragment binary(Context& context, Scope& scope, Fragment left, Operator operation) {
  Tokens& tokens = context.tokens;
  tokens.skip();
  if (tokens.is_word("ANY") || tokens.is_word("SOME") || tokens.is_word("ALL")) {
    return quantified(context, scope, std::move(left), operation);
  }
  if (!left.row.empty() && tokens.is_symbol("(") && tokens.is_word("SELECT", 1)) {
    return compare_to_query(std::move(left), engine_mark(operation),
                            parenthesized_query(context, scope));
  }
  // In the select list ROWNUM is a value like any other and goes through operand().
  if (tokens.is_word("ROWNUM") && !scope.select_list) {
    tokens.skip();
    return row_bound(mirrored(operation), left);
  }
  Fragment right = operand(context, scope);
  if (!left.row.empty()) return compare_rows(std::move(left), operation, std::move(right));
  return compare_values(single(std::move(left)), operation, single(std::move(right)));
}

// --- The other forms -----------------------------------------------------------------------------

// The three values need one class: a text bound beside a NUMBER column is a number. Where only one
// of the bounds is blank-padded, there are two comparisons.
Fragment between(Context& context, Scope& scope, Fragment left, bool negated) {
  Fragment low = single(operand(context, scope));
  context.tokens.expect_word("AND");
  Fragment high = single(operand(context, scope));
  if (pads_some(left, {low, high})) {
    const Fragment pairs[] = {
        compare_values(left, negated ? Operator::Less : Operator::GreaterEqual, low),
        compare_values(left, negated ? Operator::Greater : Operator::LessEqual, high)};
    return join_conditions(pairs, negated ? " OR " : " AND ");
  }
  make_comparable({&left, &low, &high});
  Fragment result = fragment("(", left.offset);
  result.add(left).add(negated ? " NOT BETWEEN " : " BETWEEN ").add(low).add(" AND ").add(high);
  result.add(")");
  return as_condition(std::move(result), 5);
}

// Patterns match text: a number is matched in the server's spelling, not in the engine's.
Fragment like(Context& context, Scope& scope, Fragment left, bool negated) {
  // The engine's LIKE is case-sensitive on our connections by a setting of theirs, see
  // sqlite_handle.cpp.
  left = coerce(left, ValueClass::Text);
  const Fragment pattern = coerce(single(operand(context, scope)), ValueClass::Text);
  Fragment result = fragment("(", left.offset);
  result.add(left).add(negated ? " NOT LIKE " : " LIKE ");
  if (context.tokens.accept_word("ESCAPE")) {
    const Fragment mark = coerce(single(operand(context, scope)), ValueClass::Text);
    // The engine lets the mark stand before any character.
    result.add(call("ora_pattern", {pattern, mark}, pattern.offset)).add(" ESCAPE ").add(mark);
  } else {
    result.add(pattern);
  }
  result.add(")");
  return as_condition(std::move(result), 5);
}

// The one test that LONG and LOB columns take part in, so without any conversion.
Fragment is_null(Context& context, const Fragment& left) {
  const bool negated = context.tokens.accept_word("NOT");
  context.tokens.expect_word("NULL", 908);
  Fragment result = fragment("(", left.offset);
  result.add(left).add(negated ? " IS NOT NULL)" : " IS NULL)");
  return as_condition(std::move(result), 2);
}

Fragment exists(Context& context, Scope& scope) {
  Fragment result = fragment("EXISTS (", context.tokens.offset());
  context.tokens.skip();
  result.add(parenthesized_query(context, scope).sql).add(")");
  return as_condition(std::move(result), 6);
}

// Behind the left side, which may be all that there is.
void compare(Context& context, Scope& scope, Fragment& left) {
  Tokens& tokens = context.tokens;
  const Operator operation = operator_at(tokens);
  if (operation != Operator::None) {
    left = binary(context, scope, std::move(left), operation);
    return;
  }
  if (tokens.accept_word("IS")) {
    left = is_null(context, single(std::move(left)));
    return;
  }
  const bool negated = tokens.accept_word("NOT");
  if (tokens.accept_word("IN")) {
    left = in_operator(context, scope, std::move(left), negated);
  } else if (tokens.accept_word("BETWEEN")) {
    left = between(context, scope, single(std::move(left)), negated);
  } else if (tokens.accept_word("LIKE")) {
    left = like(context, scope, single(std::move(left)), negated);
  } else if (negated) {
    tokens.fail_here(920);
  }
}

Fragment two_sides(Context& context, Scope& scope) {
  Fragment left = operand(context, scope);
  // A condition in parentheses is whole: no operator can follow that would take it as a value.
  if (!left.condition) compare(context, scope, left);
  return left;
}

}  // namespace

Fragment comparison(Context& context, Scope& scope) {
  if (context.tokens.is_word("EXISTS")) return exists(context, scope);
  if (std::optional<Fragment> limit = row_condition(context, scope)) return std::move(*limit);
  return two_sides(context, scope);
}

}  // namespace oci8
