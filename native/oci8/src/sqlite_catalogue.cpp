// The dictionary views are ordinary views of the database file over SQLite's own catalogue, with
// headings that carry the server's types (declared_type.h). They are made once, when the database
// is, and so are part of the file's format: another query here changes new databases only.
#include "sqlite_catalogue.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "accounts.h"
#include "declared_type.h"
#include "sqlite_call.h"
#include "sqlite_handle.h"
#include "sqlite_large.h"
#include "sqlite_schema.h"

namespace oci8 {
namespace {

// --- Declared types ------------------------------------------------------------------------------

constexpr std::pair<ub2, const char*> kTypeNames[] = {
    {SQLT_CHR, "VARCHAR2"}, {SQLT_NUM, "NUMBER"}, {SQLT_LNG, "LONG"},     {SQLT_RID, "ROWID"},
    {SQLT_DAT, "DATE"},     {SQLT_BIN, "RAW"},    {SQLT_LBI, "LONG RAW"}, {SQLT_AFC, "CHAR"},
    {SQLT_CLOB, "CLOB"},    {SQLT_BLOB, "BLOB"},
};

const char* type_name(const ColumnInfo& column) {
  // A binary precision without a scale is how FLOAT is declared.
  if (column.type == SQLT_NUM && column.precision > 0 && column.scale == kNoScale) return "FLOAT";
  for (const auto& [type, name] : kTypeNames) {
    if (type == column.type) return name;
  }
  return "UNDEFINED";
}

// The definition goes first, because the pragma has no types for the expressions of a view.
ColumnInfo declared_column(const Call& call) {
  ColumnInfo column;
  std::vector<ColumnInfo> of_view;
  const auto index = static_cast<size_t>(call.integer(2));
  if (read_view(call.bytes(1), of_view) && index < of_view.size()) return of_view[index];
  read_column_type(call.bytes(0), column);
  return column;
}

void declared(Call& call) {
  const ColumnInfo column = declared_column(call);
  const bool number = column.type == SQLT_NUM;
  switch (call.integer(3)) {
    case 0:
      return call.give_text(type_name(column));
    case 1:
      return call.give_integer(column.size);
    case 2:
      if (number && column.precision > 0) call.give_integer(column.precision);
      return;
    default:
      if (number && column.scale != kNoScale) call.give_integer(column.scale);
  }
}

// --- The data dictionary -------------------------------------------------------------------------

// A view of the dictionary: its columns with the types that the server documents, and the query
// over SQLite's own catalogue that fills them.
struct SystemView {
  std::string name;
  std::vector<ColumnInfo> columns;
  std::string query;
};

ColumnInfo text_column(const char* name, ub2 size = 30) {
  return {name, SQLT_CHR, size, 0, 0};
}
ColumnInfo number_column(const char* name) {
  return {name, SQLT_NUM, 22, 0, kNoScale};
}

// Stands in the definition of each system view, where no other view can have it: the dialect
// leaves comments out.
constexpr const char* kSystemMark = "/*system*/ ";

// Objects that users made: not the engine's, not ours.
// System views are told by the mark in their text, so that this need not list their names.
constexpr const char* kVisible =
    " name NOT GLOB 'sqlite_*' AND name NOT GLOB 'OCI8$*' AND name <> 'DUAL'"
    " AND sql NOT GLOB '* AS /[*]system[*]/ *' ";

std::vector<SystemView> table_views() {
  const std::string objects = std::string(" FROM sqlite_schema WHERE") + kVisible;
  return {
      {"USER_TABLES", {text_column("TABLE_NAME")}, "SELECT name" + objects + "AND type = 'table'"},
      {"USER_VIEWS",
       {text_column("VIEW_NAME"), number_column("TEXT_LENGTH"), {"TEXT", SQLT_LNG, 0}},
       "SELECT name, length(text), text FROM (SELECT name, " + view_text_sql() + " AS text" +
           objects + "AND type = 'view')"},
      {"USER_INDEXES",
       {text_column("INDEX_NAME"), text_column("TABLE_NAME"), text_column("UNIQUENESS", 9)},
       "SELECT name, tbl_name, iif(sql LIKE 'CREATE UNIQUE%', 'UNIQUE', 'NONUNIQUE')" + objects +
           "AND type = 'index'"},
      {"USER_OBJECTS",
       {text_column("OBJECT_NAME", 128), text_column("OBJECT_TYPE", 18)},
       "SELECT name, CASE type WHEN 'table' THEN 'TABLE' WHEN 'view' THEN 'VIEW'"
       " WHEN 'index' THEN 'INDEX' ELSE 'TRIGGER' END" +
           objects + "UNION ALL SELECT name, 'SEQUENCE' FROM OCI8$SEQUENCES"},
  };
}

// The pragma gives the types of tables; those of a view's columns are in its definition.
SystemView column_view() {
  return {
      "USER_TAB_COLUMNS",
      {text_column("TABLE_NAME"), text_column("COLUMN_NAME"), number_column("COLUMN_ID"),
       text_column("DATA_TYPE", 106), number_column("DATA_LENGTH"), number_column("DATA_PRECISION"),
       number_column("DATA_SCALE"), text_column("NULLABLE", 1)},
      std::string("SELECT m.name, c.name, c.cid + 1, declared(c.type, m.sql, c.cid, 0),"
                  " declared(c.type, m.sql, c.cid, 1), declared(c.type, m.sql, c.cid, 2),"
                  " declared(c.type, m.sql, c.cid, 3), iif(c.\"notnull\" OR c.pk, 'N', 'Y')"
                  " FROM (SELECT name, sql FROM sqlite_schema WHERE type IN ('table', 'view')"
                  " AND") +
          kVisible + ") m, pragma_table_info(m.name) c"};
}

// Of an expression the engine has no name.
SystemView index_column_view() {
  return {"USER_IND_COLUMNS",
          {text_column("INDEX_NAME"), text_column("TABLE_NAME"), text_column("COLUMN_NAME", 4000),
           number_column("COLUMN_POSITION")},
          std::string("SELECT m.name, m.tbl_name, c.name, c.seqno + 1 FROM (SELECT name, tbl_name"
                      " FROM sqlite_schema WHERE type = 'index' AND") +
              kVisible + ") m, pragma_index_info(m.name) c"};
}

// Values are drawn one by one, and in order: there is no cache that sessions could lose.
SystemView sequence_view() {
  return {"USER_SEQUENCES",
          {text_column("SEQUENCE_NAME"), number_column("MIN_VALUE"), number_column("MAX_VALUE"),
           number_column("INCREMENT_BY"), text_column("CYCLE_FLAG", 1),
           text_column("ORDER_FLAG", 1), number_column("CACHE_SIZE"), number_column("LAST_NUMBER")},
          "SELECT name, minimum, maximum, increment, iif(cycle, 'Y', 'N'), 'Y', 0, next"
          " FROM OCI8$SEQUENCES"};
}

/// A USER_ view once more as ALL_, with its owner in front: a database has one schema.
SystemView all_view(const SystemView& own) {
  SystemView all{"ALL" + own.name.substr(own.name.find('_')),
                 {text_column("OWNER")},
                 "SELECT user(), * FROM " + own.name};
  all.columns.insert(all.columns.end(), own.columns.begin(), own.columns.end());
  return all;
}

std::vector<SystemView> system_views() {
  std::vector<SystemView> views = table_views();
  views.push_back(column_view());
  views.push_back(index_column_view());
  views.push_back(sequence_view());
  for (size_t i = 0, count = views.size(); i < count; ++i) views.push_back(all_view(views[i]));
  return views;
}

bool is_system_object(const char* name) {
  // Made once for the process; afterwards only read, on any thread.
  static const std::vector<SystemView> views = system_views();
  if (name == nullptr) return false;
  const auto same = [name](const SystemView& view) { return view.name == name; };
  return std::string_view(name) == "DUAL" || std::ranges::any_of(views, same);
}

// Asked while a statement is prepared, so that statements cost nothing more when they run.
int authorize(void*, int action, const char* first, const char* second, const char*,
              const char*) noexcept {
  switch (action) {
    case SQLITE_INSERT:
    case SQLITE_UPDATE:
    case SQLITE_DELETE:
    case SQLITE_DROP_TABLE:
    case SQLITE_DROP_VIEW:
      return is_system_object(first) ? SQLITE_DENY : SQLITE_OK;
    // For these actions the table is the second argument, see SQLite's list of authorizer action
    // codes.
    case SQLITE_ALTER_TABLE:
    case SQLITE_CREATE_INDEX:
      return is_system_object(second) ? SQLITE_DENY : SQLITE_OK;
    default:
      return SQLITE_OK;
  }
}

}  // namespace

void protect_system_objects(sqlite3* db) {
  is_system_object(nullptr);  // makes the list here, where running out of memory can be raised
  check(db, sqlite3_set_authorizer(db, authorize, nullptr));
}

void register_catalogue_functions(sqlite3* db) {
  add_function(db, "declared", 4, run_call<declared>, nullptr, SQLITE_DETERMINISTIC);
}

// The engine's names have a dollar sign after OCI8, which the dialect gives to no user's object.
void create_system_objects(sqlite3* db) {
  // One transaction: a file is a complete database or, to has_system_objects, none at all. After a
  // failure it stays open, and closing the file rolls it back.
  execute_sql(db, "BEGIN IMMEDIATE");
  const ColumnInfo dummy = text_column("DUMMY", 1);
  execute_sql(db, "CREATE TABLE DUAL(DUMMY " + spell_type(dummy) + ");" +
                      "INSERT INTO DUAL VALUES ('X');"
                      "CREATE TABLE OCI8$SEQUENCES(name TEXT PRIMARY KEY, next INTEGER,"
                      " increment INTEGER NOT NULL, minimum INTEGER NOT NULL,"
                      " maximum INTEGER NOT NULL, cycle INTEGER NOT NULL) WITHOUT ROWID");
  create_accounts_table(db);
  LargeStore::create_tables(db);
  for (const SystemView& view : system_views()) {
    execute_sql(db, view_heading(view.name, view.columns) + kSystemMark + view.query);
  }
  note_function_version(db);
  execute_sql(db, "COMMIT");
}

int function_version(sqlite3* db) {
  const SqliteStatementOwner row = prepare_sql(db, "PRAGMA user_version");
  step_sql(row.get());
  return sqlite3_column_int(row.get(), 0);
}

void note_function_version(sqlite3* db) {
  execute_sql(db, "PRAGMA user_version = " + std::to_string(kFunctionVersion));
}

std::vector<std::string> expression_indexes(sqlite3* db) {
  // That is how an index shows an expression among its columns.
  const SqliteStatementOwner row =
      prepare_sql(db,
                  "SELECT DISTINCT s.name FROM sqlite_schema s, pragma_index_xinfo(s.name) x"
                  " WHERE s.type = 'index' AND x.cid = -2");
  std::vector<std::string> names;
  while (step_sql(row.get())) names.emplace_back(column_text(row.get(), 0));
  return names;
}

bool has_system_objects(sqlite3* db) {
  const SqliteStatementOwner row =
      prepare_sql(db, "SELECT 1 FROM sqlite_schema WHERE name = 'OCI8$ACCOUNTS'");
  return step_sql(row.get());
}

}  // namespace oci8
