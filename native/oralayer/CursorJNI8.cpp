// The cursor record, its lifecycle and error state, parse, describe and execution.

#include "CursorJNI8.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "guards.h"
#include "oralayer8.h"
#include "records.h"
#include "trace.h"
#include "trevalon_db_oci_OciCursor.h"

// --- Record --------------------------------------------------------------------------------------

cdadata::cdadata(int)
    : svchp(nullptr),
      stmthp(nullptr),
      errhp(nullptr),
      tmp(nullptr),
      described(0),
      need_data(0),
      jocicursor(nullptr),
      long_count(0),
      lda(nullptr),
      lc_head(nullptr),
      lc_tail(nullptr),
      li_head(nullptr),
      li_tail(nullptr),
      longdata_bufpool(nullptr),
      sqlstr(nullptr),
      descpstr(nullptr) {}

cdadata::~cdadata() {
  if (sqlstr != nullptr) {
    delete[] sqlstr;
    sqlstr = nullptr;
    described = 0;
    need_data = 0;
  }
  delete[] descpstr;
  if (lc_tail != nullptr) longcol_node::destroychain(&lc_head, &lc_tail);
  if (li_tail != nullptr) longcol_node::destroychain(&li_head, &li_tail);
  end_statement_memory(*this);
  if (longdata_bufpool != nullptr) {
    TRACE(
        " !!!! Rather SEVERE warning !!  we are deleting longdata_bufpool in cursordata "
        "destructor !");
    TRACE("          the longdata_bufpool should have been deleted in cursor.close()");
    delete longdata_bufpool;
  }
}

std::int32_t longBufferSize(JNIEnv* env, jobject obj) {
  return env_and_object(env, obj) ? env->GetIntField(obj, selPieceLengthID) : 0;
}

// --- Error state ---------------------------------------------------------------------------------

namespace {

// A query that fails leaves the value as it was: 0.
template <typename T>
T statement_attribute(const cdadata& cda, ub4 attribute) {
  T value = 0;
  OCIAttrGet(cda.stmthp, OCI_HTYPE_STMT, &value, nullptr, attribute, cda.errhp);
  return value;
}

// Reading a field takes a fraction of what writing it takes, and most keep their value from one
// call to the next.
void set_code(JNIEnv* env, jobject obj, jfieldID field, jint value) {
  if (env->GetIntField(obj, field) != value) env->SetIntField(obj, field, value);
}

}  // namespace

void assignCdaCodes(JNIEnv* env, jobject obj) {
  if (!env_and_object(env, obj)) return;
  const cdadata* cda = cursor_record(env, obj);
  if (cda == nullptr) return;
  const sb4 cdaerrorcode = oracle_error(cda->errhp);
  const auto sqlfunccode = statement_attribute<ub2>(*cda, OCI_ATTR_SQLFNCODE);
  const auto rowsprocessed = statement_attribute<ub4>(*cda, OCI_ATTR_ROW_COUNT);
  const auto ocifunccode = statement_attribute<ub4>(*cda, OCI_ATTR_FNCODE);
  TRACE("    cdaerrorcode", "=", cdaerrorcode);
  set_code(env, obj, cdaerrorcodeiD, cdaerrorcode);
  set_code(env, obj, rowsprocessediD, static_cast<jint>(rowsprocessed));
  set_code(env, obj, parsererroffsetiD, 0);
  set_code(env, obj, sqlfunccodeiD, sqlfunccode);
  set_code(env, obj, ocifunccodeiD, static_cast<jint>(ocifunccode));
  set_code(env, obj, oserrcodeiD, 0);
  set_code(env, obj, warnflagsiD, 0);
}

void clearCdaErrorCodes(JNIEnv* env, jobject obj) {
  if (!env_and_object(env, obj)) return;
  set_code(env, obj, cdaerrorcodeiD, 0);
  set_code(env, obj, parsererroffsetiD, 0);
  set_code(env, obj, oserrcodeiD, 0);
  set_code(env, obj, warnflagsiD, 0);
}

// --- Lifecycle -----------------------------------------------------------------------------------

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciCursor_initialize(JNIEnv* env, jobject obj,
                                                                 jint elem) {
  if (!env_and_object(env, obj)) return;
  if (!library_initialised(env)) return;
  auto* cda = new (std::nothrow) cdadata(elem);
  if (cda == nullptr) {
    TV_ThrowOutOfMemoryError(env, "Out of memory");
    return;
  }
  store_record(env, obj, cdadata32iD, cda);
}

