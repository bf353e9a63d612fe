// Fetching rows and pieces, and reading the values.
#include <climits>

#include "natives.h"

namespace {

constexpr oci_double::Reply kMore = {OCI_NEED_DATA, 3130};
constexpr oci_double::Reply kDone = {OCI_SUCCESS, 0};

class Fetch : public JvmTest {
 protected:
  // A cursor with LONG columns, defined, whose first fetch will ask for pieces.
  jobject long_cursor(std::size_t columns) {
    const jobject cursor = new_cursor();
    longs.clear();
    for (std::size_t i = 0; i < columns; ++i) {
      const jobject column = new_column(1, SQLT_LNG, static_cast<int>(i + 1));
      CURSOR(bindSelectItem)(env, cursor, column, 1);
      longs.push_back(column);
    }
    calls();
    return cursor;
  }

  static jboolean fetch_row(jobject cursor, std::deque<oci_double::Piece> pieces) {
    state().reply("OCIStmtFetch", OCI_NEED_DATA, 3130);
    state().pieces = std::move(pieces);
    return CURSOR(arrayFetch)(env, cursor, 1);
  }

  static std::string value_of(jobject column) {
    std::string value;
    for (const longdata_node* node = column_of(column)->longbuf_tail; node; node = node->next) {
      value.append(reinterpret_cast<char*>(node->buf_ptr),
                   static_cast<std::size_t>(node->buf_size));
      value += '|';
    }
    return value;
  }

