// The database's tables and views as the dialect asks for them.
// Read through the connection's own statements, so that what the session has created or dropped in
// its transaction is seen at once.
#ifndef OCI8_SQLITE_SCHEMA_H
#define OCI8_SQLITE_SCHEMA_H

#include <array>

#include "dialect.h"
#include "sqlite_handle.h"

namespace oci8 {

class SqliteSchema final : public Schema {
 public:
  /// `user` is read at each call and outlives the schema, as `db` does.
  /// The database has been read from.
  SqliteSchema(sqlite3* db, const std::string& user);

  /// Tables and views alike; the name's case does not matter to SQLite.
  std::optional<std::vector<ColumnInfo>> columns_of(std::string_view name) override;
  std::string_view user() const override { return user_; }

  /// A number that every change of the schema changes, by whichever connection.
  int version();

 private:
  // The part of the log's index that every transaction changes.
  using LogHead = std::array<ub4, 12>;

  int read_version();
  bool read_view_columns(std::string_view name, std::vector<ColumnInfo>& columns);

  sqlite3* db_;
  const std::string& user_;
  SqliteStatementOwner table_;
  SqliteStatementOwner view_;
  SqliteStatementOwner version_;
  const volatile ub4* log_ = nullptr;  // shared with all who have the file open; null without a log
  LogHead head_{};
  int version_at_head_ = 0;
};

/// The type of a column that is declared as `spelling`. For tables that somebody else made, what
/// the engine's affinity rules make of it.
void read_column_type(std::string_view spelling, ColumnInfo& column);

}  // namespace oci8

#endif
