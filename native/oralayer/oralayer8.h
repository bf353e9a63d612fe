// The native records behind the Java objects, and the free functions that the families share.
//
// A record's address is kept in an int field of its Java object, so records live below 4 GiB: they
// come from the arena behind their class-level operator new (record_arena.cpp). Buffers that the
// records own come from the ordinary heap.
#ifndef ORALAYER_ORALAYER8_H
#define ORALAYER_ORALAYER8_H

#include <jni.h>

#include <cstddef>
#include <cstdint>
#include <new>

#include "member_cache.h"
#include "oci.h"

struct cdadata;
struct columndata;
struct longdata_node;
struct LongdataBufPool;

/// A piece of the low arena, or null when it is exhausted.
void* allocate_low(std::size_t size) noexcept;
void release_low(void* record) noexcept;

/// A number that changes whenever the record at this address is made, touched or destroyed: a saved
/// one tells whether it is still the same record with the same buffers. 0 for an address outside
/// the arena.
std::uint32_t record_version(const void* record) noexcept;
/// To be called when a record changes the buffers that it lends.
void touch_record(void* record) noexcept;

/// Notes that a record holds something that belongs to `lender`, as that is now; null: to nobody.
void note_lender(void* record, const void* lender) noexcept;
bool has_lender(const void* record) noexcept;
/// False where the lender has ended, or changed what it lends, since it was noted.
bool lender_stands(const void* record) noexcept;

/// Gives a record type its place in the low arena. A macro rather than a base class, so that the
/// records stay plain. Array forms raise std::bad_alloc when the arena is exhausted.
#define ORALAYER_LOW_RECORD                                                     \
  static void* operator new(std::size_t size, const std::nothrow_t&) noexcept { \
    return allocate_low(size);                                                  \
  }                                                                             \
  static void* operator new[](std::size_t size) {                               \
    void* records = allocate_low(size);                                         \
    if (records == nullptr) throw std::bad_alloc();                             \
    return records;                                                             \
  }                                                                             \
  static void operator delete(void* record) noexcept {                          \
    release_low(record);                                                        \
  }                                                                             \
  static void operator delete(void* record, const std::nothrow_t&) noexcept {   \
    release_low(record);                                                        \
  }                                                                             \
  static void operator delete[](void* records) noexcept {                       \
    release_low(records);                                                       \
  }

// --- Connection ----------------------------------------------------------------------------------

/// One Oracle session: its own environment and handles, made at load, kept for the life of the
/// process. Lent to one OciConnection at a time by its slot in a pool.
struct ldadata {
  ORALAYER_LOW_RECORD

  OCIEnv* envhp;
  OCIServer* srvhp;
  OCIError* errhp;  // lent to every cursor and LOB of the session
  OCISvcCtx* svchp;
  OCISession* usrhp;  // of an earlier login, while the service context names it still
  void* tmp;  // unused
  OCISession* authp;  // of the current login; null before the first one
  int status;  // result of the last OCISessionBegin
  int autocommit;  // 1: statements execute with OCI_COMMIT_ON_SUCCESS

  ldadata();

  /// Logs in; strings are zero-terminated, `host` is a connect string. Returns 0, or the status of
  /// the failed session start, which is also reported on standard output. Nothing is done for XA.
  int login(const char* username, const char* password, const char* host, boolean isXA);
  /// Ends the session and detaches from the server. Always 0.
  int logoff(boolean isXA);
  /// Called whenever a connection is given the record; the record is kept as it is.
  void reset() {}
};

/// A fixed array of session records, built when the library is loaded.
class ldapool_holder {
 public:
  /// Sizes the pool by the environment variable `env_string`; null: by the default.
  explicit ldapool_holder(const char* env_string);
  ~ldapool_holder();
  ldapool_holder(const ldapool_holder&) = delete;
  ldapool_holder& operator=(const ldapool_holder&) = delete;

  int get_pool_size() { return pool_size; }
  /// The record at `idx`, which must lie inside the pool.
  ldadata& operator[](int idx) { return pool[idx]; }

