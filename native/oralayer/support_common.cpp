// Class lookup and exceptions, the byte dump, the sizing of column buffers, and the rules for
// select-list data.

#include <algorithm>
#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "exceptions.h"
#include "oralayer8.h"
#include "trace.h"

// The lookups in TV_FindClass cannot fail on a working Java runtime; a release build checks too.
#undef NDEBUG
#include <cassert>

std::atomic<std::int32_t> oci_debug{0};

// --- Class lookup --------------------------------------------------------------------------------

namespace {

// Two threads that fill these at once store the same value.
std::atomic<jmethodID> getClassMID{nullptr};
std::atomic<jmethodID> getClassLoaderMID{nullptr};
std::atomic<jmethodID> loadClassMID{nullptr};

jmethodID cached_method(JNIEnv* env, std::atomic<jmethodID>& cached, const char* class_name,
                        const char* name, const char* signature) {
  jmethodID method = cached.load(std::memory_order_relaxed);
  if (method != nullptr) return method;
  jclass owner = env->FindClass(class_name);
  if (owner == nullptr) return nullptr;
  method = env->GetMethodID(owner, name, signature);
  env->DeleteLocalRef(owner);
  cached.store(method, std::memory_order_relaxed);
  return method;
}

jclass load_class(JNIEnv* env, jobject loader, jmethodID loadClass, const char* name) {
  jstring text_name = env->NewStringUTF(name);
  if (text_name == nullptr) return nullptr;
  auto found = static_cast<jclass>(env->CallObjectMethod(loader, loadClass, text_name));
  env->DeleteLocalRef(text_name);
  return env->ExceptionCheck() ? nullptr : found;
}

}  // namespace

jclass TV_FindClass(JNIEnv* env, jobject obj, const char* className) {
  const jmethodID getClass =
      cached_method(env, getClassMID, "java/lang/Object", "getClass", "()Ljava/lang/Class;");
  assert(getClass != nullptr);
  const jmethodID getClassLoader = cached_method(env, getClassLoaderMID, "java/lang/Class",
                                                 "getClassLoader", "()Ljava/lang/ClassLoader;");
  assert(getClassLoader != nullptr);

  jobject object_class = env->CallObjectMethod(obj, getClass);
  if (object_class == nullptr || env->ExceptionCheck()) return nullptr;
  jobject loader = env->CallObjectMethod(object_class, getClassLoader);
  if (env->ExceptionCheck()) return nullptr;
  if (loader == nullptr) return env->FindClass(className);

  const jmethodID loadClass = cached_method(env, loadClassMID, "java/lang/ClassLoader", "loadClass",
                                            "(Ljava/lang/String;)Ljava/lang/Class;");
  assert(loadClass != nullptr);
  jclass found = load_class(env, loader, loadClass, className);
  if (found != nullptr) return found;

  // Since JDK 9 a loader refuses a name with slashes; older ones know no other.
  env->ExceptionClear();
  char dotted[128];
  const std::size_t length = std::strlen(className);
  if (length >= sizeof dotted) return nullptr;
  std::replace_copy(className, className + length + 1, dotted, '/', '.');
  return load_class(env, loader, loadClass, dotted);
}

// --- Exceptions ----------------------------------------------------------------------------------

void TV_ThrowByName(JNIEnv* env, const char* name, const char* msg) {
  if (env == nullptr) return;
  // FindClass yields nothing while an exception is pending.
  if (env->ExceptionCheck()) env->ExceptionClear();
  jclass exception = env->FindClass(name);
  if (exception != nullptr) env->ThrowNew(exception, msg);
  env->DeleteLocalRef(exception);
}

void TV_ThrowNullPointerException(JNIEnv* env, const char* msg) {
  TV_ThrowByName(env, "java/lang/NullPointerException", msg);
}

void TV_ThrowNoSuchFieldException(JNIEnv* env, const char* msg) {
  TV_ThrowByName(env, "java/lang/NoSuchFieldException", msg);
}

void TV_ThrowClassNotFoundException(JNIEnv* env, const char* msg) {
  TV_ThrowByName(env, "java/lang/ClassNotFoundException", msg);
}