namespace {

// Clears the handle, so that a second close finds nothing to free.
sword free_statement(cdadata& cda) {
  if (cda.stmthp == nullptr) return OCI_SUCCESS;
  TRACE("*** OCIHandleFree (OCI_HTYPE_STMT) ***");
  end_statement_memory(cda);
  const sword retvali = OCIHandleFree(cda.stmthp, OCI_HTYPE_STMT);
  TRACE("    OCIHandleFree result", "=", retvali);
  cda.stmthp = nullptr;
  return retvali;
}

// The record's hold on its Java object, which streamed binds have taken.
void release_java_cursor(JNIEnv* env, cdadata& cda) {
  if (cda.jocicursor != nullptr) env->DeleteGlobalRef(cda.jocicursor);
  cda.jocicursor = nullptr;
}

}  // namespace

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciCursor_open(JNIEnv* env, jobject obj,
                                                               jobject connobj) {
  TRACE("*** open ***");
  if (!env_and_object(env, obj)) return kCallOk;
  cdadata* cda = cursor_record(env, obj);
  if (cda == nullptr) return kCallOk;
  if (!argument_given(env, connobj, "CONN is null")) return kCallOk;
  ldadata* ld = session_record(env, connobj, "LDA is null");
  if (ld == nullptr) return kCallOk;

  if (!is_idle(env, *cda)) return kCallOk;
  drop_defines_and_binds(env, *cda);  // of an open that no close followed
  free_statement(*cda);
  cda->errhp = ld->errhp;
  const sword retvali = OCIHandleAlloc(ld->envhp, reinterpret_cast<void**>(&cda->stmthp),
                                       OCI_HTYPE_STMT, kStatementMemorySize, &cda->tmp);
  cda->described = 0;
  cda->svchp = ld->svchp;
  cda->lda = ld;
  if (retvali == OCI_SUCCESS) start_statement_memory(*cda);
  assignCdaCodes(env, obj);
  return call_result(retvali);
}

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciCursor_cancel(JNIEnv* env, jobject obj) {
  if (!env_and_object(env, obj)) return kCallOk;
  const cdadata* cda = cursor_record(env, obj);
  if (cda == nullptr) return kCallOk;
  if (required(env, cda->lda, "LDA is null") == nullptr) return kCallOk;
  TRACE("*** Cursor:  OCIBreak ***");
  const sword retvali = OCIBreak(cda->lda->svchp, cda->errhp);
  assignCdaCodes(env, obj);
  return call_result(retvali);
}

namespace {

// Gives a column's pieces back to the pool, or says what is inconsistent.
void release_long_value(JNIEnv* env, const cdadata& cda, columndata& col) {
  if (col.longbuf_tail == nullptr) return;
  if (col.longbuf_head == nullptr) {
    TV_ThrowInternalError(env,
                          "in OciCursor_close longbuf_tail is not null but longbuf_head is NULL !");
  } else if (cda.longdata_bufpool == nullptr) {
    TV_ThrowInternalError(env, "in OciCursor_close the longdata_bufpool is NULL");
  } else {
    longdata_node::releasechain(&col.longbuf_head, &col.longbuf_tail, cda.longdata_bufpool);
  }
}

void release_long_columns(JNIEnv* env, cdadata& cda, PendingException& pending) {
  for (longcol_node* node = cda.lc_tail; node != nullptr; node = node->next) {
    // A column that has ended took its pieces along; one that was defined elsewhere keeps them.
    if (node->coldata == nullptr || has_ended(cda, node->coldata)) continue;
    release_long_value(env, cda, *node->coldata);
    pending.set_aside();
  }
  if (cda.lc_tail != nullptr) {
    if (cda.lc_head != nullptr) {
      longcol_node::destroychain(&cda.lc_head, &cda.lc_tail);
    } else {
      TV_ThrowInternalError(env, "in OciCursor_close lc_tail is not null but lc_head is NULL !");
      pending.set_aside();
    }
  }
  delete cda.longdata_bufpool;
  cda.longdata_bufpool = nullptr;
}

}  // namespace

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciCursor_close(JNIEnv* env, jobject obj) {
  TRACE("*** close ***");
  if (!env_and_object(env, obj)) return kCallOk;
  cdadata* cda = cursor_record(env, obj);
  if (cda == nullptr) return kCallOk;

  if (!is_idle(env, *cda)) return kCallOk;
  // Inconsistent chains are reported, and the rest is closed all the same.
  PendingException pending(env);
  cda->long_count = 0;
  cda->described = 0;
  cda->need_data = 0;
  release_java_cursor(env, *cda);
  clean_longinsert_chain(env, cda);
  release_long_columns(env, *cda, pending);
  const sword retvali = free_statement(*cda);
  assignCdaCodes(env, obj);
  return call_result(retvali);
}

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciCursor_native_1finalize(JNIEnv* env, jobject obj) {
  if (!env_and_object(env, obj)) return;
  auto* cda = record_of<cdadata>(env, obj, cdadata32iD);
  if (cda == nullptr || !is_idle(env, *cda)) return;
  release_java_cursor(env, *cda);
  store_record<cdadata>(env, obj, cdadata32iD, nullptr);
  delete cda;
}

