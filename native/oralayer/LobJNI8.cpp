// LOB objects: the record, its locator, and the error state.

#include "LobJNI8.h"

#include <new>

#include "oralayer8.h"
#include "records.h"
#include "trace.h"
#include "trevalon_db_oci_OciLob.h"

// --- Locators ------------------------------------------------------------------------------------

sword free_locator(OCILobLocator*& locator) {
  if (locator == nullptr) return OCI_SUCCESS;
  const sword status = OCIDescriptorFree(locator, OCI_DTYPE_LOB);
  locator = nullptr;
  return status;
}

sword allocate_locator(const ldadata& ld, OCILobLocator*& locator) {
  free_locator(locator);
  const sword status =
      OCIDescriptorAlloc(ld.envhp, reinterpret_cast<void**>(&locator), OCI_DTYPE_LOB, 0, nullptr);
  TRACE("    lobloc", "=", locator);
  return status;
}

// --- Error state ---------------------------------------------------------------------------------

void assignLobCodes(JNIEnv* env, jobject obj, jobject connobj) {
  if (!env_and_object(env, obj)) return;
  if (!argument_given(env, connobj, "assignLobCodes: CONN is null")) return;
  const ldadata* ld = session_record(env, connobj, "assignLobCodes: LDA is null");
  if (ld == nullptr) return;
  const sb4 code = oracle_error(ld->errhp);
  TRACE("    loberrorcode", "=", code);
  env->SetIntField(obj, loberrcodeiD, code);
}

void clearLobErrorCodes(JNIEnv* env, jobject obj) {
  if (env_and_object(env, obj)) env->SetIntField(obj, loberrcodeiD, 0);
}

jboolean lob_result(JNIEnv* env, jobject obj, jobject connobj, sword status) {
  if (status == OCI_SUCCESS) return kCallOk;
  assignLobCodes(env, obj, connobj);
  return kCallFailed;
}

ldadata* lob_session(JNIEnv* env, jobject obj, jobject connobj) {
  if (!env_and_object(env, obj)) return nullptr;
  if (!argument_given(env, connobj, "CONN is null")) return nullptr;
  return session_record(env, connobj, "LDA is null");
}

// --- Life of a LOB object ------------------------------------------------------------------------

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciLob_initialize(JNIEnv* env, jobject obj) {
  if (!env_and_object(env, obj) || !library_initialised(env)) return;
  TRACE("*** OciLob initialize ***");
  auto* lob = new (std::nothrow) lobdata();
  if (lob == nullptr) {
    TV_ThrowOutOfMemoryError(env, "OciLob_initialize Out of memory");
    return;
  }
  store_record(env, obj, lobdata32iD, lob);
}

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciLob_allocLob(JNIEnv* env, jobject obj,
                                                                jobject connobj) {
  const ldadata* ld = lob_session(env, obj, connobj);
  if (ld == nullptr) return kCallOk;
  lobdata* lob = lob_record(env, obj);
  if (lob == nullptr) return kCallOk;
  TRACE("*** allocLob ***");
  touch_record(lob);
  return lob_result(env, obj, connobj, allocate_locator(*ld, lob->lobloc));
}

namespace {

// The column's record, with a locator; null after raising.
columndata* source_column(JNIEnv* env, jobject colobj) {
  if (!argument_given(env, colobj, "COL is null")) return nullptr;
  columndata* col = column_record(env, colobj, "COL is null");
  if (col == nullptr) return nullptr;
  if (required(env, col->lobloc, "SOURCE COLUMN LOBLOCATOR is null") == nullptr) return nullptr;
  return borrowed_locator_stands(env, *col) ? col : nullptr;
}

}  // namespace

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciLob_assignLobFromColumn(JNIEnv* env, jobject obj,
                                                                           jobject connobj,
                                                                           jobject colobj) {
  const ldadata* ld = lob_session(env, obj, connobj);
  if (ld == nullptr) return kCallOk;
  const columndata* col = source_column(env, colobj);
  if (col == nullptr) return kCallOk;
  lobdata* lob = lob_record(env, obj, "DEST LOBDATA is null");
  if (lob == nullptr) return kCallOk;
  TRACE("*** assignLobFromColumn ***");
  // A column that borrowed this very locator: to free it first would take the source away.
  if (col->lobloc == lob->lobloc) return kCallOk;
  PendingException pending(env);
  touch_record(lob);
  if (allocate_locator(*ld, lob->lobloc) != OCI_SUCCESS) {
    TV_ThrowInternalError(env, "in assignLobFromColumn: OCIDescriptorAlloc FAILED");
    pending.set_aside();
  }
  TRACE("    source lobloc", "=", col->lobloc);
  TRACE("    dest lobloc", "=", lob->lobloc);
  const sword status = OCILobAssign(ld->envhp, ld->errhp, col->lobloc, &lob->lobloc);
  return lob_result(env, obj, connobj, status);
}

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciLob_native_1finalize(JNIEnv* env, jobject obj) {
  if (!env_and_object(env, obj)) return;
  auto* lob = record_of<lobdata>(env, obj, lobdata32iD);
  if (lob == nullptr) return;
  if (lob->lobloc != nullptr) TRACE("    free lobloc", "=", lob->lobloc);
  free_locator(lob->lobloc);
  delete lob;
  store_record<lobdata>(env, obj, lobdata32iD, nullptr);
}
