// Records that end, move their buffers or are reached from within while a statement knows them.
#include <cstdarg>

#include "jvm_test.h"

namespace {

class Lifetime : public CursorTest {
 protected:
  void SetUp() override {
    CursorTest::SetUp();
    state().stmt_type = OCI_STMT_INSERT;
    table.copy.CallIntMethodV = [](JNIEnv*, jobject, jmethodID, va_list) -> jint { return 0; };
  }

  static jobject string(int position, const char* value) {
    const jobject column = new_column(1, SQLT_CHR, position);
    COLUMN(setValueWithString)(env, column, bytes(value), JNI_FALSE);
    return column;
  }

  // What Java sees of an execution: the exception, or nothing.
  static std::string executed(jobject statement) {
    CURSOR(exec)(env, statement);
    return raised();
  }

  JniTable table;  // streams are empty
};

TEST_F(Lifetime, ChainsForgetColumnsThatEnded) {
  for (const bool streamed : {false, true}) {
    for (const bool reopened : {false, true}) {
      cursor = new_cursor(false);
      CURSOR(open)(env, cursor, connection);
      const auto attach = [&](jobject column) {
        streamed ? CURSOR(bindVariableByPosition)(env, cursor, column)
                 : CURSOR(bindSelectItem)(env, cursor, column, 1);
      };
      const jobject column = streamed ? new_stream(1) : new_column(1, SQLT_LNG, 1);
      attach(column);
      attach(column);
      // Another column at its position, or another statement: OCI knows it no longer, the chain
      // did.
      reopened ? (void)CURSOR(open)(env, cursor, connection)
               : attach(streamed ? new_stream(1) : new_column(1, SQLT_LNG, 1));
      COLUMN(native_1finalize)(env, column);
      EXPECT_EQ(CURSOR(close)(env, cursor), JNI_FALSE);
      EXPECT_EQ(raised(), "");
    }
  }
}

TEST_F(Lifetime, OnlyBindsInForceHoldAnExecutionBack) {
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
  EXPECT_THAT(executed(cursor), HasSubstr("a column of the statement has ended or changed since"))
      << "its buffers are gone, and OCI would read them";

  const jobject other = new_cursor();
  CURSOR(parse)(env, cursor, bytes("BEGIN"), JNI_FALSE);
  CURSOR(bindCursorByPosition)(env, cursor, other, 1);
  CURSOR(close)(env, other);
  EXPECT_NE(executed(cursor), "") << "the statement handle that it would open is gone";
  CURSOR(open)(env, other, connection);
  EXPECT_EQ(executed(cursor), "") << "and there again";
  CURSOR(bindCursorByPosition)(env, cursor, cursor, 2);
  EXPECT_NE(raised(), "") << "its result would take the place of its own binds";
  EXPECT_EQ(executed(cursor), "") << "OCI was not told of it";

  const jobject third = new_cursor();
  const jobject half_bound = new_stream(1);
  state().reply("OCIBindDynamic", OCI_ERROR, 3113);
  EXPECT_EQ(CURSOR(bindVariableByPosition)(env, third, half_bound), JNI_TRUE);
  COLUMN(native_1finalize)(env, half_bound);
  EXPECT_NE(executed(third), "") << "its indicator is gone, and OCI knows the bind";
  CURSOR(close)(env, third);
  CURSOR(open)(env, third, connection);
  const jobject read = new_stream(1);
  CURSOR(bindVariableByPosition)(env, third, read);
  COLUMN(setValueWithStream)(env, read, 10, 99, 1, JNI_FALSE);
  EXPECT_EQ(executed(third), "") << "a stream is what its column says by then";
  CURSOR(close)(env, third);
}

TEST_F(Lifetime, AFetchReadsNoBinds) {
  const jobject value = string(1, "x");
  state().stmt_type = OCI_STMT_SELECT;
  CURSOR(parse)(env, cursor, bytes("SELECT"), JNI_FALSE);
  CURSOR(bindVariableByPosition)(env, cursor, value);
  CURSOR(execAndFetch)(env, cursor, 1);
  for (const bool ended : {false, true}) {
    ended ? COLUMN(native_1finalize)(env, value)
          : COLUMN(setValueWithString)(env, value, bytes(std::string(99, 'y')), JNI_FALSE);
    calls();
    CURSOR(fetch)(env, cursor);
    CURSOR(arrayFetch)(env, cursor, 1);
    EXPECT_EQ(raised(), "");
    EXPECT_THAT(calls(), testing::IsSupersetOf({HasSubstr("Fetch"), HasSubstr("Fetch")}));
  }
  EXPECT_NE(executed(cursor), "") << "an execution reads them";
}

TEST_F(Lifetime, OnlyAQueryBringsMoreRowsThanItsBindsHaveValues) {
  for (const bool query : {false, true}) {
    state().stmt_type = query ? OCI_STMT_SELECT : OCI_STMT_INSERT;
    CURSOR(parse)(env, cursor, bytes("text"), JNI_FALSE);
    CURSOR(bindVariableByPosition)(env, cursor, string(1, "x"));
    for (const jint rows : {1, 2}) {
      CURSOR(execAndFetch)(env, cursor, rows);
      EXPECT_EQ(raised().empty(), query || rows == 1) << query << rows;
    }
  }
}

TEST_F(Lifetime, LocatorsOfLobObjectsAreWrittenToByNobodyElse) {
  const std::string text = "a column of the select list has the locator of a LOB object";
  for (const bool fetched : {true, false}) {
    const jobject lob = new_lob(), column = new_column(1, SQLT_CLOB, 1);
    if (fetched) CURSOR(bindSelectItem)(env, cursor, column, 1);
    COLUMN(setValueWithLob)(env, column, lob, SQLT_CLOB, JNI_TRUE);
    if (!fetched) {
      CURSOR(parse)(env, cursor, bytes("BEGIN"), JNI_FALSE);
      CURSOR(bindVariableByPosition)(env, cursor, column);
      LOB(native_1finalize)(env, lob);
    }
    const std::string refused = fetched ? "java.lang.InternalError: " + text : "";
    EXPECT_EQ(executed(cursor), refused);
    CURSOR(fetch)(env, cursor);
    EXPECT_EQ(raised(), refused);
    EXPECT_EQ(column_of(column)->lobloc == nullptr, !fetched) << "OCI would write to it";
  }
}

TEST_F(Lifetime, ACursorVariablesNextResultStartsWithoutDefines) {
  const jobject variable = new_cursor();
  state().stmt_type = OCI_STMT_BEGIN;
  CURSOR(parse)(env, cursor, bytes("BEGIN"), JNI_FALSE);
  CURSOR(bindCursorByPosition)(env, cursor, variable, 1);
  for (const sword status : {OCI_ERROR, OCI_SUCCESS}) {
    const jobject column = new_column(1, SQLT_LNG, 1);
    CURSOR(bindSelectItem)(env, variable, column, 1);
    state().reply("OCIStmtExecute", status, status == OCI_SUCCESS ? 0 : 1403);
    EXPECT_EQ(executed(cursor), "");
    EXPECT_EQ(cda_of(variable)->lc_tail == nullptr, status == OCI_SUCCESS);
    EXPECT_EQ(cda_of(variable)->long_count, status == OCI_SUCCESS ? 0 : 1);
  }
}

// What the Java method that is called for a chunk does to its own statement.
struct {
  jobject cursor, column, other;
  std::size_t deed;
  int calls_before;
} meddler;

constexpr int kBindElsewhere = 0;
// clang-format off
void (*const kDeeds[])() = {
    [] { CURSOR(bindVariableByPosition)(env, meddler.other, meddler.column); },
    [] { CURSOR(bindVariableByPosition)(env, meddler.cursor, meddler.column); },
    [] { CURSOR(parse)(env, meddler.cursor, bytes("INSERT"), JNI_FALSE); },
    [] { CURSOR(exec)(env, meddler.cursor); },
    [] { CURSOR(close)(env, meddler.cursor); },
    [] { CURSOR(native_1finalize)(env, meddler.cursor); },
    [] { CURSOR(exec)(env, meddler.other); },
    [] { COLUMN(native_1finalize)(env, meddler.column); },
    [] { COLUMN(setPosition)(env, meddler.column, 4); },
    [] { COLUMN(setValueWithInt)(env, meddler.column, 1, JNI_TRUE); },
    // As before, but no stream any more.
    [] { COLUMN(setValueWithStream)(env, meddler.column, 10, 0, 1, JNI_FALSE); }};
// clang-format on

TEST_F(Lifetime, JavaCannotTakeARunningStatementApart) {
  for (std::size_t deed = 0; deed < std::size(kDeeds); ++deed) {
    for (const int calls_before : {0, 1}) {  // during the column's own stream, and after it
      meddler = {new_cursor(), new_stream(1), new_cursor(), deed, calls_before};
      CURSOR(bindVariableByPosition)(env, meddler.cursor, meddler.column);
      CURSOR(bindVariableByPosition)(env, meddler.cursor, new_stream(2));
      CURSOR(bindCursorByPosition)(env, meddler.other, meddler.cursor, 3);
      table.copy.CallIntMethodV = [](JNIEnv*, jobject, jmethodID, va_list) -> jint {
        if (meddler.calls_before-- == 0) kDeeds[meddler.deed]();
        return 0;
      };
      const bool harmless = deed == kBindElsewhere && calls_before == 1;
      EXPECT_EQ(executed(meddler.cursor).empty(), harmless) << deed << ' ' << calls_before;
      CURSOR(close)(env, meddler.cursor);
      CURSOR(close)(env, meddler.other);
      EXPECT_EQ(raised(), "");
    }
  }
}

}  // namespace
