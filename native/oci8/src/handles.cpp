// Allocation, the error record, and the states of server, session and service context. What depends
// on each other (a session on its server, statements on a database) is untied here in one order:
// session first, then the statements' runs, then the transaction, then the file.
#include "handles.h"

#include <algorithm>
#include <cstring>

#include "locator.h"
#include "statement.h"

namespace oci8 {
namespace {

template <class T>
T& required(const void* address) {
  T* handle = pool<T>.find(address);
  if (handle == nullptr) throw InvalidHandle();
  return *handle;
}

// The functions know the concrete kind; their callers only know that it begins with a Handle, which
// is why handles have no virtual functions: a vtable would put the base at another address than
// the one that callers hold.
template <class T>
constexpr HandleKind kind_of(ub4 type) {
  return {type, []() -> Handle* { return pool<T>.make(); },
          [](const void* address) -> Handle* { return pool<T>.find(address); },
          [](Handle* handle) { return pool<T>.retire(static_cast<T*>(handle)); },
          [](Handle* handle) { pool<T>.destroy(static_cast<T*>(handle)); }};
}

constexpr HandleKind kKinds[] = {
    kind_of<Environment>(OCI_HTYPE_ENV),       kind_of<ErrorHandle>(OCI_HTYPE_ERROR),
    kind_of<ServiceContext>(OCI_HTYPE_SVCCTX), kind_of<StatementHandle>(OCI_HTYPE_STMT),
    kind_of<ServerHandle>(OCI_HTYPE_SERVER),   kind_of<SessionHandle>(OCI_HTYPE_SESSION),
    kind_of<Locator>(OCI_DTYPE_LOB),
};

}  // namespace

Environment& as_environment(const void* address) {
  return required<Environment>(address);
}
ServiceContext& as_service(const void* address) {
  return required<ServiceContext>(address);
}
ServerHandle& as_server(const void* address) {
  return required<ServerHandle>(address);
}
SessionHandle& as_session(const void* address) {
  return required<SessionHandle>(address);
}
StatementHandle& as_statement(const void* address) {
  return required<StatementHandle>(address);
}
BindHandle& as_bind(const void* address) {
  return required<BindHandle>(address);
}
DefineHandle& as_define(const void* address) {
  return required<DefineHandle>(address);
}
ParameterHandle& as_parameter(const void* address) {
  return required<ParameterHandle>(address);
}
Locator& as_locator(const void* address) {
  return required<Locator>(address);
}

const HandleKind* find_kind(ub4 type) noexcept {
  const auto found = std::find_if(std::begin(kKinds), std::end(kKinds),
                                  [type](const HandleKind& kind) { return kind.type == type; });
  return found == std::end(kKinds) ? nullptr : found;
}

// The memory that may not be there is asked for first: nothing has to be undone then.
Handle* make_handle(const HandleKind& kind, Environment* environment, size_t user_size) {
  std::unique_ptr<std::byte[]> user_memory;
  if (user_size > 0) user_memory = std::make_unique<std::byte[]>(user_size);
  Handle* handle = kind.make();
  handle->kind = &kind;
  handle->user_memory = std::move(user_memory);
  if (environment != nullptr) environment->adopt(*handle);
  return handle;
}

// Out of sight first, so that a second free on another thread finds nothing; then out of the
// environment's list; destroyed last and without a lock, because a server or session handle may
// have to commit and close a database on the way.
bool free_handle(Handle& handle) noexcept {
  const HandleKind& kind = *handle.kind;
  if (!kind.retire(&handle)) return false;
  if (handle.environment != nullptr) handle.environment->release(handle);
  kind.destroy(&handle);
  return true;
}

// The text stays: its memory is used again.
void ErrorRecord::forget() noexcept {
  const std::lock_guard lock(latch_);
  code_ = 0;
}

void ErrorRecord::set(const Failure& failure) noexcept {
  const std::lock_guard lock(latch_);
  code_ = failure.code;
  try {
    text_ = failure.text;
  } catch (const std::bad_alloc&) {
    text_.clear();
  }
}

void ErrorRecord::set(int code) noexcept {
  const std::lock_guard lock(latch_);
  code_ = code;
  text_.clear();
}

bool ErrorRecord::read(sb4* code, text* buffer, size_t size) const noexcept {
  if (code_.load(std::memory_order_relaxed) == 0) return false;
  const std::lock_guard lock(latch_);
  if (code_ == 0) return false;
  if (code != nullptr) *code = code_;
  // A caller may want the code only.
  if (buffer == nullptr || size == 0) return true;
  buffer[0] = 0;
  try {
    // No text although there is a code: either the code came alone, or there was no memory for the
    // text.
    const std::string made_up = text_.empty() ? error_text(code_) : std::string();
    const std::string& whole = text_.empty() ? made_up : text_;
    // Bytes, so that a cut may fall into a character of several bytes: the interface promises no
    // more than a terminator.
    const size_t length = std::min(whole.size(), size - 1);
    std::memcpy(buffer, whole.data(), length);
    buffer[length] = 0;
  } catch (const std::bad_alloc&) {
    // The code alone has to do.
  }
  return true;
}

// In any order: what refers to each other among the children (statements and databases, sessions
// and servers) lets go of the other side when it ends.
Environment::~Environment() {
  while (children_ != nullptr) free_handle(*children_);
}

void Environment::adopt(Handle& child) noexcept {
  const std::lock_guard lock(latch_);
  child.environment = this;
  child.next = children_;
  if (children_ != nullptr) children_->previous = &child;
  children_ = &child;
}

void Environment::release(Handle& child) noexcept {
  const std::lock_guard lock(latch_);
  (child.previous != nullptr ? child.previous->next : children_) = child.next;
  if (child.next != nullptr) child.next->previous = child.previous;
}

// The session is marked as over before anything can fail, so that no error keeps it half alive.
void Attachment::end_session() {
  if (session != nullptr) session->server = nullptr;
  session = nullptr;
  transfer.end();
  while (!statements.empty()) statements.back()->drop_run();
  try {
    connection->commit();
  } catch (...) {
    // The session is over either way: what could not be committed must not reach the next one.
    connection->rollback();
    throw;
  }
}

void Attachment::require_no_stream() const {
  if (streaming) fail(3127);
}

void Attachment::require_idle() const {
  if (transfer.open()) fail(3127);
}

ServerHandle::~ServerHandle() {
  try {
    detach();
  } catch (...) {
    // Nobody is left to tell; the engine has taken back what could not be committed.
  }
}

void ServerHandle::attach(std::string_view connect_string) {
  if (attachment_ != nullptr && attachment_->session != nullptr) fail(24309);
  // The former database is closed before the new one is opened: attaching to the same file again
  // must not meet this handle's own former connection.
  replace(nullptr);
  attach_failure_.reset();
  try {
    auto opened = std::make_unique<Attachment>();
    opened->connection = open_database(connect_string);
    replace(std::move(opened));
  } catch (const Failure& failure) {
    attach_failure_ = failure;
    throw;
  }
}

// The database is closed even when its last commit fails; the failure is told afterwards.
void ServerHandle::detach() {
  attach_failure_.reset();
  nonblocking = 0;
  if (attachment_ == nullptr) return;
  std::optional<Failure> failure;
  try {
    if (attachment_->session != nullptr) attachment_->end_session();
  } catch (const Failure& raised) {
    failure = raised;
  }
  replace(nullptr);
  if (failure) throw *failure;
}

void ServerHandle::replace(std::unique_ptr<Attachment> attachment) noexcept {
  {
    const std::lock_guard lock(break_mutex_);
    attachment_.swap(attachment);
  }
  // The former database is closed here, outside the lock: that may take its time.
}

Attachment& ServerHandle::attachment_for_login() const {
  if (attachment_ == nullptr && attach_failure_) throw *attach_failure_;
  if (attachment_ == nullptr) fail(24327);
  return *attachment_;
}

bool ServerHandle::interrupt() noexcept {
  const std::lock_guard lock(break_mutex_);
  if (attachment_ == nullptr) return false;
  // Both halves of a break: the call that runs, and the transfer that is open between calls.
  ++attachment_->breaks;
  attachment_->connection->interrupt();
  attachment_->transfer.end();
  return true;
}

SessionHandle::~SessionHandle() {
  if (server == nullptr) return;
  try {
    server->attachment()->end_session();
  } catch (...) {
    // As for a server handle.
  }
}

ServerHandle* ServiceContext::find_server() const noexcept {
  // A slot that serves another environment by now is as good as a freed one.
  ServerHandle* found = pool<ServerHandle>.find(server);
  return found != nullptr && found->environment == environment ? found : nullptr;
}

ServerHandle& ServiceContext::server_handle() const {
  ServerHandle* found = find_server();
  if (found == nullptr) fail(24324);
  return *found;
}

// Being attached, having logged in, and having told the context which session it serves are three
// steps of the interface, and each has its own code for being left out.
Attachment& ServiceContext::logged_in() const {
  Attachment* attachment = server_handle().attachment();
  if (attachment == nullptr) fail(3114);
  if (attachment->session == nullptr || attachment->session != session) fail(1012);
  return *attachment;
}

Attachment& ServiceContext::live() const {
  Attachment& attachment = logged_in();
  attachment.require_idle();
  return attachment;
}

}  // namespace oci8
