// Class lookup, exceptions, and the cache of classes and members.
#include <cstdarg>

#include "exceptions.h"
#include "jvm_test.h"

namespace {

// What the exception says where a member is missing, in the order of their lookup; methods in
// parentheses. Names and signatures are right where a lookup finds what it asks for.
// clang-format off
const std::string kMessages[] = {
    "logondata64iD", "logondata32iD", "ldaerrcodeiD", "oserrcodeiDconn", "isXAID",
    "input_stream_type", "(OciColumnClass)", "columndata32", "columndata64",
    "(trevalon.db.OciCursor)", "(trevalon.db.OciCursor)", "(trevalon.db.OciCursor)", "ASCII_STREAM",
    "UNICODE_STREAM", "BINARY_STREAM", "CHARACTER_STREAM", "selPieceLengthID", "cdadata32iD",
    "cdadata64iD", "cdaerrorcodeiD", "rowsprocessediD", "parsererroffsetiD", "sqlfunccodeiD",
    "ocifunccodeiD", "oserrcodeiD", "warnflagsiD", "(trevalon.db.OciSchema.addColumn)",
    "lobdata32iD", "lobdata64iD", "loberrcodeiD"};
// clang-format on

// What went through the tables below, and what of it fails.
struct {
  std::size_t lookups = 0;  // of members
  std::size_t failing_lookup = SIZE_MAX;
  int globals_made = 0;
  int failing_global = -1;
  int helper_lookups = 0;
  std::string found_class;
  Lines loaded_classes;  // asked of a loader
  std::string lacking;  // the one of them that it has not
  jobject asked = nullptr;  // for its class
} seen;

const char* looked_up(const char* member) {
  return seen.lookups++ == seen.failing_lookup ? "absent" : member;
}

bool is_lookup_helper(const std::string& name) {
  return name == "getClass" || name == "getClassLoader" || name == "loadClass";
}

jobject call_object_method(JNIEnv* e, jobject object, jmethodID method, va_list arguments) {
  static const jmethodID load = e->GetMethodID(e->FindClass("java/lang/ClassLoader"), "loadClass",
                                               "(Ljava/lang/String;)Ljava/lang/Class;");
  if (method != load) {
    if (seen.asked == nullptr) seen.asked = object;
    return JniTable::real->CallObjectMethodV(e, object, method, arguments);
  }
  va_list copy;
  va_copy(copy, arguments);
  const auto name = va_arg(copy, jstring);
  va_end(copy);
  seen.loaded_classes.push_back(contents(name));
  if (seen.loaded_classes.back() != seen.lacking) {
    return JniTable::real->CallObjectMethodV(e, object, method, arguments);
  }
  e->ThrowNew(e->FindClass("java/lang/ClassNotFoundException"), "by the loader");
  return nullptr;
}

using Bridge = JvmTest;

/// Before the first call of the library, with its lookups and global references counted.
class Watched : public JniTable {
 public:
  Watched() {
    forget_initialisation();
    seen = {};
    copy.GetFieldID = [](JNIEnv* e, jclass c, const char* name, const char* sig) {
      return real->GetFieldID(e, c, looked_up(name), sig);
    };
    copy.GetStaticFieldID = [](JNIEnv* e, jclass c, const char* name, const char* sig) {
      return real->GetStaticFieldID(e, c, looked_up(name), sig);
    };
    copy.GetMethodID = [](JNIEnv* e, jclass c, const char* name, const char* sig) {
      if (!is_lookup_helper(name)) return real->GetMethodID(e, c, looked_up(name), sig);
      ++seen.helper_lookups;
      return real->GetMethodID(e, c, name, sig);
    };
    copy.NewGlobalRef = [](JNIEnv* e, jobject object) {
      return seen.globals_made++ == seen.failing_global ? nullptr : real->NewGlobalRef(e, object);
    };
    copy.CallObjectMethodV = call_object_method;
  }
};

TEST_F(Bridge, FirstMissingMemberEndsTheFillWithItsOwnException) {
  connection = allocate("OciConnection");
  for (std::size_t i = 0; i < std::size(kMessages); ++i) {
    const Watched table;
    seen.failing_lookup = i;
    EXPECT_EQ(tv_init_fid(env, connection), -1);
    EXPECT_EQ(seen.lookups, i + 1) << "later members are not looked up";
    EXPECT_EQ(seen.globals_made, 0);
    const std::string& text = kMessages[i];
    EXPECT_EQ(raised(), text[0] == '('
                            ? "java.lang.NoSuchMethodError: " + text.substr(1, text.size() - 2)
                            : "java.lang.NoSuchFieldException: " + text);
  }
  EXPECT_NE(lobdata64iD, nullptr);
  EXPECT_EQ(loberrcodeiD, nullptr);
}

TEST_F(Bridge, MissingClassEndsTheFillAndACorrectedPathMendsIt) {
  connection = allocate("OciConnection");
  for (const std::string missing : {"OciColumn", "OciCursor", "OciSchema", "OciLob"}) {
    const Watched table;
    seen.lacking = "trevalon.db.oci." + missing;
    CONNECTION(native_1initialize)(env, connection, 0, nullptr, JNI_FALSE);
    const std::string package = missing == "OciCursor" ? "trevalon.db." : "trevalon.db.oci.";
    expect_raised("ClassNotFoundException", package + missing);
    EXPECT_EQ(get_int(connection, "logondata32"), 0);
    EXPECT_EQ(inited, 0);
    EXPECT_THAT(calls(), IsEmpty());
  }
  EXPECT_NE(session_of(new_connection()), nullptr);
  EXPECT_EQ(inited, 1);
}

TEST_F(Bridge, FailedGlobalReferenceOrMissingRuntimeClassEndsTheFill) {
  connection = allocate("OciConnection");
  jclass* const in_order[] = {&OciConnectionClass, &OciColumnClass, &OciCursorClass,
                              &OciSchemaClass, &OciLobClass};
  for (int i = 0; i < 5; ++i) {
    const Watched table;
    seen.failing_global = i;
    EXPECT_EQ(tv_init_fid(env, connection), -1);
    expect_raised("InternalError", "!NewGlobalRef");
    EXPECT_EQ(*in_order[i], nullptr);
    EXPECT_EQ(seen.globals_made, i + 1);
  }
  Watched table;
  table.copy.GetObjectClass = [](JNIEnv*, jobject) -> jclass { return nullptr; };
  EXPECT_EQ(tv_init_fid(env, connection), -1);
  env->functions = JniTable::real;
  expect_raised("NullPointerException", "OciConnectionClass");
}

TEST_F(Bridge, FindClassUsesTheLoaderOfTheObjectIfAnyAndLeavesNothingPending) {
  connection = allocate("OciConnection");
  Watched table;
  table.copy.FindClass = [](JNIEnv* e, const char* name) {
    if (std::string(name).starts_with("trevalon")) ADD_FAILURE() << "not by the object's loader";
    seen.found_class = name;
    return JniTable::real->FindClass(e, name);
  };
  EXPECT_NE(TV_FindClass(env, connection, "trevalon/db/oci/OciColumn"), nullptr);
  EXPECT_EQ(raised(), "");
  EXPECT_EQ(TV_FindClass(env, connection, "trevalon/db/oci/Absent"), nullptr);
  EXPECT_THAT(raised(), HasSubstr("Absent"));
  EXPECT_TRUE(env->IsSameObject(seen.asked, connection));
  EXPECT_THAT(seen.loaded_classes,
              ElementsAre("trevalon/db/oci/OciColumn", "trevalon.db.oci.OciColumn",
                          "trevalon/db/oci/Absent", "trevalon.db.oci.Absent"));
  seen.helper_lookups = 0;
  const jobject text = env->NewStringUTF("of the bootstrap loader");
  EXPECT_NE(TV_FindClass(env, text, "java/util/ArrayList"), nullptr);
  EXPECT_EQ(seen.found_class, "java/util/ArrayList");
  EXPECT_EQ(seen.helper_lookups, 0) << "the helper methods are looked up once per process";
}

TEST_F(Bridge, AnExceptionWithoutAClassIsThatOfItsLookup) {
  TV_ThrowByName(env, "no/such/Exception", "lost");
  EXPECT_THAT(raised(), HasSubstr("NoClassDefFoundError"));
}

// Run by a test of its own, which expects the warning: proof that the filter of all others works.
TEST_F(Bridge, DISABLED_CallWithAnExceptionPendingIsReported) {
  TV_ThrowInternalError(env, "pending");
  get_int(allocate("OciColumn"), "coldata32");
  raised();
}

}  // namespace
