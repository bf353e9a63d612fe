// Class lookup, exceptions, and the cache of classes and members.
#include <cstdarg>

#include "exceptions.h"
#include "jvm_test.h"

namespace {

struct Member {
  const char* name;
  const char* signature;
  const char* message;
};

// In the order of their lookup: name, signature, and the message where it is missing.
// clang-format off
const Member kMembers[] = {
  {"logondata64", "J", "logondata64iD"}, {"logondata32", "I", "logondata32iD"},
  {"ldaerrcode", "I", "ldaerrcodeiD"}, {"oserrcode", "I", "oserrcodeiDconn"},
  {"isXA", "Z", "isXAID"}, {"input_stream_type", "I", "input_stream_type"},
  {"<init>", "(ILjava/lang/String;)V", "OciColumnClass"}, {"coldata32", "I", "columndata32"},
  {"coldata64", "J", "columndata64"},
  {"<init>", "(Ltrevalon/db/oci/OciConnection;IIZLjava/lang/String;)V", "trevalon.db.OciCursor"},
  {"getNextStreamBuffer", "([BIII)I", "trevalon.db.OciCursor"},
  {"hasBlobColumn", "()Z", "trevalon.db.OciCursor"}, {"ASCII_STREAM", "I", "ASCII_STREAM"},
  {"UNICODE_STREAM", "I", "UNICODE_STREAM"}, {"BINARY_STREAM", "I", "BINARY_STREAM"},
  {"CHARACTER_STREAM", "I", "CHARACTER_STREAM"}, {"selPieceLength", "I", "selPieceLengthID"},
  {"cursordata32", "I", "cdadata32iD"}, {"cursordata64", "J", "cdadata64iD"},
  {"cdaerrorcode", "I", "cdaerrorcodeiD"}, {"rowsprocessed", "I", "rowsprocessediD"},
  {"parsererroffset", "I", "parsererroffsetiD"}, {"sqlfunccode", "I", "sqlfunccodeiD"},
  {"ocifunccode", "I", "ocifunccodeiD"}, {"oserrcode", "I", "oserrcodeiD"},
  {"warnflags", "I", "warnflagsiD"},
  {"addColumn", "(Ltrevalon/db/oci/OciColumn;)Ltrevalon/db/oci/OciSchema;", "trevalon.db.OciSchema.addColumn"},
  {"lobdata32", "I", "lobdata32iD"}, {"lobdata64", "J", "lobdata64iD"},
  {"loberrcode", "I", "loberrcodeiD"}};
// clang-format on

// Member lookups made through the table below, and the one of them that finds nothing.
Lines lookups;
std::size_t failing_lookup;
// Global references made, and the one of them that fails.
int globals_made;
int failing_global;
std::string found_class;
// Classes asked of a loader, the one of them that it lacks, and the object whose class was asked.
Lines loaded_classes;
std::string lacking;
jobject asked;

const char* looked_up(const char* member, const char* signature) {
  lookups.push_back(std::string(member) + " " + signature);
  return lookups.size() - 1 == failing_lookup ? "absent" : member;
}

bool is_lookup_helper(const char* name) {
  return std::string(name) == "getClass" || std::string(name) == "getClassLoader" ||
         std::string(name) == "loadClass";
}

jobject call_object_method(JNIEnv* e, jobject object, jmethodID method, va_list arguments) {
  static const jmethodID load = e->GetMethodID(e->FindClass("java/lang/ClassLoader"), "loadClass",
                                               "(Ljava/lang/String;)Ljava/lang/Class;");
  if (method != load) {
    if (asked == nullptr) asked = object;
    return JniTable::real->CallObjectMethodV(e, object, method, arguments);
  }
  va_list copy;
  va_copy(copy, arguments);
  const auto name = va_arg(copy, jstring);
  va_end(copy);
  const char* chars = e->GetStringUTFChars(name, nullptr);
  loaded_classes.emplace_back(chars);
  e->ReleaseStringUTFChars(name, chars);
  if (loaded_classes.back() != lacking) {
    return JniTable::real->CallObjectMethodV(e, object, method, arguments);
  }
  e->ThrowNew(e->FindClass("java/lang/ClassNotFoundException"), "by the loader");
  return nullptr;
}

class Bridge : public JvmTest {
 protected:
  Bridge() {
    lookups.clear();
    failing_lookup = SIZE_MAX;
    globals_made = 0;
    failing_global = -1;
    found_class.clear();
    loaded_classes.clear();
    lacking.clear();
    asked = nullptr;
  }

