// Both directions are loops over an ASCII stretch and then one character, so that plain text runs
// at the speed of a copy with a comparison. The codes above FFFF stand as two units in a CLOB (a
// high half D800-DBFF and a low half DC00-DFFF) and as four bytes in UTF-8.
#include "lob_text.h"

#include <algorithm>

#include "utf8.h"

namespace oci8 {
namespace {

constexpr unsigned kReplacement = 0xfffd;
constexpr unsigned kFirstOfTwo = 0x10000;  // the first code that takes two units
constexpr unsigned kLastCode = 0x10ffff;

bool is_high(unsigned unit) {
  return unit >= 0xd800 && unit <= 0xdbff;
}

bool is_low(unsigned unit) {
  return unit >= 0xdc00 && unit <= 0xdfff;
}

ub1 to_ascii(unsigned unit) {
  return static_cast<ub1>(unit < 0x80 ? unit : '?');
}

size_t encoded_size(unsigned code) {
  if (code < 0x80) return 1;
  if (code < 0x800) return 2;
  return code < kFirstOfTwo ? 3 : 4;
}

// The last bytes first: what is left of the code in the end goes with the mark of the length.
void put_utf8(unsigned code, size_t size, ub1* target) {
  constexpr unsigned kMarks[] = {0, 0, 0xc0, 0xe0, 0xf0};
  for (size_t i = size - 1; i > 0; --i) {
    target[i] = static_cast<ub1>(0x80 | (code & 0x3f));
    code >>= 6;
  }
  target[0] = static_cast<ub1>(kMarks[size] | code);
}

// Most text is ASCII for long stretches, which are worth a loop of their own both ways.
template <class From, class To>
size_t copy_ascii(const From* source, To* target, size_t count) {
  size_t copied = 0;
  for (; copied < count && source[copied] < 0x80; ++copied) {
    target[copied] = static_cast<To>(source[copied]);
  }
  return copied;
}

Converted encode_utf8(const utext* units, size_t count, bool last, ub1* target, size_t room) {
  Converted done;
  for (;;) {
    const size_t plain = copy_ascii(units + done.read, target + done.written,
                                    std::min(count - done.read, room - done.written));
    done.read += plain;
    done.written += plain;
    if (done.read == count) break;
    unsigned code = units[done.read];
    size_t width = 1;
    if (is_high(code)) {
      const bool at_end = done.read + 1 == count;
      // The low half may be the first unit of the next part: encoding the high half alone now would
      // make two wrong characters of one. Whatever it is, it takes three bytes or more.
      if (at_end && !last) {
        done.full = room - done.written < 3;
        break;
      }
      if (!at_end && is_low(units[done.read + 1])) {
        code = kFirstOfTwo + ((code - 0xd800) << 10) + (units[done.read + 1] - 0xdc00U);
        width = 2;
      }
    }
    const size_t size = encoded_size(code);
    done.full = size > room - done.written;
    if (done.full) break;
    put_utf8(code, size, target + done.written);
    done.written += size;
    done.read += width;
  }
  return done;
}

}  // namespace

Converted encode(LobForm form, const utext* units, size_t count, bool last, ub1* target,
                 size_t room) {
  if (form == LobForm::Utf8) return encode_utf8(units, count, last, target, room);
  const size_t size = std::min(count, room);
  std::transform(units, units + size, target, to_ascii);
  return {size, size, size < count};
}

/// Where decoded units go.
struct TextDecoder::Sink {
  // False, and nothing is put, where the character has no room.
  bool put(unsigned code) {
    const size_t width = code < kFirstOfTwo ? 1 : 2;
    if (width > room - written) return false;
    if (width == 2) {
      code -= kFirstOfTwo;
      target[written++] = static_cast<utext>(0xd800 | code >> 10);
      code = 0xdc00 | (code & 0x3ff);
    }
    target[written++] = static_cast<utext>(code);
    return true;
  }

  utext* target;
  size_t room;
  size_t written;
};

// The first byte of a character. False where its unit has no room.
bool TextDecoder::begin(ub1 byte, Sink& sink) noexcept {
  if (byte < 0x80) return sink.put(byte);
  // C0 and C1 could only begin overlong forms of ASCII, F5 and more only codes beyond 10FFFF (RFC
  // 3629, section 3); 80 to BF begin nothing.
  if (byte < 0xc2 || byte > 0xf4) return sink.put(kReplacement);
  missing_ = byte < 0xe0 ? 1 : byte < 0xf0 ? 2 : 3;
  // The lead byte has its code in five, four or three low bits.
  code_ = byte & (0x3fU >> missing_);
  least_ = missing_ == 1 ? 0x80 : missing_ == 2 ? 0x800 : kFirstOfTwo;
  return true;
}

// False, and nothing has changed, where what the byte completes has no room. Halves of characters
// of two units are let through: see the top of the header.
bool TextDecoder::take(ub1 byte, Sink& sink) noexcept {
  if (missing_ == 0) return begin(byte, sink);
  const unsigned code = code_ << 6 | (byte & 0x3fU);
  if (missing_ == 1) {
    // An overlong form is refused as a whole when its last byte is here: different bytes must not
    // mean the same text.
    const bool valid = code >= least_ && code <= kLastCode;
    if (!sink.put(valid ? code : kReplacement)) return false;
  }
  code_ = code;
  --missing_;
  return true;
}

Converted TextDecoder::decode(LobForm form, const ub1* bytes, size_t size, bool last, utext* target,
                              size_t room) noexcept {
  if (form == LobForm::Ascii) {
    const size_t count = std::min(size, room);
    std::transform(bytes, bytes + count, target, to_ascii);
    return {count, count, count < size};
  }
  Sink sink{target, room, 0};
  size_t read = 0;
  // Without room for a unit no byte is taken, so that bytes and units can be matched.
  while (read < size && sink.written < room) {
    if (missing_ == 0) {
      const size_t plain = copy_ascii(bytes + read, target + sink.written,
                                      std::min(size - read, room - sink.written));
      read += plain;
      sink.written += plain;
      if (read == size || sink.written == room) break;
    }
    // A character that breaks off is told from the one that begins in its place.
    if (missing_ > 0 && !is_continuation(static_cast<char>(bytes[read]))) {
      if (!sink.put(kReplacement)) return {read, sink.written, true};
      missing_ = 0;
    }
    if (!take(bytes[read], sink)) return {read, sink.written, true};
    ++read;
  }
  if (read < size) return {read, sink.written, true};
  const bool breaks_off = last && missing_ > 0;
  if (breaks_off && !sink.put(kReplacement)) return {read, sink.written, true};
  if (breaks_off) missing_ = 0;
  return {read, sink.written, false};
}

}  // namespace oci8
