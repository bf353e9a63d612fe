// Entry points of OciConnection, and the transfer of a session's error state.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>

#include "oralayer8.h"
#include "records.h"
#include "trace.h"
#include "trevalon_db_oci_OciConnection.h"

namespace {

// The connection's record, or null after raising.
ldadata* session_of(JNIEnv* env, jobject obj) {
  return env_and_object(env, obj) ? session_record(env, obj, "LDA not set") : nullptr;
}

}  // namespace

// --- Error state ---------------------------------------------------------------------------------

sb4 oracle_error(OCIError* errhp) {
  sb4 code = 0;
  OCIErrorGet(errhp, 1, nullptr, &code, nullptr, 0, OCI_HTYPE_ERROR);
  return code;
}

void assignLdaCodes(JNIEnv* env, jobject obj) {
  ldadata* ld = session_of(env, obj);
  if (ld == nullptr) return;
  TRACE("LD->STATUS", "=", ld->status);
  const sb4 code = oracle_error(ld->errhp);
  TRACE("ERRCODE", "=", code);
  env->SetIntField(obj, ldaerrcodeiD, code);
  env->SetIntField(obj, oserrcodeiDconn, 0);
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciConnection_native_1getError(JNIEnv* env, jobject obj,
                                                                           jint, jboolean,
                                                                           jbyteArray HErrorBuf) {
  TRACE("*** OciConnection getError ***");
  if (!env_and_object(env, obj)) return 0;
  if (!argument_given(env, HErrorBuf, "JNIEnv")) return 0;
  ldadata* ld = session_record(env, obj, "LDA not set");
  if (ld == nullptr) return 0;

  PinnedBytes buffer(env, HErrorBuf, Pin::CopyBack);
  if (!pinned(env, buffer)) return 0;
  sb4 code = 0;
  OCIErrorGet(ld->errhp, 1, nullptr, &code, buffer.data(), static_cast<ub4>(buffer.length()),
              OCI_HTYPE_ERROR);
  const text* end = std::find(buffer.data(), buffer.data() + buffer.length(), 0);
  const auto length = static_cast<jint>(end - buffer.data());
  TRACE("ERRCODE", "=", code);
  TRACE("ERRMESG", "=", std::string_view(reinterpret_cast<const char*>(buffer.data()), length));
  return length;
}

// --- Initialisation ------------------------------------------------------------------------------

namespace {

// Runs once per process, whichever thread comes first; a failed run is repeated by the next call.
// An exception of the NLS setup does not stop it: it is set aside for the end of the native method.
bool initialise_once(JNIEnv* env, jobject obj, jbyteArray nls_lang, bool debug,
                     PendingException& pending) {
  if (inited.load(std::memory_order_acquire) != 0) return true;
  if (debug) oci_debug.store(1, std::memory_order_relaxed);
  if (tv_init_fid(env, obj) != 0) return false;
  // Recursive: a class loader that is asked for the class of an exception may call, too.
  static std::recursive_mutex initialisation;
  const std::lock_guard lock(initialisation);
  if (inited.load(std::memory_order_relaxed) != 0) return true;
  tv_init_nls(env, obj, nls_lang);
  pending.set_aside();
  OCIInitialize(OCI_THREADED, nullptr, nullptr, nullptr, nullptr);
  inited.store(1, std::memory_order_release);
  return true;
}

}  // namespace

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciConnection_native_1initialize(JNIEnv* env,
                                                                             jobject obj, jint elem,
                                                                             jbyteArray HNlsLangBuf,
                                                                             jboolean debug) {
  if (!env_and_object(env, obj)) return;
  PendingException pending(env);
  if (!initialise_once(env, obj, HNlsLangBuf, debug != JNI_FALSE, pending)) return;

  const bool isXA = env->GetBooleanField(obj, isXAID) != JNI_FALSE;
  ldapool_holder& pool = isXA ? xaldapool : ldapool;
  if (elem < 0 || elem >= pool.get_pool_size()) {
    TV_ThrowIndexOutOfBounds(env, "elem is outside the session pool");
    pending.set_aside();
    return;
  }
  ldadata& ld = pool[elem];
  TRACE("*** native_initialize - isXA:", isXA, ", elem:", elem, ", ldadata:", &ld);
  ld.reset();
  store_record(env, obj, logondata32iD, &ld);
}

// --- Login and logout ----------------------------------------------------------------------------

namespace {

constexpr int kLoginTextSize = 256;  // bytes, with the terminating zero

// A zero-terminated copy of the array's first bytes; false where the JVM could not pin it.
bool copy_login_text(JNIEnv* env, jbyteArray from, char (&to)[kLoginTextSize]) {
  PinnedBytes bytes(env, from, Pin::ReadOnly);
  if (!pinned(env, bytes)) return false;
  const int length = std::min<int>(bytes.length(), kLoginTextSize - 1);
  std::memcpy(to, bytes.data(), static_cast<std::size_t>(length));
  to[length] = '\0';
  return true;
}

}  // namespace

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciConnection_native_1loginwithblock(
    JNIEnv* env, jobject obj, jbyteArray username, jbyteArray password, jbyteArray server,
    jboolean) {
  TRACE("*** loginwithblock ***");
  if (!env_and_object(env, obj)) return kCallOk;
  if (!argument_given(env, username, "Null username String")) return kCallOk;
  if (!argument_given(env, password, "Null password String")) return kCallOk;
  if (!argument_given(env, server, "Null server String")) return kCallOk;
  ldadata* ld = session_record(env, obj, "LDA not set");
  if (ld == nullptr) return kCallOk;

  char user[kLoginTextSize];
  char pass[kLoginTextSize];
  char host[kLoginTextSize];
  if (!copy_login_text(env, username, user) || !copy_login_text(env, password, pass) ||
      !copy_login_text(env, server, host)) {
    return kCallOk;
  }
  TRACE("    username=", user, ", password=", pass, ", server=", host);
  const bool isXA = env->GetBooleanField(obj, isXAID) != JNI_FALSE;
  const int retvali = ld->login(user, pass, host, isXA);
  TRACE("    back from login, retvali", "=", retvali);
  assignLdaCodes(env, obj);
  return call_result(retvali);
}

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciConnection_native_1loginnoblock(JNIEnv*, jobject,
                                                                                   jbyteArray,
                                                                                   jbyteArray,
                                                                                   jbyteArray) {
  TRACE("*** loginnoblock ***");
  TRACE("      uses old OCI7 call orlon.  No replacement for OCI8 ");
  TRACE("        quitting ");
  return kCallFailed;
}

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciConnection_native_1logout(JNIEnv* env,
                                                                             jobject obj) {
  ldadata* ld = session_of(env, obj);
  if (ld == nullptr) return kCallOk;
  ld->logoff(env->GetBooleanField(obj, isXAID) != JNI_FALSE);
  assignLdaCodes(env, obj);
  return kCallOk;
}

// The session record belongs to its pool: there is nothing to give back.
JNIEXPORT void JNICALL Java_trevalon_db_oci_OciConnection_native_1finalize(JNIEnv* env,
                                                                           jobject obj) {
  env_and_object(env, obj);
}

// --- Pool sizes ----------------------------------------------------------------------------------

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciConnection_lda_1pool_1size(JNIEnv*, jclass) {
  const int size = ldapool.get_pool_size();
  TRACE("returning poolsize of ", "=", size);
  return size;
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciConnection_cda_1pool_1size(JNIEnv*, jclass) {
  return static_cast<jint>(std::size(cdapool));
}

// --- Transactions and call control ---------------------------------------------------------------

namespace {

jboolean set_nonblocking(JNIEnv* env, jobject obj, ub1 mode) {
  ldadata* ld = session_of(env, obj);
  if (ld == nullptr) return kCallOk;
  const sword retvali =
      OCIAttrSet(ld->srvhp, OCI_HTYPE_SERVER, &mode, 0, OCI_ATTR_NONBLOCKING_MODE, ld->errhp);
  assignLdaCodes(env, obj);
  return call_result(retvali);
}

}  // namespace

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciConnection_native_1autoCommitOn(JNIEnv* env,
                                                                                   jobject obj) {
  ldadata* ld = session_of(env, obj);
  if (ld == nullptr) return kCallOk;
  TRACE("*** Setting autocommit flag to 1 ***");
  ld->autocommit = 1;
  return kCallOk;
}

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciConnection_native_1autoCommitOff(JNIEnv* env,
                                                                                    jobject obj) {
  ldadata* ld = session_of(env, obj);
  if (ld == nullptr) return kCallOk;
  ld->autocommit = 0;
  assignLdaCodes(env, obj);
  return kCallOk;
}

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciConnection_native_1commit(JNIEnv* env,
                                                                             jobject obj) {
  ldadata* ld = session_of(env, obj);
  if (ld == nullptr) return kCallOk;
  TRACE("*** OCITransCommit ***");
  return call_result(OCITransCommit(ld->svchp, ld->errhp, OCI_DEFAULT));
}

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciConnection_native_1rollback(JNIEnv* env,
                                                                               jobject obj) {
  ldadata* ld = session_of(env, obj);
  if (ld == nullptr) return kCallOk;
  TRACE("*** OCITransRollback ***");
  const sword retvali = OCITransRollback(ld->svchp, ld->errhp, OCI_DEFAULT);
  TRACE("rollback result", "=", retvali);
  assignLdaCodes(env, obj);
  return call_result(retvali);
}

// Called from another thread than the one whose call is to be broken: no Java field is written.
JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciConnection_native_1obreak(JNIEnv* env,
                                                                             jobject obj) {
  ldadata* ld = session_of(env, obj);
  if (ld == nullptr) return kCallOk;
  TRACE("*** Connection:  OCIBreak ***");
  return call_result(OCIBreak(ld->svchp, ld->errhp));
}

JNIEXPORT jboolean JNICALL
Java_trevalon_db_oci_OciConnection_native_1setNonBlockingMode(JNIEnv* env, jobject obj) {
  return set_nonblocking(env, obj, 1);
}

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciConnection_native_1setBlockingMode(JNIEnv* env,
                                                                                      jobject obj) {
  return set_nonblocking(env, obj, 0);
}

JNIEXPORT jboolean JNICALL
Java_trevalon_db_oci_OciConnection_native_1isNonBlockingMode(JNIEnv* env, jobject obj) {
  ldadata* ld = session_of(env, obj);
  if (ld == nullptr) return JNI_FALSE;
  ub1 mode = 0x9D;  // neither mode: what a failed query leaves
  OCIAttrGet(ld->srvhp, OCI_HTYPE_SERVER, &mode, nullptr, OCI_ATTR_NONBLOCKING_MODE, ld->errhp);
  assignLdaCodes(env, obj);
  return mode == 1 ? JNI_TRUE : JNI_FALSE;
}

// --- Client environment and versions -------------------------------------------------------------

namespace {

constexpr char kNlsLang[] = "NLS_LANG";
constexpr char kNlsLangTooLong[] = "NLS_LANG setting is too long";
constexpr std::size_t kNlsSettingSize = 80;  // characters of "NLS_LANG=" and the value

// Copies `size` bytes to the front of a Java array. Returns their number, or 0 after raising: the
// array is missing, or it has not the room (InternalError `too_long`), and is left as it was.
jint copy_to_array(JNIEnv* env, jbyteArray to, const char* from, std::size_t size,
                   const char* too_long) {
  if (!env_and_object(env, to)) return 0;
  PinnedBytes bytes(env, to, Pin::CopyBack);
  if (!pinned(env, bytes)) return 0;
  if (static_cast<std::size_t>(bytes.length()) < size) {
    bytes.discard();
    TV_ThrowInternalError(env, too_long);
    return 0;
  }
  std::memcpy(bytes.data(), from, size);
  return static_cast<jint>(size);
}

jint copy_variable(JNIEnv* env, const char* variable, jbyteArray to, const char* too_long) {
  const char* value = std::getenv(variable);
  if (value == nullptr) return 0;
  return copy_to_array(env, to, value, std::strlen(value), too_long);
}

}  // namespace

void tv_init_nls(JNIEnv* env, jobject, jbyteArray HNlsLangBuf) {
  if (HNlsLangBuf == nullptr) {
    if (!trace_on()) return;
    const char* value = std::getenv(kNlsLang);
    trace_line("+++ NLS_LANG=", value != nullptr ? value : "null");
    return;
  }
  PinnedBytes bytes(env, HNlsLangBuf, Pin::ReadOnly);
  if (!pinned(env, bytes)) return;
  const std::size_t prefix = sizeof kNlsLang;  // with "=" in the place of the zero byte
  const auto length = static_cast<std::size_t>(bytes.length());
  if (length + prefix > kNlsSettingSize) {
    bytes.release();
    TV_ThrowInternalError(env, kNlsLangTooLong);
    return;
  }
  char setting[kNlsSettingSize + 1];
  std::memcpy(setting, kNlsLang, prefix - 1);
  setting[prefix - 1] = '=';
  std::memcpy(setting + prefix, bytes.data(), length);
  setting[prefix + length] = '\0';
  bytes.release();
  TRACE("set ", setting);
  // A copy of the environment's own: what it refers to must outlive even this library.
  setenv(kNlsLang, setting + prefix, 1);
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciConnection_native_1oci_1api_1version(
    JNIEnv* env, jobject, jbyteArray HOciApiVersionBuf) {
  return copy_to_array(env, HOciApiVersionBuf, "OCI8", 4, "oci_api_version setting is too long");
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciConnection_native_1get_1nls_1lang(
    JNIEnv* env, jobject, jbyteArray HNlsLangBuf) {
  return copy_variable(env, kNlsLang, HNlsLangBuf, kNlsLangTooLong);
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciConnection_native_1get_1nls_1nchar(
    JNIEnv* env, jobject, jbyteArray HNlsNcharBuf) {
  return copy_variable(env, "NLS_NCHAR", HNlsNcharBuf, "NLS_NCHAR setting is too long");
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciConnection_native_1clibversion(JNIEnv*, jobject) {
  return 30;
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciConnection_native_1builddate(JNIEnv* env, jobject,
                                                                            jbyteArray HBldBuf) {
  static constexpr char kBuilt[] = __DATE__ " " __TIME__;
  TRACE("*** OciConnection builddate ***");
  if (!env_and_object(env, HBldBuf)) return 0;
  PinnedBytes bytes(env, HBldBuf, Pin::CopyBack);
  if (!pinned(env, bytes)) return 0;
  // The terminating zero byte goes along where there is room for it.
  const auto room = static_cast<std::size_t>(bytes.length());
  std::memcpy(bytes.data(), kBuilt, std::min(room, sizeof kBuilt));
  return sizeof kBuilt - 1;
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciConnection_ociMajorVersion(JNIEnv*, jclass) {
  return 8;
}

// No cursor is asked for: the checks and the report need no more than the session's own error
// handle, and the connection has none of a cursor's fields.
JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciConnection_native_1describeParams(
    JNIEnv* env, jobject obj, jobject schobj, jbyteArray HNameBuf) {
  TRACE("*** describeParams ***");
  if (!env_and_object(env, obj)) return JNI_FALSE;
  if (!argument_given(env, schobj, "OciSchema not set")) return JNI_FALSE;
  if (!argument_given(env, HNameBuf, "Parameter not set")) return JNI_FALSE;
  if (session_record(env, obj, "LDA not set") == nullptr) return JNI_FALSE;
  PinnedBytes name(env, HNameBuf, Pin::ReadOnly);
  if (!pinned(env, name)) return JNI_FALSE;
  name.release();
  TRACE("*** ODESSP ***");
  assignLdaCodes(env, obj);
  write_line("FIXME: ConnectionJNI 2  OCIDescribeAny call is broken");
  std::exit(1);
}