void TV_ThrowNoSuchMethodError(JNIEnv* env, const char* msg) {
  TV_ThrowByName(env, "java/lang/NoSuchMethodError", msg);
}

void TV_ThrowInternalError(JNIEnv* env, const char* msg) {
  TV_ThrowByName(env, "java/lang/InternalError", msg);
}

void TV_ThrowOutOfMemoryError(JNIEnv* env, const char* msg) {
  TV_ThrowByName(env, "java/lang/OutOfMemoryError", msg);
}

void TV_ThrowSQLException(JNIEnv* env, const char* msg) {
  TV_ThrowByName(env, "java/sql/SQLException", msg);
}

void TV_ThrowIndexOutOfBounds(JNIEnv* env, const char* msg) {
  TV_ThrowByName(env, "java/lang/ArrayIndexOutOfBoundsException", msg);
}

// --- Trace ---------------------------------------------------------------------------------------

void put_value(const char* characters) {
  std::fputs(characters, stdout);
}

void put_value(const text* characters) {
  put_value(reinterpret_cast<const char*>(characters));
}

void put_value(std::string_view characters) {
  std::fwrite(characters.data(), 1, characters.size(), stdout);
}

void put_value(text character) {
  std::putchar(character);
}

void put_value(double number) {
  std::printf("%g", number);
}

void put_value(const void* address) {
  if (address == nullptr) return put_value("0");
  std::printf("%p", address);
}

void put_value(std::int64_t number) {
  std::printf("%" PRId64, number);
}

void put_value(std::uint64_t number) {
  std::printf("%" PRIu64, number);
}

void dump_bytes(const char* msg, const text* buf, int len) {
  dump_units(msg, "    bytes:", buf, len);
}

// --- Column buffers ------------------------------------------------------------------------------

void process_out_of_memory(const char* which) {
  write_line("PROCESS OUT OF MEMORY (", which, ")");
  std::exit(1);
}

namespace {

template <typename T>
void release_array(T*& array) {
  delete[] array;
  array = nullptr;
}

template <typename T>
T* allocate_array(int size) {
  // Beyond this, array new raises where it should yield null.
  constexpr auto kMost = std::numeric_limits<std::ptrdiff_t>::max() / sizeof(T);
  if (size < 0 || static_cast<std::size_t>(size) > kMost) return nullptr;
  return new (std::nothrow) T[static_cast<std::size_t>(size)];
}

template <typename T>
void check_and_clear(T* array, int size, const char* which) {
  if (array == nullptr) process_out_of_memory(which);
  std::memset(array, 0, static_cast<std::size_t>(size) * sizeof(T));
}

}  // namespace

void columndata::allocByteArray(sb4 newsize) {
  TRACE("*** allocByteArray ***");
  if (newsize != 0 && newsize <= byte_arrlen) return;
  if (newsize < 0) return;
  if (newsize != byte_arrlen) touch_record(this);
  if (byte_arrlen != 0) release_array(byte_arr);
  byte_arrlen = newsize;
  if (newsize == 0) return;
  const std::size_t bytes = padded_size(newsize);
  byte_arr = new (std::nothrow) ub1[bytes];
  if (byte_arr == nullptr) process_out_of_memory("1");
  std::memset(byte_arr, 0, bytes);
}

void columndata::allocFetchArrays(int size) {
  touch_record(this);
  // Arrays of this size only need to be cleared: a column's next statement asks for the same.
  const bool other_size = size != vectsize;
  if (other_size && vectsize != 0) {
    release_array(indpvect);
    release_array(retlenvect);
    release_array(retcodevect);
    release_array(long_arr);
    release_array(double_arr);
  }
  vectsize = size;
  if (size == 0) return;
  if (other_size) {
    indpvect = allocate_array<sb2>(size);
    retlenvect = allocate_array<ub2>(size);
    retcodevect = allocate_array<ub2>(size);
    long_arr = allocate_array<sb4>(size);
    double_arr = allocate_array<double>(size);
  }
  check_and_clear(indpvect, size, "2.1");
  check_and_clear(retlenvect, size, "2.2");
  check_and_clear(retcodevect, size, "2.3");
  check_and_clear(long_arr, size, "2.4");
  check_and_clear(double_arr, size, "2.5");
}

// --- Select-list data ----------------------------------------------------------------------------

