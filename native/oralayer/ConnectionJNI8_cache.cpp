// The member cache: every Java class, field and method that the library uses.

#include <iterator>

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

// Stores what was found, null included, before the caller looks at it.
bool resolve(JNIEnv* env, jobject obj, const Row& row) {
  switch (row.kind) {
    case Row::Kind::ObjectClass:
      return (*row.owner = env->GetObjectClass(obj)) != nullptr;
    case Row::Kind::LoadedClass:
      return (*row.owner = TV_FindClass(env, obj, row.name)) != nullptr;
    case Row::Kind::Field:
      return (*row.field = env->GetFieldID(*row.owner, row.name, row.signature)) != nullptr;
    case Row::Kind::StaticField:
      return (*row.field = env->GetStaticFieldID(*row.owner, row.name, row.signature)) != nullptr;
    case Row::Kind::Method:
      return (*row.method = env->GetMethodID(*row.owner, row.name, row.signature)) != nullptr;
  }
  return false;
}

constexpr jclass* kClasses[] = {&OciConnectionClass, &OciColumnClass, &OciCursorClass,
                                &OciSchemaClass, &OciLobClass};

}  // namespace

int tv_init_fid(JNIEnv* env, jobject obj) {
  TRACE("*** tv_init_fid: initializing JNI IDs and Handles");
  static unsigned fills = 0;  // under the caller's lock
  const int before = inited.load(std::memory_order_relaxed);
  unsigned mine = ++fills;
  for (const Row* row = std::begin(kTable); row != std::end(kTable);) {
    if (!resolve(env, obj, *row)) {
      row->raise(env, row->message);
      return -1;
    }
    // A static initialiser that has run meanwhile may have called native_initialize. Where that
    // one did it all, this fill is done, too; where it failed, its references to classes are gone.
    if (inited.load(std::memory_order_relaxed) != before) break;
    row = fills == mine ? row + 1 : std::begin(kTable);
    mine = fills;
  }
  for (jclass* cached : kClasses) {
    if (env->GetObjectRefType(*cached) == JNIGlobalRefType) continue;
    *cached = static_cast<jclass>(env->NewGlobalRef(*cached));
    if (*cached == nullptr) {
      TV_ThrowInternalError(env, "!NewGlobalRef");
      return -1;
    }
  }
  return 0;
}
