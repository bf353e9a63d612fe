// The engine's names are compared without case, the server's with it once a name is quoted: here a
// name is brought into the form in which the server keeps it, and all comparisons of names are made
// on that form.
#include "dialect_tokens.h"

#include <algorithm>
#include <charconv>

#include "ascii.h"

namespace oci8 {
namespace {

// Ascending: looked up by halving. The first group of the server's reserved words only; those of
// the join syntax, which came later, end a table alias without being reserved (dialect_query).
constexpr std::string_view kReserved[] = {
    "ACCESS",    "ADD",        "ALL",        "ALTER",      "AND",        "ANY",       "AS",
    "ASC",       "AUDIT",      "BETWEEN",    "BY",         "CHAR",       "CHECK",     "CLUSTER",
    "COLUMN",    "COMMENT",    "COMPRESS",   "CONNECT",    "CREATE",     "CURRENT",   "DATE",
    "DECIMAL",   "DEFAULT",    "DELETE",     "DESC",       "DISTINCT",   "DROP",      "ELSE",
    "EXCLUSIVE", "EXISTS",     "FILE",       "FLOAT",      "FOR",        "FROM",      "GRANT",
    "GROUP",     "HAVING",     "IDENTIFIED", "IMMEDIATE",  "IN",         "INCREMENT", "INDEX",
    "INITIAL",   "INSERT",     "INTEGER",    "INTERSECT",  "INTO",       "IS",        "LEVEL",
    "LIKE",      "LOCK",       "LONG",       "MAXEXTENTS", "MINUS",      "MODE",      "MODIFY",
    "NOAUDIT",   "NOCOMPRESS", "NOT",        "NOWAIT",     "NULL",       "NUMBER",    "OF",
    "OFFLINE",   "ON",         "ONLINE",     "OPTION",     "OR",         "ORDER",     "PCTFREE",
    "PRIOR",     "PRIVILEGES", "PUBLIC",     "RAW",        "RENAME",     "RESOURCE",  "REVOKE",
    "ROW",       "ROWID",      "ROWNUM",     "ROWS",       "SELECT",     "SESSION",   "SET",
    "SHARE",     "SIZE",       "SMALLINT",   "START",      "SUCCESSFUL", "SYNONYM",   "SYSDATE",
    "TABLE",     "THEN",       "TO",         "TRIGGER",    "UID",        "UNION",     "UNIQUE",
    "UPDATE",    "USER",       "VALIDATE",   "VALUES",     "VARCHAR",    "VARCHAR2",  "VIEW",
    "WHENEVER",  "WHERE",      "WITH"};
static_assert(std::is_sorted(std::begin(kReserved), std::end(kReserved)));

constexpr size_t kNameSize = 30;

}  // namespace

std::string unquote(std::string_view quoted) {
  const char quote = quoted.front();
  std::string result;
  for (size_t i = 1; i + 1 < quoted.size(); ++i) {
    result += quoted[i];
    if (quoted[i] == quote) ++i;
  }
  return result;
}

// Words that can name nothing unless quoted: so an alias can stand without AS.
bool is_reserved(std::string_view word) {
  return std::ranges::binary_search(kReserved, std::string_view(upper(word)));
}

// Looking ahead never needs a check: behind the last token is a mark that equals no other.
TokenKind Tokens::kind(size_t ahead) const {
  return at_ + ahead < sql_.tokens.size() ? sql_.tokens[at_ + ahead].kind : TokenKind::Symbol;
}

std::string_view Tokens::spelling(size_t ahead) const {
  if (at_ + ahead >= sql_.tokens.size()) return {};
  return sql_.spelling(sql_.tokens[at_ + ahead]);
}

ub4 Tokens::offset() const {
  return at_end() ? static_cast<ub4>(sql_.text.size()) : sql_.tokens[at_].offset;
}

// Compared without copies, because most words are compared with many keywords.
bool Tokens::is_word(std::string_view keyword, size_t ahead) const {
  if (kind(ahead) != TokenKind::Word) return false;
  const std::string_view word = spelling(ahead);
  return std::ranges::equal(word, keyword, {}, [](char c) { return upper(c); });
}

bool Tokens::is_symbol(std::string_view mark, size_t ahead) const {
  return kind(ahead) == TokenKind::Symbol && spelling(ahead) == mark;
}

bool Tokens::accept_word(std::string_view keyword) {
  if (!is_word(keyword)) return false;
  ++at_;
  return true;
}

bool Tokens::accept_symbol(std::string_view mark) {
  if (!is_symbol(mark)) return false;
  ++at_;
  return true;
}

void Tokens::expect_word(std::string_view keyword, int code) {
  if (!accept_word(keyword)) fail_here(code);
}

void Tokens::expect_symbol(std::string_view mark, int code) {
  if (!accept_symbol(mark)) fail_here(code);
}

// Two quotes with nothing between them are no name.
bool Tokens::at_name(size_t ahead) const {
  if (kind(ahead) == TokenKind::QuotedName) return spelling(ahead).size() > 2;
  return kind(ahead) == TokenKind::Word && !is_reserved(spelling(ahead));
}

std::string Tokens::name(int code) {
  // A reserved word is named in the message of those codes that take a name.
  if (!at_name()) fail_here(code, spelling());
  const bool quoted = kind() == TokenKind::QuotedName;
  std::string result = quoted ? unquote(spelling()) : upper(spelling());
  // Bytes of the name itself, without quotes.
  if (result.size() > kNameSize) fail_here(972);
  ++at_;
  return result;
}

// Another owner's object is not found rather than found under the user's own name; but DUAL is the
// system's, whoever names it.
std::string Tokens::object_name(std::string_view user, int code) {
  // The error of a foreign owner points at the owner, so that the place has to be remembered.
  const size_t first = at_;
  std::string result = name(code);
  if (!accept_symbol(".")) return result;
  const bool dual = result == "SYS" && is_word("DUAL");
  if (result != user && !dual) {
    seek(first);
    fail_here(942);
  }
  return name(code);
}

// Read by hand and with a limit: lengths and positions come from the text unchecked.
long long Tokens::integer(long long limit, int code) {
  const std::string_view digits = spelling();
  long long value = 0;
  const char* const end = digits.data() + digits.size();
  if (kind() != TokenKind::Number) fail_here(code);
  const auto read = std::from_chars(digits.data(), end, value);
  if (read.ec != std::errc() || read.ptr != end || value > limit) fail_here(code);
  ++at_;
  return value;
}

long long Tokens::signed_integer(long long limit, int code) {
  const bool negative = accept_symbol("-");
  if (!negative) accept_symbol("+");
  const long long value = integer(limit, code);
  return negative ? -value : value;
}

// Each occurrence has its own position, in order of offset: found by halving.
ub4 Tokens::placeholder() const {
  const auto found =
      std::ranges::lower_bound(sql_.placeholders, offset(), {}, &Placeholder::offset);
  return static_cast<ub4>(found - sql_.placeholders.begin()) + 1;
}

// Searched from the front, as a block's statement has few of them.
ub4 Tokens::variable(std::string_view name) const {
  const auto found = std::ranges::find(sql_.variables, name);
  if (found == sql_.variables.end()) return 0;
  return static_cast<ub4>(sql_.placeholders.size()) +
         static_cast<ub4>(found - sql_.variables.begin()) + 1;
}

std::string_view Tokens::rest() const {
  const std::string_view text = std::string_view(sql_.text).substr(offset());
  return text.substr(0, text.find_last_not_of(" \t\r\n") + 1);
}

std::string Tokens::text_of(size_t first, size_t last) const {
  std::string result;
  for (size_t i = first; i < last; ++i) {
    const std::string_view part = sql_.spelling(sql_.tokens[i]);
    const TokenKind part_kind = sql_.tokens[i].kind;
    // Case carries meaning inside of these, and nowhere else.
    const bool kept = part_kind == TokenKind::String || part_kind == TokenKind::QuotedName;
    result += kept ? std::string(part) : upper(part);
  }
  return result;
}

// Ends at the end of the text at the latest, with an error.
void Tokens::skip_parenthesis() {
  // The opening parenthesis was taken before, and counts as the first level.
  for (size_t depth = 1; depth > 0; ++at_) {
    if (at_end()) fail_here(907);
    if (is_symbol("(")) ++depth;
    if (is_symbol(")")) --depth;
  }
}

void Tokens::fail_here(int code, std::string_view argument) const {
  fail(code, argument, static_cast<int>(offset()));
}

void Tokens::expect_end() const {
  if (!at_end()) fail_here(933);
}

}  // namespace oci8
