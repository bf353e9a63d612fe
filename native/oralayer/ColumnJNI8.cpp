// The column record and the entry points of OciColumn.

#include <algorithm>
#include <cstring>
#include <new>

#include "oralayer8.h"
#include "records.h"
#include "trace.h"
#include "trevalon_db_oci_OciColumn.h"

// --- Record --------------------------------------------------------------------------------------

columndata::columndata(int size)
    : byte_arrlen(0),
      colpos(-1),
      dbsize(0),
      internal_dbtype(-1),
      prec(0),
      scale(0),
      nullok(0),
      piecelen(0),
      stream_type(0),
      overloading(0),
      level(0),
      radix(0),
      hasdefault(0),
      iomode(0),
      vectsize(0),
      indpvect(nullptr),
      retlenvect(nullptr),
      retcodevect(nullptr),
      columnname{},
      external_dbtype(-1),
      external_nonchar(-1),
      buflen(0),
      bufptr(nullptr),
      byte_arr(nullptr),
      long_arr(nullptr),
      double_arr(nullptr),
      min_bind_size(0),
      boundinsert(0),
      ctx(nullptr),
      longbuf_head(nullptr),
      longbuf_tail(nullptr),
      lobloc(nullptr) {
  allocFetchArrays(size);
}

columndata::~columndata() {
  TRACE("\n===============  ~columndata destructor  col:", "=", colpos);
  forget_streamed_column(*this);
  allocByteArray(0);
  TRACE("\n===============  ~columndata destructor  allocByteArray(0) done");
  allocFetchArrays(0);
  TRACE("\n===============  ~columndata destructor  allocFetchArrays(0) done");
  if (longbuf_tail != nullptr) {
    TRACE(
        "\n\n\n\n ========== NOTE NOTE NOTE !!  in columndata destructor: longbuf_tail is NOT "
        "NULL\n\n\n");
  }
  TRACE("\n===============  ~columndata destructor: done");
}

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_initialize(JNIEnv* env, jobject obj,
                                                                 jint vectsize,
                                                                 jint min_bind_size) {
  if (!env_and_object(env, obj)) return;
  if (!library_initialised(env)) return;
  // A negative count of rows is a size that no memory has.
  auto* col = vectsize < 0 ? nullptr : new (std::nothrow) columndata(vectsize);
  if (col == nullptr) {
    TV_ThrowOutOfMemoryError(env, "Out of memory");
    return;
  }
  col->min_bind_size = min_bind_size;
  store_record(env, obj, coldata32iD, col);
}

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_native_1finalize(JNIEnv* env, jobject obj) {
  if (!env_and_object(env, obj)) return;
  auto* col = record_of<columndata>(env, obj, coldata32iD);
  if (col == nullptr) return;
  // Pieces that Java did not read have no owner any more. After the record's end, which tells that
  // there were some.
  longdata_node* head = col->longbuf_head;
  longdata_node* tail = col->longbuf_tail;
  delete col;
  longdata_node::releasechain(&head, &tail, nullptr);
  store_record<columndata>(env, obj, coldata32iD, nullptr);
}

// --- Attributes ----------------------------------------------------------------------------------

