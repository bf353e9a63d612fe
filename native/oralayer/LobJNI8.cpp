// The error state of LOB objects.

#include "oralayer8.h"
#include "records.h"
#include "trace.h"

void assignLobCodes(JNIEnv* env, jobject obj, jobject connobj) {
  if (!env_and_object(env, obj)) return;
  if (!argument_given(env, connobj, "assignLobCodes: CONN is null")) return;
  const ldadata* ld = session_record(env, connobj, "assignLobCodes: LDA is null");
  if (ld == nullptr) return;
  const sb4 code = oracle_error(ld->errhp);
  TRACE("    loberrorcode", "=", code);
  env->SetIntField(obj, loberrcodeiD, code);
}

void clearLobErrorCodes(JNIEnv* env, jobject obj) {
  if (env_and_object(env, obj)) env->SetIntField(obj, loberrcodeiD, 0);
}
