// Months are counted as year * 12 + month in astronomical years (1 BC is 0), so that arithmetic
// passes over the missing year 0. Days are counted as Julian day numbers (date.h), which pass over
// the ten days that the calendar's change left out.
#include <algorithm>

#include "date_model.h"
#include "error.h"
#include "sqlite_call.h"
#include "sqlite_date_functions.h"

namespace oci8 {
namespace {

// The units up to Month are counted in months, those behind it in days and seconds.
enum class Unit : ub1 {
  Century,
  Year,
  IsoYear,
  Quarter,
  Month,
  YearWeek,
  IsoWeek,
  MonthWeek,
  Week,
  Day,
  Hour,
  Minute
};

struct UnitName {
  std::string_view name;
  Unit unit;
};

constexpr UnitName kUnits[] = {
    {"CC", Unit::Century},  {"SCC", Unit::Century},  {"SYYYY", Unit::Year},  {"YYYY", Unit::Year},
    {"YEAR", Unit::Year},   {"SYEAR", Unit::Year},   {"YYY", Unit::Year},    {"YY", Unit::Year},
    {"Y", Unit::Year},      {"IYYY", Unit::IsoYear}, {"IYY", Unit::IsoYear}, {"IY", Unit::IsoYear},
    {"I", Unit::IsoYear},   {"Q", Unit::Quarter},    {"MONTH", Unit::Month}, {"MON", Unit::Month},
    {"MM", Unit::Month},    {"RM", Unit::Month},     {"WW", Unit::YearWeek}, {"IW", Unit::IsoWeek},
    {"W", Unit::MonthWeek}, {"DAY", Unit::Week},     {"DY", Unit::Week},     {"D", Unit::Week},
    {"DDD", Unit::Day},     {"DD", Unit::Day},       {"J", Unit::Day},       {"HH", Unit::Hour},
    {"HH12", Unit::Hour},   {"HH24", Unit::Hour},    {"MI", Unit::Minute}};

constexpr int kMonthsAYear = 12;
constexpr int kMiddleOfMonth = 16;
// Beyond it every date is out of range, so that the limit changes no result and keeps the sum
// within an int.
constexpr int kMaxMonths = 12 * 20000;
// The server counts every month as 31 days here, whatever its length.
constexpr double kDaysAMonth = 31;

// Whole names only: a model here is one element.
Unit unit_of(std::string_view model) {
  for (const UnitName& known : kUnits) {
    if (model.size() == known.name.size() && starts_with(model, known.name)) return known.unit;
  }
  fail(1898);
}

DateFields midnight(const DateFields& fields) {
  return {fields.year, fields.month, fields.day, 0, 0, 0};
}

// The same day and time so many months later, which may not be a date. There is no year 0.
DateFields shift_months(DateFields fields, int months) {
  const int year = fields.year < 0 ? fields.year + 1 : fields.year;
  const int index =
      year * kMonthsAYear + fields.month - 1 + std::clamp(months, -kMaxMonths, kMaxMonths);
  // Rounded down, not towards zero: month -1 belongs to the year before.
  const int shifted =
      index >= 0 ? index / kMonthsAYear : -((kMonthsAYear - 1 - index) / kMonthsAYear);
  fields.month = index - shifted * kMonthsAYear + 1;
  fields.year = shifted > 0 ? shifted : shifted - 1;
  return fields;
}

// Decides both in ADD_MONTHS and in MONTHS_BETWEEN, so that each undoes the other.
bool is_last_day(const DateFields& fields) {
  return fields.day == days_in_month(fields.year, fields.month);
}

// The last day of a month stays the last day.
DateFields plus_months(const DateFields& fields, int months) {
  DateFields shifted = shift_months(fields, months);
  const int last = days_in_month(shifted.year, shifted.month);
  if (is_last_day(fields) || shifted.day > last) shifted.day = last;
  return shifted;
}

// The days of the calendar's change are no exception: counting passes over them.
DateFields back_days(const DateFields& fields, int days) {
  return days_to_date(day_number(fields) - days);
}

// Centuries begin with the years 1, 101, ... and, before, with 100 BC, 200 BC, ...
int first_of_century(int year) {
  return year > 0 ? (year - 1) / 100 * 100 + 1 : -((-year - 1) / 100 * 100 + 100);
}

// Weeks go by days that are counted, the other units by fields that are set to their first value.
DateFields truncate(const DateFields& fields, Unit unit) {
  switch (unit) {
    case Unit::Century:
      return {first_of_century(fields.year), 1, 1, 0, 0, 0};
    case Unit::Year:
      return {fields.year, 1, 1, 0, 0, 0};
    case Unit::IsoYear:
      // The first week is the one with 4 January in it.
      return truncate({iso_year(fields), 1, 4, 0, 0, 0}, Unit::IsoWeek);
    case Unit::Quarter:
      return {fields.year, (fields.month - 1) / 3 * 3 + 1, 1, 0, 0, 0};
    case Unit::Month:
      return {fields.year, fields.month, 1, 0, 0, 0};
    case Unit::YearWeek:
      return back_days(fields, (day_of_year(fields) - 1) % 7);
    case Unit::IsoWeek:
      return back_days(fields, (weekday(fields) + 6) % 7);
    case Unit::MonthWeek:
      return back_days(fields, (fields.day - 1) % 7);
    case Unit::Week:
      return back_days(fields, weekday(fields));
    case Unit::Day:
      return midnight(fields);
    case Unit::Hour:
      return {fields.year, fields.month, fields.day, fields.hour, 0, 0};
    default:
      return {fields.year, fields.month, fields.day, fields.hour, fields.minute, 0};
  }
}

// What to add in days, for units that turn in their middle.
double half_unit(Unit unit) {
  switch (unit) {
    case Unit::Day:
      return 0.5;
    case Unit::Hour:
      return 0.5 / 24;
    case Unit::Minute:
      return 30.0 / kSecondsPerDay;
    default:
      return 3.5;
  }
}

// A date in the month that the rounding of a month, quarter, year or century leads to.
DateFields rounding_month(const DateFields& fields, Unit unit) {
  const DateFields first{fields.year, fields.month, 1, 0, 0, 0};
  const bool late = fields.day >= kMiddleOfMonth;
  switch (unit) {
    case Unit::Century:
      return shift_months(first, 50 * kMonthsAYear);
    case Unit::Year:
      return shift_months(first, kMonthsAYear / 2);
    case Unit::IsoYear:
      // Not the first, which may belong to the year before.
      return shift_months({fields.year, fields.month, 4, 0, 0, 0}, kMonthsAYear / 2);
    case Unit::Quarter:
      return shift_months(first, late ? 2 : 1);
    default:
      return shift_months(first, late ? 1 : 0);
  }
}

void add_months(Call& call) {
  if (call.any_null()) return;
  call.give_date(plus_months(call.date(0), call.integer(1)));
}

// Whole months where both are the same day or the last of their months; else the rest counts in
// thirty-firsts of a month.
void months_between(Call& call) {
  if (call.any_null()) return;
  const DateFields left = call.date(0), right = call.date(1);
  const int months = (left.year - right.year) * kMonthsAYear + left.month - right.month;
  if (left.day == right.day || (is_last_day(left) && is_last_day(right))) {
    return call.give_integer(months);
  }
  const double seconds = second_of_day(left) - second_of_day(right);
  const double days = left.day - right.day + seconds / kSecondsPerDay;
  call.give_real(months + days / kDaysAMonth);
}

void last_day(Call& call) {
  if (call.is_null(0)) return;
  DateFields fields = call.date(0);
  fields.day = days_in_month(fields.year, fields.month);
  call.give_date(fields);
}

// Three letters tell the day; what follows them is not looked at.
int weekday_of_name(std::string_view name) {
  for (int i = 0; i < 7; ++i) {
    if (starts_with(name, kWeekdays[i].substr(0, kShortName))) return i;
  }
  fail(1846);
}

// By name, or by number from 1 for Sunday.
int weekday_argument(const Call& call, int index) {
  if (!call.is_number(index)) return weekday_of_name(TextArgument(call, index).view());
  const int day = call.integer(index);
  if (day < 1 || day > 7) fail(1846);
  return day - 1;
}

// The first such day after the date, at the date's time.
void next_day(Call& call) {
  if (call.any_null()) return;
  const DateFields fields = call.date(0);
  const int wanted = weekday_argument(call, 1);
  // 1 to 7: the day itself is not the next one.
  const int days = (wanted - weekday(fields) + 6) % 7 + 1;
  call.give_date(days_to_date(date_to_days(fields) + days));
}

// For what stands beside a value that may be a date or a number: text is the one that it reads as.
void date_or_number(Call& call) {
  if (call.is_null(0)) return;
  if (call.is_date(0)) return call.give_argument(0);
  Number number;
  const bool is_text = call.type(0) == SQLITE_TEXT;
  if (is_text && parse_number(call.bytes(0), number) == NumberParse::Invalid) {
    return call.give_date(call.date(0));
  }
  call.give_number(call.number(0));
}

constexpr SqlFunction kFunctions[] = {{"add_months", 2, run_call<add_months>},
                                      {"months_between", 2, run_call<months_between>},
                                      {"last_day", 1, run_call<last_day>},
                                      {"next_day", 2, run_call<next_day>},
                                      {"ora_date_or_number", 1, run_call<date_or_number>}};

}  // namespace

DateFields truncate_date(const DateFields& fields, std::string_view model) {
  return truncate(fields, unit_of(model));
}

DateFields round_date(const DateFields& fields, std::string_view model) {
  const Unit unit = unit_of(model);
  if (unit <= Unit::Month) return truncate(rounding_month(fields, unit), unit);
  return truncate(days_to_date(date_to_days(fields) + half_unit(unit)), unit);
}

void sysdate(Call& call) {
  call.give_date(current_date());
}

std::span<const SqlFunction> date_functions() {
  return kFunctions;
}

}  // namespace oci8