namespace {

columndata* column_of(JNIEnv* env, jobject obj) {
  return env_and_object(env, obj) ? column_record(env, obj, "Column is null") : nullptr;
}

// One field, widened to the result as its type says.
template <typename Result, typename Field>
Result get_field(JNIEnv* env, jobject obj, Field columndata::*field) {
  const columndata* col = column_of(env, obj);
  return col == nullptr ? Result{} : static_cast<Result>(col->*field);
}

template <typename Field>
jboolean get_flag(JNIEnv* env, jobject obj, Field columndata::*field) {
  const columndata* col = column_of(env, obj);
  return col != nullptr && col->*field != 0 ? JNI_TRUE : JNI_FALSE;
}

// One field, cut to its width.
template <typename Field>
void set_field(JNIEnv* env, jobject obj, Field columndata::*field, jint value) {
  columndata* col = column_of(env, obj);
  if (col != nullptr) col->*field = static_cast<Field>(value);
}

sword mapped_type(const columndata& col) {
  return int2extOciType(col.internal_dbtype, col.prec, col.scale);
}

}  // namespace

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciColumn_position(JNIEnv* env, jobject obj) {
  return get_field<jint>(env, obj, &columndata::colpos);
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciColumn_precision(JNIEnv* env, jobject obj) {
  return get_field<jint>(env, obj, &columndata::prec);
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciColumn_scale(JNIEnv* env, jobject obj) {
  return get_field<jint>(env, obj, &columndata::scale);
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciColumn_length(JNIEnv* env, jobject obj) {
  return get_field<jint>(env, obj, &columndata::dbsize);
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciColumn_internalType(JNIEnv* env, jobject obj) {
  return get_field<jint>(env, obj, &columndata::internal_dbtype);
}

// The type that a bind or define hands to OCI: the one that a setter chose, or the mapped one.
JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciColumn_externalType(JNIEnv* env, jobject obj) {
  const columndata* col = column_of(env, obj);
  if (col == nullptr) return 0;
  return col->external_dbtype == -1 ? mapped_type(*col) : col->external_dbtype;
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciColumn_actualExternalType(JNIEnv* env, jobject obj) {
  const columndata* col = column_of(env, obj);
  return col == nullptr ? 0 : mapped_type(*col);
}

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciColumn_nullAllowed(JNIEnv* env, jobject obj) {
  return get_flag(env, obj, &columndata::nullok);
}

JNIEXPORT jboolean JNICALL Java_trevalon_db_oci_OciColumn_hasDefault(JNIEnv* env, jobject obj) {
  return get_flag(env, obj, &columndata::hasdefault);
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciColumn_level(JNIEnv* env, jobject obj) {
  return get_field<jint>(env, obj, &columndata::level);
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciColumn_overloading(JNIEnv* env, jobject obj) {
  return get_field<jint>(env, obj, &columndata::overloading);
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciColumn_radix(JNIEnv* env, jobject obj) {
  return get_field<jint>(env, obj, &columndata::radix);
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciColumn_iomode(JNIEnv* env, jobject obj) {
  return get_field<jint>(env, obj, &columndata::iomode);
}

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_setPosition(JNIEnv* env, jobject obj,
                                                                  jint position) {
  set_field(env, obj, &columndata::colpos, position);
}

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_setDbType(JNIEnv* env, jobject obj,
                                                                jint dbtype) {
  set_field(env, obj, &columndata::internal_dbtype, dbtype);
}

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_setLength(JNIEnv* env, jobject obj,
                                                                jint length) {
  set_field(env, obj, &columndata::dbsize, length);
}

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_setNullOK(JNIEnv* env, jobject obj,
                                                                jint nullok) {
  set_field(env, obj, &columndata::nullok, nullok);
}

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_setPrecision(JNIEnv* env, jobject obj,
                                                                   jint precision) {
  set_field(env, obj, &columndata::prec, precision);
}

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_setScale(JNIEnv* env, jobject obj,
                                                               jint scale) {
  set_field(env, obj, &columndata::scale, scale);
}

// --- Name ----------------------------------------------------------------------------------------

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciColumn_name(JNIEnv* env, jobject obj,
                                                           jbyteArray HNameBuf) {
  TRACE("*** OciColumn name ***");
  if (!argument_given(env, HNameBuf, "Column name is null")) return 0;
  const columndata* col = column_of(env, obj);
  if (col == nullptr) return 0;
  PinnedBytes name(env, HNameBuf, Pin::CopyBack);
  if (!pinned(env, name)) return 0;
  const signed char* end = std::find(col->columnname, col->columnname + kColumnNameSize, 0);
  const auto count = std::min(static_cast<jint>(end - col->columnname), name.length());
  std::memcpy(name.data(), col->columnname, static_cast<std::size_t>(count));
  return count;
}

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_setName(JNIEnv* env, jobject obj,
                                                              jbyteArray HNameBuf) {
  TRACE("*** setName ***");
  if (!argument_given(env, HNameBuf, "Name is null")) return;
  columndata* col = column_of(env, obj);
  if (col == nullptr) return;
  PinnedBytes name(env, HNameBuf, Pin::ReadOnly);
  if (!pinned(env, name)) return;
  const int count = std::min<int>(name.length(), kColumnNameSize);
  std::memcpy(col->columnname, name.data(), static_cast<std::size_t>(count));
  col->columnname[count] = '\0';
}
