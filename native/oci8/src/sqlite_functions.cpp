// Here are the operators, the group functions, the functions behind store() of the dialect, and the
// session's own ones; the other modules are listed in sqlite_call.h. Names that begin with ora_ or
// store_ are written by the dialect only, which does not let users call them.
#include "sqlite_functions.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <optional>

#include "accounts.h"
#include "decimal.h"
#include "declared_type.h"
#include "error.h"
#include "number_sum.h"
#include "sqlite_call.h"
#include "sqlite_errors.h"
#include "type_limits.h"
#include "utf8.h"

namespace oci8 {
namespace {

// What a declaration can say: binary digits of FLOAT included.
constexpr int kMaxPrecision = 126;
constexpr int kMinScale = -127;
constexpr int kMaxScale = 127;

// --- Operators -----------------------------------------------------------------------------------

// The checked operations tell an overflow instead of wrapping.
using Checked = bool (*)(long long, long long, long long*);
using Real = double (*)(double, double);
// Brings two decimals into the form in which their digits are calculated with, and tells how many
// places the result has.
using Align = bool (*)(Scaled&, Scaled&, int&);

// Integers and decimals stay exact as long as 64 bits hold their digits: doubles would show, where
// most digits cancel, what they have behind their decimals. Everything else goes on as a double.
Number calculate(const Number& left, const Number& right, Align align, Checked checked, Real real) {
  Scaled first, second, exact;
  if (left.is_integer && right.is_integer) {
    if (!checked(left.integer, right.integer, &exact.digits)) return {true, exact.digits, 0};
  } else if (scaled_of(left, first) && scaled_of(right, second) &&
             align(first, second, exact.places) &&
             !checked(first.digits, second.digits, &exact.digits)) {
    Number result;
    const Decimal decimal = decimal_of(exact);
    return number_of(decimal, result) ? result : computed_number(real_of(decimal));
  }
  return computed_number(real(left.as_real(), right.as_real()));
}

// What does not fit in one unit differs too much in size to cancel.
bool align_sum(Scaled& left, Scaled& right, int& places) {
  if (!same_places(left, right)) return false;
  places = left.places;
  return true;
}

// The fewer digits the factors have, the more products fit.
bool align_product(Scaled& left, Scaled& right, int& places) {
  drop_zeros(left);
  drop_zeros(right);
  places = left.places + right.places;
  return true;
}

// An operand of a sum, or what it comes to.
struct Term {
  std::optional<DateFields> date;
  Number number;
};

Term term(const Call& call, int index) {
  if (call.is_date(index)) return {call.date(index), {}};
  return {std::nullopt, call.number(index)};
}

void give_term(Call& call, const Term& result) {
  if (result.date) return call.give_date(*result.date);
  call.give_number(result.number);
}

// Date plus days; whole seconds are added, so that no fraction is lost in the days' large number.
Term add_days(const DateFields& date, double days) {
  const double start = std::round(date_to_days(date) * kSecondsPerDay);
  const double end = start + std::round(days * kSecondsPerDay);
  const DateFields result = days_to_date(end / kSecondsPerDay);
  // Checked on the way, too: a sum may not leave the calendar and come back.
  pack_date(result);
  return {result, {}};
}

// Both are whole seconds, so that the difference is exact before it is divided.
Number subtract_dates(const DateFields& left, const DateFields& right) {
  const double start = std::round(date_to_days(right) * kSecondsPerDay);
  const double end = std::round(date_to_days(left) * kSecondsPerDay);
  return computed_number((end - start) / kSecondsPerDay);
}

// Days may stand on either side of a date, but two dates have no sum.
Term add(const Term& left, const Term& right) {
  if (left.date && right.date) fail(975);
  if (left.date) return add_days(*left.date, right.number.as_real());
  if (right.date) return add_days(*right.date, left.number.as_real());
  const auto checked = [](long long a, long long b, long long* out) {
    return __builtin_add_overflow(a, b, out);
  };
  const auto real = [](double a, double b) { return a + b; };
  return {std::nullopt, calculate(left.number, right.number, align_sum, checked, real)};
}

// A date can only be taken from a date.
Term subtract(const Term& left, const Term& right) {
  if (left.date && right.date) return {std::nullopt, subtract_dates(*left.date, *right.date)};
  if (left.date) return add_days(*left.date, -right.number.as_real());
  if (right.date) fail(932);
  const auto checked = [](long long a, long long b, long long* out) {
    return __builtin_sub_overflow(a, b, out);
  };
  const auto real = [](double a, double b) { return a - b; };
  return {std::nullopt, calculate(left.number, right.number, align_sum, checked, real)};
}

void ora_add(Call& call) {
  if (!call.any_null()) give_term(call, add(term(call, 0), term(call, 1)));
}

void ora_sub(Call& call) {
  if (!call.any_null()) give_term(call, subtract(term(call, 0), term(call, 1)));
}

// What the two operators give one after the other, for a sum of many operands with the operators
// between them as text. NULL ends it as it comes: before, an operand may be an error.
void ora_sum(Call& call) {
  if (call.is_null(0)) return;
  Term sum = term(call, 0);
  for (int i = 2; i < call.count(); i += 2) {
    if (call.is_null(i)) return;
    sum = (call.bytes(i - 1) == "-" ? subtract : add)(sum, term(call, i));
  }
  give_term(call, sum);
}

void ora_mul(Call& call) {
  if (call.any_null()) return;
  call.give_number(calculate(
      call.number(0), call.number(1), align_product,
      [](long long a, long long b, long long* out) { return __builtin_mul_overflow(a, b, out); },
      [](double a, double b) { return a * b; }));
}

void divide(Call& call, const Number& left, const Number& right) {
  // The smallest integer divided by -1 is the one quotient that does not fit.
  const bool integers = left.is_integer && right.is_integer && right.integer != -1;
  if (integers && left.integer % right.integer == 0) {
    return call.give_integer(left.integer / right.integer);
  }
  call.give_real(left.as_real() / right.as_real());
}

void ora_div(Call& call) {
  if (call.any_null()) return;
  const Number left = call.number(0), right = call.number(1);
  if (right.is_integer ? right.integer == 0 : right.real == 0) fail(1476);
  divide(call, left, right);
}

// NULL is empty here, and alone among the operators does not make the result NULL.
void ora_concat(Call& call) {
  // On the stack: the result is copied once, when SQLite takes it.
  char joined[kMaxText];
  size_t size = 0;
  for (int i = 0; i < call.count(); ++i) {
    const TextArgument part(call, i);
    if (part.view().size() > kMaxText - size) fail(1489);
    if (part.view().empty()) continue;
    std::memcpy(joined + size, part.view().data(), part.view().size());
    size += part.view().size();
  }
  call.give_text({joined, size});
}

void ora_text(Call& call) {
  if (call.is_null(0)) return;
  if (call.type(0) == SQLITE_TEXT) return call.give_argument(0);
  call.give_text(TextArgument(call, 0).view());
}

void ora_number(Call& call) {
  if (!call.is_null(0)) call.give_number(call.number(0));
}

void ora_date(Call& call) {
  if (!call.is_null(0)) call.give_date(call.date(0));
}

// --- Group functions -----------------------------------------------------------------------------

// SQLite's memory for the group, zeroed at its first row.
void add_row(Call& call) {
  if (call.is_null(0)) return;
  // Before there is a group: SQLite asks for its result also after a failure, and an average of no
  // rows divides by zero.
  const Number value = call.number(0);
  void* group = sqlite3_aggregate_context(call.context(), sizeof(NumberSum));
  if (group == nullptr) throw std::bad_alloc();
  static_cast<NumberSum*>(group)->add(value);
}

// Null where no row had a value.
const NumberSum* sum_of_rows(const Call& call) {
  return static_cast<const NumberSum*>(sqlite3_aggregate_context(call.context(), 0));
}

// What could not be summed up exactly is a sum of quotients, and is treated as one of them.
void sum(Call& call) {
  if (const NumberSum* rows = sum_of_rows(call)) divide(call, rows->total(), {true, 1});
}

void avg(Call& call) {
  if (const NumberSum* rows = sum_of_rows(call)) divide(call, rows->total(), {true, rows->count()});
}

// --- Storing -------------------------------------------------------------------------------------

// The declared size in bytes, which the dialect gives as the second argument.
size_t size_limit(const Call& call) {
  return static_cast<size_t>(std::max(call.integer(1), 0));
}

// Text is rounded to the column's scale as digits: it may have more of them than any Number.
Number fitting_number(const Call& call, int precision, int scale) {
  Number value;
  bool fits = false;
  if (call.type(0) == SQLITE_TEXT) {
    Decimal decimal;
    if (!read_decimal(call.bytes(0), decimal)) fail(1722);
    fits = fit_decimal(decimal, precision, scale) && number_of(decimal, value);
  } else {
    value = call.number(0);
    fits = fit_number(value, precision, scale);
  }
  if (!fits) fail(1438);
  return value;
}

void store_number(Call& call) {
  if (call.is_null(0)) return;
  const int precision = std::clamp(call.integer(1), 0, kMaxPrecision);
  const int scale = std::clamp(call.integer(2), kMinScale, kMaxScale);
  call.give_number(fitting_number(call, precision, scale));
}

// A client's own double stays the double that it is: only computed ones have binary noise behind
// their decimal, and are rounded to it.
void store_given_number(Call& call) {
  if (call.type(0) == SQLITE_FLOAT) return call.give_argument(0);
  if (!call.is_null(0)) call.give_number(fitting_number(call, 0, 0));
}

// See store() of the dialect for the two functions and which columns they belong to.
bool number_unchanged(const Value& value, const ColumnInfo& column) {
  const bool integer = value.kind == Value::Kind::Integer;
  if (!integer && value.kind != Value::Kind::Real) return false;
  return takes_any_number(column) ||
         fits_as_it_is({integer, value.integer, value.real}, column.precision, column.scale);
}

// Sizes are bytes, not characters: the server's VARCHAR2(n) of release 8.
void store_char(Call& call) {
  if (call.is_null(0)) return;
  const TextArgument value(call, 0);
  if (value.view().size() > size_limit(call)) fail(1401);
  if (call.type(0) == SQLITE_TEXT) return call.give_argument(0);
  call.give_text(value.view());
}

// Text without the characters that go beyond the size; other values as they are.
void ora_cut(Call& call) {
  if (call.is_null(0)) return;
  const size_t limit = size_limit(call);
  if (call.type(0) != SQLITE_TEXT || call.bytes(0).size() <= limit) return call.give_argument(0);
  const std::string_view text = call.bytes(0);
  size_t size = 0;
  for (size_t next = 0; next <= limit; next += first_character(text.substr(next)).size()) {
    size = next;
  }
  call.give_text(text.substr(0, size));
}

// Copied once, into the memory that becomes the value.
void store_fixed_char(Call& call) {
  if (call.is_null(0)) return;
  const TextArgument value(call, 0);
  const size_t size = value.view().size(), limit = std::min(size_limit(call), kMaxText);
  if (size > limit) fail(1401);
  if (size == limit && call.type(0) == SQLITE_TEXT) return call.give_argument(0);
  TextResult padded(limit);
  std::memcpy(padded.data(), value.view().data(), size);
  std::memset(padded.data() + size, ' ', limit - size);
  padded.give(call, limit);
}

// A DATE that is one already, as nearly all are, passes without being taken apart.
void store_date(Call& call) {
  if (call.is_null(0)) return;
  if (call.is_date(0)) return call.give_argument(0);
  call.give_date(call.date(0));
}

// The size is known before any digit is read, so that a long text costs nothing to refuse.
void store_bytes(Call& call, size_t limit) {
  if (call.is_null(0)) return;
  if (call.is_number(0)) fail(932);
  const std::string_view value = call.bytes(0);
  if (call.type(0) == SQLITE_BLOB) {
    if (value.size() > limit) fail(1401);
    return call.give_argument(0);
  }
  if ((value.size() + 1) / 2 > limit) fail(1401);
  call.give_bytes(hex_to_bytes(value));
}

void store_raw(Call& call) {
  store_bytes(call, size_limit(call));
}

void store_long_raw(Call& call) {
  // A LONG RAW has no declared size. Values too long for a cell come as large values
  // (sqlite_large.h).
  store_bytes(call, std::numeric_limits<size_t>::max());
}

// --- The session's user --------------------------------------------------------------------------

const std::string& session_user(const Call& call) {
  return *static_cast<const std::string*>(sqlite3_user_data(call.context()));
}

void user(Call& call) {
  call.give_text(session_user(call));
}

// Asked for so rarely that a lookup does.
void uid(Call& call) {
  call.give_integer(account_number(sqlite3_context_db_handle(call.context()), session_user(call)));
}

constexpr SqlFunction kOperators[] = {{"ora_add", 2, run_call<ora_add>},
                                      {"ora_sub", 2, run_call<ora_sub>},
                                      {"ora_sum", -1, run_call<ora_sum>},
                                      {"ora_mul", 2, run_call<ora_mul>},
                                      {"ora_div", 2, run_call<ora_div>},
                                      {"sum", 1, run_call<add_row>, finish_calls<sum>},
                                      {"avg", 1, run_call<add_row>, finish_calls<avg>},
                                      {"ora_concat", -1, run_call<ora_concat>},
                                      {"ora_text", 1, run_call<ora_text>},
                                      {"rowidtochar", 1, run_call<ora_text>},
                                      {"ora_number", 1, run_call<ora_number>},
                                      {"ora_date", 1, run_call<ora_date>},
                                      {"store_number", 3, run_call<store_number>},
                                      {"store_char", 2, run_call<store_char>},
                                      {"store_fixed_char", 2, run_call<store_fixed_char>},
                                      {"ora_cut", 2, run_call<ora_cut>},
                                      {"store_date", 1, run_call<store_date>},
                                      {"store_raw", 2, run_call<store_raw>},
                                      {"store_given_number", 1, run_call<store_given_number>},
                                      {"store_long", 1, run_call<ora_text>},
                                      {"store_long_raw", 1, run_call<store_long_raw>}};

constexpr SqlFunction kSession[] = {{"sysdate", 0, run_call<sysdate>},
                                    {"to_date_today", 2, run_call<to_date>},
                                    {"user", 0, run_call<user>},
                                    {"uid", 0, run_call<uid>}};

// Innocuous: views and CHECK constraints may call them even where the schema is not trusted.
void add_functions(sqlite3* db, std::span<const SqlFunction> functions, int flags, void* data) {
  for (const SqlFunction& function : functions) {
    const bool aggregate = function.finish != nullptr;
    check(db, sqlite3_create_function_v2(
                  db, function.name, function.arguments, SQLITE_UTF8 | SQLITE_INNOCUOUS | flags,
                  data, aggregate ? nullptr : function.run, aggregate ? function.run : nullptr,
                  function.finish, nullptr));
  }
}

}  // namespace

// What the functions above do with a value that needs nothing done to it, without a call of them.
bool stored_unchanged(const Value& value, const ColumnInfo& column) {
  if (value.kind == Value::Kind::Null) return true;
  const bool text = value.kind == Value::Kind::Text, bytes = value.kind == Value::Kind::Bytes;
  switch (column.type) {
    case SQLT_CHR:
    case SQLT_RID:
      return text && value.size <= column.size;
    case SQLT_AFC:
      return text && value.size == column.size;
    case SQLT_DAT:
      return bytes && value.size == kDateSize &&
             valid_date(reinterpret_cast<const ub1*>(value.data));
    case SQLT_BIN:
      return bytes && value.size <= column.size;
    case SQLT_NUM:
      return number_unchanged(value, column);
    default:
      return false;
  }
}

void register_functions(sqlite3* db, const std::string* user_name) {
  for (const auto functions : {std::span<const SqlFunction>(kOperators), text_functions(),
                               number_functions(), date_functions(), conversion_functions()}) {
    add_functions(db, functions, SQLITE_DETERMINISTIC, nullptr);
  }
  // SQLite hands the pointer back as it is; nothing writes through it.
  // Not deterministic: their results are those of the moment and of the session.
  add_functions(db, kSession, 0, const_cast<std::string*>(user_name));
}

}  // namespace oci8