sword getSelectLength(int internaltype, int, int, sb4 length) {
  switch (static_cast<sb2>(internaltype)) {
    case SQLT_CHR:
    case SQLT_STR:
    case SQLT_AFC: {
      // A described size is at most 65535; anything that would not fit is no buffer size.
      const long long bytes = 3LL * length;
      TRACE("    getSelectLength: string type len", "=", bytes);
      return bytes < std::numeric_limits<sword>::max() ? static_cast<sword>(bytes + 1) : -1;
    }
    case SQLT_NUM:
    case SQLT_INT:
    case SQLT_FLT:
      TRACE("    getSelectLength: number type (2) len", "=", 129);
      return 129;
    case SQLT_LNG:
    case SQLT_LBI:
      TRACE("    getSelectLength: long type", "=", length);
      return length;
    case SQLT_RID:
    case SQLT_RDD:
      TRACE("    getSelectLength: rowid type", "=", kRowidTextSize);
      return kRowidTextSize;
    case SQLT_LAB:
      TRACE("    getSelectLength: mlslabel type", "=", kLabelTextSize);
      return kLabelTextSize;
    case SQLT_DAT:
      TRACE("date type", "=", DATE_LENGTH);
      return DATE_LENGTH;
    case SQLT_BIN:
      TRACE("    getSelectLength: raw type len", "=", length);
      return length;
    case SQLT_CLOB:
    case SQLT_BLOB:
      TRACE("    getSelectLength: BLOB/CLOB type len -1");
      return -1;
    default:
      TRACE("switch fell through len=0");
      return 0;
  }
}

sword int2extSelectOciType(int internal_type, int, int) {
  switch (static_cast<sb2>(internal_type)) {
    // Numbers, row ids and labels are fetched as text, like character columns.
    case SQLT_CHR:
    case SQLT_STR:
    case SQLT_AFC:
    case SQLT_NUM:
    case SQLT_INT:
    case SQLT_FLT:
    case SQLT_RID:
    case SQLT_RDD:
    case SQLT_LAB:
      return SQLT_STR;
    case SQLT_LNG:
    case SQLT_LBI:
    case SQLT_DAT:
    case SQLT_BIN:
    case SQLT_CLOB:
    case SQLT_BLOB:
      return static_cast<sb2>(internal_type);
    default:
      return 0;
  }
}

namespace {

// Bytes for `rows` elements of `size` bytes. A product that does not fit is memory that nobody has:
// a smaller buffer would be written past its end.
sb4 array_bytes(sb4 size, int rows) {
  const long long bytes = static_cast<long long>(size) * rows;
  if (bytes > std::numeric_limits<sb4>::max() || size < 0 || rows < 0) process_out_of_memory("1");
  return static_cast<sb4>(bytes);
}

}  // namespace

void allocSelectData(columndata* col, sb4 long_buf_size, int fetchsize) {
  col->allocFetchArrays(fetchsize);
  switch (col->internal_dbtype) {
    case SQLT_CHR:
    case SQLT_RID:
    case SQLT_DAT:
    case SQLT_BIN:
    case SQLT_AFC:
    case SQLT_RDD:
    case SQLT_LAB:
    case SQLT_NUM:
    case SQLT_INT:
    case SQLT_FLT:
      col->allocByteArray(array_bytes(col->buflen, fetchsize));
      break;
    case SQLT_LNG:
    case SQLT_LBI:
      col->allocByteArray(array_bytes(long_buf_size, fetchsize));
      break;
    default:
      break;
  }
}

bool is_byte_type(sb2 type) {
  switch (type) {
    case SQLT_CHR:
    case SQLT_STR:
    case SQLT_LNG:
    case SQLT_RID:
    case SQLT_DAT:
    case SQLT_BIN:
    case SQLT_LBI:
    case SQLT_AFC:
    case SQLT_RDD:
    case SQLT_LAB:
      return true;
    default:
      return false;
  }
}

ub1* bindSelectData(columndata* col) {
  const sb2 type = col->internal_dbtype;
  const bool number = type == SQLT_NUM || type == SQLT_INT || type == SQLT_FLT;
  return number || is_byte_type(type) ? col->byte_arr : nullptr;
}
