// The reader is a chain of functions, one for each level of precedence, from either() (OR) down to
// primary(). Conditions and values share the chain, because a parenthesis may hold either of them
// and only what follows tells which; a mark on the fragment keeps them apart.
#include "dialect_expression.h"

#include <algorithm>
#include <limits>

#include "dialect_arithmetic.h"
#include "dialect_query.h"
#include "dialect_types.h"
#include "number.h"

namespace oci8 {
namespace {

constexpr std::string_view kLeastDigits = "9223372036854775808";
// Conditions side by side: a list hangs as deep in the engine's tree as it is long, and the tree
// may be 1,000 deep.
constexpr size_t kMaxListed = 100;

Fragment either(Context& context, Scope& scope);

// A whole select-list item may be read from a group key: then no column in it stands alone.
// Called at every level where a group key can be complete: GROUP BY a + b makes the sum a key, but
// not a alone.
Fragment settle(const Scope& scope, Fragment value) {
  if (value.bare >= 0 && std::ranges::find(scope.group_keys, value.sql) != scope.group_keys.end()) {
    value.bare = -1;
  }
  return value;
}

// --- Literals and names --------------------------------------------------------------------------

// Without a type of its own: it takes on that of whatever stands beside it.
Fragment null_literal(ub4 offset) {
  Fragment result = fragment("NULL", offset);
  result.null = true;
  return result;
}

// A literal that would lose digits is good to calculate and compare with, but not to be stored.
Fragment number_literal(Context& context) {
  const ub4 offset = context.tokens.offset();
  const std::string_view digits = context.tokens.spelling();
  Number value;
  const NumberParse parsed = parse_number(digits, value);
  if (parsed == NumberParse::Overflow) context.tokens.fail_here(1426);
  context.tokens.skip();
  // A decimal is read by the function that reads stored values, for the same bits: the engine's
  // own reading may differ in the last one.
  Fragment result = fragment(
      value.is_integer ? std::to_string(value.integer) : "ora_number(" + quote_text(digits) + ")",
      offset);
  result.type = number_type();
  result.type.inexact = parsed == NumberParse::Inexact;
  result.nullable = false;
  if (value.is_integer) {
    result.integer = value.integer;
    // Zero, too, is an integer of a known bound.
    result.type.bound = std::max(1.0, static_cast<double>(value.integer));
  }
  return result;
}

// Literals are fixed-length character data on the server: 'a' = 'a ' holds, and DESCRIBE says so.
Fragment string_literal(Context& context) {
  const ub4 offset = context.tokens.offset();
  std::string value = unquote(context.tokens.spelling());
  if (value.size() > kMaxText) context.tokens.fail_here(1704);
  context.tokens.skip();
  // The empty string is NULL for the server.
  if (value.empty()) return null_literal(offset);
  Fragment result = fragment(quote_text(value), offset);
  result.type = {SQLT_AFC, static_cast<ub2>(value.size()), 0, 0, 0};
  result.nullable = false;
  result.text = std::move(value);
  return result;
}

// DATE 'YYYY-MM-DD', whatever the session's date format is.
Fragment date_literal(Context& context) {
  const ub4 offset = context.tokens.offset();
  context.tokens.skip();
  Fragment day = string_literal(context);
  Fragment format = fragment("'YYYY-MM-DD'", offset);
  Fragment result = call("to_date", {day, format}, offset);
  result.type = date_type();
  return result;
}

// By number, because clauses are not written in the order in which they stand in the text.
Fragment placeholder(Context& context) {
  Fragment result =
      fragment("?" + std::to_string(context.tokens.placeholder()), context.tokens.offset());
  context.tokens.skip();
  return result;
}

// Whether the value being read is made of the current token in every row. These leave out what
// they do not choose.
bool always_made(Tokens& tokens, size_t first) {
  static constexpr std::string_view kChoosing[] = {"CASE", "DECODE", "NVL", "NVL2", "COALESCE"};
  const size_t here = tokens.position();
  bool choosing = false;
  for (tokens.seek(first); tokens.position() < here; tokens.skip()) {
    choosing = choosing || std::ranges::any_of(kChoosing, [&](std::string_view word) {
                 return tokens.is_word(word);
               });
  }
  return !choosing;
}

// A row draws from a sequence once, however often it names it: after the first NEXTVAL every use
// is the value drawn. Where that one may come late or never, a second use is refused.
bool draws(Context& context, const std::string& sequence, bool next) {
  const auto used = std::ranges::find(context.sequences, sequence, &SequenceUse::name);
  if (used == context.sequences.end()) {
    const bool drawn = next && context.item && always_made(context.tokens, *context.item);
    context.sequences.push_back({sequence, drawn});
    return next;
  }
  if (next && !used->drawn) context.tokens.fail_here(3001);
  return false;
}

// A sequence is looked up by name when the value is drawn: there is nothing to resolve before.
Fragment sequence_value(Context& context, const Scope& scope, const std::string& sequence,
                        ub4 offset) {
  if (!scope.sequences) fail(2287, {}, static_cast<int>(offset));
  const bool next = draws(context, sequence, context.tokens.is_word("NEXTVAL"));
  context.draws = context.draws || next;
  context.tokens.skip();
  Fragment result = fragment(
      (next ? "sequence_nextval(" : "sequence_currval(") + quote_text(sequence) + ")", offset);
  result.type = number_type();
  return result;
}

// Whether (+) stands `ahead`.
bool at_outer_mark(const Tokens& tokens, size_t ahead) {
  return tokens.is_symbol("(", ahead) && tokens.is_symbol("+", ahead + 1) &&
         tokens.is_symbol(")", ahead + 2);
}

void outer_mark(Context& context, Fragment& column) {
  Tokens& tokens = context.tokens;
  if (!at_outer_mark(tokens, 0)) return;
  // A column of a query around this one is constant here, with no bit: its mark says nothing.
  column.outer = column.sources;
  tokens.skip(3);
}

// The parts of [[owner.]table.]column, or of sequence.NEXTVAL, before the last one.
struct Qualifier {
  std::string table;
  size_t parts = 0;
};

// Owners are checked and dropped: one schema is all that there is. What is not the user's own is
// not found, as if it were not granted.
Qualifier qualifier(Context& context) {
  Tokens& tokens = context.tokens;
  Qualifier result;
  while (tokens.is_symbol(".", 1)) {
    const size_t first = tokens.position();
    std::string part = tokens.name(936);
    if (result.parts > 0 && result.table != context.schema.user()) {
      tokens.seek(first);
      tokens.fail_here(result.parts > 1 ? 1747 : 904, result.table);
    }
    ++result.parts;
    result.table = std::move(part);
    tokens.skip();
  }
  return result;
}

[[noreturn]] void no_such_column(const Qualifier& before, const std::string& column, ub4 offset) {
  const std::string name =
      before.parts > 0 ? "\"" + before.table + "\".\"" + column + "\"" : "\"" + column + "\"";
  fail(904, name, static_cast<int>(offset));
}

// Aliases of the select list are known in ORDER BY only, and columns go before them. Variables of a
// block come last: a table's new column must not be shadowed by them.
Fragment alias_or_fail(const Context& context, const Scope& scope, const Qualifier& before,
                       const std::string& column, ub4 offset) {
  for (const auto& [alias, value] : scope.aliases) {
    if (before.parts == 0 && alias == column) return value;
  }
  // A block's variables are bound like further placeholders, so that the engine sees a number and
  // no name.
  const ub4 variable = before.parts == 0 ? context.tokens.variable(column) : 0;
  if (variable != 0) return fragment("?" + std::to_string(variable), offset);
  // Where no table is in sight no column is meant to be (VALUES, DEFAULT).
  if (scope.sources.empty() && scope.outer == nullptr) fail(984, {}, static_cast<int>(offset));
  no_such_column(before, column, offset);
}

// A column called NEXTVAL of a table in sight goes before a sequence of the table's name.
Fragment column_reference(Context& context, Scope& scope) {
  Tokens& tokens = context.tokens;
  const ub4 offset = tokens.offset();
  const Qualifier before = qualifier(context);
  // Unquoted, it is reserved, so that it cannot be a column's name.
  if (tokens.accept_word("ROWID")) {
    std::optional<Fragment> rowid = find_rowid(scope, before.table, offset);
    if (!rowid) no_such_column(before, "ROWID", offset);
    return *rowid;
  }
  if (before.parts == 0 && tokens.kind() == TokenKind::Word && tokens.is_symbol("(", 1) &&
      !at_outer_mark(tokens, 1)) {
    std::string name = tokens.name(904);
    tokens.skip();
    return function_call(context, scope, name, offset);
  }
  const bool sequence = tokens.is_word("NEXTVAL") || tokens.is_word("CURRVAL");
  const size_t at = tokens.position();
  const std::string column = tokens.name(before.parts > 0 ? 1747 : 936);
  std::optional<Fragment> found = find_column(scope, before.table, column, offset);
  if (!found && sequence && before.parts > 0) {
    tokens.seek(at);
    return sequence_value(context, scope, before.table, offset);
  }
  if (!found) return alias_or_fail(context, scope, before, column, offset);
  outer_mark(context, *found);
  return *found;
}

// As a value ROWNUM counts what passes, which a window over everything does. In a WHERE clause it
// would have to count rows that the very condition lets through: only bounds work there.
Fragment row_number(Context& context, Scope& scope) {
  const bool numbered = !scope.row_number.empty();
  scope.row_number_used = true;
  if (!scope.select_list && !numbered) context.tokens.fail_here(3001);
  Fragment result = fragment(numbered ? scope.row_number : std::string("row_number() OVER ()"),
                             context.tokens.offset());
  result.bare = static_cast<int>(result.offset);
  context.tokens.skip();
  result.type = number_type();
  deepen(result, 4);
  return result;
}

// --- CASE and CAST -------------------------------------------------------------------------------

// Tests and results in order; the ELSE result is the last one.
struct CaseParts {
  std::vector<Fragment> tests;
  std::vector<Fragment> results;
  bool has_else = false;
};

CaseParts case_parts(Context& context, Scope& scope, bool simple) {
  Tokens& tokens = context.tokens;
  CaseParts parts;
  while (tokens.accept_word("WHEN")) {
    parts.tests.push_back(simple ? expression(context, scope) : condition(context, scope));
    tokens.expect_word("THEN");
    parts.results.push_back(expression(context, scope));
  }
  if (parts.tests.empty()) tokens.fail_here(905);
  parts.has_else = tokens.accept_word("ELSE");
  if (parts.has_else) parts.results.push_back(expression(context, scope));
  tokens.expect_word("END");
  return parts;
}

// A simple CASE's tests as those of a searched one.
void test_one_by_one(const Fragment& operand, std::vector<Fragment>& tests) {
  for (Fragment& test : tests) {
    Fragment left = operand;
    make_comparable({&left, &test});
    test = infix(left, " = ", test);
  }
}

// All results take the class of the first, as the column that they make has one type.
// A simple CASE compares its operand with each test, so that all of them are made comparable
// together, or else one by one; a searched CASE has whole conditions and nothing to convert.
Fragment case_expression(Context& context, Scope& scope) {
  const ub4 offset = context.tokens.offset();
  context.tokens.skip();
  const bool simple = !context.tokens.is_word("WHEN");
  Fragment operand = simple ? expression(context, scope) : fragment("", offset);
  CaseParts parts = case_parts(context, scope, simple);
  if (pads_some(operand, parts.tests)) {
    test_one_by_one(operand, parts.tests);
    operand = fragment("", offset);
  } else if (simple) {
    std::vector<Fragment*> compared = {&operand};
    for (Fragment& test : parts.tests) compared.push_back(&test);
    make_comparable(compared);
  }
  std::vector<Fragment*> results;
  for (Fragment& result : parts.results) results.push_back(&result);
  const StaticType type = unify(results);
  Fragment whole = fragment("CASE ", offset);
  whole.add(operand);
  for (size_t i = 0; i < parts.tests.size(); ++i) {
    whole.add(" WHEN ").add(parts.tests[i]).add(" THEN ").add(parts.results[i]);
  }
  if (parts.has_else) whole.add(" ELSE ").add(parts.results.back());
  whole.add(" END");
  deepen(whole, 5);
  whole.type = type;
  return whole;
}

// A cast is what storing into a column of that type would do, but that it cuts text. A
// placeholder's is not cut: variables of blocks are assigned by a cast of one, and refuse what is
// too long.
Fragment cast_expression(Context& context, Scope& scope) {
  context.tokens.skip(2);
  Fragment value = expression(context, scope);
  context.tokens.expect_word("AS");
  const ColumnInfo type = declared_type(context.tokens);
  context.tokens.expect_symbol(")", 907);
  refuse_large(value);
  if (type.type == SQLT_CLOB || type.type == SQLT_BLOB) {
    fail(3001, {}, static_cast<int>(value.offset));
  }
  // Of its own a NULL has no type.
  if (value.null) {
    value.null = false;
    value.type = type_of(type);
    return value;
  }
  value.type.inexact = false;
  const bool cuts = type.type == SQLT_CHR || type.type == SQLT_AFC;
  if (cuts && !is_placeholder(value)) {
    const StaticType whole = value.type;
    const Fragment size = fragment(std::to_string(type.size), value.offset);
    value = call("ora_cut", {value, size}, value.offset);
    value.type = whole;
  }
  return store(value, type);
}

// --- The grammar, from the tightest binding to the loosest ---------------------------------------
// What a function does with its operands is another one's work: the frames of those that read them
// are on the stack at every level of a statement.

// Behind the first value in parentheses, which may be the only one. A row's SQL is never written:
// what understands a row takes its members, and everything else refuses it.
void row_list(Context& context, Scope& scope, Fragment& first, ub4 offset) {
  if (!context.tokens.is_symbol(",")) return;
  Fragment row = fragment("(", offset);
  row.row.push_back(std::move(first));
  while (context.tokens.accept_symbol(",")) row.row.push_back(expression(context, scope));
  first = std::move(row);
}

// Parentheses are not written again: each operation brings its own, and the engine's parser has
// room for a limited number of them.
Fragment parenthesis(Context& context, Scope& scope) {
  const ub4 offset = context.tokens.offset();
  context.tokens.skip();
  Fragment value = either(context, scope);
  row_list(context, scope, value, offset);
  context.tokens.expect_symbol(")", 907);
  return value;
}

// Reserved words that stand for values; all other reserved words end in "missing expression".
Fragment keyword_value(Context& context, Scope& scope) {
  Tokens& tokens = context.tokens;
  const ub4 offset = tokens.offset();
  const bool parentheses = tokens.is_symbol("(", 1);
  if (tokens.is_word("CASE") && !tokens.is_symbol(".", 1)) return case_expression(context, scope);
  if (tokens.is_word("CAST") && parentheses) return cast_expression(context, scope);
  if (tokens.is_word("DATE") && tokens.kind(1) == TokenKind::String) return date_literal(context);
  if (tokens.accept_word("NULL")) return null_literal(offset);
  if (tokens.is_word("ROWNUM")) return row_number(context, scope);
  if (tokens.is_word("PRIOR") || tokens.is_word("LEVEL")) tokens.fail_here(3001);
  for (const std::string_view name : {"SYSDATE", "USER", "UID"}) {
    if (tokens.accept_word(name)) return known_function(std::string(name), {}, offset);
  }
  return column_reference(context, scope);
}

Fragment primary(Context& context, Scope& scope) {
  switch (context.tokens.kind()) {
    case TokenKind::Number:
      return number_literal(context);
    case TokenKind::String:
      return string_literal(context);
    case TokenKind::Placeholder:
      return placeholder(context);
    case TokenKind::Word:
      return keyword_value(context, scope);
    case TokenKind::QuotedName:
      return column_reference(context, scope);
    default:
      if (!context.tokens.is_symbol("(")) context.tokens.fail_here(936);
      if (!context.tokens.is_word("SELECT", 1)) return parenthesis(context, scope);
      context.tokens.skip();
      return scalar_subquery(context, scope);
  }
}

// Operands of arithmetic are single values.
Fragment value_only(Fragment value) {
  if (value.condition) fail(936, {}, static_cast<int>(value.offset));
  if (!value.row.empty()) fail(907, {}, static_cast<int>(value.offset));
  return value;
}

// The one integer whose digits need their sign to fit.
Fragment least_integer(Tokens& tokens, ub4 offset) {
  tokens.skip();
  Fragment result = fragment(std::to_string(std::numeric_limits<long long>::min()), offset);
  result.type = number_type();
  result.nullable = false;
  return result;
}

Fragment factor(Context& context, Scope& scope);

Fragment signed_factor(Context& context, Scope& scope) {
  const ub4 offset = context.tokens.offset();
  if (context.tokens.accept_symbol("+")) {
    return settle(scope, numeric(value_only(factor(context, scope))));
  }
  context.tokens.skip();
  if (context.tokens.spelling() == kLeastDigits) return least_integer(context.tokens, offset);
  return settle(scope, negate(value_only(factor(context, scope)), offset));
}

// Signs nest, so each one counts as a level.
Fragment factor(Context& context, Scope& scope) {
  const Nesting nesting(context);
  if (context.tokens.is_symbol("+") || context.tokens.is_symbol("-")) {
    return signed_factor(context, scope);
  }
  return settle(scope, primary(context, scope));
}

// Division always goes through a function: the engine would cut integers and give NULL for 1/0.
void multiply_or_divide(Context& context, Scope& scope, Fragment& left) {
  while (context.tokens.is_symbol("*") || context.tokens.is_symbol("/")) {
    const bool times = context.tokens.is_symbol("*");
    context.tokens.skip();
    left = value_only(std::move(left));
    const Fragment right = value_only(factor(context, scope));
    left = settle(scope, times ? multiply(left, right)
                               : operate("ora_div", numeric(left), numeric(right), number_type()));
  }
}

Fragment product(Context& context, Scope& scope) {
  Fragment left = factor(context, scope);
  multiply_or_divide(context, scope, left);
  return left;
}

// || binds as + and - do. Its operands are gathered, for one call that joins them all.
void add_or_join(Context& context, Scope& scope, Fragment& left) {
  Tokens& tokens = context.tokens;
  while (tokens.is_symbol("+") || tokens.is_symbol("-") || tokens.is_symbol("||")) {
    left = value_only(std::move(left));
    if (tokens.is_symbol("||")) {
      std::vector<Fragment> parts = {std::move(left)};
      while (tokens.accept_symbol("||")) {
        parts.push_back(value_only(product(context, scope)));
      }
      left = settle(scope, concatenation(parts));
      continue;
    }
    const bool plus = tokens.is_symbol("+");
    tokens.skip();
    const Fragment right = value_only(product(context, scope));
    left = settle(scope, add_or_subtract(std::move(left), right, plus));
  }
}

Fragment sum(Context& context, Scope& scope) {
  Fragment left = product(context, scope);
  add_or_join(context, scope, left);
  return left;
}

// The place of the error is where the comparison is missing: behind the value.
Fragment condition_only(Fragment value, const Tokens& tokens) {
  if (!value.condition) tokens.fail_here(920);
  return value;
}

// Only a member of a WHERE clause's own AND list can limit rows or join outward.
void require_plain(const Fragment& part) {
  if (!part.plain()) fail(part.limit.empty() ? 1719 : 3001, {}, static_cast<int>(part.offset));
}

Fragment negation(Context& context, Scope& scope);

Fragment negated(Context& context, Scope& scope) {
  const ub4 offset = context.tokens.offset();
  context.tokens.skip();
  Fragment inner = condition_only(negation(context, scope), context.tokens);
  if (!inner.other_limit.empty()) {
    std::swap(inner.limit, inner.other_limit);
    return inner;
  }
  require_plain(inner);
  Fragment result = fragment("(NOT ", offset);
  result.add(inner).add(")");
  deepen(result, 2);
  result.condition = true;
  return result;
}

Fragment negation(Context& context, Scope& scope) {
  const Nesting nesting(context);
  return context.tokens.is_word("NOT") ? negated(context, scope) : comparison(context, scope);
}

// Behind the first condition of an AND list, which may be no list at all. A list of two or more is
// closed in parentheses; a single condition goes up as it came, with its ROWNUM bound or outer-join
// mark if it has one.
void and_list(Context& context, Scope& scope, Fragment& first) {
  if (!context.tokens.is_word("AND")) return;
  std::vector<Fragment> parts = {condition_only(std::move(first), context.tokens)};
  while (context.tokens.accept_word("AND")) {
    parts.push_back(condition_only(negation(context, scope), context.tokens));
  }
  for (const Fragment& part : parts) require_plain(part);
  first = join_conditions(parts, " AND ");
}

Fragment both(Context& context, Scope& scope) {
  Fragment first = negation(context, scope);
  and_list(context, scope, first);
  return first;
}

// Behind the first operand of an OR list, which may be no list at all.
void or_list(Context& context, Scope& scope, Fragment& first) {
  if (!context.tokens.is_word("OR")) return;
  std::vector<Fragment> parts = {condition_only(std::move(first), context.tokens)};
  while (context.tokens.accept_word("OR")) {
    parts.push_back(condition_only(both(context, scope), context.tokens));
  }
  for (const Fragment& part : parts) require_plain(part);
  first = join_conditions(parts, " OR ");
}

Fragment either(Context& context, Scope& scope) {
  const Nesting nesting(context);
  Fragment first = both(context, scope);
  or_list(context, scope, first);
  return first;
}

}  // namespace

Fragment expression(Context& context, Scope& scope) {
  const Nesting nesting(context);
  return value_only(sum(context, scope));
}

Fragment operand(Context& context, Scope& scope) {
  return sum(context, scope);
}

Fragment condition(Context& context, Scope& scope) {
  Fragment result = condition_only(either(context, scope), context.tokens);
  require_plain(result);
  return result;
}

std::vector<Fragment> conjuncts(Context& context, Scope& scope) {
  std::vector<Fragment> parts;
  do {
    parts.push_back(condition_only(negation(context, scope), context.tokens));
  } while (context.tokens.accept_word("AND"));
  if (!context.tokens.is_word("OR")) return parts;
  for (const Fragment& part : parts) require_plain(part);
  Fragment whole = join_conditions(parts, " AND ");
  or_list(context, scope, whole);
  std::vector<Fragment> only;
  only.push_back(std::move(whole));
  return only;
}

Fragment join_conditions(std::span<const Fragment> parts, std::string_view operation) {
  if (parts.empty()) return fragment("1", 0);
  if (parts.size() == 1) return parts.front();
  if (parts.size() > kMaxListed) {
    std::vector<Fragment> lists;
    for (; !parts.empty(); parts = parts.subspan(std::min(kMaxListed, parts.size()))) {
      lists.push_back(join_conditions(parts.first(std::min(kMaxListed, parts.size())), operation));
    }
    return join_conditions(lists, operation);
  }
  Fragment whole = fragment("(", parts.front().offset);
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) whole.add(operation);
    whole.add(parts[i]);
  }
  whole.add(")");
  deepen(whole, 3);
  whole.condition = true;
  return whole;
}

}  // namespace oci8
