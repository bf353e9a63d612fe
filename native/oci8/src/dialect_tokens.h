// Reading along the tokens of a statement: keywords, names and the errors for what is missing.
// `ahead` counts tokens from the current one, which is 0. Reading on never goes beyond the last
// token, and every question is answered there, so that no caller has to ask whether the text has
// ended.
#ifndef OCI8_DIALECT_TOKENS_H
#define OCI8_DIALECT_TOKENS_H

#include <algorithm>
#include <string>
#include <string_view>

#include "error.h"
#include "sql_text.h"

namespace oci8 {

/// A place in a statement's tokens. The statement outlives it; copies go their own ways.
class Tokens {
 public:
  explicit Tokens(const SqlText& sql) : sql_(sql) {}

  bool at_end() const { return at_ >= sql_.tokens.size(); }
  size_t position() const { return at_; }
  void seek(size_t position) { at_ = position; }
  void skip(size_t count = 1) { at_ = std::min(at_ + count, sql_.tokens.size()); }

  /// The kind of the token `ahead`; Symbol with an empty spelling behind the last one.
  TokenKind kind(size_t ahead = 0) const;
  std::string_view spelling(size_t ahead = 0) const;
  /// Source offset of the current token; the end of the text behind the last one.
  ub4 offset() const;

  bool is_word(std::string_view keyword, size_t ahead = 0) const;
  bool is_symbol(std::string_view mark, size_t ahead = 0) const;
  bool accept_word(std::string_view keyword);
  bool accept_symbol(std::string_view mark);
  /// Takes the keyword or mark, or raises `code` where something else stands.
  void expect_word(std::string_view keyword, int code = 905);
  void expect_symbol(std::string_view mark, int code);

  /// Whether a name stands here: a quoted one, or a word that is not reserved.
  bool at_name(size_t ahead = 0) const;
  /// Reads a name as the database keeps it: unquoted in upper case. Raises `code` where none
  /// stands, ORA-00972 for one of more than 30 bytes.
  std::string name(int code);
  /// Reads [owner.]name of a schema object; ORA-00942 for an owner other than `user`.
  std::string object_name(std::string_view user, int code);
  /// Reads an unsigned integer of at most `limit`, or raises `code`.
  long long integer(long long limit, int code);
  /// Reads an integer that may have a sign.
  long long signed_integer(long long limit, int code);

  /// Position (from 1) of the placeholder that stands here.
  ub4 placeholder() const;
  /// Bind position of a block's variable, 0 where there is none of that name.
  ub4 variable(std::string_view name) const;
  /// The tokens from `first` up to `last` without blanks, in upper case but for literals and
  /// quoted names: how the server names a select-list expression.
  std::string text_of(size_t first, size_t last) const;
  /// All that was typed from the current token on, comments included.
  std::string_view rest() const;
  /// Skips to behind the parenthesis that closes the one before the current token.
  void skip_parenthesis();

  [[noreturn]] void fail_here(int code, std::string_view argument = {}) const;
  /// Raises ORA-00933 unless the statement ends here.
  void expect_end() const;

 private:
  const SqlText& sql_;
  size_t at_ = 0;
};

/// Whether the server reserves the word, whatever its case: it names nothing then, unless quoted.
bool is_reserved(std::string_view word);

/// What a quoted name or a literal stands for: a doubled quote inside is one.
std::string unquote(std::string_view quoted);

}  // namespace oci8

#endif
