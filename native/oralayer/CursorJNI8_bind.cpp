// Bind variables: values in memory, cursors, and LONG values that are streamed from Java while the
// statement executes.

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

#include "ColumnJNI8.h"
#include "CursorJNI8.h"
#include "oralayer8.h"
#include "records.h"
#include "trace.h"
#include "trevalon_db_oci_OciCursor.h"

// --- Streaming contexts --------------------------------------------------------------------------

void unlink_column(colctx& ctx) {
  columndata* col = std::exchange(ctx.col, nullptr);
  if (col == nullptr || col->ctx != &ctx) return;
  col->ctx = nullptr;
  const statement_memory* memory = ctx.cda != nullptr ? memory_of(*ctx.cda) : nullptr;
  if (memory == nullptr) return;
  for (stream_context* other = memory->contexts; other != nullptr; other = other->next) {
    if (other->col == col) col->ctx = other;
  }
}

namespace {

// The context of a placeholder, a new one or the one of its last bind; null without memory.
stream_context* context_for(cdadata& cda, ub4 position) {
  statement_memory* memory = memory_of(cda);
  if (memory == nullptr) return nullptr;
  stream_context* ctx = memory->contexts;
  while (ctx != nullptr && ctx->position != position) ctx = ctx->next;
  if (ctx != nullptr) return ctx;
  ctx = new (std::nothrow) stream_context{};
  if (ctx == nullptr) return nullptr;
  ctx->position = position;
  ctx->next = memory->contexts;
  memory->contexts = ctx;
  return ctx;
}

void unpin(JNIEnv* env, colctx& ctx) {
  if (ctx.buf == nullptr) return;
  env->ReleaseByteArrayElements(ctx.jbytes, ctx.buf, JNI_ABORT);
  ctx.buf = nullptr;
}

// Ends the context's part in an execution, whatever became of it. A context that holds no chunk
// stays its column's, spent, until the next bind or the statement's end: one for each column.
void retire(JNIEnv* env, colctx& ctx) {
  if (ctx.buf != nullptr) {
    TRACE("+++ exec  - UNPIN ctx->buf from ctx->jbytes +++  col:");
    TRACE_BYTES("+++  first 10 bytes ctx->buf ", reinterpret_cast<text*>(ctx.buf),
                std::min<jsize>(10, env->GetArrayLength(ctx.jbytes)));
    unpin(env, ctx);
    TRACE("+++ exec  - DELETE col->ctx");
    unlink_column(ctx);
  }
  if (ctx.col != nullptr && ctx.col->ctx != &ctx) ctx.col = nullptr;
  if (ctx.jbytes != nullptr) env->DeleteLocalRef(ctx.jbytes);
  ctx.jbytes = nullptr;
  ctx.env = nullptr;
  ctx.cda = nullptr;
}

// Including contexts whose column has ended, or was bound to another cursor.
void retire_all(JNIEnv* env, const cdadata& cda) {
  const statement_memory* memory = memory_of(cda);
  if (memory == nullptr) return;
  for (stream_context* ctx = memory->contexts; ctx != nullptr; ctx = ctx->next) {
    if (ctx->cda != nullptr) retire(env, *ctx);
  }
}

void take_off_chain(const cdadata& cda, const columndata& col) {
  for (longcol_node* node = cda.li_tail; node != nullptr; node = node->next) {
    if (node->coldata == &col) node->coldata = nullptr;
  }
}

}  // namespace

void clean_longinsert_chain(JNIEnv* env, cdadata* cd) {
  TRACE("*********  clean_longinsert_chain  invoked ***");
  if (cd == nullptr || cd->li_tail == nullptr) return;
  while (longcol_node* node = longcol_node::dequeue(&cd->li_head, &cd->li_tail)) {
    columndata* col = node->coldata;
    if (col != nullptr) {
      TRACE("---------- got columndata for col: ", "=", col->colpos);
      // A column that was bound on another cursor since streams for that one.
      if (col->ctx != nullptr && col->ctx->cda == cd) retire(env, *col->ctx);
    }
    TRACE("+++ exec  - DELETE and DEQUEUE longcol_node from INSERT CHAIN");
    delete node;
  }
  retire_all(env, *cd);
}

