// The engine has 64-bit integers and doubles, the server decimals of 38 digits. What both can keep
// exactly is accepted, everything else is refused or rounded where the server would round, and a
// double's binary digits are never shown. The decimal form (decimal.h) is the way between them.
#include "number.h"

#include <algorithm>
#include <cfloat>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "ascii.h"
#include "decimal.h"
#include "type_limits.h"

namespace oci8 {
namespace {

// Every decimal of so many digits survives the way into a double and back.
constexpr int kDoubleDigits = DBL_DIG;
// Digits of the greatest 64-bit integer.
constexpr int kIntegerDigits = 19;
// The widest text without an exponent.
constexpr int kPlainDigits = 40;
// The server's range: values of 1E126 and more overflow, values below 1E-130 are zero.
constexpr int kMaxPoint = 126;
constexpr int kMinPoint = -129;
// Far outside that range, and far inside an int.
constexpr int kExponentLimit = 100000;

// Places of amounts and the like, which are tried before the search for a double's digits.
constexpr int kShortPlaces = 4;

constexpr int kMaxExactPower = 22;
constexpr double kExactPowers[kMaxExactPower + 1] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                     1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                     1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

std::string_view without_blanks(std::string_view text) {
  while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
  return text;
}

// Takes the exponent "e[+-]digits" off the front of `text`. Absurd exponents are cut, not
// overflowed.
bool read_exponent(std::string_view& text, int& exponent) {
  text.remove_prefix(1);
  bool negative = false;
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  if (text.empty() || !is_digit(text.front())) return false;
  exponent = 0;
  for (; !text.empty() && is_digit(text.front()); text.remove_prefix(1)) {
    exponent = std::min(exponent * 10 + (text.front() - '0'), kExponentLimit);
  }
  if (negative) exponent = -exponent;
  return true;
}

// Keeps the rule of no leading zeros while digits come in: zeros before the first other digit only
// move the point.
// Both limits on the point keep an int from overflowing on a text of many megabytes of zeros.
void append_digit(Decimal& decimal, char digit, bool behind_point) {
  if (decimal.size == 0 && digit == '0') {
    if (behind_point && decimal.point > -kExponentLimit) --decimal.point;
    return;
  }
  if (!behind_point && decimal.point < kExponentLimit) ++decimal.point;
  if (decimal.size < Decimal::kMaxDigits) {
    decimal.digits[decimal.size++] = digit;
  } else if (digit != '0' && decimal.digits[decimal.size - 1] == '0') {
    // The last digit stands for all that did not fit: the value must not look exact.
    decimal.digits[decimal.size - 1] = '1';
  }
}

// Takes digits with at most one point off the front of `text`; false where there is no digit.
bool read_mantissa(std::string_view& text, Decimal& out) {
  bool any_digit = false, behind_point = false;
  for (; !text.empty(); text.remove_prefix(1)) {
    const char c = text.front();
    if (is_digit(c)) {
      any_digit = true;
      append_digit(out, c, behind_point);
    } else if (c == '.' && !behind_point) {
      behind_point = true;
    } else {
      break;
    }
  }
  return any_digit;
}

// Restores the rule of no trailing zeros, and of no negative zero.
void trim_decimal(Decimal& decimal) {
  while (decimal.size > 0 && decimal.digits[decimal.size - 1] == '0') --decimal.size;
  if (decimal.size == 0) {
    decimal.negative = false;
    decimal.point = 0;
  }
}

// Adds one to the last digit, carrying.
void round_up(Decimal& decimal) {
  while (decimal.size > 0 && decimal.digits[decimal.size - 1] == '9') --decimal.size;
  if (decimal.size > 0) {
    ++decimal.digits[decimal.size - 1];
    return;
  }
  decimal.digits[0] = '1';
  decimal.size = 1;
  ++decimal.point;
}

Decimal decimal_of_integer(long long value) {
  Decimal decimal;
  char text[kIntegerDigits + 2];
  const char* end = std::to_chars(text, text + sizeof text, value).ptr;
  // The sign is taken off the text and not off the value, as the least integer has no positive
  // counterpart.
  decimal.negative = value < 0;
  const char* begin = decimal.negative ? text + 1 : text;
  decimal.size = decimal.point = static_cast<int>(end - begin);
  std::memcpy(decimal.digits, begin, static_cast<size_t>(decimal.size));
  // The one digit of zero falls to the trimming too.
  trim_decimal(decimal);
  return decimal;
}

// Splits "d.ddde+xx", the form that to_chars writes.
Decimal decimal_of_scientific(const char* text, const char* end) {
  Decimal decimal;
  if (*text == '-') {
    decimal.negative = true;
    ++text;
  }
  for (; text != end && *text != 'e'; ++text) {
    if (*text != '.') decimal.digits[decimal.size++] = *text;
  }
  std::string_view rest(text, static_cast<size_t>(end - text));
  int exponent = 0;
  if (!rest.empty()) read_exponent(rest, exponent);
  decimal.point = exponent + 1;
  return decimal;
}

// The shortest text that reads back as the double is the decimal that went in, where that had at
// most 15 digits; a computed value has more and is cut to them.
Decimal decimal_of_real(double value) {
  Decimal decimal;
  if (value == 0 || !std::isfinite(value)) return decimal;
  char text[32];
  char* end = std::to_chars(text, text + sizeof text, value, std::chars_format::scientific).ptr;
  decimal = decimal_of_scientific(text, end);
  if (decimal.size > kDoubleDigits) {
    // A result of the engine's arithmetic such as 0.1+0.2 has 17 digits in its shortest form; with
    // 15 of them it is the number that was meant.
    end = std::to_chars(text, text + sizeof text, value, std::chars_format::scientific,
                        kDoubleDigits - 1)
              .ptr;
    decimal = decimal_of_scientific(text, end);
  }
  trim_decimal(decimal);
  return decimal;
}

char* write_zeros(char* out, int count) {
  std::memset(out, '0', static_cast<size_t>(count));
  return out + count;
}

char* write_digits(char* out, const char* digits, int count) {
  std::memcpy(out, digits, static_cast<size_t>(count));
  return out + count;
}

// False beyond 64 bits. Unsigned, so that the smallest integer passes through its magnitude.
bool integer_of(const Decimal& decimal, long long& out) {
  uint64_t magnitude = 0;
  for (int i = 0; i < decimal.point; ++i) {
    const int digit = i < decimal.size ? decimal.digits[i] - '0' : 0;
    magnitude = magnitude * 10 + static_cast<uint64_t>(digit);
  }
  const uint64_t limit = static_cast<uint64_t>(LLONG_MAX) + (decimal.negative ? 1 : 0);
  if (magnitude > limit) return false;
  out = static_cast<long long>(decimal.negative ? 0 - magnitude : magnitude);
  return true;
}

// The value as an integer of at most 15 digits over a power of ten, without the search for its
// shortest text: the two make up the decimal that went in, because no two decimals of so many
// digits are the same double. False for what is no such decimal.
bool take_places(double magnitude, int places, long long& digits) {
  // Registers wider than a double would round twice. Negated, so that NaN goes the other way.
  if (FLT_EVAL_METHOD != 0 || !(magnitude < kExactPowers[kDoubleDigits - places])) return false;
  digits = std::llround(magnitude * kExactPowers[places]);
  return static_cast<double>(digits) / kExactPowers[places] == magnitude;
}

// Amounts and the like, which are most of the doubles that are written. 0 for any other value.
size_t short_decimal_to_text(double value, char* out) {
  long long digits = 0;
  if (!take_places(std::abs(value), kShortPlaces, digits) || digits == 0) return 0;
  char* const begin = out;
  if (value < 0) *out++ = '-';
  constexpr long long kUnit = 10000;
  if (digits >= kUnit) out = std::to_chars(out, out + kDoubleDigits, digits / kUnit).ptr;
  long long rest = digits % kUnit;
  if (rest > 0) *out++ = '.';
  for (long long place = kUnit / 10; rest > 0; place /= 10) {
    *out++ = static_cast<char>('0' + rest / place);
    rest %= place;
  }
  return static_cast<size_t>(out - begin);
}

// The decimal as an integer in units of the given place, or what that leaves over multiples of the
// modulus, which is at most 10^18. `places` reaches the last digit.
uint64_t units_of(const Decimal& decimal, int places, uint64_t modulus) {
  uint64_t units = 0;
  for (int i = 0; i < decimal.point + places; ++i) {
    const int digit = i < decimal.size ? decimal.digits[i] - '0' : 0;
    units = (units * 10 + static_cast<uint64_t>(digit)) % modulus;
  }
  return units;
}

// Neither has zeros at its ends, so that digits compare as text does.
bool smaller_magnitude(const Decimal& left, const Decimal& right) {
  return left.point < right.point || (left.point == right.point && left.view() < right.view());
}

// At least one digit stands behind the point, and the exponent has at least two: "1.0E+40".
char* write_scientific(const Decimal& decimal, char* out) {
  *out++ = decimal.digits[0];
  *out++ = '.';
  const int behind = std::min(decimal.size - 1, kPlainDigits - 1);
  out = behind > 0 ? write_digits(out, decimal.digits + 1, behind) : write_zeros(out, 1);
  const int exponent = decimal.point - 1;
  *out++ = 'E';
  *out++ = exponent < 0 ? '-' : '+';
  const int magnitude = std::abs(exponent);
  if (magnitude < 10) *out++ = '0';
  return std::to_chars(out, out + 6, magnitude).ptr;
}

}  // namespace

bool read_decimal(std::string_view text, Decimal& out) {
  out.size = out.point = 0;
  text = without_blanks(text);
  out.negative = !text.empty() && text.front() == '-';
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) text.remove_prefix(1);
  if (!read_mantissa(text, out)) return false;
  int exponent = 0;
  if (!text.empty() && (text.front() == 'e' || text.front() == 'E')) {
    if (!read_exponent(text, exponent)) return false;
  }
  if (!text.empty()) return false;
  out.point += exponent;
  // Zero is what the server makes of such a value, too, and no error.
  if (out.point < kMinPoint) out.size = 0;
  trim_decimal(out);
  return true;
}

