// Statements other than queries. Each function reads one from its first keyword to its end.
#ifndef OCI8_DIALECT_STATEMENT_H
#define OCI8_DIALECT_STATEMENT_H

#include "dialect_query.h"

namespace oci8 {

Fragment insert_statement(Context& context);
Fragment update_statement(Context& context);
Fragment delete_statement(Context& context);

/// CREATE, DROP, ALTER, RENAME, TRUNCATE, COMMENT: engine statements separated by ";\n".
Fragment define_statement(Context& context);
/// CREATE TABLE, ALTER TABLE from behind the name.
Fragment create_table(Context& context, const std::string& name);
Fragment alter_table(Context& context, const std::string& name);
/// CREATE SEQUENCE from behind the name.
Fragment create_sequence(Context& context, const std::string& name);
Fragment drop_sequence(const std::string& name, ub4 offset);
/// Skips storage clauses, which mean nothing here.
void skip_storage(Tokens& tokens);

}  // namespace oci8

#endif
