// Reading and writing what a LOB holds. Offsets count from 1; offsets and amounts are in bytes for
// a BLOB and in characters for a CLOB, and are taken modulo 2 to the 32nd power, as OCI counts
// them.

#include <algorithm>
#include <limits>
#include <memory>
#include <new>

#include "LobJNI8.h"
#include "records.h"
#include "trace.h"
#include "trevalon_db_oci_OciLob.h"

namespace {

constexpr jlong kFailed = -1;

ub4 low32(jlong value) {
  return static_cast<ub4>(value);
}

// What a call works on; ok once all of its checks have passed.
struct LobCall {
  lobdata* lob = nullptr;
  ldadata* ld = nullptr;
  bool ok = false;
};

bool has_locator(JNIEnv* env, const lobdata& lob, const char* message) {
  if (lob.lobloc != nullptr) return true;
  TV_ThrowInternalError(env, message);
  return false;
}

// The session before the LOB, whose locator may be missing: OCI has a code for that.
LobCall property_call(JNIEnv* env, jobject obj, jobject connobj) {
  LobCall call;
  call.ld = lob_session(env, obj, connobj);
  if (call.ld == nullptr) return call;
  call.lob = lob_record(env, obj);
  call.ok = call.lob != nullptr;
  return call;
}

// The session before the LOB.
LobCall read_call(JNIEnv* env, jobject obj, jobject connobj, const char* no_locator) {
  LobCall call = property_call(env, obj, connobj);
  call.ok = call.ok && has_locator(env, *call.lob, no_locator);
  return call;
}

// The LOB before the session.
LobCall write_call(JNIEnv* env, jobject obj, jobject connobj) {
  LobCall call;
  if (!env_and_object(env, obj) || !argument_given(env, connobj, "CONN is null")) return call;
  call.lob = lob_record(env, obj);
  if (call.lob == nullptr) return call;
  if (!has_locator(env, *call.lob, "writeLobBuf:  lob->lobloc is null")) return call;
  call.ld = session_record(env, connobj, "LDA is null");
  call.ok = call.ld != nullptr;
  return call;
}

// False after raising: not pinned, or OCI would be told of more than the array holds.
template <typename Element>
bool holds(JNIEnv* env, PinnedArray<Element>& array, ub4 elements, const char* not_pinned) {
  if (!array.ok()) {
    TV_ThrowInternalError(env, not_pinned);
    return false;
  }
  if (elements <= static_cast<ub4>(array.length())) return true;
  array.discard();
  array.release();
  TV_ThrowIndexOutOfBounds(env, "the length given is larger than the array");
  return false;
}

int dump_length(std::size_t units) {
  constexpr auto kMost = static_cast<std::size_t>(std::numeric_limits<int>::max());
  return static_cast<int>(std::min(units, kMost));
}

void dump_characters(const char* as_chars, const char* as_bytes, const utext* units, ub4 count) {
  if (!trace_on()) return;
  dump_utext(as_chars, units, dump_length(count));
  dump_bytes(as_bytes, reinterpret_cast<const text*>(units),
             dump_length(std::size_t{count} * sizeof(utext)));
}

void dump_read(const utext* units, ub4 count) {
  dump_characters("Fetch data as chars", "Fetch data as bytes", units, count);
}

void trace_transfer(ub4 amount, ub4 offset, ub4 bytes, int csid) {
  TRACE("    ub4loblen", "=", amount);
  TRACE("    ub4offset", "=", offset);
  TRACE("    ub4bytelen", "=", bytes);
  TRACE("    charSetId", "=", csid);
}

// A property that the locator itself carries, so that OCI asks for no session.
template <typename Value>
jint character_set(JNIEnv* env, jobject obj, jobject connobj,
                   sword (*ask)(OCIEnv*, OCIError*, const OCILobLocator*, Value*),
                   const char* failed) {
  const LobCall call = property_call(env, obj, connobj);
  if (!call.ok) return kFailed;
  Value value = 0;
  const sword status = ask(call.ld->envhp, call.ld->errhp, call.lob->lobloc, &value);
  if (lob_result(env, obj, connobj, status) == kCallOk) return value;
  TRACE(failed);
  return kFailed;
}

// Reads into a buffer of `capacity` units; `amount` is afterwards what OCI says it has read.
sword read_characters(const LobCall& call, ub4 offset, utext* buffer, ub4 capacity, jint form,
                      ub4& amount) {
  const ub4 bytes = capacity * static_cast<ub4>(sizeof(utext));
  amount = capacity;
  trace_transfer(amount, offset, bytes, OCI_UCS2ID);
  return OCILobRead(call.ld->svchp, call.ld->errhp, call.lob->lobloc, &amount, offset, buffer,
                    bytes, nullptr, nullptr, OCI_UCS2ID, static_cast<ub1>(form));
}

}  // namespace