void forget_streamed_column(columndata& col) {
  const cdadata* cda = col.ctx != nullptr ? col.ctx->cda : nullptr;
  while (col.ctx != nullptr) unlink_column(*col.ctx);
  if (cda != nullptr) take_off_chain(*cda, col);
}

// --- Insert callback -----------------------------------------------------------------------------

namespace {

// The array that carries the chunks, made at the first one. False after raising.
bool has_array(JNIEnv* env, colctx& ctx) {
  if (ctx.jbytes != nullptr) {
    if (ctx.buf != nullptr) {
      TRACE("+++ UNPIN ctx->buf from ctx->jbytes +++  col:", "=", ctx.col->colpos);
      unpin(env, ctx);
    }
    return true;
  }
  TRACE("+++ Allocate Java Byte Array +++");
  constexpr ub4 kSpare = 4;
  const ub4 longest = std::numeric_limits<jsize>::max() - kSpare;
  if (ctx.col->piecelen <= longest) {
    ctx.jbytes = env->NewByteArray(static_cast<jsize>(ctx.col->piecelen + kSpare));
  }
  if (ctx.jbytes != nullptr) return true;
  TV_ThrowOutOfMemoryError(env, "Out of memory");
  return false;
}

// Has Java fill the array: its result, 0 at the end of the stream. False with an exception pending.
bool pull_chunk(JNIEnv* env, const colctx& ctx, jint& bytes_read) {
  const columndata& col = *ctx.col;
  TRACE("*** getNextStreamBuffer");
  bytes_read = env->CallIntMethod(ctx.cda->jocicursor, getNextStreamBuffer, ctx.jbytes,
                                  static_cast<jint>(col.colpos), static_cast<jint>(col.piecelen),
                                  static_cast<jint>(col.stream_type));
  if (env->ExceptionCheck()) {
    TRACE("    Call to getNextStreamBuffer FAILED ... Returning OCI_ERROR");
    return false;
  }
  TRACE("    bytes_read", "=", bytes_read);
  // What Java did meanwhile may have taken away what the statement is about to read.
  if (!lent_records_stand(env, *ctx.cda, Binds::Read)) return false;
  if (ctx.col == nullptr) {
    TV_ThrowInternalError(env, "the streamed column was bound to another cursor");
    return false;
  }
  if (bytes_read <= env->GetArrayLength(ctx.jbytes)) return true;
  TV_ThrowInternalError(env, "getNextStreamBuffer returned more than its buffer holds");
  return false;
}

// Pins what the array holds, for OCI to read until the next chunk is due. False after raising.
bool pin_chunk(JNIEnv* env, colctx& ctx) {
  TRACE("+++ PIN buffer from ctx->jbytes +++  col:");
  ctx.buf = env->GetByteArrayElements(ctx.jbytes, nullptr);
  if (ctx.buf != nullptr) return true;
  TV_ThrowOutOfMemoryError(env, "Out of memory");
  return false;
}

}  // namespace

sb4 icbfp(void* ictxp, OCIBind*, ub4, ub4, void** bufpp, ub4* alenp, ub1* piecep, void**) {
  TRACE("*** ICBFP *** ", *piecep, " ", pieceName(*piecep));
  colctx& ctx = *static_cast<colctx*>(ictxp);
  // Spent, or its column is gone: the statement is executed again, but not bound again.
  if (ctx.cda == nullptr || ctx.col == nullptr) return OCI_ERROR;
  JNIEnv* env = ctx.env;
  jint bytes_read = 0;
  if (!has_array(env, ctx) || !pull_chunk(env, ctx, bytes_read)) return OCI_ERROR;
  if (bytes_read <= 0) {
    bytes_read = 0;
    *piecep = OCI_LAST_PIECE;
    TRACE("    OCI_LAST_PIECE");
    TRACE(pieceName(*piecep));
    TRACE("   NOTE: OCI_LAST_PIECE==3.   piecep value=", *piecep);
  }
  if (!pin_chunk(env, ctx)) return OCI_ERROR;
  TRACE("  buf_len", "=", bytes_read);
  TRACE_BYTES("stream chunk", reinterpret_cast<text*>(ctx.buf), bytes_read);
  *bufpp = ctx.buf;
  *alenp = static_cast<ub4>(bytes_read);
  assignCdaCodes(env, ctx.cda->jocicursor);
  return OCI_CONTINUE;
}

