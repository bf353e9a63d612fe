// A statement of the engine: the dialect's translation, and the SQLite statement made from it.
// Two texts belong together here: `source`, the client's, and the translation, to whose positions
// binds and error offsets refer. sqlite_errors.h maps offsets back.
#ifndef OCI8_SQLITE_STATEMENT_H
#define OCI8_SQLITE_STATEMENT_H

#include <memory>
#include <optional>

#include "dialect.h"
#include "sqlite_cache.h"
#include "sqlite_rows.h"
#include "sqlite_session.h"

namespace oci8 {

class SqliteStatement final : public Statement, private OpenQuery {
 public:
  /// Translates and prepares; `source` outlives the statement.
  SqliteStatement(std::shared_ptr<SqliteSession> session, const SqlText& source);
  /// Leaves the engine's statement to the session for the next use of its text.
  ~SqliteStatement() override;
  SqliteStatement(const SqliteStatement&) = delete;
  SqliteStatement& operator=(const SqliteStatement&) = delete;

  const std::vector<ColumnInfo>& columns() const override { return now_.translation.columns; }
  std::span<Value> inputs() override;
  ub2 takes_large(ub4 position) const override;
  bool step() override;
  std::span<const Value> row() override;
  ub4 rows_changed() const override { return changed_; }
  void reset() override;

 private:
  /// Makes a translation for the schema as it is now, of this version, and its engine statement for
  /// a query or a change.
  Translated translate_text(int schema_version) const;
  void translate_again();
  /// Makes the translation fit for the run that comes: for the schema of the transaction, and with
  /// all values checked where one that was bound needs it.
  void prepare_change();
  bool inputs_fit() const;
  /// Binds all values for the run that comes.
  void bind_inputs();
  int bind_input(size_t index);
  void note_large(size_t index);
  /// Ends large values that were given to the statement and that no cell has taken.
  void remove_untaken();
  void name_large(ub2 type, Value& value);
  std::optional<bool> first_step();
  bool outdated();
  Failure failure(int result);
  /// ORA-02291 or ORA-02292, by what kind of statement failed and what it sets.
  int violated_side();
  bool sets_foreign_key();

  bool step_query();
  bool step_kept();
  void read_out() override;
  bool start_query();
  void draw_rows();
  bool next_row();
  void run_change();
  void run_define();
  void run_control();

  std::shared_ptr<SqliteSession> session_;  // keeps the file open for this statement
  const SqlText& text_;
  Translated now_;
  bool suspect_ = false;  // now_ of a query may be outdated: to be found out before its next run
  std::vector<Value> inputs_;
  std::vector<LargeInput> large_;  // for each input, from the first large value on
  Checks checks_ = Checks::ButBound;  // until a value comes that does not fit its column
  ub4 changed_ = 0;
  std::vector<Value> row_;  // the row that stands, once somebody has asked for it
  bool row_read_ = false;
  std::unique_ptr<KeptRows> rows_;  // of a query that was read out, with the row that stands
  bool row_stands_ = false;
  bool at_end_ = false;
};

}  // namespace oci8

#endif
