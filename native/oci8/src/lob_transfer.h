// Reads and writes of a LOB, which may take several calls with a buffer each: the interface calls
// that polling. A session has one such transfer at a time, and does nothing else while it is open.
// The state lives in the attachment (handles.h), not in the locator, because it is the session that
// is busy. oci_lob.cpp turns a call's arguments into a Request; the engine moves the units.
#ifndef OCI8_LOB_TRANSFER_H
#define OCI8_LOB_TRANSFER_H

#include <atomic>
#include <cstddef>

#include "engine.h"
#include "lob_text.h"

namespace oci8 {

struct Locator;

class LobTransfer {
 public:
  enum class Direction : ub1 { Read, Write };

  /// What a transfer is to do. Places count from 0, in units of the value.
  struct Request {
    const Locator* locator;
    Direction direction;
    LobForm form;
    unsigned long long place;
    unsigned long long units;
    bool exact;  // a write of so many units, neither more nor fewer
  };

  /// What one call moved: bytes where a read was converted, else units.
  struct Moved {
    size_t amount;
    bool more;  // a read has more to give than the buffer held
  };

  /// Whether further calls are due. A transfer is over as well when its locator is freed or gets
  /// another name: nothing could go on with it.
  bool open() const noexcept;
  /// Whether a call with these belongs to the open transfer.
  bool continues(const Locator& locator, Direction direction) const noexcept;
  /// Ends an open transfer, what it has moved stays moved. Any thread.
  void end() noexcept { open_ = false; }

  /// Opens a transfer, in the place of one that was open. ORA-22275 for a locator that names
  /// nothing. Moves nothing yet.
  void begin(const Request& request);

  /// Fills the buffer. ORA-24801 for one without room for a single character.
  Moved read(Connection& connection, ub1* target, size_t room);

  /// Writes a piece, all of it or nothing. A character that its end cuts comes with the next piece.
  /// ORA-24801 for more units than were announced and for half a unit, ORA-22993 for fewer with the
  /// `last` piece.
  Moved write(Connection& connection, const ub1* source, size_t size, bool last);

  /// How many of the buffer's bytes make up the units of an exact write. ORA-24801 where it has too
  /// few.
  size_t bytes_of_all(const ub1* source, size_t size) const;

 private:
  size_t unit_size() const { return name_.unit == LargeName::Unit::Character ? sizeof(utext) : 1; }
  void require_unbroken() const;
  void advance(size_t units);
  size_t read_units(Connection& connection, ub1* target, size_t room);
  size_t read_text(Connection& connection, ub1* target, size_t room);
  size_t read_parts(Connection& connection, ub1* target, size_t room);
  /// Connection::write_large, or write_part under a mark.
  using Write = void (Connection::*)(const LargeName&, unsigned long long, const void*, size_t);

  void write_text(Connection& connection, const ub1* source, size_t size, bool last,
                  Write put_units);
  void put(Connection& connection, const void* source, size_t units, bool last, Write put_units);

  std::atomic<bool> open_{false};  // also cleared by a break from another thread
  Direction direction_ = Direction::Read;
  LobForm form_ = LobForm::Units;
  bool exact_ = false;
  const Locator* locator_ = nullptr;
  // Of the value when the transfer began: a locator that has come to name another value does not go
  // on with it.
  LargeName name_;
  unsigned long long place_ = 0;
  unsigned long long left_ = 0;  // units
  TextDecoder decoder_;
};

}  // namespace oci8

#endif
