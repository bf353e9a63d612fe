// Values are handed on as views of the caller's memory wherever the caller keeps it in place for
// as long as the engine needs it; only pieces from a callback have to be put together.
#include "bind.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "ascii.h"
#include "date.h"
#include "error.h"
#include "locator.h"

namespace oci8 {
namespace {

// The longest value that the engine takes.
// SQLite's own default for the length of a string or blob (SQLITE_MAX_LENGTH).
constexpr size_t kLongestValue = 1000000000;
// Room for the usual first pieces: short values need a single allocation.
constexpr size_t kFirstCapacity = 65536;

template <class Native>
Native load(const ub1* data) {
  // Elements of the caller's arrays need not be aligned for their type.
  Native native;
  std::memcpy(&native, data, sizeof native);
  return native;
}

// The functions below find the value NULL, and set what it is otherwise.

void set_integer(long long integer, Value& value) {
  value.kind = Value::Kind::Integer;
  value.integer = integer;
}

void set_view(Value::Kind kind, const void* data, size_t size, Value& value) {
  // Empty is NULL for the server.
  if (size == 0) return;
  value.kind = kind;
  value.data = static_cast<const char*>(data);
  value.size = size;
}

// The default stands for eight bytes: bind_error has turned every other size away.
void read_integer(const ub1* data, size_t room, Value& value) {
  switch (room) {
    case 1:
      return set_integer(load<signed char>(data), value);
    case 2:
      return set_integer(load<short>(data), value);
    case 4:
      return set_integer(load<int>(data), value);
    default:
      return set_integer(load<long long>(data), value);
  }
}

// Integral values go as integers, which are compared and kept without any rounding; that also
// takes the sign off a negative zero.
void read_real(const ub1* data, size_t room, Value& value) {
  // NUMBER's range as the server has it, 1E-130 up to below 1E126. A double outside of it is no
  // NUMBER that could be kept.
  constexpr double kTooLarge = 1e126;
  constexpr double kSmallest = 1e-130;
  constexpr double kIntegers = 9223372036854775808.0;  // 2^63
  const double real =
      room == sizeof(float) ? static_cast<double>(load<float>(data)) : load<double>(data);
  const double magnitude = std::abs(real);
  // Also true for what is not a number at all.
  if (!(magnitude < kTooLarge) || (magnitude < kSmallest && magnitude > 0)) fail(1426);
  if (magnitude < kIntegers) {
    const auto integer = static_cast<long long>(real);
    if (static_cast<double>(integer) == real) return set_integer(integer, value);
  }
  value.kind = Value::Kind::Real;
  value.real = real;
}

// A length that leaves out the terminator is as good as the terminator.
// OCI reads a null-terminated bind by its terminator. A length array may say less, but an element
// that is full up to the last byte has none: ORA-01480, because what follows in memory is not the
// caller's value.
void read_string(const ub1* data, size_t length, size_t room, Value& value) {
  const void* end = std::memchr(data, 0, length);
  if (end == nullptr && length == room) fail(1480);
  if (end != nullptr) length = static_cast<size_t>(static_cast<const ub1*>(end) - data);
  set_view(Value::Kind::Text, data, length, value);
}

void read_date(const ub1* data, Value& value) {
  if (!valid_date(data)) {
    // Finds the field that is wrong. Fields that are right by themselves may still be an encoding
    // that the server never makes.
    pack_date(unpack_date(data));
    fail(1841);
  }
  set_view(Value::Kind::Bytes, data, kDateSize, value);
}

// The column gets a copy of what the locator names.
void read_locator(const ub1* variable, ub2 type, Value& value) {
  value.large = name_in_variable(variable, type);
  value.kind = Value::Kind::Large;
}

// ROWIDs and numbers are bound as text as well: the dialect converts at the column, see store() in
// dialect_fragment.cpp.
bool is_text(ub2 type) {
  return type == SQLT_CHR || type == SQLT_STR || type == SQLT_LNG || type == SQLT_AFC;
}

bool bound_null(const BindHandle& bind, size_t row) {
  return bind.indicators != nullptr && bind.indicators[row] == -1;
}

// The type that a value would have as a column. RAW and DATE are both bytes: the variable's type
// tells them apart, and for text their look.
ub2 column_type(const Value& value, ub2 external) {
  if (value.kind == Value::Kind::Text) return SQLT_CHR;
  if (value.kind == Value::Kind::Large) {
    return value.large.unit == LargeName::Unit::Character ? SQLT_CLOB : SQLT_BLOB;
  }
  if (value.kind != Value::Kind::Bytes) return SQLT_NUM;
  if (external == SQLT_BIN || external == SQLT_LBI) return SQLT_BIN;
  const bool date = value.size == kDateSize && valid_date(reinterpret_cast<const ub1*>(value.data));
  return date ? SQLT_DAT : SQLT_BIN;
}

bool is_word(std::string_view word, std::string_view wanted) {
  return word.size() == wanted.size() && starts_with(word, wanted);
}

}  // namespace

// Grown in place where the allocator can: for large blocks it moves pages and not their contents,
// so that a long value is neither copied nor there twice.
void HeldBytes::grow(size_t capacity) {
  void* grown = std::realloc(data_.get(), capacity);
  if (grown == nullptr) throw std::bad_alloc();
  static_cast<void>(data_.release());
  data_.reset(static_cast<char*>(grown));
  capacity_ = capacity;
}

void HeldBytes::assign(const char* bytes, size_t size) {
  if (size > capacity_) grow(size);
  std::memcpy(data_.get(), bytes, size);
  size_ = size;
}

void HeldBytes::append(const void* bytes, size_t size, size_t expected) {
  if (size == 0) return;
  if (size > kLongestValue - size_) fail(1401);
  const size_t needed = size_ + size;
  if (needed > capacity_) {
    size_t capacity = std::max({needed, kFirstCapacity, std::min(capacity_ * 2, kLongestValue)});
    if (expected >= needed) capacity = std::min(capacity, expected);
    grow(capacity);
  }
  std::memcpy(data_.get() + size_, bytes, size);
  size_ = needed;
}

char* HeldBytes::make_room(size_t size) {
  if (size > capacity_) grow(size);
  size_ = size;
  return data_.get();
}

void HeldBytes::release() noexcept {
  data_.reset();
  size_ = capacity_ = 0;
}

int bind_error(ub2 type, size_t size) noexcept {
  constexpr int kUnsupported = 3115, kInvalidLength = 1459;
  const bool power = size == 1 || size == 2 || size == 4 || size == 8;
  switch (type) {
    case SQLT_CHR:
    case SQLT_STR:
    case SQLT_LNG:
    case SQLT_AFC:
    case SQLT_BIN:
    case SQLT_LBI:
    case SQLT_RSET:
    case SQLT_CLOB:
    case SQLT_BLOB:
      return 0;
    case SQLT_INT:
      return power ? 0 : kInvalidLength;
    case SQLT_FLT:
      return size == sizeof(float) || size == sizeof(double) ? 0 : kInvalidLength;
    case SQLT_DAT:
      return size >= kDateSize ? 0 : kInvalidLength;
    default:
      return kUnsupported;
  }
}

bool arrives_in_pieces(ub2 type) noexcept {
  return is_text(type) || type == SQLT_BIN || type == SQLT_LBI;
}

void read_value(const BindHandle& bind, size_t row, Value& value) {
  value = Value();
  if (bound_null(bind, row)) return;
  const ub1* data = bind.buffer + row * bind.room;
  // A length says nothing about a locator.
  if (is_locator(bind.type)) return read_locator(data, bind.type, value);
  const size_t length = bind.lengths == nullptr ? bind.room : bind.lengths[row];
  if (length > bind.room) fail(1458);
  if (length == 0) return;
  switch (bind.type) {
    case SQLT_INT:
      return read_integer(data, bind.room, value);
    case SQLT_FLT:
      return read_real(data, bind.room, value);
    case SQLT_STR:
      return read_string(data, length, bind.room, value);
    case SQLT_DAT:
      return read_date(data, value);
    case SQLT_RSET:
      return;
    default:
      return set_view(is_text(bind.type) ? Value::Kind::Text : Value::Kind::Bytes, data, length,
                      value);
  }
}

// A piece is taken before the next call: the caller may put the next one in the same place.
bool pull_value(BindHandle& bind, ub4 row, PieceSink& sink) {
  if (bound_null(bind, row)) return false;
  void* indicator = bind.indicators == nullptr ? nullptr : bind.indicators + row;
  ub1 piece = OCI_FIRST_PIECE;
  for (;;) {
    void* data = nullptr;
    ub4 size = 0;
    if (bind.callback(bind.context, reinterpret_cast<OCIBind*>(&bind), row, 0, &data, &size, &piece,
                      &indicator) != OCI_CONTINUE) {
      fail(24343);
    }
    if (data == nullptr && size > 0) fail(24343);
    sink.take(data, size);
    if (piece == OCI_LAST_PIECE || piece == OCI_ONE_PIECE) break;
    piece = OCI_NEXT_PIECE;
  }
  return indicator == nullptr || load<sb2>(static_cast<ub1*>(indicator)) != -1;
}

bool streams_into(ub2 external, ub2 internal) noexcept {
  if (is_text(external)) return internal == SQLT_LNG;
  return arrives_in_pieces(external) && (internal == SQLT_LBI || internal == SQLT_BLOB);
}

Value held_value(const BindHandle& bind, const HeldBytes& held) {
  Value value;
  set_view(is_text(bind.type) ? Value::Kind::Text : Value::Kind::Bytes, held.data(), held.size(),
           value);
  return value;
}

int store_output(const BindHandle& bind, const Value& value, size_t row) noexcept {
  if (bind.at_execution) return 3001;
  // A copy, because the conversion suits this value only: the next run may assign one of another
  // type.
  HostVariable target = bind;
  target.convert = find_converter(bind.type, bind.room, column_type(value, bind.type));
  if (target.convert == nullptr && value.kind != Value::Kind::Null) return 932;
  // Without an element there is no room for a terminator either.
  if (bind.room == 0 && value.kind != Value::Kind::Null) return 1406;
  return target.store(value, row);
}

// `:x :=`, `INTO :x, v, :y` and `OPEN :x` write; every other place reads.
std::vector<PlaceholderUse> find_uses(const SqlText& text) {
  std::vector<PlaceholderUse> uses(text.placeholders.size());
  bool into = false, open = false;
  bool due = false;  // a target, here or as a variable of the block
  for (size_t i = 0; i < text.tokens.size(); ++i) {
    const std::string_view word = text.spelling(text.tokens[i]);
    if (text.tokens[i].kind != TokenKind::Placeholder) {
      const bool more = is_word(word, "INTO") || (into && word == ",");
      into = more || (into && due);
      due = more;
      open = is_word(word, "OPEN");
      continue;
    }
    const auto found = std::ranges::find_if(text.placeholders, [&](const Placeholder& one) {
      return is_word(word.substr(1), one.name);
    });
    // Cannot happen as long as the tokenizer lists what it reads; a wrong list must not become an
    // index out of bounds.
    if (found == text.placeholders.end()) continue;
    PlaceholderUse& use = uses[static_cast<size_t>(found - text.placeholders.begin())];
    const bool assigned = i + 1 < text.tokens.size() && text.spelling(text.tokens[i + 1]) == ":=";
    if (open) use.opened = true;
    if (!open && !into && !assigned) use.read = true;
    open = due = false;
  }
  return uses;
}

}  // namespace oci8
