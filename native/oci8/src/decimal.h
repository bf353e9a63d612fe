// Numbers as decimal digits: the form in which NUMBER values are rounded, compared with a declared
// precision and written, so that no binary fraction ever decides about a decimal place.
// A Decimal lives on the stack for the length of one operation; what is stored and passed around is
// a Number (number.h). Reading, writing and formatting (number_format.cpp) all go through it, so
// that there is one place where rounding happens.
#ifndef OCI8_DECIMAL_H
#define OCI8_DECIMAL_H

#include <string_view>

#include "number.h"

namespace oci8 {

/// 0.DIGITS times ten to the power of `point`, without leading or trailing zero digits; no digits
/// is zero.
/// Without zeros at either end the form is unique: equal values have the same sign, digits and
/// point.
struct Decimal {
  // More than any accepted value has, so that text with surplus decimals can still be rounded.
  static constexpr int kMaxDigits = 60;

  bool negative = false;
  int size = 0;
  int point = 0;
  char digits[kMaxDigits] = {};  // '0' to '9'

  std::string_view view() const { return {digits, static_cast<size_t>(size)}; }
};

enum class Rounding { HalfAwayFromZero, TowardsZero };

/// Reads decimal text as parse_number does, without asking whether the value can be kept; false
/// for text that is no number.
bool read_decimal(std::string_view text, Decimal& out);
/// The decimal that the number stands for: an integer's digits, or a double's shortest decimal, cut
/// to 15 digits.
Decimal decimal_of(const Number& value);
/// False for a value that no Number keeps exactly. What is below the server's range is 0.
bool number_of(const Decimal& decimal, Number& out);
/// The same of the nearest double where the digits cannot be kept: false only for a value outside
/// of the server's range.
bool nearest_number(const Decimal& decimal, Number& out);
/// The nearest double.
double real_of(const Decimal& decimal);

/// An integer over ten to the power of `places`: the form in which decimals are added.
struct Scaled {
  long long digits = 0;
  int places = 0;
};

/// False for a double that stands for no decimal of at most 15 digits, as a quotient may be.
bool scaled_of(const Number& value, Scaled& out);
/// Gives both the greater number of places; false where 64 bits do not hold that.
bool same_places(Scaled& left, Scaled& right);
/// Gives it no more places than it needs.
void drop_zeros(Scaled& value);
Decimal decimal_of(const Scaled& value);

/// What the division of one decimal by another leaves, with the sign of the dividend; a divisor of
/// zero leaves the dividend. False where the divisor has too many digits for it.
bool remainder(const Decimal& dividend, const Decimal& divisor, Decimal& out);

/// Keeps `scale` digits behind the point (negative: before it).
void round_decimal(Decimal& decimal, int scale, Rounding rounding);
/// Rounds to a column's declaration (see fit_number); false where the digits before the point are
/// too many for it.
bool fit_decimal(Decimal& decimal, int precision, int scale);

/// Writes as number_to_text does.
size_t decimal_to_text(const Decimal& decimal, char* out);

}  // namespace oci8

#endif
