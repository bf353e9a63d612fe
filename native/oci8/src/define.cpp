// Conversions are chosen once for each column, as plain functions: the value's way from the
// engine's memory to the caller's is one call, allocates nothing, and copies once.
#include "define.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "date.h"
#include "locator.h"
#include "number.h"

namespace oci8 {
namespace {

// ORA-01405: a NULL was fetched and no indicator could say so. ORA-01406: cut, and the call fails.
constexpr int kNullFetched = 1405;
constexpr int kCut = 1406;

// --- Text: how a value reads, and how its text stands in the element ---------------------------
// A shape knows the room that it leaves for the text, completes the element behind the text, and
// returns the length that is reported.

struct Plain {
  static size_t limit(size_t room) { return room; }
  static size_t finish(ub1*, size_t length, size_t) { return length; }
};

// Elements of no bytes have no room for the terminator; OCIDefineByPos and store_output let none of
// them come here.
struct ZeroTerminated {
  static size_t limit(size_t room) { return room - 1; }
  static size_t finish(ub1* target, size_t length, size_t) {
    target[length] = 0;
    return length;
  }
};

struct BlankPadded {
  static size_t limit(size_t room) { return room; }
  static size_t finish(ub1* target, size_t length, size_t room) {
    std::memset(target + length, ' ', room - length);
    return room;
  }
};

constexpr Placed refused(int code) {
  return {0, 0, code};
}

Placed placed_of(size_t length, size_t full) {
  return {length, static_cast<ub4>(std::min<size_t>(full, std::numeric_limits<ub4>::max())), 0};
}

Placed put_bytes(const char* data, size_t size, ub1* target, size_t limit) {
  const size_t length = std::min(size, limit);
  if (length > 0) std::memcpy(target, data, length);
  return placed_of(length, size);
}

// An odd limit may end between the two digits of a byte: the cut is reported like any other.
Placed put_hex(const Value& value, ub1* target, size_t limit) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  const size_t full = value.size * 2;
  const size_t length = std::min(full, limit);
  for (size_t i = 0; i < length; ++i) {
    const auto byte = static_cast<ub1>(value.data[i / 2]);
    target[i] = static_cast<ub1>(kDigits[i % 2 == 0 ? byte >> 4 : byte & 15]);
  }
  return placed_of(length, full);
}

template <class Number>
Placed put_number(Number number, ub1* target, size_t limit) {
  if (limit >= kNumberTextSize) {
    const size_t length = number_to_text(number, reinterpret_cast<char*>(target));
    return placed_of(length, length);
  }
  char digits[kNumberTextSize];
  return put_bytes(digits, number_to_text(number, digits), target, limit);
}

Placed put_date(const Value& value, ub1* target, size_t limit) {
  const auto* bytes = reinterpret_cast<const ub1*>(value.data);
  if (value.size != kDateSize || !valid_date(bytes)) return put_hex(value, target, limit);
  // Nine characters, which fit the string's own memory: no row costs an allocation.
  const std::string written = format_date(unpack_date(bytes), kDefaultDateFormat);
  return put_bytes(written.data(), written.size(), target, limit);
}

// Expressions may give another kind of value than their column was described with, so the kind
// decides and not the column's type.
template <Placed (*put_binary)(const Value&, ub1*, size_t)>
Placed put_text(const Value& value, ub1* target, size_t limit) {
  switch (value.kind) {
    case Value::Kind::Integer:
      return put_number(value.integer, target, limit);
    case Value::Kind::Real:
      return put_number(value.real, target, limit);
    case Value::Kind::Bytes:
      return put_binary(value, target, limit);
    case Value::Kind::Large:
      return refused(932);
    default:
      return put_bytes(value.data, value.size, target, limit);
  }
}

template <class Shape, Placed (*put_binary)(const Value&, ub1*, size_t)>
Placed to_text(const Value& value, ub1* target, size_t room) {
  Placed placed = put_text<put_binary>(value, target, Shape::limit(room));
  placed.length = Shape::finish(target, placed.length, room);
  return placed;
}

// --- Native numbers ----------------------------------------------------------------------------

// Character columns are welcome as numbers, too, as long as their text is one.
// 0, or the error that keeps the value from being a number.
int read_number(const Value& value, Number& out) {
  switch (value.kind) {
    case Value::Kind::Integer:
      out = {true, value.integer, 0};
      return 0;
    case Value::Kind::Real:
      out = {false, 0, value.real};
      return 0;
    case Value::Kind::Text:
      switch (parse_number({value.data, value.size}, out)) {
        case NumberParse::Invalid:
          return 1722;
        case NumberParse::Overflow:
          return 1426;
        default:
          return 0;
      }
    default:
      return 932;
  }
}

// Elements of the caller's arrays need not be aligned for their type.
template <class Native>
Placed store_native(Native native, ub1* target) {
  std::memcpy(target, &native, sizeof native);
  return {sizeof native, sizeof native, 0};
}

// Fractions are dropped; what does not fit is ORA-01455.
template <class Integer>
Placed to_integer(const Value& value, ub1* target, size_t) {
  Number number;
  if (const int code = read_number(value, number)) return refused(code);
  if (!number.is_integer) {
    // 2^63 is the first double beyond the range; the comparison also turns NaN away.
    constexpr double kLimit = 9223372036854775808.0;
    if (!(number.real >= -kLimit && number.real < kLimit)) return refused(1455);
    number.integer = static_cast<long long>(number.real);
  }
  if (number.integer < std::numeric_limits<Integer>::min() ||
      number.integer > std::numeric_limits<Integer>::max()) {
    return refused(1455);
  }
  return store_native(static_cast<Integer>(number.integer), target);
}

template <class Float>
Placed to_float(const Value& value, ub1* target, size_t) {
  Number number;
  if (const int code = read_number(value, number)) return refused(code);
  const double wide = number.as_real();
  if (wide > std::numeric_limits<Float>::max() || wide < std::numeric_limits<Float>::lowest()) {
    return refused(1457);
  }
  return store_native(static_cast<Float>(wide), target);
}

// --- Bytes -------------------------------------------------------------------------------------

// RAW, LONG RAW and DATE: the bytes as they are kept, which for a DATE are the seven of the
// interface.
Placed to_bytes(const Value& value, ub1* target, size_t room) {
  if (value.kind != Value::Kind::Bytes) return refused(932);
  return put_bytes(value.data, value.size, target, room);
}

// --- LOBs --------------------------------------------------------------------------------------

// The element is the address of a locator, which comes to name the value.
template <LargeName::Unit unit>
Placed to_locator(const Value& value, ub1* target, size_t room) {
  if (value.kind != Value::Kind::Large || value.large.unit != unit) return refused(932);
  Placed placed = placed_of(room, room);
  placed.code = fill_variable(target, value.large);
  return placed;
}

// --- The choice --------------------------------------------------------------------------------

// What a column's type means for conversions; lengths and character forms make no difference.
enum class Family { Text, Number, Date, Bytes, None };

Family family_of(ub2 internal) {
  switch (internal) {
    case SQLT_CHR:
    case SQLT_LNG:
    case SQLT_RID:
    case SQLT_AFC:
      return Family::Text;
    case SQLT_NUM:
      return Family::Number;
    case SQLT_DAT:
      return Family::Date;
    case SQLT_BIN:
    case SQLT_LBI:
      return Family::Bytes;
    default:
      return Family::None;
  }
}

template <class Shape>
Converter text_converter(Family family) {
  if (family == Family::None) return nullptr;
  // A placeholder's date may come where the describe has said VARCHAR2 or NUMBER.
  return family == Family::Bytes ? to_text<Shape, put_hex> : to_text<Shape, put_date>;
}

Converter integer_converter(size_t room) {
  switch (room) {
    case 1:
      return to_integer<signed char>;
    case 2:
      return to_integer<short>;
    case 4:
      return to_integer<int>;
    case 8:
      return to_integer<long long>;
    default:
      return nullptr;
  }
}

Converter float_converter(size_t room) {
  if (room == sizeof(float)) return to_float<float>;
  return room == sizeof(double) ? to_float<double> : nullptr;
}

}  // namespace