  static void watch(JniTable& table) {
    table.copy.GetFieldID = [](JNIEnv* e, jclass c, const char* name, const char* sig) {
      return JniTable::real->GetFieldID(e, c, looked_up(name, sig), sig);
    };
    table.copy.GetStaticFieldID = [](JNIEnv* e, jclass c, const char* name, const char* sig) {
      return JniTable::real->GetStaticFieldID(e, c, looked_up(name, sig), sig);
    };
    table.copy.GetMethodID = [](JNIEnv* e, jclass c, const char* name, const char* sig) {
      const char* wanted = is_lookup_helper(name) ? name : looked_up(name, sig);
      return JniTable::real->GetMethodID(e, c, wanted, sig);
    };
    table.copy.NewGlobalRef = [](JNIEnv* e, jobject object) {
      return globals_made++ == failing_global ? nullptr : JniTable::real->NewGlobalRef(e, object);
    };
  }
};

TEST_F(Bridge, ResolvesEveryMemberInOrderThenNeverAgain) {
  forget_initialisation();
  Lines expected;
  for (const Member& m : kMembers) expected.push_back(std::string(m.name) + " " + m.signature);
  const jobject connection = allocate("OciConnection");
  JniTable table;
  watch(table);
  CONNECTION(native_1initialize)(env, connection, 0, nullptr, JNI_FALSE);
  EXPECT_EQ(lookups, expected);
  EXPECT_EQ(globals_made, 5);
  for (jclass cached :
       {OciConnectionClass, OciColumnClass, OciCursorClass, OciSchemaClass, OciLobClass}) {
    EXPECT_EQ(env->GetObjectRefType(cached), JNIGlobalRefType);
  }
  CONNECTION(native_1initialize)(env, connection, 0, nullptr, JNI_FALSE);
  EXPECT_EQ(lookups.size(), expected.size());
}

TEST_F(Bridge, FirstMissingMemberEndsTheFillWithItsOwnException) {
  const jobject connection = allocate("OciConnection");
  for (std::size_t i = 0; i < std::size(kMembers); ++i) {
    forget_initialisation();
    lookups.clear();
    failing_lookup = i;
    globals_made = 0;
    JniTable table;
    watch(table);
    SCOPED_TRACE(kMembers[i].message);
    EXPECT_EQ(tv_init_fid(env, connection), -1);
    EXPECT_EQ(lookups.size(), i + 1) << "later members are not looked up";
    EXPECT_EQ(globals_made, 0);
    const bool is_method = *kMembers[i].signature == '(';
    EXPECT_EQ(raised(), std::string(is_method ? "java.lang.NoSuchMethodError"
                                              : "java.lang.NoSuchFieldException") +
                            ": " + kMembers[i].message);
  }
  EXPECT_NE(lobdata64iD, nullptr);
  EXPECT_EQ(loberrcodeiD, nullptr);
}

TEST_F(Bridge, MissingClassEndsTheFillAndACorrectedPathMendsIt) {
  const std::pair<const char*, const char*> cases[] = {{"OciColumn", "trevalon.db.oci.OciColumn"},
                                                       {"OciCursor", "trevalon.db.OciCursor"},
                                                       {"OciSchema", "trevalon.db.oci.OciSchema"},
                                                       {"OciLob", "trevalon.db.oci.OciLob"}};
  const jobject connection = allocate("OciConnection");
  for (const auto& [missing, message] : cases) {
    forget_initialisation();
    lacking = std::string("trevalon.db.oci.") + missing;
    JniTable table;
    table.copy.CallObjectMethodV = call_object_method;
    CONNECTION(native_1initialize)(env, connection, 0, nullptr, JNI_FALSE);
    EXPECT_EQ(raised(), std::string("java.lang.ClassNotFoundException: ") + message);
    EXPECT_EQ(get_int(connection, "logondata32"), 0);
    EXPECT_EQ(inited, 0);
    EXPECT_THAT(calls(), testing::IsEmpty());
  }
  EXPECT_NE(session_of(new_connection()), nullptr);
  EXPECT_EQ(inited, 1);
}

TEST_F(Bridge, FailedGlobalReferenceOrMissingRuntimeClassEndsTheFill) {
  const jobject connection = allocate("OciConnection");
  jclass* const in_order[] = {&OciConnectionClass, &OciColumnClass, &OciCursorClass,
                              &OciSchemaClass, &OciLobClass};
  for (int i = 0; i < 5; ++i) {
    forget_initialisation();
    globals_made = 0;
    failing_global = i;
    JniTable table;
    watch(table);
    EXPECT_EQ(tv_init_fid(env, connection), -1);
    expect_raised("InternalError", "!NewGlobalRef");
    EXPECT_EQ(*in_order[i], nullptr);
    EXPECT_EQ(globals_made, i + 1);
  }
  forget_initialisation();
  JniTable table;
  table.copy.GetObjectClass = [](JNIEnv*, jobject) -> jclass { return nullptr; };
  EXPECT_EQ(tv_init_fid(env, connection), -1);
  env->functions = JniTable::real;
  expect_raised("NullPointerException", "OciConnectionClass");
}

TEST_F(Bridge, FindClassUsesTheLoaderOfTheObjectAndLeavesNothingPending) {
  const jobject connection = allocate("OciConnection");
  JniTable table;
  table.copy.CallObjectMethodV = call_object_method;
  table.copy.FindClass = [](JNIEnv* e, const char* name) {
    if (std::string(name).starts_with("trevalon")) ADD_FAILURE() << "not by the object's loader";
    return JniTable::real->FindClass(e, name);
  };
  EXPECT_NE(TV_FindClass(env, connection, "trevalon/db/oci/OciColumn"), nullptr);
  EXPECT_EQ(raised(), "");
  EXPECT_EQ(TV_FindClass(env, connection, "trevalon/db/oci/Absent"), nullptr);
  EXPECT_THAT(raised(), testing::HasSubstr("Absent"));
  EXPECT_TRUE(env->IsSameObject(asked, connection));
  EXPECT_THAT(loaded_classes,
              testing::IsSupersetOf({"trevalon.db.oci.OciColumn", "trevalon.db.oci.Absent"}));
}

TEST_F(Bridge, BootstrapObjectFallsBackToPlainFindClass) {
  const jobject text = env->NewStringUTF("of the bootstrap loader");
  TV_FindClass(env, allocate("OciConnection"), "trevalon/db/oci/OciColumn");
  static int method_lookups = 0;
  JniTable table;
  table.copy.FindClass = [](JNIEnv* e, const char* name) {
    found_class = name;
    return JniTable::real->FindClass(e, name);
  };
  table.copy.GetMethodID = [](JNIEnv* e, jclass c, const char* name, const char* sig) {
    ++method_lookups;
    return JniTable::real->GetMethodID(e, c, name, sig);
  };
  EXPECT_NE(TV_FindClass(env, text, "java/util/ArrayList"), nullptr);
  EXPECT_EQ(found_class, "java/util/ArrayList");
  EXPECT_EQ(method_lookups, 0) << "the helper methods are looked up once per process";
}

TEST_F(Bridge, ThrowersRaiseTheirClassAndReplaceAPendingException) {
  const std::pair<void (*)(JNIEnv*, const char*), std::string> cases[] = {
      {TV_ThrowNullPointerException, "java.lang.NullPointerException"},
      {TV_ThrowNoSuchFieldException, "java.lang.NoSuchFieldException"},
      {TV_ThrowClassNotFoundException, "java.lang.ClassNotFoundException"},
      {TV_ThrowNoSuchMethodError, "java.lang.NoSuchMethodError"},
      {TV_ThrowInternalError, "java.lang.InternalError"},
      {TV_ThrowOutOfMemoryError, "java.lang.OutOfMemoryError"},
      {TV_ThrowSQLException, "java.sql.SQLException"}};
  for (const auto& [thrower, name] : cases) {
    find_class("no/such/Class");
    thrower(env, "!NewGlobalRef");
    EXPECT_EQ(raised(), name + ": !NewGlobalRef") << "in place of the one that was pending";
    thrower(nullptr, "no environment");
  }
  TV_ThrowByName(env, "no/such/Exception", "lost");
  EXPECT_THAT(raised(), testing::HasSubstr("NoClassDefFoundError"));
}

// Run by a test of its own, which expects the warning: proof that the filter of all others works.
TEST_F(Bridge, DISABLED_CallWithAnExceptionPendingIsReported) {
  TV_ThrowInternalError(env, "pending");
  get_int(allocate("OciColumn"), "coldata32");
  raised();
}

}  // namespace
