// The server's SQL functions and operators, as functions of a SQLite connection. The dialect
// rewrites operators whose meaning differs, and every value that is stored into a typed column,
// into calls of these.
//
// Run-time forms of values: NUMBER is INTEGER or REAL, character data and LONG are TEXT, DATE is a
// BLOB of seven bytes, RAW and LONG RAW are BLOB, NULL and '' are NULL. A function that fails
// reports an error text "ORA-NNNNN: ..." as the catalogue of error.h writes it.
//
//   operators   ora_add(a,b) ora_sub(a,b) ora_mul(a,b) ora_div(a,b) (numbers, and dates with days),
//               ora_sum(a,operator,b,...) (a chain of the first two), ora_concat(a,b,...),
//               ora_text(v) (implicit conversion to character data), ora_number(v) (to NUMBER,
//               ORA-01722), ora_date(v) (to DATE, default format), ora_date_or_number(v) (text to
//               the one that it reads as)
//   groups      sum avg (of decimals; the engine's own add doubles)
//   storing     store_number(v,precision,scale) (1438; precision 0: any), store_given_number(v)
//               (any, a client's double bit for bit), store_char(v,bytes) (1401),
//               store_fixed_char(v,bytes) (padded with blanks), ora_cut(v,bytes) (text, for a
//               cast), store_date(v), store_raw(v,bytes) (text is read as hexadecimal, 1465),
//               store_long(v), store_long_raw(v)
//   functions   to_char to_date to_number nvl nvl2 decode substr instr length (and substrb instrb
//               lengthb) lpad rpad ltrim rtrim trim replace translate upper lower initcap (and with
//               nls_) soundex ascii chr abs ceil floor mod round trunc sign power sqrt exp
//               ln log bitand sin cos tan asin acos atan atan2 sinh cosh tanh greatest least
//               add_months months_between last_day next_day hextoraw rawtohex rowidtochar vsize
//               sysdate() to_date_today(text,model) user() uid()
//               ora_pattern(pattern,mark) (of LIKE ... ESCAPE, 1424)
#ifndef OCI8_SQLITE_FUNCTIONS_H
#define OCI8_SQLITE_FUNCTIONS_H

#include <sqlite3.h>

#include <string>

#include "engine.h"

namespace oci8 {

/// Registers all of the above. `user` is read at each call of user() and must outlive `db`.
void register_functions(sqlite3* db, const std::string* user);

/// Whether the store_ function of a column, which has no large values, would give the value back as
/// it is. Where finding out would cost as much as the function itself, the answer is no.
bool stored_unchanged(const Value& value, const ColumnInfo& column);

}  // namespace oci8

#endif
