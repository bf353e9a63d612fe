// LOB objects and the LOB locators of columns.
#include <unistd.h>

#include <functional>

#include "jvm_test.h"

namespace {

const char* const kAlloc = "OCIDescriptorAlloc(env1,null,50,0,-)";

class Lob : public JvmTest {
 protected:
  jobject column_with_locator() {
    const jobject column = new_column();
    COLUMN(allocLobLocator)(env, column, connection, -999);
    calls();
    return column;
  }
  jint code(jobject lob) { return get_int(lob, "loberrcode"); }

  const jbyteArray ten = bytes("0123456789");
  const jcharArray ten_chars = env->NewCharArray(10);
};

TEST_F(Lob, ALocatorIsAllocatedOnceAtATimeAndFreedWithTheObject) {
  const jobject lob = new_lob(false);
  LOB(native_1finalize)(env, lob);
  EXPECT_THAT(calls(), IsEmpty());
  LOB(initialize)(env, lob);
  EXPECT_FALSE(LOB(allocLob)(env, lob, connection));
  EXPECT_FALSE(LOB(allocLob)(env, lob, connection));
  state().reply("OCIDescriptorAlloc", OCI_ERROR, 1019);
  EXPECT_TRUE(LOB(allocLob)(env, lob, connection));
  EXPECT_EQ(code(lob), 1019);
  EXPECT_FALSE(LOB(allocLob)(env, lob, connection));
  EXPECT_EQ(code(lob), 1019) << "a success clears nothing";
  LOB(native_1finalize)(env, lob);
  LOB(native_1finalize)(env, lob);
  EXPECT_THAT(calls(), ElementsAre(kAlloc, "OCIDescriptorFree(lob1,50)", kAlloc,
                                   "OCIDescriptorFree(lob2,50)", kAlloc, kCode, kAlloc,
                                   "OCIDescriptorFree(lob3,50)"));
  EXPECT_EQ(get_int(lob, "lobdata32"), 0);
}

TEST_F(Lob, AFetchedLocatorIsCopied) {
  const jobject lob = new_lob(false);
  const jobject column = new_column();
  const auto assign = [&] { return LOB(assignLobFromColumn)(env, lob, connection, column); };
  COLUMN(allocLobLocator)(env, column, connection, -999);
  EXPECT_FALSE(assign());
  state().reply("OCILobAssign", OCI_ERROR, 22275);
  EXPECT_TRUE(assign());
  EXPECT_EQ(code(lob), 22275);
  EXPECT_THAT(calls(), ElementsAre(kAlloc, kAlloc, "OCILobAssign(env1,err1,lob1,lob2)",
                                   "OCIDescriptorFree(lob2,50)", kAlloc,
                                   "OCILobAssign(env1,err1,lob1,lob3)", kCode));
  state().reply("OCIDescriptorAlloc", OCI_ERROR);
  state().reply("OCILobAssign", OCI_ERROR, 22276);
  EXPECT_TRUE(assign());
  EXPECT_THAT(calls(), Contains("OCILobAssign(env1,err1,lob1,null)"));
  expect_raised("InternalError", "in assignLobFromColumn: OCIDescriptorAlloc FAILED");
  EXPECT_EQ(code(lob), 22276);
}

TEST_F(Lob, AColumnOwnsTheLocatorThatItAllocated) {
  const jobject column = new_column(1, SQLT_CHR);
  COLUMN(allocLobLocator)(env, column, connection, -999);
  EXPECT_EQ(column_of(column)->internal_dbtype, SQLT_CHR);
  expect_trace({"*** allocLobLocator ***\n    lobloc=PTR\n    type=112\n"}, [&] {
    COLUMN(allocLobLocator)(env, column, connection, SQLT_CLOB);
  });
  EXPECT_THAT(types(column), ElementsAre(SQLT_CLOB, SQLT_CLOB));
  COLUMN(deallocLobLocator)(env, column);
  COLUMN(deallocLobLocator)(env, column);
  EXPECT_THAT(calls(), ElementsAre(kAlloc, "OCIDescriptorFree(lob1,50)", kAlloc,
                                   "OCIDescriptorFree(lob2,50)"));
  state().reply("OCIDescriptorAlloc", OCI_ERROR);
  expect_trace({"    lobloc=0\n"}, [&] {
    COLUMN(allocLobLocator)(env, column, connection, SQLT_BLOB);
  });
  expect_raised("InternalError", "in OciColumn_allocLobLocator: OCIDescriptorAlloc FAILED");
  EXPECT_EQ(column_of(column)->internal_dbtype, SQLT_BLOB);
  COLUMN(allocLobLocator)(env, column, connection, -999);
  state().reply("OCIDescriptorFree", OCI_ERROR);
  COLUMN(deallocLobLocator)(env, column);
  expect_raised("InternalError", "in OciColumn_deallocLobLocator: OCIDescriptorFree FAILED");
  EXPECT_EQ(column_of(column)->lobloc, nullptr);
  COLUMN(native_1finalize)(env, column_with_locator());
  EXPECT_THAT(calls(), IsEmpty()) << "and frees it only when it is told to";
}

TEST_F(Lob, SettersBorrowTheLocator) {
#define SET(method, ...) \
  [](jobject c, jobject lob) { COLUMN(setValueWith##method)(env, c, lob, __VA_ARGS__); }
  const std::tuple<void (*)(jobject column, jobject lob), sb2, sb2, sb2, bool> cases[] = {
      {SET(Lob, 112, 0), 112, 112, 0, true}, {SET(Lob, 113, 1), 113, 113, -1, true},
      {SET(Blob, 0), 113, 1, 0, true},       {SET(Blob, 1), 113, 1, -1, false},
      {SET(Clob, 0), 112, 1, 0, true},       {SET(Clob, 1), 112, 1, -1, false}};
  for (const auto& [set, type, type_when_refused, indicator, keeps_locator] : cases) {
    const jobject lob = new_lob();
    const jobject column = column_with_locator();
    set(column, allocate("OciLob"));
    expect_raised("NullPointerException", "Lob is null");
    EXPECT_EQ(column_of(column)->internal_dbtype, type_when_refused);
    EXPECT_THAT(calls(), IsEmpty());
    const jobject rowless = new_column(0);
    set(rowless, nullptr);
    expect_raised("NullPointerException", "Lob is null");
    EXPECT_EQ(column_of(rowless)->internal_dbtype, type_when_refused);
    set(rowless, lob);
    EXPECT_NE(raised(), "") << "there is no indicator to set";
    expect_trace({indicator == 0 ? "    lobloc=PTR" : ""}, [&, &act = set] { act(column, lob); });
    EXPECT_THAT(types(column), ElementsAre(type, type));
    EXPECT_EQ(column_of(column)->indpvect[0], indicator);
    EXPECT_EQ(column_of(column)->lobloc,
              keeps_locator ? record<lobdata>(lob, "lobdata32")->lobloc : nullptr);
    COLUMN(deallocLobLocator)(env, column);
    EXPECT_EQ(calls().size(), 1U) << "only the column's own locator is freed";
    LOB(allocLob)(env, lob, connection);
    EXPECT_EQ(column_of(column)->lobloc, nullptr);
    expect_trace({indicator == 0 ? "    lobloc=0\n" : ""},
                 [&, &act = set] { act(column, new_lob(false)); });
  }
}

TEST_F(Lob, AStatementDoesNotRunOnALocatorThatIsGone) {
  const jobject cursor = new_cursor();
  const jobject column = new_column();
  const jobject lob = new_lob();
  const auto bind = [&] {
    COLUMN(setValueWithBlob)(env, column, lob, JNI_FALSE);
    EXPECT_FALSE(CURSOR(bindVariableByPosition)(env, cursor, column));
  };
  bind();
  EXPECT_FALSE(CURSOR(exec)(env, cursor));
  EXPECT_EQ(raised(), "");
  for (const bool changed : {true, false}) {
    bind();
    changed ? (void)LOB(allocLob)(env, lob, connection) : LOB(native_1finalize)(env, lob);
    calls();
    CURSOR(exec)(env, cursor);
    expect_raised("InternalError", "the LOB object that the column was given has ended or changed");
    LOB(assignLobFromColumn)(env, new_lob(), connection, column);
    expect_raised("InternalError", "the LOB object that the column was given has ended or changed");
    EXPECT_THAT(calls(), Not(Contains(HasSubstr("Execute"))));
  }
}

TEST_F(Lob, EveryTransferIsOneCallWithTheseArguments) {
  constexpr jlong k2To32 = jlong{1} << 32;
  const jobject lob = new_lob();
  state().lob_amount = 7;
#define CALL(method, ...) \
  [&] { return jlong{LOB(method)(env, lob, connection __VA_OPT__(, ) __VA_ARGS__)}; }
  // The last two: what the trace has of it.
  const std::tuple<std::function<jlong()>, const char*, jlong, const char*, const char*> cases[] = {
      {CALL(getLobLength), "OCILobGetLength(svc1,err1,lob1)", 7,
       "^^^^^^^ getLobLength: ", "about to call OCILobGetLength\n"},
      {CALL(getLobCharSetId), "OCILobCharSetId(env1,err1,lob1)", 7, "", ""},
      {CALL(getLobCharSetForm), "OCILobCharSetForm(env1,err1,lob1)", 7, "", ""},
      {CALL(getLobBuf, ten, 1, 9, 10, 65536 + 31, 256 + 2),
       "OCILobRead(svc1,err1,lob1,9,1,10,-,-,31,2)", 7, "Fetch data (10 bytes)", "RETURN LEN 7\n"},
      {CALL(getLobBuf, ten, k2To32 + 5, k2To32 + 9, k2To32 + 8, 0, 1),
       "OCILobRead(svc1,err1,lob1,9,5,8,-,-,0,1)", 7, "Fetch data (8 bytes)", "RETURN LEN 7\n"},
      {CALL(writeLobBuf, ten, 3, 0, 8, 256 + 1, 1, 1),
       "OCILobWrite(svc1,err1,lob1,0,3,8,1,-,-,1,1)", 8, "Write data (8 bytes)", "RETURN LEN 8\n"},
      {CALL(getLobUCS2CharBuf, ten_chars, 2, 10, 31, 2),
       "OCILobRead(svc1,err1,lob1,10,2,20,-,-,1000,2)", 7, "Fetch data as chars (7 bytes)",
       "Fetch data as bytes (14 bytes)"},
      {CALL(writeLobUCS2CharBuf, ten_chars, 4, 3, 3, 31, 1),
       "OCILobWrite(svc1,err1,lob1,3,4,6,3,-,-,1000,1)", 7, "Write data as chars (3 bytes)",
       "Write data as bytes (6 bytes)"}};
  for (const auto& [call, expected, result, trace, then] : cases) {
    calls();
    expect_trace({trace, then}, [&, &act = call, &all = result] { EXPECT_EQ(act(), all); });
    EXPECT_THAT(calls(), ElementsAre(expected));
    const std::string function(expected, std::string(expected).find('('));
    for (const sword status : {OCI_ERROR, OCI_SUCCESS_WITH_INFO, OCI_NEED_DATA}) {
      state().reply(function, status, 3000 + status);
      EXPECT_EQ(call(), -1);
      EXPECT_EQ(code(lob), 3000 + status);
    }
    EXPECT_EQ(raised(), "");
  }
  state().lob_amount = 0xFFFFFFFF;
  EXPECT_EQ(LOB(getLobLength)(env, lob, connection), k2To32 - 1);
  state().reply("OCILobRead", OCI_NEED_DATA, 3130);
  EXPECT_THAT(traced([&] { return LOB(getLobUCS2Buf)(env, lob, connection, 1, 5, 0, 1); }),
              Not(HasSubstr("RETURN LEN")));
  EXPECT_EQ(raised(), "java.sql.SQLException: Error Reading Lob in getLobUCS2Buf");
  EXPECT_EQ(code(lob), 3130);
}

TEST_F(Lob, BuffersCarryTheContents) {
  const jobject lob = new_lob();
  state().lob_data = std::string("H\0E\0L\0L\0O\0", 10);
  state().lob_amount = 5;
  const jstring text = LOB(getLobUCS2Buf)(env, lob, connection, 1, 5, 0, 1);
  EXPECT_THAT(calls(), Contains("OCILobRead(svc1,err1,lob1,5,1,10,-,-,1000,1)"));
  EXPECT_EQ(contents(text), "HELLO");
  state().lob_amount = 3;
  EXPECT_EQ(contents(LOB(getLobUCS2Buf)(env, lob, connection, 1, 5, 0, 1)), "HEL") << "as read";
  LOB(getLobUCS2CharBuf)(env, lob, connection, ten_chars, 1, 5, 0, 1);
  jchar first = 0;
  env->GetCharArrayRegion(ten_chars, 0, 1, &first);
  EXPECT_EQ(first, 'H');
  state().reply("OCILobRead", OCI_ERROR, 3113);  // what arrived before is handed on
  LOB(getLobBuf)(env, lob, connection, ten, 1, 3, 3, 0, 1);
  EXPECT_EQ(contents(ten), std::string("H\0E3456789", 10));
  expect_trace({"*** OCILobWrite             ***\n"}, [&] {
    LOB(writeLobBuf)(env, lob, connection, ten, 1, 4, 4, 0, 0, 1);
  });
  EXPECT_EQ(state().lob_written, std::string("H\0E3", 4));
  LOB(writeLobUCS2CharBuf)(env, lob, connection, ten_chars, 1, 2, 0, 0, 1);
  EXPECT_EQ(state().lob_written, std::string("H\0E\0", 4));
  state().lob_amount = 1000;
  EXPECT_EQ(contents(LOB(getLobUCS2Buf)(env, lob, connection, 1, 2, 0, 1)).size(), 2u)
      << "not more than the buffer has";
}

TEST_F(Lob, WhatDoesNotFitIsRefusedBeforeTheCall) {
  const jobject lob = new_lob();
  const jobject empty = new_lob(false);
#define OF_LENGTH(method, ...) \
  [&](jobject o, jlong n) { LOB(method)(env, o, connection, __VA_ARGS__); }
  // not_pinned: the names that the messages begin with.
  const std::tuple<std::function<void(jobject, jlong)>, std::string, std::string> cases[] = {
      {OF_LENGTH(getLobBuf, ten, 1, 1, n, 0, 1), "getLobBuf", "getLobBuf"},
      {OF_LENGTH(writeLobBuf, ten, 1, 1, n, 0, 0, 1), "writeLobBuf", "writeLobBuf"},
      {OF_LENGTH(getLobUCS2CharBuf, ten_chars, 1, n, 0, 1), "getLobUCS2CharBuf",
       "getLobUCS2CharBuf"},
      {OF_LENGTH(writeLobUCS2CharBuf, ten_chars, 1, n, 0, 0, 1), "writeLobBuf",
       "getLobUCS2CharBuf"},
      {OF_LENGTH(getLobUCS2Buf, 1, n, 0, 1), "getLobBuf", ""}};
  calls();
  for (const auto& [call, no_locator, not_pinned] : cases) {
    call(empty, 10);
    expect_raised("InternalError", no_locator + ":  lob->lobloc is null");
    if (not_pinned.empty()) continue;
    for (const jlong length : {jlong{11}, jlong{-1}, jlong{0xFFFFFFFF}}) {
      call(lob, length);
      expect_raised("ArrayIndexOutOfBoundsException", "the length given is larger than the array");
    }
    JniTable table;
    table.copy.GetByteArrayElements = pin_nothing<jbyteArray, jbyte>;
    table.copy.GetCharArrayElements = pin_nothing<jcharArray, jchar>;
    call(lob, 10);
    expect_raised("InternalError", not_pinned + ": GetByteArrayElements FAILED !");
  }
  LOB(writeLobBuf)(env, empty, allocate("OciConnection"), ten, 1, 1, 1, 0, 0, 1);
  expect_raised("InternalError", "writeLobBuf:  lob->lobloc is null");
  LOB(getLobBuf)(env, empty, connection, nullptr, 1, 1, 1, 0, 1);
  expect_raised("InternalError", "getLobBuf:  lob->lobloc is null");
  LOB(assignLobFromColumn)(env, allocate("OciLob"), connection, new_column());
  expect_raised("NullPointerException", "SOURCE COLUMN LOBLOCATOR is null");
  LOB(getLobUCS2Buf)(env, lob, connection, 1, 0x80000000, 0, 1);
  expect_raised("OutOfMemoryError", "Out of memory");
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(Lob, TheDescribeOfParametersEndsTheProcess) {
  EXPECT_EXIT(
      {
        dup2(2, 1);  // death tests look at standard error
        oci_debug = 1;
        CONNECTION(native_1describeParams)(env, connection, allocate("OciSchema"), ten);
      },
      testing::ExitedWithCode(1),
      "^\\*\\*\\* describeParams \\*\\*\\*\n\\*\\*\\* ODESSP \\*\\*\\*\nLD->STATUS=[-0-9]+\n"
      "ERRCODE=0\nFIXME: ConnectionJNI 2  OCIDescribeAny call is broken\n$");
}

}  // namespace