// Correctly rounded: an exact mantissa with one multiplication or division by an exact power, or
// else the library's conversion. Registers wider than a double would round twice.
double real_of(const Decimal& decimal) {
  const int exponent = decimal.point - decimal.size;
  double value = 0;
  if (FLT_EVAL_METHOD == 0 && decimal.size <= kDoubleDigits &&
      std::abs(exponent) <= kMaxExactPower) {
    long long mantissa = 0;
    for (char digit : decimal.view()) mantissa = mantissa * 10 + (digit - '0');
    value = static_cast<double>(mantissa);
    value = exponent < 0 ? value / kExactPowers[-exponent] : value * kExactPowers[exponent];
  } else {
    char text[Decimal::kMaxDigits + 12];
    char* end = write_digits(text, decimal.digits, decimal.size);
    *end++ = 'e';
    end = std::to_chars(end, text + sizeof text, exponent).ptr;
    std::from_chars(text, end, value);
  }
  return decimal.negative ? -value : value;
}

Decimal decimal_of(const Number& value) {
  return value.is_integer ? decimal_of_integer(value.integer) : decimal_of_real(value.real);
}

bool number_of(const Decimal& decimal, Number& out) {
  if (decimal.size > 0 && decimal.point < kMinPoint) {
    out = {};
    return true;
  }
  if (decimal.size <= decimal.point && decimal.point <= kIntegerDigits &&
      integer_of(decimal, out.integer)) {
    out.is_integer = true;
    return true;
  }
  if (decimal.size > kDoubleDigits || decimal.point > kMaxPoint) return false;
  out.is_integer = false;
  out.real = real_of(decimal);
  return true;
}

