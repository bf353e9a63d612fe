#include "number.h"

#include <cmath>
#include <random>

#include "engine_fixture.h"

namespace oci8 {
namespace {

std::string show(const Number& value) {
  char out[kNumberTextSize];
  const size_t size =
      value.is_integer ? number_to_text(value.integer, out) : number_to_text(value.real, out);
  return std::string(out, size) + (value.is_integer ? "" : "r");
}

// Integers are shown as they are, doubles with an "r" behind them.
std::string read(std::string_view text) {
  Number value;
  const NumberParse parsed = parse_number(text, value);
  return parsed == NumberParse::Ok        ? show(value)
         : parsed == NumberParse::Invalid ? "invalid"
         : parsed == NumberParse::Inexact ? "about " + show(value)
                                          : "overflow";
}

TEST(Number, ReadsWhatItKeepsExactlyAndRefusesTheRest) {
  for (const auto& [quoted, expected] : cases(R"(
    '0' -> 0 | '-0' -> 0 | '-0.000' -> 0 | ' 007 ' -> 7 | '+1.50' -> 1.5r | '-1.25' -> -1.25r
    '.5' -> .5r | '5.' -> 5 | '1e3' -> 1000 | '1.5E+1' -> 15 | '25e-4' -> .0025r
    '9223372036854775807' -> 9223372036854775807 | '-9223372036854775808' -> -9223372036854775808
    '123456789.012345' -> 123456789.012345r | '100000000000000000000' -> 100000000000000000000r
    '1e39' -> 1000000000000000000000000000000000000000r | '1e40' -> 1.0E+40r
    '-1.25e-50' -> -1.25E-50r | '1e-39' -> .000000000000000000000000000000000000001r
    '1e-40' -> 1.0E-40r | '9.99e125' -> 9.99E+125r | '1e-131' -> 0 | '1e-999999999999' -> 0
    '9223372036854775808' -> about 9223372036854780000r
    '123456789012345678.5' -> about 123456789012346000r
    '0.1234567890123456' -> about .123456789012346r | '1e126' -> overflow
    '1e999999999999' -> overflow | '3.14159265358979323846' -> about 3.14159265358979r
    '' -> invalid | '  ' -> invalid | '.' -> invalid | '-' -> invalid | '1.2.3' -> invalid
    '1e' -> invalid | '1e+' -> invalid | 'e5' -> invalid | '1 2' -> invalid | '0x10' -> invalid
    'inf' -> invalid | 'nan' -> invalid)")) {
    EXPECT_EQ(read(std::string_view(quoted).substr(1, quoted.size() - 2)), expected) << quoted;
  }
  EXPECT_EQ(read(std::string(500, '1')), "overflow");
  EXPECT_EQ(read("1" + std::string(60, '0') + "1"), "about 1.0E+61r");
  Number pi;
  parse_number("3.14159265358979323846", pi);
  EXPECT_EQ(pi.real, 3.14159265358979323846);
}

TEST(Number, WritesComputedDoublesWithFifteenDigits) {
  // clang-format off
  const std::tuple<double, const char*> kRows[] = {
      {-0.0, "0r"}, {0.1 + 0.2, ".3r"}, {1.0 / 3, ".333333333333333r"},
      {2.0 / 3, ".666666666666667r"}, {1e15, "1000000000000000r"}, {-1e-7, "-.0000001r"},
      {99999999999.9999, "99999999999.9999r"}, {-0.0001, "-.0001r"}, {0.00005, ".00005r"},
      {4.35, "4.35r"}, {0.99999999999999999, "1r"}, {HUGE_VAL, "~r"}, {-HUGE_VAL, "-~r"}};
  // clang-format on
  for (const auto& [value, expected] : kRows) EXPECT_EQ(show({false, 0, value}), expected);
}

// Every decimal of up to 15 digits must come back from its double as it went in.
TEST(Number, TextSurvivesTheWayThroughADouble) {
  std::mt19937_64 random(20010125);
  for (int i = 0; i < 20000; ++i) {
    std::string text = std::to_string(random() % 999999999999999 + 1);
    text.insert(random() % (text.size() + 1), ".");
    while (text.back() == '0') text.pop_back();
    if (text.back() == '.') continue;
    text.erase(0, text.find_first_not_of('0'));
    ASSERT_EQ(read(text), text + "r");
  }
}

TEST(Number, FitsColumnsByDecimalRounding) {
  for (const auto& [input, expected] : cases(R"(
    1.005 in 5 2 -> 1.01r | -1.005 in 5 2 -> -1.01r | 2.675 in 3 2 -> 2.68r
    999.995 in 5 2 -> refused | 999.994 in 5 2 -> 999.99r | 1000 in 3 0 -> refused
    999 in 3 0 -> 999 | 99.5 in 2 0 -> refused | 0.4 in 1 0 -> 0 | -0.5 in 1 0 -> -1
    -9.99 in 3 2 -> -9.99r | 9.999 in 4 2 -> 10 | 0.0099 in 2 4 -> .0099r | 99.5 in 2 1 -> refused
    1250 in 2 -2 -> 1300 | 49 in 2 -2 -> 0 | 50 in 2 -2 -> 100 | 0.00125 in 2 4 -> .0013r
    0.01 in 2 4 -> refused | 1.5 in 0 0 -> 1.5r | 123456789 in 8 0 -> refused
    0.3333 in 10 -127 -> .3333r | 12345 in 10 -127 -> 12350
    9223372036854775807 in 38 -1 -> refused | 9223372036854775807 in 38 0 -> 9223372036854775807)")) {
    std::istringstream parts(input);
    std::string text, in;
    int precision = 0, scale = 0;
    parts >> text >> in >> precision >> scale;
    Number value;
    ASSERT_EQ(parse_number(text, value), NumberParse::Ok);
    EXPECT_EQ(fit_number(value, precision, scale) ? show(value) : "refused", expected) << input;
  }
  Number third{false, 0, 1.0 / 3};
  EXPECT_TRUE(fit_number(third, 0, 0));
  EXPECT_EQ(third.real, 0.333333333333333) << "what is stored must be the decimal that is shown";
}

}  // namespace
}  // namespace oci8
