// CREATE TABLE and ALTER TABLE.
// Declared types go into the engine's schema in spellings that can be read back (declared_type.h);
// sizes, precisions and blanks are enforced when values are stored, not by the table. Constraints
// are the engine's own.
#include <algorithm>
#include <utility>

#include "declared_type.h"
#include "dialect_statement.h"
#include "dialect_types.h"
#include "number.h"

namespace oci8 {
namespace {

// Kept until the end, because a constraint further down may make a column NOT NULL.
struct Definition {
  ColumnInfo column;
  bool typed = true;
  bool constrained = false;  // by more than NOT NULL or CHECK
  std::optional<Fragment> value;  // DEFAULT
  Fragment constraints;
};

// Columns are put into the scope as they are read: a CHECK sees those before it and its own.
class TableReader {
 public:
  TableReader(Context& context, std::string name)
      : context_(context), name_(std::move(name)), scope_(nullptr) {
    // Neither DEFAULT nor CHECK may draw from a sequence on the server.
    scope_.sequences = false;
    scope_.sources.emplace_back().name = name_;
  }

  Fragment create() {
    const bool listed = tokens().accept_symbol("(");
    if (listed) {
      do {
        element();
      } while (tokens().accept_symbol(","));
      tokens().expect_symbol(")", 907);
    }
    skip_storage(tokens());
    if (tokens().accept_word("AS")) return create_from_query();
    if (!listed) tokens().fail_here(906);
    return write();
  }

  Fragment alter() {
    if (tokens().accept_word("ADD")) return add_columns();
    if (tokens().accept_word("RENAME")) {
      tokens().expect_word("TO");
      const std::string to = tokens().name(903);
      return rename_table(name_, to, table_columns(context_, name_, 0));
    }
    if (!tokens().accept_word("DROP") || !tokens().accept_word("COLUMN")) {
      tokens().fail_here(3001);
    }
    return drop_column();
  }

 private:
  Tokens& tokens() { return context_.tokens; }

  Fragment drop_column() {
    const ub4 offset = tokens().offset();
    const std::string name = tokens().name(904);
    Fragment sql;
    for (const ColumnInfo& column : table_columns(context_, name_, 0)) {
      if (column.name != name || !may_be_large(column.type)) continue;
      sql.add(release_values(name_, name)).add(drop_triggers(name_, column));
    }
    return sql.add("ALTER TABLE " + quote_name(name_) + " DROP COLUMN ")
        .add(fragment(quote_name(name), offset));
  }

  void element() {
    if (at_table_constraint()) {
      table_constraint();
    } else {
      definitions_.push_back(definition());
    }
  }

  // PRIMARY and FOREIGN are not reserved and may name columns; the word behind them decides.
  bool at_table_constraint() {
    const bool key = tokens().is_word("KEY", 1);
    return tokens().is_word("CONSTRAINT") || tokens().is_word("UNIQUE") ||
           tokens().is_word("CHECK") || (key && tokens().is_word("PRIMARY")) ||
           (key && tokens().is_word("FOREIGN"));
  }

  // --- Columns -----------------------------------------------------------------------------------

  // CREATE TABLE ... AS lists names without types.
  Definition definition() {
    Definition result;
    const ub4 offset = tokens().offset();
    const std::string name = tokens().name(904);
    if (column_of_table(name) != nullptr) fail(957, {}, static_cast<int>(offset));
    result.typed = !tokens().is_symbol(",") && !tokens().is_symbol(")");
    if (result.typed) result.column = declared_type(tokens());
    result.column.name = name;
    scope_.sources.front().columns.push_back({result.column, quote_name(name)});
    // Before the constraints, which is the only order that the server takes.
    if (tokens().accept_word("DEFAULT")) result.value = default_value(result.column);
    while (column_constraint(result)) {
    }
    return result;
  }

  // Checked as it is stored, in the engine, for each row that leaves the column out.
  Fragment default_value(const ColumnInfo& column) {
    Scope nothing(nullptr);
    nothing.sequences = false;
    const Fragment value = expression(context_, nothing);
    default_literal_ = value;
    return store(value, column);
  }

