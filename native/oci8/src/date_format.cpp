// TO_CHAR of a DATE: one pass over the format model, each element writing itself. The fields are
// right by the time that they come here, so that nothing in this file can fail but a model that is
// none (ORA-01821).
#include <charconv>
#include <cstdlib>
#include <utility>

#include "date.h"
#include "date_model.h"
#include "error.h"
#include "type_limits.h"

namespace oci8 {
namespace {

// In small letters, up to the greatest day number.
void append_words(std::string& out, int value) {
  static constexpr std::string_view kOnes[] = {
      "zero",     "one",     "two",     "three",     "four",     "five",    "six",
      "seven",    "eight",   "nine",    "ten",       "eleven",   "twelve",  "thirteen",
      "fourteen", "fifteen", "sixteen", "seventeen", "eighteen", "nineteen"};
  static constexpr std::string_view kTens[] = {"",      "",      "twenty",  "thirty", "forty",
                                               "fifty", "sixty", "seventy", "eighty", "ninety"};
  static constexpr std::pair<int, std::string_view> kUnits[] = {
      {1000000, " million"}, {1000, " thousand"}, {100, " hundred"}};
  for (const auto& [unit, name] : kUnits) {
    if (value < unit) continue;
    append_words(out, value / unit);
    out += name;
    value %= unit;
    if (value == 0) return;
    out += ' ';
  }
  if (value < 20) {
    out += kOnes[value];
    return;
  }
  out += kTens[value / 10];
  if (value % 10 != 0) (out += '-') += kOnes[value % 10];
}

// Makes the last word an ordinal: twenty-first, thirtieth.
void make_ordinal(std::string& words) {
  static constexpr std::pair<std::string_view, std::string_view> kEnds[] = {
      {"one", "first"},    {"two", "second"}, {"three", "third"},    {"five", "fifth"},
      {"eight", "eighth"}, {"nine", "ninth"}, {"twelve", "twelfth"}, {"y", "ieth"}};
  for (const auto& [cardinal, ordinal] : kEnds) {
    if (!words.ends_with(cardinal)) continue;
    words.replace(words.size() - cardinal.size(), cardinal.size(), ordinal);
    return;
  }
  words += "th";
}

// Writes one date. The text is short, so that it mostly fits the string's own memory.
class DateWriter {
 public:
  explicit DateWriter(const DateFields& fields) : fields_(fields) {}

  std::string write(std::string_view format);

 private:
  void number(int value, int width);
  void ordinal(std::string_view spelling);
  void name(std::string_view name, std::string_view spelling, int width);
  void sign();
  void year_item(const DateItem& item);
  void day_item(const DateItem& item);
  void time_item(const DateItem& item);
  void either(std::string_view spelling, std::string_view pair);
  void item(const DateItem& item);

