// Class lookup, exceptions, and the cache of classes and members.
#include <filesystem>

#include "exceptions.h"
#include "jvm_test.h"

namespace {

struct Member {
  const char* name;
  const char* signature;
  const char* exception;
  const char* message;
};

const char* const kField = "java.lang.NoSuchFieldException";
const char* const kMethod = "java.lang.NoSuchMethodError";

const Member kMembers[] = {{"logondata64", "J", kField, "logondata64iD"},
                           {"logondata32", "I", kField, "logondata32iD"},
                           {"ldaerrcode", "I", kField, "ldaerrcodeiD"},
                           {"oserrcode", "I", kField, "oserrcodeiDconn"},
                           {"isXA", "Z", kField, "isXAID"},
                           {"input_stream_type", "I", kField, "input_stream_type"},
                           {"<init>", "(ILjava/lang/String;)V", kMethod, "OciColumnClass"},
                           {"coldata32", "I", kField, "columndata32"},
                           {"coldata64", "J", kField, "columndata64"},
                           {"<init>", "(Ltrevalon/db/oci/OciConnection;IIZLjava/lang/String;)V",
                            kMethod, "trevalon.db.OciCursor"},
                           {"getNextStreamBuffer", "([BIII)I", kMethod, "trevalon.db.OciCursor"},
                           {"hasBlobColumn", "()Z", kMethod, "trevalon.db.OciCursor"},
                           {"ASCII_STREAM", "I", kField, "ASCII_STREAM"},
                           {"UNICODE_STREAM", "I", kField, "UNICODE_STREAM"},
                           {"BINARY_STREAM", "I", kField, "BINARY_STREAM"},
                           {"CHARACTER_STREAM", "I", kField, "CHARACTER_STREAM"},
                           {"selPieceLength", "I", kField, "selPieceLengthID"},
                           {"cursordata32", "I", kField, "cdadata32iD"},
                           {"cursordata64", "J", kField, "cdadata64iD"},
                           {"cdaerrorcode", "I", kField, "cdaerrorcodeiD"},
                           {"rowsprocessed", "I", kField, "rowsprocessediD"},
                           {"parsererroffset", "I", kField, "parsererroffsetiD"},
                           {"sqlfunccode", "I", kField, "sqlfunccodeiD"},
                           {"ocifunccode", "I", kField, "ocifunccodeiD"},
                           {"oserrcode", "I", kField, "oserrcodeiD"},
                           {"warnflags", "I", kField, "warnflagsiD"},
                           {"addColumn", "(Ltrevalon/db/oci/OciColumn;)Ltrevalon/db/oci/OciSchema;",
                            kMethod, "trevalon.db.OciSchema.addColumn"},
                           {"lobdata32", "I", kField, "lobdata32iD"},
                           {"lobdata64", "J", kField, "lobdata64iD"},
                           {"loberrcode", "I", kField, "loberrcodeiD"}};

// Member lookups made through the table below, and the one of them that finds nothing.
Lines lookups;
std::size_t failing_lookup;
// Global references made, and the one of them that fails.
int globals_made;
int failing_global;
std::string found_class;

const char* looked_up(const char* member, const char* signature) {
  lookups.push_back(std::string(member) + " " + signature);
  return lookups.size() - 1 == failing_lookup ? "absent" : member;
}

bool is_lookup_helper(const char* name) {
  return std::string(name) == "getClass" || std::string(name) == "getClassLoader" ||
         std::string(name) == "loadClass";
}

class Bridge : public JvmTest {
 protected:
  Bridge() {
    lookups.clear();
    failing_lookup = SIZE_MAX;
    globals_made = 0;
    failing_global = -1;
    found_class.clear();
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

  // False on the double of a JVM, which has no loaders that could be made.
  static bool has_loaders() {
    const bool has = find_class("java/net/URLClassLoader") != nullptr;
    raised();
    return has;
  }

  // A peer class loaded by a loader of its own, from a folder that lacks one class.
  static jobject connection_without(const std::string& missing) {
    namespace fs = std::filesystem;
    const fs::path folder = fs::path(ORALAYER_CLASSES).parent_path() / "variant" / missing;
    fs::remove_all(folder);
    fs::create_directories(folder);
    fs::copy(ORALAYER_CLASSES, folder, fs::copy_options::recursive);
    fs::remove(folder / "trevalon/db/oci" / (missing + ".class"));
    const jobject url = construct("java/net/URL", "(Ljava/lang/String;)V",
                                  env->NewStringUTF(("file:" + folder.string() + "/").c_str()));
    const jclass loader_class = find_class("java/net/URLClassLoader");
    const jobject platform_loader = env->CallStaticObjectMethod(
        loader_class, env->GetStaticMethodID(loader_class, "getPlatformClassLoader",
                                             "()Ljava/lang/ClassLoader;"));
    EXPECT_FALSE(env->ExceptionCheck());
    const jobject loader =
        construct("java/net/URLClassLoader", "([Ljava/net/URL;Ljava/lang/ClassLoader;)V",
                  env->NewObjectArray(1, find_class("java/net/URL"), url), platform_loader);
    const jobject connection_class = env->CallObjectMethod(
        loader,
        env->GetMethodID(loader_class, "loadClass", "(Ljava/lang/String;)Ljava/lang/Class;"),
        env->NewStringUTF("trevalon.db.oci.OciConnection"));
    if (env->ExceptionCheck()) return nullptr;
    return env->AllocObject(static_cast<jclass>(connection_class));
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
    EXPECT_EQ(raised(), std::string(kMembers[i].exception) + ": " + kMembers[i].message);
  }
  EXPECT_NE(lobdata64iD, nullptr);
  EXPECT_EQ(loberrcodeiD, nullptr);
}

TEST_F(Bridge, MissingClassEndsTheFillAndACorrectedPathMendsIt) {
  if (!has_loaders()) GTEST_SKIP() << "needs class loaders";
  const std::pair<const char*, const char*> cases[] = {{"OciColumn", "trevalon.db.oci.OciColumn"},
                                                       {"OciCursor", "trevalon.db.OciCursor"},
                                                       {"OciSchema", "trevalon.db.oci.OciSchema"},
                                                       {"OciLob", "trevalon.db.oci.OciLob"}};
  for (const auto& [missing, message] : cases) {
    forget_initialisation();
    const jobject connection = connection_without(missing);
    ASSERT_NE(connection, nullptr) << raised();
    CONNECTION(native_1initialize)(env, connection, 0, nullptr, JNI_FALSE);
    EXPECT_EQ(raised(), std::string("java.lang.ClassNotFoundException: ") + message);
    EXPECT_EQ(get_int(connection, "logondata32"), 0);
    EXPECT_EQ(inited, 0);
    EXPECT_THAT(calls(), testing::IsEmpty());
  }
  EXPECT_NE(session_of(new_connection()), nullptr);
  EXPECT_EQ(inited, 1);
}

TEST_F(Bridge, FailedGlobalReferenceEndsTheFill) {
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
}

TEST_F(Bridge, MissingRuntimeClassOfTheConnection) {
  forget_initialisation();
  const jobject connection = allocate("OciConnection");
  JniTable table;
  table.copy.GetObjectClass = [](JNIEnv*, jobject) -> jclass { return nullptr; };
  EXPECT_EQ(tv_init_fid(env, connection), -1);
  env->functions = JniTable::real;
  expect_raised("NullPointerException", "OciConnectionClass");
}

TEST_F(Bridge, FindClassUsesTheLoaderOfTheObjectAndLeavesNothingPending) {
  if (!has_loaders()) GTEST_SKIP() << "needs class loaders";
  const jobject connection = allocate("OciConnection");
  EXPECT_NE(TV_FindClass(env, connection, "trevalon/db/oci/OciColumn"), nullptr);
  EXPECT_EQ(raised(), "");
  EXPECT_EQ(TV_FindClass(env, connection, "trevalon/db/oci/Absent"), nullptr);
  EXPECT_THAT(raised(), testing::HasSubstr("Absent"));
  const jobject of_loader = connection_without("OciLob");
  EXPECT_NE(TV_FindClass(env, of_loader, "trevalon/db/oci/OciColumn"), nullptr);
  EXPECT_EQ(raised(), "");
  EXPECT_EQ(TV_FindClass(env, of_loader, "trevalon/db/oci/OciLob"), nullptr)
      << "found by another loader than the object's";
  raised();
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