bool nearest_number(const Decimal& decimal, Number& out) {
  if (number_of(decimal, out)) return true;
  if (decimal.point > kMaxPoint) return false;
  out.is_integer = false;
  out.real = real_of(decimal);
  return true;
}

bool scaled_of(const Number& value, Scaled& out) {
  if (value.is_integer) {
    out = {value.integer, 0};
    return true;
  }
  out.places = kShortPlaces;
  if (!take_places(std::abs(value.real), out.places, out.digits)) {
    const Decimal decimal = decimal_of_real(value.real);
    if (std::abs(real_of(decimal)) != std::abs(value.real)) return false;
    out.places = decimal.size - decimal.point;
    out.digits = 0;
    for (char digit : decimal.view()) out.digits = out.digits * 10 + (digit - '0');
  }
  if (value.real < 0) out.digits = -out.digits;
  return true;
}

bool same_places(Scaled& left, Scaled& right) {
  Scaled& fewer = left.places < right.places ? left : right;
  const int places = std::max(left.places, right.places);
  for (; fewer.places < places && fewer.digits != 0; ++fewer.places) {
    if (__builtin_mul_overflow(fewer.digits, 10, &fewer.digits)) return false;
  }
  fewer.places = places;
  return true;
}

void drop_zeros(Scaled& value) {
  for (; value.places > 0 && value.digits % 10 == 0; --value.places) value.digits /= 10;
}

Decimal decimal_of(const Scaled& value) {
  Decimal decimal = decimal_of_integer(value.digits);
  if (decimal.size > 0) decimal.point -= value.places;
  return decimal;
}

