// Declared column types, as the engine's own schema keeps them. A type is spelled so that the
// engine's affinity rules lose nothing (text for character types, none for RAW, DATE and what may
// be large, numeric for NUMBER) and so that the declaration can be read back from it: the engine's
// schema is the one catalogue of types, and follows every DROP, rename and rollback by itself.
#ifndef OCI8_DECLARED_TYPE_H
#define OCI8_DECLARED_TYPE_H

#include <string>
#include <string_view>
#include <vector>

#include "engine.h"

namespace oci8 {

/// Whether cells of a column of this type may name large values: LONG, LONG RAW, CLOB, BLOB.
inline bool may_be_large(ub2 type) {
  return type == SQLT_LNG || type == SQLT_LBI || type == SQLT_CLOB || type == SQLT_BLOB;
}

/// Whether a NUMBER column has no precision, or a binary one that rounds none of the digits that
/// are kept.
bool takes_any_number(const ColumnInfo& column);

/// The spelling for `type`, `size`, `precision` and `scale` of a column.
std::string spell_type(const ColumnInfo& column);

/// Reads a spelling back into the type fields of `column`; false for one that spell_type never
/// writes (a table that somebody else made).
bool read_type(std::string_view spelling, ColumnInfo& column);

/// A name in double quotes, as it stands in engine SQL: any byte may be inside.
std::string quote_name(std::string_view name);

/// The beginning of a view's definition up to and with "AS ". The engine knows no types for the
/// expressions of a view: a comment that it keeps with the definition carries them.
std::string view_heading(const std::string& name, const std::vector<ColumnInfo>& columns);

/// What goes between a view's heading and its translated query: a comment that keeps the query as
/// it was typed.
std::string view_text(std::string_view typed);
/// The engine's expression for that text, of the column `sql` of the engine's schema; all of it for
/// a view that has none.
std::string view_text_sql();

/// Reads names and types back from a view's definition as the engine's schema keeps it; false
/// for a text that does not begin with a view_heading.
bool read_view(std::string_view create_text, std::vector<ColumnInfo>& columns);

}  // namespace oci8

#endif
