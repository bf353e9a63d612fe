// The request to stop the operation that runs on this thread, where SQL functions can see it.
// SQLite answers the interrupt of a statement that writes by rolling back the whole transaction;
// the error of a function undoes the statement alone, and translated statements call functions for
// nearly every row.
// Seen through a thread-local pointer, because functions are registered without any session that
// they could ask.
#ifndef OCI8_SQLITE_STOP_H
#define OCI8_SQLITE_STOP_H

#include <atomic>

#include "oci.h"

namespace oci8 {

/// Idle between operations, when a break does nothing; Stopping until the operation has ended.
enum class RunState : ub1 { Idle, Running, Stopping };

/// Of the connection whose operation runs on this thread, null without one.
inline constinit thread_local const std::atomic<RunState>* run_state_here = nullptr;

inline bool stop_asked() {
  return run_state_here != nullptr &&
         run_state_here->load(std::memory_order_relaxed) == RunState::Stopping;
}

}  // namespace oci8

#endif
