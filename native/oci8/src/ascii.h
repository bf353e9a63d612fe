// Character classes of ASCII, whatever the process's locale says: names, numbers and format models
// are ASCII.
// The functions of <cctype> are no replacement: they follow the locale that the embedding program
// has set, and bytes above 127, which occur in UTF-8 text, are out of their domain as signed chars.
#ifndef OCI8_ASCII_H
#define OCI8_ASCII_H

#include <algorithm>
#include <string>
#include <string_view>

namespace oci8 {

inline bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

inline bool is_letter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

/// As isspace has it in the C locale.
inline bool is_blank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

/// A printable mark; a blank is none.
inline bool is_punctuation(char c) {
  return c > ' ' && c < 0x7f && !is_digit(c) && !is_letter(c);
}

/// Leaves every byte above 127 alone: names compare by their ASCII letters only.
inline char upper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

inline std::string upper(std::string_view text) {
  std::string result(text);
  for (char& c : result) c = upper(c);
  return result;
}

inline char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline std::string lower(std::string_view text) {
  std::string result(text);
  for (char& c : result) c = lower(c);
  return result;
}

/// Case-blind.
inline bool starts_with(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() &&
         std::equal(prefix.begin(), prefix.end(), text.begin(),
                    [](char a, char b) { return upper(a) == upper(b); });
}

}  // namespace oci8

#endif
