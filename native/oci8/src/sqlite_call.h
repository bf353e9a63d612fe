// One call of an SQL function: its arguments as the server would see them, and its result. Only
// `run_call` meets SQLite, so that no C++ exception passes through it.
#ifndef OCI8_SQLITE_CALL_H
#define OCI8_SQLITE_CALL_H

#include <sqlite3.h>

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "date.h"
#include "error.h"
#include "number.h"
#include "sqlite_stop.h"

namespace oci8 {

/// Lives on the stack for the one call: arguments and context are SQLite's and gone afterwards.
/// Functions raise Failure; what they give last is the result.
class Call {
 public:
  Call(sqlite3_context* context, int count, sqlite3_value** values)
      : context_(context), values_(values), count_(count) {}

  int count() const { return count_; }
  sqlite3_context* context() const { return context_; }

  // Arguments, from 0. Conversions are the server's implicit ones.

  /// SQLITE_INTEGER, SQLITE_FLOAT, SQLITE_TEXT, SQLITE_BLOB or SQLITE_NULL.
  int type(int index) const { return sqlite3_value_type(values_[index]); }
  /// NULL, or the empty string, which is NULL for the server.
  bool is_null(int index) const;
  bool any_null() const;
  /// Seven bytes that form a date. A RAW that happens to look like one is taken for it.
  bool is_date(int index) const;
  /// Raises ORA-01722 for text that is no number, ORA-00932 for bytes, ORA-01426 for a number
  /// outside of the server's range. Text with more digits than can be kept is the nearest double.
  Number number(int index) const;
  double real(int index) const;
  /// A number without its decimals, held to the range of an int: a length, position or count.
  int integer(int index) const;
  /// A date, or text in the default format; raises ORA-00932 for other types.
  DateFields date(int index) const;
  /// The bytes of TEXT or BLOB, as they are.
  std::string_view bytes(int index) const;
  /// An INTEGER, all of it.
  long long integer64(int index) const { return sqlite3_value_int64(values_[index]); }
  /// What was bound as a pointer of that type; null for every other value.
  void* pointer(int index, const char* of_type) const {
    return sqlite3_value_pointer(values_[index], of_type);
  }
  bool is_number(int index) const {
    return type(index) == SQLITE_INTEGER || type(index) == SQLITE_FLOAT;
  }

  // Results; NULL without one. Text and bytes are copied, and are NULL where empty.

  void give_argument(int index) { sqlite3_result_value(context_, values_[index]); }
  /// The argument converted to the type of another, as functions that choose between their
  /// arguments do: text or number, everything else as it is.
  void give_argument_like(int index, int model);
  void give_integer(long long value) { sqlite3_result_int64(context_, value); }
  /// A computed_number.
  void give_real(double value);
  void give_number(const Number& value);
  void give_text(std::string_view value);
  void give_bytes(std::string_view value);
  void give_date(const DateFields& fields);

 private:
  sqlite3_context* context_;
  sqlite3_value** values_;
  int count_;
};

/// An argument as character data: text itself, or a number, date or RAW written into a buffer of
/// this object.
class TextArgument {
 public:
  TextArgument(const Call& call, int index);
  TextArgument(const TextArgument&) = delete;
  TextArgument& operator=(const TextArgument&) = delete;

  std::string_view view() const { return view_; }

 private:
  char number_[kNumberTextSize];
  std::string converted_;
  std::string_view view_;
};

/// Memory that is filled and then becomes a call's text without a further copy.
class TextResult {
 public:
  explicit TextResult(size_t size);
  char* data() { return memory_.get(); }
  /// Gives the first `size` bytes, NULL where that is none.
  void give(Call& call, size_t size);

 private:
  struct Free {
    void operator()(char* memory) const noexcept { sqlite3_free(memory); }
  };
  std::unique_ptr<char, Free> memory_;
};

/// A computed value: the decimal that is meant where that has few digits, as INTEGER where it is
/// integral, and the double otherwise. Raises ORA-01426 for one outside of the server's range.
Number computed_number(double value);

/// Raises ORA-01465 for anything but hexadecimal digits; an odd first digit stands alone.
std::string hex_to_bytes(std::string_view text);
/// In capital letters, two for each byte.
std::string bytes_to_hex(std::string_view bytes);

/// Reports the exception that is being handled as the call's error.
void report_failure(sqlite3_context* context) noexcept;

/// The function as SQLite calls it. A break is noticed here, once for each call: it ends the
/// statement with ORA-01013 and nothing else is lost (sqlite_stop.h).
template <void (*Body)(Call&)>
void run_call(sqlite3_context* context, int count, sqlite3_value** values) noexcept {
  try {
    if (stop_asked()) fail(1013);
    Call call(context, count, values);
    Body(call);
  } catch (...) {
    report_failure(context);
  }
}

/// The last call of an aggregate, which has no arguments.
template <void (*Body)(Call&)>
void finish_calls(sqlite3_context* context) noexcept {
  run_call<Body>(context, 0, nullptr);
}

/// A row of a module's table of functions.
struct SqlFunction {
  const char* name;
  int arguments;  // -1: any number
  void (*run)(sqlite3_context*, int, sqlite3_value**) noexcept;
  // An aggregate's result, after a run for each row.
  void (*finish)(sqlite3_context*) noexcept = nullptr;
};

/// The tables of the modules sqlite_functions_*.cpp, which sqlite_functions.cpp registers.
std::span<const SqlFunction> text_functions();
std::span<const SqlFunction> number_functions();
std::span<const SqlFunction> date_functions();
std::span<const SqlFunction> conversion_functions();
/// Today's date and time; the one date function whose result changes.
void sysdate(Call& call);
/// TO_DATE, which is another function where its result changes with the day (to_date_today).
void to_date(Call& call);

}  // namespace oci8

#endif
