#include "jvm_test.h"

namespace {

// Checked JNI, with its warnings on standard error, out of reach of captures. The JVM leaves
// signals alone, so that a crash in the library ends the test at once.
class JvmEnvironment : public testing::Environment {
 public:
  void SetUp() override {
    load_calls = calls();
    const std::string class_path = std::string("-Djava.class.path=") + ORALAYER_JAR;
    std::vector<JavaVMOption> options;
    for (const char* option : {class_path.c_str(), "-Xcheck:jni", "-Xrs", "-Xmx64m",
                               "-XX:+UseSerialGC", "-XX:+DisplayVMOutputToStderr"}) {
      options.push_back({const_cast<char*>(option), nullptr});
    }
    JavaVMInitArgs arguments{JNI_VERSION_1_8, static_cast<jint>(options.size()), options.data(),
                             JNI_FALSE};
    ASSERT_EQ(JNI_CreateJavaVM(&the_vm, reinterpret_cast<void**>(&env), &arguments), JNI_OK);
  }
};

const testing::Environment* const jvm_environment =
    testing::AddGlobalTestEnvironment(new JvmEnvironment);

std::string string_of(jobject object, const char* method) {
  const jmethodID id =
      env->GetMethodID(env->GetObjectClass(object), method, "()Ljava/lang/String;");
  const auto string = static_cast<jstring>(env->CallObjectMethod(object, id));
  return env->ExceptionCheck() || string == nullptr ? "null" : contents(string);
}

}  // namespace

void expect_in_order(const std::string& output, const Lines& texts) {
  std::size_t from = 0;
  for (const std::string& wanted : texts) {
    const std::size_t found = output.find(wanted, from);
    ASSERT_NE(found, std::string::npos) << "not found here: [" << wanted << "] in\n" << output;
    from = found + wanted.size();
  }
}

jobject allocate(const std::string& simple_name) {
  return env->AllocObject(env->FindClass(("trevalon/db/oci/" + simple_name).c_str()));
}

jint get_int(jobject object, const char* field) {
  return env->GetIntField(object, env->GetFieldID(env->GetObjectClass(object), field, "I"));
}

void set_int(jobject object, const char* field, jint value) {
  env->SetIntField(object, env->GetFieldID(env->GetObjectClass(object), field, "I"), value);
}

jbyteArray bytes(const std::string& values) {
  const auto length = static_cast<jsize>(values.size());
  const jbyteArray array = env->NewByteArray(length);
  env->SetByteArrayRegion(array, 0, length, reinterpret_cast<const jbyte*>(values.data()));
  return array;
}

std::string contents(jbyteArray array) {
  std::string result(static_cast<std::size_t>(env->GetArrayLength(array)), '\0');
  env->GetByteArrayRegion(array, 0, static_cast<jsize>(result.size()),
                          reinterpret_cast<jbyte*>(result.data()));
  return result;
}

std::string contents(jstring string) {
  const char* chars = env->GetStringUTFChars(string, nullptr);
  const std::string result = chars;
  env->ReleaseStringUTFChars(string, chars);
  return result;
}

std::string raised() {
  const jthrowable pending = env->ExceptionOccurred();
  if (pending == nullptr) return "";
  env->ExceptionClear();
  const std::string name = string_of(env->GetObjectClass(pending), "getName");
  return name + ": " + string_of(pending, "getMessage");
}

jobject new_connection(int elem, bool xa) {
  const jobject connection = allocate("OciConnection");
  const jfieldID is_xa = env->GetFieldID(env->GetObjectClass(connection), "isXA", "Z");
  env->SetBooleanField(connection, is_xa, xa);
  CONNECTION(native_1initialize)(env, connection, elem, nullptr, JNI_FALSE);
  return connection;
}

jobject new_column(int rows, int internal_type, int position) {
  const jobject column = allocate("OciColumn");
  COLUMN(initialize)(env, column, rows, 0);
  COLUMN(setPosition)(env, column, position);
  COLUMN(setDbType)(env, column, internal_type);
  return column;
}

jobject fetched_column(const Lines& rows, sword buflen, int internal_type) {
  const jobject column = new_column(static_cast<int>(rows.size()), internal_type);
  columndata* record = column_of(column);
  record->buflen = buflen;
  record->allocByteArray(buflen * static_cast<sword>(rows.size()));
  for (std::size_t i = 0; i < rows.size(); ++i) {
    rows[i].copy(reinterpret_cast<char*>(record->byte_arr) + i * static_cast<std::size_t>(buflen),
                 rows[i].size());
    record->retlenvect[i] = static_cast<ub2>(rows[i].size());
  }
  return column;
}

jobject new_lob(bool locator) {
  const jobject connection = new_connection();
  const jobject lob = allocate("OciLob");
  LOB(initialize)(env, lob);
  if (locator) LOB(allocLob)(env, lob, connection);
  return lob;
}

jobject new_cursor(bool open) {
  const jobject cursor = allocate("OciCursor");
  CURSOR(initialize)(env, cursor, 0);
  set_int(cursor, "selPieceLength", 4);
  if (open) CURSOR(open)(env, cursor, new_connection());
  calls();
  return cursor;
}

void forget_initialisation() {
  for (jfieldID* id : {&logondata32iD,    &logondata64iD,     &ldaerrcodeiD,    &oserrcodeiDconn,
                       &isXAID,           &inputStreamTypeID, &coldata32iD,     &coldata64iD,
                       &selPieceLengthID, &cdadata32iD,       &cdadata64iD,     &cdaerrorcodeiD,
                       &rowsprocessediD,  &parsererroffsetiD, &sqlfunccodeiD,   &ocifunccodeiD,
                       &oserrcodeiD,      &warnflagsiD,       &lobdata32iD,     &lobdata64iD,
                       &loberrcodeiD,     &AsciiStreamID,     &UnicodeStreamID, &BinaryStreamID,
                       &CharacterStreamID}) {
    *id = nullptr;
  }
  for (jclass* cached :
       {&OciConnectionClass, &OciColumnClass, &OciCursorClass, &OciSchemaClass, &OciLobClass}) {
    if (env->GetObjectRefType(*cached) == JNIGlobalRefType) env->DeleteGlobalRef(*cached);
    *cached = nullptr;
  }
  inited = 0;
  member_cache_complete = false;
}

Lines calls() {
  return std::exchange(oci_double::state().calls, {});
}

jobject new_stream(int position, jint piecelen) {
  const jobject column = new_column(1, -1, position);
  set_int(column, "input_stream_type", 3);
  COLUMN(setValueWithStream)(env, column, 10000, piecelen, 3, JNI_FALSE);
  return column;
}

Lines plus_cursor_codes(Lines before) {
  before.insert(before.end(), {kCode, "OCIAttrGet(stmt1,4,-,10,err1)",
                               "OCIAttrGet(stmt1,4,-,9,err1)", "OCIAttrGet(stmt1,4,-,1,err1)"});
  return before;
}

void JvmTest::SetUp() {
  ASSERT_EQ(env->PushLocalFrame(4000), 0);
  oci_double::state() = {};
  oci_debug = 0;
  connection = new_connection();
  calls();
}

void JvmTest::TearDown() {
  EXPECT_EQ(raised(), "") << "left pending";
  env->PopLocalFrame(nullptr);
}
