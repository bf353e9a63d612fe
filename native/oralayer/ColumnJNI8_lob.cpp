// The LOB locator of a column: its own, which fetches fill, or one borrowed from a LOB object that
// is to be bound.

#include "ColumnJNI8.h"
#include "oralayer8.h"
#include "records.h"
#include "trace.h"
#include "trevalon_db_oci_OciColumn.h"

namespace {

constexpr jint kKeepTypes = -999;

// The LOB record behind a setter's argument, for a column that has room for its indicator; null
// after raising.
lobdata* value_lob(JNIEnv* env, const columndata& col, jobject lobobj) {
  if (!argument_given(env, lobobj, "Lob is null")) return nullptr;
  lobdata* lob = lob_record(env, lobobj, "Lob is null");
  return lob != nullptr && has_value_row(env, col) ? lob : nullptr;
}

// From here on the column has what `lob` holds, or nothing. A locator of the column's own is freed:
// nobody could reach it any more.
void borrow_locator(columndata& col, const lobdata* lob) {
  if (!has_lender(&col)) free_locator(col.lobloc);
  col.lobloc = lob != nullptr ? lob->lobloc : nullptr;
  note_lender(&col, lob);
}

// A define of the column would fetch into the locator of the LOB object: it must be renewed.
void set_lob(columndata& col, const lobdata& lob, bool null) {
  if (col.lobloc != nullptr && !has_lender(&col)) touch_record(&col);
  col.indpvect[0] = null ? -1 : 0;
  borrow_locator(col, &lob);
  if (!null) TRACE("    lobloc", "=", col.lobloc);
}

// The setters with a fixed type: a refused LOB object leaves the column as it was, and NULL needs
// no locator.
void set_value_with(JNIEnv* env, jobject obj, jobject lobobj, jint type, jboolean setnull) {
  if (!env_and_object(env, obj)) return;
  columndata* col = column_record(env, obj, "Column is null");
  if (col == nullptr) return;
  const lobdata* lob = value_lob(env, *col, lobobj);
  if (lob == nullptr) return;
  set_types(*col, type);
  if (setnull == JNI_FALSE) {
    set_lob(*col, *lob, false);
  } else {
    col->indpvect[0] = -1;
    borrow_locator(*col, nullptr);
  }
}

}  // namespace

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_allocLobLocator(JNIEnv* env, jobject obj,
                                                                      jobject connobj, jint type) {
  if (!env_and_object(env, obj)) return;
  columndata* col = column_record(env, obj, "COL is null");
  if (col == nullptr) return;
  if (!argument_given(env, connobj, "CONN is null")) return;
  const ldadata* ld = session_record(env, connobj, "LDA is null");
  if (ld == nullptr) return;
  TRACE("*** allocLobLocator ***");
  borrow_locator(*col, nullptr);
  if (allocate_locator(*ld, col->lobloc) != OCI_SUCCESS) {
    TV_ThrowInternalError(env, "in OciColumn_allocLobLocator: OCIDescriptorAlloc FAILED");
  }
  if (type == kKeepTypes) return;
  set_types(*col, type);
  TRACE("    type", "=", type);
}

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_deallocLobLocator(JNIEnv* env, jobject obj) {
  if (!env_and_object(env, obj)) return;
  columndata* col = column_record(env, obj, "COL is null");
  if (col == nullptr || col->lobloc == nullptr) return;
  if (has_lender(col)) {
    borrow_locator(*col, nullptr);
  } else if (free_locator(col->lobloc) != OCI_SUCCESS) {
    TV_ThrowInternalError(env, "in OciColumn_deallocLobLocator: OCIDescriptorFree FAILED");
  }
}

// The types are set before the LOB object is looked at, and stay where that one is refused.
JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_setValueWithLob(JNIEnv* env, jobject obj,
                                                                      jobject lobobj, jint type,
                                                                      jboolean setnull) {
  if (!env_and_object(env, obj)) return;
  columndata* col = column_record(env, obj, "Column is null");
  if (col == nullptr) return;
  set_types(*col, type);
  const lobdata* lob = value_lob(env, *col, lobobj);
  if (lob != nullptr) set_lob(*col, *lob, setnull != JNI_FALSE);
}

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_setValueWithBlob(JNIEnv* env, jobject obj,
                                                                       jobject lobobj,
                                                                       jboolean setnull) {
  set_value_with(env, obj, lobobj, SQLT_BLOB, setnull);
}

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_setValueWithClob(JNIEnv* env, jobject obj,
                                                                       jobject lobobj,
                                                                       jboolean setnull) {
  set_value_with(env, obj, lobobj, SQLT_CLOB, setnull);
}
