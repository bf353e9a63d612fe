// The block's values live here, outside of the engine: every step is an ordinary statement that is
// bound to them and may give them back changed.
#include "block.h"

#include <algorithm>
#include <utility>

#include "block_code.h"
#include "error.h"

namespace oci8 {
namespace {

/// A value with its bytes.
struct OwnedValue {
  Value value;
  std::string bytes;

  void copy(const Value& source) {
    value = source;
    // NULL, numbers and the names of large values have no bytes of their own.
    if (source.data == nullptr) return;
    bytes.assign(source.data, source.size);
    value.data = bytes.data();
  }
  // Short bytes lie in the string itself and move with it.
  void take(OwnedValue&& source) {
    value = source.value;
    bytes = std::move(source.bytes);
    if (value.data != nullptr) value.data = bytes.data();
  }
};

/// A query that was opened for a cursor variable. It keeps the values that it was opened with,
/// because the block's own ones change and end before it.
class OpenedQuery final : public Statement {
 public:
  explicit OpenedQuery(std::unique_ptr<Statement> query)
      : values_(query->inputs().size()), query_(std::move(query)) {
    const std::span<Value> inputs = query_->inputs();
    for (size_t i = 0; i < inputs.size(); ++i) {
      values_[i].copy(inputs[i]);
      inputs[i] = values_[i].value;
    }
  }

  const std::vector<ColumnInfo>& columns() const override { return query_->columns(); }
  std::span<Value> inputs() override { return query_->inputs(); }
  ub2 takes_large(ub4 position) const override { return query_->takes_large(position); }
  bool step() override { return query_->step(); }
  std::span<const Value> row() override { return query_->row(); }
  ub4 rows_changed() const override { return query_->rows_changed(); }
  void reset() override { query_->reset(); }

 private:
  std::vector<OwnedValue> values_;
  std::unique_ptr<Statement> query_;  // gone before its values
};

/// Gives a statement back at the end of its step, so that it keeps no view of the database.
class ResetAfter {
 public:
  explicit ResetAfter(Statement& statement) : statement_(statement) {}
  ~ResetAfter() { statement_.reset(); }
  ResetAfter(const ResetAfter&) = delete;
  ResetAfter& operator=(const ResetAfter&) = delete;

 private:
  Statement& statement_;
};

// Where a variable cannot take a value, blocks have one code for what are several in SQL.
// ORA-01401 (too long), ORA-01438 (too many digits) and ORA-01722 (no number) all come up as
// ORA-06502 with the cause behind it.
constexpr int kConversionErrors[] = {1401, 1438, 1722};

// A given value is there before the block begins. Steps that end or part the transaction could undo
// it ahead of the cell that takes it, or keep it without one.
bool parts_transaction(const Step& step) {
  return step.kind == Step::Kind::Savepoint || step.kind == Step::Kind::ReturnTo ||
         step.kind == Step::Kind::EndTransaction;
}

}  // namespace

struct Block::Program {
  // A placeholder or variable during a run.
  struct Slot {
    OwnedValue owned;  // `value` in it is the caller's until something is assigned
    bool assigned = false;
  };

  Program(const SqlText& block, Connection& on)
      : text(block),
        connection(on),
        code(read_block(block)),
        inputs(block.placeholders.size()),
        slots(inputs.size() + code.variables.size()) {}

  void run(const BlockCalls& calls, bool marked);
  ub2 takes_large(size_t index);
  void prepare();
  void start();
  void forget_results();
  void perform(Step& step);
  void execute(Step& step);
  void select_into(Step& step);
  void open(const Step& step);
  void note_transaction(const Step& step);
  void give_inputs(const Step& step, Statement& statement);
  void assign(size_t index, OwnedValue&& value);
  void convert(Variable& variable, OwnedValue& value);
  [[noreturn]] void raise_at(const Step& step, Failure failure) const;

  template <class Body>
  void within(const Step& step, Body&& body) {
    try {
      body();
    } catch (const Failure& failure) {
      raise_at(step, failure);
    }
  }

