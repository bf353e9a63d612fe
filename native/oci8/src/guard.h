// The border of the interface: what is raised inside becomes the status and the diagnostic of the
// call. Every exported function goes through here; no exception leaves it.
// A body returns the status of its success and raises everything else: Failure with an ORA code
// becomes OCI_ERROR, InvalidHandle becomes OCI_INVALID_HANDLE and leaves no diagnostic, as there
// may be no handle to leave it in.
#ifndef OCI8_GUARD_H
#define OCI8_GUARD_H

#include "handles.h"

namespace oci8 {

/// ORA-01403, which goes with OCI_NO_DATA.
inline constexpr int kNoDataFound = 1403;

/// Records `code`, which goes with a status that is no error.
inline sword note(ErrorRecord& record, sword status, int code) noexcept {
  record.set(code);
  return status;
}

/// The status of a success, with info where `information` is a code and not 0.
inline sword told(ErrorRecord& record, int information) noexcept {
  return information == 0 ? OCI_SUCCESS : note(record, OCI_SUCCESS_WITH_INFO, information);
}

/// Runs `body` (status by return, errors by raising) with its diagnostic in `record`.
template <class Body>
sword recorded(ErrorRecord& record, Body&& body) noexcept {
  try {
    return body(record);
  } catch (const InvalidHandle&) {
    return OCI_INVALID_HANDLE;
  } catch (const Failure& failure) {
    record.set(failure);
  } catch (const std::bad_alloc&) {
    // The text is not made up now, when there is no memory, but when somebody asks for it.
    record.set(4030);
  } catch (...) {
    // Nothing else is raised on purpose; the caller must get an answer all the same.
    record.set(600);
  }
  return OCI_ERROR;
}

/// The same for a call that was given the error handle `address`, whose diagnostic so far is
/// forgotten.
template <class Body>
sword guarded(const void* address, Body&& body) noexcept {
  ErrorHandle* error = pool<ErrorHandle>.find(address);
  if (error == nullptr) return OCI_INVALID_HANDLE;
  error->record.clear();
  return recorded(error->record, body);
}

/// The same for a call that may stand between a failed call and the question what went wrong: it
/// keeps the diagnostic of the call before when it succeeds.
template <class Body>
sword guarded_keeping_record(const void* address, Body&& body) noexcept {
  ErrorHandle* error = pool<ErrorHandle>.find(address);
  return error == nullptr ? OCI_INVALID_HANDLE : recorded(error->record, body);
}

}  // namespace oci8

#endif
