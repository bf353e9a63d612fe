// Columns whose values may be large: what goes into them, and the triggers that give back what
// rows leave behind. The triggers bear the names of table and column, so that they are found again
// without a look at the schema.
#include <algorithm>

#include "declared_type.h"
#include "dialect_statement.h"

namespace oci8 {
namespace {

// The table's length comes first: quoted names with points inside could else give two columns one
// trigger name.
std::string trigger_name(const std::string& table, const std::string& column, char event) {
  return quote_name("OCI8$" + std::to_string(table.size()) + "." + table + "." + column + "." +
                    event);
}

std::string trigger(const std::string& table, const std::string& column, bool update) {
  const std::string name = quote_name(column);
  const std::string old = "OLD." + name;
  // An integer in such a cell is the number of a large value, every other kind is the value itself.
  std::string sql = "CREATE TRIGGER " + trigger_name(table, column, update ? 'U' : 'D');
  sql += update ? " AFTER UPDATE OF " + name : " AFTER DELETE";
  sql += " ON " + quote_name(table) + " WHEN typeof(" + old + ") = 'integer'";
  // An update that sets a cell to what it holds must not end the value.
  if (update) sql += " AND " + old + " IS NOT NEW." + name;
  return sql + " BEGIN DELETE FROM \"OCI8$LARGE\" WHERE id = " + old + "; END";
}

}  // namespace

bool has_large(const std::vector<ColumnInfo>& columns) {
  return std::ranges::any_of(columns, [](const ColumnInfo& one) { return may_be_large(one.type); });
}

std::string make_triggers(const std::string& table, const ColumnInfo& column) {
  if (!may_be_large(column.type)) return {};
  return ";\n" + trigger(table, column.name, false) + ";\n" + trigger(table, column.name, true);
}

std::string drop_triggers(const std::string& table, const ColumnInfo& column) {
  if (!may_be_large(column.type)) return {};
  std::string sql;
  for (const char event : {'D', 'U'}) {
    sql += "DROP TRIGGER IF EXISTS " + trigger_name(table, column.name, event) + ";\n";
  }
  return sql;
}

std::string release_values(const std::string& table, const std::string& column) {
  const std::string name = quote_name(column);
  return "DELETE FROM \"OCI8$LARGE\" WHERE id IN (SELECT " + name + " FROM " + quote_name(table) +
         " WHERE typeof(" + name + ") = 'integer');\n";
}

// Dropped before and made again behind: their names are made of the table's.
Fragment rename_table(const std::string& from, const std::string& to,
                      const std::vector<ColumnInfo>& columns) {
  std::string before;
  std::string behind;
  for (const ColumnInfo& column : columns) {
    before += drop_triggers(from, column);
    behind += make_triggers(to, column);
  }
  return fragment(
      before + "ALTER TABLE " + quote_name(from) + " RENAME TO " + quote_name(to) + behind, 0);
}

}  // namespace oci8
