// `next` in a sequence's row is the value that the next draw will give, NULL once the sequence is
// exhausted: a sequence that ends exactly at its maximum still gives that value.
#include "sqlite_sequence.h"

#include <optional>

#include "sqlite_call.h"
#include "sqlite_session.h"

namespace oci8 {
namespace {

constexpr std::string_view kFind =
    "SELECT next, increment, minimum, maximum, cycle FROM OCI8$SEQUENCES WHERE name = ?1";
constexpr std::string_view kAdvance = "UPDATE OCI8$SEQUENCES SET next = ?2 WHERE name = ?1";

// The value after `value` of the sequence that stands in `row` (kFind), nothing at its end, which
// may be that of the 64-bit range.
std::optional<long long> value_after(sqlite3_stmt* row, long long value) {
  const long long increment = sqlite3_column_int64(row, 1);
  const long long minimum = sqlite3_column_int64(row, 2);
  const long long maximum = sqlite3_column_int64(row, 3);
  long long after = 0;
  // Defaults reach up to the greatest 64-bit integer, so that the last step may leave the range.
  const bool overflow = __builtin_add_overflow(value, increment, &after);
  if (!overflow && after >= minimum && after <= maximum) return after;
  if (sqlite3_column_int(row, 4) == 0) return std::nullopt;
  return increment > 0 ? minimum : maximum;
}

template <long long (Sequences::*draw)(std::string_view)>
void draw_value(Call& call) {
  auto& sequences = *static_cast<Sequences*>(sqlite3_user_data(call.context()));
  call.give_integer((sequences.*draw)(call.bytes(0)));
}

}  // namespace

void Sequences::register_functions() {
  add_function(session_.db(), "sequence_nextval", 1, run_call<draw_value<&Sequences::next>>, this);
  add_function(session_.db(), "sequence_currval", 1, run_call<draw_value<&Sequences::current>>,
               this);
}

long long Sequences::next(std::string_view name) {
  sqlite3_stmt* row = prepared(session_.db(), find_, kFind);
  const ResetOnExit reset(row);
  bind_text(row, 1, name);
  if (!step_sql(row)) fail(2289);
  if (sqlite3_column_type(row, 0) == SQLITE_NULL) {
    const bool up = sqlite3_column_int64(row, 1) > 0;
    const std::string_view past = up ? ".NEXTVAL exceeds MAXVALUE" : ".NEXTVAL goes below MINVALUE";
    fail(8004, std::string(name).append(past));
  }
  const long long value = sqlite3_column_int64(row, 0);
  advance(name, value);
  // Looked up by the view: a name is copied for the first draw only.
  if (const auto drawn = drawn_.find(name); drawn != drawn_.end()) {
    drawn->second = value;
  } else {
    drawn_.emplace(name, value);
  }
  return value;
}

// In the transaction that everything that draws runs in: the lock is there.
void Sequences::advance(std::string_view name, long long value) {
  sqlite3_stmt* change = prepared(session_.db(), advance_, kAdvance);
  const ResetOnExit reset(change);
  const std::optional<long long> after = value_after(find_.get(), value);
  bind_text(change, 1, name);
  if (after) {
    check(session_.db(), sqlite3_bind_int64(change, 2, *after));
  } else {
    check(session_.db(), sqlite3_bind_null(change, 2));
  }
  step_sql(change);
}

// The value is the session's own, also when the sequence has been dropped since; the database is
// asked only to tell the two errors apart.
long long Sequences::current(std::string_view name) {
  const auto drawn = drawn_.find(name);
  if (drawn != drawn_.end()) return drawn->second;
  sqlite3_stmt* row = prepared(session_.db(), find_, kFind);
  const ResetOnExit reset(row);
  bind_text(row, 1, name);
  fail(step_sql(row) ? 8002 : 2289, name);
}

}  // namespace oci8
