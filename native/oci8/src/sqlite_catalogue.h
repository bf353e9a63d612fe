// The system's own objects in a database: DUAL, accounts, sequences, and the views of the data
// dictionary.
// The tables whose names begin with OCI8$ are hidden from users by the dialect; DUAL and the
// dictionary views are seen by all and changed by nobody.
#ifndef OCI8_SQLITE_CATALOGUE_H
#define OCI8_SQLITE_CATALOGUE_H

#include <sqlite3.h>

#include <string>
#include <vector>

namespace oci8 {

/// Goes up with every change of what a SQL function gives. A file keeps the number of the functions
/// that its indexes on expressions were made with.
inline constexpr int kFunctionVersion = 1;

/// Makes all of them in an empty database, in one transaction.
void create_system_objects(sqlite3* db);

/// Whether `db` was made by create_system_objects.
bool has_system_objects(sqlite3* db);

/// The number that the file keeps, 0 for one of an earlier version.
int function_version(sqlite3* db);
void note_function_version(sqlite3* db);

/// The names of all indexes that have an expression among their columns.
std::vector<std::string> expression_indexes(sqlite3* db);

/// Refuses all further statements that would change or drop a system object (ORA-01031).
void protect_system_objects(sqlite3* db);

/// Registers declared(spelling, definition, index, field), with which the views take a column's
/// type apart: declared as `spelling`, or where `definition` is that of a view, its column `index`
/// from 0. Field 0 is the type's name, 1 its length in bytes, 2 precision, 3 scale.
void register_catalogue_functions(sqlite3* db);

}  // namespace oci8

#endif
