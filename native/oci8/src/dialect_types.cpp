// Synonyms come down to the ten types that a column can have (declared_type.cpp). Limits are those
// of the server's release 8: VARCHAR2 4000 bytes, CHAR and RAW 2000, NUMBER 38 digits, scales from
// -84 to 127.
#include "dialect_types.h"

namespace oci8 {
namespace {

constexpr sb2 kFloatPrecision = 126;  // binary digits
constexpr int kMaxPrecision = 38;

ColumnInfo plain(ub2 type, ub2 size) {
  ColumnInfo column;
  column.type = type;
  column.size = size;
  return column;
}

ColumnInfo number(int precision, int scale) {
  ColumnInfo column = plain(SQLT_NUM, 22);
  column.precision = static_cast<sb2>(precision);
  column.scale = static_cast<sb1>(scale);
  return column;
}

// No default length: a VARCHAR2 without one is a mistake on the server, too.
ColumnInfo sized(Tokens& tokens, ub2 type, long long limit) {
  tokens.expect_symbol("(", 906);
  // More than any type's own limit: what is too long has one code either way.
  const long long size = tokens.integer(100000, 910);
  if (size < 1 || size > limit) tokens.fail_here(910);
  tokens.expect_symbol(")", 907);
  return plain(type, static_cast<ub2>(size));
}

// CHAR alone is CHAR(1), and CHARACTER VARYING the long way to say VARCHAR2.
ColumnInfo character(Tokens& tokens) {
  if (tokens.accept_word("VARYING")) return sized(tokens, SQLT_CHR, kMaxText);
  if (tokens.is_symbol("(")) return sized(tokens, SQLT_AFC, 2000);
  return plain(SQLT_AFC, 1);
}

// NUMBER, NUMBER(p), NUMBER(p,s), NUMBER(*,s). `scale` is what a type without arguments has.
ColumnInfo decimal(Tokens& tokens, int scale) {
  // DECIMAL without digits is an integer, NUMBER without digits any number.
  if (!tokens.accept_symbol("(")) return scale == 0 ? number(kMaxPrecision, 0) : number(0, scale);
  long long precision = kMaxPrecision;
  if (!tokens.accept_symbol("*")) precision = tokens.integer(kMaxPrecision, 1727);
  if (precision < 1) tokens.fail_here(1727);
  long long digits = 0;
  if (tokens.accept_symbol(",")) digits = tokens.signed_integer(127, 1728);
  if (digits < -84) tokens.fail_here(1728);
  tokens.expect_symbol(")", 907);
  return number(static_cast<int>(precision), static_cast<int>(digits));
}

// FLOAT counts binary digits; its scale says that it is no fixed number of decimals.
ColumnInfo binary_float(Tokens& tokens) {
  sb2 precision = kFloatPrecision;
  if (tokens.accept_symbol("(")) {
    precision = static_cast<sb2>(tokens.integer(kFloatPrecision, 1727));
    if (precision < 1) tokens.fail_here(1727);
    tokens.expect_symbol(")", 907);
  }
  return number(precision, kNoScale);
}

// LONG alone, LONG RAW, LONG VARCHAR.
ColumnInfo long_type(Tokens& tokens) {
  if (tokens.accept_word("RAW")) return plain(SQLT_LBI, 0);
  tokens.accept_word("VARCHAR");  // a longer name of the same type
  return plain(SQLT_LNG, 0);
}

ColumnInfo double_precision(Tokens& tokens) {
  tokens.expect_word("PRECISION");
  return number(kFloatPrecision, kNoScale);
}

// Reads what follows the word.
struct TypeWord {
  std::string_view word;
  ColumnInfo (*read)(Tokens& tokens);
};

constexpr TypeWord kTypes[] = {
    {"VARCHAR2", [](Tokens& tokens) { return sized(tokens, SQLT_CHR, kMaxText); }},
    {"VARCHAR", [](Tokens& tokens) { return sized(tokens, SQLT_CHR, kMaxText); }},
    {"CHAR", character},
    {"CHARACTER", character},
    {"NUMBER", [](Tokens& tokens) { return decimal(tokens, kNoScale); }},
    {"NUMERIC", [](Tokens& tokens) { return decimal(tokens, 0); }},
    {"DECIMAL", [](Tokens& tokens) { return decimal(tokens, 0); }},
    {"DEC", [](Tokens& tokens) { return decimal(tokens, 0); }},
    {"INTEGER", [](Tokens&) { return number(kMaxPrecision, 0); }},
    {"INT", [](Tokens&) { return number(kMaxPrecision, 0); }},
    {"SMALLINT", [](Tokens&) { return number(kMaxPrecision, 0); }},
    {"FLOAT", binary_float},
    {"REAL", [](Tokens&) { return number(63, kNoScale); }},
    {"DOUBLE", double_precision},
    {"DATE", [](Tokens&) { return plain(SQLT_DAT, 7); }},
    {"RAW", [](Tokens& tokens) { return sized(tokens, SQLT_BIN, 2000); }},
    {"LONG", long_type},
    {"ROWID", [](Tokens&) { return plain(SQLT_RID, 18); }},
    {"CLOB", [](Tokens&) { return plain(SQLT_CLOB, 86); }},
    {"BLOB", [](Tokens&) { return plain(SQLT_BLOB, 86); }},
};

}  // namespace

ColumnInfo declared_type(Tokens& tokens) {
  for (const TypeWord& known : kTypes) {
    if (tokens.accept_word(known.word)) return known.read(tokens);
  }
  tokens.fail_here(902);
}

}  // namespace oci8
