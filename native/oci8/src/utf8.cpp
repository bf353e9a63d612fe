// Validity is never asked for: a byte of the form 10xxxxxx continues, every other one begins a
// character (RFC 3629, section 3). What clients stored is counted, cut and searched as it is.
#include "utf8.h"

#include <algorithm>

#include "ascii.h"

namespace oci8 {
namespace {

// Capital letters from `first` to `last`, every `step`-th, each with its small letter `distance`
// behind it. All take two bytes.
struct CaseRange {
  unsigned first, last, step, distance;
};

// Ranges of the Unicode character database whose small letter has the same size in UTF-8. Letters
// outside of them (dotless i, sharp s) keep their case.
constexpr CaseRange kCaseRanges[] = {
    {0x0c0, 0x0d6, 1, 32}, {0x0d8, 0x0de, 1, 32}, {0x100, 0x12e, 2, 1},  {0x132, 0x136, 2, 1},
    {0x139, 0x147, 2, 1},  {0x14a, 0x176, 2, 1},  {0x179, 0x17d, 2, 1},  {0x386, 0x386, 1, 38},
    {0x388, 0x38a, 1, 37}, {0x38c, 0x38c, 1, 64}, {0x38e, 0x38f, 1, 63}, {0x391, 0x3a1, 1, 32},
    {0x3a3, 0x3ab, 1, 32}, {0x400, 0x40f, 1, 80}, {0x410, 0x42f, 1, 32}};

bool in_range(const CaseRange& range, unsigned code) {
  return code >= range.first && code <= range.last && (code - range.first) % range.step == 0;
}

unsigned with_case(unsigned code, bool upper_wanted) {
  for (const CaseRange& range : kCaseRanges) {
    if (!upper_wanted && in_range(range, code)) return code + range.distance;
    if (upper_wanted && code >= range.distance && in_range(range, code - range.distance)) {
      return code - range.distance;
    }
  }
  return code;
}

// The case of a character of two bytes at `at`.
void change_pair(char* at, bool upper_wanted) {
  const unsigned lead = static_cast<unsigned char>(at[0]) & 0x1f;
  const unsigned code =
      with_case(lead << 6 | (static_cast<unsigned char>(at[1]) & 0x3f), upper_wanted);
  at[0] = static_cast<char>(0xc0 | code >> 6);
  at[1] = static_cast<char>(0x80 | (code & 0x3f));
}

// Leads of two bytes from U+00C0 on; below it there are no letters.
bool is_pair(std::string_view character) {
  const auto lead = static_cast<unsigned char>(character[0]);
  return character.size() == 2 && lead >= 0xc3 && lead <= 0xdf;
}

// A character beyond ASCII is taken for a letter.
bool in_word(std::string_view character) {
  return is_letter(character[0]) || is_digit(character[0]) || character.size() > 1;
}

}  // namespace

std::string_view first_character(std::string_view text) {
  size_t size = 1;
  while (size < text.size() && is_continuation(text[size])) ++size;
  return text.substr(0, size);
}

// The first byte begins a character even where it is a continuation, as in first_character.
size_t count_characters(std::string_view text) {
  if (text.empty()) return 0;
  const auto rest = text.substr(1);
  const auto continued = std::count_if(rest.begin(), rest.end(), is_continuation);
  return text.size() - static_cast<size_t>(continued);
}

size_t character_offset(std::string_view text, size_t index) {
  size_t at = 0;
  for (; index > 0 && at < text.size(); --index) at += first_character(text.substr(at)).size();
  return at;
}

std::string_view characters(std::string_view text, size_t first, size_t count) {
  text.remove_prefix(character_offset(text, first));
  return text.substr(0, character_offset(text, count));
}

void change_case(std::string& text, LetterCase wanted) {
  bool word = false;
  for (size_t at = 0; at < text.size();) {
    const std::string_view character = first_character(std::string_view(text).substr(at));
    const bool to_upper = wanted == LetterCase::Upper || (wanted == LetterCase::Initial && !word);
    const size_t size = character.size();
    word = in_word(character);
    if (size == 1) {
      text[at] = to_upper ? upper(text[at]) : lower(text[at]);
    } else if (is_pair(character)) {
      change_pair(&text[at], to_upper);
    }
    at += size;
  }
}

}  // namespace oci8
