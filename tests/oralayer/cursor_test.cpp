// Cursor life cycle, parse and describe, definition of the select list, execution.
#include "jvm_test.h"

namespace {

class Cursor : public CursorTest {
 protected:
  jboolean parse(const std::string& sql) {
    return CURSOR(parse)(env, cursor, bytes(sql), JNI_FALSE);
  }
};

TEST_F(Cursor, OpenAllocatesAStatementOfTheSession) {
  cursor = new_cursor(false);
  connection = new_connection(2);
  calls();
  expect_trace({"*** open ***\n", "    cdaerrorcode=0\n"},
               [&] { EXPECT_FALSE(CURSOR(open)(env, cursor, connection)); });
  EXPECT_EQ(calls().front(), "OCIHandleAlloc(env3,4,100,+)");
  const cdadata* cda = cda_of(cursor);
  EXPECT_EQ(cda->lda, &ldapool[2]);
  EXPECT_EQ(name(cda->svchp), "svc3");
  EXPECT_EQ(name(cda->errhp), "err3");
  EXPECT_EQ(name(cda->stmthp), "stmt2");
  cursor = new_cursor(false);
  cda_of(cursor)->described = 1;
  state().reply("OCIHandleAlloc", OCI_ERROR, 1012);
  EXPECT_EQ(CURSOR(open)(env, cursor, connection), JNI_TRUE);
  EXPECT_EQ(cda_of(cursor)->described, 0);
  EXPECT_EQ(get_int(cursor, "cdaerrorcode"), 1012);
}

TEST_F(Cursor, CodesReachTheObjectAndAFailedQueryLeavesZero) {
  state().sqlfncode = 65535;
  state().row_count = 0x80000001U;
  state().fncode = 28;
  state().error = 942;
  const char* const fields[] = {"cdaerrorcode", "rowsprocessed", "parsererroffset", "sqlfunccode",
                                "ocifunccode",  "oserrcode",     "warnflags"};
  // All fields after the call, from 7 each.
  const auto after = [&](void (*call)(JNIEnv*, jobject)) {
    for (const char* field : fields) set_int(cursor, field, 7);
    call(env, cursor);
    std::vector<jint> all;
    for (const char* field : fields) all.push_back(get_int(cursor, field));
    return all;
  };
  EXPECT_THAT(after(assignCdaCodes), ElementsAre(942, jint(0x80000001U), 0, 65535, 28, 0, 0));
  EXPECT_EQ(calls(), plus_cursor_codes({}));
  for (const char* attribute : {"OCIAttrGet:10", "OCIAttrGet:9", "OCIAttrGet:1"}) {
    state().reply(attribute, OCI_ERROR, 1012);
  }
  EXPECT_THAT(after(assignCdaCodes), ElementsAre(942, 0, 0, 0, 0, 0, 0));
  EXPECT_THAT(after(clearCdaErrorCodes), ElementsAre(0, 7, 0, 7, 7, 0, 0));

  const jobject lob = allocate("OciLob");
  expect_trace({"    loberrorcode=1012\n"}, [&] { assignLobCodes(env, lob, new_connection()); });
  EXPECT_EQ(get_int(lob, "loberrcode"), 1012);
  clearLobErrorCodes(env, lob);
  EXPECT_EQ(get_int(lob, "loberrcode"), 0);
}

TEST_F(Cursor, CancelBreaksTheSession) {
  cda_of(cursor)->svchp = nullptr;
  set_int(cursor, "cdaerrorcode", 7);
  EXPECT_EQ(CURSOR(cancel)(env, cursor), JNI_FALSE);
  EXPECT_EQ(get_int(cursor, "cdaerrorcode"), 0);
  EXPECT_EQ(calls().front(), "OCIBreak(svc1,err1)") << "the session's own service context";
  state().reply("OCIBreak", OCI_ERROR, 3114);
  expect_trace({"*** Cursor:  OCIBreak ***\n"}, [&] { EXPECT_TRUE(CURSOR(cancel)(env, cursor)); });
  EXPECT_EQ(get_int(cursor, "cdaerrorcode"), 3114);
}

TEST_F(Cursor, CloseFreesTheStatementOnceAndMayReopen) {
  parse("SELECT 1 FROM dual");
  cdadata* cda = cda_of(cursor);
  cda->long_count = cda->need_data = 1;
  calls();
  expect_trace({"*** close ***\n", "*********  clean_longinsert_chain  invoked ***\n",
                "*** OCIHandleFree (OCI_HTYPE_STMT) ***\n", "    OCIHandleFree result=0\n"},
               [&] { EXPECT_FALSE(CURSOR(close)(env, cursor)); });
  EXPECT_EQ(calls().front(), "OCIHandleFree(stmt1,4)");
  EXPECT_EQ(cda->described + cda->long_count + cda->need_data, 0);
  EXPECT_STREQ(reinterpret_cast<char*>(cda->sqlstr), "SELECT 1 FROM dual");
  EXPECT_EQ(CURSOR(oopt)(env, cursor, 1), JNI_FALSE);
  expect_raised("NullPointerException", "The functionality of oopt does not exist in OCI8");
  CURSOR(close)(env, cursor);
  raised();
  EXPECT_THAT(calls(), Each(Not(HasSubstr("freed:"))));
  EXPECT_EQ(CURSOR(open)(env, cursor, new_connection()), JNI_FALSE);
  EXPECT_EQ(name(cda->stmthp), "stmt2");
  state().reply("OCIHandleFree", OCI_INVALID_HANDLE);
  EXPECT_EQ(CURSOR(close)(env, cursor), JNI_TRUE);
  cda->longdata_bufpool = new LongdataBufPool;
  expect_trace({" !!!! Rather SEVERE warning !!  we are deleting longdata_bufpool in cursordata "
                "destructor !\n",
                "          the longdata_bufpool should have been deleted in cursor.close()\n",
                "BufPool: now delete the bufPool object\n"},
               [&] { return CURSOR(native_1finalize)(env, cursor); });
  EXPECT_EQ(get_int(cursor, "cursordata32"), 0);
  CURSOR(native_1finalize)(env, cursor);
}

TEST_F(Cursor, CloseReleasesLongDataAndReportsInconsistentChains) {
  const std::tuple<void (*)(cdadata*, columndata*), std::string> cases[] = {
      {[](cdadata*, columndata*) {}, ""},
      {[](cdadata*, columndata* column) { column->longbuf_head = nullptr; },
       "longbuf_tail is not null but longbuf_head is NULL !"},
      {[](cdadata* cda, columndata*) { cda->longdata_bufpool = nullptr; },
       "the longdata_bufpool is NULL"},
      {[](cdadata* cda, columndata*) { cda->lc_head = nullptr; },
       "lc_tail is not null but lc_head is NULL !"}};
  for (const auto& [spoil, error] : cases) {
    cursor = new_cursor();
    cdadata* cda = cda_of(cursor);
    const std::string statement = name(cda->stmthp);
    columndata column(1), next(1);
    LongdataBufPool* const pool = cda->longdata_bufpool = new LongdataBufPool;
    for (columndata* each : {&column, &next}) {
      auto* const node = new longcol_node;
      node->coldata = each;
      longcol_node::queue(&cda->lc_head, &cda->lc_tail, node);
      longdata_node::queue(&each->longbuf_head, &each->longbuf_tail, 16, pool);
    }
    spoil(cda, &column);
    const bool pool_lost = cda->longdata_bufpool == nullptr;
    set_int(cursor, "cdaerrorcode", 7);
    EXPECT_EQ(CURSOR(close)(env, cursor), JNI_FALSE);
    const std::string exception = "java.lang.InternalError: in OciCursor_close " + error;
    EXPECT_EQ(raised(), error.empty() ? "" : exception);
    EXPECT_EQ(calls().front(), "OCIHandleFree(" + statement + ",4)");
    EXPECT_EQ(get_int(cursor, "cdaerrorcode"), 0);
    EXPECT_EQ(cda->longdata_bufpool, nullptr);
    EXPECT_EQ(next.longbuf_tail == nullptr, !pool_lost) << "the next column has its turn";
    delete column.longbuf_tail;
    delete next.longbuf_tail;
    if (cda->lc_tail != nullptr) delete cda->lc_tail->next;
    delete cda->lc_tail;
    if (pool_lost) delete pool;
    EXPECT_TRUE(error != "" || (cda->lc_tail == nullptr && column.longbuf_tail == nullptr));
  }
}

TEST_F(Cursor, ParseDescribesAQueryOnce) {
  cda_of(cursor)->long_count = 5;
  expect_trace({"*** parse ***\n",
                "*** OCIStmtPrepare ***\n    sqlstr (8 bytes)\n    bytes:\n"
                "    53 45 4C 45 43 54 20 31 \n    text:\n    SELECT 1\n",
                "    prepare succeeded\n", "    stmttype=1", "    cd->described: 0\n",
                "*** OCIStmtExecute (describe only) ***\n",
                "--- OCIStmtExecute (describe only) --  OCIStmtExecute completed\n"},
               [&] { EXPECT_FALSE(parse("SELECT 1")); });
  EXPECT_EQ(cda_of(cursor)->long_count, 0);
  EXPECT_EQ(calls(), plus_cursor_codes({"OCIStmtPrepare(stmt1,err1,SELECT 1,1,0)",
                                        "OCIAttrGet(stmt1,4,-,24,err1)",
                                        "OCIStmtExecute(svc1,stmt1,err1,0,0,-,-,16)"}));
  CURSOR(bindSelectItem)(env, cursor, new_column(1, SQLT_LNG), 1);
  calls();
  EXPECT_EQ(cda_of(cursor)->long_count, 1);
  expect_trace({"--- longcol_node::destroychain  destroy number: 0\n"},
               [&] { EXPECT_FALSE(parse(std::string("SELECT 2\0 cut", 13))); });
  EXPECT_EQ(calls(), plus_cursor_codes({"OCIStmtPrepare(stmt1,err1,SELECT 2,1,0)",
                                        "OCIAttrGet(stmt1,4,-,24,err1)"}));
  EXPECT_EQ(cda_of(cursor)->long_count, 0) << "as the chain: the define is gone";
  EXPECT_EQ(cda_of(cursor)->lc_tail, nullptr);
}

TEST_F(Cursor, ParseThatDescribesNothing) {
  const std::tuple<const char*, ub2, bool, const char*> cases[] = {
      {"OCIStmtPrepare", 1, true, "   prepare failed\n"},
      {"OCIStmtExecute", 1, true, "    Describe FAILED\n"},
      {"OCIAttrGet:24", 1, false, ""},  // an unknown type is only prepared
      {"", 0, false, ""},
      {"", 2, false, ""},
      {"", 8, false, ""}};
  for (const auto& [fails, statement, failed, trace] : cases) {
    cursor = new_cursor();
    state().stmt_type = statement;
    state().reply(fails, OCI_ERROR, 900);
    expect_trace({trace}, [&, &fails = failed] { EXPECT_EQ(parse("SELECT"), fails); });
    EXPECT_TRUE(!failed || get_int(cursor, "cdaerrorcode") == 900);
    EXPECT_EQ(cda_of(cursor)->described, 0);
    EXPECT_EQ(testing::Value(calls(), Contains(HasSubstr("OCIStmtExecute"))),
              std::string(fails) == "OCIStmtExecute");
  }
}

TEST_F(Cursor, DescribeFillsTheColumn) {
  using namespace std::string_literals;
  state().columns = {{SQLT_NUM, 22, "SAL", 7, "\x02"s},
                     {SQLT_NUM, 65535, std::string(130, 'N'), 0, "\x81"s},
                     {SQLT_NUM, 22, "", 0, "\x81\xFF"s},
                     {SQLT_CHR, 10, "ENAME", 0, "\0"s}};
  const jint scales[] = {2, -127, -127, 0};
  for (jint position = 1; position <= 4; ++position) {
    const auto& expected = state().columns[static_cast<std::size_t>(position - 1)];
    const jobject column = new_column(1, -1, position);
    COLUMN(setNullOK)(env, column, 1);
    EXPECT_EQ(CURSOR(describe)(env, cursor, column), JNI_FALSE);
    const std::string par = "par" + std::to_string(position);
    EXPECT_EQ(calls(),
              plus_cursor_codes(
                  {"OCIParamGet(stmt1,4,err1," + std::to_string(position) + ")",
                   "OCIAttrGet(" + par + ",53,-,2,err1)", "OCIAttrGet(" + par + ",53,-,1,err1)",
                   "OCIAttrGet(" + par + ",53,+,4,err1)", "OCIAttrGet(" + par + ",53,-,5,err1)",
                   "OCIAttrGet(" + par + ",53,-,6,err1)"}));
    EXPECT_EQ(COLUMN(internalType)(env, column), expected.type);
    EXPECT_EQ(COLUMN(length)(env, column), expected.size);
    EXPECT_EQ(COLUMN(precision)(env, column), expected.prec);
    EXPECT_EQ(COLUMN(scale)(env, column), scales[position - 1]);
    EXPECT_EQ(COLUMN(nullAllowed)(env, column), JNI_TRUE);
    EXPECT_EQ(reinterpret_cast<char*>(column_of(column)->columnname), expected.name.substr(0, 128));
  }
  expect_trace({"*** OCIParamGet (describe) ***", " colpos=1\n", "    internal_dbtype=2\n",
                "    dbsize=22\n"},
               [&] { return CURSOR(describe)(env, cursor, new_column()); });
}

TEST_F(Cursor, DescribeStopsAtTheFirstFailure) {
  state().columns = {{SQLT_CHR, 10, "ENAME", 3, "\x02"}};
  const char* const steps[] = {"OCIParamGet",  "OCIAttrGet:2", "OCIAttrGet:1",
                               "OCIAttrGet:4", "OCIAttrGet:5", "OCIAttrGet:6"};
  for (std::size_t i = 0; i < std::size(steps); ++i) {
    SCOPED_TRACE(steps[i]);
    cursor = new_cursor();
    const jobject column = new_column(1, 77);
    COLUMN(setLength)(env, column, 88);
    COLUMN(setPrecision)(env, column, 8);
    COLUMN(setScale)(env, column, 9);
    state().reply(steps[i], OCI_ERROR, 24334);
    EXPECT_EQ(CURSOR(describe)(env, cursor, column), JNI_TRUE);
    EXPECT_EQ(calls().size(), i + 1 + 4);
    EXPECT_EQ(get_int(cursor, "cdaerrorcode"), 24334);
    EXPECT_EQ(COLUMN(internalType)(env, column), i == 0 ? 77 : i == 1 ? -1 : SQLT_CHR);
    EXPECT_EQ(COLUMN(length)(env, column), i > 2 ? 10 : i == 2 ? 0 : 88);
    EXPECT_EQ(COLUMN(precision)(env, column), i > 4 ? 3 : i == 4 ? 0 : 8);
    EXPECT_EQ(COLUMN(scale)(env, column), i == 5 ? 0 : 9);
  }
}

TEST_F(Cursor, DefineByKindOfColumn) {
  enum Value { kBuffer, kNothing, kLocator };
  // All described with size 10; LONG pieces are 4 bytes; 3 rows.
  // type; what the call ends in; its value; buflen; bytes asked for.
  const std::tuple<int, const char*, Value, sword, sb4> cases[] = {
      {1, "31,5,0)", kBuffer, 31, 93},           {96, "31,5,0)", kBuffer, 31, 93},
      {2, "129,5,0)", kBuffer, 129, 387},        {3, "129,5,0)", kBuffer, 129, 387},
      {4, "129,5,0)", kBuffer, 129, 387},        {5, "31,5,0)", kNothing, 31, 0},
      {104, "24,5,0)", kBuffer, 24, 72},         {11, "24,5,0)", kBuffer, 24, 72},
      {12, "7,12,0)", kBuffer, 7, 21},           {23, "10,23,0)", kBuffer, 10, 30},
      {105, "20,5,0)", kBuffer, 20, 60},         {8, "2147483647,8,2)", kNothing, 4, 12},
      {24, "2147483647,24,2)", kNothing, 4, 12}, {112, "-1,112,0)", kLocator, -1, 0},
      {113, "-1,113,0)", kLocator, -1, 0},       {7, "0,0,0)", kNothing, 0, 0}};
  for (const auto& [type, end, where, buflen, buffer] : cases) {
    SCOPED_TRACE(type);
    state() = {};
    cursor = new_cursor();
    const jobject column = new_column(1, type, 2);
    COLUMN(setLength)(env, column, 10);
    const bool is_long = type == 8 || type == 24;
    EXPECT_EQ(CURSOR(isBlobColumn)(env, cursor, column), is_long);
    EXPECT_EQ(CURSOR(isOCI8ILOBColumn)(env, cursor, column), where == kLocator);
    const char* const banner = is_long             ? "*** OCIDefineByPos for LONG, LONGRAW  ***"
                               : where == kLocator ? "*** OCIDefineByPos for BLOB, CLOB, NCLOB ***"
                                                   : "*** OCIDefineByPos ***";
    expect_trace({"*** bindSelectItem ***\n", banner,
                  "\n    stmthp=", "\n    defnp=", "\n    errhp=", "\n    colpos=2",
                  "\n    value=", "\n    value_size=", "\n    external_dbtype=", "\n    indpvect=",
                  "\n    retlenvect=", "\n    retcodevect=", "\n    mode=", "\n    retvali=0\n"},
                 [&] { EXPECT_FALSE(CURSOR(bindSelectItem)(env, cursor, column, 3)); });
    const char* value = where == kNothing ? "-," : "+,";
    EXPECT_EQ(calls(),
              plus_cursor_codes({std::string("OCIDefineByPos(stmt1,null,err1,2,") + value + end}));
    columndata* record = column_of(column);
    const oci_double::Define& define = state().defines.at(0);
    const void* const values[] = {record->byte_arr, nullptr, &record->lobloc};
    EXPECT_EQ(define.value, values[where]);
    EXPECT_THAT((std::vector<void*>{define.ind, define.rlen, define.rcode}),
                ElementsAre(record->indpvect, record->retlenvect, record->retcodevect));
    EXPECT_EQ(record->vectsize, 3);
    EXPECT_EQ(record->buflen, buflen);
    EXPECT_EQ(record->byte_arrlen, buffer);
    EXPECT_EQ(record->bufptr, buffer == 0 ? nullptr : record->byte_arr);
    EXPECT_EQ(COLUMN(externalType)(env, column), define.type);
    EXPECT_EQ(cda_of(cursor)->long_count, is_long);
  }
}

}  // namespace
