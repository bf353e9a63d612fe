// Date format models, split into their elements; shared by the writing and the reading of dates.
// Months and weekdays are English: NLS_DATE_LANGUAGE cannot be changed here. Positions in the two
// tables are the values (month - 1, Sunday as 0).
#ifndef OCI8_DATE_MODEL_H
#define OCI8_DATE_MODEL_H

#include <string_view>

#include "ascii.h"
#include "date.h"

namespace oci8 {

/// RoundYear is RR and RRRR, WeekOfYear WW, WeekOfMonth W, IsoWeek IW, IsoYear I and IYYY; either
/// of a pair (AM and PM, AD and BC) stands for both.
enum class DateElement : ub1 {
  Literal,  // punctuation or quoted text
  SignedYear,
  Year4,
  YearComma,  // Y,YYY
  Year3,
  Year2,
  Year1,
  RoundYear4,
  RoundYear2,
  IsoYear4,
  IsoYear3,
  IsoYear2,
  IsoYear1,
  MonthName,
  MonthShort,
  Month,
  DayOfYear,
  DayName,
  DayShort,
  DayOfMonth,
  DayOfWeek,
  Hour24,
  Hour12,
  Minute,
  SecondOfDay,
  Second,
  Meridian,
  Era,
  Quarter,
  IsoWeek,
  WeekOfYear,
  WeekOfMonth,
  Century,
  SignedCentury,
  Julian,
  Fill,  // FM
  Exact,  // FX
};

inline constexpr std::string_view kMonths[] = {"January",   "February", "March",    "April",
                                               "May",       "June",     "July",     "August",
                                               "September", "October",  "November", "December"};
inline constexpr std::string_view kWeekdays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                 "Thursday", "Friday", "Saturday"};
inline constexpr int kMonthWidth = 9;
inline constexpr int kWeekdayWidth = 9;
inline constexpr size_t kShortName = 3;

/// One step through a model. The spelling is kept for elements as well, because its case decides
/// that of the names which are written.
struct DateItem {
  DateElement element = DateElement::Literal;
  std::string_view spelling;  // of a literal: its text, without quotes; with the suffix of a number
  bool ordinal = false;  // TH
  bool spelled = false;  // SP
};

// Walks through a format model; a model is used once and never worth keeping.
class FormatReader {
 public:
  explicit FormatReader(std::string_view format) : rest_(format) {}

  /// Takes the next element or literal; false at the end. ORA-01821 for what is neither. Views in
  /// `item` are parts of the model and last as long as that.
  bool next(DateItem& item);
  /// Whether an element follows at once, with no literal between.
  bool element_follows() const { return !rest_.empty() && is_letter(rest_.front()); }
  /// Whether an element follows that takes a text beginning with this digit or letter.
  bool takes_next(char first) const;

 private:
  void take(DateItem& item, DateElement element, size_t size) {
    item = {element, rest_.substr(0, size)};
    rest_.remove_prefix(size);
  }
  void take_suffixes(DateItem& item);

  std::string_view rest_;
};

/// Whole days of a date, as date_to_days counts them.
int day_number(const DateFields& fields);
/// From 1.
int day_of_year(const DateFields& fields);
/// 0 is Sunday.
int weekday(const DateFields& fields);
/// Week 1 to 53 after ISO 8601. Near the turn of the year it may belong to the year before or
/// after.
int iso_week(const DateFields& fields);
/// The year that this week belongs to.
int iso_year(const DateFields& fields);

}  // namespace oci8

#endif
