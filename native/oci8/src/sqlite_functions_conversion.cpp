// TO_CHAR, TO_DATE and TO_NUMBER, and the functions that choose among their arguments. What is
// chosen is given in the type of the column that was described, see Call::give_argument_like.

#include "error.h"
#include "number_format.h"
#include "sqlite_call.h"

namespace oci8 {

// A date that is given as one is not read as text: the default format would lose its time.
void to_date(Call& call) {
  if (call.any_null()) return;
  if (call.is_date(0)) return call.give_argument(0);
  const TextArgument text(call, 0);
  if (call.count() == 1) return call.give_date(parse_date(text.view(), kDefaultDateFormat));
  call.give_date(parse_date(text.view(), TextArgument(call, 1).view()));
}

namespace {

// The type of the value decides which models there are; text with a model is a number.
void to_char(Call& call) {
  if (call.any_null()) return;
  if (call.count() == 1) {
    if (call.type(0) == SQLITE_TEXT) return call.give_argument(0);
    return call.give_text(TextArgument(call, 0).view());
  }
  const TextArgument format(call, 1);
  if (call.is_date(0)) return call.give_text(format_date(call.date(0), format.view()));
  call.give_text(format_number(call.number(0), format.view()));
}

void to_number(Call& call) {
  if (call.any_null()) return;
  if (call.count() == 1) return call.give_number(call.number(0));
  call.give_number(parse_number(TextArgument(call, 0).view(), TextArgument(call, 1).view()));
}

// The first argument decides the type, but tells it only where it is not NULL.
void nvl(Call& call) {
  if (!call.is_null(0)) return call.give_argument(0);
  call.give_argument_like(1, 0);
}

// The second argument decides the type, NULL or not.
void nvl2(Call& call) {
  call.give_argument_like(call.is_null(0) ? 2 : 1, 1);
}

// Integers are compared as such: beyond 2^53 doubles would call neighbours equal.
int compare_numbers(const Number& left, const Number& right) {
  if (left.is_integer && right.is_integer) {
    return (left.integer > right.integer) - (left.integer < right.integer);
  }
  const double a = left.as_real(), b = right.as_real();
  return (a > b) - (a < b);
}

// Compares two arguments that are not NULL as values of the type of the argument `model`.
// Bytes compare unsigned, as memcmp does: that is the order of RAW, and of dates after 1 BC.
int compare_like(const Call& call, int left, int right, int model) {
  if (call.is_number(model)) return compare_numbers(call.number(left), call.number(right));
  if (call.type(left) == SQLITE_BLOB && call.type(right) == SQLITE_BLOB) {
    return call.bytes(left).compare(call.bytes(right));
  }
  return TextArgument(call, left).view().compare(TextArgument(call, right).view());
}

// Pairs of search value and result, and a default that may be missing; NULL finds NULL. The first
// search value gives the type of the comparison, the first result that of the result.
void decode(Call& call) {
  if (call.count() < 3) fail(938);
  // An even number of arguments means that the last one is the default; without one the result is
  // NULL, which is what no result at all gives.
  int chosen = call.count() % 2 == 0 ? call.count() - 1 : 0;
  for (int search = 1; search + 1 < call.count(); search += 2) {
    const bool null = call.is_null(search);
    // DECODE is the one comparison of the server in which NULL equals NULL.
    if (null != call.is_null(0)) continue;
    if (null || compare_like(call, 0, search, 1) == 0) {
      chosen = search + 1;
      break;
    }
  }
  if (chosen != 0) call.give_argument_like(chosen, 2);
}

// NULL among the arguments makes the result NULL; the first argument gives the type.
void choose(Call& call, int wanted) {
  if (call.count() == 0) fail(938);
  if (call.any_null()) return;
  int chosen = 0;
  for (int i = 1; i < call.count(); ++i) {
    if (compare_like(call, i, chosen, 0) * wanted > 0) chosen = i;
  }
  call.give_argument_like(chosen, 0);
}

void greatest(Call& call) {
  choose(call, 1);
}

void least(Call& call) {
  choose(call, -1);
}

constexpr SqlFunction kFunctions[] = {{"to_char", 1, run_call<to_char>},
                                      {"to_char", 2, run_call<to_char>},
                                      {"to_date", 1, run_call<to_date>},
                                      {"to_date", 2, run_call<to_date>},
                                      {"to_number", 1, run_call<to_number>},
                                      {"to_number", 2, run_call<to_number>},
                                      {"nvl", 2, run_call<nvl>},
                                      {"nvl2", 3, run_call<nvl2>},
                                      {"decode", -1, run_call<decode>},
                                      {"greatest", -1, run_call<greatest>},
                                      {"least", -1, run_call<least>}};

}  // namespace

std::span<const SqlFunction> conversion_functions() {
  return kFunctions;
}

}  // namespace oci8