  // Null for a name that is none of the columns so far; good until the next one is added.
  ScopeColumn* column_of_table(const std::string& name) {
    std::vector<ScopeColumn>& columns = scope_.sources.front().columns;
    const auto found = std::ranges::find_if(
        columns, [&](const ScopeColumn& column) { return column.info.name == name; });
    return found == columns.end() ? nullptr : &*found;
  }

  // Names are kept by the engine with the table, where messages about them come from.
  std::string constraint_name() {
    if (!tokens().accept_word("CONSTRAINT")) return {};
    return " CONSTRAINT " + quote_name(tokens().name(904));
  }

  // NOT NULL is written with the type, whether it was said or follows from PRIMARY KEY: the engine
  // alone would let NULL into a primary key.
  bool column_constraint(Definition& of) {
    const std::string named = constraint_name();
    Fragment& sql = of.constraints;
    if (tokens().accept_word("NOT")) {
      tokens().expect_word("NULL", 908);
      of.column.nullable = false;
    } else if (tokens().accept_word("NULL")) {
      return true;
    } else if (tokens().accept_word("PRIMARY")) {
      tokens().expect_word("KEY");
      of.column.nullable = false;
      of.constrained = true;
      sql.add(named).add(" PRIMARY KEY");
    } else if (tokens().accept_word("UNIQUE")) {
      of.constrained = true;
      sql.add(named).add(" UNIQUE");
    } else if (tokens().is_word("REFERENCES")) {
      of.constrained = true;
      sql.add(named).add(references(1));
    } else if (tokens().accept_word("CHECK")) {
      sql.add(named).add(" CHECK ").add(check_condition());
    } else {
      if (!named.empty()) tokens().fail_here(905);
      return false;
    }
    constraint_state();
    return true;
  }

  // How and when a constraint is checked is the engine's affair: at once.
  void constraint_state() {
    for (;;) {
      if (tokens().accept_word("USING")) {
        tokens().expect_word("INDEX");
        skip_storage(tokens());
      } else if (tokens().accept_word("INITIALLY")) {
        tokens().skip();
      } else if (tokens().is_word("NOT") && tokens().is_word("DEFERRABLE", 1)) {
        tokens().skip(2);
      } else if (!tokens().accept_word("DEFERRABLE") && !tokens().accept_word("ENABLE") &&
                 !tokens().accept_word("VALIDATE")) {
        return;
      }
    }
  }

  // The engine calls the functions in it on every change, as the server does.
  Fragment check_condition() {
    tokens().expect_symbol("(", 906);
    Fragment result = fragment("(", tokens().offset());
    result.add(condition(context_, scope_)).add(")");
    tokens().expect_symbol(")", 907);
    return result;
  }

  // Looked up at once, but for a table that refers to itself: the engine would find out at the
  // first INSERT only. Without columns the parent's primary key is meant, in both dialects.
  // What the columns are, as many as `count`, is seen when the table is there, with all of its own
  // keys.
  Fragment references(size_t count) {
    tokens().skip();
    const ub4 offset = tokens().offset();
    const std::string parent = tokens().object_name(context_.schema.user(), 903);
    if (parent != name_) table_columns(context_, parent, offset);
    Fragment result = fragment(" REFERENCES ", offset);
    result.add(quote_name(parent));
    std::vector<std::string> columns;
    if (tokens().accept_symbol("(")) {
      result.add("(");
      do {
        columns.push_back(tokens().name(904));
        result.add(quote_name(columns.back())).add(tokens().is_symbol(",") ? "," : ")");
      } while (tokens().accept_symbol(","));
      tokens().expect_symbol(")", 907);
    }
    if (!columns.empty() && columns.size() != count) fail(2256, {}, static_cast<int>(offset));
    key_checks_ += unless_key(parent, columns, count);
    if (tokens().accept_word("ON")) {
      tokens().expect_word("DELETE");
      tokens().expect_word("CASCADE");
      result.add(" ON DELETE CASCADE");
    }
    return result;
  }