// --- Parse ---------------------------------------------------------------------------------------

namespace {

// Replaces the record's copy of the statement text, with a zero byte behind it. False after
// raising; the record then holds no text.
bool keep_statement_text(JNIEnv* env, cdadata& cda, jbyteArray sql) {
  delete[] cda.sqlstr;
  cda.sqlstr = nullptr;
  const auto length = static_cast<std::size_t>(env->GetArrayLength(sql));
  cda.sqlstr = new (std::nothrow) text[length + 1];
  if (cda.sqlstr == nullptr) {
    TV_ThrowNullPointerException(env, "Null array");
    return false;
  }
  PinnedBytes bytes(env, sql, Pin::ReadOnly);
  if (!pinned(env, bytes)) {
    delete[] cda.sqlstr;
    cda.sqlstr = nullptr;
    return false;
  }
  std::memcpy(cda.sqlstr, bytes.data(), length);
  cda.sqlstr[length] = '\0';
  TRACE("*** OCIStmtPrepare ***");
  TRACE_BYTES("sqlstr", cda.sqlstr, bytes.length());
  return true;
}

// A query is run for its select list alone, once for each time that the cursor is opened.
sword describe_query(cdadata& cda) {
  TRACE("*** OCIStmtExecute (describe only) ***");
  const sword retvali =
      OCIStmtExecute(cda.svchp, cda.stmthp, cda.errhp, 0, 0, nullptr, nullptr, OCI_DESCRIBE_ONLY);
  TRACE("--- OCIStmtExecute (describe only) --  OCIStmtExecute completed");
  if (retvali != OCI_SUCCESS) {
    TRACE("    Describe FAILED");
    return retvali;
  }
  cda.described = 1;
  cda.long_count = 0;
  return OCI_SUCCESS;
}

}  // namespace

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciCursor_parse(JNIEnv* env, jobject obj,
                                                                jbyteArray HSqlBuf, jboolean) {
  TRACE("*** parse ***");
  if (!env_and_object(env, obj)) return kCallOk;
  if (!argument_given(env, HSqlBuf, "result buffer is null")) return kCallOk;
  cdadata* cda = cursor_record(env, obj);
  if (cda == nullptr) return kCallOk;
  if (!is_idle(env, *cda) || !keep_statement_text(env, *cda, HSqlBuf)) return kCallOk;

  const auto length = static_cast<ub4>(std::strlen(reinterpret_cast<char*>(cda->sqlstr)));
  sword retvali =
      OCIStmtPrepare(cda->stmthp, cda->errhp, cda->sqlstr, length, OCI_NTV_SYNTAX, OCI_DEFAULT);
  if (retvali != OCI_SUCCESS) {
    TRACE("   prepare failed");
    assignCdaCodes(env, obj);
    return kCallFailed;
  }
  TRACE("    prepare succeeded");
  drop_defines_and_binds(env, *cda);
  const auto stmttype = statement_attribute<ub2>(*cda, OCI_ATTR_STMT_TYPE);
  TRACE("    stmttype", "=", stmttype);
  if (memory_of(*cda) != nullptr) memory_of(*cda)->type = stmttype;
  TRACE("    cd->described: ", cda->described);
  if (stmttype == OCI_STMT_SELECT && cda->described == 0) retvali = describe_query(*cda);
  assignCdaCodes(env, obj);
  return call_result(retvali);
}

// --- Describe ------------------------------------------------------------------------------------