// As on paper, digit by digit: a quotient in a double would lose places that the remainder has.
// With the dividend's places a divisor has no more digits than the greater dividend, and with its
// own places its own digits: only integers have too many.
bool remainder(const Decimal& dividend, const Decimal& divisor, Decimal& out) {
  constexpr uint64_t kLimit = 1000000000000000000;
  out = dividend;
  if (divisor.size == 0 || smaller_magnitude(dividend, divisor)) return true;
  const int places = std::max(dividend.size - dividend.point, divisor.size - divisor.point);
  if (divisor.point + places > kIntegerDigits - 1) return false;
  const uint64_t units = units_of(divisor, places, kLimit);
  const auto rest = static_cast<long long>(units_of(dividend, places, units));
  out = decimal_of(Scaled{dividend.negative ? -rest : rest, places});
  return true;
}

// `keep` counts the digits that stay; less than zero of them is a value far below the last place.
// It is wider than an int because scale comes from an SQL expression.
void round_decimal(Decimal& decimal, int scale, Rounding rounding) {
  const long long keep = static_cast<long long>(decimal.point) + scale;
  if (keep >= decimal.size) return;
  const bool up =
      rounding == Rounding::HalfAwayFromZero && keep >= 0 && decimal.digits[keep] >= '5';
  decimal.size = static_cast<int>(std::max(keep, 0LL));
  if (up) round_up(decimal);
  trim_decimal(decimal);
}

// A FLOAT column counts binary digits, worth 0.30103 decimal digits each, and drops what is beyond
// them; every other column refuses what is too large for it.
bool fit_decimal(Decimal& decimal, int precision, int scale) {
  if (precision == 0) return true;
  if (scale == kNoScale) {
    const int digits = (precision * 30103 + 99999) / 100000;
    round_decimal(decimal, digits - decimal.point, Rounding::HalfAwayFromZero);
    return true;
  }
  round_decimal(decimal, scale, Rounding::HalfAwayFromZero);
  return decimal.size == 0 || decimal.point <= precision - scale;
}

size_t decimal_to_text(const Decimal& decimal, char* out) {
  char* const begin = out;
  if (decimal.size == 0) {
    *out = '0';
    return 1;
  }
  if (decimal.negative) *out++ = '-';
  const int size = decimal.size, point = decimal.point;
  if (std::max(size, point) > kPlainDigits || (point <= 0 && size - point >= kPlainDigits)) {
    out = write_scientific(decimal, out);
  } else if (size <= point) {
    out = write_zeros(write_digits(out, decimal.digits, size), point - size);
  } else {
    if (point > 0) out = write_digits(out, decimal.digits, point);
    *out++ = '.';
    if (point < 0) out = write_zeros(out, -point);
    const int written = std::max(point, 0);
    out = write_digits(out, decimal.digits + written, size - written);
  }
  return static_cast<size_t>(out - begin);
}

NumberParse parse_number(std::string_view text, Number& out) {
  Decimal decimal;
  if (!read_decimal(text, decimal)) return NumberParse::Invalid;
  if (number_of(decimal, out)) return NumberParse::Ok;
  return nearest_number(decimal, out) ? NumberParse::Inexact : NumberParse::Overflow;
}

size_t number_to_text(long long value, char* out) {
  return static_cast<size_t>(std::to_chars(out, out + kNumberTextSize, value).ptr - out);
}

size_t number_to_text(double value, char* out) {
  if (const size_t size = short_decimal_to_text(value, out)) return size;
  if (!std::isfinite(value)) {
    // The server's sign for a value outside of its range.
    char* end = out;
    if (value < 0) *end++ = '-';
    *end++ = '~';
    return static_cast<size_t>(end - out);
  }
  return decimal_to_text(decimal_of_real(value), out);
}

// Most values are an integer for a column that keeps all of it, or have no more digits behind the
// point than the column keeps. An integral double becomes an integer, and so is none of them.
bool fits_as_it_is(const Number& value, int precision, int scale) {
  if (value.is_integer) {
    const int places = std::min(precision - scale, kMaxExactPower);
    return scale >= 0 && places >= 0 &&
           std::abs(static_cast<double>(value.integer)) < kExactPowers[places];
  }
  long long digits = 0;
  return scale > 0 && scale <= kDoubleDigits && take_places(std::abs(value.real), scale, digits) &&
         static_cast<double>(digits) < kExactPowers[std::min(precision, kDoubleDigits)] &&
         static_cast<double>(static_cast<long long>(value.real)) != value.real;
}

bool fit_number(Number& value, int precision, int scale) {
  if (precision == 0 && value.is_integer) return true;
  if (precision > 0 && fits_as_it_is(value, precision, scale)) return true;
  Decimal decimal = decimal_of(value);
  return fit_decimal(decimal, precision, scale) && number_of(decimal, value);
}

}  // namespace oci8