  const DateFields& fields_;
  std::string out_;
  int number_ = 0;  // the last one written
  // FM is a switch, not a setting: each occurrence in the model turns padding off or on again for
  // what follows.
  bool fill_ = true;
};

// A value that is wider than its element is written in full.
void DateWriter::number(int value, int width) {
  number_ = value;
  char digits[12];
  const char* end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  const int size = static_cast<int>(end - digits);
  if (fill_ && size < width) out_.append(static_cast<size_t>(width - size), '0');
  out_.append(digits, static_cast<size_t>(size));
}

// As English has it: 1st, 2nd, 3rd, but 11th. The case is that of the element's first letters.
void DateWriter::ordinal(std::string_view spelling) {
  static constexpr std::string_view kSuffixes[] = {"TH", "ST", "ND", "RD"};
  const bool teen = number_ / 10 % 10 == 1;
  const std::string_view suffix = kSuffixes[teen || number_ % 10 > 3 ? 0 : number_ % 10];
  const bool capital = spelling[0] == upper(spelling[0]) && spelling[1] == upper(spelling[1]);
  for (const char c : suffix) out_ += capital ? c : lower(c);
}

// A name follows the case of its element: MON, Mon, mon.
// The width is that of the longest name, so that columns of a report line up; FM takes the blanks
// away.
void DateWriter::name(std::string_view name, std::string_view spelling, int width) {
  // The first two letters of the element tell all: both capital, the first one, or none.
  const bool capital = is_letter(spelling[0]) && spelling[0] == upper(spelling[0]);
  const bool all_capital = capital && spelling[1] == upper(spelling[1]);
  for (size_t i = 0; i < name.size(); ++i) {
    const bool raise = all_capital || (capital && (i == 0 || !is_letter(name[i - 1])));
    out_ += raise ? upper(name[i]) : lower(name[i]);
  }
  if (fill_ && name.size() < static_cast<size_t>(width)) out_.append(width - name.size(), ' ');
}

// The model may name either of a pair; its first letter tells the case, its length the points.
void DateWriter::either(std::string_view spelling, std::string_view pair) {
  const bool small = spelling[0] == lower(spelling[0]);
  for (char c : pair) {
    out_ += small ? lower(c) : c;
    if (spelling.size() == 4) out_ += '.';
  }
}

// SYYYY and SCC always take a place for the sign, blank after 1 BC, unless FM has taken the blanks
// away.
void DateWriter::sign() {
  if (fields_.year < 0 || fill_) out_ += fields_.year < 0 ? '-' : ' ';
}

// The year as its last digits; the era is an element of its own, and only SYYYY and SCC have a
// sign.
void DateWriter::year_item(const DateItem& item) {
  const bool iso = item.element >= DateElement::IsoYear4 && item.element <= DateElement::IsoYear1;
  const int year = std::abs(iso ? iso_year(fields_) : fields_.year);
  switch (item.element) {
    case DateElement::SignedYear:
      sign();
      return number(year, 4);
    case DateElement::YearComma:
      // Behind the comma stand three digits, also where FM takes zeros away.
      number(year / 1000, 1);
      out_ += ',' + std::to_string(1000 + year % 1000).substr(1);
      number_ = year;
      return;
    case DateElement::Year3:
    case DateElement::IsoYear3:
      return number(year % 1000, 3);
    case DateElement::Year2:
    case DateElement::IsoYear2:
    case DateElement::RoundYear2:
      return number(year % 100, 2);
    case DateElement::Year1:
    case DateElement::IsoYear1:
      return number(year % 10, 1);
    case DateElement::SignedCentury:
      sign();
      [[fallthrough]];
    case DateElement::Century:
      // The century of a year ends with the year that is divisible by 100: 2000 is in the 20th.
      return number((year + 99) / 100, 2);
    default:
      return number(year, 4);
  }
}

// Weeks of the year and of the month begin with the first day, whatever weekday it is; only the ISO
// week begins on a Monday.
void DateWriter::day_item(const DateItem& item) {
  switch (item.element) {
    case DateElement::DayOfYear:
      return number(day_of_year(fields_), 3);
    case DateElement::DayOfMonth:
      return number(fields_.day, 2);
    case DateElement::DayOfWeek:
      return number(weekday(fields_) + 1, 1);
    case DateElement::WeekOfYear:
      return number((day_of_year(fields_) - 1) / 7 + 1, 2);
    case DateElement::WeekOfMonth:
      return number((fields_.day - 1) / 7 + 1, 1);
    case DateElement::IsoWeek:
      return number(iso_week(fields_), 2);
    case DateElement::DayName:
      return name(kWeekdays[weekday(fields_)], item.spelling, kWeekdayWidth);
    default:
      return name(kWeekdays[weekday(fields_)].substr(0, kShortName), item.spelling, 0);
  }
}

// Twelve o'clock is hour 12 of both halves of the day.
void DateWriter::time_item(const DateItem& item) {
  switch (item.element) {
    case DateElement::Hour24:
      return number(fields_.hour, 2);
    case DateElement::Hour12:
      return number((fields_.hour + 11) % 12 + 1, 2);
    case DateElement::Minute:
      return number(fields_.minute, 2);
    case DateElement::Second:
      return number(fields_.second, 2);
    case DateElement::SecondOfDay:
      return number(second_of_day(fields_), 5);
    default:
      return either(item.spelling, fields_.hour >= 12 ? "PM" : "AM");
  }
}

void DateWriter::item(const DateItem& item) {
  switch (item.element) {
    case DateElement::Literal:
      out_ += item.spelling;
      return;
    case DateElement::Fill:
      fill_ = !fill_;
      return;
    case DateElement::Exact:
      return;
    case DateElement::Month:
      return number(fields_.month, 2);
    case DateElement::MonthName:
      return name(kMonths[fields_.month - 1], item.spelling, kMonthWidth);
    case DateElement::MonthShort:
      return name(kMonths[fields_.month - 1].substr(0, kShortName), item.spelling, 0);
    case DateElement::Quarter:
      return number((fields_.month + 2) / 3, 1);
    case DateElement::Julian:
      return number(day_number(fields_), 7);
    case DateElement::Era:
      return either(item.spelling, fields_.year < 0 ? "BC" : "AD");
    case DateElement::DayOfYear:
    case DateElement::DayOfMonth:
    case DateElement::DayOfWeek:
    case DateElement::DayName:
    case DateElement::DayShort:
    case DateElement::WeekOfYear:
    case DateElement::WeekOfMonth:
    case DateElement::IsoWeek:
      return day_item(item);
    case DateElement::Hour24:
    case DateElement::Hour12:
    case DateElement::Minute:
    case DateElement::Second:
    case DateElement::SecondOfDay:
    case DateElement::Meridian:
      return time_item(item);
    default:
      return year_item(item);
  }
}

std::string DateWriter::write(std::string_view format) {
  FormatReader reader(format);
  DateItem next;
  while (reader.next(next)) {
    const size_t begin = out_.size();
    item(next);
    if (next.spelled) {
      out_.resize(begin);
      std::string words;
      append_words(words, number_);
      if (next.ordinal) make_ordinal(words);
      name(words, next.spelling, 0);
    } else if (next.ordinal) {
      ordinal(next.spelling);
    }
    // Spelled out a model's text grows far beyond what a VARCHAR2 holds.
    if (out_.size() > kMaxText) fail(1801);
  }
  return std::move(out_);
}

}  // namespace

std::string format_date(const DateFields& fields, std::string_view format) {
  return DateWriter(fields).write(format);
}

}  // namespace oci8
