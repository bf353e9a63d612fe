// The text of a statement, split into tokens: what kind of statement it is and where its
// placeholders stand. Decided by tokens alone, so that literals, quoted names and comments are
// left alone; knows nothing of any engine or session.
// Used by the statement handle for the attributes and placeholders, and by the dialect and the
// reader of blocks, which go on from its tokens.
#ifndef OCI8_SQL_TEXT_H
#define OCI8_SQL_TEXT_H

#include <string>
#include <string_view>
#include <vector>

#include "oci.h"

namespace oci8 {

enum class TokenKind : ub1 {
  Word,  // keyword or unquoted name
  QuotedName,  // "Name", quotes included
  String,  // 'text', quotes included
  Number,  // 12, 1.5, .5, 1e3
  Placeholder,  // :1 or :name, colon included
  Symbol,  // one operator or punctuation mark: ( ) , . ; + - * / = <> != ^= <= >= || := ...
  Invalid  // a character that starts no token (ORA-00911), or an unclosed literal (ORA-01756)
};

struct Token {
  TokenKind kind;
  ub4 offset;  // bytes from the start of the statement
  ub4 size;
};

struct Placeholder {
  std::string name;  // without the colon, upper case
  ub4 offset;  // of its first occurrence that the position stands for
};

struct SqlText {
  std::string text;
  std::vector<Token> tokens;  // comments and blanks left out
  ub2 type = 0;  // OCI_STMT_*, 0 for other statements
  ub2 function = 0;  // OCI_ATTR_SQLFNCODE: CREATE TABLE 1, INSERT 2, SELECT 3, UPDATE 6, ...
  // In order of position: in SQL every occurrence, in a PL/SQL block every distinct name.
  std::vector<Placeholder> placeholders;
  // Of a statement out of a block: names as the database keeps them that, where no column has them,
  // stand for values. These are bound behind the placeholders. Left empty by tokenize().
  std::vector<std::string> variables;

  /// A PL/SQL block, not a statement of SQL.
  bool is_block() const { return type == OCI_STMT_BEGIN || type == OCI_STMT_DECLARE; }

  /// The token's bytes in `text`; good as long as this object stays where it is.
  std::string_view spelling(const Token& token) const {
    return std::string_view(text).substr(token.offset, token.size);
  }
};

/// Splits `text`. Never raises: bad characters become Invalid tokens, reported when the statement
/// is executed.
SqlText tokenize(std::string_view text);

}  // namespace oci8

#endif