Converter find_converter(ub2 external, size_t room, ub2 internal) {
  const Family family = family_of(internal);
  const bool numeric = family == Family::Number || family == Family::Text;
  switch (external) {
    case SQLT_STR:
      return text_converter<ZeroTerminated>(family);
    case SQLT_CHR:
    case SQLT_LNG:
      return text_converter<Plain>(family);
    case SQLT_AFC:
      return text_converter<BlankPadded>(family);
    case SQLT_INT:
      return numeric ? integer_converter(room) : nullptr;
    case SQLT_FLT:
      return numeric ? float_converter(room) : nullptr;
    case SQLT_DAT:
      return family == Family::Date ? to_bytes : nullptr;
    case SQLT_BIN:
    case SQLT_LBI:
      return family == Family::Bytes ? to_bytes : nullptr;
    case SQLT_CLOB:
      return internal == external ? to_locator<LargeName::Unit::Character> : nullptr;
    case SQLT_BLOB:
      return internal == external ? to_locator<LargeName::Unit::Byte> : nullptr;
    default:
      return nullptr;
  }
}

// Room is a part of the question: an INTEGER of three bytes is no type at all.
bool definable(ub2 external, size_t room) {
  // Each external type converts from at least one of these.
  return find_converter(external, room, SQLT_CHR) || find_converter(external, room, SQLT_DAT) ||
         find_converter(external, room, SQLT_BIN) || is_locator(external);
}

// Only as the bytes that the value consists of: a piece is a part of the engine's own memory, and a
// conversion would need a copy of the whole value.
bool fetchable_in_pieces(ub2 external, ub2 internal) {
  const Family family = family_of(internal);
  return (external == SQLT_LNG && family == Family::Text) ||
         (external == SQLT_LBI && family == Family::Bytes);
}

int store_null(sb2* indicator, ub2* length, ub2* code) noexcept {
  if (length != nullptr) *length = 0;
  if (code != nullptr) *code = kNullFetched;
  if (indicator == nullptr) return kNullFetched;
  *indicator = -1;
  return 0;
}

// ORA-24345 gives way to any other code because it goes with a status that is no failure.
void keep_worst(int& kept, int code) noexcept {
  if (code != 0 && (kept == 0 || kept == kCutWithInfo)) kept = code;
}

int HostVariable::store_nothing(size_t row) const noexcept {
  // A locator must not go on naming the value of the row before.
  if (is_locator(type)) fill_variable(buffer + row * room, {});
  return store_null(element(indicators, row), element(lengths, row), element(codes, row));
}

// Who can be told about a value that was cut decides what the call reports: with a return code the
// value's fate is known from its element, without one the call has to fail.
int HostVariable::tell(Placed placed, size_t row) const noexcept {
  if (codes != nullptr) codes[row] = static_cast<ub2>(placed.code != 0 ? placed.code : kCut);
  if (placed.code != 0) return placed.code;
  // -2: the full length does not fit the indicator.
  if (indicators != nullptr) {
    indicators[row] = static_cast<sb2>(placed.full <= 32767 ? placed.full : -2);
  }
  return codes != nullptr ? kCutWithInfo : kCut;
}

}  // namespace oci8
