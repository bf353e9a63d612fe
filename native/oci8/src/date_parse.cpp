// TO_DATE, and every implicit conversion of text to a DATE. The server is lenient here, and
// programs depend on it: punctuation may differ, digits may be missing, names may be short. What
// decides is always the model, never a guess about the text.
#include <algorithm>
#include <charconv>
#include <cstdlib>

#include "date.h"
#include "date_model.h"
#include "error.h"

namespace oci8 {
namespace {

// 31 December 9999.
constexpr int kMaxJulian = 5373484;
constexpr int kAbsent = -1;

// Reads text along a model, as forgivingly as the server does. Fields are gathered first and
// checked together at the end, when it is known which calendar of them was meant: a day of a month,
// a day of a year, or a Julian day.
class DateReader {
 public:
  DateReader(std::string_view input, std::string_view format) : text_(input), format_(format) {}

  DateFields read();

 private:
  void literal(std::string_view spelling);
  void element(const DateItem& item);
  void year(const DateItem& item, int width);
  void comma_year();
  void round_year(const DateItem& item);
  void month(bool digits_allowed);
  void meridian();
  void era();
  int number(int max_digits);
  void set(int& field, int value);
  int name(const std::string_view* names, int count, int error);
  int digits_ahead() const;
  const DateFields& today();
  DateFields date() const;
  void time(DateFields& fields) const;
  void skip_blanks() {
    while (!text_.empty() && text_.front() == ' ') text_.remove_prefix(1);
  }

