// Characters of UTF-8 text, the database's character set. Bytes that are no valid UTF-8 count as
// characters of their own where they stand first, so that every text has a length and a case.
// Used where the server counts characters: LENGTH, SUBSTR, INSTR, LPAD and their kin. Sizes of
// columns are bytes and need nothing from here. Positions are found by walking from the front: the
// text keeps no index of its characters.
#ifndef OCI8_UTF8_H
#define OCI8_UTF8_H

#include <string>
#include <string_view>

namespace oci8 {

/// Of a character of several bytes, every byte but the first.
inline bool is_continuation(char c) {
  return (static_cast<unsigned char>(c) & 0xc0) == 0x80;
}

/// The number of characters, a continuation byte at the very beginning included.
size_t count_characters(std::string_view text);

/// Byte offset of the character `index` (from 0); the size of the text beyond its end.
size_t character_offset(std::string_view text, size_t index);

/// The first character of a text that is not empty.
std::string_view first_character(std::string_view text);

/// `count` characters from `first` (from 0) on.
std::string_view characters(std::string_view text, size_t first, size_t count);

enum class LetterCase { Upper, Lower, Initial /* of each word */ };

/// Changes the case of ASCII, Latin-1, Latin Extended-A, Greek and Cyrillic letters. None of them
/// changes its size, so the text is changed in its place.
void change_case(std::string& text, LetterCase wanted);

}  // namespace oci8

#endif