  /// The variable's leading number where it is at least 1, else 512.
  static int pool_size_from_str(const char* name);

 private:
  friend struct ldapool_holder_layout;

  int is_inited;
  char* env_var;
  int pool_size;
  ldadata* pool;
};

extern ldapool_holder ldapool, xaldapool;
extern Cda_Def cdapool[4096];

/// Sets NLS_LANG for the process from a Java byte array; null leaves the environment alone. Raises
/// InternalError for a value of more than 71 bytes.
void tv_init_nls(JNIEnv* env, jobject obj, jbyteArray HNlsLangBuf);

// --- Column --------------------------------------------------------------------------------------

inline constexpr int kColumnNameSize = 128;  // bytes, without the terminating zero
inline constexpr int DATE_LENGTH = 7;  // bytes of Oracle's internal DATE
inline constexpr int kRowidTextSize = 24;  // bytes of a row id as text
inline constexpr int kLabelTextSize = 20;  // bytes of a security label as text

/// The streaming state of one LONG bind variable: filled by the bind, used by the insert callback,
/// spent after the execution. The statement's memory owns it and uses it again for the next bind of
/// the placeholder.
struct colctx {
  JNIEnv* env;
  columndata* col;
  cdadata* cda;
  jbyteArray jbytes;  // local reference, made by the first callback of an execution
  sb1* buf;  // pinned elements of jbytes, or null
};

/// One select-list column or bind variable. Owned by its OciColumn from initialize to
/// native_finalize; owns byte_arr and the five fetch arrays, borrows everything else.
struct columndata {
  ORALAYER_LOW_RECORD

  sb4 byte_arrlen;  // size asked for at the last growth of byte_arr; 0: no buffer
  sword colpos;  // position in the select list or among the placeholders, from 1
  ub4 dbsize;  // bytes: described size, or length of the bind value
  sb2 internal_dbtype;  // -1: unknown
  sb2 prec;
  sb2 scale;
  sb2 nullok;
  ub4 piecelen;  // non-zero: bound for data at execution
  int stream_type;
  ub2 overloading;
  ub2 level;
  ub1 radix;
  ub1 hasdefault;
  ub1 iomode;
  int vectsize;  // elements in each of the five fetch arrays; 0: none
  sb2* indpvect;  // -1: NULL
  ub2* retlenvect;
  ub2* retcodevect;
  signed char columnname[kColumnNameSize + 1];
  sword external_dbtype;  // -1: follows from the internal type
  sword external_nonchar;
  sword buflen;  // bytes of one element of the buffer handed to OCI
  ub1* bufptr;  // alias of the buffer handed to OCI
  ub1* byte_arr;
  sb4* long_arr;
  double* double_arr;
  int min_bind_size;
  int boundinsert;
  colctx* ctx;  // the cursor's, of the last streamed bind; it ends with the statement's text
  longdata_node* longbuf_head;  // newest piece of the current LONG value
  longdata_node* longbuf_tail;  // oldest; the cursor's close releases the chain
  OCILobLocator* lobloc;  // own, or borrowed from the OciLob whose record is noted as lender

  explicit columndata(int size);
  ~columndata();
  columndata(const columndata&) = delete;
  columndata& operator=(const columndata&) = delete;

  /// Makes byte_arr hold at least `newsize` bytes and a terminating zero byte; 0 releases it.
  /// Growth does not keep the contents. Ends the process when memory is exhausted.
  void allocByteArray(sb4 newsize);
  /// Replaces the five fetch arrays by zero-filled ones of `size` elements; 0 releases them. Ends
  /// the process when memory is exhausted.
  void allocFetchArrays(int size);

  /// What byte_arr is made with for so many bytes: whole words with at least three to spare, so
  /// that a string's terminator always fits.
  static std::size_t padded_size(sb4 size) {
    return ((static_cast<std::size_t>(size) + 2) / 4 + 1) * 4;
  }
  /// Bytes that byte_arr really has room for.
  std::size_t byte_capacity() const {
    return byte_arrlen > 0 && byte_arr != nullptr ? padded_size(byte_arrlen) : 0;
  }
};

