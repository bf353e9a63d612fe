// A model is read into a NumberModel first, because its parts depend on one another from both ends:
// a sign at the end changes the width, a zero anywhere changes the digits before it.
#include "number_format.h"

#include <algorithm>
#include <bitset>
#include <charconv>
#include <cstdlib>

#include "ascii.h"
#include "decimal.h"
#include "error.h"

namespace oci8 {
namespace {

// Bounds the bit set of separators, and with it the width of a result.
constexpr int kMaxPlaces = 64;
// Of MMMDCCCLXXXVIII.
constexpr size_t kRomanWidth = 15;

enum class SignPlace { Before /* only a minus */, PlusBefore, PlusBehind, MinusBehind, Brackets };

// What a model says. Its digits are counted from the left.
struct NumberModel {
  SignPlace sign = SignPlace::Before;
  bool fill = true;  // no FM
  bool currency = false;  // $
  bool blank_zero = false;  // B
  bool scientific = false;  // EEEE
  bool point = false;
  int places = 0;  // digits before the point
  int first_zero = -1;  // from here on zeros are written, where not -1
  int decimals = 0;
  int last_zero = 0;  // decimals that FM does not drop
  std::bitset<kMaxPlaces> groups;  // a separator stands before this place
};

// Takes `element` off the front of `rest`, whatever its case.
bool take(std::string_view& rest, std::string_view element) {
  if (!starts_with(rest, element)) return false;
  rest.remove_prefix(element.size());
  return true;
}

// A zero before the point makes zeros of all places behind it, one behind the point of all before
// it.
void add_place(NumberModel& model, bool zero) {
  if (model.places + model.decimals == kMaxPlaces - 1) fail(1481);
  if (model.point) {
    ++model.decimals;
    if (zero) model.last_zero = model.decimals;
    return;
  }
  if (zero && model.first_zero < 0) model.first_zero = model.places;
  ++model.places;
}

// A model has one sign.
void set_sign(NumberModel& model, SignPlace place) {
  if (model.sign != SignPlace::Before) fail(1481);
  model.sign = place;
}

// MI, PR and the S behind the digits must end the model; the S before them must begin it.
void add_element(NumberModel& model, std::string_view& rest) {
  // Whether digits have begun, which decides on which side of them an S stands.
  const bool first = model.places + model.decimals == 0 && !model.point;
  if (take(rest, "9")) {
    add_place(model, false);
  } else if (take(rest, "0")) {
    add_place(model, true);
  } else if (!model.point && (take(rest, ".") || take(rest, "D"))) {
    model.point = true;
  } else if (!model.point && model.places > 0 && (take(rest, ",") || take(rest, "G"))) {
    model.groups.set(static_cast<size_t>(model.places));
  } else if (!model.currency && (take(rest, "$") || take(rest, "L"))) {
    model.currency = true;
  } else if (take(rest, "MI") && rest.empty()) {
    set_sign(model, SignPlace::MinusBehind);
  } else if (take(rest, "PR") && rest.empty()) {
    set_sign(model, SignPlace::Brackets);
  } else if (take(rest, "S") && (first || rest.empty())) {
    set_sign(model, first ? SignPlace::PlusBefore : SignPlace::PlusBehind);
  } else if (!model.scientific && take(rest, "EEEE")) {
    model.scientific = true;
  } else if (take(rest, "FM")) {
    model.fill = false;
  } else if (take(rest, "B")) {
    model.blank_zero = true;
  } else {
    fail(1481);
  }
}

NumberModel read_model(std::string_view format) {
  NumberModel model;
  while (!format.empty()) add_element(model, format);
  if (model.places + model.decimals == 0) fail(1481);
  return model;
}

// Zeros stand on both sides of a decimal's own digits.
char digit_at(const Decimal& value, int index) {
  return index >= 0 && index < value.size ? value.digits[index] : '0';
}

// The digits before the point, from the first that is written; separators only between digits.
void write_whole(std::string& out, const NumberModel& model, const Decimal& value) {
  // Without decimals at least one digit has to show that there is a value.
  const bool zero_alone = value.size == 0 && model.decimals == 0;
  for (int place = 0; place < model.places; ++place) {
    const int index = place - (model.places - value.point);
    const bool forced = (model.first_zero >= 0 && place >= model.first_zero) ||
                        (zero_alone && place == model.places - 1);
    if (index < 0 && !forced && out.empty()) continue;
    if (!out.empty() && model.groups.test(static_cast<size_t>(place))) out += ',';
    out += digit_at(value, index);
  }
}

// FM drops the zeros that the value does not have, down to the last 0 of the model; a zero alone
// keeps its digit before the point.
void write_decimals(std::string& out, const NumberModel& model, const Decimal& value) {
  if (!model.point) return;
  int count = model.decimals;
  if (!model.fill) {
    count = std::max(model.last_zero, std::min(count, value.size - value.point));
    if (out.empty() && count <= 0) out += '0';
  }
  out += '.';
  for (int i = 0; i < count; ++i) out += digit_at(value, value.point + i);
}

std::string write_exponent(int exponent) {
  const std::string digits = std::to_string(std::abs(exponent));
  return std::string(exponent < 0 ? "E-" : "E+") + (digits.size() < 2 ? "0" : "") + digits;
}

// The columns of the model without its sign.
size_t width_of(const NumberModel& model) {
  return static_cast<size_t>(model.places + model.decimals) + model.groups.count() +
         (model.point ? 1 : 0) + (model.currency ? 1 : 0) + (model.scientific ? 4 : 0);
}

// Puts the sign and the currency around the digits and fills the columns with blanks.
std::string with_sign(const NumberModel& model, std::string digits, bool negative) {
  if (model.currency) digits.insert(0, 1, '$');
  std::string behind;
  // The place of a sign that is not there, so that positive and negative numbers line up.
  const std::string blank(model.fill ? 1 : 0, ' ');
  switch (model.sign) {
    case SignPlace::Before:
      digits.insert(0, negative ? "-" : blank);
      break;
    case SignPlace::PlusBefore:
      digits.insert(0, negative ? "-" : "+");
      break;
    case SignPlace::PlusBehind:
      behind = negative ? "-" : "+";
      break;
    case SignPlace::MinusBehind:
      behind = negative ? "-" : blank;
      break;
    case SignPlace::Brackets:
      digits.insert(0, negative ? "<" : blank);
      behind = negative ? ">" : blank;
  }
  const bool before = model.sign != SignPlace::PlusBehind && model.sign != SignPlace::MinusBehind;
  const size_t width = width_of(model) + (before ? 1 : 0);
  if (model.fill && digits.size() < width) digits.insert(0, width - digits.size(), ' ');
  return digits + behind;
}

// One digit before the point, as many behind it as the model says.
std::string format_scientific(const NumberModel& model, Decimal value) {
  // One digit before the point and the model's decimals are kept, whatever the magnitude: counted
  // from the value's own point.
  round_decimal(value, model.decimals + 1 - value.point, Rounding::HalfAwayFromZero);
  const int exponent = value.size == 0 ? 0 : value.point - 1;
  std::string digits(1, digit_at(value, 0));
  if (model.point) digits += '.';
  for (int i = 1; i <= model.decimals; ++i) digits += digit_at(value, i);
  return with_sign(model, digits + write_exponent(exponent), value.negative);
}

[[noreturn]] void fail_number() {
  fail(1722);
}

// Takes the model's sign off both ends of the text; true for a minus.
bool take_sign(const NumberModel& model, std::string_view& rest) {
  const bool behind = model.sign == SignPlace::PlusBehind || model.sign == SignPlace::MinusBehind;
  if (rest.empty()) fail_number();
  if (model.sign == SignPlace::Brackets && rest.front() == '<') {
    if (rest.size() < 2 || rest.back() != '>') fail_number();
    rest = rest.substr(1, rest.size() - 2);
    return true;
  }
  const char sign = behind ? rest.back() : rest.front();
  if (sign != '-' && sign != '+') return false;
  behind ? rest.remove_suffix(1) : rest.remove_prefix(1);
  return sign == '-';
}

// RN: capital or small as the model's first letter is, in the columns of the longest number.
std::string format_roman(int value, bool fill, bool small) {
  struct Sign {
    int value;
    std::string_view digits;
  };
  static constexpr Sign kSigns[] = {{1000, "M"}, {900, "CM"}, {500, "D"}, {400, "CD"}, {100, "C"},
                                    {90, "XC"},  {50, "L"},   {40, "XL"}, {10, "X"},   {9, "IX"},
                                    {5, "V"},    {4, "IV"},   {1, "I"}};
  std::string text;
  for (const Sign& sign : kSigns) {
    for (; value >= sign.value; value -= sign.value) text += sign.digits;
  }
  if (small) text = lower(text);
  if (fill) text.insert(0, kRomanWidth - text.size(), ' ');
  return text;
}

// XXXX: zeros before the digits where the model begins with 0, a place for a sign that none has.
std::string format_hexadecimal(long long value, std::string_view model, bool fill) {
  char digits[16];
  const std::string_view small(digits,
                               std::to_chars(digits, digits + sizeof digits, value, 16).ptr);
  const size_t size = small.size();
  if (size > model.size()) return std::string(model.size() + 1, '#');
  const bool zeros = model.front() == '0';
  std::string text(zeros || fill ? model.size() - size : 0, zeros ? '0' : ' ');
  text += model.back() == 'x' ? std::string(small) : upper(small);
  return fill ? ' ' + text : text;
}

// Models that show integers in other ways than by decimal digits; false for all others.
bool format_otherwise(const Number& value, std::string_view format, std::string& out) {
  const bool fill = !take(format, "FM");
  const bool roman = format.size() == 2 && starts_with(format, "RN");
  const bool hexadecimal = (format.ends_with('X') || format.ends_with('x')) &&
                           format.size() < kMaxPlaces &&
                           format.find_first_not_of("0Xx") == std::string_view::npos;
  if (!roman && !hexadecimal) return false;
  Decimal decimal = decimal_of(value);
  round_decimal(decimal, 0, Rounding::HalfAwayFromZero);
  Number rounded;
  const bool positive = number_of(decimal, rounded) && rounded.is_integer && !decimal.negative;
  const long long integer = positive ? rounded.integer : -1;
  if (hexadecimal) {
    out =
        positive ? format_hexadecimal(integer, format, fill) : std::string(format.size() + 1, '#');
  } else {
    out = integer >= 1 && integer <= 3999
              ? format_roman(static_cast<int>(integer), fill, format.front() == 'r')
              : std::string(kRomanWidth, '#');
  }
  return true;
}

}  // namespace

std::string format_number(const Number& value, std::string_view format) {
  std::string special;
  if (format_otherwise(value, format, special)) return special;
  const NumberModel model = read_model(format);
  Decimal decimal = decimal_of(value);
  if (model.scientific) return format_scientific(model, decimal);
  round_decimal(decimal, model.decimals, Rounding::HalfAwayFromZero);
  // As on the server a value without room is no error, because TO_CHAR stands in reports.
  if (decimal.point > model.places) return std::string(width_of(model) + 1, '#');
  // B shows zero as blanks, as many as the model has columns.
  if (decimal.size == 0 && model.blank_zero) {
    return std::string(model.fill ? width_of(model) + 1 : 0, ' ');
  }
  std::string digits;
  write_whole(digits, model, decimal);
  write_decimals(digits, model, decimal);
  return with_sign(model, std::move(digits), decimal.negative);
}

Number parse_number(std::string_view text, std::string_view format) {
  const NumberModel model = read_model(format);
  while (text.starts_with(' ')) text.remove_prefix(1);
  while (text.ends_with(' ')) text.remove_suffix(1);
  std::string plain = take_sign(model, text) ? "-" : "";
  int places = 0, decimals = 0;
  bool point = false;
  if (model.currency && text.starts_with('$')) text.remove_prefix(1);
  for (char c : text) {
    // Separators are taken wherever they stand before the point: reading is more forgiving than
    // writing.
    if (c == ',' && !point && model.groups.any()) continue;
    if (c == '.' && model.point) {
      point = true;
    } else if (is_digit(c)) {
      ++(point ? decimals : places);
    } else if (!model.scientific) {
      fail_number();
    }
    plain += c;
  }
  Number value;
  if (!model.scientific && (places > model.places || decimals > model.decimals)) fail_number();
  const NumberParse parsed = parse_number(plain, value);
  if (parsed == NumberParse::Invalid || parsed == NumberParse::Overflow) fail_number();
  return value;
}

}  // namespace oci8
