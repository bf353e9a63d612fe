// The calendar: bytes, fields and day numbers. Text is made in date_format.cpp and read in
// date_parse.cpp. Day arithmetic goes through Julian day numbers, the count of days that is the
// same for both calendars; the seconds of a day are a fraction, as in the server's date arithmetic.
#include "date.h"

#include <cmath>
#include <ctime>

#include "error.h"

namespace oci8 {
namespace {

constexpr int kMinYear = -4712;
constexpr int kMaxYear = 9999;
// 1 March 4712 BC.
constexpr long long kFirstMarch = 60;
// 15 October 1582, the first day of the Gregorian calendar, follows 4 October of the Julian one.
constexpr long long kFirstGregorianDay = 2299161;
// The days between 1 March of the year -4800, where the counting formulas start, and Julian day 0.
constexpr long long kGregorianShift = 32045;
constexpr long long kJulianShift = 32083;

// A date among the ten days between the two calendars counts as one of the Julian calendar, so that
// every triple of fields has a day.
bool is_gregorian(int year, int month, int day) {
  return year * 10000LL + month * 100LL + day >= 15821015;
}

// As the server counts: with a year 0 of 366 days, which no date is in, and without a leap day in
// 4712 BC, so that day 1 is its first one.
// Years begin in March here, so that the leap day is the last one.
long long julian_day(int year, int month, int day) {
  // 1 for January and February, which count as months 10 and 11 of the year before.
  const long long shift = (14 - month) / 12;
  const long long y = year + 4800LL - shift;
  const long long m = month + 12 * shift - 3;
  const long long days = day + (153 * m + 2) / 5 + 365 * y + y / 4;
  if (is_gregorian(year, month, day)) return days - y / 100 + y / 400 - kGregorianShift;
  return days - kJulianShift + (year == kMinYear && shift == 1 ? 1 : 0);
}

DateFields fields_of_day(long long julian) {
  // The inverse of the formula above, with the same epoch. 146097 days are four centuries of the
  // Gregorian calendar, 1461 are four years of either one, 153 days are five months from March on.
  long long c = julian + kJulianShift - (julian < kFirstMarch ? 2 : 1);
  long long centuries = 0;
  if (julian >= kFirstGregorianDay) {
    const long long a = julian + kGregorianShift - 1;
    centuries = (4 * a + 3) / 146097;
    c = a - 146097 * centuries / 4;
  }
  const long long years = (4 * c + 3) / 1461;
  const long long day_of_year = c - 1461 * years / 4;
  const long long m = (5 * day_of_year + 2) / 153;
  DateFields fields;
  fields.day = static_cast<int>(day_of_year - (153 * m + 2) / 5 + 1);
  fields.month = static_cast<int>(m + 3 - 12 * (m / 10));
  fields.year = static_cast<int>(100 * centuries + years - 4800 + m / 10);
  return fields;
}

bool in_range(int value, int low, int high) {
  return value >= low && value <= high;
}

// The error number of the first field that is out of range, 0 for a date.
int field_error(const DateFields& fields) {
  if (!in_range(fields.year, kMinYear, kMaxYear) || fields.year == 0) return 1841;
  if (!in_range(fields.month, 1, 12)) return 1843;
  if (!in_range(fields.day, 1, 31)) return 1847;
  if (fields.day > days_in_month(fields.year, fields.month)) return 1839;
  if (!in_range(fields.hour, 0, 23)) return 1850;
  if (!in_range(fields.minute, 0, 59)) return 1851;
  if (!in_range(fields.second, 0, 59)) return 1852;
  return 0;
}

}  // namespace

int days_in_month(int year, int month) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  // The rule of centuries begins with the Gregorian calendar; before it every fourth year had a
  // leap day, but for the first one of all.
  const bool leap =
      year % 4 == 0 && year != kMinYear && (year < 1582 || year % 100 != 0 || year % 400 == 0);
  return month == 2 && leap ? 29 : kDays[month - 1];
}

DateFields unpack_date(const ub1* bytes) {
  DateFields fields;
  // Centuries and years of dates BC are both counted downwards from 100.
  fields.year = (bytes[0] - 100) * 100 + (bytes[1] - 100);
  fields.month = bytes[2];
  fields.day = bytes[3];
  fields.hour = bytes[4] - 1;
  fields.minute = bytes[5] - 1;
  fields.second = bytes[6] - 1;
  return fields;
}

DateBytes pack_date(const DateFields& fields) {
  // The casts below are safe only behind this check: the greatest year gives byte 199, the least
  // one byte 53.
  if (const int code = field_error(fields)) fail(code);
  return {static_cast<ub1>(100 + fields.year / 100),
          static_cast<ub1>(100 + fields.year % 100),
          static_cast<ub1>(fields.month),
          static_cast<ub1>(fields.day),
          static_cast<ub1>(fields.hour + 1),
          static_cast<ub1>(fields.minute + 1),
          static_cast<ub1>(fields.second + 1)};
}

bool valid_date(const ub1* bytes) {
  // Nearly all: a year from 100 on, in any month a day that every month has.
  const bool usual = in_range(bytes[0], 101, 199) && in_range(bytes[1], 100, 199) &&
                     in_range(bytes[2], 1, 12) && in_range(bytes[3], 1, 28) &&
                     in_range(bytes[4], 1, 24) && in_range(bytes[5], 1, 60) &&
                     in_range(bytes[6], 1, 60);
  if (usual) return true;
  const DateFields fields = unpack_date(bytes);
  if (field_error(fields) != 0) return false;
  // A year in the century beyond 99 would name the same date a second time.
  const DateBytes packed = pack_date(fields);
  return packed[0] == bytes[0] && packed[1] == bytes[1];
}

double date_to_days(const DateFields& fields) {
  return static_cast<double>(julian_day(fields.year, fields.month, fields.day)) +
         static_cast<double>(second_of_day(fields)) / kSecondsPerDay;
}

DateFields days_to_date(double days) {
  static const double kMinDays = static_cast<double>(julian_day(kMinYear, 1, 1));
  static const double kEndDays = static_cast<double>(julian_day(kMaxYear, 12, 31) + 1);
  // Half a second before the end would be rounded past it. A NaN fails here too.
  if (!(days >= kMinDays && days < kEndDays - 0.5 / kSecondsPerDay)) fail(1841);
  const long long seconds = std::llround(days * kSecondsPerDay);
  DateFields fields = fields_of_day(seconds / kSecondsPerDay);
  const int time = static_cast<int>(seconds % kSecondsPerDay);
  fields.hour = time / 3600;
  fields.minute = time / 60 % 60;
  fields.second = time % 60;
  return fields;
}

DateFields current_date() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  // SYSDATE is the wall clock of the machine that the database runs on, which is this process.
  localtime_r(&now, &local);
  DateFields fields;
  fields.year = local.tm_year + 1900;
  fields.month = local.tm_mon + 1;
  fields.day = local.tm_mday;
  fields.hour = local.tm_hour;
  fields.minute = local.tm_min;
  // A leap second has no place in a DATE.
  fields.second = local.tm_sec < 60 ? local.tm_sec : 59;
  return fields;
}

}  // namespace oci8