/// True for a column whose values are LOB locators.
inline bool is_lob(const columndata& col) {
  return col.internal_dbtype == SQLT_CLOB || col.internal_dbtype == SQLT_BLOB;
}

/// True for a column that is fetched in pieces.
inline bool is_long(const columndata& col) {
  return col.internal_dbtype == SQLT_LNG || col.internal_dbtype == SQLT_LBI;
}

/// Ends the process with "PROCESS OUT OF MEMORY (which)" on standard output and exit status 1.
[[noreturn]] void process_out_of_memory(const char* which);

// --- LONG data -----------------------------------------------------------------------------------
//
// Chains are doubly linked and held by a head and a tail pointer. Entries are added at the head and
// taken off at the tail, so that following `next` from the tail visits them in order of arrival.

/// An entry of a cursor's chain of LONG columns. Owned by the chain; the column is not.
struct longcol_node {
  int buf_num;
  columndata* coldata;
  longcol_node* next;  // newer
  longcol_node* prev;  // older

  longcol_node();

  static void queue(longcol_node** head, longcol_node** tail, longcol_node* x);
  static longcol_node* dequeue(longcol_node** head, longcol_node** tail);
  static void destroychain(longcol_node** head, longcol_node** tail);
};

/// One piece of a LONG value. Owned by a column's chain or by the pool; owns its buffer.
struct longdata_node {
  longdata_node* next;  // newer
  longdata_node* prev;  // older
  sb4 buf_size;  // bytes of data in the buffer
  ub1* buf_ptr;
  ub2 buf_num;

  longdata_node();
  ~longdata_node();
  longdata_node(const longdata_node&) = delete;
  longdata_node& operator=(const longdata_node&) = delete;

  /// Adds a node with a buffer of at least `coldatabufsize` bytes; null, and an unchanged chain,
  /// where there is no memory.
  static longdata_node* queue(longdata_node** head, longdata_node** tail, int coldatabufsize,
                              LongdataBufPool* pool);
  static longdata_node* dequeue(longdata_node** head, longdata_node** tail);
  static void release(longdata_node* x, LongdataBufPool* pool);
  /// Bytes of all pieces from `x` along `next`.
  static int getlongsize(const longdata_node* x);
  static void releasechain(longdata_node** head, longdata_node** tail, LongdataBufPool* pool);
  static void print(const longdata_node* x);
};

/// A cursor's stack of spare pieces, so that row after row reuses the same buffers.
struct LongdataBufPool {
  static constexpr int kSlots = 512;

  int bufPoolSP;
  longdata_node** bufPool;

  LongdataBufPool();
  ~LongdataBufPool();
  LongdataBufPool(const LongdataBufPool&) = delete;
  LongdataBufPool& operator=(const LongdataBufPool&) = delete;

  /// A node with room for `size` bytes: the one released last, or a new one; null without memory.
  static longdata_node* getBuf(int size, LongdataBufPool* pool);
  /// Takes the node back, or destroys it where the stack is full.
  static void releaseBuf(longdata_node* buffer, LongdataBufPool* pool);
};

// --- Cursor --------------------------------------------------------------------------------------

/// One cursor. Owned by its OciCursor from initialize to native_finalize; owns its statement
/// handle, its chains, its pool and the copy of the SQL text; borrows the session's handles.
struct cdadata {
  ORALAYER_LOW_RECORD

  OCISvcCtx* svchp;
  OCIStmt* stmthp;  // null unless open
  OCIError* errhp;
  void* tmp;  // user memory of the statement handle
  int described;
  int need_data;
  jobject jocicursor;  // global reference, for the insert callback
  int long_count;
  ldadata* lda;
  longcol_node* lc_head;  // select-list LONG columns
  longcol_node* lc_tail;
  longcol_node* li_head;  // LONG bind variables awaiting their data
  longcol_node* li_tail;
  LongdataBufPool* longdata_bufpool;
  text* sqlstr;  // zero-terminated
  text* descpstr;

  explicit cdadata(int elem);
  ~cdadata();
  cdadata(const cdadata&) = delete;
  cdadata& operator=(const cdadata&) = delete;
};

