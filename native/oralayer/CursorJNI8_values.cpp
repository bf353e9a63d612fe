// Access to fetched values.

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "CursorJNI8.h"
#include "oralayer8.h"
#include "records.h"
#include "trace.h"
#include "trevalon_db_oci_OciCursor.h"

namespace {

constexpr sb2 kNullIndicator = -1;
constexpr sword kLongestRetlen = 65535;  // what an element of retlenvect can say

// The record of a column whose fetch arrays hold the row; null after raising.
columndata* row_column(JNIEnv* env, jobject obj, jobject colobj, jint recnum) {
  if (!env_and_object(env, obj)) return nullptr;
  if (!argument_given(env, colobj, "COL is null")) return nullptr;
  columndata* col = column_record(env, colobj, "COLDATA is null");
  if (col == nullptr) return nullptr;
  if (recnum >= 0 && recnum < col->vectsize) return col;
  TV_ThrowIndexOutOfBounds(env, "recnum is outside the fetch arrays");
  return nullptr;
}

bool is_null(const columndata& col, jint recnum) {
  return col.indpvect[recnum] == kNullIndicator;
}

// The bytes of a row's element in the data buffer; none where the column has no such buffer.
struct Element {
  const text* data = nullptr;
  std::size_t size = 0;
};

Element element_of(const columndata& col, jint recnum) {
  if (col.buflen < 0) return {};
  const auto size = static_cast<std::uint64_t>(col.buflen);
  const auto offset = size * static_cast<std::uint64_t>(recnum);
  if (offset + size > col.byte_capacity()) return {};
  return {col.byte_arr + offset, static_cast<std::size_t>(size)};
}

// Bytes before the terminator, or the whole element where it has none.
std::size_t text_length(const Element& element) {
  if (element.size == 0) return 0;
  const void* end = std::memchr(element.data, 0, element.size);
  if (end == nullptr) return element.size;
  return static_cast<std::size_t>(static_cast<const text*>(end) - element.data);
}

void trace_text(const columndata& col, jint recnum, const Element& element) {
  trace_line("    col->buflen is          ", col.buflen, ", recnum=", recnum,
             ", indicator=", col.indpvect[recnum], ", return code=", col.retcodevect[recnum]);
  if (element.data != nullptr) {
    dump_bytes("bytes", element.data, static_cast<int>(text_length(element)));
  } else {
    trace_line("null pointer");
  }
}

// Raises where the column has no data buffer for the row: it is fetched otherwise, or not defined.
bool has_element(JNIEnv* env, const Element& element) {
  if (element.data != nullptr) return true;
  TV_ThrowInternalError(env, "the column has no data buffer for this row");
  return false;
}

}  // namespace

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciCursor_getIndicator(JNIEnv* env, jobject obj,
                                                                   jobject colobj, jint recnum) {
  const columndata* col = row_column(env, obj, colobj, recnum);
  if (col == nullptr) return 0;
  const sb2 indicator = col->indpvect[recnum];
  TRACE("*** OciCursor getIndicator *** col at ", col, " recnum = ", recnum, " returning ",
        indicator);
  return indicator;
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciCursor_getReturnCode(JNIEnv* env, jobject obj,
                                                                    jobject colobj, jint recnum) {
  const columndata* col = row_column(env, obj, colobj, recnum);
  if (col == nullptr) return 0;
  const ub2 code = col->retcodevect[recnum];
  TRACE("*** OciCursor getReturnCode *** for recnum ", recnum, " returning: ", code);
  return code;
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciCursor_getByteValue(JNIEnv* env, jobject obj,
                                                                   jobject colobj, jint recnum,
                                                                   jbyteArray HByteBuf) {
  TRACE("*** CursorJNI.getByteValue ***");
  if (!argument_given(env, HByteBuf, "result buffer is null")) return 0;
  const columndata* col = row_column(env, obj, colobj, recnum);
  // An element of no bytes has no buffer either.
  if (col == nullptr || is_null(*col, recnum) || col->buflen == 0) return 0;
  const Element element = element_of(*col, recnum);
  if (!has_element(env, element)) return 0;

  std::size_t length = element.size;
  if (col->buflen <= kLongestRetlen) {
    // Never beyond the element, whatever the client library has returned.
    length = std::min<std::size_t>(length, col->retlenvect[recnum]);
  }
  PinnedBytes bytes(env, HByteBuf, Pin::CopyBack);
  if (!pinned(env, bytes)) return 0;
  const auto count = std::min(length, static_cast<std::size_t>(bytes.length()));
  std::memcpy(bytes.data(), element.data, count);
  return static_cast<jint>(count);
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciCursor_getStringValue(JNIEnv* env, jobject obj,
                                                                     jobject colobj, jint recnum,
                                                                     jbyteArray HStrBuf) {
  TRACE("*** OciCursor getStringValue *** ", recnum);
  if (!argument_given(env, HStrBuf, "result buffer is null")) return 0;
  const columndata* col = row_column(env, obj, colobj, recnum);
  if (col == nullptr) return 0;
  const Element element = element_of(*col, recnum);
  if (trace_on()) trace_text(*col, recnum, element);
  if (is_null(*col, recnum)) return -1;
  if (!has_element(env, element)) return 0;

  const std::size_t length = text_length(element);
  PinnedBytes bytes(env, HStrBuf, Pin::CopyBack);
  if (!pinned(env, bytes)) return 0;
  if (length > static_cast<std::size_t>(bytes.length())) {
    bytes.discard();
    bytes.release();
    TV_ThrowNullPointerException(env, "Null array");
    return 0;
  }
  std::memcpy(bytes.data(), element.data, length);
  return static_cast<jint>(length);
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciCursor_getDateValue(JNIEnv* env, jobject obj,
                                                                   jobject colobj, jint recnum,
                                                                   jbyteArray HDateBuf) {
  if (!argument_given(env, HDateBuf, "result buffer is null")) return 0;
  const columndata* col = row_column(env, obj, colobj, recnum);
  if (col == nullptr) return 0;
  const Element element = element_of(*col, recnum);
  if (!has_element(env, element)) return 0;
  PinnedBytes bytes(env, HDateBuf, Pin::CopyBack);
  if (!pinned(env, bytes)) return 0;
  if (bytes.length() < DATE_LENGTH || element.size < DATE_LENGTH) {
    bytes.discard();
    bytes.release();
    TV_ThrowInternalError(env, "in getDateValue: a date takes 7 bytes");
    return 0;
  }
  std::memcpy(bytes.data(), element.data, DATE_LENGTH);
  return 1;
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciCursor_getIntegerValue(JNIEnv* env, jobject obj,
                                                                      jobject colobj, jint recnum) {
  const columndata* col = row_column(env, obj, colobj, recnum);
  return col == nullptr || is_null(*col, recnum) ? 0 : col->long_arr[recnum];
}

JNIEXPORT jdouble JNICALL Java_trevalon_db_oci_OciCursor_getDoubleValue(JNIEnv* env, jobject obj,
                                                                        jobject colobj,
                                                                        jint recnum) {
  const columndata* col = row_column(env, obj, colobj, recnum);
  if (col == nullptr) return 0.0;
  return is_null(*col, recnum) ? -1.0 : col->double_arr[recnum];
}

// --- LONG values ---------------------------------------------------------------------------------

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciCursor_getLongDataLength(JNIEnv* env, jobject obj,
                                                                        jobject colobj) {
  constexpr jint kNotLong = -10;
  TRACE("*** OciCursor getLongDataLength *** ");
  // Makes the checks of the arguments and of both records.
  if (!Java_trevalon_db_oci_OciCursor_isBlobColumn(env, obj, colobj)) return kNotLong;
  const auto* col = record_of<columndata>(env, colobj, coldata32iD);
  return longdata_node::getlongsize(col->longbuf_tail);
}

namespace {

// What tells the two LONG getters apart.
struct LongGetter {
  const char* banner;
  const char* too_long;
  const char* caption;
};

constexpr LongGetter kByteGetter = {
    "*** OciCursor getLongByteValue *** ",
    " in getLongByteValue: data buffer larger than passed in buffer ", "getLongByteValue data"};
constexpr LongGetter kStringGetter = {
    "*** OciCursor getLongStringValue *** ",
    " in getLongStringValue: data buffer larger than passed in buffer ", "getLongStringValue data"};

// Hands the oldest piece over and gives its buffer back to the cursor's pool. A piece that the
// array has no room for stays where it is, for a call with a larger one.
jint take_piece(JNIEnv* env, jobject obj, jobject colobj, jint offset, jbyteArray array,
                const LongGetter& getter) {
  TRACE(getter.banner, "    offset = ", offset);
  if (!argument_given(env, array, "result buffer is null")) return 0;
  const auto [cda, col] = cursor_and_column(env, obj, colobj);
  if (col == nullptr || col->longbuf_tail == nullptr) return 0;

  const sb4 size = col->longbuf_tail->buf_size;
  if (size > env->GetArrayLength(array)) {
    TV_ThrowInternalError(env, getter.too_long);
    return 0;
  }
  PinnedBytes bytes(env, array, Pin::CopyBack);
  if (!pinned(env, bytes)) return 0;
  longdata_node* piece = longdata_node::dequeue(&col->longbuf_head, &col->longbuf_tail);
  std::memcpy(bytes.data(), piece->buf_ptr, static_cast<std::size_t>(size));
  TRACE("    colpos=", col->colpos);
  TRACE_BYTES(getter.caption, bytes.data(), size);
  longdata_node::release(piece, cda->longdata_bufpool);
  return size;
}

}  // namespace

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciCursor_getLongByteValue(JNIEnv* env, jobject obj,
                                                                       jobject colobj, jint offset,
                                                                       jbyteArray HByteBuf) {
  return take_piece(env, obj, colobj, offset, HByteBuf, kByteGetter);
}

JNIEXPORT jint JNICALL Java_trevalon_db_oci_OciCursor_getLongStringValue(JNIEnv* env, jobject obj,
                                                                         jobject colobj,
                                                                         jint offset,
                                                                         jbyteArray HStrBuf) {
  return take_piece(env, obj, colobj, offset, HStrBuf, kStringGetter);
}
