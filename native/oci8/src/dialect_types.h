// Declared column types as statements write them.
// Used for CREATE TABLE and ALTER TABLE, for CAST, and for the declarations of a block's variables.
#ifndef OCI8_DIALECT_TYPES_H
#define OCI8_DIALECT_TYPES_H

#include "dialect_tokens.h"
#include "engine.h"

namespace oci8 {

/// Reads a type into the type fields of a column. ORA-00902 for a type that there is not.
ColumnInfo declared_type(Tokens& tokens);

}  // namespace oci8

#endif