  std::vector<jobject> longs;
};

TEST_F(Fetch, ExecAndFetchBringsTheFirstArray) {
  const std::tuple<jint, oci_double::Reply, bool> cases[] = {
      {20, {OCI_NO_DATA, 1403}, false},
      {20, {}, false},
      {0, {}, false},
      {20, {OCI_ERROR, 942}, true},
      {20, {OCI_SUCCESS_WITH_INFO, 24345}, true}};
  for (const auto& [fetchsize, reply, failed] : cases) {
    state() = {};
    const jobject cursor = new_cursor();
    state().replies["OCIStmtExecute"] = {reply};
    state().row_count = 5;
    ldapool[0].autocommit = 1;  // which is for exec
    const std::string size = std::to_string(fetchsize);
    const bool none = reply.status == OCI_NO_DATA;
    expect_trace({"   hasLong is false, Set Statement Prefetch Rows Attribute to " + size + "\n",
                  "*** OCIStmtExecute 2 ***   fetchsize=" + size + "\n",
                  none ? "    no LONG columns: retvali was 100: OCI_NO_DATA, setting to 0\n" : ""},
                 [&, &rows = fetchsize, &fails = failed] {
                   EXPECT_EQ(CURSOR(execAndFetch)(env, cursor, rows), fails);
                 });
    Lines expected = plus_cursor_codes({"OCIAttrSet(stmt1,4," + size + ",0,11,err1)"});
    expected.push_back("OCIStmtExecute(svc1,stmt1,err1," + size + ",0,-,-,0)");
    EXPECT_EQ(calls(), plus_cursor_codes(expected));
    EXPECT_EQ(get_int(cursor, "cdaerrorcode"), reply.error);
    EXPECT_EQ(get_int(cursor, "rowsprocessed"), 5);
  }
  ldapool[0].autocommit = 0;
}

TEST_F(Fetch, FetchesWithoutLongColumns) {
  // trace: of the array fetch.
  const std::tuple<oci_double::Reply, bool, int, const char*> cases[] = {
      {{OCI_SUCCESS, 0}, false, 0, "*** ArrayFetch  OCIStmtFetch  *** \n"},
      {{OCI_NO_DATA, 1403}, true, 1403, "---  OCI_NO_DATA on entry to ArrayFetch..  exiting\n"},
      {{OCI_ERROR, 1002}, true, 1002, "    cdaerrorcode=1002\n"},
      {{OCI_NEED_DATA, 0}, true, 0, "    cdaerrorcode=0\n"},
      {{OCI_ERROR, 3130}, false, 0, "caught ORA-03130"},
      {{OCI_SUCCESS_WITH_INFO, 24345}, true, 24345, "    cdaerrorcode=24345\n"},
      {{OCI_NEED_DATA, 3130}, false, 0, "caught ORA-03130"}};
  for (const auto& [reply, failed, code, trace] : cases) {
    state() = {};
    const jobject cursor = new_cursor();
    state().replies["OCIStmtFetch"] = {reply, reply};
    expect_trace({trace},
                 [&, &fails = failed] { EXPECT_EQ(CURSOR(arrayFetch)(env, cursor, 20), fails); });
    Lines expected = plus_cursor_codes({"OCIStmtFetch(stmt1,err1,20,2,0)"});
    expected.emplace_back(kCode);
    EXPECT_EQ(calls(), expected);
    EXPECT_EQ(get_int(cursor, "cdaerrorcode"), code);
    EXPECT_EQ(cda_of(cursor)->need_data, reply.status == OCI_NEED_DATA);
    EXPECT_EQ(traced([&, fails = reply.status != OCI_SUCCESS] {
                EXPECT_EQ(CURSOR(fetch)(env, cursor), fails);
              }),
              "*** OCIStmtFetch 1 ***\n    cdaerrorcode=" + std::to_string(reply.error) + "\n");
    EXPECT_EQ(calls(), plus_cursor_codes({"OCIStmtFetch(stmt1,err1,1,2,0)"}));
    EXPECT_EQ(get_int(cursor, "cdaerrorcode"), reply.error);
  }
}

TEST_F(Fetch, NoMoreRowsAreAskedForThanTheColumnsHoldSinceTheirLastDefine) {
  const jobject cursor = new_cursor();
  const jobject short_column = new_column(1, SQLT_CHR, 2);
  CURSOR(bindSelectItem)(env, cursor, new_column(1, SQLT_CHR, 1), 20);
  CURSOR(bindSelectItem)(env, cursor, short_column, 2);
  calls();
  for (const jint rows : {3, 20, -1}) {
    CURSOR(execAndFetch)(env, cursor, rows);
    raised();
    CURSOR(arrayFetch)(env, cursor, rows);
    raised();
  }
  EXPECT_THAT(calls(), Each(Not(testing::ContainsRegex("Execute|Fetch"))));
  EXPECT_EQ(CURSOR(arrayFetch)(env, cursor, 2), JNI_FALSE);
  CURSOR(bindSelectItem)(env, cursor, short_column, 20);
  EXPECT_EQ(CURSOR(execAndFetch)(env, cursor, 20), JNI_FALSE);
  CURSOR(bindSelectItem)(env, cursor, short_column, 0);
  CURSOR(exec)(env, cursor);
  EXPECT_NE(raised(), "") << "an execution brings a row";
}

TEST_F(Fetch, LongValueInThreePieces) {
  const jobject cursor = long_cursor(1);
  state().reply("OCIStmtExecute", OCI_ERROR, 1013);  // shows in the fetch, or not at all
  state().reply("OCIStmtFetch", OCI_NEED_DATA, 3130);
  state().pieces = {{0, OCI_FIRST_PIECE, "abcd", kMore},
                    {0, OCI_NEXT_PIECE, "efgh", kMore},
                    {0, OCI_LAST_PIECE, "ij", kDone}};
  state().row_count = 1;
  expect_trace(
      {"     reset fetchsize to zero, longCount = 1\n", "*** OCIStmtExecute 2 ***   fetchsize=0\n",
       "*** ArrayFetch  OCIStmtFetch  *** \n", "    cdaerrorcode=3130\n",
       "***  OCIStmtExecute 2:  caught ORA-03130  buffer for next piece req'd, swallowing\n",
       "BufPool:getbuf: bufPoolSP = 0, return new char buf\n", " longdata_node num=0   size=4",
       "     data:  (4 bytes)\n    bytes:\n    61 62 63 64 \n    text:\n    abcd\n"},
      [&] { EXPECT_FALSE(CURSOR(execAndFetch)(env, cursor, 20)); });
  Lines expected = plus_cursor_codes(
      {"OCIStmtExecute(svc1,stmt1,err1,0,0,-,-,0)", "OCIStmtFetch(stmt1,err1,1,2,0)"});
  expected.emplace_back(kCode);
  for (const char* piece : {"1", "2", "3"}) {
    expected.insert(expected.end(),
                    {"OCIStmtGetPieceInfo(stmt1,err1,6)",
                     std::string("OCIStmtSetPieceInfo(def1,6,err1,4,") + piece + ",-,-)",
                     "OCIStmtFetch(stmt1,err1,1,2,0)"});
  }
  EXPECT_EQ(calls(), expected);
  EXPECT_EQ(value_of(longs[0]), "abcd|efgh|ij|");
  EXPECT_EQ(column_of(longs[0])->indpvect[0], 0);
  EXPECT_EQ(get_int(cursor, "cdaerrorcode"), 0) << "3130 is no error";
  EXPECT_EQ(get_int(cursor, "rowsprocessed"), 1);
  EXPECT_EQ(cda_of(cursor)->need_data, 1);

  // The next row takes the buffers of this one, the last released first.
  const std::vector<const void*> first_row = std::exchange(state().piece_buffers, {});
  expect_trace({"--- longdata_node::releasechain release number: 0\n",
                "BufPool:releaseBuf: bufPoolSP = 0, push char buf onto stack and add one\n",
                "--- longdata_node::releasechain release number: 1\n",
                "BufPool:releaseBuf: bufPoolSP = 1, push char buf onto stack and add one\n",
                "BufPool:getbuf: bufPoolSP = 3, subtract one and return char buf from stack\n",
                " longdata_node num=0   size=4", " longdata_node num=1   size=4"},
               [&] {
                 fetch_row(cursor, {{0, OCI_FIRST_PIECE, "1234", kMore},
                                    {0, OCI_NEXT_PIECE, "5678", kMore},
                                    {0, OCI_LAST_PIECE, "", kDone}});
               });
  EXPECT_EQ(value_of(longs[0]), "1234|5678||");
  EXPECT_THAT(state().piece_buffers, ElementsAre(first_row[2], first_row[1], first_row[0]));
  const columndata* column = column_of(longs[0]);
  EXPECT_EQ(column->longbuf_head->prev, column->longbuf_tail->next);
  expect_trace({"BufPool: checking bufPool entry: 0\nBufPool: deleteing bufPool entry: 0  PTR\n"
                "-- longdata_node destructor, free buffer for buffer: =0\n",
                "BufPool: now delete the bufPool object\n"},
               [&] { return CURSOR(close)(env, cursor); });
  EXPECT_EQ(column->longbuf_head, nullptr);
}

TEST_F(Fetch, SeveralLongColumnsInOrderOfDefinitionEvenWhenThatFails) {
  state().replies["OCIDefineByPos"] = {{}, {OCI_ERROR, 1007}};
  const jobject cursor = long_cursor(2);
  EXPECT_EQ(get_int(cursor, "cdaerrorcode"), 1007);
  EXPECT_EQ(cda_of(cursor)->long_count, 2);
  EXPECT_EQ(fetch_row(cursor, {{0, OCI_ONE_PIECE, "abc", kMore},
                               {1, OCI_FIRST_PIECE, "defg", kMore},
                               {1, OCI_LAST_PIECE, "h", kDone}}),
            JNI_FALSE);
  EXPECT_EQ(value_of(longs[0]), "abc|");
  EXPECT_EQ(value_of(longs[1]), "defg|h|");
  EXPECT_EQ(fetch_row(cursor, {{0, OCI_ONE_PIECE, "x", kMore}, {1, OCI_ONE_PIECE, "y", kDone}}),
            JNI_FALSE);
  EXPECT_EQ(value_of(longs[0]) + value_of(longs[1]), "x|y|");
  EXPECT_EQ(cda_of(cursor)->longdata_bufpool->bufPoolSP, 1);
  EXPECT_EQ(fetch_row(cursor, {{0, OCI_ONE_PIECE, "1", kMore},
                               {1, OCI_ONE_PIECE, "2", kMore},
                               {0, OCI_ONE_PIECE, "not ours", kDone}}),
            JNI_FALSE)
      << "a request beyond the defined columns ends the row";
  EXPECT_EQ(value_of(longs[0]) + value_of(longs[1]), "1|2|");
  // A chain that does not have what it should.
  columndata* column = std::exchange(cda_of(cursor)->lc_tail->coldata, nullptr);
  EXPECT_EQ(fetch_row(cursor, {{0, OCI_ONE_PIECE, "a", kDone}}), JNI_FALSE);
  expect_raised("InternalError", "in LONG fetch, got NULL column data from longcol_node pointer !");
  cda_of(cursor)->lc_tail->coldata = column;
  cda_of(cursor)->long_count = 3;
  EXPECT_EQ(fetch_row(cursor, {{0, OCI_ONE_PIECE, "a", kMore},
                               {1, OCI_ONE_PIECE, "b", kMore},
                               {0, OCI_ONE_PIECE, "c", kDone}}),
            JNI_FALSE);
  expect_raised("InternalError", "in LONG fetch, got NULL longcol_node pointer !");
  CURSOR(close)(env, cursor);
}

TEST_F(Fetch, EndsOfThePieceLoop) {
  const std::tuple<oci_double::Reply, bool, int, sb2, const char*> cases[] = {
      {{OCI_SUCCESS, 0}, false, 0, 0, ""},
      {{OCI_NO_DATA, 1403}, false, 0, 0, ""},
      {{OCI_SUCCESS_WITH_INFO, 24345}, false, 0, 0, ""},
      {{OCI_ERROR, 1405}, false, 0, -1, "OCIStmtFetch got ORA-1405: fetched column value is NULL"},
      {{OCI_ERROR, 1013}, true, 1013, 0, " OCIStmtFetch returned OCI_ERROR\n"}};
  for (const auto& [end, failed, code, indicator, trace] : cases) {
    state() = {};
    const jobject cursor = long_cursor(1);
    expect_trace({trace, indicator == -1 ? "thus setting null ind to true for col at PTR" : ""},
                 [&, &last = end, &fails = failed] {
                   EXPECT_EQ(fetch_row(cursor, {{0, OCI_ONE_PIECE, "ab", last}}), fails);
                 });
    EXPECT_EQ(get_int(cursor, "cdaerrorcode"), code);
    EXPECT_EQ(column_of(longs[0])->indpvect[0], indicator);
    const bool empty = end.status == OCI_NO_DATA;
    EXPECT_EQ(value_of(longs[0]), empty ? "|" : "ab|");
    state().reply("OCIStmtSetPieceInfo", OCI_SUCCESS_WITH_INFO, 24345);
    EXPECT_EQ(fetch_row(cursor, {{0, OCI_ONE_PIECE, "v", kDone}}), JNI_TRUE);
    EXPECT_EQ(value_of(longs[0]), "v|") << "the buffer was taken";
    EXPECT_EQ(column_of(longs[0])->indpvect[0], 0) << "each row clears that of the one before";
    CURSOR(close)(env, cursor);
  }
}

TEST_F(Fetch, PieceLengthsMayChangeAndBeUseless) {
  const jobject cursor = long_cursor(1);
  for (const int length : {4, 8 << 20, 16, 0, -1, INT_MIN}) {
    set_int(cursor, "selPieceLength", length);
    fetch_row(cursor, {{0, OCI_ONE_PIECE, std::string(4, 'x'), kDone}});
    raised();
    if (length < 4) continue;
    EXPECT_EQ(value_of(longs[0]), "xxxx|");
    EXPECT_THAT(calls(),
                Contains("OCIStmtSetPieceInfo(def1,6,err1," + std::to_string(length) + ",0,-,-)"));
  }
  CURSOR(close)(env, cursor);
}

class Values : public CursorTest {
 protected:
  using Getter = jint (*)(JNIEnv*, jobject, jobject, jint, jbyteArray);
  /// What a getter returns, and what an array that held `room` holds then: "3 abc...".
  std::string filled(Getter getter, jobject column, jint row, const std::string& room) {
    const jbyteArray array = bytes(room);
    const jint length = getter(env, cursor, column, row, array);
    exception = raised();
    return std::to_string(length) + " " + contents(array);
  }

