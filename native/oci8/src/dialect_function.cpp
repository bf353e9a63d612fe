// SQL functions: which there are, how many arguments they take, and of what type their results are.
// The run-time side of each function is in sqlite_functions*.cpp, under the same name in lower
// case. What is decided here is what must be known before a row is there: the number of arguments,
// conversions that need static types, and the type and size that the describe reports.
#include <algorithm>

#include "ascii.h"
#include "date.h"
#include "dialect_expression.h"

namespace oci8 {
namespace {

enum class Result : ub1 {
  Number,
  Date,
  DateOrNumber,  // as the first argument: ROUND, TRUNC
  Text,  // of any length
  TextOfFirst,  // never longer than the first argument
  CaseOfFirst,  // as the first argument, of fixed length where that is: UPPER
  TextBySize,  // as long as the second argument says: LPAD, RPAD
  Part,  // as long as the third argument says: SUBSTR
  PartOfBytes,  // the same in bytes: SUBSTRB
  Formatted,  // TO_CHAR
  Character,  // CHR, SOUNDEX
  Name,  // USER
  Hex,
  Raw,
  RowId,
  Common,  // all arguments are of one class: NVL, GREATEST
  Second  // all arguments but the first are of one class: NVL2
};

// Number and classes of arguments, and the result's type: all that the dialect knows of a function.
struct Function {
  std::string_view name;
  int least, most;
  // Class of each argument, the last one for the rest: t text, n number, d date, - as it is.
  std::string_view arguments;
  Result result;
};

constexpr int kAny = 120;  // the engine passes at most 127 arguments

// Ascending: looked up by halving. The engine has more functions; only these are the server's.
constexpr Function kFunctions[] = {
    {"ABS", 1, 1, "n", Result::Number},
    {"ACOS", 1, 1, "n", Result::Number},
    {"ADD_MONTHS", 2, 2, "dn", Result::Date},
    {"ASCII", 1, 1, "t", Result::Number},
    {"ASIN", 1, 1, "n", Result::Number},
    {"ATAN", 1, 1, "n", Result::Number},
    {"ATAN2", 2, 2, "n", Result::Number},
    {"BITAND", 2, 2, "n", Result::Number},
    {"CEIL", 1, 1, "n", Result::Number},
    {"CHARTOROWID", 1, 1, "t", Result::RowId},
    {"CHR", 1, 1, "n", Result::Character},
    {"COS", 1, 1, "n", Result::Number},
    {"COSH", 1, 1, "n", Result::Number},
    {"EXP", 1, 1, "n", Result::Number},
    {"FLOOR", 1, 1, "n", Result::Number},
    {"GREATEST", 1, kAny, "-", Result::Common},
    {"HEXTORAW", 1, 1, "t", Result::Raw},
    {"INITCAP", 1, 1, "t", Result::CaseOfFirst},
    {"INSTR", 2, 4, "ttnn", Result::Number},
    {"INSTRB", 2, 4, "ttnn", Result::Number},
    {"LAST_DAY", 1, 1, "d", Result::Date},
    {"LEAST", 1, kAny, "-", Result::Common},
    {"LENGTH", 1, 1, "t", Result::Number},
    {"LENGTHB", 1, 1, "t", Result::Number},
    {"LN", 1, 1, "n", Result::Number},
    {"LOG", 2, 2, "n", Result::Number},
    {"LOWER", 1, 1, "t", Result::CaseOfFirst},
    {"LPAD", 2, 3, "tnt", Result::TextBySize},
    {"LTRIM", 1, 2, "t", Result::TextOfFirst},
    {"MOD", 2, 2, "n", Result::Number},
    {"MONTHS_BETWEEN", 2, 2, "d", Result::Number},
    {"NEXT_DAY", 2, 2, "dt", Result::Date},
    {"NLS_INITCAP", 1, 1, "t", Result::CaseOfFirst},
    {"NLS_LOWER", 1, 1, "t", Result::CaseOfFirst},
    {"NLS_UPPER", 1, 1, "t", Result::CaseOfFirst},
    {"NVL", 2, 2, "-", Result::Common},
    {"NVL2", 3, 3, "-", Result::Second},
    {"POWER", 2, 2, "n", Result::Number},
    {"RAWTOHEX", 1, 1, "-", Result::Hex},
    {"REPLACE", 2, 3, "t", Result::Text},
    {"ROUND", 1, 2, "-", Result::DateOrNumber},
    {"ROWIDTOCHAR", 1, 1, "t", Result::TextOfFirst},
    {"RPAD", 2, 3, "tnt", Result::TextBySize},
    {"RTRIM", 1, 2, "t", Result::TextOfFirst},
    {"SIGN", 1, 1, "n", Result::Number},
    {"SIN", 1, 1, "n", Result::Number},
    {"SINH", 1, 1, "n", Result::Number},
    {"SOUNDEX", 1, 1, "t", Result::Character},
    {"SQRT", 1, 1, "n", Result::Number},
    {"SUBSTR", 2, 3, "tnn", Result::Part},
    {"SUBSTRB", 2, 3, "tnn", Result::PartOfBytes},
    {"SYSDATE", 0, 0, "-", Result::Date},
    {"TAN", 1, 1, "n", Result::Number},
    {"TANH", 1, 1, "n", Result::Number},
    {"TO_CHAR", 1, 2, "-", Result::Formatted},
    {"TO_DATE", 1, 2, "-", Result::Date},
    {"TO_NUMBER", 1, 2, "-", Result::Number},
    {"TRANSLATE", 3, 3, "t", Result::Text},
    {"TRIM", 1, 1, "t", Result::TextOfFirst},
    {"TRUNC", 1, 2, "-", Result::DateOrNumber},
    {"UID", 0, 0, "-", Result::Number},
    {"UPPER", 1, 1, "t", Result::CaseOfFirst},
    {"USER", 0, 0, "-", Result::Name},
    {"VSIZE", 1, 1, "-", Result::Number},
};
static_assert(std::ranges::is_sorted(kFunctions, {}, &Function::name));

// Sizes are bytes, counts in arguments are characters of at most this many bytes.
constexpr size_t kCharacterBytes = 4;
// A date format's result: element names spelled out, as in "MONTH".
constexpr size_t kFormattedSize = 75;

// Conversions that the functions do themselves are left to them: only what they cannot tell apart
// at run time is decided here.
Fragment argument_of_class(const Fragment& argument, char wanted) {
  // A class that is not known may turn out to be anything: left alone, the function looks at the
  // value.
  const ValueClass from = argument.type.value_class();
  switch (wanted) {
    case 'n':
      return from == ValueClass::Unknown ? argument : coerce(argument, ValueClass::Number);
    case 'd':
      return coerce(argument, ValueClass::Date);
    case 't':
      // At run time DATE and RAW look alike; numbers and placeholders show what they are.
      if (from == ValueClass::Date || from == ValueClass::Raw || from == ValueClass::Lob ||
          from == ValueClass::Long) {
        return coerce(argument, ValueClass::Text);
      }
      return argument;
    default:
      return argument;
  }
}

// Where a literal says how many characters come out, or bytes, the size follows; a computed count
// leaves the bound that holds anyway.
StaticType sized_by(const std::vector<Fragment>& arguments, size_t index, size_t otherwise,
                    size_t unit = kCharacterBytes) {
  if (index >= arguments.size() || !arguments[index].integer) return text_type(otherwise);
  const long long count = std::clamp<long long>(*arguments[index].integer, 0, kMaxText);
  return text_type(static_cast<size_t>(count) * unit);
}

// Without a format the default text of the value; with a literal one its elements bound the size.
StaticType formatted_type(const std::vector<Fragment>& arguments) {
  if (arguments.size() < 2) return text_type(text_size(arguments.front().type));
  if (!arguments[1].text) return text_type(kMaxText);
  const std::string& model = *arguments[1].text;
  // No others grow like these: a letter for the seven digits of a day number, and numbers in words.
  const auto days = std::ranges::count_if(model, [](char c) { return c == 'J' || c == 'j'; });
  size_t size = kCharacterBytes * model.size() + 6 * static_cast<size_t>(days);
  for (size_t i = 0; i < model.size(); ++i) {
    if (starts_with(std::string_view(model).substr(i), "SP")) size += kFormattedSize;
  }
  return text_type(std::max(kFormattedSize, size));
}

StaticType result_type(Result result, std::vector<Fragment>& arguments) {
  const size_t first = arguments.empty() ? 0 : text_size(arguments.front().type);
  switch (result) {
    case Result::Number:
      return number_type();
    case Result::Date:
      return date_type();
    case Result::DateOrNumber: {
      if (may_be_date_or_number(arguments.front())) {
        return open_type(arguments.front().type.code == SQLT_DAT);
      }
      const bool date = arguments.front().type.value_class() == ValueClass::Date;
      if (!date) arguments.front() = argument_of_class(arguments.front(), 'n');
      return date ? date_type() : number_type();
    }
    case Result::TextOfFirst:
      return text_type(first);
    case Result::CaseOfFirst:
      if (arguments.front().type.code == SQLT_AFC) {
        return {SQLT_AFC, static_cast<ub2>(first), 0, 0, 0};
      }
      return text_type(first);
    case Result::TextBySize:
      return sized_by(arguments, 1, kMaxText);
    case Result::Part:
    case Result::PartOfBytes: {
      const size_t unit = result == Result::Part ? kCharacterBytes : 1;
      const StaticType part = sized_by(arguments, 2, first, unit);
      return text_type(std::min<size_t>(part.size, first));
    }
    case Result::Formatted:
      return formatted_type(arguments);
    case Result::Character:
      return text_type(kCharacterBytes);
    case Result::Name:
      return text_type(30);
    case Result::RowId:
      return {SQLT_RID, 18, 0, 0, 0};
    case Result::Hex:
      return text_type(2 * first);
    case Result::Raw:
      return {SQLT_BIN, static_cast<ub2>(std::clamp<size_t>((first + 1) / 2, 1, 2000)), 0, 0, 0};
    default:
      return text_type(kMaxText);
  }
}

// Whether TO_DATE may take the year or the month from today: that is a function of its own, which
// the engine takes into no index.
bool depends_on_today(const std::string& name, const std::vector<Fragment>& arguments) {
  if (name != "TO_DATE" || arguments.size() < 2 || is_placeholder(arguments[1])) return false;
  return !arguments[1].text || !names_month(*arguments[1].text);
}

StaticType unify_from(std::vector<Fragment>& arguments, size_t from) {
  std::vector<Fragment*> values;
  for (size_t i = from; i < arguments.size(); ++i) values.push_back(&arguments[i]);
  return unify(values);
}

// --- Functions with a syntax of their own --------------------------------------------------------

// The engine has all of them; its SUM and AVG are replaced by those of sqlite_functions.cpp.
struct Aggregate {
  std::string_view name;
  std::string_view engine;
};

constexpr Aggregate kAggregates[] = {
    {"COUNT", "count("}, {"SUM", "sum("}, {"AVG", "avg("}, {"MIN", "min("}, {"MAX", "max("}};

// Text that is no number is ORA-01722, a date or RAW is refused before a row is there.
Fragment aggregate_argument(Context& context, Scope& scope, std::string_view name) {
  Fragment value = expression(context, scope);
  const bool numeric = name == "SUM" || name == "AVG";
  if (numeric) value = coerce(value, ValueClass::Number);
  refuse_large(value);
  const bool own_query = value.sources != 0 || scope.outer == nullptr || scope.sources.empty();
  if (own_query || value.integer) return value;
  // The engine would take a group function of outer columns only for one of the query around this
  // one, and group that: an operand that is NULL reads a column of this query as well.
  const Fragment own = fragment(scope.sources.front().columns.front().sql, value.offset);
  Fragment both = call("coalesce", {value, call("nullif", {own, own}, value.offset)}, value.offset);
  both.type = value.type;
  return both;
}

// The greatest of a column is a value of the column, a sum is not.
StaticType aggregate_type(std::string_view name, const StaticType& argument) {
  if (name == "MIN" || name == "MAX") return argument;
  return number_type();
}

// Columns inside do not stand alone any more, whatever the grouping.
Fragment aggregate(Context& context, Scope& scope, const Aggregate& known, ub4 offset) {
  Tokens& tokens = context.tokens;
  // Two levels of aggregates would need a GROUP BY of their own, as SUM(MAX(x)) has on the server;
  // this is not offered.
  if (scope.in_aggregate) fail(935, {}, static_cast<int>(offset));
  if (!scope.aggregates) fail(934, {}, static_cast<int>(offset));
  scope.in_aggregate = true;
  scope.grouped = true;
  Fragment result = fragment(known.engine, offset);
  if (known.name == "COUNT" && tokens.accept_symbol("*")) {
    result.add("*");
    result.type = number_type();
  } else {
    if (tokens.accept_word("DISTINCT")) {
      result.add("DISTINCT ");
    } else {
      tokens.accept_word("ALL");
    }
    const Fragment value = aggregate_argument(context, scope, known.name);
    result.add(value);
    result.type = aggregate_type(known.name, value.type);
  }
  if (tokens.is_symbol(",")) tokens.fail_here(909);
  tokens.expect_symbol(")", 907);
  result.add(")");
  deepen(result, 3);
  result.aggregate = true;
  // Whatever it reads is summed up: the query's grouping has no say in it.
  result.bare = -1;
  scope.in_aggregate = false;
  return result;
}

// TRIM([[LEADING | TRAILING | BOTH] [characters] FROM] text)
Fragment trim(Context& context, Scope& scope, ub4 offset) {
  Tokens& tokens = context.tokens;
  const bool leading = tokens.accept_word("LEADING");
  const bool trailing = !leading && tokens.accept_word("TRAILING");
  if (!leading && !trailing) tokens.accept_word("BOTH");
  std::vector<Fragment> arguments;
  if (!tokens.is_word("FROM")) arguments.push_back(expression(context, scope));
  if (tokens.accept_word("FROM")) {
    arguments.insert(arguments.begin(), expression(context, scope));
  }
  tokens.expect_symbol(")", 907);
  if (trailing) return known_function("RTRIM", std::move(arguments), offset);
  if (leading) return known_function("LTRIM", std::move(arguments), offset);
  if (arguments.size() == 1) return known_function("TRIM", std::move(arguments), offset);
  const Fragment characters = arguments[1];
  Fragment left = known_function("LTRIM", std::move(arguments), offset);
  return known_function("RTRIM", {std::move(left), characters}, offset);
}

// Whether the value can be made again for each comparison with it, at no cost, and whatever it is
// compared with is of its class.
bool is_typed_column(const Fragment& value) {
  return value.weight == 1 && value.sql.starts_with('"') &&
         value.type.value_class() != ValueClass::Unknown;
}

// The number of the search that finds the first argument, by a function.
Fragment found_search(const std::vector<Fragment>& arguments, ub4 offset) {
  std::vector<Fragment> searches = {arguments.front()};
  for (size_t i = 1; i + 1 < arguments.size(); i += 2) {
    searches.push_back(arguments[i]);
    searches.push_back(fragment(std::to_string(i), offset));
  }
  // A call has the engine's limit on arguments; a CASE has none.
  if (searches.size() > kAny) fail(939, {}, static_cast<int>(offset));
  return call("decode", searches, offset);
}

// Only the result that is chosen is evaluated by the server; the engine's CASE does so, too, but
// finds no NULL, which DECODE does. Where one may be searched, a column is compared by IS, and for
// any other value a function searches.
Fragment lazy_decode(const std::vector<Fragment>& arguments, bool finds_null, ub4 offset) {
  const Fragment& first = arguments.front();
  const bool compares = finds_null && is_typed_column(first);
  const bool numbers = finds_null && !compares;
  Fragment result = fragment("CASE ", offset);
  if (!compares) result.add(numbers ? found_search(arguments, offset) : first);
  // Of the five entries that wait at a test or result, one waits already here.
  result.weight -= 4;
  size_t i = 1;
  for (; i + 1 < arguments.size(); i += 2) {
    const Fragment test = compares  ? infix(first, " IS ", arguments[i])
                          : numbers ? fragment(std::to_string(i), offset)
                                    : arguments[i];
    result.add(" WHEN ").add(test).add(" THEN ").add(arguments[i + 1]);
  }
  if (i < arguments.size()) result.add(" ELSE ").add(arguments[i]);
  result.add(" END");
  deepen(result, 5);
  return result;
}

// Searches compare among themselves and with the first argument, results among themselves.
Fragment decode(std::vector<Fragment> arguments, ub4 offset) {
  if (arguments.size() < 3) fail(938, {}, static_cast<int>(offset));
  std::vector<Fragment*> searches = {&arguments.front()};
  std::vector<Fragment*> results;
  bool finds_null = false;
  for (size_t i = 1; i < arguments.size(); ++i) {
    const bool search = i % 2 == 1 && i + 1 < arguments.size();
    finds_null = finds_null || (search && arguments[i].nullable);
    (search ? searches : results).push_back(&arguments[i]);
  }
  make_comparable(searches);
  // The first result decides; NULL there stands for character data.
  if (results.front()->null) {
    for (Fragment* result : results) *result = coerce(*result, ValueClass::Text);
  }
  const StaticType type = unify(results);
  Fragment result = lazy_decode(arguments, finds_null, offset);
  result.type = type;
  return result;
}

std::vector<Fragment> argument_list(Context& context, Scope& scope) {
  std::vector<Fragment> arguments;
  if (context.tokens.accept_symbol(")")) return arguments;
  do {
    arguments.push_back(expression(context, scope));
  } while (context.tokens.accept_symbol(","));
  context.tokens.expect_symbol(")", 907);
  return arguments;
}

}  // namespace

// The first value with a known type decides, as on the server; where it may be a date or a number,
// the first one that is either.
StaticType unify(const std::vector<Fragment*>& values) {
  ValueClass target = ValueClass::Unknown;
  for (const Fragment* value : values) {
    const ValueClass known = value->type.value_class();
    const bool decides = known == ValueClass::Date || known == ValueClass::Number;
    if (target == ValueClass::Unknown || (target == ValueClass::DateOrNumber && decides)) {
      target = known;
    }
  }
  StaticType type;
  for (Fragment* value : values) {
    refuse_large(*value);
    *value = coerce(*value, target);
    if (!value->null) type = common_type(type, value->type);
  }
  type.bound = 0;
  return type;
}

// One call for the whole chain: calls inside one another would fill the engine's parser stack at
// some thirty operands, and generated statements have more.
Fragment concatenation(const std::vector<Fragment>& parts) {
  std::vector<Fragment> texts;
  size_t size = 0;
  bool fixed = true;
  for (const Fragment& part : parts) {
    texts.push_back(argument_of_class(part, 't'));
    if (part.null) continue;
    size += text_size(part.type);
    fixed = fixed && part.type.code == SQLT_AFC;
  }
  Fragment result;
  for (size_t at = 0; at < texts.size();) {
    const size_t count = std::min<size_t>(texts.size() - at, kAny - 1);
    std::vector<Fragment> some(texts.begin() + static_cast<std::ptrdiff_t>(at),
                               texts.begin() + static_cast<std::ptrdiff_t>(at + count));
    if (at > 0) some.insert(some.begin(), std::move(result));
    result = call("ora_concat", some, parts.front().offset);
    at += count;
  }
  result.type = text_type(size);
  if (fixed && size <= 2000 && size > 0) result.type.code = SQLT_AFC;
  return result;
}

// A name that is not in the table is no function, whatever the engine has under that name: its own
// functions do not follow the server's rules, and some reach outside the database.
Fragment known_function(const std::string& name, std::vector<Fragment> arguments, ub4 offset) {
  const auto* known = std::ranges::lower_bound(kFunctions, name, {}, &Function::name);
  if (known == std::end(kFunctions) || known->name != name) {
    fail(904, "\"" + name + "\"", static_cast<int>(offset));
  }
  const int count = static_cast<int>(arguments.size());
  if (known->least == known->most && count != known->least) {
    fail(909, {}, static_cast<int>(offset));
  }
  if (count < known->least) fail(938, {}, static_cast<int>(offset));
  if (count > known->most) fail(939, {}, static_cast<int>(offset));
  for (size_t i = 0; i < arguments.size(); ++i) {
    refuse_large(arguments[i]);
    // The last letter of the rule holds for all arguments behind it.
    const size_t rule = std::min(i, known->arguments.size() - 1);
    arguments[i] = argument_of_class(arguments[i], known->arguments[rule]);
  }
  const bool unified = known->result == Result::Common || known->result == Result::Second;
  const StaticType type = unified ? unify_from(arguments, known->result == Result::Second ? 1 : 0)
                                  : result_type(known->result, arguments);
  // Registered in lower case, after the engine's habit.
  Fragment result =
      call(depends_on_today(name, arguments) ? "to_date_today" : lower(name), arguments, offset);
  result.type = type;
  return result;
}

// A function of the engine, which makes no more of the values than it needs.
Fragment coalesce(std::vector<Fragment> arguments, ub4 offset) {
  if (arguments.size() < 2) fail(938, {}, static_cast<int>(offset));
  const StaticType type = unify_from(arguments, 0);
  Fragment result = call("coalesce", arguments, offset);
  result.type = type;
  return result;
}

// The first argument, but NULL where the second equals it.
Fragment null_if(std::vector<Fragment> arguments, ub4 offset) {
  if (arguments.size() != 2) fail(909, {}, static_cast<int>(offset));
  Fragment value = arguments.front();
  refuse_large(value);
  make_comparable({&arguments[0], &arguments[1]});
  Fragment result = fragment("CASE WHEN ", offset);
  result.add(infix(arguments[0], " = ", arguments[1])).add(" THEN NULL ELSE ").add(value);
  result.add(" END");
  deepen(result, 5);
  result.type = value.type;
  return result;
}

// The name of no value: storing it makes an empty one.
Fragment empty_lob(ub2 type, const std::vector<Fragment>& arguments, ub4 offset) {
  if (!arguments.empty()) fail(909, {}, static_cast<int>(offset));
  Fragment result = fragment("0", offset);
  result.type = {type, 86, 0, 0, 0};
  result.nullable = false;
  return result;
}

// Those with a syntax of their own go before the table.
Fragment function_call(Context& context, Scope& scope, const std::string& name, ub4 offset) {
  for (const Aggregate& known : kAggregates) {
    if (known.name == name) return aggregate(context, scope, known, offset);
  }
  if (name == "TRIM") return trim(context, scope, offset);
  std::vector<Fragment> arguments = argument_list(context, scope);
  if (name == "EMPTY_CLOB") return empty_lob(SQLT_CLOB, arguments, offset);
  if (name == "EMPTY_BLOB") return empty_lob(SQLT_BLOB, arguments, offset);
  if (name == "DECODE") return decode(std::move(arguments), offset);
  if (name == "COALESCE") return coalesce(std::move(arguments), offset);
  if (name == "NULLIF") return null_if(std::move(arguments), offset);
  if (name == "CONCAT") {
    if (arguments.size() != 2) fail(909, {}, static_cast<int>(offset));
    return concatenation(arguments);
  }
  return known_function(name, std::move(arguments), offset);
}

}  // namespace oci8