// --- Properties ----------------------------------------------------------------------------------

JNIEXPORT jlong JNICALL Java_trevalon_db_oci_OciLob_getLobLength(JNIEnv* env, jobject obj,
                                                                 jobject connobj) {
  const LobCall call = property_call(env, obj, connobj);
  if (!call.ok) return kFailed;
  TRACE("^^^^^^^ getLobLength: about to call OCILobGetLength");
  ub4 length = 0;
  const sword status = OCILobGetLength(call.ld->svchp, call.ld->errhp, call.lob->lobloc, &length);
  if (lob_result(env, obj, connobj, status) == kCallFailed) {
    TRACE("OciLobGetLength FAILED ! ");
    return kFailed;
  }
  TRACE("    length", "=", length);
  return jlong{length};
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciLob_getLobCharSetId(JNIEnv* env, jobject obj,
                                                                   jobject connobj) {
  return character_set<ub2>(env, obj, connobj, OCILobCharSetId, "OciLobGetCharSetId FAILED ! ");
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciLob_getLobCharSetForm(JNIEnv* env, jobject obj,
                                                                     jobject connobj) {
  return character_set<ub1>(env, obj, connobj, OCILobCharSetForm, "OciLobGetCharSetForm FAILED ! ");
}

// --- Bytes ---------------------------------------------------------------------------------------

JNIEXPORT jlong JNICALL Java_trevalon_db_oci_OciLob_getLobBuf(JNIEnv* env, jobject obj,
                                                              jobject connobj, jbyteArray HByteBuf,
                                                              jlong offset, jlong loblen,
                                                              jlong bytelen, jint charSetId,
                                                              jint charSetForm) {
  const LobCall call = read_call(env, obj, connobj, "getLobBuf:  lob->lobloc is null");
  if (!call.ok || !argument_given(env, HByteBuf, "result buffer is null")) return kFailed;
  const ub4 bytes = low32(bytelen);
  PinnedBytes buffer(env, HByteBuf, Pin::CopyBack);
  if (!holds(env, buffer, bytes, "getLobBuf: GetByteArrayElements FAILED !")) return kFailed;
  ub4 amount = low32(loblen);
  const sword status = OCILobRead(call.ld->svchp, call.ld->errhp, call.lob->lobloc, &amount,
                                  low32(offset), buffer.data(), bytes, nullptr, nullptr,
                                  static_cast<ub2>(charSetId), static_cast<ub1>(charSetForm));
  TRACE("OCILobRead result", "=", status);
  TRACE_BYTES("Fetch data", buffer.data(), dump_length(bytes));
  buffer.release();
  TRACE("RETURN LEN ", amount);
  return lob_result(env, obj, connobj, status) == kCallOk ? jlong{amount} : kFailed;
}

JNIEXPORT jlong JNICALL Java_trevalon_db_oci_OciLob_writeLobBuf(
    JNIEnv* env, jobject obj, jobject connobj, jbyteArray HByteBuf, jlong offset, jlong loblen,
    jlong bytelen, jint piece, jint charSetId, jint charSetForm) {
  const LobCall call = write_call(env, obj, connobj);
  if (!call.ok || !argument_given(env, HByteBuf, "result buffer is null")) return kFailed;
  const ub4 bytes = low32(bytelen);
  PinnedBytes buffer(env, HByteBuf, Pin::CopyBack);
  if (!holds(env, buffer, bytes, "writeLobBuf: GetByteArrayElements FAILED !")) return kFailed;
  ub4 amount = low32(loblen);
  TRACE("*** OCILobWrite             ***");
  trace_transfer(amount, low32(offset), bytes, charSetId);
  TRACE("    piece", "=", piece);
  const sword status =
      OCILobWrite(call.ld->svchp, call.ld->errhp, call.lob->lobloc, &amount, low32(offset),
                  buffer.data(), bytes, static_cast<ub1>(piece), nullptr, nullptr,
                  static_cast<ub2>(charSetId), static_cast<ub1>(charSetForm));
  TRACE("OCILobWrite result", "=", status);
  TRACE_BYTES("Write data", buffer.data(), dump_length(bytes));
  buffer.release();
  TRACE("RETURN LEN ", bytes);
  return lob_result(env, obj, connobj, status) == kCallOk ? jlong{bytes} : kFailed;
}

// --- Characters ----------------------------------------------------------------------------------
//
// OCI converts from and to UCS-2, whatever set the caller names.

JNIEXPORT jstring JNICALL Java_trevalon_db_oci_OciLob_getLobUCS2Buf(JNIEnv* env, jobject obj,
                                                                    jobject connobj, jlong offset,
                                                                    jlong loblen, jint,
                                                                    jint charSetForm) {
  const LobCall call = read_call(env, obj, connobj, "getLobBuf:  lob->lobloc is null");
  if (!call.ok) return nullptr;
  // OCI counts the buffer's bytes in 32 bits.
  constexpr ub4 kMostUnits = std::numeric_limits<ub4>::max() / sizeof(utext);
  const ub4 units = low32(loblen);
  std::unique_ptr<utext[]> buffer(units > kMostUnits ? nullptr : new (std::nothrow) utext[units]);
  if (buffer == nullptr) {
    TV_ThrowOutOfMemoryError(env, "Out of memory");
    return nullptr;
  }
  ub4 amount = 0;
  const sword status =
      read_characters(call, low32(offset), buffer.get(), units, charSetForm, amount);
  if (lob_result(env, obj, connobj, status) == kCallFailed) {
    buffer.reset();
    TV_ThrowSQLException(env, "Error Reading Lob in getLobUCS2Buf");
    return nullptr;
  }
  TRACE("RETURN LEN ", amount);
  const ub4 read = std::min(amount, units);
  dump_read(buffer.get(), read);
  return env->NewString(buffer.get(), static_cast<jsize>(read));
}

JNIEXPORT jlong JNICALL Java_trevalon_db_oci_OciLob_getLobUCS2CharBuf(JNIEnv* env, jobject obj,
                                                                      jobject connobj,
                                                                      jcharArray HCharBuf,
                                                                      jlong offset, jlong loblen,
                                                                      jint, jint charSetForm) {
  const LobCall call = read_call(env, obj, connobj, "getLobUCS2CharBuf:  lob->lobloc is null");
  if (!call.ok) return kFailed;
  TRACE("sizeof(utext)", "=", sizeof(utext));
  TRACE("sizeof(jchar)", "=", sizeof(jchar));
  if constexpr (sizeof(utext) != sizeof(jchar)) {
    TV_ThrowInternalError(env, "getLobUCS2CharBuf: sizeof(utext) != sizeof(jchar) !");
    return kFailed;
  }
  if (!argument_given(env, HCharBuf, "result buffer is null")) return kFailed;
  const ub4 units = low32(loblen);
  PinnedChars buffer(env, HCharBuf, Pin::CopyBack);
  if (!holds(env, buffer, units, "getLobUCS2CharBuf: GetByteArrayElements FAILED !")) {
    return kFailed;
  }
  ub4 amount = 0;
  const sword status =
      read_characters(call, low32(offset), buffer.data(), units, charSetForm, amount);
  TRACE("RETURN LEN ", amount);
  dump_read(buffer.data(), std::min(amount, units));
  buffer.release();
  return lob_result(env, obj, connobj, status) == kCallOk ? jlong{amount} : kFailed;
}

JNIEXPORT jlong JNICALL Java_trevalon_db_oci_OciLob_writeLobUCS2CharBuf(
    JNIEnv* env, jobject obj, jobject connobj, jcharArray HCharBuf, jlong offset, jlong buflen,
    jint piece, jint, jint charSetForm) {
  const LobCall call = write_call(env, obj, connobj);
  if (!call.ok || !argument_given(env, HCharBuf, "result buffer is null")) return kFailed;
  const ub4 units = low32(buflen);
  PinnedChars buffer(env, HCharBuf, Pin::CopyBack);
  if (!holds(env, buffer, units, "getLobUCS2CharBuf: GetByteArrayElements FAILED !")) {
    return kFailed;
  }
  const ub4 bytes = units * static_cast<ub4>(sizeof(utext));
  trace_transfer(units, low32(offset), bytes, OCI_UCS2ID);
  TRACE("    piece", "=", piece);
  dump_characters("Write data as chars", "Write data as bytes", buffer.data(), units);
  ub4 amount = units;
  const sword status = OCILobWrite(call.ld->svchp, call.ld->errhp, call.lob->lobloc, &amount,
                                   low32(offset), buffer.data(), bytes, static_cast<ub1>(piece),
                                   nullptr, nullptr, OCI_UCS2ID, static_cast<ub1>(charSetForm));
  buffer.release();
  return lob_result(env, obj, connobj, status) == kCallOk ? jlong{amount} : kFailed;
}
