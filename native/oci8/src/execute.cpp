// Executing: values in, the run of a change, query or block, and what a block gives back.
// An execute has four parts, in this order: the statement is prepared in the database where that
// has not happened yet; callbacks bring the values that are sent at execution; the values are
// handed to the engine as views; the engine runs. Output variables of a block are written last.
#include <algorithm>
#include <cstring>

#include "guard.h"
#include "statement.h"

namespace oci8 {
namespace {

Value given_value(const LargeName& name) {
  Value value;
  value.kind = Value::Kind::Large;
  value.large = name;
  value.given = true;
  return value;
}

// Text and bytes are views of the caller's memory. That is the caller's again after the execute,
// while a query goes on reading its values: those are copied.
void hold(Value& value, HeldBytes& held) {
  if (value.data == nullptr) return;
  held.assign(value.data, value.size);
  value.data = held.data();
}

}  // namespace

// While the caller's code runs it may call this library with the same handles: calls that would
// change or free the statement find the mark and are refused.
class StatementHandle::Callback {
 public:
  explicit Callback(StatementHandle& statement) : statement_(statement) {
    statement.pulling_ = true;
    ++statement.environment->callbacks;
  }
  ~Callback() {
    --statement_.environment->callbacks;
    statement_.pulling_ = false;
  }
  Callback(const Callback&) = delete;
  Callback& operator=(const Callback&) = delete;

 private:
  StatementHandle& statement_;
};

// What an iteration streams into the database before its statement runs: undone with a statement
// that fails, and where a callback, which runs code of the caller's, ends the session.
class StatementHandle::StreamUnit {
 public:
  StreamUnit(StatementHandle& statement, Attachment& attachment)
      : statement_(statement), attachment_(attachment) {
    statement.unit_ = this;
  }
  ~StreamUnit() {
    abandon();
    statement_.unit_ = nullptr;
  }
  StreamUnit(const StreamUnit&) = delete;
  StreamUnit& operator=(const StreamUnit&) = delete;

  void require_live() const {
    if (statement_.attachment_ != &attachment_) fail(1012);
    if (statement_.breaks_ != attachment_.breaks) fail(1013);
  }

  /// The connection, for a change that belongs to the unit.
  Connection& connection() {
    require_live();
    if (!marked_) {
      attachment_.connection->mark();
      attachment_.streaming = marked_ = true;
    }
    return *attachment_.connection;
  }

  /// Leaves the mark to the caller; false without one.
  bool hand_over() {
    if (!marked_) return false;
    attachment_.streaming = marked_ = false;
    return true;
  }

  void keep() {
    if (hand_over()) attachment_.connection->release_mark();
  }

  void abandon() noexcept {
    if (hand_over()) attachment_.connection->return_to_mark();
  }

 private:
  StatementHandle& statement_;
  Attachment& attachment_;
  bool marked_ = false;
};

// Keeps a value in memory, or where the column takes large ones the first part of it: from the
// second on it goes to the database part by part.
// A part is kLargePart bytes, the unit in which the engine stores: writes that begin and end at its
// multiples touch every chunk once.
class StatementHandle::LargeSink final : public PieceSink {
 public:
  LargeSink(StreamUnit& unit, HeldBytes& held, size_t expected, bool large)
      : unit_(unit), held_(held), expected_(expected), large_(large) {}

  void take(const void* bytes, size_t size) override {
    unit_.require_live();
    if (!large_) return held_.append(bytes, size, expected_);
    const auto* from = static_cast<const char*>(bytes);
    while (size > 0) {
      if (held_.size() == kLargePart) flush();
      // Whole parts go from the caller's memory straight into the database, and what is left over
      // waits for the next piece. A first piece of up to one part is held: the value may end with
      // it, and then stays in its row.
      const bool whole = held_.size() == 0 && size > kLargePart;
      const size_t part =
          whole ? size - size % kLargePart : std::min(size, kLargePart - held_.size());
      whole ? write(from, part) : held_.append(from, part, kLargePart);
      from += part;
      size -= part;
    }
  }

  /// The value turns out to be NULL.
  void discard() {
    held_.release();
    if (name_.id != 0) unit_.connection().remove_large(name_);
    name_ = {};
  }