sb4 ocbfp(void*, OCIBind*, ub4, ub4, void**, ub4**, ub1*, void**, ub2**) {
  TRACE("*** OCBFP ***  Not implemented, use Piecewise Fetch for LONG chunking");
  return OCI_ERROR;
}

sword execute_statement(JNIEnv* env, cdadata& cda, ub4 iterations, ub4 mode) {
  statement_memory* memory = memory_of(cda);
  if (memory != nullptr) {
    memory->running = true;
    for (stream_context* ctx = memory->contexts; ctx != nullptr; ctx = ctx->next) ctx->env = env;
  }
  const sword retvali =
      OCIStmtExecute(cda.svchp, cda.stmthp, cda.errhp, iterations, 0, nullptr, nullptr, mode);
  if (memory != nullptr) memory->running = false;
  if (retvali == OCI_SUCCESS || retvali == OCI_SUCCESS_WITH_INFO) drop_defines_of_cursors(env, cda);
  return retvali;
}

// --- Binding -------------------------------------------------------------------------------------

ub1* bindParamData(columndata* col) {
  TRACE("*** bindParamData ***");
  if (is_byte_type(col->internal_dbtype)) return col->byte_arr;
  switch (col->internal_dbtype) {
    case SQLT_INT:
      return reinterpret_cast<ub1*>(col->long_arr);
    case SQLT_FLT:
      return reinterpret_cast<ub1*>(col->double_arr);
    case SQLT_NUM:
      return is_integer(col->prec, col->scale) ? reinterpret_cast<ub1*>(col->long_arr)
                                               : reinterpret_cast<ub1*>(col->double_arr);
    case SQLT_CLOB:
    case SQLT_BLOB:
      TRACE("========= support8:bindParamData, returning &col->lobloc", "=", &col->lobloc);
      return reinterpret_cast<ub1*>(&col->lobloc);
    default:
      return nullptr;
  }
}

