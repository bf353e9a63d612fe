// NUMBER values: the forms that can be kept exactly, and their text as the server writes it.
// Nothing here allocates. The functions are called for every fetched and stored value, from the
// engine's functions (sqlite_functions_number.cpp), the conversions of fetch (define.cpp) and the
// dialect's literals.
#ifndef OCI8_NUMBER_H
#define OCI8_NUMBER_H

#include <cstddef>
#include <string_view>

#include "oci.h"

namespace oci8 {

/// A NUMBER that is kept exactly: a 64-bit integer, or a decimal of at most 15 significant digits
/// in a double (which then reads back as the same decimal).
struct Number {
  bool is_integer = true;
  long long integer = 0;
  double real = 0;

  /// Integers beyond 2^53 lose digits here.
  double as_real() const { return is_integer ? static_cast<double>(integer) : real; }
};

enum class NumberParse {
  Ok,
  Invalid,  // ORA-01722
  Inexact,  // cannot be kept exactly, but calculated with: the nearest double
  Overflow  // ORA-01426
};

/// Room for any number's text with its terminating zero byte.
inline constexpr size_t kNumberTextSize = 64;

/// Reads decimal text ("-1.25", ".5", "1e3", leading and trailing blanks allowed).
NumberParse parse_number(std::string_view text, Number& out);

/// Writes the value as the server does: no leading zero before the point (".5"), no trailing
/// zeros, no exponent where up to 40 digits hold the value, else "1.0E+99" form. Returns the
/// length; `out` has room for kNumberTextSize bytes and is not zero-terminated.
size_t number_to_text(long long value, char* out);
size_t number_to_text(double value, char* out);

/// True only where fit_number surely leaves the value unchanged; may be false for a value that
/// fits. `precision` must not be 0.
bool fits_as_it_is(const Number& value, int precision, int scale);

/// The nearest value with `scale` digits behind the point (negative: before it), half away from
/// zero. False where |value| needs more than `precision` digits then (ORA-01438).
/// A scale of kNoScale stands for FLOAT, whose precision is binary: it only rounds. A precision of
/// 0 sets no limit.
bool fit_number(Number& value, int precision, int scale);

}  // namespace oci8

#endif
