// Definition of the select list, array fetch and piecewise fetch.

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>

#include "CursorJNI8.h"
#include "guards.h"
#include "oralayer8.h"
#include "records.h"
#include "trace.h"
#include "trevalon_db_oci_OciCursor.h"

// --- Select-list definition ----------------------------------------------------------------------

namespace {

constexpr sb4 kLongestLong = 0x7FFFFFFF;  // no limit on a value that is fetched in pieces

sword define(const cdadata& cda, columndata& col, const char* banner, void* value, sb4 value_size,
             ub4 mode) {
  OCIDefine* defnp = nullptr;  // OCI allocates it; it belongs to the statement
  if (trace_on()) {
    trace_line(banner);
    trace_line("    stmthp=", cda.stmthp);
    trace_line("    defnp=", defnp);
    trace_line("    errhp=", cda.errhp);
    trace_line("    colpos=", col.colpos);
    trace_line("    value=", value);
    trace_line("    value_size=", value_size);
    trace_line("    external_dbtype=", col.external_dbtype);
    trace_line("    indpvect=", col.indpvect);
    trace_line("    retlenvect=", col.retlenvect);
    trace_line("    retcodevect=", col.retcodevect);
    trace_line("    mode=", mode);
  }
  return OCIDefineByPos(cda.stmthp, &defnp, cda.errhp, static_cast<ub4>(col.colpos), value,
                        value_size, static_cast<ub2>(col.external_dbtype), col.indpvect,
                        col.retlenvect, col.retcodevect, mode);
}

// Defines the column for data at fetch and queues it, whatever the definition gave. All memory is
// seen to first. False after raising.
bool define_long(JNIEnv* env, cdadata& cda, columndata& col, sword& retvali) {
  std::unique_ptr<longcol_node> node(new (std::nothrow) longcol_node);
  if (node == nullptr) {
    TV_ThrowOutOfMemoryError(env, "Out of memory");
    return false;
  }
  lend(cda, {&col, 0, LentAs::Chain, 0, 0, LentPart::Buffers, nullptr});
  if (!may_lend(env, cda)) return false;
  retvali = define(cda, col, "*** OCIDefineByPos for LONG, LONGRAW  ***", nullptr, kLongestLong,
                   OCI_DYNAMIC_FETCH);
  ++cda.long_count;
  node->coldata = &col;
  longcol_node::queue(&cda.lc_head, &cda.lc_tail, node.release());
  return true;
}

// Defines the column as its kind asks. False after raising.
bool define_column(JNIEnv* env, cdadata& cda, columndata& col, jint fetchsize, sword& retvali) {
  sb4 rows = fetchsize;
  if (is_long(col)) {
    rows = std::numeric_limits<sb4>::max();  // one at a time, in pieces
    if (!define_long(env, cda, col, retvali)) return false;
  } else if (is_lob(col)) {
    rows = 1;  // the record has one locator
    retvali = define(cda, col, "*** OCIDefineByPos for BLOB, CLOB, NCLOB ***", &col.lobloc,
                     col.buflen, OCI_DEFAULT);
  } else {
    retvali = define(cda, col, "*** OCIDefineByPos ***", col.bufptr, col.buflen, OCI_DEFAULT);
  }
  if (retvali != OCI_SUCCESS) return true;
  const auto position = static_cast<ub4>(col.colpos);
  const LentPart part = is_lob(col) ? LentPart::Locator : LentPart::Buffers;
  lend(cda, {&col, 0, LentAs::Define, position, rows, part, nullptr});
  return true;
}

// The column's data buffer, unless it is smaller than what OCI would be told.
ub1* data_buffer(columndata& col, jint fetchsize) {
  ub1* buffer = bindSelectData(&col);
  if (is_long(col)) return buffer;
  const auto needed =
      static_cast<std::uint64_t>(col.buflen) * static_cast<std::uint64_t>(fetchsize);
  return col.byte_capacity() >= needed ? buffer : nullptr;
}

}  // namespace

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciCursor_bindSelectItem(JNIEnv* env, jobject obj,
                                                                         jobject colobj,
                                                                         jint fetchsize) {
  TRACE("*** bindSelectItem ***");
  const auto [cda, col] = cursor_and_column(env, obj, colobj);
  if (col == nullptr || !may_bind(env, *cda)) return kCallOk;

  const sword external = int2extSelectOciType(col->internal_dbtype, col->prec, col->scale);
  const sb4 piece_length = longBufferSize(env, obj);
  const sword length = is_long(*col) ? piece_length
                                     : getSelectLength(col->internal_dbtype, col->prec, col->scale,
                                                       static_cast<sb4>(col->dbsize));
  if (fetchsize < 0 || (length < 0 && !is_lob(*col))) {
    TV_ThrowInternalError(env, "in bindSelectItem: negative row count or buffer length");
    return kCallOk;
  }
  col->external_dbtype = external;
  col->buflen = length;
  allocSelectData(col, piece_length, fetchsize);
  col->bufptr = data_buffer(*col, fetchsize);
  trace_pointer("    col->bufptr", col->bufptr);
  sword retvali = OCI_SUCCESS;
  if (!define_column(env, *cda, *col, fetchsize, retvali)) return kCallOk;
  TRACE("    retvali", "=", retvali);
  assignCdaCodes(env, obj);
  return call_result(retvali);
}

