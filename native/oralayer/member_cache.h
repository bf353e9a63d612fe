// The Java classes, fields and methods that the library uses, resolved once per process.
#ifndef ORALAYER_MEMBER_CACHE_H
#define ORALAYER_MEMBER_CACHE_H

#include <jni.h>

#include <atomic>

// Some are resolved only, so that a class that lacks them is refused when the library is
// initialised.
extern jclass OciConnectionClass, OciColumnClass, OciCursorClass, OciSchemaClass, OciLobClass;

extern jfieldID logondata32iD, logondata64iD, ldaerrcodeiD, oserrcodeiDconn, isXAID;
extern jfieldID inputStreamTypeID, coldata32iD, coldata64iD;
extern jfieldID selPieceLengthID, cdadata32iD, cdadata64iD, cdaerrorcodeiD, rowsprocessediD,
    parsererroffsetiD, sqlfunccodeiD, ocifunccodeiD, oserrcodeiD, warnflagsiD;
extern jfieldID lobdata32iD, lobdata64iD, loberrcodeiD;
extern jfieldID AsciiStreamID, UnicodeStreamID, BinaryStreamID, CharacterStreamID;

extern jmethodID OciColumnCons, OciCursorCons, getNextStreamBuffer, hasBlobColumn, addColumn;

/// 1 once the cache, the NLS setup and OCIInitialize have all run.
extern std::atomic<int> inited;

/// True once tv_init_fid has stored all, with references that last; guarded by its lock.
extern bool member_cache_complete;

/// Fills the cache from the classes that obj's loader sees. Returns 0, or -1 with the exception of
/// the first entry that could not be resolved pending; a later call starts again.
int tv_init_fid(JNIEnv* env, jobject obj);

/// True once the whole table is resolved: before that no field may be read by its identifier.
inline bool member_cache_filled() {
  return loberrcodeiD != nullptr;
}

#endif
