// SQLite derives a column's affinity from the declared type by a search for parts of words (section
// 3.1 of its document "Datatypes In SQLite"), in this order: INT, then CHAR, CLOB or TEXT, then
// BLOB, then REAL, FLOA or DOUB, else numeric. The table below is chosen for these rules.
#include "declared_type.h"

#include <charconv>
#include <utility>

namespace oci8 {
namespace {

// The words decide the engine's affinity by what they contain: CHAR and TEXT keep text as text,
// BLOB keeps every value as it is (also of LONG, where an integer is no text but the number of a
// large value), a name without any of the engine's words is numeric. Nothing here may contain INT,
// REAL, FLOA or DOUB, which would turn values into 64-bit numbers; and none is INTEGER, which would
// make a primary key an alias of the row number.
enum class Arguments : ub1 { None, Size, PrecisionScale };

struct Spelling {
  std::string_view word;
  ub2 type;
  ub2 fixed_size;
  Arguments arguments;
};

constexpr Spelling kSpellings[] = {
    {"VARCHAR2", SQLT_CHR, 0, Arguments::Size},
    {"CHAR", SQLT_AFC, 0, Arguments::Size},
    {"NUMBER", SQLT_NUM, 22, Arguments::PrecisionScale},
    {"LONG_BLOB", SQLT_LNG, 0, Arguments::None},
    {"ROWID_TEXT", SQLT_RID, 18, Arguments::None},
    {"DATE_BLOB", SQLT_DAT, 7, Arguments::None},
    {"RAW_BLOB", SQLT_BIN, 0, Arguments::Size},
    {"LONG_RAW_BLOB", SQLT_LBI, 0, Arguments::None},
    {"BLOB_UNICODE", SQLT_CLOB, 86, Arguments::None},
    {"BLOB", SQLT_BLOB, 86, Arguments::None},
};

// From here on a FLOAT's binary digits are more than the 15 decimal ones of a double.
constexpr sb2 kBinaryDigitsOfAny = 50;
constexpr std::string_view kNotNull = " NOT NULL";
constexpr std::string_view kViewText = "/*query ";
constexpr char kTextBreak = 31;  // keeps apart what would end or begin a comment

// The engine's schema is a file that anybody may have written to: nothing in it is taken on trust.
bool read_integer(std::string_view& from, int& value) {
  const auto [end, error] = std::from_chars(from.data(), from.data() + from.size(), value);
  if (error != std::errc()) return false;
  from.remove_prefix(static_cast<size_t>(end - from.data()));
  return true;
}

bool take(std::string_view& from, std::string_view mark) {
  if (!from.starts_with(mark)) return false;
  from.remove_prefix(mark.size());
  return true;
}

// Sizes beyond what can be declared were never written by spell_type.
bool read_size(std::string_view& from, ColumnInfo& column) {
  int size = 0;
  if (!take(from, "(") || !read_integer(from, size) || !take(from, ")")) return false;
  if (size < 1 || std::cmp_greater(size, kMaxText)) return false;
  column.size = static_cast<ub2>(size);
  return true;
}

// FLOAT is spelled with its binary precision and the scale that says so, because the word FLOAT
// would give the column the engine's floating-point affinity.
bool read_precision(std::string_view& from, ColumnInfo& column) {
  column.precision = 0;
  column.scale = kNoScale;
  if (!take(from, "(")) return true;
  int precision = 0;
  int scale = 0;
  if (!read_integer(from, precision) || !take(from, ",") || !read_integer(from, scale) ||
      !take(from, ")")) {
    return false;
  }
  if (precision < 1 || precision > 126 || scale < kNoScale || scale > 127) return false;
  column.precision = static_cast<sb2>(precision);
  column.scale = static_cast<sb1>(scale);
  return true;
}

// Reads one spelling and leaves what follows it.
bool take_type(std::string_view& from, ColumnInfo& column) {
  // A view's heading holds several types behind one another, so that a word may end at the list's
  // comma, at NOT NULL or at the end of the comment.
  const std::string_view word = from.substr(0, from.find_first_of("(, *"));
  for (const Spelling& known : kSpellings) {
    if (known.word != word) continue;
    from.remove_prefix(word.size());
    column.type = known.type;
    column.size = known.fixed_size;
    column.precision = 0;
    column.scale = 0;
    if (known.arguments == Arguments::Size) return read_size(from, column);
    if (known.arguments == Arguments::PrecisionScale) return read_precision(from, column);
    return true;
  }
  return false;
}

// A name in double quotes, a quote inside doubled.
bool take_name(std::string_view& from, std::string& name) {
  if (!take(from, "\"")) return false;
  name.clear();
  while (!from.empty()) {
    if (!from.starts_with('"')) {
      name += from.front();
      from.remove_prefix(1);
    } else if (take(from, "\"\"")) {
      name += '"';
    } else {
      return take(from, "\"");
    }
  }
  return false;
}

}  // namespace

bool takes_any_number(const ColumnInfo& column) {
  return column.precision == 0 ||
         (column.scale == kNoScale && column.precision >= kBinaryDigitsOfAny);
}

// Doubling is the only escape that the engine has in a quoted name.
std::string quote_name(std::string_view name) {
  std::string quoted = "\"";
  for (const char c : name) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted += '"';
}

// A type that is not in the table cannot be declared; its values would be kept as they come.
std::string spell_type(const ColumnInfo& column) {
  for (const Spelling& known : kSpellings) {
    if (known.type != column.type) continue;
    std::string spelling(known.word);
    if (known.arguments == Arguments::Size) {
      spelling += '(' + std::to_string(column.size) + ')';
    } else if (known.arguments == Arguments::PrecisionScale && column.precision > 0) {
      spelling += '(' + std::to_string(column.precision) + ',' + std::to_string(column.scale) + ')';
    }
    return spelling;
  }
  return "BLOB";
}

bool read_type(std::string_view spelling, ColumnInfo& column) {
  return take_type(spelling, column) && spelling.empty();
}

// In front of AS, where the engine keeps the text as it stands. Names go outside the comment, which
// one of them could end.
std::string view_heading(const std::string& name, const std::vector<ColumnInfo>& columns) {
  std::string names;
  std::string types;
  for (const ColumnInfo& column : columns) {
    names += (names.empty() ? "" : ",") + quote_name(column.name);
    types += (types.empty() ? "" : ",") + spell_type(column);
    if (!column.nullable) types += kNotNull;
  }
  return "CREATE VIEW " + quote_name(name) + "(" + names + ") /* " + types + " */ AS ";
}

// In a comment, which the engine keeps, too. Nothing in it may end it, or begin one such as tells
// the system's own views. A comment of the text may hold a zero byte, where the engine would stop.
std::string view_text(std::string_view typed) {
  std::string kept(kViewText);
  for (const char c : typed) {
    const bool mark = (c == '/' && kept.back() == '*') || (c == '*' && kept.back() == '/');
    if (mark) kept += kTextBreak;
    if (c != '\0') kept += c;
  }
  return kept + "*/ ";
}

std::string view_text_sql() {
  const std::string mark = "' AS " + std::string(kViewText) + "'";
  const std::string start = "instr(sql," + mark + ")+length(" + mark + ")";
  const std::string broken = "char(" + std::to_string(kTextBreak) + ")";
  std::string text = "substr(sql," + start + ")";
  text = "substr(" + text + ",1,instr(" + text + ",'*/')-1)";
  text = "replace(" + text + ",'/'||" + broken + "||'*','/*')";
  text = "replace(" + text + ",'*'||" + broken + "||'/','*/')";
  return "iif(instr(sql," + mark + ")," + text + ",sql)";
}

// All or nothing: columns are touched only when the whole heading could be read.
bool read_view(std::string_view create_text, std::vector<ColumnInfo>& columns) {
  std::vector<ColumnInfo> read;
  std::string name;
  if (!take(create_text, "CREATE VIEW ") || !take_name(create_text, name)) return false;
  if (!take(create_text, "(")) return false;
  do {
    if (!take_name(create_text, read.emplace_back().name)) return false;
  } while (take(create_text, ","));
  if (!take(create_text, ") /* ")) return false;
  for (ColumnInfo& column : read) {
    if (&column != &read.front() && !take(create_text, ",")) return false;
    if (!take_type(create_text, column)) return false;
    column.nullable = !take(create_text, kNotNull);
  }
  if (!take(create_text, " */")) return false;
  columns = std::move(read);
  return true;
}

}  // namespace oci8
