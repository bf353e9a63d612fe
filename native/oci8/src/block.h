// Anonymous blocks: BEGIN ... END of SQL statements, `:n := expression`, SELECT ... INTO :n and
// OPEN :n FOR SELECT ... . A block is taken apart here and run statement by statement; the engine
// sees SQL only.
// Neighbours: block_code.h reads the text into steps, statement.cpp and execute.cpp own a Block in
// the place of an engine statement. There is no control flow: what needs IF, LOOP or an exception
// handler is refused when the block is read.
#ifndef OCI8_BLOCK_H
#define OCI8_BLOCK_H

#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "engine.h"
#include "sql_text.h"

namespace oci8 {

/// A query that a block opened for a cursor variable: its rows have not been fetched yet.
struct OpenedCursor {
  ub4 position;  // of the placeholder, from 1
  // Members are destroyed from the last to the first, which is why the run stands behind its text.
  std::unique_ptr<SqlText> text;  // outlives `run`
  std::unique_ptr<Statement> run;
};

/// What the caller of a block does while it runs. A failure of these fails the block.
struct BlockCalls {
  std::function<void()> before_step = [] {};
  std::function<void()> take_results = [] {};  // of a run that has made all of its steps
};

/// An anonymous block on a connection. Placeholders are numbered by distinct name, as
/// SqlText::placeholders lists them.
class Block {
 public:
  /// Takes the block apart: ORA-06550 with the place for what is not understood. `text` and
  /// `connection` stay the caller's and outlive the block.
  Block(const SqlText& text, Connection& connection);
  ~Block();

  /// The values that the placeholders have when the next run starts, and for that run only, for the
  /// caller to set; NULL where it does not. Bytes stay the caller's until run() has returned.
  std::span<Value> inputs();

  /// As Statement::takes_large, for a placeholder that the block uses once and does not assign to;
  /// 0 for all of a block with COMMIT, ROLLBACK or SAVEPOINT. Errors of the block's statements come
  /// up here.
  ub2 takes_large(ub4 position);

  /// Runs the block as a whole or not at all: after a failure the transaction is as it was before,
  /// or where the block itself ended one, as it was then. Failures have the code of the statement
  /// that failed, and its place in the block.
  /// ORA-01403 and ORA-01422 where a SELECT INTO finds no row or several.
  /// `marked`: the connection's mark stands at where to go back to, and is used up.
  void run(const BlockCalls& calls = {}, bool marked = false);

  /// What the last run assigned to a placeholder; null where it assigned nothing. Valid until the
  /// next run.
  const Value* assigned(ub4 position) const;

  /// The cursors that the last run opened, now the caller's.
  std::vector<OpenedCursor> take_cursors();

 private:
  struct Program;
  std::unique_ptr<Program> program_;
};

}  // namespace oci8

#endif
