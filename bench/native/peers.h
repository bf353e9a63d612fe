// Objects of the Java classes with the library's native methods called on them, in a real JVM or in
// its double: a session on a database in memory, a query with its columns, bind variables.
#ifndef BENCH_PEERS_H
#define BENCH_PEERS_H

#include <jni.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "trevalon_db_oci_OciColumn.h"
#include "trevalon_db_oci_OciConnection.h"
#include "trevalon_db_oci_OciCursor.h"
#include "trevalon_db_oci_OciLob.h"

#define CONNECTION(method) Java_trevalon_db_oci_OciConnection_##method
#define CURSOR(method) Java_trevalon_db_oci_OciCursor_##method
#define COLUMN(method) Java_trevalon_db_oci_OciColumn_##method
#define LOB(method) Java_trevalon_db_oci_OciLob_##method

namespace bench {

class Peers {
 public:
  explicit Peers(JNIEnv* environment) : env(environment) {
    connection = allocate("OciConnection");
    CONNECTION(native_1initialize)
    (env, connection, 0, bytes("AMERICAN_AMERICA.UTF8"), JNI_FALSE);
    must(CONNECTION(native_1loginwithblock)(env, connection, bytes("bench"), bytes("bench"),
                                            bytes(":memory:"), JNI_TRUE),
         "login");
  }

  jobject allocate(const std::string& name) {
    const jclass its_class = env->FindClass(("trevalon/db/oci/" + name).c_str());
    if (its_class == nullptr) fail(name);
    return env->AllocObject(its_class);
  }

  jbyteArray bytes(const std::string& values) {
    const auto length = static_cast<jsize>(values.size());
    const jbyteArray array = env->NewByteArray(length);
    env->SetByteArrayRegion(array, 0, length, reinterpret_cast<const jbyte*>(values.data()));
    return array;
  }

  jobject new_column(jint position) {
    const jobject column = allocate("OciColumn");
    COLUMN(initialize)(env, column, 1, 0);
    COLUMN(setPosition)(env, column, position);
    return column;
  }

  /// A cursor with a parsed statement.
  jobject new_cursor(const std::string& sql) {
    const jobject cursor = allocate("OciCursor");
    const jfieldID piece = env->GetFieldID(env->GetObjectClass(cursor), "selPieceLength", "I");
    env->SetIntField(cursor, piece, 32 * 1024);
    CURSOR(initialize)(env, cursor, 0);
    must(CURSOR(open)(env, cursor, connection), "open");
    must(CURSOR(parse)(env, cursor, bytes(sql), JNI_FALSE), sql);
    return cursor;
  }
  void run(const std::string& sql) {
    const jobject cursor = new_cursor(sql);
    must(CURSOR(exec)(env, cursor), sql);
    CURSOR(close)(env, cursor);
    CURSOR(native_1finalize)(env, cursor);
  }

  /// The columns of a query, ready for arrays of so many rows.
  std::vector<jobject> define(jobject cursor, jint columns, jint rows) {
    std::vector<jobject> made;
    for (jint i = 1; i <= columns; ++i) {
      made.push_back(new_column(i));
      must(CURSOR(describe)(env, cursor, made.back()), "describe");
    }
    for (const jobject column : made) {
      must(CURSOR(bindSelectItem)(env, cursor, column, rows), "define");
    }
    return made;
  }

  void must(jboolean failed, const std::string& what) {
    if (failed != JNI_FALSE || env->ExceptionCheck() != JNI_FALSE) fail(what);
  }

  JNIEnv* env;
  jobject connection;

 private:
  [[noreturn]] static void fail(const std::string& what) {
    std::fprintf(stderr, "failed: %s\n", what.c_str());
    std::exit(1);
  }
};

}  // namespace bench

#endif