  const SqlText& text;
  Connection& connection;
  BlockCode code;
  // Of the next run, of placeholders only. They move into the slots when it starts, so that a run
  // without new ones reads NULL and never bytes that are gone.
  std::vector<Value> inputs;
  std::vector<Slot> slots;
  std::vector<OpenedCursor> cursors;
  std::vector<std::string> savepoints;  // that the run has set since the mark and that still stand
};

// SQL that does not fit the tables comes up before anything runs, as it is one program. Queries of
// cursors are prepared where they are opened, because they leave with the cursor.
void Block::Program::prepare() {
  for (Step& step : code.steps) {
    // A second run of the same block finds its statements prepared: clients execute one block many
    // times.
    if (step.run != nullptr || step.kind == Step::Kind::Open) continue;
    within(step, [&] {
      std::unique_ptr<Statement> run = connection.prepare(step.text);
      const size_t columns = run->columns().size();
      const size_t targets = step.targets.size();
      if (columns != targets) fail(columns > targets ? 913 : 947);
      step.run = std::move(run);
    });
  }
  for (Variable& variable : code.variables) {
    if (variable.run == nullptr) variable.run = connection.prepare(variable.conversion);
  }
}

// Only a placeholder that occurs once can give a value away: the first use takes it over, and a
// second one would find it gone.
ub2 Block::Program::takes_large(size_t index) {
  prepare();
  if (std::ranges::any_of(code.steps, parts_transaction)) return 0;
  ub2 type = 0;
  size_t uses = 0;
  for (const Step& step : code.steps) {
    uses += static_cast<size_t>(std::ranges::count(step.targets, index));
    for (size_t i = 0; i < step.inputs.size(); ++i) {
      if (step.inputs[i] != index) continue;
      ++uses;
      if (step.run != nullptr) type = step.run->takes_large(static_cast<ub4>(i + 1));
    }
  }
  return uses == 1 ? type : ub2{0};
}

// The caller's bytes are good for this run only, so the binds are used up.
void Block::Program::start() {
  forget_results();
  for (size_t i = 0; i < slots.size(); ++i) {
    slots[i].owned.value = i < inputs.size() ? std::exchange(inputs[i], {}) : Value{};
  }
}

// A failed run has none: the client must not take values that belong to undone changes.
void Block::Program::forget_results() {
  cursors.clear();
  savepoints.clear();
  for (Slot& slot : slots) slot.assigned = false;
}

// Results that the caller cannot take fail the block while it can still be undone. A savepoint that
// it leaves behind is the session's from now on; releasing the mark would take it along.
void Block::Program::run(const BlockCalls& calls, bool marked) {
  try {
    start();
    prepare();
    // From here on a failure has something to go back to. An error before the mark has changed
    // nothing.
    if (!marked) connection.mark();
    marked = true;
    for (Step& step : code.steps) {
      within(step, [&] {
        calls.before_step();
        perform(step);
      });
    }
    calls.take_results();
  } catch (...) {
    if (marked) connection.return_to_mark();
    forget_results();
    throw;
  }
  if (savepoints.empty()) connection.release_mark();
}

// The code stays that of the SQL statement; the offset becomes one in the block.
void Block::Program::raise_at(const Step& step, Failure failure) const {
  const ub4 place =
      failure.offset < 0 ? step.offset : step.source_offset(static_cast<ub4>(failure.offset));
  failure.offset = static_cast<int>(place);
  // The server appends one line for each level of calls; a block without calls has one.
  failure.text += error_text(6512, "line " + std::to_string(line_of(text, step.offset)));
  throw failure;
}

void Block::Program::perform(Step& step) {
  switch (step.kind) {
    case Step::Kind::Into:
      return select_into(step);
    case Step::Kind::Open:
      return open(step);
    default:
      execute(step);
      note_transaction(step);
  }
}

void Block::Program::execute(Step& step) {
  give_inputs(step, *step.run);
  const ResetAfter reset(*step.run);
  // Steps of this kind have no rows to keep. A query without INTO is refused by the reader.
  while (step.run->step()) {
  }
}

// Going back to a savepoint takes those behind it along, and the mark with them where it is from
// before the block: what is undone from here on can only be what the block does next.
void Block::Program::note_transaction(const Step& step) {
  if (step.kind == Step::Kind::Savepoint) savepoints.push_back(step.savepoint);
  if (step.kind == Step::Kind::EndTransaction) savepoints.clear();
  if (step.kind != Step::Kind::ReturnTo) return;
  while (!savepoints.empty() && savepoints.back() != step.savepoint) savepoints.pop_back();
  if (savepoints.empty()) connection.mark();
}

// Before each run of a step: the bytes of the last time may be gone.
void Block::Program::give_inputs(const Step& step, Statement& statement) {
  std::ranges::transform(step.inputs, statement.inputs().begin(),
                         [&](size_t slot) { return slots[slot].owned.value; });
}

// All values are taken before one is assigned: the row may be made of the very values that are
// written to.
void Block::Program::select_into(Step& step) {
  std::vector<OwnedValue> row(step.targets.size());
  {
    give_inputs(step, *step.run);
    const ResetAfter reset(*step.run);
    if (!step.run->step()) fail(1403);
    for (size_t i = 0; i < row.size(); ++i) row[i].copy(step.run->row()[i]);
    if (step.run->step()) fail(1422);
  }
  for (size_t i = 0; i < row.size(); ++i) assign(step.targets[i], std::move(row[i]));
}

// Nothing is fetched: the rows are those that the client finds when it asks for the first one. A
// cursor that is opened again is another one.
void Block::Program::open(const Step& step) {
  OpenedCursor cursor;
  cursor.position = static_cast<ub4>(step.targets.front() + 1);
  cursor.text = std::make_unique<SqlText>(step.text);
  std::unique_ptr<Statement> query = connection.prepare(*cursor.text);
  give_inputs(step, *query);
  cursor.run = std::make_unique<OpenedQuery>(std::move(query));
  // The older query has not been given to the client yet, so nobody misses it.
  std::erase_if(cursors, [&](const OpenedCursor& old) { return old.position == cursor.position; });
  cursors.push_back(std::move(cursor));
}

// The type of a placeholder is that of its value; converting it to the client's is the bind's part.
void Block::Program::assign(size_t index, OwnedValue&& value) {
  if (index >= inputs.size()) convert(code.variables[index - inputs.size()], value);
  slots[index].owned.take(std::move(value));
  slots[index].assigned = true;
}

// By the engine's rules for storing into a column: lengths are checked, CHAR is padded.
void Block::Program::convert(Variable& variable, OwnedValue& value) {
  OwnedValue converted;
  variable.run->inputs()[0] = value.value;
  const ResetAfter reset(*variable.run);
  try {
    variable.run->step();
  } catch (const Failure& failure) {
    if (std::ranges::count(kConversionErrors, failure.code) == 0) throw;
    throw Failure{6502, error_text(6502) + failure.text};
  }
  converted.copy(variable.run->row()[0]);
  value.take(std::move(converted));
}

Block::Block(const SqlText& source, Connection& connection)
    : program_(std::make_unique<Program>(source, connection)) {}

Block::~Block() = default;

std::span<Value> Block::inputs() {
  return program_->inputs;
}

ub2 Block::takes_large(ub4 position) {
  if (position == 0 || position > program_->inputs.size()) fail(1036);
  return program_->takes_large(position - 1);
}

void Block::run(const BlockCalls& calls, bool marked) {
  program_->run(calls, marked);
}

const Value* Block::assigned(ub4 position) const {
  if (position == 0 || position > program_->inputs.size()) fail(1036);
  const Program::Slot& slot = program_->slots[position - 1];
  return slot.assigned ? &slot.owned.value : nullptr;
}

std::vector<OpenedCursor> Block::take_cursors() {
  return std::exchange(program_->cursors, {});
}

}  // namespace oci8