  std::string exception;
};

TEST_F(Values, TextFitsOrIsRefusedAndBytesAreCut) {
  const std::string raw(100, 'r'), dots(40, '.');
  const jobject texts = fetched_column({"a", "bb", "ccc", ""}, 31);
  const jobject bins = fetched_column({std::string("\0\1\2", 3), raw, "null"}, 100, SQLT_BIN);
  const jobject just_below = fetched_column({"x"}, 65535, SQLT_BIN),
                empty = fetched_column({""}, 0, SQLT_BIN);
  column_of(texts)->indpvect[1] = column_of(bins)->indpvect[2] = -1;
  const std::tuple<Getter, jobject, jint, std::string, std::string, const char*> cases[] = {
      {CURSOR(getStringValue), texts, 2, "..........", "3 ccc.......", ""},
      {CURSOR(getStringValue), texts, 2, "...", "3 ccc", ""},
      {CURSOR(getStringValue), texts, 2, "..", "0 ..",
       "java.lang.NullPointerException: Null array"},
      {CURSOR(getStringValue), texts, 0, ".", "1 a", ""},
      {CURSOR(getStringValue), texts, 1, "....", "-1 ....", ""},
      {CURSOR(getStringValue), texts, 3, "....", "0 ....", ""},
      {CURSOR(getByteValue), bins, 1, dots, "40 " + raw.substr(0, 40), ""},
      {CURSOR(getByteValue), bins, 0, "....", std::string("3 \0\1\2.", 6), ""},
      {CURSOR(getByteValue), bins, 2, "....", "0 ....", ""},
      {CURSOR(getByteValue), empty, 0, "..", "0 ..", ""},
      {CURSOR(getByteValue), just_below, 0, "..", "1 x.", ""}};
  for (const auto& [getter, column, row, room, expected, error] : cases) {
    EXPECT_EQ(filled(getter, column, row, room), expected);
    EXPECT_EQ(exception, error);
  }
  const jobject large = fetched_column({"x"}, 65536, SQLT_BIN);
  EXPECT_EQ(CURSOR(getByteValue)(env, cursor, large, 0, bytes(std::string(70000, '.'))), 65536)
      << "a returned length has only 16 bits";
  expect_trace(
      {"*** OciCursor getStringValue *** ", "    bytes (3 bytes)\n    bytes:\n    63 63 63 \n"},
      [&] { return CURSOR(getStringValue)(env, cursor, texts, 2, bytes("....")); });
}

TEST_F(Values, NumbersDatesIndicatorsAndReturnCodes) {
  const jobject column = fetched_column({"1234567", "7654321"}, 7, SQLT_DAT);
  columndata* record = column_of(column);
  record->indpvect[1] = -1;
  record->indpvect[0] = 5;
  record->retcodevect[0] = 1406;
  record->retcodevect[1] = 65535;
  record->long_arr[0] = record->long_arr[1] = -42;
  record->double_arr[0] = record->double_arr[1] = 2.5;
  const jint indicators[] = {5, -1};
  const jint codes[] = {1406, 65535};
  const jint integers[] = {-42, 0};
  const double doubles[] = {2.5, -1.0};
  const char* const dates[] = {"1 1234567.", "1 7654321."};
  for (jint row : {0, 1}) {
    EXPECT_EQ(CURSOR(getIndicator)(env, cursor, column, row), indicators[row]);
    EXPECT_EQ(CURSOR(getReturnCode)(env, cursor, column, row), codes[row]);
    EXPECT_EQ(CURSOR(getIntegerValue)(env, cursor, column, row), integers[row]);
    EXPECT_EQ(CURSOR(getDoubleValue)(env, cursor, column, row), doubles[row]);
    EXPECT_EQ(filled(CURSOR(getDateValue), column, row, "........"), dates[row]);
  }
  EXPECT_THAT(filled(CURSOR(getDateValue), column, 0, "......"), testing::EndsWith(" ......"));
  EXPECT_NE(exception, "") << "seven bytes do not fit";
  expect_trace({"*** OciCursor getIndicator *** col at PTR", " recnum = 1", " returning -1\n",
                "*** OciCursor getReturnCode *** for recnum 0", " returning: 1406\n"},
               [&] {
                 CURSOR(getIndicator)(env, cursor, column, 1);
                 CURSOR(getReturnCode)(env, cursor, column, 0);
               });
  EXPECT_THAT(calls(), IsEmpty()) << "getters make no call";
}

TEST_F(Values, RowsOutsideTheColumnAndColumnsWithoutABuffer) {
  const jobject good = fetched_column({"a", "b"}, 10);
  const jobject of_long = new_column(2, SQLT_LNG);
  const jobject of_lob = new_column(2, SQLT_CLOB);
  const jobject without_rows = new_column(0);
  column_of(of_lob)->buflen = -1;
  for (const Native& getter : natives()) {
    const std::string kinds = getter.kinds;
    if (!std::string(getter.name).starts_with("CURSOR(get")) continue;
    for (const jobject column : {good, of_long, of_lob, without_rows}) {
      for (const jint row : {-1, 0, 1, 2, INT_MAX, INT_MIN}) {
        const bool outside = row < 0 || row >= column_of(column)->vectsize;
        if (kinds != "UOrB" && (kinds != "UOr" || !outside)) continue;
        if (column == good && !outside) continue;
        SCOPED_TRACE(testing::Message() << getter.name << " " << row);
        const jbyteArray array = bytes("..........");
        Listed arguments({cursor, column, nullptr, array}, row);
        const double result = getter.call(env, arguments, getter.kinds);
        EXPECT_TRUE(raised() != "" || (!outside && result <= 0));
        EXPECT_EQ(contents(array), "..........");
      }
    }
  }
}

TEST_F(Values, LongPiecesAreHandedOverOnce) {
  const std::pair<decltype(&CURSOR(getLongByteValue)), std::string> cases[] = {
      {CURSOR(getLongByteValue), "getLongByteValue"},
      {CURSOR(getLongStringValue), "getLongStringValue"}};
  cdadata* cda = cda_of(cursor);
  LongdataBufPool* pool = cda->longdata_bufpool = new LongdataBufPool;
  for (const auto& [getter, name] : cases) {
    const jobject column = new_column(1, SQLT_LNG, 4);
    columndata* record = column_of(column);
    EXPECT_EQ(CURSOR(getLongDataLength)(env, cursor, column), 0);
    for (const sb4 size : {4, 4, 1}) {
      auto* node = longdata_node::queue(&record->longbuf_head, &record->longbuf_tail, 8, pool);
      node->buf_size = size;
      std::fill_n(node->buf_ptr, size, static_cast<ub1>('0' + size));
    }
    EXPECT_EQ(CURSOR(getLongDataLength)(env, cursor, column), 9);
    jbyteArray array = bytes("......");
    expect_trace({"*** OciCursor " + name + " *** ", "    offset = 77\n",
                  "    " + name + " data (4 bytes)\n    bytes:\n    34 34 34 34 \n"},
                 [&, &get = getter] { EXPECT_EQ(get(env, cursor, column, 77, array), 4); });
    EXPECT_EQ(contents(array), "4444..");
    EXPECT_EQ(CURSOR(getLongDataLength)(env, cursor, column), 5);
    array = bytes("...");
    getter(env, cursor, column, 0, array);
    expect_raised("InternalError", " in " + name + ": data buffer larger than passed in buffer ");
    EXPECT_EQ(contents(array), "...");
    array = bytes("....");
    while (getter(env, cursor, column, 0, array) != 0) continue;
    EXPECT_EQ(contents(array).front(), '1');
    EXPECT_EQ(CURSOR(getLongDataLength)(env, cursor, column), 0);
    EXPECT_EQ(pool->bufPoolSP, 3);
  }
  EXPECT_EQ(CURSOR(getLongDataLength)(env, cursor, new_column(1, SQLT_NUM)), -10);
  const jobject other = new_column(1, SQLT_LBI);
  EXPECT_EQ(traced([&] { return CURSOR(getLongDataLength)(env, cursor, other); }),
            "*** OciCursor getLongDataLength *** \n");
  CURSOR(close)(env, cursor);
}

}  // namespace
