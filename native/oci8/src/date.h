// DATE values: the server's seven-byte form and its text by format model.
// The bytes are the external type SQLT_DAT of the interface and, at the same time, what a DATE
// column keeps in the engine (declared_type.h), so that fetching a DATE as SQLT_DAT converts
// nothing. There is no time zone and no fraction of a second in them.
#ifndef OCI8_DATE_H
#define OCI8_DATE_H

#include <array>
#include <string>
#include <string_view>

#include "oci.h"

namespace oci8 {

inline constexpr size_t kDateSize = 7;
inline constexpr int kSecondsPerDay = 86400;
inline constexpr std::string_view kDefaultDateFormat = "DD-MON-YY";

/// Century+100, year in century+100, month, day, hour+1, minute+1, second+1. Dates after 1 BC
/// compare like their bytes.
using DateBytes = std::array<ub1, kDateSize>;

/// A date in parts. There is no year 0, which is therefore free to mean "not given" while a text is
/// read.
struct DateFields {
  int year = 0;  // negative: BC
  int month = 1, day = 1, hour = 0, minute = 0, second = 0;
};

/// Takes the seven bytes as they are: whoever has them from outside asks valid_date first.
DateFields unpack_date(const ub1* bytes);
/// Raises ORA-01841, 01843, 01847, 01839, 01850, 01851, 01852 for fields out of range.
DateBytes pack_date(const DateFields& fields);
/// False for seven bytes that are no date.
bool valid_date(const ub1* bytes);

/// Days of a month (from 1) of a year that is not 0.
int days_in_month(int year, int month);

inline int second_of_day(const DateFields& fields) {
  return (fields.hour * 60 + fields.minute) * 60 + fields.second;
}

/// Days since 1 January 4712 BC as the server counts them (Julian day number) and back, with the
/// time of day as a fraction; the result is rounded to whole seconds.
double date_to_days(const DateFields& fields);
/// ORA-01841 for a day outside of 4712 BC to 9999. A day of the year 0, which is counted, comes
/// back as such, and is refused when it is packed.
DateFields days_to_date(double days);

/// TO_CHAR and TO_DATE for a format model (its elements are listed in date_model.cpp). Raise
/// ORA-01821 for an unknown model element, ORA-01861, 01830, 01840, 01843, 01847, 01858 and their
/// siblings for text that does not match.
std::string format_date(const DateFields& fields, std::string_view format);
DateFields parse_date(std::string_view text, std::string_view format);
/// Whether the model says which month of which year: TO_DATE takes what is missing from today.
/// True for one that is none, which every use of it will refuse.
bool names_month(std::string_view format);

/// The current local date and time, as SYSDATE gives it.
DateFields current_date();

}  // namespace oci8

#endif
