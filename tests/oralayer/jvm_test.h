// The fixture of the tests that run inside a JVM, and what they share: Java objects of the peer
// classes, exceptions, captured standard output, faults in the JNI function table.
#ifndef ORALAYER_JVM_TEST_H
#define ORALAYER_JVM_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "oci_double.h"
#include "oralayer8.h"
#include "trace.h"
#include "trevalon_db_oci_OciColumn.h"
#include "trevalon_db_oci_OciConnection.h"
#include "trevalon_db_oci_OciCursor.h"
#include "trevalon_db_oci_OciLob.h"

#define CONNECTION(method) Java_trevalon_db_oci_OciConnection_##method
#define CURSOR(method) Java_trevalon_db_oci_OciCursor_##method
#define COLUMN(method) Java_trevalon_db_oci_OciColumn_##method
#define LOB(method) Java_trevalon_db_oci_OciLob_##method

using Lines = std::vector<std::string>;
using oci_double::state;
using testing::Contains, testing::Each, testing::ElementsAre, testing::HasSubstr, testing::IsEmpty;
using testing::Not, oci_double::name;

inline JavaVM* the_vm = nullptr;
inline JNIEnv* env = nullptr;  // of the main thread
/// The calls that the library made while it was loaded.
inline Lines load_calls;

/// What the process writes to its standard output during `action`.
template <typename Action>
std::string captured(Action action) {
  testing::internal::CaptureStdout();
  action();
  return testing::internal::GetCapturedStdout();
}
/// Runs `action` with the trace on; what it wrote, addresses replaced by PTR.
template <typename Action>
std::string traced(Action action) {
  oci_debug = 1;
  const std::string output = captured(action);
  oci_debug = 0;
  return std::regex_replace(output, std::regex("0x[0-9a-f]+"), "PTR");
}
/// Expects the texts in this order in the output, other text between them.
void expect_in_order(const std::string& output, const Lines& texts);
template <typename Action>
void expect_trace(const Lines& texts, Action action) {
  expect_in_order(traced(action), texts);
}

/// A copy of the JNI function table in place of the thread's own, for its lifetime.
class JniTable {
 public:
  JniTable() : copy(*env->functions) {
    real = env->functions;
    env->functions = &copy;
  }
  ~JniTable() { env->functions = real; }
  JniTable(const JniTable&) = delete;
  JniTable& operator=(const JniTable&) = delete;

  JNINativeInterface_ copy;
  inline static const JNINativeInterface_* real = nullptr;
};

template <typename Array = jbyteArray, typename Element = jbyte>
Element* pin_nothing(JNIEnv*, Array, jboolean*) {
  return nullptr;
}

/// Notes how each pin of a byte array was released.
class PinWatch : public JniTable {
 public:
  PinWatch() {
    releases.clear();
    copy.ReleaseByteArrayElements = [](JNIEnv* e, jbyteArray array, jbyte* elements, jint mode) {
      releases.push_back(mode);
      real->ReleaseByteArrayElements(e, array, elements, mode);
    };
  }

  inline static std::vector<jint> releases;
};

/// An object of a class of the package, made without its constructor.
jobject allocate(const std::string& simple_name);
jint get_int(jobject object, const char* field);
void set_int(jobject object, const char* field, jint value);
jbyteArray bytes(const std::string& contents);
std::string contents(jbyteArray array);
std::string contents(jstring string);

/// The class (with dots) and message of the pending exception, "Class: message", or "". Clears it.
std::string raised();
inline void expect_raised(const std::string& simple_class, const std::string& message) {
  EXPECT_EQ(raised(), "java.lang." + simple_class + ": " + message);
}

template <typename Record>
Record* record(jobject object, const char* field) {
  return reinterpret_cast<Record*>(
      std::uintptr_t{static_cast<std::uint32_t>(get_int(object, field))});
}
inline columndata* column_of(jobject column) {
  return record<columndata>(column, "coldata32");
}
inline cdadata* cda_of(jobject cursor) {
  return record<cdadata>(cursor, "cursordata32");
}
inline ldadata* session_of(jobject connection) {
  return record<ldadata>(connection, "logondata32");
}

/// A connection object with the record of a slot.
jobject new_connection(int elem = 0, bool xa = false);
/// The internal and the external type, as Java sees them.
inline std::vector<jint> types(jobject column) {
  return {COLUMN(internalType)(env, column), COLUMN(externalType)(env, column)};
}
/// A column object with a record of `rows` rows.
jobject new_column(int rows = 1, int internal_type = SQLT_CHR, int position = 1);
/// A column as fetched: rows of `buflen` bytes.
jobject fetched_column(const Lines& rows, sword buflen, int internal_type = SQLT_CHR);
/// A column with a stream of binary data for the placeholder.
jobject new_stream(int position, jint piecelen = 4096);
/// A cursor object, open on a new connection unless told otherwise.
jobject new_cursor(bool open = true);

/// A LOB object with a record and, unless told otherwise, a locator.
jobject new_lob(bool locator = true);

/// Runs `action`, given its environment, on a thread of its own, attached.
template <typename Action>
std::thread on_a_thread(Action action) {
  return std::thread([action] {
    JNIEnv* own = nullptr;
    the_vm->AttachCurrentThread(reinterpret_cast<void**>(&own), nullptr);
    action(own);
    the_vm->DetachCurrentThread();
  });
}

/// Makes the library as it is before the first native_initialize.
void forget_initialisation();

/// The calls since the last look.
Lines calls();
/// The call that asks for the error of the first session.
constexpr char kCode[] = "OCIErrorGet(err1,1,-,-,0,2)";
/// The calls by which the error state of cursor "stmt1" on "err1" reaches Java.
Lines plus_cursor_codes(Lines before);

class JvmTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  jobject connection = nullptr;  // of the first slot
};

class CursorTest : public JvmTest {
 protected:
  void SetUp() override {
    JvmTest::SetUp();
    cursor = new_cursor();
  }

  jobject cursor = nullptr;
};

#endif
