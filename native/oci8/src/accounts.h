// Accounts of a database: user names, case-blind, with salted password hashes made by crypt_r.
// They live in a table inside of the database file (OCI8$ACCOUNTS), so that a file that is copied
// takes its accounts along. The functions take an open engine connection and begin no transaction
// themselves: sqlite_engine.cpp checks logins with them, sqlite_functions.cpp answers UID, and the
// tool oci8db makes and changes accounts. Failures of the engine itself come up as Failure, too
// (sqlite_errors.h).
#ifndef OCI8_ACCOUNTS_H
#define OCI8_ACCOUNTS_H

#include <sqlite3.h>

#include <string>
#include <string_view>
#include <vector>

namespace oci8 {

/// Creates the (empty) table of accounts, OCI8$ACCOUNTS, if it is not there.
void create_accounts_table(sqlite3* db);

/// The name in upper case, where an account may have it and the password: ORA-00987, ORA-00972 or
/// ORA-00911 for what cannot be a name, ORA-00988 for a password that is too long or holds a zero
/// byte, and for an empty one where the name does not begin with OPS$.
std::string checked_account(std::string_view user, std::string_view password);
/// Adds an account, or sets the password of an existing one (set_password: ORA-01918 without one),
/// after the same checks. An empty password makes an account that only the operating system can
/// let in. ORA-01920 for a name that is there already.
void add_account(sqlite3* db, std::string_view user, std::string_view password);
void set_password(sqlite3* db, std::string_view user, std::string_view password);
void drop_account(sqlite3* db, std::string_view user);  // ORA-01918
/// All names, in alphabetical order and upper case.
std::vector<std::string> list_accounts(sqlite3* db);
/// The number that stands for an account as long as it exists; 0 for an unknown one.
long long account_number(sqlite3* db, std::string_view user);

/// Returns the account's name in upper case; raises ORA-01017 for an unknown user or a wrong
/// password, after the same work in both cases.
std::string check_password(sqlite3* db, std::string_view user, std::string_view password);
/// The account that stands for the operating system's user ("OPS$" + name), or ORA-01017.
std::string check_external(sqlite3* db);

}  // namespace oci8

#endif
