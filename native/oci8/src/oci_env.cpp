// Process, environments, handles and diagnostics.
// Calls without an error handle report through their status alone, or through the record of the
// environment (OCIErrorGet with OCI_HTYPE_ENV).
#include "guard.h"
#include "statement.h"

namespace oci8 {
namespace {

// The outputs are written last, when nothing can fail any more: a caller that ignores the status
// finds its own pointer untouched.
sword make_child(const void* parenth, void** made_address, const HandleKind* kind, size_t user_size,
                 void** user_memory) {
  Environment* parent = pool<Environment>.find(parenth);
  if (parent == nullptr || made_address == nullptr || kind == nullptr) return OCI_INVALID_HANDLE;
  parent->record.clear();
  return recorded(parent->record, [&](ErrorRecord&) {
    Handle* made = make_handle(*kind, parent, user_size);
    if (user_memory != nullptr) *user_memory = made->user_memory.get();
    *made_address = made;
    return OCI_SUCCESS;
  });
}

sword free_child(void* address, const HandleKind* kind) {
  Handle* handle = kind == nullptr ? nullptr : kind->find(address);
  return handle != nullptr && free_handle(*handle) ? OCI_SUCCESS : OCI_INVALID_HANDLE;
}

/// Whether an execute would go on in the freed handle after its callback.
bool waits_for_callback(const void* address, ub4 type) {
  if (type == OCI_HTYPE_STMT) {
    const StatementHandle* statement = pool<StatementHandle>.find(address);
    return statement != nullptr && statement->pulling();
  }
  const Environment* environment =
      type == OCI_HTYPE_ENV ? pool<Environment>.find(address) : nullptr;
  return environment != nullptr && environment->callbacks > 0;
}

// Handles and descriptors are made and freed by calls of their own, each of which knows its kinds
// only.
const HandleKind* find_handle_kind(ub4 type) {
  return type < OCI_DTYPE_LOB ? find_kind(type) : nullptr;
}

const HandleKind* find_descriptor_kind(ub4 type) {
  return type >= OCI_DTYPE_LOB ? find_kind(type) : nullptr;
}

}  // namespace
}  // namespace oci8

using namespace oci8;

/// Accepts every mode: handles of different environments may always be used on different threads,
/// which is all that OCI_THREADED asks for. The caller's memory functions are not used: handles
/// live in slots, so that stale ones are recognised, and the engine has an allocator of its own.
sword OCIInitialize(ub4, void*, void* (*)(void*, size_t), void* (*)(void*, void*, size_t),
                    void (*)(void*, void*)) {
  return OCI_SUCCESS;
}

/// Makes an environment; also before OCIInitialize, as callers do while they are being loaded.
/// OCI_ERROR when memory is short.
sword OCIEnvInit(OCIEnv** envhpp, ub4, size_t xtramem_sz, void** usrmempp) {
  if (envhpp == nullptr) return OCI_INVALID_HANDLE;
  ErrorRecord nobody;  // there is no handle yet that the diagnostic could be asked of
  return recorded(nobody, [&](ErrorRecord&) {
    Handle* made = make_handle(*find_kind(OCI_HTYPE_ENV), nullptr, xtramem_sz);
    if (usrmempp != nullptr) *usrmempp = made->user_memory.get();
    *envhpp = reinterpret_cast<OCIEnv*>(made);
    return OCI_SUCCESS;
  });
}

/// Makes a handle in the environment `parenth`, with `xtramem_sz` bytes of zeroed user memory that
/// live as long as it does. OCI_INVALID_HANDLE for a kind that is not made by this call.
sword OCIHandleAlloc(const void* parenth, void** hndlpp, ub4 type, size_t xtramem_sz,
                     void** usrmempp) {
  const HandleKind* kind = type == OCI_HTYPE_ENV ? nullptr : find_handle_kind(type);
  return make_child(parenth, hndlpp, kind, xtramem_sz, usrmempp);
}

/// Ends a handle with all that it owns; a live session under it is ended, which commits. OCI_ERROR
/// for a statement that waits for its callback, and for its environment.
sword OCIHandleFree(void* hndlp, ub4 type) {
  if (waits_for_callback(hndlp, type)) return OCI_ERROR;
  return free_child(hndlp, find_handle_kind(type));
}

/// Makes a descriptor in the environment `parenth`, with user memory as for a handle: a LOB locator
/// that names nothing yet. OCI_INVALID_HANDLE for any other type.
sword OCIDescriptorAlloc(const void* parenth, void** descpp, ub4 type, size_t xtramem_sz,
                         void** usrmempp) {
  return make_child(parenth, descpp, find_descriptor_kind(type), xtramem_sz, usrmempp);
}

/// Frees a descriptor. What a locator names is not touched, and copies of it stay good.
sword OCIDescriptorFree(void* descp, ub4 type) {
  return free_child(descp, find_descriptor_kind(type));
}

/// Copies a diagnostic of an error or environment handle out and keeps it: the text is cut to
/// `bufsiz` bytes with its zero byte. OCI_NO_DATA, and nothing is touched, for any record but the
/// first and when there is none. No SQL state: the interface stopped giving one with release 8.
sword OCIErrorGet(void* hndlp, ub4 recordno, text*, sb4* errcodep, text* bufp, ub4 bufsiz,
                  ub4 type) {
  const ErrorRecord* record = nullptr;
  if (type == OCI_HTYPE_ERROR) {
    if (const auto* error = pool<ErrorHandle>.find(hndlp)) record = &error->record;
  } else if (type == OCI_HTYPE_ENV) {
    if (const auto* environment = pool<Environment>.find(hndlp)) record = &environment->record;
  }
  if (record == nullptr) return OCI_INVALID_HANDLE;
  return recordno == 1 && record->read(errcodep, bufp, bufsiz) ? OCI_SUCCESS : OCI_NO_DATA;
}
