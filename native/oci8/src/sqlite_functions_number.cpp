// Functions of NUMBERs. Integers take ways of their own, because a double keeps 53 bits of them;
// everything that went through a double is given by Call::give_real, which is where its binary
// noise ends.
#include <algorithm>
#include <cmath>
#include <limits>

#include "decimal.h"
#include "error.h"
#include "sqlite_call.h"
#include "sqlite_date_functions.h"

namespace oci8 {
namespace {

// Beyond every digit that a number can have.
constexpr int kMaxScale = 200;

// The nearest decimal of 15 digits: 11.000000000000002 is 11 for a CEIL, too.
double decimal_value(double value) {
  Number number;
  number.is_integer = false;
  number.real = value;
  if (!std::isfinite(value) || !number_of(decimal_of(number), number)) fail(1426);
  return number.as_real();
}

// The message names the argument's value.
[[noreturn]] void fail_range(const Call& call, int index) {
  fail(1428, TextArgument(call, index).view());
}

// One name for two types: of a date, the second argument is a format model.
void to_scale(Call& call, Rounding rounding) {
  if (call.any_null()) return;
  if (call.is_date(0)) {
    const std::string_view unit = call.count() > 1 ? call.bytes(1) : "DD";
    return call.give_date(rounding == Rounding::TowardsZero ? truncate_date(call.date(0), unit)
                                                            : round_date(call.date(0), unit));
  }
  const int scale = call.count() > 1 ? call.integer(1) : 0;
  Number value = call.number(0);
  // Nothing to round. A negative scale does round integers: ROUND(1250, -2).
  if (value.is_integer && scale >= 0) return call.give_number(value);
  Decimal decimal = decimal_of(value);
  round_decimal(decimal, std::clamp(scale, -kMaxScale, kMaxScale), rounding);
  if (!number_of(decimal, value)) fail(1426);
  call.give_number(value);
}

void round(Call& call) {
  to_scale(call, Rounding::HalfAwayFromZero);
}

void trunc(Call& call) {
  to_scale(call, Rounding::TowardsZero);
}

// The smallest integer has no positive counterpart among the integers.
void abs(Call& call) {
  if (call.is_null(0)) return;
  const Number value = call.number(0);
  const bool negates = value.is_integer && value.integer > std::numeric_limits<long long>::min();
  if (negates) return call.give_integer(std::abs(value.integer));
  call.give_real(std::fabs(call.real(0)));
}

// Integers stay as they are; everything else goes through a double function.
template <double (*Real)(double)>
void integral(Call& call) {
  if (call.is_null(0)) return;
  const Number value = call.number(0);
  if (value.is_integer) return call.give_number(value);
  call.give_real(Real(decimal_value(value.real)));
}

template <double (*Real)(double)>
void computed(Call& call) {
  if (!call.is_null(0)) call.give_real(Real(call.real(0)));
}

void sign(Call& call) {
  if (call.is_null(0)) return;
  const double value = call.real(0);
  call.give_integer((value > 0) - (value < 0));
}

// Decimals are divided as such, so that 1.1 divided by 0.1 leaves nothing.
void mod(Call& call) {
  if (call.any_null()) return;
  const Number dividend = call.number(0), divisor = call.number(1);
  if (dividend.is_integer && divisor.is_integer) {
    if (divisor.integer == 0) return call.give_number(dividend);
    // The smallest integer divided by -1 does not fit.
    return call.give_integer(divisor.integer == -1 ? 0 : dividend.integer % divisor.integer);
  }
  Decimal rest;
  Number result;
  if (!remainder(decimal_of(dividend), decimal_of(divisor), rest)) {
    return call.give_real(std::fmod(dividend.as_real(), divisor.as_real()));
  }
  if (!nearest_number(rest, result)) fail(1426);
  call.give_number(result);
}

// A negative base has only integral powers.
void power(Call& call) {
  if (call.any_null()) return;
  const double base = call.real(0), exponent = call.real(1);
  if (base < 0 && std::trunc(exponent) != exponent) fail_range(call, 1);
  call.give_real(std::pow(base, exponent));
}

void sqrt(Call& call) {
  if (call.is_null(0)) return;
  if (call.real(0) < 0) fail_range(call, 0);
  call.give_real(std::sqrt(call.real(0)));
}

void ln(Call& call) {
  if (call.is_null(0)) return;
  if (call.real(0) <= 0) fail_range(call, 0);
  call.give_real(std::log(call.real(0)));
}

// The angle that a sine or cosine is of.
template <double (*Real)(double)>
void arc(Call& call) {
  if (call.is_null(0)) return;
  if (!(std::fabs(call.real(0)) <= 1)) fail_range(call, 0);
  call.give_real(Real(call.real(0)));
}

void atan2(Call& call) {
  if (call.any_null()) return;
  if (call.real(0) == 0 && call.real(1) == 0) fail_range(call, 1);
  call.give_real(std::atan2(call.real(0), call.real(1)));
}

// Without decimals; ORA-01426 beyond 64 bits.
long long whole(const Call& call, int index) {
  constexpr double kLimit = 9223372036854775808.0;
  const Number value = call.number(index);
  if (value.is_integer) return value.integer;
  const double real = decimal_value(value.real);
  if (std::fabs(real) >= kLimit) fail(1426);
  return static_cast<long long>(real);
}

void bit_and(Call& call) {
  if (!call.any_null()) call.give_integer(whole(call, 0) & whole(call, 1));
}

// The base comes first. The quotient of logarithms is rounded: log(10, 1000) is 3.
void log(Call& call) {
  if (call.any_null()) return;
  const double base = call.real(0);
  if (base <= 0 || base == 1) fail_range(call, 0);
  if (call.real(1) <= 0) fail_range(call, 1);
  call.give_real(std::log(call.real(1)) / std::log(base));
}

constexpr SqlFunction kFunctions[] = {{"round", 1, run_call<round>},
                                      {"round", 2, run_call<round>},
                                      {"trunc", 1, run_call<trunc>},
                                      {"trunc", 2, run_call<trunc>},
                                      {"abs", 1, run_call<abs>},
                                      {"ceil", 1, run_call<integral<std::ceil>>},
                                      {"floor", 1, run_call<integral<std::floor>>},
                                      {"mod", 2, run_call<mod>},
                                      {"sign", 1, run_call<sign>},
                                      {"power", 2, run_call<power>},
                                      {"sqrt", 1, run_call<sqrt>},
                                      {"exp", 1, run_call<computed<std::exp>>},
                                      {"ln", 1, run_call<ln>},
                                      {"log", 2, run_call<log>},
                                      {"sin", 1, run_call<computed<std::sin>>},
                                      {"cos", 1, run_call<computed<std::cos>>},
                                      {"tan", 1, run_call<computed<std::tan>>},
                                      {"sinh", 1, run_call<computed<std::sinh>>},
                                      {"cosh", 1, run_call<computed<std::cosh>>},
                                      {"tanh", 1, run_call<computed<std::tanh>>},
                                      {"asin", 1, run_call<arc<std::asin>>},
                                      {"acos", 1, run_call<arc<std::acos>>},
                                      {"atan", 1, run_call<computed<std::atan>>},
                                      {"atan2", 2, run_call<atan2>},
                                      {"bitand", 2, run_call<bit_and>}};

}  // namespace

std::span<const SqlFunction> number_functions() {
  return kFunctions;
}

}  // namespace oci8
