// One pass makes the tokens, a second one looks at the first few of them for the kind of statement,
// a third one lists placeholders. All of it happens at OCIStmtPrepare, where no database is at hand
// and no error may be raised.
#include "sql_text.h"

#include <algorithm>
#include <array>
#include <set>

#include "ascii.h"

namespace oci8 {
namespace {

// Bytes from 0x80 are parts of letters in whatever character set the database has.
bool is_name_letter(char c) {
  return is_letter(c) || static_cast<unsigned char>(c) >= 0x80;
}

bool is_word(char c) {
  return is_name_letter(c) || is_digit(c) || c == '$' || c == '#' || c == '_';
}

class Splitter {
 public:
  explicit Splitter(std::string_view source) : text_(source) {}

  std::vector<Token> split() {
    constexpr size_t kUsualLength = 4;  // of a token with its blanks: room for most texts at once
    std::vector<Token> tokens;
    tokens.reserve(text_.size() / kUsualLength + 1);
    while (skip_blanks(), at_ < text_.size()) {
      const size_t start = at_;
      const TokenKind kind = next();
      tokens.push_back({kind, static_cast<ub4>(start), static_cast<ub4>(at_ - start)});
    }
    return tokens;
  }

 private:
  // A zero byte behind the end: it begins no token, and no comparison takes it for anything.
  char peek(size_t ahead = 0) const {
    return at_ + ahead < text_.size() ? text_[at_ + ahead] : '\0';
  }

  bool at(const char (&mark)[3]) const { return peek() == mark[0] && peek(1) == mark[1]; }

  // An unclosed comment is left for next(), which takes it as an invalid token.
  void skip_blanks() {
    while (at_ < text_.size()) {
      if (is_blank(text_[at_])) {
        ++at_;
      } else if (at("--")) {
        at_ = std::min(text_.find('\n', at_), text_.size());
      } else if (at("/*") && text_.find("*/", at_ + 2) != std::string_view::npos) {
        at_ = text_.find("*/", at_ + 2) + 2;
      } else {
        return;
      }
    }
  }

  // Every way through takes at least one character, so that split() always comes to an end.
  TokenKind next() {
    const char c = peek();
    if (is_name_letter(c)) return word(TokenKind::Word);
    if (is_digit(c) || (c == '.' && is_digit(peek(1)))) return number();
    if (c == '\'') return quoted(c, TokenKind::String);
    if (c == '"') return quoted(c, TokenKind::QuotedName);
    // A colon before anything else is no placeholder: := is one symbol, and a lone colon is
    // invalid.
    if (c == ':' && is_word(peek(1))) {
      ++at_;
      return word(TokenKind::Placeholder);
    }
    return symbol();
  }

  // Also names placeholders, whose first character may be a digit: :1.
  TokenKind word(TokenKind kind) {
    while (is_word(peek())) ++at_;
    return kind;
  }

  TokenKind number() {
    while (is_digit(peek())) ++at_;
    // "1..3" is a range: its points are no decimal point.
    if (peek() == '.' && peek(1) != '.') {
      ++at_;
      while (is_digit(peek())) ++at_;
    }
    if (peek() == 'e' || peek() == 'E') {
      const size_t sign = peek(1) == '+' || peek(1) == '-' ? 1 : 0;
      if (is_digit(peek(1 + sign))) {
        at_ += 1 + sign;
        while (is_digit(peek())) ++at_;
      }
    }
    return TokenKind::Number;
  }

  // A doubled quote stands for itself; without a closing quote the rest is one invalid token.
  TokenKind quoted(char quote, TokenKind kind) {
    for (;;) {
      const size_t close = text_.find(quote, at_ + 1);
      if (close == std::string_view::npos) {
        at_ = text_.size();
        return TokenKind::Invalid;
      }
      at_ = close + 1;
      if (peek() != quote) return kind;
    }
  }

  // Two characters go before one: <= is no < and =.
  TokenKind symbol() {
    static constexpr char kDouble[][3] = {
        "||", ":=", "<>", "!=", "^=", "<=", ">=", "**", "=>", "..", "<<", ">>"};
    for (const auto& mark : kDouble) {
      if (at(mark)) {
        at_ += 2;
        return TokenKind::Symbol;
      }
    }
    if (at("/*")) {
      at_ = text_.size();
      return TokenKind::Invalid;
    }
    static constexpr std::string_view kSingle = "(),.;+-*/=<>@%";
    return kSingle.find(text_[at_++]) != std::string_view::npos ? TokenKind::Symbol
                                                                : TokenKind::Invalid;
  }

