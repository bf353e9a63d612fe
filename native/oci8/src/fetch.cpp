// Fetching: rows into arrays, and rows whose long columns are handed over in pieces.
// The interface's rules that shape this file: an array fetch reports one status for all its rows; a
// column may be defined for pieces only where the caller fetches row by row (ORA-24391 for more);
// and a failure of the engine ends the cursor, so that the same failure answers every further
// fetch.
#include <algorithm>
#include <cstring>

#include "guard.h"
#include "statement.h"

namespace oci8 {
namespace {

constexpr int kFetchOutOfSequence = 1002;
constexpr int kPieceBufferRequired = 3130;

}  // namespace

// A fetch in the middle of a row in pieces goes on with that row: the interface has the caller
// repeat the same call with each buffer.
sword StatementHandle::fetch(ub4 rows, ErrorRecord& record) {
  require_idle();
  if (rows == 0) {
    close_cursor();
    return OCI_SUCCESS;
  }
  if (attachment_ == nullptr) {
    // A cursor that has left its database can only tell what ended it.
    check_fetch();
    fail(kFetchOutOfSequence);
  }
  // A fetch reads through the connection on which a LOB's transfer is under way.
  attachment_->require_idle();
  breaks_ = attachment_->breaks;
  return fetch_on(rows, record);
}

sword StatementHandle::fetch_on(ub4 rows, ErrorRecord& record) {
  if (piece_.phase == Pieces::BufferOffered) return fill_piece(record);
  if (piece_.phase == Pieces::BufferDue) fail(kFetchOutOfSequence);
  check_fetch();
  if (!has_pieces_) return fetch_rows(rows, record);
  if (rows > 1) fail(24391);
  return fetch_in_pieces(record);
}

void StatementHandle::check_fetch() {
  if (cursor_ == Cursor::Failed) throw *failure_;
  if (cursor_ == Cursor::Closed) fail(kFetchOutOfSequence);
  if (defines_.empty()) fail(24374);
  if (!armed_) arm();
}

// Once for all rows of a run: each variable is matched with its column, and gets its conversion
// where the column's type is not that of the run before.
void StatementHandle::arm() {
  const std::vector<ColumnInfo>& all = columns();
  has_pieces_ = false;
  for (DefineHandle* define : defines_) {
    if (define->position > all.size()) fail(1007);
    const ub2 internal = all[define->position - 1].type;
    if (define->internal != internal) {
      define->convert = find_converter(define->type, define->room, internal);
      define->internal = internal;
    }
    const bool possible = define->in_pieces ? fetchable_in_pieces(define->type, internal)
                                            : define->convert != nullptr;
    if (!possible) fail(932);
    has_pieces_ = has_pieces_ || define->in_pieces;
  }
  armed_ = true;
}

bool StatementHandle::step() {
  try {
    // The engine knows of a break only while it makes a row, and not between two of them.
    if (breaks_ != attachment_->breaks) fail(1013);
    if (run_->step()) return true;
  } catch (const Failure& failure) {
    // An engine may start again from the first row at the next step: never take that step.
    remember(failure);
    throw;
  }
  cursor_ = Cursor::AtEnd;
  run_->reset();
  return false;
}

bool StatementHandle::next_row() {
  if (cursor_ == Cursor::AtEnd) return false;
  if (cursor_ != Cursor::AtRow && !step()) return false;
  cursor_ = Cursor::PastRow;
  // Two steps instead of one atomic addition, as this thread is the only one that writes.
  row_count.store(row_count.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  return true;
}

// An open query keeps its view of the database. Callers that know how many rows there are fetch no
// further, so the end is found, and the view given back, with the last row.
void StatementHandle::look_ahead() {
  try {
    cursor_ = step() ? Cursor::AtRow : Cursor::AtEnd;
  } catch (const Failure&) {
    // The rows so far are good: the failure is kept for the fetch that comes to it.
  }
}

// A row with an error is handed over as far as it goes and counts; it is the last one of its call.
sword StatementHandle::fetch_rows(ub4 rows, ErrorRecord& record) {
  int information = 0;
  for (size_t row = 0; row < rows; ++row) {
    if (!next_row()) return note(record, OCI_NO_DATA, kNoDataFound);
    const int code = store_row(row);
    if (code != 0 && code != kCutWithInfo) fail(code);
    if (code != 0) information = code;
  }
  // Prefetch 0 is the caller's way to say that nothing beyond the asked rows may be read.
  if (prefetch_rows > 0) look_ahead();
  return told(record, information);
}

// The first error of the row, or else the code of a column that was cut, or 0.
int StatementHandle::store_row(size_t row) {
  int result = 0;
  const std::span<const Value> values = run_->row();
  for (const DefineHandle* define : defines_) {
    if (define->in_pieces) continue;
    const Value& value = values[define->position - 1];
    const int code = value.kind == Value::Kind::Large
                         ? define->store(begin_of_long(*define, value), row)
                         : define->store(value, row);
    if (code != 0) keep_worst(result, code);
  }
  return result;
}

// As much of a large LONG as its variable can show, with the size of the whole. No number and no
// date is so long, and a LOB is left to its locator.
Value StatementHandle::begin_of_long(const DefineHandle& define, const Value& value) {
  const ub2 type = columns()[define.position - 1].type;
  const bool is_lob = type != SQLT_LNG && type != SQLT_LBI;
  if (is_lob || !arrives_in_pieces(define.type)) return value;
  Value begin;
  begin.kind = type == SQLT_LNG ? Value::Kind::Text : Value::Kind::Bytes;
  const unsigned long long size = attachment_->connection->large_size(value.large);
  begin.size = static_cast<size_t>(size);
  const size_t room = std::min(begin.size, define.room);
  char* target = begin_.make_room(room);
  if (attachment_->connection->read_large(value.large, 0, target, room) != room) fail(22922);
  begin.data = target;
  return begin;
}

void StatementHandle::close_cursor() noexcept {
  piece_.phase = Pieces::None;
  // The next run may find its columns with other types: another session has made the table anew.
  armed_ = false;
  cursor_ = Cursor::Closed;
  failure_.reset();
  if (run_ != nullptr) run_->reset();
}

// The row counts as soon as it stands, like its ordinary columns, which are in place before the
// first piece is asked for.
sword StatementHandle::fetch_in_pieces(ErrorRecord& record) {
  if (!next_row()) return note(record, OCI_NO_DATA, kNoDataFound);
  row_information_ = store_row(0);
  if (row_information_ != 0 && row_information_ != kCutWithInfo) fail(row_information_);
  return begin_pieces(0, record);
}

// Goes on to the next column in pieces, from defines_[define]; the row is complete without one.
sword StatementHandle::begin_pieces(size_t define, ErrorRecord& record) {
  // The buffer of the column before is the caller's again, and forgotten.
  piece_ = PieceState();
  while (define < defines_.size() && !defines_[define]->in_pieces) ++define;
  if (define == defines_.size()) return told(record, row_information_);
  const Value& value = run_->row()[defines_[define]->position - 1];
  piece_.null = value.kind == Value::Kind::Null;
  // A text column of the engine may hold a number in some row, of which there are no bytes to hand
  // over. Large characters would be counted where bytes are.
  const bool number = value.kind == Value::Kind::Integer || value.kind == Value::Kind::Real;
  if (number || value.large.unit == LargeName::Unit::Character) fail(932);
  piece_.large = value.large;
  piece_.total = value.size;
  if (value.kind == Value::Kind::Large) {
    piece_.total = static_cast<size_t>(attachment_->connection->large_size(value.large));
  }
  piece_.left = piece_.total;
  piece_.define = define;
  piece_.first = true;
  piece_.phase = Pieces::BufferDue;
  return note(record, OCI_NEED_DATA, kPieceBufferRequired);
}

// From the engine's memory, where the value may have moved since the piece before; or a large value
// straight from the database, where it stays as it was when the row was read until this session
// changes something. A row whose piece cannot be read is abandoned.
void StatementHandle::copy_piece(size_t length) {
  ub1* target = piece_.buffer.data;
  const size_t place = piece_.total - piece_.left;
  if (piece_.large.id == 0) {
    const Value& value = run_->row()[defines_[piece_.define]->position - 1];
    std::memcpy(target, value.data + place, length);
    return;
  }
  piece_.phase = Pieces::None;
  if (attachment_->connection->read_large(piece_.large, place, target, length) != length) {
    fail(22922);
  }
}

// A value that ends with the buffer ends with this piece: callers take a further, empty one for the
// beginning of the next column.
sword StatementHandle::fill_piece(ErrorRecord& record) {
  const PieceBuffer& buffer = piece_.buffer;
  const size_t length = std::min<size_t>(piece_.left, *buffer.length);
  if (length == 0 && piece_.left > 0) {
    // Without room the row would never end.
    piece_.phase = Pieces::None;
    fail(1459);
  }
  if (length > 0) copy_piece(length);
  *buffer.length = static_cast<ub4>(length);
  piece_.left -= length;
  piece_.first = false;
  if (piece_.left == 0) return end_pieces(record);
  store_fine(buffer.indicator, nullptr, buffer.code, length);
  piece_.phase = Pieces::BufferDue;
  return note(record, OCI_NEED_DATA, kPieceBufferRequired);
}

// Callers that reset the define's indicator before each piece find it set after the last one.
sword StatementHandle::end_pieces(ErrorRecord& record) {
  const DefineHandle& define = *defines_[piece_.define];
  sb2* indicator = piece_.buffer.indicator != nullptr ? piece_.buffer.indicator : define.indicators;
  ub2* code = piece_.buffer.code != nullptr ? piece_.buffer.code : define.codes;
  const int result = piece_.null ? store_null(indicator, define.lengths, code) : 0;
  if (result != 0) {
    piece_.phase = Pieces::None;
    fail(result);
  }
  if (!piece_.null) store_fine(indicator, define.lengths, code, piece_.total);
  return begin_pieces(piece_.define + 1, record);
}

DefineHandle& StatementHandle::due_piece(bool& first) const {
  if (piece_.phase == Pieces::None) fail(kFetchOutOfSequence);
  first = piece_.first;
  return *defines_[piece_.define];
}

void StatementHandle::offer_buffer(const DefineHandle& define, const PieceBuffer& buffer) {
  if (piece_.phase == Pieces::None || defines_[piece_.define] != &define) {
    fail(kFetchOutOfSequence);
  }
  if (buffer.length == nullptr || (buffer.data == nullptr && *buffer.length > 0)) fail(24328);
  piece_.buffer = buffer;
  piece_.phase = Pieces::BufferOffered;
}

}  // namespace oci8