/// The cursor object's selPieceLength: bytes of one LONG piece. 0 after raising "JNIEnv".
std::int32_t longBufferSize(JNIEnv* env, jobject obj);

/// After an execution, or for one that will not be: unpins the chunks of the cursor's LONG bind
/// variables, spends their contexts and empties the insert chain.
void clean_longinsert_chain(JNIEnv* env, cdadata* cd);

/// For a column that ends, or that is bound elsewhere: no context and no insert chain names it.
void forget_streamed_column(columndata& col);

/// The insert callback, on the thread that executes; its context is a colctx. Hands OCI the next
/// chunk of the stream, or an empty last piece.
sb4 icbfp(void* ictxp, OCIBind* bindp, ub4 iter, ub4 index, void** bufpp, ub4* alenp, ub1* piecep,
          void** indpp);
/// No value is streamed out: LONG values are fetched in pieces.
sb4 ocbfp(void* octxp, OCIBind* bindp, ub4 iter, ub4 index, void** bufpp, ub4** alenpp, ub1* piecep,
          void** indpp, ub2** rcodepp);

/// The buffer that OCI reads a column's bind value from; null for an unknown type.
ub1* bindParamData(columndata* col);

// --- LOB -----------------------------------------------------------------------------------------

/// Frees the LOB locator in `locator`, where there is one, and forgets it. The result is that of
/// OCIDescriptorFree.
sword free_locator(OCILobLocator*& locator);
/// Allocates a LOB locator from the session's environment into `locator`, after a former one that
/// it holds was freed; null where that fails.
sword allocate_locator(const ldadata& ld, OCILobLocator*& locator);

/// One LOB value's locator. Owned by its OciLob.
struct lobdata {
  ORALAYER_LOW_RECORD

  OCILobLocator* lobloc;
  cdadata* cd;  // unused

  lobdata() : lobloc(nullptr), cd(nullptr) {}
};

// --- Error state ---------------------------------------------------------------------------------
//
// Each copies the state of the Oracle call just made into the Java object; only these write the
// error fields. They raise where the object or its record is missing, and never otherwise.

void assignLdaCodes(JNIEnv* env, jobject obj);
void assignCdaCodes(JNIEnv* env, jobject obj);
void clearCdaErrorCodes(JNIEnv* env, jobject obj);
void assignLobCodes(JNIEnv* env, jobject obj, jobject connobj);
void clearLobErrorCodes(JNIEnv* env, jobject obj);

/// The Oracle error number in record 1 of an error handle, 0 where it holds none.
sb4 oracle_error(OCIError* errhp);

// --- Types and select-list buffers ---------------------------------------------------------------
//
// Codes, precision and scale count with their low 16 bits, signed. Lengths are in bytes.

/// True for a NUMBER that is exchanged as an integer. One without declared precision has precision
/// 0 and counts as floating-point.
bool is_integer(int prec, int scale);

/// Bytes of a select-list column's element in its buffer; -1 for a LOB, or where an sb4 has no room
/// for them.
sword getSelectLength(int internaltype, int prec, int scale, sb4 length);
/// The type that a select-list column is fetched as; 0 for an unknown one.
sword int2extSelectOciType(int internal_type, int prec, int scale);
/// Bytes of a bind variable's value, with the terminator of a text; 0 for an unknown type.
sword getParamLength(int internaltype, int prec, int scale, sb4 length, ub4 piecelen);
/// The type that a bind variable or column reports to Java; 0 for an unknown one.
sword int2extOciType(int internal_type, int prec, int scale);
/// The name of an internal type. A constant text.
const char* typeName(int type);

/// True for the types whose values are laid into a column's byte buffer, bound or fetched.
bool is_byte_type(sb2 type);

/// Makes a select-list column's fetch arrays and data buffer for `fetchsize` rows. Ends the process
/// when memory is exhausted.
void allocSelectData(columndata* col, sb4 long_buf_size, int fetchsize);
/// The buffer that a define of the column fills; null where it has none (LOB, unknown type).
ub1* bindSelectData(columndata* col);

#endif
