// Operators whose operands have been read.
#include "dialect_arithmetic.h"

#include <string>
#include <utility>

namespace oci8 {
namespace {

// Below this every integer result of the engine's own arithmetic is exact, as integer and as
// double. 2^53 is a little more.
constexpr double kExactBound = 9e15;
constexpr int kMaxOperands = 60;  // with the operators between them, what a function takes

// Date plus or minus days is a date, days plus a date as well; the difference of two dates is a
// number of days. An operand that may be either leaves the sum open, unless the other one decides:
// beside a date there is room for days only, and from a number only a number can be taken.
StaticType sum_type(const Fragment& left, const Fragment& right, bool add) {
  const bool left_open = may_be_date_or_number(left), right_open = may_be_date_or_number(right);
  const auto is_date = [](const Fragment& value) {
    return value.type.value_class() == ValueClass::Date;
  };
  const bool left_decides = add ? is_date(left) : !left_open && !is_date(left);
  const bool open = (left_open && !is_date(right)) || (right_open && !left_decides);
  // Of an open sum the describe says what it is if each placeholder is a number.
  const bool left_date = open ? left.type.code == SQLT_DAT : is_date(left);
  const bool right_date = open ? right.type.code == SQLT_DAT : is_date(right);
  const bool date = left_date != right_date && (left_date || add);
  if (open) return open_type(date);
  return date ? date_type() : number_type();
}

// One more operand in a parenthesis or call of its own: each one inside of another would fill the
// engine's parser stack at some thirty operands, and generated statements have more.
Fragment append(Fragment sum, std::string_view operation, Fragment right) {
  sum.sql.pop_back();
  deepen(right, 5);
  sum.add(operation).add(right).add(")");
  ++sum.operands;
  return sum;
}

// The engine's own operator serves where integers stay far from its limits.
Fragment sum_of_integers(Fragment left, const Fragment& right, bool add) {
  const std::string_view operation = add ? " + " : " - ";
  const StaticType type = integer_type(left.type.bound + right.type.bound);
  Fragment result;
  if (left.operands > 0 && left.sql.starts_with('(')) {
    result = append(std::move(left), operation, right);
  } else {
    result = infix(left, operation, right);
    result.operands = 2;
  }
  result.type = type;
  return result;
}

// All else goes through functions, which keep decimals exact and know dates: through one of two
// operands, or one of many.
Fragment sum_of_values(Fragment left, const Fragment& right, bool add) {
  const StaticType type = sum_type(left, right, add);
  Fragment result;
  if (left.operands > 0 && left.operands < kMaxOperands && left.sql.starts_with("ora_sum(")) {
    result = append(std::move(left), add ? ",'+'," : ",'-',", right);
  } else {
    const Fragment operation = fragment(add ? "'+'" : "'-'", right.offset);
    result = left.operands > 0 ? call("ora_sum", {left, operation, right}, left.offset)
                               : call(add ? "ora_add" : "ora_sub", {left, right}, left.offset);
    result.operands = 2;
  }
  result.type = type;
  return result;
}

}  // namespace

Fragment numeric(Fragment value) {
  // What a placeholder holds is seen at run time only: it may be a date beside a number of days.
  if (may_be_date_or_number(value)) return value;
  return coerce(value, ValueClass::Number);
}

Fragment operate(std::string_view function, const Fragment& left, const Fragment& right,
                 const StaticType& type) {
  Fragment result = call(function, {left, right}, left.offset);
  result.type = type;
  return result;
}

Fragment add_or_subtract(Fragment left, const Fragment& right, bool add) {
  const double bound = left.type.bound + right.type.bound;
  const bool integers = left.type.bound > 0 && right.type.bound > 0 && bound < kExactBound;
  if (integers && left.operands < kMaxOperands) {
    return sum_of_integers(std::move(left), right, add);
  }
  const bool left_date = left.type.value_class() == ValueClass::Date;
  const bool right_date = right.type.value_class() == ValueClass::Date;
  if (left_date && right_date && add) fail(975, {}, static_cast<int>(left.offset));
  return sum_of_values(left_date ? std::move(left) : numeric(std::move(left)),
                       right_date ? right : numeric(right), add);
}

// Two factors without digits behind the point stay with the engine as long as their product is
// sure to be exact.
Fragment multiply(const Fragment& left, const Fragment& right) {
  const double bound = left.type.bound * right.type.bound;
  if (bound > 0 && bound < kExactBound) {
    Fragment result = infix(left, " * ", right);
    result.type = integer_type(bound);
    return result;
  }
  return operate("ora_mul", numeric(left), numeric(right), number_type());
}

Fragment negate(const Fragment& value, ub4 offset) {
  // The least 64-bit integer never comes here: as a literal it has its sign already.
  if (value.integer) {
    Fragment result = fragment(std::to_string(-*value.integer), offset);
    result.type = value.type;
    result.integer = -*value.integer;
    return result;
  }
  Fragment zero = fragment("0", offset);
  zero.type = integer_type(1);
  Fragment result = add_or_subtract(zero, numeric(value), false);
  result.type.inexact = value.type.inexact;
  return result;
}

}  // namespace oci8
