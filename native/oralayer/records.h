// From a Java object to its native record and back, and the checks that every entry point starts
// with. Each check raises its exception and yields null or false; the caller returns on its own
// line, so that the order of checks reads from top to bottom there.
#ifndef ORALAYER_RECORDS_H
#define ORALAYER_RECORDS_H

#include <jni.h>

#include <cstdint>

#include "exceptions.h"
#include "guards.h"
#include "oralayer8.h"

// Results of cursor and connection operations: what the OCI call did. A refused argument gives
// kCallOk too, with its exception pending.
inline constexpr jboolean kCallFailed = JNI_TRUE;
inline constexpr jboolean kCallOk = JNI_FALSE;

inline jboolean call_result(sword status) {
  return status == OCI_SUCCESS ? kCallOk : kCallFailed;
}

/// The record whose address an int field of `obj` holds; null where there is none, and as long as
/// the library has not been initialised. `obj` must not be null.
template <typename Record>
Record* record_of(JNIEnv* env, jobject obj, jfieldID field) {
  if (!member_cache_filled()) return nullptr;
  const auto handle = static_cast<std::uint32_t>(env->GetIntField(obj, field));
  return reinterpret_cast<Record*>(static_cast<std::uintptr_t>(handle));
}

/// Stores a record's address (or 0 for null) in an int field of `obj`. The field must be resolved.
template <typename Record>
void store_record(JNIEnv* env, jobject obj, jfieldID field, Record* record) {
  const auto address = reinterpret_cast<std::uintptr_t>(record);
  env->SetIntField(obj, field, static_cast<jint>(static_cast<std::uint32_t>(address)));
}

/// "JNIEnv" where the environment or the object is missing.
inline bool env_and_object(JNIEnv* env, jobject obj) {
  if (env != nullptr && obj != nullptr) return true;
  TV_ThrowNullPointerException(env, "JNIEnv");
  return false;
}

/// NullPointerException `message` where an argument is missing.
inline bool argument_given(JNIEnv* env, jobject argument, const char* message) {
  if (argument != nullptr) return true;
  TV_ThrowNullPointerException(env, message);
  return false;
}

/// Raises NullPointerException `message` for a missing record.
template <typename Record>
Record* required(JNIEnv* env, Record* record, const char* message) {
  if (record == nullptr) TV_ThrowNullPointerException(env, message);
  return record;
}

inline ldadata* session_record(JNIEnv* env, jobject connection, const char* message) {
  return required(env, record_of<ldadata>(env, connection, logondata32iD), message);
}

inline cdadata* cursor_record(JNIEnv* env, jobject cursor, const char* message = "CDA is null") {
  return required(env, record_of<cdadata>(env, cursor, cdadata32iD), message);
}

inline columndata* column_record(JNIEnv* env, jobject column, const char* message) {
  return required(env, record_of<columndata>(env, column, coldata32iD), message);
}

/// False after raising InternalError: the LOB object that lent the column its locator has ended or
/// has another one by now.
inline bool borrowed_locator_stands(JNIEnv* env, const columndata& col) {
  if (lender_stands(&col)) return true;
  TV_ThrowInternalError(env, "the LOB object that the column was given has ended or changed");
  return false;
}

inline lobdata* lob_record(JNIEnv* env, jobject lob, const char* message = "LOBDATA is null") {
  return required(env, record_of<lobdata>(env, lob, lobdata32iD), message);
}

/// OutOfMemoryError where the JVM could not pin an array's elements.
inline bool pinned(JNIEnv* env, const PinnedBytes& bytes) {
  if (bytes.ok()) return true;
  TV_ThrowOutOfMemoryError(env, "Out of memory");
  return false;
}

/// For a record about to be made: InternalError where the library has not been initialised, so
/// that the field for its address is not known.
inline bool library_initialised(JNIEnv* env) {
  if (member_cache_filled()) return true;
  TV_ThrowInternalError(env, "native_initialize has not been called");
  return false;
}

#endif
