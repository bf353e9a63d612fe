// Statements other than queries. Each function reads one from its first keyword to its end.
// Failures have the offset of the token that does not fit. What the engine refuses with a place of
// its own is left to it, and sqlite_errors.cpp gives it the server's code.
#ifndef OCI8_DIALECT_STATEMENT_H
#define OCI8_DIALECT_STATEMENT_H

#include "dialect_query.h"

namespace oci8 {

/// Data changes, as one engine statement. Each of them notes in the context which placeholders may
/// take large values, and whether the table has columns for such.
Fragment insert_statement(Context& context);
Fragment update_statement(Context& context);
Fragment delete_statement(Context& context);

/// CREATE, DROP, ALTER, RENAME, TRUNCATE, COMMENT, ANALYZE: engine statements separated by ";\n".
Fragment define_statement(Context& context);
/// CREATE TABLE, ALTER TABLE from behind the name.
Fragment create_table(Context& context, const std::string& name);
Fragment alter_table(Context& context, const std::string& name);
/// CREATE SEQUENCE from behind the name.
Fragment create_sequence(Context& context, const std::string& name);
Fragment drop_sequence(const std::string& name, ub4 offset);
/// ALTER TABLE ... RENAME with what hangs on the name.
Fragment rename_table(const std::string& from, const std::string& to,
                      const std::vector<ColumnInfo>& columns);

/// Whether any of the columns may have large values.
bool has_large(const std::vector<ColumnInfo>& columns);
/// What follows a statement that makes the column, or goes before one that drops it: the triggers
/// that take away the large values that the column loses. Empty for other columns.
std::string make_triggers(const std::string& table, const ColumnInfo& column);
std::string drop_triggers(const std::string& table, const ColumnInfo& column);
/// Takes away all values of a column, for the statement that drops it.
std::string release_values(const std::string& table, const std::string& column);

/// Skips storage clauses, which mean nothing here.
void skip_storage(Tokens& tokens);

}  // namespace oci8

#endif
