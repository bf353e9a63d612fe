// A statement of the engine: the dialect's translation, and the SQLite statement made from it.
#ifndef OCI8_SQLITE_STATEMENT_H
#define OCI8_SQLITE_STATEMENT_H

#include <memory>
#include <optional>

#include "dialect.h"
#include "sqlite_session.h"

namespace oci8 {

class SqliteStatement final : public Statement {
 public:
  /// Translates and prepares; `source` outlives the statement.
  SqliteStatement(std::shared_ptr<SqliteSession> session, const SqlText& source);

  const std::vector<ColumnInfo>& columns() const override { return now_.translation.columns; }
  void bind(ub4 position, const Value& value) override;
  ub2 takes_large(ub4 position) const override;
  bool step() override;
  Value column(ub4 index) override;
  ub4 rows_changed() const override { return changed_; }
  void reset() override;

 private:
  struct Translated {
    Translation translation;
    SqliteStatementOwner statement;  // of a query or a change
    int schema_version = 0;  // that the translation belongs to
  };

  Translated translate_text() const;
  void translate_again();
  void bind_value(ub4 position, const Value& value);
  int bind_large(ub4 position);
  void remove_untaken();
  void name_large(ub2 type, Value& value);
  std::optional<bool> first_step();
  bool outdated();
  Failure failure(int result);
  int violated_side();
  bool sets_foreign_key();

  bool step_query();
  bool start_query();
  bool next_row();
  void run_change();
  void run_define();
  void run_control();

  std::shared_ptr<SqliteSession> session_;  // keeps the file open for this statement
  const SqlText& text_;
  Translated now_;
  std::vector<Value> bound_;  // by position, for a translation that has to be made again
  std::vector<LargeInput> large_;  // by position, from the first large value that is bound on
  ub4 changed_ = 0;
  bool row_stands_ = false;
  bool at_end_ = false;
};

}  // namespace oci8

#endif
