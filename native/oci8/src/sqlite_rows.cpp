// A row is the values of its columns one after another, each a kind with what belongs to it. Blocks
// hold whole rows, so that a row in memory is all that has to be looked at.
#include "sqlite_rows.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "error.h"

namespace oci8 {
namespace {

using Kind = Value::Kind;

// One is added to while another is read: together what a query may take of the memory.
constexpr size_t kBlock = size_t{8} << 20;

template <class T>
void append(std::string& bytes, const T& value) {
  bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

[[noreturn]] void fail_with_cause(int code, int cause) {
  throw Failure{code, error_text(code) + std::generic_category().message(cause) + '\n'};
}

// The place in the file is given with each part: a process that forks shares any other with its
// child.
template <class Part, class Byte>
void transfer(Part&& part, int code, std::FILE* file, Byte* bytes, size_t size, long long place) {
  while (size > 0) {
    const ssize_t done = part(fileno(file), bytes, size, place);
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0) fail_with_cause(code, done < 0 ? errno : EIO);
    bytes += done;
    size -= static_cast<size_t>(done);
    place += done;
  }
}

}  // namespace

void KeptRows::add(Statement& query) {
  const size_t before = added_.size();
  try {
    for (const Value& value : query.row()) put(value);
  } catch (...) {
    added_.resize(before);
    throw;
  }
  if (added_.size() >= kBlock) write_block();
}

void KeptRows::put(const Value& value) {
  append(added_, value.kind);
  switch (value.kind) {
    case Kind::Null:
      return;
    case Kind::Integer:
      return append(added_, value.integer);
    case Kind::Real:
      return append(added_, value.real);
    case Kind::Large:
      append(added_, value.large.id);
      append(added_, value.large.stamp);
      return append(added_, value.large.unit);
    case Kind::Text:
    case Kind::Bytes:
      append(added_, value.size);
      added_.append(value.data, value.size);
  }
}

bool KeptRows::next() {
  if (at_ == taken_.size()) {
    at_ = 0;
    taken_.clear();
    if (block_ < blocks_.size()) {
      read_block();
    } else {
      taken_.swap(added_);
    }
  }
  if (taken_.empty() && failure_ != nullptr) std::rethrow_exception(failure_);
  if (taken_.empty()) return false;
  for (Value& value : row_) value = take();
  return true;
}

Value KeptRows::take() {
  Value value;
  value.kind = take_as<Kind>();
  switch (value.kind) {
    case Kind::Null:
      break;
    case Kind::Integer:
      value.integer = take_as<long long>();
      break;
    case Kind::Real:
      value.real = take_as<double>();
      break;
    case Kind::Large:
      value.large.id = take_as<long long>();
      value.large.stamp = take_as<long long>();
      value.large.unit = take_as<LargeName::Unit>();
      break;
    case Kind::Text:
    case Kind::Bytes:
      value.size = take_as<size_t>();
      value.data = take_bytes(value.size);
  }
  return value;
}

template <class T>
T KeptRows::take_as() {
  T value;
  std::memcpy(&value, take_bytes(sizeof value), sizeof value);
  return value;
}

const char* KeptRows::take_bytes(size_t size) {
  // Only a file that was damaged leads here.
  if (size > taken_.size() - at_) fail(1115);
  const char* bytes = taken_.data() + at_;
  at_ += size;
  return bytes;
}

// Rows that cannot be written stay in memory, and nothing follows them.
void KeptRows::write_block() {
  if (file_ == nullptr) file_.reset(std::tmpfile());
  if (file_ == nullptr) fail_with_cause(1652, errno);
  transfer(pwrite, 1652, file_.get(), added_.data(), added_.size(), end_);
  blocks_.push_back(added_.size());
  end_ += static_cast<long long>(added_.size());
  added_.clear();
}

void KeptRows::read_block() {
  taken_.resize(blocks_[block_]);
  transfer(pread, 1115, file_.get(), taken_.data(), taken_.size(), read_end_);
  read_end_ += static_cast<long long>(taken_.size());
  ++block_;
}

}  // namespace oci8