  /// The large value; names nothing where the value is in memory as a whole.
  LargeName finish() {
    if (name_.id != 0) flush();
    return name_;
  }

 private:
  void flush() {
    write(held_.data(), held_.size());
    held_.clear();
  }

  void write(const char* bytes, size_t size) {
    Connection& connection = unit_.connection();
    if (name_.id == 0) name_ = connection.create_large(LargeName::Unit::Byte);
    connection.write_part(name_, written_, bytes, size);
    written_ += size;
  }

  StreamUnit& unit_;
  HeldBytes& held_;
  const size_t expected_;
  const bool large_;
  LargeName name_;
  unsigned long long written_ = 0;
};

// Rows that are fetched along are outside of the remembering part: a value that does not fit its
// variable fails the call but does not end the cursor.
sword StatementHandle::execute(Attachment& attachment, ub4 iterations, bool commit,
                               ErrorRecord& record) {
  require_idle();
  piece_.phase = Pieces::None;
  row_count = 0;
  int information = 0;
  try {
    information = start(attachment, iterations);
    // What a callback's own calls have left there with this error handle.
    record.clear();
  } catch (const Failure& failure) {
    remember(failure);
    // A block that finds no row is not in error for its client.
    if (block_ == nullptr || failure.code != kNoDataFound) throw;
    record.set(failure);
    return OCI_NO_DATA;
  }
  if (text_->type == OCI_STMT_SELECT) {
    return iterations > 0 ? fetch_on(iterations, record) : OCI_SUCCESS;
  }
  if (commit) attachment.connection->commit();
  return told(record, information);
}

// Each iteration takes effect by itself, with its own element of each variable; after a failure the
// row count tells how far the iterations before it came. Values that were pulled are let go at the
// end of the run, however it ends, as they may be long.
int StatementHandle::start(Attachment& attachment, ub4 iterations) {
  const bool query = prepared_text().type == OCI_STMT_SELECT;
  if (!query && iterations == 0) fail(24333);
  // A change of a callback's own would be undone with the stream, and an end of the transaction
  // keep a part of it.
  if (!query) attachment.require_no_stream();
  breaks_ = attachment.breaks;
  enter(attachment);
  const bool streams = check_binds(iterations);
  close_cursor();
  int information = 0;
  for (ub4 row = 0; row < (query ? 1 : iterations); ++row) {
    // For each iteration its own: one that fails must undo what it streamed, and nothing of the
    // iterations before it.
    StreamUnit unit(*this, attachment);
    unit.require_live();
    if (streams) pull_streams(unit, row);
    give_inputs(row);
    if (query) {
      // The first step belongs to the execute: it fixes the state of the database that the rows
      // are read from, and brings up what is wrong with the query.
      cursor_ = step() ? Cursor::AtRow : Cursor::AtEnd;
    } else if (block_ != nullptr) {
      keep_worst(information, run_block(row, unit));
    } else {
      run_change();
    }
    unit.keep();
  }
  if (streams && !query) release_streams();
  return information;
}

void StatementHandle::run_change() {
  while (run_->step()) {
  }
  row_count += run_->rows_changed();
  run_->reset();
}

// Before anything runs, and before a callback's stream is used up. True where there is one.
bool StatementHandle::check_binds(ub4 iterations) const {
  bool streams = false;
  for (size_t i = 0; i < binds_.size(); ++i) {
    const BindHandle* bind = binds_[i];
    if (bind == nullptr) fail(1008);
    if (bind->at_execution) {
      if (bind->callback == nullptr) fail(3129);
      streams = true;
    }
    const bool opened = block_ != nullptr && uses_[i].opened;
    const bool cursor = bind->type == SQLT_RSET;
    if (cursor != opened) fail(932);
    for (ub4 row = 0; cursor && row < iterations; ++row) cursor_variable(*bind, row);
  }
  return streams;
}

bool StatementHandle::streams_large(size_t index) {
  const auto position = static_cast<ub4>(index + 1);
  const ub2 column =
      block_ != nullptr ? block_->takes_large(position) : run_->takes_large(position);
  return streams_into(binds_[index]->type, column);
}

void StatementHandle::pull_streams(StreamUnit& unit, ub4 row) {
  for (size_t i = 0; i < binds_.size(); ++i) {
    if (!binds_[i]->at_execution) continue;
    HeldBytes pulled;
    LargeSink sink(unit, pulled, binds_[i]->room, streams_large(i));
    {
      const Callback runs(*this);
      if (!pull_value(*binds_[i], row, sink)) sink.discard();
    }
    // The callback may have ended the session, after which neither the run nor the mark exists.
    unit.require_live();
    streamed_[i] = sink.finish();
    held_[i] = std::move(pulled);
  }
}

void StatementHandle::give_inputs(ub4 row) {
  const std::span<Value> inputs = block_ != nullptr ? block_->inputs() : run_->inputs();
  const bool query = text_->type == OCI_STMT_SELECT;
  for (size_t i = 0; i < binds_.size(); ++i) {
    const BindHandle& bind = *binds_[i];
    if (block_ != nullptr && !uses_[i].read) {
      // A variable that the block only assigns to may be uninitialised, or hold bytes that are no
      // value of its type.
      inputs[i] = Value();
    } else if (bind.at_execution) {
      inputs[i] = streamed_[i].id != 0 ? given_value(streamed_[i]) : held_value(bind, held_[i]);
    } else {
      read_value(bind, row, inputs[i]);
      if (query) hold(inputs[i], held_[i]);
    }
  }
}

int StatementHandle::run_block(ub4 row, StreamUnit& unit) {
  int information = 0;
  const BlockCalls calls{
      // Steps are over too soon to hear of a break.
      .before_step = [&] { unit.require_live(); },
      .take_results =
          [&] {
            information = store_outputs(row);
            hand_over_cursors(row);
          },
  };
  block_->run(calls, unit.hand_over());
  ++row_count;
  return information;
}

// All of them, before the first error is reported.
int StatementHandle::store_outputs(ub4 row) {
  int result = 0;
  for (size_t i = 0; i < binds_.size(); ++i) {
    if (uses_[i].opened) continue;
    const Value* value = block_->assigned(static_cast<ub4>(i + 1));
    if (value != nullptr) keep_worst(result, store_output(*binds_[i], *value, row));
  }
  if (result != 0 && result != kCutWithInfo) fail(result);
  return result;
}

// The variable holds the address of a statement handle, which may be anything by now.
StatementHandle& StatementHandle::cursor_variable(const BindHandle& bind, ub4 row) const {
  const void* address = nullptr;
  std::memcpy(&address, bind.buffer + row * bind.room, sizeof address);
  StatementHandle* found = pool<StatementHandle>.find(address);
  if (found == nullptr || found == this || found->environment != environment) fail(1001);
  // It may be the one whose callback makes this call.
  found->require_idle();
  return *found;
}

void StatementHandle::hand_over_cursors(ub4 row) {
  for (OpenedCursor& opened : block_->take_cursors()) {
    const BindHandle& bind = *binds_[opened.position - 1];
    cursor_variable(bind, row).adopt(std::move(opened), *attachment_);
  }
}

// The handle is then as after a prepare and an execute of the query. A failure of its first step is
// kept for its first fetch, as the block has done its work.
void StatementHandle::adopt(OpenedCursor opened, Attachment& attachment) {
  // Whatever the cursor variable's statement did before ends here, also in another database.
  drop_run();
  drop_binds();
  drop_defines();
  row_count = 0;
  parse_error_offset = 0;
  attachment.statements.push_back(this);
  attachment_ = &attachment;
  breaks_ = attachment.breaks;
  text_ = std::move(opened.text);
  run_ = std::move(opened.run);
  binds_.resize(text_->placeholders.size());
  held_.resize(binds_.size());
  streamed_.resize(binds_.size());
  cursor_ = Cursor::PastRow;
  look_ahead();
}

void StatementHandle::release_streams() noexcept {
  for (size_t i = 0; i < held_.size() && i < binds_.size(); ++i) {
    if (binds_[i] != nullptr && binds_[i]->at_execution) held_[i].release();
  }
}

void StatementHandle::abandon_streams() noexcept {
  if (unit_ != nullptr) unit_->abandon();
}

}  // namespace oci8
