// A function of SQLite's may be called with anything, also by a schema that somebody else wrote:
// types are asked for and never assumed. sqlite3_value_type is asked before a value is read in
// another form, since SQLite's conversions change what it answers.
#include "sqlite_call.h"

#include <cmath>
#include <limits>
#include <new>

#include "ascii.h"
#include "decimal.h"
#include "error.h"

namespace oci8 {
namespace {

// Up to here an integral double is the integer that 15 digits say.
constexpr double kExactIntegers = 1e15;
// A computed value whose first 15 digits end in so many zeros is the decimal before them: by chance
// one in a thousand would look like that. With less of them it must be as near as two operations
// leave it.
constexpr int kMeantDigits = std::numeric_limits<double>::digits10 - 3;
constexpr double kNoise = 2 * std::numeric_limits<double>::epsilon();

// Raised here, where the digit is seen, so that no caller can forget to look.
int hex_value(char digit) {
  if (is_digit(digit)) return digit - '0';
  const char letter = upper(digit);
  if (letter < 'A' || letter > 'F') fail(1465);
  return letter - 'A' + 10;
}

}  // namespace

// Asking for the size converts nothing: the value already is text or bytes in UTF-8.
bool Call::is_null(int index) const {
  const int kind = type(index);
  return kind == SQLITE_NULL ||
         ((kind == SQLITE_TEXT || kind == SQLITE_BLOB) && sqlite3_value_bytes(values_[index]) == 0);
}

// Most functions of the server are NULL as soon as one argument is.
bool Call::any_null() const {
  for (int i = 0; i < count_; ++i) {
    if (is_null(i)) return true;
  }
  return false;
}

bool Call::is_date(int index) const {
  return type(index) == SQLITE_BLOB && sqlite3_value_bytes(values_[index]) == kDateSize &&
         valid_date(static_cast<const ub1*>(sqlite3_value_blob(values_[index])));
}

std::string_view Call::bytes(int index) const {
  sqlite3_value* value = values_[index];
  const void* data =
      type(index) == SQLITE_TEXT ? sqlite3_value_text(value) : sqlite3_value_blob(value);
  const auto size = static_cast<size_t>(sqlite3_value_bytes(value));
  // SQLite has no other way to say that memory ran out here.
  if (data == nullptr && size != 0) throw std::bad_alloc();
  return {static_cast<const char*>(data), size};
}

Number Call::number(int index) const {
  Number result;
  switch (type(index)) {
    case SQLITE_INTEGER:
      result.integer = sqlite3_value_int64(values_[index]);
      return result;
    case SQLITE_FLOAT:
      result.is_integer = false;
      result.real = sqlite3_value_double(values_[index]);
      return result;
    case SQLITE_TEXT:
      switch (parse_number(bytes(index), result)) {
        case NumberParse::Invalid:
          fail(1722);
        case NumberParse::Overflow:
          fail(1426);
        default:
          return result;
      }
    default:
      fail(932);
  }
}

// Integers beyond 2^53 lose digits here; callers that must not take the Number.
double Call::real(int index) const {
  return number(index).as_real();
}

// fmin and fmax also turn a NaN into the limit, so that the conversion is always defined.
int Call::integer(int index) const {
  constexpr double kLimit = std::numeric_limits<int>::max();
  const double value = std::trunc(real(index));
  return static_cast<int>(std::fmin(std::fmax(value, -kLimit), kLimit));
}

DateFields Call::date(int index) const {
  if (is_date(index)) {
    return unpack_date(static_cast<const ub1*>(sqlite3_value_blob(values_[index])));
  }
  if (type(index) != SQLITE_TEXT) fail(932);
  return parse_date(bytes(index), kDefaultDateFormat);
}

// A column must not change its type from row to row: its describe has promised one.
void Call::give_argument_like(int index, int model) {
  if (is_null(index)) return;
  if (type(model) == SQLITE_TEXT && type(index) != SQLITE_TEXT) {
    give_text(TextArgument(*this, index).view());
  } else if (is_number(model) && !is_number(index)) {
    give_number(number(index));
  } else {
    give_argument(index);
  }
}

void Call::give_real(double value) {
  give_number(computed_number(value));
}

void Call::give_number(const Number& value) {
  if (value.is_integer) {
    sqlite3_result_int64(context_, value.integer);
  } else {
    sqlite3_result_double(context_, value.real);
  }
}

void Call::give_text(std::string_view value) {
  // A call without a result is NULL for SQLite, and that is what the empty string is for the
  // server.
  if (value.empty()) return;
  sqlite3_result_text64(context_, value.data(), value.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

void Call::give_bytes(std::string_view value) {
  if (value.empty()) return;
  sqlite3_result_blob64(context_, value.data(), value.size(), SQLITE_TRANSIENT);
}

void Call::give_date(const DateFields& fields) {
  // Checks the fields, so that no function can give a date outside of the calendar.
  const DateBytes packed = pack_date(fields);
  sqlite3_result_blob(context_, packed.data(), static_cast<int>(packed.size()), SQLITE_TRANSIENT);
}

// Text is used where it lies; only dates and RAW need memory of their own.
TextArgument::TextArgument(const Call& call, int index) {
  switch (call.type(index)) {
    case SQLITE_TEXT:
      view_ = call.bytes(index);
      return;
    case SQLITE_INTEGER:
      view_ = {number_, number_to_text(call.number(index).integer, number_)};
      return;
    case SQLITE_FLOAT:
      view_ = {number_, number_to_text(call.number(index).real, number_)};
      return;
    case SQLITE_BLOB:
      converted_ = call.is_date(index) ? format_date(call.date(index), kDefaultDateFormat)
                                       : bytes_to_hex(call.bytes(index));
      view_ = converted_;
      return;
    default:
      return;
  }
}

TextResult::TextResult(size_t size)
    : memory_(static_cast<char*>(sqlite3_malloc64(size == 0 ? 1 : size))) {
  if (memory_ == nullptr) throw std::bad_alloc();
}

void TextResult::give(Call& call, size_t size) {
  if (size == 0) return;
  // SQLite owns the memory from here on, also where it refuses the text as too long.
  sqlite3_result_text64(call.context(), memory_.release(), size, sqlite3_free, SQLITE_UTF8);
}

// Binary noise is removed here: .1 + .2 is .3, and equal to it. What needs all 15 digits is a value
// without end, most likely: it keeps what the double knows beyond them, so that 1 / 3 * 3 is 1, and
// eight hours are 8 from the difference of their dates on.
Number computed_number(double value) {
  if (std::trunc(value) == value && std::abs(value) < kExactIntegers) {
    return {true, static_cast<long long>(value), 0};
  }
  const Number computed{false, 0, value};
  const Decimal decimal = decimal_of(computed);
  Number result;
  if (!std::isfinite(value) || !number_of(decimal, result)) fail(1426);
  const bool meant = result.as_real() == 0 || decimal.size <= kMeantDigits ||
                     (decimal.size < std::numeric_limits<double>::digits10 &&
                      std::abs(result.as_real() - value) <= kNoise * std::abs(value));
  return meant ? result : computed;
}

// An odd number of digits has a zero before them, as on the server.
std::string hex_to_bytes(std::string_view text) {
  std::string bytes;
  bytes.reserve((text.size() + 1) / 2);
  int high = 0;
  bool pending = text.size() % 2 != 0;
  for (char digit : text) {
    if (pending) bytes += static_cast<char>(high * 16 + hex_value(digit));
    high = pending ? 0 : hex_value(digit);
    pending = !pending;
  }
  return bytes;
}

std::string bytes_to_hex(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (char c : bytes) {
    text += kDigits[static_cast<unsigned char>(c) >> 4];
    text += kDigits[static_cast<unsigned char>(c) & 15];
  }
  return text;
}

// The message is copied by SQLite, and the engine's error table recognises it by its number.
void report_failure(sqlite3_context* context) noexcept {
  try {
    // Called within a catch block only, where there is an exception to look at again.
    throw;
  } catch (const Failure& failure) {
    sqlite3_result_error(context, failure.text.data(), static_cast<int>(failure.text.size()));
  } catch (const std::bad_alloc&) {
    sqlite3_result_error_nomem(context);
  } catch (...) {
    sqlite3_result_error(context, "ORA-00600: internal error code, arguments: []\n", -1);
  }
}

}  // namespace oci8
