// The values that Java binds into a column: each setter lays its value into row 0 of the record in
// the form that the bind hands to OCI.

#include <cstring>

#include "ColumnJNI8.h"
#include "oralayer8.h"
#include "records.h"
#include "trace.h"
#include "trevalon_db_oci_OciColumn.h"

namespace {

// The start of every setter: the record, with its indicator set; null after raising. The value is
// laid down whether or not it is NULL.
columndata* value_column(JNIEnv* env, jobject obj, jboolean setnull, const char* missing) {
  columndata* col = column_record(env, obj, missing);
  if (col == nullptr || !has_value_row(env, *col)) return nullptr;
  col->indpvect[0] = setnull != JNI_FALSE ? -1 : 0;
  return col;
}

void set_number(JNIEnv* env, jobject obj, double val, jboolean setnull) {
  if (!env_and_object(env, obj)) return;
  columndata* col = value_column(env, obj, setnull, "Column is null");
  if (col == nullptr) return;
  col->double_arr[0] = val;
  set_types(*col, SQLT_FLT);
}

}  // namespace

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_setValueWithInt(JNIEnv* env, jobject obj,
                                                                      jint val, jboolean setnull) {
  if (!env_and_object(env, obj)) return;
  columndata* col = value_column(env, obj, setnull, "Column is null");
  if (col == nullptr) return;
  col->long_arr[0] = val;
  set_types(*col, SQLT_INT);
}

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_setValueWithFloat(JNIEnv* env, jobject obj,
                                                                        jfloat val,
                                                                        jboolean setnull) {
  set_number(env, obj, static_cast<double>(val), setnull);
}

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_setValueWithDouble(JNIEnv* env, jobject obj,
                                                                         jdouble val,
                                                                         jboolean setnull) {
  set_number(env, obj, val, setnull);
}

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_setValueWithString(JNIEnv* env, jobject obj,
                                                                         jbyteArray HStrBuf,
                                                                         jboolean setnull) {
  TRACE("*** setValueWithString ***");
  if (!env_and_object(env, obj)) return;
  if (!argument_given(env, HStrBuf, "Value is null")) return;
  columndata* col = value_column(env, obj, setnull, "Column is null");
  if (col == nullptr) return;
  PinnedBytes bytes(env, HStrBuf, Pin::ReadOnly);
  if (!bytes.ok()) {
    TV_ThrowNullPointerException(env, "Value is null");
    return;
  }
  const sb4 length = bytes.length();
  TRACE("    min_bind_size", "=", col->min_bind_size);
  const sb4 adjusted = col->min_bind_size >= length ? col->min_bind_size : length;
  col->dbsize = static_cast<ub4>(adjusted);
  col->allocByteArray(adjusted);
  if (length > 0) std::memcpy(col->byte_arr, bytes.data(), static_cast<std::size_t>(length));
  bytes.release();
  set_types(*col, SQLT_STR);
}

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_setValueWithBytes(JNIEnv* env, jobject obj,
                                                                        jbyteArray val,
                                                                        jboolean setnull,
                                                                        jboolean useraw) {
  if (!env_and_object(env, obj)) return;
  if (!argument_given(env, val, "Value is null")) return;
  columndata* col = value_column(env, obj, setnull, "Column is null");
  if (col == nullptr) return;
  const jsize length = env->GetArrayLength(val);
  col->dbsize = static_cast<ub4>(length);
  col->allocByteArray(length);
  PinnedBytes bytes(env, val, Pin::ReadOnly);
  if (!bytes.ok()) {
    TV_ThrowNullPointerException(env, "Value is null");
    return;
  }
  if (length > 0) std::memcpy(col->byte_arr, bytes.data(), static_cast<std::size_t>(length));
  bytes.release();
  set_types(*col, useraw != JNI_FALSE ? SQLT_BIN : SQLT_LBI);
}

namespace {

// The Oracle type for a kind of stream, as OciCursor numbers them; 0 for a kind that it has not.
int stream_dbtype(JNIEnv* env, jint stream_type) {
  const auto is = [&](jfieldID kind) {
    return env->GetStaticIntField(OciCursorClass, kind) == stream_type;
  };
  if (is(AsciiStreamID) || is(UnicodeStreamID)) return SQLT_LNG;
  if (is(BinaryStreamID)) return SQLT_LBI;
  if (is(CharacterStreamID)) return SQLT_LNG;
  return 0;
}

}  // namespace

JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_setValueWithStream(JNIEnv* env, jobject obj,
                                                                         jint len, jint piecelen,
                                                                         jint stream_type,
                                                                         jboolean setnull) {
  TRACE("*** setValueWithStream ***");
  TRACE("    len=", len, ", piecelen=", piecelen, ", stream_type=", stream_type,
        ", setnull=", static_cast<int>(setnull));
  if (!env_and_object(env, obj)) return;
  columndata* col = value_column(env, obj, setnull, "COLUMNDATA is null");
  if (col == nullptr) return;
  col->dbsize = static_cast<ub4>(len);
  col->piecelen = static_cast<ub4>(piecelen);
  const int type = stream_dbtype(env, stream_type);
  if (type == 0) {
    TV_ThrowInternalError(env, "Invalid Stream Type");
    return;
  }
  set_types(*col, type);
}

// Hour, minute and second come as the format stores them, one more than the clock shows.
JNIEXPORT void JNICALL Java_trevalon_db_oci_OciColumn_setValueWithDate(JNIEnv* env, jobject obj,
                                                                       jint century, jint year,
                                                                       jint month, jint day,
                                                                       jint hour, jint min,
                                                                       jint sec, jboolean setnull) {
  constexpr ub4 kExcess = 100;  // of century and year, unsigned so that no argument overflows
  if (!env_and_object(env, obj)) return;
  columndata* col = value_column(env, obj, setnull, "Column is null");
  if (col == nullptr) return;
  col->dbsize = DATE_LENGTH;
  col->allocByteArray(DATE_LENGTH);
  const ub1 date[DATE_LENGTH] = {static_cast<ub1>(static_cast<ub4>(century) + kExcess),
                                 static_cast<ub1>(static_cast<ub4>(year) + kExcess),
                                 static_cast<ub1>(month),
                                 static_cast<ub1>(day),
                                 static_cast<ub1>(hour),
                                 static_cast<ub1>(min),
                                 static_cast<ub1>(sec)};
  std::memcpy(col->byte_arr, date, DATE_LENGTH);
  set_types(*col, SQLT_DAT);
}
