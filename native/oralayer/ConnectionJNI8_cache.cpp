// The member cache: every Java class, field and method that the library uses.

#include <array>
#include <iterator>
#include <mutex>

#include "exceptions.h"
#include "member_cache.h"
#include "trace.h"

jclass OciConnectionClass, OciColumnClass, OciCursorClass, OciSchemaClass, OciLobClass;

jfieldID logondata32iD, logondata64iD, ldaerrcodeiD, oserrcodeiDconn, isXAID;
jfieldID inputStreamTypeID, coldata32iD, coldata64iD;
jfieldID selPieceLengthID, cdadata32iD, cdadata64iD, cdaerrorcodeiD, rowsprocessediD,
    parsererroffsetiD, sqlfunccodeiD, ocifunccodeiD, oserrcodeiD, warnflagsiD;
jfieldID lobdata32iD, lobdata64iD, loberrcodeiD;
jfieldID AsciiStreamID, UnicodeStreamID, BinaryStreamID, CharacterStreamID;

jmethodID OciColumnCons, OciCursorCons, getNextStreamBuffer, hasBlobColumn, addColumn;

std::atomic<int> inited{0};
bool member_cache_complete = false;

namespace {

using Thrower = void (*)(JNIEnv*, const char*);

// A class or a member to resolve. `name` and `signature` are the Java ones; exactly one of the
// targets is set.
struct Row {
  enum class Kind { ObjectClass, LoadedClass, Field, StaticField, Method } kind;
  jclass* owner;  // the class itself for the class kinds
  const char* name;
  const char* signature;
  jfieldID* field;
  jmethodID* method;
  Thrower raise;
  const char* message;
};

constexpr Row object_class(jclass* target, const char* message) {
  return {Row::Kind::ObjectClass,       target, nullptr, nullptr, nullptr, nullptr,
          TV_ThrowNullPointerException, message};
}

constexpr Row loaded_class(jclass* target, const char* name, const char* message) {
  return {Row::Kind::LoadedClass,         target, name, nullptr, nullptr, nullptr,
          TV_ThrowClassNotFoundException, message};
}

constexpr Row field(jclass* owner, const char* name, const char* signature, jfieldID* target,
                    const char* message) {
  return {Row::Kind::Field, owner, name, signature, target, nullptr, TV_ThrowNoSuchFieldException,
          message};
}

// The kind codes of streams, all static ints.
constexpr Row stream_kind(const char* name, jfieldID* target) {
  return {Row::Kind::StaticField,
          &OciCursorClass,
          name,
          "I",
          target,
          nullptr,
          TV_ThrowNoSuchFieldException,
          name};
}

constexpr Row method(jclass* owner, const char* name, const char* signature, jmethodID* target,
                     const char* message) {
  return {Row::Kind::Method,         owner,  name, signature, nullptr, target,
          TV_ThrowNoSuchMethodError, message};
}

// The order of resolution, and with it which exception Java sees when several members are missing.
// Messages are fixed; some differ from the member's name.
constexpr Row kTable[] = {
    object_class(&OciConnectionClass, "OciConnectionClass"),
    field(&OciConnectionClass, "logondata64", "J", &logondata64iD, "logondata64iD"),
    field(&OciConnectionClass, "logondata32", "I", &logondata32iD, "logondata32iD"),
    field(&OciConnectionClass, "ldaerrcode", "I", &ldaerrcodeiD, "ldaerrcodeiD"),
    field(&OciConnectionClass, "oserrcode", "I", &oserrcodeiDconn, "oserrcodeiDconn"),
    field(&OciConnectionClass, "isXA", "Z", &isXAID, "isXAID"),

    loaded_class(&OciColumnClass, "trevalon/db/oci/OciColumn", "trevalon.db.oci.OciColumn"),
    field(&OciColumnClass, "input_stream_type", "I", &inputStreamTypeID, "input_stream_type"),
    method(&OciColumnClass, "<init>", "(ILjava/lang/String;)V", &OciColumnCons, "OciColumnClass"),
    field(&OciColumnClass, "coldata32", "I", &coldata32iD, "columndata32"),
    field(&OciColumnClass, "coldata64", "J", &coldata64iD, "columndata64"),

    loaded_class(&OciCursorClass, "trevalon/db/oci/OciCursor", "trevalon.db.OciCursor"),
    method(&OciCursorClass, "<init>", "(Ltrevalon/db/oci/OciConnection;IIZLjava/lang/String;)V",
           &OciCursorCons, "trevalon.db.OciCursor"),
    method(&OciCursorClass, "getNextStreamBuffer", "([BIII)I", &getNextStreamBuffer,
           "trevalon.db.OciCursor"),
    method(&OciCursorClass, "hasBlobColumn", "()Z", &hasBlobColumn, "trevalon.db.OciCursor"),
    stream_kind("ASCII_STREAM", &AsciiStreamID),
    stream_kind("UNICODE_STREAM", &UnicodeStreamID),
    stream_kind("BINARY_STREAM", &BinaryStreamID),
    stream_kind("CHARACTER_STREAM", &CharacterStreamID),
    field(&OciCursorClass, "selPieceLength", "I", &selPieceLengthID, "selPieceLengthID"),
    field(&OciCursorClass, "cursordata32", "I", &cdadata32iD, "cdadata32iD"),
    field(&OciCursorClass, "cursordata64", "J", &cdadata64iD, "cdadata64iD"),
    field(&OciCursorClass, "cdaerrorcode", "I", &cdaerrorcodeiD, "cdaerrorcodeiD"),
    field(&OciCursorClass, "rowsprocessed", "I", &rowsprocessediD, "rowsprocessediD"),
    field(&OciCursorClass, "parsererroffset", "I", &parsererroffsetiD, "parsererroffsetiD"),
    field(&OciCursorClass, "sqlfunccode", "I", &sqlfunccodeiD, "sqlfunccodeiD"),
    field(&OciCursorClass, "ocifunccode", "I", &ocifunccodeiD, "ocifunccodeiD"),
    field(&OciCursorClass, "oserrcode", "I", &oserrcodeiD, "oserrcodeiD"),
    field(&OciCursorClass, "warnflags", "I", &warnflagsiD, "warnflagsiD"),

    loaded_class(&OciSchemaClass, "trevalon/db/oci/OciSchema", "trevalon.db.oci.OciSchema"),
    method(&OciSchemaClass, "addColumn", "(Ltrevalon/db/oci/OciColumn;)Ltrevalon/db/oci/OciSchema;",
           &addColumn, "trevalon.db.OciSchema.addColumn"),

    loaded_class(&OciLobClass, "trevalon/db/oci/OciLob", "trevalon.db.oci.OciLob"),
    field(&OciLobClass, "lobdata32", "I", &lobdata32iD, "lobdata32iD"),
    field(&OciLobClass, "lobdata64", "J", &lobdata64iD, "lobdata64iD"),
    field(&OciLobClass, "loberrcode", "I", &loberrcodeiD, "loberrcodeiD"),
};

// The class or member of a row; null where there is none. `owner` is the class found last.
void* look_up(JNIEnv* env, jobject obj, const Row& row, jclass owner) {
  switch (row.kind) {
    case Row::Kind::ObjectClass:
      return env->GetObjectClass(obj);
    case Row::Kind::LoadedClass:
      return TV_FindClass(env, obj, row.name);
    case Row::Kind::Field:
      return env->GetFieldID(owner, row.name, row.signature);
    case Row::Kind::StaticField:
      return env->GetStaticFieldID(owner, row.name, row.signature);
    case Row::Kind::Method:
      return env->GetMethodID(owner, row.name, row.signature);
  }
  return nullptr;
}

bool is_class(const Row& row) {
  return row.field == nullptr && row.method == nullptr;
}

void store(const Row& row, void* found) {
  if (is_class(row)) {
    *row.owner = static_cast<jclass>(found);
  } else if (row.field != nullptr) {
    *row.field = static_cast<jfieldID>(found);
  } else {
    *row.method = static_cast<jmethodID>(found);
  }
}

// What the rows name, in their order; null from the first on that is missing.
using Found = std::array<void*, std::size(kTable)>;

// The row that is missing; the table's end where none is.
const Row* look_up_all(JNIEnv* env, jobject obj, Found& found) {
  jclass owner = nullptr;
  void** at = found.data();
  for (const Row& row : kTable) {
    *at = look_up(env, obj, row, owner);
    if (*at == nullptr) return &row;
    if (is_class(row)) owner = static_cast<jclass>(*at);
    ++at;
  }
  return std::end(kTable);
}

// Up to the missing row, which is stored, too.
void store_all(const Found& found, const Row* missing) {
  void* const* at = found.data();
  for (const Row& row : kTable) {
    store(row, *at++);
    if (&row == missing) return;
  }
}

constexpr jclass* kClasses[] = {&OciConnectionClass, &OciColumnClass, &OciCursorClass,
                                &OciSchemaClass, &OciLobClass};

bool make_global(JNIEnv* env) {
  for (jclass* cached : kClasses) {
    *cached = static_cast<jclass>(env->NewGlobalRef(*cached));
    if (*cached == nullptr) return false;
  }
  return true;
}

// False where there is no memory for the references.
bool keep(JNIEnv* env, const Found& found, const Row* missing) {
  static std::mutex keeping;
  const std::lock_guard lock(keeping);
  // Another fill, on this thread or another, may have been faster.
  if (member_cache_complete) return true;
  store_all(found, missing);
  if (missing != std::end(kTable)) return true;
  member_cache_complete = make_global(env);
  return member_cache_complete;
}

}  // namespace

int tv_init_fid(JNIEnv* env, jobject obj) {
  TRACE("*** tv_init_fid: initializing JNI IDs and Handles");
  // Looking up runs static initialisers, which may call native_initialize, or wait for one that
  // does so on another thread: no lock is held, and the cache is not touched.
  Found found{};
  const Row* missing = look_up_all(env, obj, found);
  const bool kept = keep(env, found, missing);
  if (missing != std::end(kTable)) {
    missing->raise(env, missing->message);
    return -1;
  }
  if (kept) return 0;
  TV_ThrowInternalError(env, "!NewGlobalRef");
  return -1;
}
