// A model is read element by element from the front, always the longest that fits. There are fewer
// than forty elements and models are short, so that a plain search through the table will do.
#include "date_model.h"

#include "error.h"

namespace oci8 {
namespace {

struct ElementName {
  std::string_view name;
  DateElement element;
};

// A longer name stands before the names that it begins with.
constexpr ElementName kElements[] = {
    {"SYYYY", DateElement::SignedYear}, {"YYYY", DateElement::Year4},
    {"Y,YYY", DateElement::YearComma},  {"YYY", DateElement::Year3},
    {"YY", DateElement::Year2},         {"Y", DateElement::Year1},
    {"IYYY", DateElement::IsoYear4},    {"IYY", DateElement::IsoYear3},
    {"IY", DateElement::IsoYear2},      {"IW", DateElement::IsoWeek},
    {"I", DateElement::IsoYear1},       {"RRRR", DateElement::RoundYear4},
    {"RR", DateElement::RoundYear2},    {"MONTH", DateElement::MonthName},
    {"MON", DateElement::MonthShort},   {"MM", DateElement::Month},
    {"MI", DateElement::Minute},        {"DDD", DateElement::DayOfYear},
    {"DD", DateElement::DayOfMonth},    {"DAY", DateElement::DayName},
    {"DY", DateElement::DayShort},      {"D", DateElement::DayOfWeek},
    {"HH24", DateElement::Hour24},      {"HH12", DateElement::Hour12},
    {"HH", DateElement::Hour12},        {"SSSSS", DateElement::SecondOfDay},
    {"SS", DateElement::Second},        {"A.M.", DateElement::Meridian},
    {"P.M.", DateElement::Meridian},    {"AM", DateElement::Meridian},
    {"PM", DateElement::Meridian},      {"A.D.", DateElement::Era},
    {"B.C.", DateElement::Era},         {"AD", DateElement::Era},
    {"BC", DateElement::Era},           {"Q", DateElement::Quarter},
    {"WW", DateElement::WeekOfYear},    {"W", DateElement::WeekOfMonth},
    {"CC", DateElement::Century},       {"SCC", DateElement::SignedCentury},
    {"J", DateElement::Julian},         {"FM", DateElement::Fill},
    {"FX", DateElement::Exact},
};

bool is_name(DateElement element) {
  return element == DateElement::MonthName || element == DateElement::MonthShort ||
         element == DateElement::DayName || element == DateElement::DayShort ||
         element == DateElement::Meridian || element == DateElement::Era;
}

bool is_switch(DateElement element) {
  return element == DateElement::Fill || element == DateElement::Exact;
}

// The week's days from Monday on belong to the year that it is in.
DateFields thursday_of_week(const DateFields& fields) {
  return days_to_date(day_number(fields) - (weekday(fields) + 6) % 7 + 3);
}

}  // namespace

// Quoted text and single punctuation marks are literals; a letter or digit that begins no element
// is an error, never text.
bool FormatReader::next(DateItem& item) {
  if (rest_.empty()) return false;
  if (rest_.front() == '"') {
    const size_t end = rest_.find('"', 1);
    if (end == std::string_view::npos) fail(1821);
    item = {DateElement::Literal, rest_.substr(1, end - 1)};
    rest_.remove_prefix(end + 1);
    return true;
  }
  for (const ElementName& known : kElements) {
    if (!starts_with(rest_, known.name)) continue;
    take(item, known.element, known.name.size());
    if (!is_name(known.element) && !is_switch(known.element)) take_suffixes(item);
    return true;
  }
  if (rest_.front() != ' ' && !is_punctuation(rest_.front())) fail(1821);
  take(item, DateElement::Literal, 1);
  return true;
}

// TH and SP in either order; the spelling grows with them.
void FormatReader::take_suffixes(DateItem& item) {
  for (;;) {
    const bool ordinal = !item.ordinal && starts_with(rest_, "TH");
    if (!ordinal && (item.spelled || !starts_with(rest_, "SP"))) return;
    (ordinal ? item.ordinal : item.spelled) = true;
    item.spelling = {item.spelling.data(), item.spelling.size() + 2};
    rest_.remove_prefix(2);
  }
}

// The reader is copied, because looking ahead must not take anything away.
bool FormatReader::takes_next(char first) const {
  FormatReader ahead(rest_);
  DateItem item;
  do {
    if (!ahead.next(item) || item.element == DateElement::Literal) return false;
  } while (is_switch(item.element));
  if (is_digit(first)) return !is_name(item.element);
  return is_letter(first) && (is_name(item.element) || item.element == DateElement::Month);
}

int day_number(const DateFields& fields) {
  return static_cast<int>(date_to_days({fields.year, fields.month, fields.day, 0, 0, 0}));
}

int day_of_year(const DateFields& fields) {
  return day_number(fields) - day_number({fields.year, 1, 1, 0, 0, 0}) + 1;
}

// Julian day 0 was a Monday.
int weekday(const DateFields& fields) {
  return (day_number(fields) + 1) % 7;
}

// The ISO 8601 rule that the first week is the one with the year's first Thursday makes Thursday's
// day of the year decide alone.
int iso_week(const DateFields& fields) {
  return (day_of_year(thursday_of_week(fields)) - 1) / 7 + 1;
}

int iso_year(const DateFields& fields) {
  return thursday_of_week(fields).year;
}

}  // namespace oci8