namespace {

sword read_attribute(void* parameter, void* value, ub4* size, ub4 attribute, OCIError* errhp) {
  return OCIAttrGet(parameter, OCI_DTYPE_PARAM, value, size, attribute, errhp);
}

sword read_name(void* parameter, columndata& col, OCIError* errhp) {
  text* name = nullptr;
  ub4 length = kColumnNameSize;
  const sword retvali = read_attribute(parameter, &name, &length, OCI_ATTR_NAME, errhp);
  if (retvali != OCI_SUCCESS) return retvali;
  length = name == nullptr ? 0 : std::min<ub4>(length, kColumnNameSize);
  if (length > 0) std::memcpy(col.columnname, name, length);
  col.columnname[length] = '\0';
  return retvali;
}

// Reads one column's attributes; what was read before a failure stays.
sword read_parameter(void* parameter, columndata& col, OCIError* errhp) {
  col.internal_dbtype = -1;
  sword retvali =
      read_attribute(parameter, &col.internal_dbtype, nullptr, OCI_ATTR_DATA_TYPE, errhp);
  if (retvali != OCI_SUCCESS) return retvali;
  TRACE("    internal_dbtype", "=", col.internal_dbtype);

  ub2 size = 0;
  retvali = read_attribute(parameter, &size, nullptr, OCI_ATTR_DATA_SIZE, errhp);
  col.dbsize = size;
  if (retvali != OCI_SUCCESS) return retvali;
  TRACE("    dbsize", "=", col.dbsize);

  retvali = read_name(parameter, col, errhp);
  if (retvali != OCI_SUCCESS) return retvali;

  // Some client libraries write one byte here, others two; the preset completes the former.
  col.prec = 0;
  retvali = read_attribute(parameter, &col.prec, nullptr, OCI_ATTR_PRECISION, errhp);
  if (retvali != OCI_SUCCESS) return retvali;

  // Either width again, but signed, and every scale fits a byte: -127 must not end as 129.
  col.scale = 0;
  retvali = read_attribute(parameter, &col.scale, nullptr, OCI_ATTR_SCALE, errhp);
  col.scale = static_cast<sb1>(col.scale);
  return retvali;
}

}  // namespace

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciCursor_describe(JNIEnv* env, jobject obj,
                                                                   jobject colobj) {
  const auto [cda, col] = cursor_and_column(env, obj, colobj);
  if (col == nullptr) return kCallOk;

  TRACE("*** OCIParamGet (describe) ***");
  TRACE(" colpos=", col->colpos);
  void* parameter = nullptr;  // belongs to the statement handle
  sword retvali = OCIParamGet(cda->stmthp, OCI_HTYPE_STMT, cda->errhp, &parameter,
                              static_cast<ub4>(col->colpos));
  if (retvali == OCI_SUCCESS) retvali = read_parameter(parameter, *col, cda->errhp);
  assignCdaCodes(env, obj);
  return call_result(retvali);
}

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciCursor_isBlobColumn(JNIEnv* env, jobject obj,
                                                                       jobject colobj) {
  const columndata* col = cursor_and_column(env, obj, colobj).col;
  return col != nullptr && is_long(*col) ? JNI_TRUE : JNI_FALSE;
}

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciCursor_isOCI8ILOBColumn(JNIEnv* env, jobject obj,
                                                                           jobject colobj) {
  const columndata* col = cursor_and_column(env, obj, colobj).col;
  return col != nullptr && is_lob(*col) ? JNI_TRUE : JNI_FALSE;
}

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciCursor_oopt(JNIEnv* env, jobject obj, jint) {
  if (!env_and_object(env, obj)) return kCallOk;
  TV_ThrowNullPointerException(env, "The functionality of oopt does not exist in OCI8");
  return kCallOk;
}

// --- Execution -----------------------------------------------------------------------------------

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciCursor_exec(JNIEnv* env, jobject obj) {
  if (!env_and_object(env, obj)) return kCallOk;
  cdadata* cda = cursor_record(env, obj);
  if (cda == nullptr) return kCallOk;
  if (required(env, cda->lda, "LDA is null") == nullptr) return kCallOk;
  constexpr int kIterations = 1;  // of a query: rows
  if (!may_execute(env, *cda, kIterations)) return kCallOk;
  TRACE("*** OCIStmtExecute 1 *** ");
  const ub4 mode = cda->lda->autocommit != 0 ? OCI_COMMIT_ON_SUCCESS : OCI_DEFAULT;
  PendingException pending(env);  // of the Java method that the insert callback calls
  const bool streams = cda->li_tail != nullptr;
  const sword retvali = execute_statement(env, *cda, kIterations, mode);
  TRACE("    OCIStmtExecute result", "=", retvali);
  if (streams) pending.set_aside();
  assignCdaCodes(env, obj);
  clean_longinsert_chain(env, cda);
  return call_result(retvali);
}
