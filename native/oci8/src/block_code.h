// An anonymous block as the steps that it is run in: each SQL statement of its own, with what it
// reads and writes of the block's values.
// What comes out knows no nesting and no names any more; block.cpp runs it from the first step to
// the last. Offsets are bytes from the beginning of the block.
#ifndef OCI8_BLOCK_CODE_H
#define OCI8_BLOCK_CODE_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "engine.h"
#include "sql_text.h"

namespace oci8 {

/// Where a part of a step's text stands in the block.
struct Origin {
  size_t from;  // offset in the step's text
  ub4 source;
  bool copied;  // byte for byte; else made up, all of it standing for `source`
};

/// Values of a block are numbered from 0: its placeholders, then its variables.
struct Step {
  enum class Kind : ub1 {
    Run,  // a data change, or anything else without a result
    Into,  // a query of exactly one row
    Open,  // a query for the cursor variable targets[0]
    Savepoint,
    ReturnTo,  // a savepoint
    EndTransaction
  };

  Kind kind = Kind::Run;
  ub4 offset = 0;  // of the statement in the block
  SqlText text;
  std::vector<Origin> origins;  // ascending by `from`
  std::vector<size_t> inputs;  // the value for each bind position
  std::vector<size_t> targets;
  std::string savepoint;
  std::unique_ptr<Statement> run;

  /// The place in the block for a place in the step's text.
  ub4 source_offset(ub4 offset_in_text) const;
};

/// A declared variable: the query that gives its one bound value the declared type.
struct Variable {
  SqlText conversion;
  std::unique_ptr<Statement> run;
};

/// The run pointers are empty: whoever runs the code prepares the statements on a connection.
struct BlockCode {
  std::vector<Step> steps;  // in the order in which they run: nothing branches
  std::vector<Variable> variables;
};

/// Takes a block apart. `block` need not outlive the result. ORA-06550 with line, column and offset
/// for what is not understood.
BlockCode read_block(const SqlText& block);

/// The line of an offset, from 1.
size_t line_of(const SqlText& block, size_t offset);

}  // namespace oci8

#endif
