// Fragments are built bottom-up and copied into larger ones as text. What the copies cost is
// bounded by how deep the engine lets expressions nest.

#include "dialect_fragment.h"

#include <algorithm>

#include "declared_type.h"
#include "error.h"

namespace oci8 {
namespace {

constexpr size_t kNumberText = 40;
constexpr size_t kDateText = 9;  // DD-MON-YY
// SQLite's parser holds 100 symbols; what stands around the select list takes some of them.
// A deeper expression would end in the engine's own "parser stack overflow", which has no place and
// no meaning for a client.
constexpr int kParserStack = 80;

// CHAR columns and literals: compared as if filled up with blanks.
bool is_fixed(const StaticType& type) {
  return type.code == SQLT_AFC;
}

// A conversion keeps the place of what it converts, for errors at run time.
Fragment wrap(std::string_view function, const Fragment& value, StaticType type) {
  Fragment result = call(function, {value}, value.offset);
  result.type = type;
  return result;
}

Fragment wrap_sized(std::string_view function, const Fragment& value, const StaticType& type) {
  Fragment result = fragment(function, value.offset);
  result.add("(").add(value).add("," + std::to_string(type.size) + ")");
  deepen(result, 3);
  result.type = type;
  return result;
}

// RAW as hexadecimal digits, everything else as the server prints it by default.
// The classes that are left (LONG, LOB) have no text that an expression could work with: ORA-00932.
Fragment to_text(const Fragment& value) {
  const size_t size = text_size(value.type);
  switch (value.type.value_class()) {
    case ValueClass::Text:
      return value;
    case ValueClass::Raw:
      return wrap("rawtohex", value, text_type(size));
    case ValueClass::Number:
    case ValueClass::Date:
    case ValueClass::DateOrNumber:
    case ValueClass::Unknown:
      return wrap("ora_text", value, text_type(size));
    default:
      fail(932, {}, static_cast<int>(value.offset));
  }
}

// A literal padded to `size`, cut to it where only blanks go; its length stays where more goes.
void pad_literal(Fragment& literal, size_t size) {
  // Padded here rather than by a function, which every execution would run again.
  std::string value = *literal.text;
  while (value.size() > size && value.back() == ' ') value.pop_back();
  if (value.size() < size) value.resize(size, ' ');
  literal.sql = quote_text(value);
  literal.text = value;
}

// The class with the highest rank decides a comparison: '007' = 7 compares numbers, and a sum with
// a placeholder becomes what the other side is.
int rank(ValueClass of_value) {
  switch (of_value) {
    case ValueClass::Unknown:
      return 0;
    case ValueClass::Text:
      return 1;
    case ValueClass::DateOrNumber:
      return 2;
    default:
      return 3;
  }
}

// What counts of a literal when blanks are filled up.
size_t trimmed_size(std::string_view value) {
  return value.find_last_not_of(' ') + 1;
}

// Fixed-length values compare as if the shorter one were filled up with blanks.
void pad_together(const std::vector<Fragment*>& values) {
  size_t size = 1;
  for (const Fragment* value : values) {
    size = std::max(size, value->text ? trimmed_size(*value->text) : value->type.size);
  }
  for (Fragment* value : values) {
    if (value->text) {
      pad_literal(*value, size);
    } else if (value->type.size < size) {
      StaticType type = value->type;
      type.size = static_cast<ub2>(size);
      *value = wrap_sized("store_fixed_char", *value, type);
    }
  }
}

// The value for a column that takes large ones. What is large already is copied with its name; no
// other value can be taken for a name, as a bound one comes by a way of its own.
Fragment store_large(const Fragment& value, const ColumnInfo& column, bool as_text) {
  const ValueClass from = value.type.value_class();
  const StaticType type = type_of(column);
  Fragment type_code = fragment(std::to_string(column.type), value.offset);
  if (from == ValueClass::Long || from == ValueClass::Lob) {
    if (value.type.code != column.type) fail(932, {}, static_cast<int>(value.offset));
    Fragment copied = call("copy_large", {value, type_code}, value.offset);
    copied.type = type;
    return copied;
  }
  const bool text = column.type == SQLT_LNG || column.type == SQLT_CLOB;
  if (column.type == SQLT_BLOB && from == ValueClass::Date) {
    fail(932, {}, static_cast<int>(value.offset));
  }
  const char* function = column.type == SQLT_LNG    ? "store_long"
                         : column.type == SQLT_LBI  ? "store_long_raw"
                         : column.type == SQLT_CLOB ? "store_clob"
                                                    : "store_blob";
  Fragment stored = wrap(function, text && as_text ? to_text(value) : value, type);
  // A placeholder may be bound to a large value or to an ordinary one, which is known at each run
  // only: the first function answers for the one, the second for the other.
  if (!is_placeholder(value)) return stored;
  const Fragment taken = call("take_large", {value, type_code}, value.offset);
  Fragment either = call("coalesce", {taken, stored}, value.offset);
  either.type = type;
  return either;
}

}  // namespace

bool may_be_date_or_number(const Fragment& value) {
  const ValueClass known = value.type.value_class();
  return !value.null && (known == ValueClass::Unknown || known == ValueClass::DateOrNumber);
}

bool is_placeholder(const Fragment& value) {
  return value.sql.starts_with('?') &&
         value.sql.find_first_not_of("0123456789", 1) == std::string::npos;
}

// ROWIDs are text to everything but a comparison with a row's own.
ValueClass StaticType::value_class() const {
  if (open) return ValueClass::DateOrNumber;
  switch (code) {
    case SQLT_NUM:
      return ValueClass::Number;
    case SQLT_CHR:
    case SQLT_AFC:
    case SQLT_RID:
      return ValueClass::Text;
    case SQLT_DAT:
      return ValueClass::Date;
    case SQLT_BIN:
      return ValueClass::Raw;
    case SQLT_LNG:
    case SQLT_LBI:
      return ValueClass::Long;
    case SQLT_CLOB:
    case SQLT_BLOB:
      return ValueClass::Lob;
    default:
      return ValueClass::Unknown;
  }
}

// Without precision, as a column that is declared NUMBER: a client takes precision 0 with scale 0
// for an integer of no digits.
StaticType number_type() {
  return {SQLT_NUM, 22, 0, kNoScale, 0};
}

// Only the bound is known; what is described is an ordinary computed number.
StaticType integer_type(double bound) {
  StaticType type = number_type();
  type.bound = bound;
  return type;
}

// Never size 0: a client could not make a buffer of it.
StaticType text_type(size_t size) {
  return {SQLT_CHR, static_cast<ub2>(std::clamp<size_t>(size, 1, kMaxText)), 0, 0, 0};
}

StaticType date_type() {
  return {SQLT_DAT, 7, 0, 0, 0};
}

StaticType open_type(bool as_date) {
  StaticType type = as_date ? date_type() : number_type();
  type.open = true;
  return type;
}

StaticType type_of(const ColumnInfo& column) {
  StaticType type{column.type, column.size, column.precision, column.scale, 0};
  // Up to 15 digits every sum of a few values stays exact in the engine's own integers.
  if (column.type == SQLT_NUM && column.scale == 0 && column.precision > 0 &&
      column.precision <= 15) {
    type.bound = 1;
    for (int digit = 0; digit < column.precision; ++digit) type.bound *= 10;
  }
  return type;
}

// Upper bounds by type; where nothing is known, the longest VARCHAR2.
size_t text_size(const StaticType& type) {
  switch (type.code) {
    case SQLT_CHR:
    case SQLT_AFC:
    case SQLT_RID:
      return type.size;
    case SQLT_NUM:
      return kNumberText;
    case SQLT_DAT:
      return kDateText;
    case SQLT_BIN:
      return size_t{2} * type.size;
    default:
      return kMaxText;
  }
}

// A literal NULL has no type and takes the other's, as does a type that is open. Lengths grow to
// the longer; two precisions that differ leave a NUMBER without one.
StaticType common_type(const StaticType& left, const StaticType& right) {
  if (left.code == 0) return right;
  if (right.code == 0) return left;
  if (left.open != right.open) return left.open ? right : left;
  if (left.value_class() == ValueClass::Text) {
    if (left.code == right.code && left.size == right.size) return left;
    return text_type(std::max(text_size(left), text_size(right)));
  }
  if (left.code == SQLT_NUM && right.code == SQLT_NUM) {
    if (left.precision == right.precision && left.scale == right.scale) return left;
    return number_type();
  }
  StaticType type = left;
  type.size = std::max(left.size, right.size);
  return type;
}

// What has no type at all (a placeholder) is character data to a client.
ColumnInfo describe(const StaticType& type, std::string name, bool nullable) {
  ColumnInfo column;
  column.name = std::move(name);
  column.type = type.code == 0 ? ub2{SQLT_CHR} : type.code;
  column.size = type.size;
  column.precision = type.precision;
  column.scale = type.scale;
  column.nullable = nullable;
  return column;
}

// Marks move along with the text, so that every piece can be written before it has a place.
Fragment& Fragment::add(const Fragment& part) {
  const ub4 base = static_cast<ub4>(sql.size());
  for (const SourceMark& mark : part.marks) {
    marks.push_back({mark.engine_offset + base, mark.source_offset});
  }
  sql += part.sql;
  aggregate = aggregate || part.aggregate;
  // The first one, which is where the error will point.
  if (bare < 0) bare = part.bare;
  sources |= part.sources;
  weight = std::max(weight, part.weight);
  outer |= part.outer;
  return *this;
}

Fragment fragment(std::string_view sql, ub4 offset) {
  Fragment result;
  result.sql = sql;
  result.offset = offset;
  result.marks.push_back({0, offset});
  return result;
}

// A statement that is too deep is refused here, with its place: the engine only knows that its
// stack overflowed, and not where.
void deepen(Fragment& part, int entries) {
  part.weight += entries;
  if (part.weight > kParserStack) fail(3001, {}, static_cast<int>(part.offset));
}

// An argument list waits on the parser's stack below its later members, so these weigh more.
Fragment call(std::string_view name, const std::vector<Fragment>& arguments, ub4 offset) {
  Fragment result = fragment(name, offset);
  result.add("(");
  int weight = 1;
  for (size_t i = 0; i < arguments.size(); ++i) {
    if (i > 0) result.add(",");
    result.add(arguments[i]);
    weight = std::max(weight, arguments[i].weight + (i == 0 ? 0 : 2));
  }
  result.add(")");
  result.weight = weight;
  deepen(result, 3);
  return result;
}

// Always in parentheses: the engine's order of precedence is not the server's (|| binds tighter
// there), and a whole with parentheses fits anywhere.
Fragment infix(const Fragment& left, std::string_view operation, const Fragment& right) {
  Fragment result = fragment("(", left.offset);
  result.add(left).add(operation).add(right).add(")");
  deepen(result, right.weight >= left.weight ? 3 : 1);
  return result;
}

void refuse_large(const Fragment& value) {
  const ValueClass of_value = value.type.value_class();
  if (of_value == ValueClass::Long || of_value == ValueClass::Lob) {
    fail(932, {}, static_cast<int>(value.offset));
  }
}

std::string quote_text(std::string_view value) {
  std::string quoted = "'";
  for (const char c : value) {
    if (c == '\'') quoted += '\'';
    quoted += c;
  }
  return quoted += '\'';
}

// Only character data converts to other classes by itself. NULL needs no conversion, and a class
// that is not known is left to the operator, which sees the value. What may be a date or a number
// is checked at run time for the one that it has to be.
Fragment coerce(const Fragment& value, ValueClass target) {
  const ValueClass from = value.type.value_class();
  if (value.null || from == target || target == ValueClass::Unknown) return value;
  const bool number_or_date = from == ValueClass::Number || from == ValueClass::Date;
  if (target == ValueClass::DateOrNumber && number_or_date) return value;
  const bool convertible = from == ValueClass::Text || from == ValueClass::Unknown ||
                           (from == ValueClass::DateOrNumber && target != ValueClass::Raw);
  if (target == ValueClass::Text) return to_text(value);
  if (!convertible) fail(932, {}, static_cast<int>(value.offset));
  switch (target) {
    case ValueClass::Number:
      return wrap("ora_number", value, number_type());
    case ValueClass::Date:
      return wrap("ora_date", value, date_type());
    case ValueClass::DateOrNumber:
      return wrap("ora_date_or_number", value, open_type(false));
    case ValueClass::Raw:
      return wrap_sized("store_raw", value, {SQLT_BIN, 2000, 0, 0, 0});
    default:
      fail(932, {}, static_cast<int>(value.offset));
  }
}

// Values of two classes are never left to the engine to compare: by its rules every number sorts
// before every text, and nothing would be equal.
void make_comparable(const std::vector<Fragment*>& values) {
  ValueClass target = ValueClass::Unknown;
  bool fixed = true;
  for (const Fragment* value : values) {
    const ValueClass of_value = value->null ? ValueClass::Unknown : value->type.value_class();
    if (rank(of_value) > rank(target)) target = of_value;
    // A single value of varying length turns blank-padding off for all, as on the server.
    fixed = fixed && (value->null || is_fixed(value->type));
  }
  for (Fragment* value : values) *value = coerce(*value, target);
  if (target == ValueClass::Long || target == ValueClass::Lob) {
    fail(932, {}, static_cast<int>(values.front()->offset));
  }
  if (fixed && target == ValueClass::Text) {
    std::vector<Fragment*> padded;
    for (Fragment* value : values) {
      if (!value->null) padded.push_back(value);
    }
    pad_together(padded);
  }
}

// NULL leaves the padding of others as it is.
bool pads_some(const Fragment& left, const std::vector<Fragment>& values) {
  if (!is_fixed(left.type)) return false;
  bool fixed = false, varying = false;
  for (const Fragment& value : values) {
    fixed = fixed || is_fixed(value.type);
    varying = varying || !(value.null || is_fixed(value.type));
  }
  return fixed && varying;
}

// The one way into a typed column: INSERT, UPDATE, CREATE TABLE AS, DEFAULT and CAST end here.
// Without a type a NULL fits any; CAST gives it one itself.
Fragment store(const Fragment& value, const ColumnInfo& column) {
  if (value.null) return value;
  if (value.type.inexact) fail(1438, {}, static_cast<int>(value.offset));
  const StaticType type = type_of(column);
  // DATE and RAW look alike at run time: only here is known how their text is made.
  const ValueClass from = value.type.value_class();
  const bool as_text = from == ValueClass::Date || from == ValueClass::Raw;
  if (may_be_large(column.type)) return store_large(value, column, as_text);
  refuse_large(value);
  switch (column.type) {
    case SQLT_CHR:
    case SQLT_RID:
      return wrap_sized("store_char", as_text ? to_text(value) : value, type);
    case SQLT_AFC:
      return wrap_sized("store_fixed_char", as_text ? to_text(value) : value, type);
    case SQLT_DAT:
      if (from == ValueClass::Number) break;
      return wrap("store_date", value, type);
    case SQLT_BIN:
      return wrap_sized("store_raw", value, type);
    case SQLT_NUM: {
      if (as_text) break;
      const bool any = takes_any_number(column);
      // Without declared digits a client's double must come back bit for bit, which the general
      // function does not promise.
      if (any && is_placeholder(value)) return wrap("store_given_number", value, type);
      Fragment result = fragment("store_number(", value.offset);
      result.add(value).add("," + std::to_string(any ? 0 : column.precision) + "," +
                            std::to_string(any ? 0 : column.scale) + ")");
      deepen(result, 3);
      result.type = type;
      return result;
    }
    default:
      fail(3001, {}, static_cast<int>(value.offset));
  }
  fail(932, {}, static_cast<int>(value.offset));
}

}  // namespace oci8
