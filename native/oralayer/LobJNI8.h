// What the modules of the LOB family share among themselves.
#ifndef ORALAYER_LOBJNI8_H
#define ORALAYER_LOBJNI8_H

#include "oralayer8.h"

/// The checks that every LOB call begins with, in their order: "JNIEnv", "CONN is null", "LDA is
/// null". The connection's session; null after raising.
ldadata* lob_session(JNIEnv* env, jobject obj, jobject connobj);

/// The result of a LOB call for Java: true where OCI failed, whose code is then in loberrcode.
jboolean lob_result(JNIEnv* env, jobject obj, jobject connobj, sword status);

#endif