  std::string_view text_;
  FormatReader format_;
  // FX and FM are switches, as for writing: FX wants what the model says, FM lets digits be missing
  // all the same.
  bool exact_ = false, fill_ = true;
  DateFields today_;
  // 0 is free as the mark of a missing year, because no calendar year has it; everything else may
  // be zero and is marked by kAbsent.
  int year_ = 0, month_ = kAbsent, day_ = kAbsent, day_of_year_ = kAbsent, julian_ = kAbsent;
  int hour24_ = kAbsent, hour12_ = kAbsent, minute_ = kAbsent, second_ = kAbsent;
  int second_of_day_ = kAbsent, weekday_ = kAbsent, afternoon_ = kAbsent, before_christ_ = kAbsent;
};

// No element may give the same field twice.
void DateReader::set(int& field, int value) {
  if (field != kAbsent) fail(1810);
  field = value;
}

// Asked for only where the text leaves something open.
const DateFields& DateReader::today() {
  if (today_.year == 0) today_ = current_date();
  return today_;
}

// More than ten digits are as many as ten: no element takes them.
int DateReader::digits_ahead() const {
  const auto end = std::find_if_not(text_.begin(), text_.end(), is_digit);
  return static_cast<int>(std::min<ptrdiff_t>(end - text_.begin(), 10));
}

// Fewer digits than the element has are enough, unless the model is exact.
int DateReader::number(int max_digits) {
  const int size = std::min(digits_ahead(), max_digits);
  if (size == 0) fail(1858);
  if (exact_ && fill_ && size < max_digits) fail(1862);
  int value = 0;
  std::from_chars(text_.data(), text_.data() + size, value);
  text_.remove_prefix(static_cast<size_t>(size));
  return value;
}

// The full name or its first three letters.
int DateReader::name(const std::string_view* names, int count, int error) {
  // All full names go first: "MAY" is full and short at once, and of "March" nothing may be left
  // behind.
  for (size_t size : {std::string_view::npos, kShortName}) {
    for (int i = 0; i < count; ++i) {
      const std::string_view wanted = names[i].substr(0, size);
      if (!starts_with(text_, wanted)) continue;
      text_.remove_prefix(wanted.size());
      return i;
    }
  }
  fail(error);
}

// Any punctuation stands for any other, and may be left out before a number or a name.
void DateReader::literal(std::string_view spelling) {
  if (exact_ || spelling.size() != 1 || is_letter(spelling[0]) || is_digit(spelling[0])) {
    if (!text_.starts_with(spelling)) fail(text_.empty() ? 1840 : 1861);
    text_.remove_prefix(spelling.size());
    return;
  }
  // A blank stands for a separator of the model, so that it has to be remembered before it is
  // skipped.
  const bool blank = !text_.empty() && text_.front() == ' ';
  skip_blanks();
  if (text_.empty()) return;
  if (is_punctuation(text_.front())) {
    text_.remove_prefix(1);
  } else if (!blank && !format_.takes_next(text_.front())) {
    fail(1861);
  }
}

// Two digits may stand for a year of this century, or be four digits after all where nothing
// else can claim them.
void DateReader::year(const DateItem& item, int width) {
  if (year_ != 0) fail(1810);
  const bool negative = item.element == DateElement::SignedYear && text_.starts_with('-');
  if (negative || (item.element == DateElement::SignedYear && text_.starts_with('+'))) {
    text_.remove_prefix(1);
  }
  // Where digits of a next element follow without any mark between, this one must leave them to it.
  const bool only_width = exact_ || format_.element_follows();
  const int size = exact_ && fill_ ? width : std::min(digits_ahead(), only_width ? width : 4);
  const int value = number(std::max(size, 1));
  // Indexed by the digits of the element: what they leave open comes from today's year.
  static constexpr int kCycle[] = {1, 10, 100, 1000};
  const bool full = width == 4 || size > width;
  year_ = full ? value : today().year - today().year % kCycle[width] + value;
  if (year_ == 0) fail(1841);
  if (negative) year_ = -year_;
}

// All four digits, with their comma: 2,007.
void DateReader::comma_year() {
  if (year_ != 0) fail(1810);
  const int thousands = number(1);
  literal(",");
  year_ = thousands * 1000 + number(3);
  if (year_ == 0) fail(1841);
}

// Two digits mean the nearest such year: 00 to 49 in the half century that today is near.
void DateReader::round_year(const DateItem& item) {
  const int size = digits_ahead();
  const bool four = item.element == DateElement::RoundYear4
                        ? exact_ || size > 2
                        : !exact_ && size > 2 && !format_.element_follows();
  if (four) return year(item, 4);
  if (year_ != 0) fail(1810);
  const int value = number(2);
  const bool late = today().year % 100 >= 50;
  year_ = today().year - today().year % 100 + value;
  if (late && value < 50) year_ += 100;
  if (!late && value >= 50) year_ -= 100;
}

// MM takes a name as well; the names take no number.
void DateReader::month(bool digits_allowed) {
  if (digits_allowed && is_digit(text_.front())) {
    const int value = number(2);
    if (value < 1 || value > 12) fail(1843);
    return set(month_, value);
  }
  if (digits_allowed && !is_letter(text_.front())) fail(1858);
  set(month_, name(kMonths, 12, 1843) + 1);
}

// The text may spell it with or without points, whichever the model has.
void DateReader::meridian() {
  for (const std::string_view text : {"AM", "PM", "A.M.", "P.M."}) {
    if (!starts_with(text_, text)) continue;
    text_.remove_prefix(text.size());
    return set(afternoon_, text[0] == 'P');
  }
  fail(1855);
}

void DateReader::era() {
  for (const std::string_view text : {"AD", "BC", "A.D.", "B.C."}) {
    if (!starts_with(text_, text)) continue;
    text_.remove_prefix(text.size());
    return set(before_christ_, text[0] == 'B');
  }
  fail(1861);
}

void DateReader::element(const DateItem& item) {
  if (item.ordinal || item.spelled) fail(1820);
  switch (item.element) {
    case DateElement::SignedYear:
    case DateElement::Year4:
      return year(item, 4);
    case DateElement::YearComma:
      return comma_year();
    case DateElement::Year3:
      return year(item, 3);
    case DateElement::Year2:
      return year(item, 2);
    case DateElement::Year1:
      return year(item, 1);
    case DateElement::RoundYear4:
    case DateElement::RoundYear2:
      return round_year(item);
    case DateElement::Month:
      return month(true);
    case DateElement::MonthName:
    case DateElement::MonthShort:
      return month(false);
    case DateElement::DayOfMonth:
      return set(day_, number(2));
    case DateElement::DayOfYear:
      return set(day_of_year_, number(3));
    case DateElement::DayName:
    case DateElement::DayShort:
      return set(weekday_, name(kWeekdays, 7, 1846));
    case DateElement::Hour24:
      return set(hour24_, number(2));
    case DateElement::Hour12:
      return set(hour12_, number(2));
    case DateElement::Minute:
      return set(minute_, number(2));
    case DateElement::Second:
      return set(second_, number(2));
    case DateElement::SecondOfDay:
      return set(second_of_day_, number(5));
    case DateElement::Meridian:
      return meridian();
    case DateElement::Era:
      return era();
    case DateElement::Julian:
      return set(julian_, number(7));
    default:
      fail(1820);
  }
}

bool is_year(DateElement element) {
  return element >= DateElement::SignedYear && element <= DateElement::RoundYear2;
}

bool is_month(DateElement element) {
  return element >= DateElement::MonthName && element <= DateElement::DayOfYear;
}

bool is_time(DateElement element) {
  return element == DateElement::Hour24 || element == DateElement::Hour12 ||
         element == DateElement::Minute || element == DateElement::Second ||
         element == DateElement::SecondOfDay || element == DateElement::Meridian;
}

// What the text leaves open comes from today: the year, the month and the first of the month.
DateFields DateReader::date() const {
  // The most particular one wins: a Julian day is a whole date, a day of the year needs the year
  // only.
  if (julian_ != kAbsent) {
    if (julian_ < 1 || julian_ > kMaxJulian) fail(1854);
    return days_to_date(julian_);
  }
  DateFields fields{year_, month_, 1, 0, 0, 0};
  if (before_christ_ == 1) fields.year = -std::abs(fields.year);
  // The year's last day serves as the measure: 365 or 366, and 355 in 1582.
  if (day_of_year_ != kAbsent) {
    fields.month = 12;
    fields.day = 31;
    pack_date(fields);
    if (day_of_year_ < 1 || day_of_year_ > day_of_year(fields)) fail(1848);
    return days_to_date(day_number({fields.year, 1, 1, 0, 0, 0}) + day_of_year_ - 1);
  }
  if (day_ != kAbsent) fields.day = day_;
  return fields;
}

// A meridian belongs to the hours that count to twelve; without one they are the morning's.
void DateReader::time(DateFields& fields) const {
  if (second_of_day_ != kAbsent) {
    if (second_of_day_ >= kSecondsPerDay) fail(1853);
    fields.hour = second_of_day_ / 3600;
    fields.minute = second_of_day_ / 60 % 60;
    fields.second = second_of_day_ % 60;
    return;
  }
  // Both would say twice, and perhaps differently, which half of the day is meant.
  if (hour24_ != kAbsent && afternoon_ != kAbsent) fail(1818);
  if (hour12_ != kAbsent) {
    if (hour12_ < 1 || hour12_ > 12) fail(1849);
    fields.hour = hour12_ % 12 + (afternoon_ == 1 ? 12 : 0);
  }
  if (hour24_ != kAbsent) fields.hour = hour24_;
  fields.minute = std::max(minute_, 0);
  fields.second = std::max(second_, 0);
}

// Blanks before an element matter to an exact model only.
DateFields DateReader::read() {
  DateItem item;
  while (format_.next(item)) {
    if (item.element == DateElement::Fill) fill_ = !fill_;
    if (item.element == DateElement::Exact) exact_ = !exact_;
    if (item.element == DateElement::Fill || item.element == DateElement::Exact) continue;
    if (item.element == DateElement::Literal) {
      literal(item.spelling);
      continue;
    }
    if (!exact_) skip_blanks();
    if (!text_.empty()) {
      element(item);
    } else if (exact_ || !is_time(item.element)) {
      // Only times at the end may be left out.
      fail(1840);
    }
  }
  skip_blanks();
  if (!text_.empty()) fail(1830);
  if (year_ == 0) year_ = today().year;
  if (month_ == kAbsent) month_ = today().month;
  DateFields fields = date();
  time(fields);
  // Packing checks every field, and names the first that is out of range.
  const DateBytes packed = pack_date(fields);
  if (weekday_ != kAbsent && weekday_ != weekday(fields)) fail(1835);
  return unpack_date(packed.data());
}

}  // namespace

DateFields parse_date(std::string_view text, std::string_view format) {
  return DateReader(text, format).read();
}

bool names_month(std::string_view format) {
  bool year = false, month = false;
  try {
    FormatReader reader(format);
    for (DateItem item; reader.next(item);) {
      if (item.element == DateElement::Julian) return true;
      year = year || is_year(item.element);
      month = month || is_month(item.element);
    }
  } catch (const Failure&) {
    return true;
  }
  return year && month;
}

}  // namespace oci8