// --- Fetch ---------------------------------------------------------------------------------------

namespace {

bool may_fetch(JNIEnv* env, const cdadata& cda, jint rows) {
  return is_idle(env, cda) && rows_have_room(env, cda, rows) &&
         lent_records_stand(env, cda, Binds::Spent);
}

sword fetch_rows(const cdadata& cda, ub4 rows) {
  return OCIStmtFetch(cda.stmthp, cda.errhp, rows, OCI_FETCH_NEXT, OCI_DEFAULT);
}

}  // namespace

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciCursor_fetch(JNIEnv* env, jobject obj) {
  if (!env_and_object(env, obj)) return kCallOk;
  const cdadata* cda = cursor_record(env, obj);
  if (cda == nullptr) return kCallOk;
  if (!may_fetch(env, *cda, 1)) return kCallOk;
  TRACE("*** OCIStmtFetch 1 ***");
  const sword retvali = fetch_rows(*cda, 1);
  assignCdaCodes(env, obj);
  return call_result(retvali);
}

// --- Piecewise fetch -----------------------------------------------------------------------------

namespace {

constexpr sb4 kNeedFetchBuffer = 3130;  // ORA-03130: buffer for the next piece is required
constexpr sb4 kFetchedNull = 1405;  // ORA-01405: fetched column value is NULL

// One row's walk along the LONG columns, in the order of their definition.
struct LongRow {
  JNIEnv* env;
  jobject obj;
  cdadata& cda;
  sb4 piece_length;
  int columns = 0;  // begun so far
  longcol_node* lcn = nullptr;  // of the column in turn
  columndata* col = nullptr;
  sword retvali = OCI_SUCCESS;  // of the last piece operation
  sword fetchstat = OCI_SUCCESS;  // of the last fetch
};

enum class Step { Go, Done, Raised };

// Moves on to the next LONG column and empties it of what Java left of an earlier row.
Step begin_column(LongRow& row) {
  if (++row.columns > row.cda.long_count) return Step::Done;
  row.lcn = row.lcn == nullptr ? row.cda.lc_tail : row.lcn->next;
  row.col = nullptr;
  if (row.lcn == nullptr) {
    TV_ThrowInternalError(row.env, "in LONG fetch, got NULL longcol_node pointer !");
    return Step::Raised;
  }
  row.col = row.lcn->coldata;
  if (row.col == nullptr || has_ended(row.cda, row.col)) {
    TV_ThrowInternalError(row.env,
                          "in LONG fetch, got NULL column data from longcol_node pointer !");
    return Step::Raised;
  }
  longdata_node::releasechain(&row.col->longbuf_head, &row.col->longbuf_tail,
                              row.cda.longdata_bufpool);
  return Step::Go;
}

void trace_piece(const LongRow& row, ub1 piece, ub4 length) {
  if (!trace_on()) return;
  trace_line("---- piece=", int{piece}, ", length=", length);
  longdata_node::print(row.col->longbuf_tail);
  trace_line("---- long size=", longdata_node::getlongsize(row.col->longbuf_tail));
}

// Offers a fresh buffer for the piece that OCI asked for, and fetches into it.
Step fetch_piece(LongRow& row, void* defnp, ub1 piece) {
  columndata& col = *row.col;
  longdata_node* ldn = longdata_node::queue(&col.longbuf_head, &col.longbuf_tail, row.piece_length,
                                            row.cda.longdata_bufpool);
  if (ldn == nullptr) {
    TV_ThrowOutOfMemoryError(row.env, " - out of memory, allocating LONG data buffer");
    return Step::Raised;
  }
  const auto room = static_cast<ub4>(row.piece_length);
  ub4 ret_len = room;
  if (col.vectsize > 0) col.indpvect[0] = 0;
  row.retvali = OCIStmtSetPieceInfo(defnp, OCI_HTYPE_DEFINE, row.cda.errhp, ldn->buf_ptr, &ret_len,
                                    piece, nullptr, nullptr);
  row.fetchstat = fetch_rows(row.cda, 1);
  TRACE("---- OCIStmtFetch fetchstat=", row.fetchstat);
  if (row.fetchstat == OCI_NO_DATA) {
    ldn->buf_size = 0;
    return Step::Done;
  }
  // Without the offer nothing was written.
  const bool taken = row.retvali == OCI_SUCCESS || row.retvali == OCI_SUCCESS_WITH_INFO;
  if (taken) ldn->buf_size = static_cast<sb4>(std::min(ret_len, room));
  trace_piece(row, piece, ret_len);
  return row.fetchstat == OCI_NEED_DATA ? Step::Go : Step::Done;
}

// One round: which piece of which column OCI wants, and the fetch of it.
Step next_piece(LongRow& row) {
  void* defnp = nullptr;
  ub4 type = OCI_HTYPE_DEFINE;
  ub1 in_out = 0;
  ub4 iterp = 0;
  ub4 idx = 0;
  ub1 piece = OCI_ONE_PIECE;
  row.retvali = OCIStmtGetPieceInfo(row.cda.stmthp, row.cda.errhp, &defnp, &type, &in_out, &iterp,
                                    &idx, &piece);
  if (row.retvali != OCI_SUCCESS) {
    // No piece is wanted: a fetch now would pass over a row.
    assignCdaCodes(row.env, row.obj);
    return Step::Done;
  }
  if (piece == OCI_ONE_PIECE || piece == OCI_FIRST_PIECE || row.col == nullptr) {
    const Step begun = begin_column(row);
    if (begun != Step::Go) return begun;
  }
  return fetch_piece(row, defnp, piece);
}

// What a failed fetch means: a NULL for the column in turn, or an error for Java.
void settle_failed_fetch(LongRow& row) {
  TRACE(" OCIStmtFetch returned OCI_ERROR");
  if (oracle_error(row.cda.errhp) != kFetchedNull) {
    assignCdaCodes(row.env, row.obj);
    row.retvali = OCI_ERROR;
    return;
  }
  TRACE("OCIStmtFetch got ORA-1405: fetched column value is NULL");
  TRACE("thus setting null ind to true for col at ", row.col);
  if (row.col->vectsize > 0) row.col->indpvect[0] = -1;
}

jboolean fetch_long_row(JNIEnv* env, jobject obj, cdadata& cda, sb4 piece_length) {
  if (cda.longdata_bufpool == nullptr) {
    cda.longdata_bufpool = new (std::nothrow) LongdataBufPool;
    if (cda.longdata_bufpool == nullptr) {
      TV_ThrowOutOfMemoryError(env, " - out of memory, allocating LONG data buffer");
      return kCallOk;
    }
  }
  LongRow row{env, obj, cda, piece_length};
  Step step = Step::Go;
  while (step == Step::Go) step = next_piece(row);
  if (step == Step::Raised) return kCallOk;
  if (row.fetchstat == OCI_ERROR) settle_failed_fetch(row);
  return call_result(row.retvali);
}

// The next array of rows, or, with LONG columns, the next row.
jboolean array_fetch(JNIEnv* env, jobject obj, cdadata& cda, jint fetchsize) {
  const sb4 longbuffersize = longBufferSize(env, obj);
  const int longCount = cda.long_count;
  TRACE("*** ArrayFetch  OCIStmtFetch  *** ");
  const jint rows = longCount > 0 ? 1 : fetchsize;
  if (!may_fetch(env, cda, rows)) return kCallOk;
  sword retvali = fetch_rows(cda, static_cast<ub4>(rows));
  TRACE("    retvali", "=", retvali);
  if (retvali == OCI_NEED_DATA) cda.need_data = 1;
  assignCdaCodes(env, obj);
  if (oracle_error(cda.errhp) == kNeedFetchBuffer) {
    TRACE("***  OCIStmtExecute 2:  caught ORA-03130  buffer for next piece req'd, swallowing");
    clearCdaErrorCodes(env, obj);
    retvali = OCI_SUCCESS;
  }
  if (retvali == OCI_NO_DATA) {
    TRACE("---  OCI_NO_DATA on entry to ArrayFetch..  exiting");
    return kCallFailed;
  }
  // A fetch that failed wants no pieces, and its error is the one that Java is to see.
  const bool pieces = longCount > 0 && (retvali == OCI_SUCCESS || retvali == OCI_NEED_DATA);
  return pieces ? fetch_long_row(env, obj, cda, longbuffersize) : call_result(retvali);
}

}  // namespace

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciCursor_arrayFetch(JNIEnv* env, jobject obj,
                                                                     jint fetchsize) {
  if (!env_and_object(env, obj)) return kCallOk;
  cdadata* cda = cursor_record(env, obj);
  if (cda == nullptr) return kCallOk;
  return array_fetch(env, obj, *cda, fetchsize);
}

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciCursor_execAndFetch(JNIEnv* env, jobject obj,
                                                                       jint fetchsize) {
  if (!env_and_object(env, obj)) return kCallOk;
  cdadata* cda = cursor_record(env, obj);
  if (cda == nullptr) return kCallOk;
  const int longCount = cda->long_count;
  TRACE("    longCount", "=", longCount);
  if (longCount > 0) {
    TRACE("     reset fetchsize to zero, longCount = ", longCount);
    fetchsize = 0;
  }
  if (!may_execute(env, *cda, fetchsize)) return kCallOk;
  ub4 rows = static_cast<ub4>(fetchsize);
  if (longCount <= 0) {
    TRACE("   hasLong is false, Set Statement Prefetch Rows Attribute to ", rows);
    const sword set =
        OCIAttrSet(cda->stmthp, OCI_HTYPE_STMT, &rows, 0, OCI_ATTR_PREFETCH_ROWS, cda->errhp);
    TRACE("    retvali", "=", set);
    assignCdaCodes(env, obj);
  }
  TRACE("*** OCIStmtExecute 2 ***   fetchsize=", rows);
  PendingException pending(env);  // of the Java method that the insert callback calls
  const bool streams = cda->li_tail != nullptr;
  sword retvali = execute_statement(env, *cda, rows, OCI_DEFAULT);
  TRACE("    retvali", "=", retvali);
  if (streams) pending.set_aside();
  // What streamed into this execution is pinned, in local references of this call.
  if (cda->li_tail != nullptr) clean_longinsert_chain(env, cda);
  // A failed execute shows in the fetch that follows.
  if (longCount > 0) return array_fetch(env, obj, *cda, 0);
  if (retvali == OCI_NO_DATA) {
    TRACE("    no LONG columns: retvali was 100: OCI_NO_DATA, setting to 0");
    retvali = OCI_SUCCESS;
  }
  assignCdaCodes(env, obj);
  return call_result(retvali);
}
