// Class lookup and the raising of Java exceptions: the only way in which a native failure becomes
// an exception.
#ifndef ORALAYER_EXCEPTIONS_H
#define ORALAYER_EXCEPTIONS_H

#include <jni.h>

/// Finds `className` (slash-separated) through the class loader of obj's class, or through JNI's
/// FindClass where that class has none. Returns a local reference, or null, then possibly with the
/// loader's exception pending.
jclass TV_FindClass(JNIEnv* env, jobject obj, const char* className);

/// Raises an exception of class `name` (slash-separated) and replaces one that is pending, so that
/// what Java sees is the library's own. Without an environment nothing can be raised.
void TV_ThrowByName(JNIEnv* env, const char* name, const char* msg);

void TV_ThrowNullPointerException(JNIEnv* env, const char* msg);
void TV_ThrowNoSuchFieldException(JNIEnv* env, const char* msg);
void TV_ThrowClassNotFoundException(JNIEnv* env, const char* msg);
void TV_ThrowNoSuchMethodError(JNIEnv* env, const char* msg);
void TV_ThrowInternalError(JNIEnv* env, const char* msg);
void TV_ThrowOutOfMemoryError(JNIEnv* env, const char* msg);
void TV_ThrowSQLException(JNIEnv* env, const char* msg);

/// For an index from Java that lies outside what the record holds.
void TV_ThrowIndexOutOfBounds(JNIEnv* env, const char* msg);

#endif