  // The engine would take any columns, and refuse every change of the parent from then on.
  static std::string unless_key(const std::string& parent, const std::vector<std::string>& columns,
                                size_t count) {
    std::string sql =
        ";\nSELECT ora_raise(2270) WHERE NOT EXISTS (SELECT 1 FROM pragma_index_list(";
    sql += quote_text(parent) + ") AS i WHERE i.\"unique\" AND NOT i.partial AND ";
    sql += "(SELECT count(*) = " + std::to_string(count);
    std::string names = columns.empty() ? "name" : "";
    for (const std::string& name : columns) names += (names.empty() ? "" : ",") + quote_text(name);
    // As many columns as refer to it, and all of them among those that are named.
    sql += " AND total(name IN (" + names + ")) = count(*) FROM pragma_index_info(i.name))";
    return sql + (columns.empty() ? " AND i.origin = 'pk')" : ")");
  }

  // --- Table constraints -------------------------------------------------------------------------

  // Written behind all columns, in order.
  void table_constraint() {
    Fragment sql = fragment(constraint_name(), tokens().offset());
    if (tokens().accept_word("PRIMARY")) {
      tokens().expect_word("KEY");
      sql.add(" PRIMARY KEY ").add(constrained_columns(true));
    } else if (tokens().accept_word("UNIQUE")) {
      sql.add(" UNIQUE ").add(constrained_columns(false));
    } else if (tokens().accept_word("FOREIGN")) {
      tokens().expect_word("KEY");
      const size_t list = tokens().position();
      sql.add(" FOREIGN KEY ").add(constrained_columns(false));
      if (!tokens().is_word("REFERENCES")) tokens().fail_here(905);
      // Each name is one token, with a mark in front, and one more mark ends the list.
      sql.add(references((tokens().position() - list) / 2));
    } else {
      tokens().expect_word("CHECK", 904);
      sql.add(" CHECK ").add(check_condition());
    }
    constraint_state();
    table_constraints_.push_back(std::move(sql));
  }

  // Must be columns of this very statement.
  Fragment constrained_columns(bool not_null) {
    Fragment result = fragment("(", tokens().offset());
    tokens().expect_symbol("(", 906);
    do {
      const ub4 offset = tokens().offset();
      const std::string name = tokens().name(904);
      const auto found = std::ranges::find_if(
          definitions_, [&](const Definition& of) { return of.column.name == name; });
      if (found == definitions_.end()) {
        fail(904, "\"" + name + "\"", static_cast<int>(offset));
      }
      if (not_null) found->column.nullable = false;
      found->constrained = true;
      result.add(quote_name(name)).add(tokens().is_symbol(",") ? "," : ")");
    } while (tokens().accept_symbol(","));
    tokens().expect_symbol(")", 907);
    return result;
  }

  // --- Writing -----------------------------------------------------------------------------------

  // The type is spelled so that it can be read back from the engine's schema, see declared_type.h.
  Fragment write_definition(const Definition& of) {
    if (!of.typed) tokens().fail_here(902);
    // A key of large values would compare their numbers, which are all different.
    if (of.constrained && may_be_large(of.column.type)) tokens().fail_here(932);
    Fragment sql = fragment(quote_name(of.column.name) + " " + spell_type(of.column), 0);
    if (of.value) sql.add(" DEFAULT (").add(*of.value).add(")");
    if (!of.column.nullable) sql.add(" NOT NULL");
    return sql.add(of.constraints);
  }

  Fragment write() {
    Fragment sql = fragment("CREATE TABLE " + quote_name(name_) + " (", 0);
    for (size_t i = 0; i < definitions_.size(); ++i) {
      sql.add(i > 0 ? ", " : "").add(write_definition(definitions_[i]));
    }
    for (const Fragment& constraint : table_constraints_) sql.add(",").add(constraint);
    sql.add(")");
    // Behind the table, as statements of their own.
    for (const Definition& of : definitions_) sql.add(make_triggers(name_, of.column));
    return sql.add(key_checks_);
  }

