// Errors that depend on rows cannot be raised while a statement is translated: the dialect writes
// them into its SQL as calls of these.
#include "sqlite_control.h"

#include "sqlite_call.h"
#include "sqlite_handle.h"

namespace oci8 {
namespace {

void ora_raise(Call& call) {
  fail(call.integer(0), call.count() > 1 ? call.bytes(1) : std::string_view());
}

// A function looks for a break before it runs: nothing is left to do.
void go_on(Call& call) {
  call.give_integer(1);
}

void keep_single(sqlite3_context* context, sqlite3_value* value) {
  // SQLite zeroes this memory at the first call of a group and keeps it to the group's end.
  auto** kept = static_cast<sqlite3_value**>(
      sqlite3_aggregate_context(context, static_cast<int>(sizeof(sqlite3_value*))));
  if (kept == nullptr) throw std::bad_alloc();
  if (*kept != nullptr) fail(1427);
  // The argument itself is gone after the step.
  *kept = sqlite3_value_dup(value);
  if (*kept == nullptr) throw std::bad_alloc();
}

void single_step(sqlite3_context* context, int, sqlite3_value** values) noexcept {
  try {
    keep_single(context, values[0]);
  } catch (...) {
    report_failure(context);
  }
}

// Runs also after a failed step: the one place where the kept value is given back.
void single_end(sqlite3_context* context) noexcept {
  // Size 0 asks without making any: null for a group that had no row.
  auto** kept = static_cast<sqlite3_value**>(sqlite3_aggregate_context(context, 0));
  if (kept == nullptr || *kept == nullptr) return;
  sqlite3_result_value(context, *kept);
  sqlite3_value_free(*kept);
  *kept = nullptr;
}

}  // namespace

void register_control_functions(sqlite3* db) {
  add_function(db, "ora_raise", 1, run_call<ora_raise>);
  add_function(db, "ora_raise", 2, run_call<ora_raise>);
  add_function(db, "go_on", 0, run_call<go_on>);
  check(db, sqlite3_create_function_v2(db, "ora_single", 1, SQLITE_UTF8, nullptr, nullptr,
                                       single_step, single_end, nullptr));
}

}  // namespace oci8
