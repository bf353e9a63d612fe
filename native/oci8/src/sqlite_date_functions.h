// Calendar arithmetic behind the SQL date functions.
// Shared by TRUNC and ROUND, which serve numbers and dates under one name
// (sqlite_functions_number.cpp), and the functions of dates alone.
#ifndef OCI8_SQLITE_DATE_FUNCTIONS_H
#define OCI8_SQLITE_DATE_FUNCTIONS_H

#include <string_view>

#include "date.h"

namespace oci8 {

/// The begin of the unit that a format model names ("YEAR", "MM", "DD", "HH24" and their kin);
/// ORA-01898 for one that names none.
DateFields truncate_date(const DateFields& fields, std::string_view model);

/// The nearest begin of such a unit: years turn on 1 July, months on the 16th, days at noon.
DateFields round_date(const DateFields& fields, std::string_view model);

}  // namespace oci8

#endif
