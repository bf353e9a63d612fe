// A transfer counts in units of the value, whatever the client's buffer holds: the next place to
// read or write is exact even where a conversion ended in the middle of the buffer. A failure is
// final, the caller closes the transfer then.
#include "lob_transfer.h"

#include <algorithm>

#include "error.h"
#include "locator.h"

namespace oci8 {
namespace {

constexpr int kIllegalParameter = 24801;

// Where converted text passes through, on the stack: as much as the engine keeps together.
// In bytes that is one part of a large value (kLargePart): 32 KB of the caller's stack.
constexpr size_t kTextUnits = 16384;

bool same_value(const LargeName& left, const LargeName& right) {
  return left.id == right.id && left.stamp == right.stamp;
}

// As a whole or not at all.
// The engine makes each of its writes whole by itself; a converted piece may take several of them.
template <class Body>
void marked(Connection& connection, Body&& body) {
  connection.mark();
  try {
    body();
  } catch (...) {
    connection.return_to_mark();
    throw;
  }
  connection.release_mark();
}

}  // namespace

bool LobTransfer::open() const noexcept {
  const Locator* found = pool<Locator>.find(locator_);
  return open_ && found != nullptr && same_value(found->name, name_);
}

bool LobTransfer::continues(const Locator& locator, Direction direction) const noexcept {
  return locator_ == &locator && direction_ == direction && open();
}

void LobTransfer::begin(const Request& request) {
  name_ = request.locator->named();
  locator_ = request.locator;
  direction_ = request.direction;
  form_ = request.form;
  exact_ = request.exact;
  place_ = request.place;
  left_ = request.units;
  decoder_ = TextDecoder();
  open_ = true;
}

// A break between two operations of one call, which the engine does not hear of.
void LobTransfer::require_unbroken() const {
  if (!open_) fail(1013);
}

void LobTransfer::advance(size_t units) {
  place_ += units;
  left_ -= units;
}

// Whether there is more shows without asking for the size, unless the buffer ended first: a value
// that ends with the buffer must not cost its reader a further, empty call.
LobTransfer::Moved LobTransfer::read(Connection& connection, ub1* target, size_t room) {
  const size_t amount = form_ == LobForm::Units ? read_units(connection, target, room)
                                                : read_text(connection, target, room);
  if (left_ > 0) {
    const unsigned long long size = connection.large_size(name_);
    left_ = size > place_ ? std::min(left_, size - place_) : 0;
  }
  if (left_ > 0 && amount == 0) fail(kIllegalParameter);
  return {amount, left_ > 0};
}

size_t LobTransfer::read_units(Connection& connection, ub1* target, size_t room) {
  const auto units = static_cast<size_t>(std::min<unsigned long long>(left_, room / unit_size()));
  const size_t got = units == 0 ? 0 : connection.read_large(name_, place_, target, units);
  advance(got);
  if (got < units) left_ = 0;
  return got;
}

// Between several parts others may commit; a single one, which no view has to be kept for, is of
// one moment by itself.
size_t LobTransfer::read_text(Connection& connection, ub1* target, size_t room) {
  if (std::min<unsigned long long>(left_, room) <= kTextUnits) {
    return read_parts(connection, target, room);
  }
  size_t written = 0;
  connection.in_one_view([&] { written = read_parts(connection, target, room); });
  return written;
}

// No unit takes less than a byte of the room.
size_t LobTransfer::read_parts(Connection& connection, ub1* target, size_t room) {
  utext units[kTextUnits];
  size_t written = 0;
  while (left_ > 0 && written < room) {
    require_unbroken();
    const size_t wanted = std::min(room - written, kTextUnits);
    const auto asked = static_cast<size_t>(std::min<unsigned long long>(left_, wanted));
    // Units that the encoder leaves are read again by the next round or call: to keep them would
    // need more state between calls.
    const size_t got = connection.read_large(name_, place_, units, asked);
    // The value ends here, so that the half of a character at the end is known to be the last.
    if (got < asked) left_ = got;
    const Converted done =
        encode(form_, units, got, got == left_, target + written, room - written);
    advance(done.read);
    written += done.written;
    if (done.full) break;
  }
  return written;
}

LobTransfer::Moved LobTransfer::write(Connection& connection, const ub1* source, size_t size,
                                      bool last) {
  const unsigned long long before = place_;
  if (form_ == LobForm::Units) {
    if (size % unit_size() != 0) fail(kIllegalParameter);
    put(connection, source, size / unit_size(), last, &Connection::write_large);
  } else if (size < kTextUnits) {
    // So few bytes decode to fewer units than the buffer has, which makes it one write, whole by
    // itself.
    write_text(connection, source, size, last, &Connection::write_large);
  } else {
    marked(connection,
           [&] { write_text(connection, source, size, last, &Connection::write_part); });
  }
  return {static_cast<size_t>(place_ - before), !last};
}

void LobTransfer::write_text(Connection& connection, const ub1* source, size_t size, bool last,
                             Write put_units) {
  utext units[kTextUnits];
  for (bool whole = false; !whole;) {
    require_unbroken();
    const Converted done = decoder_.decode(form_, source, size, last, units, kTextUnits);
    source += done.read;
    size -= done.read;
    whole = !done.full;
    put(connection, units, done.written, last && whole, put_units);
  }
}

void LobTransfer::put(Connection& connection, const void* source, size_t units, bool last,
                      Write put_units) {
  if (exact_ && units > left_) fail(kIllegalParameter);
  if (exact_ && last && units < left_) fail(22993);
  // A last piece without bytes only closes the transfer.
  if (units > 0) (connection.*put_units)(name_, place_, source, units);
  advance(units);
}

size_t LobTransfer::bytes_of_all(const ub1* source, size_t size) const {
  if (form_ == LobForm::Units) {
    if (left_ > size / unit_size()) fail(kIllegalParameter);
    return static_cast<size_t>(left_) * unit_size();
  }
  // A trial run with a decoder of its own: how many bytes make up the announced characters shows
  // only by decoding them, and nothing may be written when they are too few.
  TextDecoder decoder;
  utext units[kTextUnits];
  size_t taken = 0;
  for (unsigned long long left = left_; left > 0;) {
    const auto room = static_cast<size_t>(std::min<unsigned long long>(left, kTextUnits));
    const Converted done = decoder.decode(form_, source + taken, size - taken, true, units, room);
    if (done.written == 0) fail(kIllegalParameter);
    taken += done.read;
    left -= done.written;
  }
  return taken;
}

}  // namespace oci8