  std::string_view text_;
  size_t at_ = 0;
};

// The first word decides, and for some verbs the kind of object behind it.
struct Verb {
  std::string_view word;
  ub2 type;
  ub2 function;
};

// Function codes are those that the interface documents for OCI_ATTR_SQLFNCODE; types are 0 where
// the interface has no OCI_STMT_ number.
constexpr Verb kVerbs[] = {
    {"SELECT", OCI_STMT_SELECT, 3},
    {"WITH", OCI_STMT_SELECT, 3},
    {"INSERT", OCI_STMT_INSERT, 2},
    {"UPDATE", OCI_STMT_UPDATE, 6},
    {"DELETE", OCI_STMT_DELETE, 7},
    {"BEGIN", OCI_STMT_BEGIN, 47},
    {"CREATE", OCI_STMT_CREATE, 0},
    {"DROP", OCI_STMT_DROP, 0},
    {"ALTER", OCI_STMT_ALTER, 0},
    {"LOCK", 0, 26},
    {"DECLARE", OCI_STMT_DECLARE, 47},
    {"GRANT", 0, 17},
    {"REVOKE", 0, 18},
    {"RENAME", 0, 28},
    {"COMMENT", 0, 29},
    {"COMMIT", 0, 44},
    {"ROLLBACK", 0, 45},
    {"SAVEPOINT", 0, 46},
    {"EXPLAIN", 0, 50},
    {"ANALYZE", 0, 62},
    {"TRUNCATE", 0, 85},
};

// What CREATE, DROP and ALTER are numbered with each kind of object; SET among them for its two
// forms. 0: no number of its own.
struct ObjectVerb {
  std::string_view object;
  ub2 create, drop, alter, set;
};

constexpr ObjectVerb kObjects[] = {
    {"TABLE", 1, 12, 15, 0},      {"INDEX", 9, 10, 11, 0},    {"SEQUENCE", 13, 16, 14, 0},
    {"SYNONYM", 19, 20, 0, 0},    {"VIEW", 21, 22, 0, 0},     {"PROCEDURE", 24, 68, 0, 0},
    {"SESSION", 0, 0, 42, 0},     {"USER", 51, 53, 0, 0},     {"TRIGGER", 59, 61, 0, 0},
    {"TYPE", 77, 0, 0, 0},        {"FUNCTION", 91, 93, 0, 0}, {"PACKAGE", 94, 0, 0, 0},
    {"TRANSACTION", 0, 0, 0, 48}, {"ROLE", 0, 0, 0, 55},
};

// Words that may stand between CREATE and the kind of object.
constexpr std::string_view kModifiers[] = {"OR",    "REPLACE", "UNIQUE",    "BITMAP", "GLOBAL",
                                           "FORCE", "PUBLIC",  "TEMPORARY", "NO",     "NOFORCE"};

// Only reads tokens; a text that is no statement keeps type and function 0, and is refused when
// it runs.
class Classifier {
 public:
  explicit Classifier(SqlText& sql) : sql_(sql) {}

  void classify() {
    size_t first = 0;
    while (is_symbol(first, "(")) ++first;
    // A label may stand before a block: << name >> BEGIN ...
    if (is_symbol(first, "<<") && is_symbol(first + 2, ">>")) first += 3;
    const std::string verb = word(first);
    for (const Verb& known : kVerbs) {
      if (known.word != verb) continue;
      sql_.type = known.type;
      sql_.function = known.function;
    }
    if (sql_.function == 0) object_function(verb, first + 1);
  }

 private:
  bool is_symbol(size_t index, std::string_view mark) const {
    return index < sql_.tokens.size() && sql_.spelling(sql_.tokens[index]) == mark;
  }

  std::string word(size_t index) const {
    if (index >= sql_.tokens.size() || sql_.tokens[index].kind != TokenKind::Word) return {};
    return upper(sql_.spelling(sql_.tokens[index]));
  }

  // Unknown kinds of objects keep 0: that is no error here.
  void object_function(std::string_view verb, size_t index) {
    // Any number of them in any order: the parser that runs the statement is the one to object.
    while (std::ranges::find(kModifiers, word(index)) != std::end(kModifiers)) ++index;
    const std::string object = word(index);
    for (const ObjectVerb& known : kObjects) {
      if (known.object != object) continue;
      if (verb == "CREATE") sql_.function = known.create;
      if (verb == "DROP") sql_.function = known.drop;
      if (verb == "ALTER") sql_.function = known.alter;
      if (verb == "SET") sql_.function = known.set;
    }
    if (verb == "CREATE" && object == "PACKAGE" && word(index + 1) == "BODY") sql_.function = 97;
  }

  SqlText& sql_;
};

// The source of a stored program has ":old.x" and ":=" of its own: no placeholders for a client.
bool is_program_source(const SqlText& sql) {
  static constexpr std::array<ub2, 6> kPrograms = {24, 59, 77, 91, 94, 97};
  return sql.type == OCI_STMT_CREATE &&
         std::ranges::find(kPrograms, sql.function) != kPrograms.end();
}

// Clients bind by position, and count differently in SQL and in blocks.
void collect_placeholders(SqlText& sql) {
  if (is_program_source(sql)) return;
  const bool block = sql.is_block();
  // In a block only, where the second occurrence of a name is the same variable.
  std::set<std::string> seen;
  for (const Token& token : sql.tokens) {
    if (token.kind != TokenKind::Placeholder) continue;
    std::string name = upper(sql.spelling(token).substr(1));
    if (block && !seen.insert(name).second) continue;
    sql.placeholders.push_back({std::move(name), token.offset});
  }
}

}  // namespace

SqlText tokenize(std::string_view source) {
  SqlText sql;
  sql.text = source;
  sql.tokens = Splitter(sql.text).split();
  Classifier(sql).classify();
  collect_placeholders(sql);
  return sql;
}

}  // namespace oci8
