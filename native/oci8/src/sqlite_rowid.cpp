// The alphabet is that of the server's own ROWIDs, and so is the length: clients hold them in fixed
// buffers and take them for opaque. 18 digits of 6 bits are more than the 64 of a row number.
#include "sqlite_rowid.h"

#include <array>
#include <cstdint>

#include "sqlite_call.h"
#include "sqlite_handle.h"

namespace oci8 {
namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr int kBitsPerDigit = 6;
constexpr size_t kSize = 18;

void rowid_text(Call& call) {
  if (call.is_null(0)) return;
  // Unsigned, as row numbers may be negative and a shift must not bring ones in.
  auto number = static_cast<uint64_t>(call.number(0).integer);
  std::array<char, kSize> written;
  for (size_t i = kSize; i-- > 0; number >>= kBitsPerDigit) written[i] = kDigits[number & 63];
  call.give_text({written.data(), written.size()});
}

// The highest digits are zero for every 64-bit number: text with more is nobody's row.
uint64_t read_rowid(std::string_view written) {
  if (written.size() != kSize) fail(1410);
  uint64_t number = 0;
  for (const char c : written) {
    const size_t digit = kDigits.find(c);
    const bool overflow = number >> (64 - kBitsPerDigit) != 0;
    if (digit == std::string_view::npos || overflow) fail(1410);
    number = number << kBitsPerDigit | digit;
  }
  return number;
}

void rowid_number(Call& call) {
  if (call.is_null(0)) return;
  if (call.type(0) != SQLITE_TEXT) fail(1410);
  call.give_integer(static_cast<long long>(read_rowid(call.bytes(0))));
}

void chartorowid(Call& call) {
  if (call.is_null(0)) return;
  if (call.type(0) != SQLITE_TEXT) fail(1410);
  read_rowid(call.bytes(0));
  call.give_argument(0);
}

}  // namespace

// All are deterministic, so that a condition on ROWID is a look-up by row number.
void register_rowid_functions(sqlite3* db) {
  add_function(db, "rowid_text", 1, run_call<rowid_text>, nullptr, SQLITE_DETERMINISTIC);
  add_function(db, "chartorowid", 1, run_call<chartorowid>, nullptr, SQLITE_DETERMINISTIC);
  add_function(db, "rowid_number", 1, run_call<rowid_number>, nullptr, SQLITE_DETERMINISTIC);
}

}  // namespace oci8
