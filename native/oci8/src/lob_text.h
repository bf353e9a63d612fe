// Text between the characters of a CLOB, which are UCS-2 in machine byte order, and the bytes of a
// client's buffer. A character of two units that is not whole keeps its value, as three bytes of
// UTF-8 for each half, so that nothing is lost between ranges that were cut by units.
// UTF-8 is that of RFC 3629, except for these halves: the RFC forbids the codes D800 to DFFF, and a
// strict decoder would lose them. Nothing here allocates or fails; the caller's buffers limit each
// step, and what was not converted is left for the next one.
#ifndef OCI8_LOB_TEXT_H
#define OCI8_LOB_TEXT_H

#include <cstddef>

#include "oci.h"

namespace oci8 {

/// How the bytes of a client's buffer are to be read.
enum class LobForm : ub1 {
  Units,  // as the value keeps them: bytes of a BLOB, or UCS-2
  Utf8,
  Ascii  // a byte for each unit, '?' for what is not ASCII
};

/// How far a conversion came.
/// `read` counts what was taken from the source and `written` what was put into the target, each in
/// its own unit: bytes of a client's buffer, UCS-2 units of a CLOB.
struct Converted {
  size_t read = 0;
  size_t written = 0;
  bool full = false;  // the next character has no room
};

/// Encodes whole characters. Half a character at the end is left to a call that has its other half,
/// unless these are the `last` units.
Converted encode(LobForm form, const utext* units, size_t count, bool last, ub1* target,
                 size_t room);

/// Decodes a text that arrives in pieces, which may cut characters anywhere. Bytes that are no
/// UTF-8 become U+FFFD, one for each sequence.
class TextDecoder {
 public:
  /// `last` tells that no further bytes come: a character that is not whole then ends here.
  Converted decode(LobForm form, const ub1* bytes, size_t size, bool last, utext* target,
                   size_t room) noexcept;

 private:
  struct Sink;
  bool take(ub1 byte, Sink& sink) noexcept;
  bool begin(ub1 byte, Sink& sink) noexcept;

  unsigned code_ = 0;  // of the bytes so far of a character
  unsigned least_ = 0;  // the smallest code that is written with so many bytes
  unsigned missing_ = 0;  // bytes that the character still lacks
};

}  // namespace oci8

#endif