namespace {

// The one type decides where the value is, the other what OCI takes it for: of a locator both must
// say so. No type at all is OCI's to refuse. False after raising.
bool types_agree(JNIEnv* env, const columndata& col) {
  if (col.external_dbtype < 0) return true;
  const bool locator = col.external_dbtype == SQLT_CLOB || col.external_dbtype == SQLT_BLOB;
  const bool agree = is_lob(col) ? col.external_dbtype == col.internal_dbtype
                                 : !locator && col.external_dbtype != SQLT_RSET;
  if (!agree) TV_ThrowInternalError(env, "the bind value's types do not go together");
  return agree;
}

// Makes sure that OCI may read and write buflen bytes where it is told to. An empty value has given
// its buffer back, so it gets one of zero bytes here. False after raising.
bool buffer_holds(JNIEnv* env, columndata& col) {
  // A locator lies in the record itself.
  if (!is_lob(col) && !has_value_row(env, col)) return false;
  const bool in_bytes = is_byte_type(col.internal_dbtype);
  if (col.buflen >= 0 && in_bytes && col.byte_capacity() == 0) {
    col.allocByteArray(std::max<sb4>(col.buflen, 1));
  }
  const bool holds =
      col.buflen >= 0 && (!in_bytes || col.byte_capacity() >= static_cast<std::size_t>(col.buflen));
  if (!holds) TV_ThrowInternalError(env, "the bind value is longer than its buffer");
  return holds;
}

ub2* fill_lengths(columndata& col) {
  constexpr sword kLongest = 65535;
  if (col.buflen > kLongest || col.retlenvect == nullptr) return nullptr;
  TRACE("Setting vector");
  std::fill_n(col.retlenvect, col.vectsize, static_cast<ub2>(col.buflen));
  return col.retlenvect;
}

// A bind that failed has left the former one in force. One that succeeded stands, whatever fails
// after it.
void keep_bind(cdadata& cda, const lent_record& bind, sword retvali) {
  if (retvali == OCI_SUCCESS) lend(cda, bind);
}

sword bind_value(cdadata& cda, columndata& col, OCIBind** bindp, ub2* lengths, ub4 mode) {
  const auto position = static_cast<ub4>(col.colpos);
  const sword retvali = OCIBindByPos(cda.stmthp, bindp, cda.errhp, position, col.bufptr, col.buflen,
                                     static_cast<ub2>(col.external_dbtype), col.indpvect, lengths,
                                     nullptr, 0, nullptr, mode);
  lent_record bind = {&col, 0, LentAs::Bind, position, 1, LentPart::Buffers, nullptr};
  if (is_lob(col)) bind.part = LentPart::Locator;
  if (col.piecelen != 0) bind.stream = stream_of(col);
  keep_bind(cda, bind, retvali);
  return retvali;
}

// The column's streaming context for the next execution, and its place on the insert chain. Null
// after raising.
colctx* start_stream(JNIEnv* env, jobject obj, cdadata& cda, columndata& col) {
  stream_context* ctx = context_for(cda, static_cast<ub4>(col.colpos));
  auto* node = new (std::nothrow) longcol_node;
  if (cda.jocicursor == nullptr) cda.jocicursor = env->NewGlobalRef(obj);
  if (ctx == nullptr || node == nullptr || cda.jocicursor == nullptr) {
    delete node;
    TV_ThrowOutOfMemoryError(env, "Out of memory");
    return nullptr;
  }
  // Bound again on the same cursor, the column keeps its earlier contexts and nodes, too. A column
  // that loses its last context to this one goes from the chain: nothing would lead from its end to
  // the nodes.
  if (col.ctx != nullptr && col.ctx->cda != &cda) forget_streamed_column(col);
  const columndata* former = ctx->col;
  unlink_column(*ctx);
  if (former != nullptr && former != &col && former->ctx == nullptr) take_off_chain(cda, *former);
  ctx->env = env;
  ctx->col = &col;
  ctx->cda = &cda;
  ctx->jbytes = nullptr;
  ctx->buf = nullptr;
  col.ctx = ctx;
  node->coldata = &col;
  longcol_node::queue(&cda.li_head, &cda.li_tail, node);
  return ctx;
}

// Binds for data at execution. False after raising.
bool bind_stream(JNIEnv* env, jobject obj, jobject colobj, cdadata& cda, columndata& col,
                 sword& retvali) {
  OCIBind* bindp = nullptr;  // OCI allocates it; it belongs to the statement
  col.stream_type = env->GetIntField(colobj, inputStreamTypeID);
  TRACE("*** OCIBindByPos 2 ***   DATA_AT_EXEC  col=", &col, ", buflen=", col.buflen,
        ", dbsize=", col.dbsize, ", piecelen=", col.piecelen,
        ", external_dbtype=", col.external_dbtype);
  retvali = bind_value(cda, col, &bindp, nullptr, OCI_DATA_AT_EXEC);
  TRACE("*** OCIBindDynamic 1 ***");
  TRACE("*** OCIBindDynamic 1 ***   new LONG COLUMN, do setup for insert CALLBACK");
  colctx* ctx = start_stream(env, obj, cda, col);
  if (ctx == nullptr) return false;
  trace_pointer("BIND DYNAMIC: col->bufptr", col.bufptr);
  const sword dynamic = OCIBindDynamic(bindp, cda.errhp, ctx, icbfp, ctx, nullptr);
  if (retvali == OCI_SUCCESS) retvali = dynamic;
  return true;
}

sword bind_plain(cdadata& cda, columndata& col, ub2* lengths) {
  OCIBind* bindp = nullptr;  // OCI allocates it; it belongs to the statement
  TRACE("*** OCIBindByPos 3 ***   NO DATA_AT_EXEC  buflen=", col.buflen, ", colpos=", col.colpos,
        ", dbsize=", col.dbsize, ", piecelen=", col.piecelen,
        ", external_dbtype=", col.external_dbtype);
  TRACE_BYTES("column buffer", col.bufptr, col.buflen);
  return bind_value(cda, col, &bindp, lengths, OCI_DEFAULT);
}

}  // namespace

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciCursor_bindVariableByPosition(JNIEnv* env,
                                                                                 jobject obj,
                                                                                 jobject colobj) {
  TRACE("*** bindVariableByPosition ***");
  const auto [cda, col] = cursor_and_column(env, obj, colobj);
  if (col == nullptr || !may_bind(env, *cda)) return kCallOk;

  TRACE("    internal_dbtype=", col->internal_dbtype, ", colpos=", col->colpos,
        ", prec=", col->prec, ", scale=", col->scale, ", ctx=", col->ctx, ", dbsize=", col->dbsize,
        ", piecelen=", col->piecelen);
  const bool streamed = col->piecelen != 0;
  col->buflen = getParamLength(col->internal_dbtype, col->prec, col->scale,
                               static_cast<sb4>(col->dbsize), col->piecelen);
  if (!streamed && (!types_agree(env, *col) || !buffer_holds(env, *col))) return kCallOk;
  col->bufptr = bindParamData(col);
  // A stream's length says nothing of the buffer that an earlier value may have left.
  TRACE_BYTES("bind value", streamed ? nullptr : col->bufptr, col->buflen);
  ub2* lengths = fill_lengths(*col);
  sword retvali = OCI_SUCCESS;
  if (!streamed) {
    retvali = bind_plain(*cda, *col, lengths);
  } else if (!bind_stream(env, obj, colobj, *cda, *col, retvali)) {
    return kCallOk;
  }
  assignCdaCodes(env, obj);
  col->boundinsert = 1;
  return call_result(retvali);
}

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciCursor_bindCursorByPosition(JNIEnv* env,
                                                                               jobject obj,
                                                                               jobject curobj,
                                                                               jint colpos) {
  constexpr sb4 kHandleSize = 4;  // of a statement handle pointer; OCI takes its own width
  if (!env_and_object(env, obj)) return kCallOk;
  if (!argument_given(env, curobj, "Null Cursor")) return kCallOk;
  cdadata* cda = cursor_record(env, obj);
  if (cda == nullptr) return kCallOk;
  cdadata* other = cursor_record(env, curobj, "Null Cursor");
  if (other == nullptr) return kCallOk;
  if (required(env, other->stmthp, "Null Cursor") == nullptr) return kCallOk;
  if (!may_bind(env, *cda)) return kCallOk;
  if (other == cda) {
    TV_ThrowInternalError(env, "a cursor cannot be its own cursor variable");
    return kCallOk;
  }

  TRACE("*** bindCursorByPosition  OCIBindByPos 1 *** colpos", "=", colpos);
  OCIBind* bindp = nullptr;
  const sword retvali =
      OCIBindByPos(cda->stmthp, &bindp, cda->errhp, static_cast<ub4>(colpos), &other->stmthp,
                   kHandleSize, SQLT_RSET, nullptr, nullptr, nullptr, 0, nullptr, OCI_DEFAULT);
  assignCdaCodes(env, obj);
  const auto position = static_cast<ub4>(colpos);
  keep_bind(*cda, {other, 0, LentAs::Bind, position, 1, LentPart::Cursor, nullptr}, retvali);
  return call_result(retvali);
}
