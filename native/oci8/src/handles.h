// The handles behind the interface's opaque pointers. An environment owns every handle made from
// it; statements own their defines and parameter descriptors (statement.h).
// Who may use what from which thread: handles are found, made and freed on any thread (pool.h); the
// contents of a handle belong to one thread at a time, as the interface demands. Exceptions are
// what a break needs from another thread while a call runs: atomic members, the lock of an
// ErrorRecord, and ServerHandle::interrupt.
#ifndef OCI8_HANDLES_H
#define OCI8_HANDLES_H

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine.h"
#include "error.h"
#include "latch.h"
#include "lob_transfer.h"
#include "oci.h"
#include "pool.h"

namespace oci8 {

struct BindHandle;
struct DefineHandle;
struct Environment;
struct Handle;
struct Locator;
struct ParameterHandle;
struct SessionHandle;
class StatementHandle;

/// One row of the table of kinds: all that allocation and freeing need to know of a kind.
/// Plain functions instead of a virtual base: the address that a caller holds is that of the handle
/// itself, and must be that of its Handle part as well (handles.cpp).
struct HandleKind {
  ub4 type;  // OCI_HTYPE_*, OCI_DTYPE_*
  Handle* (*make)();
  Handle* (*find)(const void* address);
  bool (*retire)(Handle* handle);
  void (*destroy)(Handle* handle);
};

/// What every handle of the table of kinds begins with.
struct Handle {
  const HandleKind* kind = nullptr;
  Environment* environment = nullptr;  // null for an environment
  Handle* previous = nullptr;  // neighbours among the environment's handles
  Handle* next = nullptr;
  // For the caller alone, asked for with the allocation; zeroed, and freed with the handle.
  std::unique_ptr<std::byte[]> user_memory;
};

/// The diagnostic of a call. Locked, because a break from another thread and what its caller asks
/// afterwards meet the call that is running with the same error handle.
class ErrorRecord {
 public:
  void clear() noexcept {
    // Nearly all calls have nothing to say, and clear for the next one.
    if (code_.load(std::memory_order_relaxed) != 0) forget();
  }
  void set(const Failure& failure) noexcept;
  void set(int code) noexcept;

  /// Copies code and text out, the text cut to `size` bytes with its terminator; false, and
  /// nothing is touched, when there is no diagnostic.
  bool read(sb4* code, text* buffer, size_t size) const noexcept;

 private:
  void forget() noexcept;

  mutable Latch latch_;
  // Read without the latch where there is nothing to say, as after nearly every call.
  std::atomic<int> code_{0};
  std::string text_;  // empty when memory was short: made up again when it is asked for
};

struct Environment : Handle {
  ~Environment();
  /// Enters a handle into, or takes it out of, the list of those that end with the environment. Any
  /// thread.
  void adopt(Handle& child) noexcept;
  void release(Handle& child) noexcept;

  ErrorRecord record;  // of calls that have no error handle
  std::atomic<int> callbacks{0};  // that statements wait for

 private:
  Latch latch_;  // guards the list
  Handle* children_ = nullptr;
};

/// What a caller hands to every call; the call leaves its diagnostic here.
struct ErrorHandle : Handle {
  ErrorRecord record;
};

/// A database under a server handle: the session on it and the statements that run in it.
struct Attachment {
  /// Ends the statements' runs, then commits.
  void end_session();
  /// ORA-03127 while a transfer of a LOB is open.
  void require_idle() const;
  /// ORA-03127 while a value that a callback brings is on its way into the database.
  void require_no_stream() const;

  std::unique_ptr<Connection> connection;
  SessionHandle* session = nullptr;  // live
  // Each statement enters itself when it is prepared on the connection and leaves when its run is
  // dropped: none of the pointers dangles.
  std::vector<StatementHandle*> statements;
  LobTransfer transfer;
  bool streaming = false;  // a part of such a value is there
  // Asked for so far. A call of several steps that finds another number than at its begin ends: the
  // engine hears of a break only while it runs.
  std::atomic<ub4> breaks{0};
};

class ServerHandle : public Handle {
 public:
  ~ServerHandle();

  /// Opens the database, in the place of one that is attached without a session. A failure is kept
  /// for the session start: callers look at that one only.
  void attach(std::string_view connect_string);
  /// Commits and ends a live session, then closes the database.
  void detach();

  /// The attached database, null without one.
  Attachment* attachment() const { return attachment_.get(); }
  /// The attached database; ORA-24327, or what made the last attach fail.
  Attachment& attachment_for_login() const;

  /// Stops the running call and ends an open transfer of a LOB; false when no database is attached.
  /// Any thread.
  bool interrupt() noexcept;

  // Kept and reported. Calls run to their end all the same, which the interface allows: only one
  // that would have to wait may answer that it is still executing.
  std::atomic<ub1> nonblocking{0};

 private:
  void replace(std::unique_ptr<Attachment> attachment) noexcept;

  // Guards the pointer's change against interrupt; calls that run use the pointer without it, as
  // attach and detach belong to the thread that makes these calls.
  std::mutex break_mutex_;
  std::unique_ptr<Attachment> attachment_;
  std::optional<Failure> attach_failure_;
};

/// Credentials, and where the session runs that was started with them. Freed while the session is
/// live, it ends the session, which commits.
struct SessionHandle : Handle {
  ~SessionHandle();

  std::string user;
  std::string password;
  ServerHandle* server = nullptr;  // where the session is live
};

/// Server and session are addresses that the caller set, and that the caller may have freed since.
struct ServiceContext : Handle {
  /// The server handle; null when none is set.
  ServerHandle* find_server() const noexcept;
  /// ORA-24324 without a server handle.
  ServerHandle& server_handle() const;
  /// The database of a live session; ORA-24324, ORA-03114 or ORA-01012.
  Attachment& logged_in() const;
  /// The same for a new operation; ORA-03127 while a transfer of a LOB is open.
  Attachment& live() const;

  // Atomic for a break from another thread.
  std::atomic<void*> server{nullptr};
  std::atomic<void*> session{nullptr};
};

/// A handle argument is null, freed, or of another kind: OCI_INVALID_HANDLE.
struct InvalidHandle {};

// The only ways from the interface's pointers to handles. Raise InvalidHandle.
Environment& as_environment(const void* address);
ServiceContext& as_service(const void* address);
ServerHandle& as_server(const void* address);
SessionHandle& as_session(const void* address);
StatementHandle& as_statement(const void* address);
BindHandle& as_bind(const void* address);
DefineHandle& as_define(const void* address);
ParameterHandle& as_parameter(const void* address);
Locator& as_locator(const void* address);

/// The kind with this OCI_HTYPE_* or OCI_DTYPE_*, whose numbers are all different; null for a kind
/// that cannot be allocated.
const HandleKind* find_kind(ub4 type) noexcept;

/// A new handle with `user_size` bytes of user memory, owned by `environment` (null for a new
/// environment).
Handle* make_handle(const HandleKind& kind, Environment* environment, size_t user_size);
/// Ends the handle and what it owns; false when another thread was faster.
bool free_handle(Handle& handle) noexcept;

}  // namespace oci8

#endif
