// Process, environments, handles and diagnostics.
#include "guard.h"

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
  Environment* parent = pool<Environment>.find(parenth);
  const HandleKind* kind = find_kind(type);
  if (parent == nullptr || hndlpp == nullptr || kind == nullptr || type == OCI_HTYPE_ENV) {
    return OCI_INVALID_HANDLE;
  }
  parent->record.clear();
  return recorded(parent->record, [&](ErrorRecord&) {
    Handle* made = make_handle(*kind, parent, xtramem_sz);
    if (usrmempp != nullptr) *usrmempp = made->user_memory.get();
    *hndlpp = made;
    return OCI_SUCCESS;
  });
}

/// Ends a handle with all that it owns; a live session under it is ended, which commits.
sword OCIHandleFree(void* hndlp, ub4 type) {
  const HandleKind* kind = find_kind(type);
  Handle* handle = kind == nullptr ? nullptr : kind->find(hndlp);
  return handle != nullptr && free_handle(*handle) ? OCI_SUCCESS : OCI_INVALID_HANDLE;
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
