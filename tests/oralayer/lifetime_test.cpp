// Records that end, move their buffers or are reached from within while a statement knows them.
#include <cstdarg>

#include "jvm_test.h"

namespace {

using oci_double::state;

class Lifetime : public JvmTest {
 protected:
  void SetUp() override {
    JvmTest::SetUp();
    state().stmt_type = OCI_STMT_INSERT;
  }

  static jobject stream(int position) {
    const jobject column = new_column(1, SQLT_LNG, position);
    const jint kind = env->GetStaticIntField(OciCursorClass, AsciiStreamID);
    COLUMN(setValueWithStream)(env, column, 10, 10, kind, JNI_FALSE);
    return column;
  }

  static jobject string(int position, const char* value) {
    const jobject column = new_column(1, SQLT_CHR, position);
    COLUMN(setValueWithString)(env, column, bytes(value), JNI_FALSE);
    return column;
  }

  // What Java sees of an execution: the exception, or nothing.
  static std::string executed(jobject cursor) {
    CURSOR(exec)(env, cursor);
    return raised();
  }
};

TEST_F(Lifetime, ChainsForgetColumnsThatEnded) {
  const jobject connection = new_connection();
  for (const bool streamed : {false, true}) {
    for (const bool reopened : {false, true}) {
      const jobject cursor = new_cursor(false);
      CURSOR(open)(env, cursor, connection);
      const auto attach = [&](jobject column) {
        streamed ? CURSOR(bindVariableByPosition)(env, cursor, column)
                 : CURSOR(bindSelectItem)(env, cursor, column, 1);
      };
      const jobject column = streamed ? stream(1) : new_column(1, SQLT_LNG, 1);
      attach(column);
      // Another column at its position, or another statement: OCI knows it no longer, the chain
      // did.
      reopened ? (void)CURSOR(open)(env, cursor, connection)
               : attach(streamed ? stream(1) : new_column(1, SQLT_LNG, 1));
      COLUMN(native_1finalize)(env, column);
      EXPECT_EQ(CURSOR(close)(env, cursor), JNI_FALSE);
      EXPECT_EQ(raised(), "");
    }
  }
}

TEST_F(Lifetime, OnlyBindsInForceHoldAnExecutionBack) {
  const jobject cursor = new_cursor();
  const jobject bound = string(1, "x");
  CURSOR(bindVariableByPosition)(env, cursor, bound);
  const jobject refused = string(1, "y");
  state().reply("OCIBindByPos", OCI_ERROR, 1036);
  EXPECT_EQ(CURSOR(bindVariableByPosition)(env, cursor, refused), JNI_TRUE);
  COLUMN(native_1finalize)(env, refused);
  EXPECT_EQ(executed(cursor), "");
  const jobject undefined = new_column(1, SQLT_CHR, 1);
  state().reply("OCIDefineByPos", OCI_ERROR, 1007);
  EXPECT_EQ(CURSOR(bindSelectItem)(env, cursor, undefined, 1), JNI_TRUE);
  COLUMN(native_1finalize)(env, undefined);
  EXPECT_EQ(executed(cursor), "");
  COLUMN(native_1finalize)(env, bound);
  EXPECT_NE(executed(cursor), "") << "its buffers are gone, and OCI would read them";

  const jobject other = new_cursor();
  CURSOR(parse)(env, cursor, bytes("BEGIN"), JNI_FALSE);
  CURSOR(bindCursorByPosition)(env, cursor, other, 1);
  CURSOR(close)(env, other);
  EXPECT_NE(executed(cursor), "") << "the statement handle that it would open is gone";

  const jobject third = new_cursor();
  const jobject half_bound = stream(1);
  state().reply("OCIBindDynamic", OCI_ERROR, 3113);
  EXPECT_EQ(CURSOR(bindVariableByPosition)(env, third, half_bound), JNI_TRUE);
  COLUMN(native_1finalize)(env, half_bound);
  EXPECT_NE(executed(third), "") << "its indicator is gone, and OCI knows the bind";
  CURSOR(close)(env, third);
}

TEST_F(Lifetime, RedefinedColumnsCountWithTheirNewRows) {
  const jobject cursor = new_cursor();
  const jobject column = new_column(1, SQLT_CHR, 1);
  CURSOR(bindSelectItem)(env, cursor, column, 1);
  CURSOR(execAndFetch)(env, cursor, 20);
  EXPECT_NE(raised(), "") << "more rows than the arrays hold";
  CURSOR(bindSelectItem)(env, cursor, column, 20);
  CURSOR(execAndFetch)(env, cursor, 20);
  EXPECT_EQ(raised(), "");
}

// What the Java method that is called for a chunk does to its own statement.
jobject cursor_in_turn, column_in_turn;
void (*meddle)(jobject cursor, jobject column);

TEST_F(Lifetime, JavaCannotTakeARunningStatementApart) {
  constexpr decltype(meddle) deeds[] = {[](jobject c, jobject) {
                                          CURSOR(close)
                                          (env, c);
                                        },
                                        [](jobject c, jobject) {
                                          CURSOR(native_1finalize)
                                          (env, c);
                                        },
                                        [](jobject c, jobject) {
                                          CURSOR(parse)
                                          (env, c, bytes("INSERT"), JNI_FALSE);
                                        },
                                        [](jobject c, jobject column) {
                                          CURSOR(bindVariableByPosition)
                                          (env, c, column);
                                        },
                                        [](jobject c, jobject) {
                                          CURSOR(exec)
                                          (env, c);
                                        },
                                        [](jobject, jobject column) {
                                          COLUMN(native_1finalize)
                                          (env, column);
                                        }};
  for (const auto deed : deeds) {
    cursor_in_turn = new_cursor();
    column_in_turn = stream(1);
    CURSOR(bindVariableByPosition)(env, cursor_in_turn, column_in_turn);
    meddle = deed;
    JniTable table;
    table.copy.CallIntMethodV = [](JNIEnv*, jobject, jmethodID, va_list) -> jint {
      return meddle(cursor_in_turn, column_in_turn), 0;
    };
    EXPECT_NE(executed(cursor_in_turn), "");
    CURSOR(close)(env, cursor_in_turn);
    EXPECT_EQ(raised(), "");
  }
}

}  // namespace
