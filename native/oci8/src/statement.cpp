// A statement's text, and the handles that belong to it; execute.cpp and fetch.cpp have the rest.
// Preparing reads tokens only: no database is needed for it, and no error of the SQL shows. The
// first execute or describe has the text translated and prepared in a database, and every later one
// in the same database finds it there.
#include "statement.h"

#include <algorithm>
#include <limits>

namespace oci8 {

StatementHandle::~StatementHandle() {
  drop_run();
  drop_binds();
  drop_defines();
}

// Unprepared while the text changes: without memory for it the handle is empty, not stale.
void StatementHandle::prepare(std::string_view sql) {
  require_idle();
  drop_run();
  drop_binds();
  drop_defines();
  text_.reset();
  row_count = 0;
  parse_error_offset = 0;
  // The caller's buffer is free again after the call, so the tokens refer to a copy.
  auto text = std::make_unique<const SqlText>(tokenize(sql));
  binds_.resize(text->placeholders.size());
  text_ = std::move(text);
}

const SqlText& StatementHandle::prepared_text() const {
  if (text_ == nullptr) fail(24337);
  return *text_;
}

// A callback that brings a value may ask this statement for its attributes, but not turn it into
// another one under the execute that waits for the value.
void StatementHandle::require_idle() const {
  if (pulling_) fail(3127);
}

void StatementHandle::describe(Attachment& attachment) {
  require_idle();
  try {
    enter(attachment);
  } catch (const Failure& failure) {
    remember(failure);
    throw;
  }
}

// Callers that fetch after an execute whose status they did not look at are told what went wrong
// there: the cursor keeps the failure.
void StatementHandle::remember(const Failure& failure) {
  const int last_offset = std::numeric_limits<ub2>::max();
  parse_error_offset = static_cast<ub2>(std::clamp(failure.offset, 0, last_offset));
  failure_ = failure;
  cursor_ = Cursor::Failed;
  if (run_ != nullptr) run_->reset();
  release_streams();
}

// A statement stays prepared in the database where it ran last.
void StatementHandle::enter(Attachment& attachment) {
  const SqlText& text = prepared_text();
  parse_error_offset = 0;
  if (attachment_ == &attachment) return;
  // What was prepared in another database is of no use here, down to the types of its columns.
  drop_run();
  std::unique_ptr<Statement> run;
  std::unique_ptr<Block> block;
  if (text.is_block()) {
    uses_ = find_uses(text);
    block = std::make_unique<Block>(text, *attachment.connection);
  } else {
    run = attachment.connection->prepare(text);
  }
  held_.resize(binds_.size());
  streamed_.resize(binds_.size());
  // The last step that can fail; from here on the end of the session drops the run.
  attachment.statements.push_back(this);
  attachment_ = &attachment;
  run_ = std::move(run);
  block_ = std::move(block);
}

// Descriptors go with the run, because they point into its select list. Defines stay: they are the
// caller's wishes for the text, and are matched with the columns of the next database.
void StatementHandle::drop_run() noexcept {
  abandon_streams();
  cursor_ = Cursor::Closed;
  piece_.phase = Pieces::None;
  armed_ = false;
  failure_.reset();
  for (ParameterHandle* parameter : parameters_) {
    if (pool<ParameterHandle>.retire(parameter)) pool<ParameterHandle>.destroy(parameter);
  }
  parameters_.clear();
  run_.reset();
  block_.reset();
  held_.clear();
  streamed_.clear();
  if (attachment_ != nullptr) std::erase(attachment_->statements, this);
  attachment_ = nullptr;
}

void StatementHandle::drop_binds() noexcept {
  for (BindHandle* bind : binds_) {
    if (bind != nullptr && pool<BindHandle>.retire(bind)) pool<BindHandle>.destroy(bind);
  }
  binds_.clear();
}

void StatementHandle::drop_defines() noexcept {
  for (DefineHandle* define : defines_) {
    if (pool<DefineHandle>.retire(define)) pool<DefineHandle>.destroy(define);
  }
  defines_.clear();
  armed_ = false;
}

const std::vector<ColumnInfo>& StatementHandle::columns() const {
  static const std::vector<ColumnInfo> kNone;
  prepared_text();
  if (block_ != nullptr) return kNone;
  if (run_ == nullptr) fail(24338);
  return run_->columns();
}

ub4 StatementHandle::parameter_count() const {
  return static_cast<ub4>(columns().size());
}

// Made on demand and kept: callers ask for the same column again and never free a descriptor.
ParameterHandle& StatementHandle::parameter(ub4 position) {
  const std::vector<ColumnInfo>& all = columns();
  if (position == 0 || position > all.size()) fail(24334);
  // Room for all of them first: a push_back that failed would lose the descriptor just made.
  if (parameters_.empty()) parameters_.reserve(all.size());
  while (parameters_.size() < position) {
    auto* parameter = pool<ParameterHandle>.make();
    parameter->column = &all[parameters_.size()];
    parameters_.push_back(parameter);
  }
  return *parameters_[position - 1];
}

// A caller may bind anew while it still fetches: what the open query needs is in held_.
BindHandle& StatementHandle::bind(const BindHandle& wanted) {
  require_idle();
  if (wanted.position == 0 || wanted.position > binds_.size()) fail(1036);
  BindHandle*& place = binds_[wanted.position - 1];
  if (place == nullptr) {
    place = pool<BindHandle>.make(wanted);
  } else {
    *place = wanted;
  }
  return *place;
}

// Any position is taken, as a define may come before the select list is known.
DefineHandle& StatementHandle::define(const DefineHandle& wanted) {
  require_idle();
  // A row that waits for a buffer of the former variable has nowhere to go on.
  piece_.phase = Pieces::None;
  armed_ = false;
  const auto place = std::lower_bound(
      defines_.begin(), defines_.end(), wanted.position,
      [](const DefineHandle* define, ub4 position) { return define->position < position; });
  if (place != defines_.end() && (*place)->position == wanted.position) {
    **place = wanted;
    return **place;
  }
  const size_t index = static_cast<size_t>(place - defines_.begin());
  // Room first, so that the insertion below cannot fail and leave the new handle without an owner.
  defines_.reserve(defines_.size() + 1);
  DefineHandle* made = pool<DefineHandle>.make(wanted);
  defines_.insert(defines_.begin() + static_cast<std::ptrdiff_t>(index), made);
  return *made;
}

}  // namespace oci8
