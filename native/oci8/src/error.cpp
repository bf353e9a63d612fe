// The catalogue holds every code that this library raises, and a few more that clients test for,
// with the server's wording, which programs and people search for. A code that is missing here
// still reaches the caller as a number.
#include "error.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace oci8 {
namespace {

struct Message {
  int code;
  std::string_view meaning;
};

// Ascending by code: looked up by halving.
constexpr Message kMessages[] = {
    {1, "unique constraint (%s) violated"},
    {54, "resource busy and acquire with NOWAIT specified"},
    {60, "deadlock detected while waiting for resource"},
    {600, "internal error code, arguments: [%s]"},
    {900, "invalid SQL statement"},
    {901, "invalid CREATE command"},
    {902, "invalid datatype"},
    {903, "invalid table name"},
    {904, "%s: invalid identifier"},
    {905, "missing keyword"},
    {906, "missing left parenthesis"},
    {907, "missing right parenthesis"},
    {908, "missing NULL keyword"},
    {909, "invalid number of arguments"},
    {910, "specified length too long for its datatype"},
    {911, "invalid character"},
    {913, "too many values"},
    {917, "missing comma"},
    {918, "column ambiguously defined"},
    {920, "invalid relational operator"},
    {921, "unexpected end of SQL command"},
    {922, "missing or invalid option"},
    {923, "FROM keyword not found where expected"},
    {924, "missing BY keyword"},
    {925, "missing INTO keyword"},
    {926, "missing VALUES keyword"},
    {927, "missing equal sign"},
    {928, "missing SELECT keyword"},
    {932, "inconsistent datatypes"},
    {933, "SQL command not properly ended"},
    {934, "group function is not allowed here"},
    {935, "group function is nested too deeply"},
    {936, "missing expression"},
    {937, "not a single-group group function"},
    {938, "not enough arguments for function"},
    {939, "too many arguments for function"},
    {942, "table or view does not exist"},
    {947, "not enough values"},
    {950, "invalid DROP option"},
    {953, "missing or invalid index name"},
    {955, "name is already used by an existing object"},
    {957, "duplicate column name"},
    {968, "missing INDEX keyword"},
    {969, "missing ON keyword"},
    {971, "missing SET keyword"},
    {972, "identifier is too long"},
    {975, "date + date not allowed"},
    {979, "not a GROUP BY expression"},
    {984, "column not allowed here"},
    {987, "missing or invalid username(s)"},
    {988, "missing or invalid password(s)"},
    {998, "must name this expression with a column alias"},
    {999, "invalid view name"},
    {1000, "maximum open cursors exceeded"},
    {1001, "invalid cursor"},
    {1002, "fetch out of sequence"},
    {1006, "bind variable does not exist"},
    {1007, "variable not in select list"},
    {1008, "not all variables bound"},
    {1012, "not logged on"},
    {1013, "user requested cancel of current operation"},
    {1017, "invalid username/password; logon denied"},
    {1027, "bind variables not allowed for data definition operations"},
    {1031, "insufficient privileges"},
    {1036, "illegal variable name/number"},
    {1086, "savepoint '%s' never established"},
    {1115, "IO error reading block from file"},
    {1116, "error in opening database file"},
    {1251, "Unknown File Header Version read for file"},
    {1400, "cannot insert NULL into (%s)"},
    {1401, "inserted value too large for column"},
    {1403, "no data found"},
    {1405, "fetched column value is NULL"},
    {1406, "fetched column value was truncated"},
    {1407, "cannot update (%s) to NULL"},
    {1410, "invalid ROWID"},
    {1416, "two tables cannot be outer-joined to each other"},
    {1418, "specified index does not exist"},
    {1422, "exact fetch returns more than requested number of rows"},
    {1424, "missing or illegal character following the escape character"},
    {1425, "escape character must be character string of length 1"},
    {1426, "numeric overflow"},
    {1427, "single-row subquery returns more than one row"},
    {1428, "argument '%s' is out of range"},
    {1430, "column being added already exists in table"},
    {1438, "value larger than specified precision allows for this column"},
    {1455, "converting column overflows integer datatype"},
    {1457, "converting column overflows decimal datatype"},
    {1458, "invalid length inside variable character string"},
    {1459, "invalid length for variable character string"},
    {1461, "can bind a LONG value only for insert into a LONG column"},
    {1465, "invalid hex number"},
    {1468, "a predicate may reference only one outer-joined table"},
    {1476, "divisor is equal to zero"},
    {1480, "trailing null missing from STR bind value"},
    {1481, "invalid number format model"},
    {1489, "result of string concatenation is too long"},
    {1578, "ORACLE data block corrupted"},
    {1652, "unable to extend temp segment"},
    {1653, "unable to extend table"},
    {1704, "string literal too long"},
    {1719, "outer join operator (+) not allowed in operand of OR or IN"},
    {1722, "invalid number"},
    {1723, "zero-length columns are not allowed"},
    {1727, "numeric precision specifier is out of range (1 to 38)"},
    {1728, "numeric scale specifier is out of range (-84 to 127)"},
    {1730, "invalid number of column names specified"},
    {1731, "circular view definition encountered"},
    {1732, "data manipulation operation not legal on this view"},
    {1737, "valid modes: [ROW] SHARE, [[SHARE] ROW] EXCLUSIVE, SHARE UPDATE"},
    {1740, "missing double quote in identifier"},
    {1742, "comment not terminated properly"},
    {1743, "only pure functions can be indexed"},
    {1747, "invalid user.table.column, table.column, or column name"},
    {1756, "quoted string not properly terminated"},
    {1758, "table must be empty to add mandatory (NOT NULL) column"},
    {1773, "may not specify column datatypes in this CREATE TABLE"},
    {1780, "string literal required"},
    {1785, "ORDER BY item must be the number of a SELECT-list expression"},
    {1786, "FOR UPDATE of this query expression is not allowed"},
    {1789, "query block has incorrect number of result columns"},
    {1790, "expression must have same datatype as corresponding expression"},
    {1791, "not a SELECTed expression"},
    {1792, "maximum number of columns in a table or view is 1000"},
    {1801, "date format is too long for internal buffer"},
    {1810, "format code appears twice"},
    {1818, "'HH24' precludes use of meridian indicator"},
    {1820, "format code cannot appear in date input format"},
    {1821, "date format not recognized"},
    {1830, "date format picture ends before converting entire input string"},
    {1835, "day of week conflicts with Julian date"},
    {1839, "date not valid for month specified"},
    {1840, "input value not long enough for date format"},
    {1841, "(full) year must be between -4713 and +9999, and not be 0"},
    {1843, "not a valid month"},
    {1846, "not a valid day of the week"},
    {1847, "day of month must be between 1 and last day of month"},
    {1848, "day of year must be between 1 and 365 (366 for leap year)"},
    {1849, "hour must be between 1 and 12"},
    {1850, "hour must be between 0 and 23"},
    {1851, "minutes must be between 0 and 59"},
    {1852, "seconds must be between 0 and 59"},
    {1853, "seconds in day must be between 0 and 86399"},
    {1854, "julian date must be between 1 and 5373484"},
    {1855, "AM/A.M. or PM/P.M. required"},
    {1858, "a non-numeric character was found where a numeric was expected"},
    {1861, "literal does not match format string"},
    {1862, "the numeric value does not match the length of the format item"},
    {1898, "too many precision specifiers"},
    {1918, "user '%s' does not exist"},
    {1920, "user name '%s' conflicts with another user or role name"},
    {2019, "connection description for remote database not found"},
    {2091, "transaction rolled back"},
    {2251, "subquery not allowed here"},
    {2256, "number of referencing columns must match referenced columns"},
    {2260, "table can have only one primary key"},
    {2266, "unique/primary keys in table referenced by enabled foreign keys"},
    {2270, "no matching unique or primary key for this column-list"},
    {2277, "invalid sequence name"},
    {2287, "sequence number not allowed here"},
    {2289, "sequence does not exist"},
    {2290, "check constraint (%s) violated"},
    {2291, "integrity constraint (%s) violated - parent key not found"},
    {2292, "integrity constraint (%s) violated - child record found"},
    {2449, "unique/primary keys in table referenced by foreign keys"},
    {3001, "unimplemented feature"},
    {3106, "fatal two-task communication protocol error"},
    {3113, "end-of-file on communication channel"},
    {3114, "not connected to ORACLE"},
    {3115, "unsupported network datatype or representation"},
    {3127, "no new operations allowed until the active operation ends"},
    {3129, "the next piece to be inserted is required"},
    {3130, "the buffer for the next piece to be fetched is required"},
    {3291, "Invalid truncate option - missing STORAGE keyword"},
    {4002, "INCREMENT must be a non-zero integer"},
    {4004, "MINVALUE must be less than MAXVALUE"},
    {4006, "START WITH cannot be less than MINVALUE"},
    {4008, "START WITH cannot be more than MAXVALUE"},
    {4030, "out of process memory"},
    {6502, "PL/SQL: numeric or value error"},
    {6512, "at %s"},
    {6550, "%s"},
    {8002, "sequence %s.CURRVAL is not yet defined in this session"},
    {8004, "sequence %s and cannot be instantiated"},
    {8177, "can't serialize access for this transaction"},
    {12154, "TNS:could not resolve service name"},
    {12705, "invalid or unknown NLS parameter value specified"},
    {16000, "database open for read-only access"},
    {22275, "invalid LOB locator specified"},
    {22920, "row containing the LOB value is not locked"},
    {22922, "nonexistent LOB value"},
    {22925, "operation would exceed maximum size allowed for a LOB value"},
    {22993, "specified input amount is greater than actual source amount"},
    {24309, "already connected to a server"},
    {24313, "user already authenticated"},
    {24315, "illegal attribute type"},
    {24324, "service handle not initialized"},
    {24327, "need explicit attach before authenticating a user"},
    {24328, "illegal attribute value"},
    {24333, "zero iteration count"},
    {24334, "no descriptor for this position"},
    {24337, "statement handle not prepared"},
    {24338, "statement handle not executed"},
    {24343, "user defined callback error"},
    {24345, "A Truncation or null fetch error occurred"},
    {24373, "invalid length specified for statement"},
    {24374, "define not done before fetch or execute and fetch"},
    {24391, "invalid fetch operation"},
    {24801, "illegal parameter value in OCI lob function"},
};

constexpr bool by_code(const Message& left, const Message& right) {
  return left.code < right.code;
}
static_assert(std::is_sorted(std::begin(kMessages), std::end(kMessages), by_code));

}  // namespace

std::string_view message_template(int code) {
  const auto* found =
      std::lower_bound(std::begin(kMessages), std::end(kMessages), Message{code, {}}, by_code);
  if (found == std::end(kMessages) || found->code != code) return "message not found";
  return found->meaning;
}

std::string error_text(int code, std::string_view argument) {
  constexpr std::string_view kPlace = "%s";
  // Room for any int. At least five digits, as the server writes them.
  std::array<char, 24> prefix;
  std::snprintf(prefix.data(), prefix.size(), "ORA-%05d: ", code);
  std::string text = prefix.data();
  const std::string_view meaning = message_template(code);
  const size_t place = meaning.find(kPlace);
  text += meaning.substr(0, place);
  if (place != std::string_view::npos) {
    text += argument;
    text += meaning.substr(place + kPlace.size());
  }
  // Arguments may be messages themselves, with a line feed of their own.
  if (text.back() != '\n') text += '\n';
  return text;
}

void fail(int code, std::string_view argument, int offset) {
  throw Failure{code, error_text(code, argument), offset};
}

}  // namespace oci8
