// Positions and lengths count characters of UTF-8 (utf8.h), limits count bytes. Nothing relies on
// valid UTF-8: text that a client stored broken is still cut, padded and searched.
#include <algorithm>
#include <cstdlib>
#include <limits>

#include "ascii.h"
#include "decimal.h"
#include "error.h"
#include "sqlite_call.h"
#include "type_limits.h"
#include "utf8.h"

namespace oci8 {
namespace {

// The optional argument `index`, or `otherwise`.
// SQLite checks the number of arguments against the table below: a missing one is optional.
int integer_or(const Call& call, int index, int otherwise) {
  return index < call.count() ? call.integer(index) : otherwise;
}

void append(std::string& out, std::string_view part) {
  if (part.size() > kMaxText - std::min(out.size(), kMaxText)) fail(1489);
  out += part;
}

// What positions and lengths count.
enum class Unit : ub1 { Character, Byte };

size_t length_in(Unit unit, std::string_view text) {
  return unit == Unit::Byte ? text.size() : count_characters(text);
}

// Blanks stand for the bytes of characters that are cut through.
std::string bytes_from(std::string_view text, size_t first, size_t count) {
  std::string part(text.substr(std::min(first, text.size()), count));
  for (size_t i = 0; i < part.size() && is_continuation(part[i]); ++i) part[i] = ' ';
  const size_t end = first + part.size();
  bool cut = end < text.size() && is_continuation(text[end]);
  for (size_t i = part.size(); cut && i-- > 0;) {
    cut = is_continuation(part[i]);
    part[i] = ' ';
  }
  return part;
}

// Position 0 is the first character, a negative one counts from the end.
template <Unit unit>
void substr(Call& call) {
  if (call.any_null()) return;
  const TextArgument text(call, 0);
  const int position = call.integer(1);
  const int count = integer_or(call, 2, std::numeric_limits<int>::max());
  // No character is NULL on the server.
  if (count < 1) return;
  // Unsigned from here on: a negative position is turned into one from the front below.
  size_t first = position > 0 ? static_cast<size_t>(position) - 1 : 0;
  if (position < 0) {
    const size_t length = length_in(unit, text.view());
    const auto back = static_cast<size_t>(-static_cast<long long>(position));
    if (back > length) return;
    first = length - back;
  }
  const auto wanted = static_cast<size_t>(count);
  if (unit == Unit::Byte) return call.give_text(bytes_from(text.view(), first, wanted));
  call.give_text(characters(text.view(), first, wanted));
}

// Byte offset of the `occurrence`-th place of `part` from the byte `from` on, going backwards where
// `backwards`; npos where there are fewer.
size_t find_occurrence(std::string_view text, std::string_view part, size_t from, int occurrence,
                       bool backwards) {
  size_t found = backwards ? text.rfind(part, from) : text.find(part, from);
  while (found != std::string_view::npos && --occurrence > 0) {
    if (backwards && found == 0) return std::string_view::npos;
    // Occurrences may overlap, as the server counts them: 'aa' is in 'aaa' twice.
    found = backwards ? text.rfind(part, found - 1) : text.find(part, found + 1);
  }
  return found;
}

// Positions are characters and offsets are bytes: the search itself runs on bytes, which is right
// for UTF-8, where no character begins within another.
template <Unit unit>
void instr(Call& call) {
  if (call.any_null()) return;
  const TextArgument text(call, 0), part(call, 1);
  const int position = integer_or(call, 2, 1), occurrence = integer_or(call, 3, 1);
  if (occurrence < 1) fail(1428, std::to_string(occurrence));
  const size_t length = length_in(unit, text.view());
  const auto distance = static_cast<size_t>(std::abs(static_cast<long long>(position)));
  // INSTR from position 0, or from beyond the text, finds nothing on the server.
  if (distance == 0 || distance > length) return call.give_integer(0);
  const bool backwards = position < 0;
  const size_t index = backwards ? length - distance : distance - 1;
  const size_t start = unit == Unit::Byte ? index : character_offset(text.view(), index);
  const size_t found = find_occurrence(text.view(), part.view(), start, occurrence, backwards);
  if (found == std::string_view::npos) return call.give_integer(0);
  call.give_integer(static_cast<long long>(length_in(unit, text.view().substr(0, found))) + 1);
}

template <Unit unit>
void length(Call& call) {
  if (call.is_null(0)) return;
  call.give_integer(static_cast<long long>(length_in(unit, TextArgument(call, 0).view())));
}

// The text cut or filled with `pad` to so many characters; never longer than a value may be.
void pad_text(Call& call, bool left) {
  if (call.any_null()) return;
  const TextArgument text(call, 0);
  const int wanted = std::min(call.integer(1), static_cast<int>(kMaxText));
  if (wanted < 1) return;
  const auto width = static_cast<size_t>(wanted);
  const size_t length = count_characters(text.view());
  if (length >= width) return call.give_text(characters(text.view(), 0, width));
  std::string fill;
  const std::string pad = call.count() > 2 ? std::string(TextArgument(call, 2).view()) : " ";
  const size_t pad_length = count_characters(pad);
  for (size_t missing = width - length; missing > 0;) {
    const size_t count = std::min(missing, pad_length);
    const std::string_view piece = characters(pad, 0, count);
    // Characters may take several bytes: the result ends where a VARCHAR2 does, also short of its
    // width.
    if (fill.size() + text.view().size() + piece.size() > kMaxText) break;
    fill += piece;
    missing -= count;
  }
  if (left) return call.give_text(fill.append(text.view()));
  call.give_text(fill.insert(0, text.view()));
}

void lpad(Call& call) {
  pad_text(call, true);
}

void rpad(Call& call) {
  pad_text(call, false);
}

// Backwards, to the byte that begins the character.
std::string_view last_character(std::string_view text) {
  size_t at = text.size() - 1;
  while (at > 0 && is_continuation(text[at])) --at;
  return text.substr(at);
}

// Whether `character` is one of the characters of `set`.
bool contains(std::string_view set, std::string_view character) {
  while (!set.empty()) {
    const std::string_view next = first_character(set);
    if (next == character) return true;
    set.remove_prefix(next.size());
  }
  return false;
}

void trim_text(Call& call, bool left, bool right) {
  if (call.any_null()) return;
  const TextArgument text(call, 0);
  // A copy: the argument's own buffer ends with the expression that makes it.
  const std::string set = call.count() > 1 ? std::string(TextArgument(call, 1).view()) : " ";
  std::string_view rest = text.view();
  while (left && !rest.empty() && contains(set, first_character(rest))) {
    rest.remove_prefix(first_character(rest).size());
  }
  while (right && !rest.empty() && contains(set, last_character(rest))) {
    rest.remove_suffix(last_character(rest).size());
  }
  call.give_text(rest);
}

void trim(Call& call) {
  trim_text(call, true, true);
}

void ltrim(Call& call) {
  trim_text(call, true, false);
}

void rtrim(Call& call) {
  trim_text(call, false, true);
}

// Both parts of the result are checked as they grow: a short text can become a huge one.
void replace(Call& call) {
  if (call.is_null(0)) return;
  const TextArgument text(call, 0), wanted(call, 1);
  if (wanted.view().empty()) return call.give_text(text.view());
  const std::string with = call.count() > 2 ? std::string(TextArgument(call, 2).view()) : "";
  std::string out;
  std::string_view rest = text.view();
  for (size_t at; (at = rest.find(wanted.view())) != std::string_view::npos;) {
    append(out, rest.substr(0, at));
    append(out, with);
    rest.remove_prefix(at + wanted.view().size());
  }
  append(out, rest);
  call.give_text(out);
}

// Each character of `from` becomes the one in its place in `to`, or nothing beyond the end of `to`.
void translate(Call& call) {
  if (call.any_null()) return;
  const TextArgument text(call, 0), from(call, 1), to(call, 2);
  std::string out;
  for (std::string_view rest = text.view(); !rest.empty();) {
    const std::string_view character = first_character(rest);
    rest.remove_prefix(character.size());
    // Characters are matched by walking both strings, because they have no fixed width.
    size_t index = 0;
    std::string_view ahead = from.view();
    for (; !ahead.empty() && first_character(ahead) != character; ++index) {
      ahead.remove_prefix(first_character(ahead).size());
    }
    append(out, ahead.empty() ? character : characters(to.view(), index, 1));
  }
  call.give_text(out);
}

void give_case(Call& call, LetterCase wanted) {
  if (call.is_null(0)) return;
  std::string text(TextArgument(call, 0).view());
  change_case(text, wanted);
  call.give_text(text);
}

void to_upper(Call& call) {
  give_case(call, LetterCase::Upper);
}

void to_lower(Call& call) {
  give_case(call, LetterCase::Lower);
}

void initcap(Call& call) {
  give_case(call, LetterCase::Initial);
}

// The first letter, and a digit for each of the next three consonants that sounds otherwise than
// the letter before it. H and W do not separate letters, vowels do.
void soundex(Call& call) {
  if (call.is_null(0)) return;
  static constexpr std::string_view kSounds = "01230120022455012623010202";
  const TextArgument text(call, 0);
  std::string code;
  char last = '0';
  for (const char c : text.view()) {
    if (!is_letter(c) || code.size() == 4) continue;
    const char letter = upper(c);
    const char sound = kSounds[static_cast<size_t>(letter - 'A')];
    if (code.empty()) {
      code += letter;
    } else if (sound != '0' && sound != last) {
      code += sound;
    }
    if (letter != 'H' && letter != 'W') last = sound;
  }
  if (!code.empty()) code.resize(4, '0');
  call.give_text(code);
}

// The pattern of a LIKE as it is: the mark escapes itself, % and _, and nothing else.
void ora_pattern(Call& call) {
  if (call.any_null()) return;
  const TextArgument pattern(call, 0), mark(call, 1);
  if (count_characters(mark.view()) != 1) fail(1425);
  std::string_view rest = pattern.view();
  for (size_t at; (at = rest.find(mark.view())) != std::string_view::npos;) {
    rest.remove_prefix(at + mark.view().size());
    if (rest.empty()) fail(1424);
    const std::string_view escaped = first_character(rest);
    if (escaped != "%" && escaped != "_" && escaped != mark.view()) fail(1424);
    rest.remove_prefix(escaped.size());
  }
  call.give_text(pattern.view());
}

// The bytes of the first character as one number, and back.
void ascii(Call& call) {
  if (call.is_null(0)) return;
  const TextArgument text(call, 0);
  long long code = 0;
  // Four bytes are the longest character of valid UTF-8; broken text may have more in one.
  for (char c : first_character(text.view()).substr(0, 4)) {
    code = code << 8 | static_cast<unsigned char>(c);
  }
  call.give_integer(code);
}

void chr(Call& call) {
  if (call.is_null(0)) return;
  const int code = call.integer(0);
  if (code < 0) fail(1428, std::to_string(code));
  std::string text;
  // The bytes from the highest one that is not zero: the reverse of ASCII, for characters of
  // several bytes, too.
  for (int shift = 24; shift >= 0; shift -= 8) {
    const int byte = code >> shift & 0xff;
    if (byte != 0 || shift == 0 || !text.empty()) text += static_cast<char>(byte);
  }
  call.give_text(text);
}

void hextoraw(Call& call) {
  if (call.is_null(0)) return;
  call.give_bytes(hex_to_bytes(TextArgument(call, 0).view()));
}

// Unlike the implicit conversion, the bytes of a date too.
void rawtohex(Call& call) {
  if (call.is_null(0)) return;
  const TextArgument text(call, 0);
  call.give_text(bytes_to_hex(call.type(0) == SQLITE_BLOB ? call.bytes(0) : text.view()));
}

// Of a number: the server keeps two decimal digits in a byte, pairs counted from the point, with a
// byte for the exponent and one more behind a negative number.
long long number_size(const Number& value) {
  const Decimal decimal = decimal_of(value);
  if (decimal.size == 0) return 1;
  // An odd number of digits before the point leaves half of the first byte empty.
  const int odd = decimal.point & 1;
  return 1 + (decimal.size + odd + 1) / 2 + (decimal.negative ? 1 : 0);
}

// Bytes that the value takes.
void vsize(Call& call) {
  if (call.is_null(0)) return;
  if (!call.is_number(0)) {
    // Dates and RAW are bytes already, text is counted in bytes and not in characters.
    return call.give_integer(static_cast<long long>(call.bytes(0).size()));
  }
  call.give_integer(number_size(call.number(0)));
}

constexpr SqlFunction kFunctions[] = {{"substr", 2, run_call<substr<Unit::Character>>},
                                      {"substr", 3, run_call<substr<Unit::Character>>},
                                      {"instr", 2, run_call<instr<Unit::Character>>},
                                      {"instr", 3, run_call<instr<Unit::Character>>},
                                      {"instr", 4, run_call<instr<Unit::Character>>},
                                      {"length", 1, run_call<length<Unit::Character>>},
                                      {"lpad", 2, run_call<lpad>},
                                      {"lpad", 3, run_call<lpad>},
                                      {"rpad", 2, run_call<rpad>},
                                      {"rpad", 3, run_call<rpad>},
                                      {"trim", 1, run_call<trim>},
                                      {"ltrim", 1, run_call<ltrim>},
                                      {"ltrim", 2, run_call<ltrim>},
                                      {"rtrim", 1, run_call<rtrim>},
                                      {"rtrim", 2, run_call<rtrim>},
                                      {"replace", 2, run_call<replace>},
                                      {"replace", 3, run_call<replace>},
                                      {"translate", 3, run_call<translate>},
                                      {"upper", 1, run_call<to_upper>},
                                      {"lower", 1, run_call<to_lower>},
                                      {"initcap", 1, run_call<initcap>},
                                      {"ascii", 1, run_call<ascii>},
                                      {"chr", 1, run_call<chr>},
                                      {"hextoraw", 1, run_call<hextoraw>},
                                      {"rawtohex", 1, run_call<rawtohex>},
                                      {"substrb", 2, run_call<substr<Unit::Byte>>},
                                      {"substrb", 3, run_call<substr<Unit::Byte>>},
                                      {"instrb", 2, run_call<instr<Unit::Byte>>},
                                      {"instrb", 3, run_call<instr<Unit::Byte>>},
                                      {"instrb", 4, run_call<instr<Unit::Byte>>},
                                      {"lengthb", 1, run_call<length<Unit::Byte>>},
                                      {"nls_upper", 1, run_call<to_upper>},
                                      {"nls_lower", 1, run_call<to_lower>},
                                      {"nls_initcap", 1, run_call<initcap>},
                                      {"soundex", 1, run_call<soundex>},
                                      {"vsize", 1, run_call<vsize>},
                                      {"ora_pattern", 2, run_call<ora_pattern>}};

}  // namespace

std::span<const SqlFunction> text_functions() {
  return kFunctions;
}

}  // namespace oci8
