// A statement's life up to its first row; fetch.cpp has the rest.
#include "statement.h"

#include <algorithm>
#include <limits>

namespace oci8 {

StatementHandle::~StatementHandle() {
  drop_run();
  drop_defines();
}

// Unprepared while the text changes: without memory for it the handle is empty, not stale.
void StatementHandle::prepare(std::string_view sql) {
  drop_run();
  drop_defines();
  prepared_ = false;
  row_count = 0;
  parse_error_offset = 0;
  text_ = tokenize(sql);
  prepared_ = true;
}

const SqlText& StatementHandle::prepared_text() const {
  if (!prepared_) fail(24337);
  return text_;
}

void StatementHandle::describe(Attachment& attachment) {
  try {
    enter(attachment);
  } catch (const Failure& failure) {
    remember(failure);
    throw;
  }
}

// Rows that are fetched along are outside of the remembering part: a value that does not fit its
// variable fails the call but does not end the cursor.
sword StatementHandle::execute(Attachment& attachment, ub4 iterations, bool commit,
                               ErrorRecord& record) {
  piece_.phase = Pieces::None;
  row_count = 0;
  try {
    start(attachment, iterations);
  } catch (const Failure& failure) {
    remember(failure);
    throw;
  }
  if (text_.type == OCI_STMT_SELECT) {
    return iterations > 0 ? fetch(iterations, record) : OCI_SUCCESS;
  }
  if (commit) attachment.connection->commit();
  return OCI_SUCCESS;
}

// Callers that fetch after an execute whose status they did not look at are told what went wrong
// there: the cursor keeps the failure.
void StatementHandle::remember(const Failure& failure) {
  const int last_offset = std::numeric_limits<ub2>::max();
  parse_error_offset = static_cast<ub2>(std::clamp(failure.offset, 0, last_offset));
  failure_ = failure;
  cursor_ = Cursor::Failed;
  if (run_ != nullptr) run_->reset();
}

// A statement stays prepared in the database where it ran last.
void StatementHandle::enter(Attachment& attachment) {
  prepared_text();
  parse_error_offset = 0;
  if (text_.type == OCI_STMT_BEGIN || text_.type == OCI_STMT_DECLARE) fail(3001);
  if (attachment_ == &attachment) return;
  drop_run();
  std::unique_ptr<Statement> run = attachment.connection->prepare(text_);
  attachment.statements.push_back(this);
  attachment_ = &attachment;
  run_ = std::move(run);
}

void StatementHandle::start(Attachment& attachment, ub4 iterations) {
  prepared_text();
  const bool query = text_.type == OCI_STMT_SELECT;
  if (!query && iterations == 0) fail(24333);
  enter(attachment);
  if (!text_.placeholders.empty()) fail(1008);
  close_cursor();
  if (!query) return run_changes(iterations);
  // The first step belongs to the execute: it fixes the state of the database that the rows are
  // read from, and brings up what is wrong with the query.
  cursor_ = step() ? Cursor::AtRow : Cursor::AtEnd;
}

// Each iteration takes effect by itself; after a failure the row count tells how many rows the
// iterations before it changed.
void StatementHandle::run_changes(ub4 iterations) {
  for (ub4 i = 0; i < iterations; ++i) {
    while (run_->step()) {
    }
    row_count += run_->rows_changed();
    run_->reset();
  }
}

// Descriptors go with the run, because they point into its select list. Defines stay: they are the
// caller's wishes for the text, and get their conversions anew in the next database.
void StatementHandle::drop_run() noexcept {
  cursor_ = Cursor::Closed;
  piece_.phase = Pieces::None;
  armed_ = false;
  failure_.reset();
  for (ParameterHandle* parameter : parameters_) {
    if (pool<ParameterHandle>.retire(parameter)) pool<ParameterHandle>.destroy(parameter);
  }
  parameters_.clear();
  run_.reset();
  if (attachment_ != nullptr) std::erase(attachment_->statements, this);
  attachment_ = nullptr;
}

void StatementHandle::drop_defines() noexcept {
  for (DefineHandle* define : defines_) {
    if (pool<DefineHandle>.retire(define)) pool<DefineHandle>.destroy(define);
  }
  defines_.clear();
  armed_ = false;
}

const std::vector<ColumnInfo>& StatementHandle::columns() const {
  prepared_text();
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
  if (parameters_.empty()) parameters_.reserve(all.size());
  while (parameters_.size() < position) {
    auto* parameter = pool<ParameterHandle>.make();
    parameter->column = &all[parameters_.size()];
    parameters_.push_back(parameter);
  }
  return *parameters_[position - 1];
}

// Any position is taken, as a define may come before the select list is known.
DefineHandle& StatementHandle::define(const DefineHandle& wanted) {
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
  defines_.reserve(defines_.size() + 1);
  DefineHandle* made = pool<DefineHandle>.make(wanted);
  defines_.insert(defines_.begin() + static_cast<std::ptrdiff_t>(index), made);
  return *made;
}

}  // namespace oci8