  // Columns take names (where none are listed) and types from the query.
  Fragment create_from_query() {
    const Query inner = query(context_, nullptr, Naming::Positions);
    // Without a list all names are the query's.
    if (definitions_.empty() && inner.unnamed >= 0) fail(998, {}, inner.unnamed);
    if (definitions_.empty()) definitions_.resize(inner.columns.size());
    if (definitions_.size() != inner.columns.size()) tokens().fail_here(1730);
    std::vector<Fragment> values;
    for (size_t i = 0; i < definitions_.size(); ++i) {
      ColumnInfo& column = definitions_[i].column;
      if (!column.name.empty() && definitions_[i].typed) tokens().fail_here(1773);
      std::string name = column.name.empty() ? inner.columns[i].name : column.name;
      // A column of the literal NULL.
      if (inner.types[i].code == 0 && inner.columns[i].size == 1) tokens().fail_here(1723);
      const bool nullable = column.nullable && !inner.columns[i].not_null;
      // The type comes from the query, the name from the list, NOT NULL from either.
      column = inner.columns[i];
      column.name = std::move(name);
      column.nullable = nullable;
      definitions_[i].typed = true;
      values.push_back(store(column_of(inner, i), column));
    }
    Fragment sql = write();
    // Columns are in the table's order on both sides, so that no list of them is needed. Large
    // values are copied, since store() has them copied.
    sql.add(";\nINSERT INTO " + quote_name(name_) + " ").add(select_from(inner, values));
    return sql;
  }

  // --- ALTER TABLE ... ADD -----------------------------------------------------------------------

  // One engine statement for each column: it adds one at a time.
  Fragment add_columns() {
    for (ColumnInfo& column : table_columns(context_, name_, 0)) {
      std::string sql = quote_name(column.name);
      scope_.sources.front().columns.push_back({std::move(column), std::move(sql)});
    }
    const bool listed = tokens().accept_symbol("(");
    Fragment sql;
    do {
      // The engine cannot add a constraint to a table that is there.
      if (at_table_constraint()) tokens().fail_here(3001);
      if (tokens().at_name() && column_of_table(peek_name()) != nullptr) {
        tokens().fail_here(1430);
      }
      sql.add(sql.sql.empty() ? "" : ";\n").add(added(definition()));
    } while (listed && tokens().accept_symbol(","));
    if (listed) tokens().expect_symbol(")", 907);
    return sql;
  }

  // The name that comes next, which stays where it is.
  std::string peek_name() {
    const size_t at = tokens().position();
    std::string name = tokens().name(904);
    tokens().seek(at);
    return name;
  }

  // The engine takes constants only for the value of a new column in rows that there are.
  Fragment added(Definition of) {
    if (of.constrained) tokens().fail_here(3001);
    // The server allows this for an empty table, which is not looked into here.
    if (!of.column.nullable && !of.value) tokens().fail_here(1758);
    if (of.value) of.value = constant(of.column);
    Fragment sql = fragment("ALTER TABLE " + quote_name(name_) + " ADD COLUMN ", 0);
    return sql.add(write_definition(of)).add(make_triggers(name_, of.column));
  }

  // What storing would make of the literal, worked out here.
  Fragment constant(const ColumnInfo& column) {
    const Fragment& value = default_literal_;
    const ValueClass target = type_of(column).value_class();
    // With or without a type.
    if (value.sql == "NULL") return value;
    if (value.text && (target == ValueClass::Text || column.type == SQLT_LNG)) {
      // Checked and padded as store() would have it at run time, for values that no statement
      // stores.
      std::string text = *value.text;
      if (column.type != SQLT_LNG && text.size() > column.size) fail(1401);
      if (column.type == SQLT_AFC) text.resize(column.size, ' ');
      return fragment(quote_text(text), value.offset);
    }
    if (!value.integer || target != ValueClass::Number) tokens().fail_here(3001);
    Number number{true, *value.integer, 0};
    if (!takes_any_number(column) && !fit_number(number, column.precision, column.scale))
      fail(1438);
    return fragment(std::to_string(number.integer), value.offset);
  }

  Context& context_;
  const std::string name_;
  Scope scope_;
  std::vector<Definition> definitions_;
  std::vector<Fragment> table_constraints_;
  std::string key_checks_;  // of the foreign keys, behind the table
  Fragment default_literal_;  // of the last column, before it is made fit to store
};

}  // namespace

Fragment create_table(Context& context, const std::string& name) {
  return TableReader(context, name).create();
}

Fragment alter_table(Context& context, const std::string& name) {
  return TableReader(context, name).alter();
}

}  // namespace oci8
