// Values on their way in: the setters of OciColumn, binds, streamed values, execution.
#include <climits>

#include "jvm_test.h"

using namespace std::string_literals;

namespace {

using Setter = void (*)(jobject column, jboolean setnull);

#define SET(method, ...) \
  [](jobject c, jboolean n) { COLUMN(setValueWith##method)(env, c, __VA_ARGS__); }

template <typename T>
std::string raw(T value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

const std::string kLongest(65535, 'v');  // that has a place in the length vector

class Bind : public CursorTest {
 protected:
  jboolean bind(jobject column) { return CURSOR(bindVariableByPosition)(env, cursor, column); }
  jboolean exec() { return CURSOR(exec)(env, cursor); }
  static std::string bind_call(int position, std::size_t size, int type, bool lengths = true) {
    return "OCIBindByPos(stmt1,null,err1," + std::to_string(position) + "," + std::to_string(size) +
           "," + std::to_string(type) + (lengths ? ",+,+" : ",+,-") + ",-,0,-,0)";
  }
};

TEST_F(Bind, EverySetterLaysDownWhatItsBindHandsOver) {
  // capacity: asked for; 0: no byte buffer; seen: by the interface.
  const std::tuple<Setter, int, int, jint, sb4, std::string> cases[] = {
      {SET(Int, -42, n), 0, 3, 0, 0, raw(-42)},
      {SET(Float, 0.1F, n), 0, 4, 0, 0, raw(double{0.1F})},
      {SET(Double, 0.1, n), 0, 4, 0, 0, raw(0.1)},
      {SET(String, bytes("0123456789"), n), 0, 5, 10, 10, "0123456789\0"s},
      {SET(String, bytes("abc"), n), 10, 5, 10, 10, "abc\0\0\0\0\0\0\0\0"s},
      {SET(String, bytes("abc"), n), 2, 5, 3, 3, "abc\0"s},
      {SET(String, bytes(""), n), 0, 5, 0, 1, "\0"s},
      {SET(String, bytes(kLongest), n), 0, 5, 65535, 65535, kLongest + "\0"s},
      {SET(Bytes, bytes("r\0w"s), n, 1), 0, 23, 3, 3, "r\0w"s},
      {SET(Bytes, bytes("lr"), n, 0), 9, 24, 2, 2, "lr"},
      {SET(Bytes, bytes(""), n, 1), 0, 23, 0, 1, ""},
      {SET(Bytes, bytes(kLongest), n, 1), 0, 23, 65535, 65535, kLongest},
      {SET(Bytes, bytes(kLongest + "v"), n, 1), 0, 23, 65536, 65536, kLongest + "v"},
      {SET(Date, 19, 99, 3, 15, 14, 6, 10, n), 0, 12, 7, 7, "\x77\xC7\x03\x0F\x0E\x06\x0A"},
      {SET(Date, INT_MAX, -1, 257, 255, 256, INT_MIN, -1, n), 0, 12, 7, 7,
       "\x63\x63\x01\xFF\x00\x00\xFF"s},
  };
  for (const jboolean null : {JNI_FALSE, JNI_TRUE}) {
    for (const auto& [set, min_bind_size, type, dbsize, capacity, seen] : cases) {
      SCOPED_TRACE(testing::Message() << type << " of " << seen.size());
      state().serials["bind"] = 0;
      const jobject column = new_column(3, SQLT_CHR, 2);
      columndata* record = column_of(column);
      record->min_bind_size = min_bind_size;
      set(column, null);
      EXPECT_THAT(types(column), ElementsAre(type, type));
      EXPECT_EQ(COLUMN(length)(env, column), dbsize);
      EXPECT_EQ(record->indpvect[0], null ? -1 : 0);
      EXPECT_EQ(bind(column), JNI_FALSE);
      const bool has_length = seen.size() < 65536;
      EXPECT_EQ(calls(), plus_cursor_codes({bind_call(2, seen.size(), type, has_length)}));
      const oci_double::Bind& bound = state().binds.back();
      EXPECT_EQ(bound.bytes, seen);
      EXPECT_EQ(bound.ind, record->indpvect);
      EXPECT_EQ(bound.lengths, has_length ? record->retlenvect : nullptr);
      EXPECT_THAT(std::vector<ub2>(record->retlenvect, record->retlenvect + 3),
                  Each(static_cast<ub2>(has_length ? seen.size() : 0)));
      EXPECT_EQ(record->byte_arrlen, capacity);
    }
  }
}

TEST_F(Bind, OtherTypesByTheColumnsAttributes) {
  enum Where { kBytes, kLong, kDouble, kLocator, kNowhere };
  const std::tuple<int, jint, jint, std::size_t, Where> cases[] = {
      {1, 0, 0, 11, kBytes},    {96, 0, 0, 11, kBytes},   {11, 0, 0, 24, kBytes},
      {104, 0, 0, 24, kBytes},  {105, 0, 0, 20, kBytes},  {8, 0, 0, 10, kBytes},
      {2, 10, 0, 4, kLong},     {2, 10, 2, 8, kDouble},   {2, 0, 0, 8, kDouble},
      {112, 0, 0, 4, kLocator}, {113, 0, 0, 4, kLocator}, {7, 0, 0, 0, kNowhere},
      {2, 0, -127, 8, kDouble}};
  for (const auto& [type, prec, scale, size, where] : cases) {
    SCOPED_TRACE(testing::Message() << type << " " << prec << "," << scale);
    const jobject column = new_column(1, type);
    columndata* record = column_of(column);
    record->external_dbtype = type;
    COLUMN(setLength)(env, column, 10);
    COLUMN(setPrecision)(env, column, prec);
    COLUMN(setScale)(env, column, scale);
    EXPECT_EQ(bind(column), JNI_FALSE);
    EXPECT_EQ(calls().front(), bind_call(1, size, type));
    const void* const buffers[] = {record->byte_arr, record->long_arr, record->double_arr,
                                   &record->lobloc, nullptr};
    EXPECT_EQ(state().binds.back().value, buffers[where]);
  }
}

TEST_F(Bind, KindsOfStream) {
  for (jint kind = 1; kind <= 4; ++kind) {  // ASCII, Unicode, binary, characters
    const int type = kind == 3 ? SQLT_LBI : SQLT_LNG;
    const jobject column = new_column(1, -1);
    COLUMN(setValueWithStream)(env, column, 10 * kind, kind, kind, kind % 2 != 0);
    EXPECT_THAT(types(column), ElementsAre(type, type));
    EXPECT_EQ(COLUMN(length)(env, column), 10 * kind);
    EXPECT_EQ(column_of(column)->indpvect[0], kind % 2 != 0 ? -1 : 0);
    EXPECT_EQ(column_of(column)->byte_arr, nullptr);
    COLUMN(setValueWithInt)(env, column, 1, 0);
    EXPECT_EQ(column_of(column)->piecelen, static_cast<ub4>(kind)) << "the other setters keep it";
    COLUMN(setValueWithStream)(env, column, 77, 7, kind == 1 ? 0 : kind + 4, JNI_TRUE);
    expect_raised("InternalError", "Invalid Stream Type");
    EXPECT_EQ(COLUMN(length)(env, column), 77);
    EXPECT_EQ(column_of(column)->piecelen, 7u);
    EXPECT_EQ(column_of(column)->indpvect[0], -1);
    EXPECT_EQ(COLUMN(internalType)(env, column), SQLT_INT);
  }
}

TEST_F(Bind, ValuesThatCannotBeLaidDownOrHandedOver) {
  // clang-format off
  const std::function<void(jobject, jboolean)> without_room[] = {
      SET(Int, 1, n), SET(Float, 1, n), SET(Double, 1, n), SET(String, bytes("a"), n),
      SET(Bytes, bytes("a"), n, 1), SET(Stream, 1, 1, 1, n), SET(Date, 1, 1, 1, 1, 1, 1, 1, n),
      [this](jobject c, jboolean) { bind(c); }};
  // clang-format on
  for (const auto& set : without_room) {
    set(new_column(0), JNI_FALSE);
    EXPECT_NE(raised(), "") << "a column without rows holds no value";
    EXPECT_THAT(calls(), IsEmpty());
  }
  // A locator's type is no text's: OCI would write the text over the record's locator.
  const std::pair<int, jint> too_long[] = {{SQLT_CLOB, 4},      {SQLT_BLOB, 4}, {SQLT_STR, 1000},
                                           {SQLT_STR, INT_MAX}, {SQLT_BIN, 13}, {SQLT_BIN, -1},
                                           {SQLT_RID, 3},       {SQLT_LNG, 99}};
  const jobject column = new_column();
  COLUMN(setValueWithString)(env, column, bytes("abcdefgh"), JNI_FALSE);
  const ub1* const buffer = column_of(column)->byte_arr;
  for (const auto& [type, length] : too_long) {
    COLUMN(setValueWithString)(env, column, bytes("xyz"), JNI_FALSE);
    EXPECT_EQ(column_of(column)->byte_arr, buffer) << "which a shorter value reuses";
    EXPECT_EQ(std::string(buffer, buffer + 9), "xyzdefgh\0"s);
    COLUMN(setLength)(env, column, length);
    COLUMN(setDbType)(env, column, type);
    bind(column);
    EXPECT_NE(raised(), "") << type << " " << length;
    EXPECT_THAT(calls(), IsEmpty());
  }
  const jobject locator = new_column();
  COLUMN(allocLobLocator)(env, locator, connection, SQLT_CLOB);
  COLUMN(setDbType)(env, locator, SQLT_CHR);
  calls();
  bind(locator);
  EXPECT_NE(raised(), "") << "a text's buffer has no room for an address";
  EXPECT_THAT(calls(), IsEmpty());
  JniTable table;
  table.copy.GetByteArrayElements = pin_nothing;
  for (const bool of_string : {true, false}) {
    of_string ? COLUMN(setValueWithString)(env, column, bytes("abcde"), JNI_TRUE)
              : COLUMN(setValueWithBytes)(env, column, bytes("abcde"), JNI_TRUE, JNI_TRUE);
    expect_raised("NullPointerException", "Value is null");
  }
  EXPECT_EQ(COLUMN(length)(env, column), 5);
  EXPECT_EQ(column_of(column)->indpvect[0], -1);
  EXPECT_EQ(COLUMN(internalType)(env, column), SQLT_LNG);
}

TEST_F(Bind, CursorsAndFailures) {
  const jobject other = new_cursor();
  for (const sword status : {OCI_SUCCESS, OCI_ERROR, OCI_SUCCESS_WITH_INFO}) {
    const jobject column = new_column(1, SQLT_NUM);
    for (const bool of_cursor : {true, false}) {
      state().reply("OCIBindByPos", status, 1036);
      EXPECT_EQ(of_cursor ? CURSOR(bindCursorByPosition)(env, cursor, other, 3) : bind(column),
                status != OCI_SUCCESS);
      EXPECT_EQ(get_int(cursor, "cdaerrorcode"), 1036);
      EXPECT_EQ(calls(),
                plus_cursor_codes({of_cursor ? "OCIBindByPos(stmt1,null,err1,3,4,116,-,-,-,0,-,0)"
                                             : bind_call(1, 8, 65535)}));
    }
    EXPECT_EQ(column_of(column)->boundinsert, 1);
  }
  EXPECT_EQ(state().binds.front().value, &cda_of(other)->stmthp);
  const jobject rowless = new_column(0);
  COLUMN(allocLobLocator)(env, rowless, connection, SQLT_CLOB);
  calls();
  EXPECT_EQ(bind(rowless), JNI_FALSE);
  EXPECT_EQ(calls().front(), "OCIBindByPos(stmt1,null,err1,1,4,112,-,-,-,0,-,0)");
  EXPECT_EQ(exec(), JNI_FALSE);
  CURSOR(close)(env, other);
  CURSOR(bindCursorByPosition)(env, cursor, other, 3);
  expect_raised("NullPointerException", "Null Cursor");
}

constexpr jint kThrows = INT_MIN;
std::deque<jint> java_answers;  // what getNextStreamBuffer returns in place of its reading
std::map<jint, std::string> java_values;  // that it reads, by placeholder
Lines java_calls;  // length of the array, and the other arguments
int arrays_made;

// The Java method: it throws where it has neither an answer nor a value.
jint next_chunk(JNIEnv* e, jobject, jmethodID, va_list args) {
  const auto array = va_arg(args, jbyteArray);
  const jint position = va_arg(args, jint), length = va_arg(args, jint);
  java_calls.push_back(std::to_string(e->GetArrayLength(array)) + "," + std::to_string(position) +
                       "," + std::to_string(length) + "," + std::to_string(va_arg(args, jint)));
  jint answer = java_values.contains(position) ? 0 : kThrows;
  if (!java_answers.empty()) {
    answer = java_answers.front();
    java_answers.pop_front();
  } else if (answer == 0) {
    std::string& value = java_values[position];
    answer = std::min(static_cast<jint>(value.size()), length);
    e->SetByteArrayRegion(array, 0, answer, reinterpret_cast<const jbyte*>(value.data()));
    value.erase(0, static_cast<std::size_t>(answer));
  }
  if (answer == kThrows) e->ThrowNew(e->FindClass("java/io/IOException"), "broken stream");
  return answer;
}

class Stream : public Bind {
 protected:
  void SetUp() override {
    Bind::SetUp();
    java_values.clear();
    java_calls.clear();
    watch.copy.CallIntMethodV = next_chunk;
  }
  void TearDown() override {
    if (cda_of(cursor) != nullptr) CURSOR(close)(env, cursor);
    expect_nothing_held();
    Bind::TearDown();
  }

  void expect_nothing_held() {
    EXPECT_THAT(PinWatch::releases, Each(JNI_ABORT));
    const cdadata* cda = cda_of(cursor);
    EXPECT_TRUE(cda == nullptr || (cda->li_head == nullptr && cda->li_tail == nullptr));
  }

  PinWatch watch;
};

TEST_F(Stream, BindRegistersTheCallbackWhateverTheInterfaceSays) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "OCIBindDynamic(bind1,err1,+,-)"},
      {"OCIBindDynamic", "OCIBindDynamic(bind2,err1,+,-)"},
      {"OCIBindByPos", "OCIBindDynamic(null,err1,+,-)"}};
  jobject reference = nullptr;
  for (const auto& [fails, dynamic] : cases) {
    state().reply(fails, OCI_ERROR, 1036);
    const jobject column = new_stream(1);
    EXPECT_EQ(bind(column), *fails != '\0') << fails;
    EXPECT_EQ(calls(),
              plus_cursor_codes({"OCIBindByPos(stmt1,null,err1,1,10000,24,+,-,-,0,-,2)", dynamic}));
    EXPECT_EQ(column_of(column)->stream_type, 3);
    EXPECT_EQ(column_of(column)->retlenvect[0], 10000);
    EXPECT_EQ(column_of(column)->boundinsert, 1);
    const cdadata* cda = cda_of(cursor);
    EXPECT_EQ(cda->li_head->coldata, column_of(column)) << "one more on the chain";
    EXPECT_TRUE(env->IsSameObject(cda->jocicursor, cursor));
    EXPECT_TRUE(reference == nullptr || reference == cda->jocicursor) << "made once";
    reference = cda->jocicursor;
  }
  CURSOR(close)(env, cursor);
  EXPECT_EQ(cda_of(cursor)->jocicursor, nullptr);
}

TEST_F(Stream, ValuesArriveInTheChunksThatJavaReads) {
  // lengths: of the placeholders' values.
  const std::tuple<std::vector<std::size_t>, Lines> cases[] = {
      {{10000}, {"1: 1, 4096", "1: 2, 4096", "1: 2, 1808", "1: 3, 0"}},
      {{0}, {"1: 3, 0"}},
      {{4096, 0, 3}, {"1: 1, 4096", "1: 3, 0", "2: 3, 0", "3: 1, 3", "3: 3, 0"}}};
  watch.copy.NewByteArray = [](JNIEnv* e, jsize length) {
    arrays_made += length == 4100;
    return JniTable::real->NewByteArray(e, length);
  };
  for (const auto& [lengths, pulled] : cases) {
    std::map<ub4, std::string> values;
    for (const std::size_t length : lengths) {
      const auto position = static_cast<ub4>(values.size() + 1);
      for (std::size_t i = 0; i < length; ++i) values[position] += static_cast<char>(i * 7);
      java_values[static_cast<jint>(position)] = values[position];
      bind(new_stream(static_cast<jint>(position)));
    }
    arrays_made = 0;
    state().pulled = {};
    state().streamed = {};
    calls();
    EXPECT_EQ(exec(), JNI_FALSE);
    const Lines made = calls();
    EXPECT_EQ(std::count(made.begin(), made.end(), kCode), std::ssize(pulled) + 1);
    EXPECT_EQ(state().pulled, pulled);
    EXPECT_EQ(state().streamed, values);
    EXPECT_EQ(arrays_made, static_cast<int>(lengths.size())) << "one for each value";
    expect_nothing_held();
  }
}

TEST_F(Stream, EndsAndFailuresOfTheJavaMethod) {
  // What Java answers, what the interface gets, the start of the exception, the piece length.
  const std::tuple<std::deque<jint>, Lines, std::string, jint> cases[] = {
      {{-5}, {"1: 3, 0"}, "", 4096},
      {{4100, INT_MIN + 1}, {"1: 1, 4100", "1: 3, 0"}, "", 4096},
      {{4101}, {"1: refused"}, "java.lang.", 4096},
      {{7, INT_MAX}, {"1: 1, 7", "1: refused"}, "java.lang.", 4096},
      {{9, kThrows}, {"1: 1, 9", "1: refused"}, "java.io.IOException: broken stream", 4096},
      {{}, {"1: refused"}, "java.lang.OutOfMemoryError: Out of memory", -1},
      {{}, {"1: refused"}, "java.lang.OutOfMemoryError: Out of memory", INT_MAX}};
  for (const auto& [answers, pulled, start, piecelen] : cases) {
    SCOPED_TRACE(start);
    state().pulled = {};
    java_answers = answers;
    const jobject column = new_stream(1, piecelen);
    bind(column);
    const bool fails = !start.empty();
    EXPECT_EQ(exec(), fails);
    EXPECT_EQ(raised().substr(0, fails ? start.size() : 1), start);
    EXPECT_EQ(column_of(column)->ctx != nullptr, fails) << "stays until a chunk was pinned";
    EXPECT_EQ(get_int(cursor, "cdaerrorcode"), fails ? 24343 : 0);
    EXPECT_EQ(state().pulled, pulled);
    expect_nothing_held();
  }
  EXPECT_THAT(java_calls, Each("4100,1,4096,3"));
}

void bind_at_2(jobject cursor, jobject column) {
  COLUMN(setPosition)(env, column, 2);
  CURSOR(bindVariableByPosition)(env, cursor, column);
}

// A step on the cursor `c` or the value's column `v`.
#define STEP(...) []([[maybe_unused]] jobject c, [[maybe_unused]] jobject v) { __VA_ARGS__; }

TEST_F(Stream, WhatHappensBetweenBindAndExecution) {
  enum Outcome { kStreamed, kNoValue, kRefused };
  // clang-format off
  const std::tuple<const char*, Outcome, void (*)(jobject cursor, jobject column)> cases[] = {
      {"bound twice", kStreamed, STEP(CURSOR(bindVariableByPosition)(env, c, v);
            EXPECT_EQ(cda_of(c)->li_tail->coldata, column_of(v)))},
      {"set again", kStreamed, STEP(java_values[2] = "value"; COLUMN(setPosition)(env, v, 2),
            COLUMN(setValueWithStream)(env, v, 9, 2, 1, JNI_TRUE);
            COLUMN(setValueWithInt)(env, v, 1, JNI_TRUE))},
      {"bound to another placeholder too", kStreamed,
       STEP(java_values[2] = "value"; bind_at_2(c, v))},
      {"bound to another placeholder, which is bound again", kStreamed,
       STEP(java_values[2] = "value"; bind_at_2(c, v), bind_at_2(c, new_stream(2)))},
      {"bound on another cursor", kRefused,
       STEP(const jobject other = new_cursor(); CURSOR(bindVariableByPosition)(env, other, v);
            CURSOR(close)(env, other))},
      {"executed already", kRefused, STEP(CURSOR(exec)(env, c))},
      {"column gone", kRefused, STEP(bind_at_2(c, v), COLUMN(native_1finalize)(env, v))},
      {"parsed", kNoValue, STEP(CURSOR(parse)(env, c, bytes("INSERT"), 0))},
      {"closed", kRefused, STEP(CURSOR(close)(env, c))},
      {"reopened", kNoValue, STEP(CURSOR(close)(env, c), CURSOR(open)(env, c, new_connection()))},
      {"cursor gone", kRefused, STEP(CURSOR(native_1finalize)(env, c))}};
  // clang-format on
  state().stmt_type = 4;
  for (const auto& [what, outcome, step] : cases) {
    SCOPED_TRACE(what);
    const jobject column = new_stream(1);
    java_values[1] = "value";
    bind(column);
    step(cursor, column);
    state().streamed = {};
    const bool failed = exec();
    EXPECT_EQ(failed || env->ExceptionCheck(), outcome == kRefused);
    raised();
    EXPECT_EQ(state().streamed[1], outcome == kStreamed ? "value" : "");
    COLUMN(native_1finalize)(env, column);
    CURSOR(close)(env, cursor);
    raised();
    expect_nothing_held();
    if (cda_of(cursor) != nullptr) CURSOR(open)(env, cursor, new_connection());
  }
}

TEST_F(Stream, ExecOnAnyThreadCommitsWithAutocommitAndCleansUp) {
  jboolean failed = JNI_FALSE;
  for (const int autocommit : {0, 1}) {
    for (const sword status : {OCI_SUCCESS, OCI_SUCCESS_WITH_INFO, OCI_ERROR, OCI_NEED_DATA}) {
      ldapool[0].autocommit = autocommit;
      java_values[1] = "value";
      const jobject column = new_stream(1);
      bind(column);
      calls();
      state().streamed = {};
      state().reply("OCIStmtExecute", status, 1400);
      const jobject global = env->NewGlobalRef(cursor);
      on_a_thread([&failed, global](JNIEnv* own) {
        const auto* const functions = std::exchange(own->functions, env->functions);
        failed = CURSOR(exec)(own, global);
        own->functions = functions;
      }).join();
      env->DeleteGlobalRef(global);
      EXPECT_EQ(failed, status != OCI_SUCCESS);
      EXPECT_EQ(state().streamed[1], "value");
      EXPECT_EQ(get_int(cursor, "cdaerrorcode"), 1400);
      EXPECT_THAT(calls(), Contains(std::string("OCIStmtExecute(svc1,stmt1,err1,1,0,-,-,") +
                                    (autocommit != 0 ? "32)" : "0)")));
      EXPECT_EQ(column_of(column)->ctx, nullptr);
      expect_nothing_held();
    }
  }
  ldapool[0].autocommit = 0;
}

TEST_F(Stream, Trace) {
  java_values[1] = "0123456789ab";
  const Lines parts = {
      "*** setValueWithString ***\n    min_bind_size=3\n",
      "*** bindVariableByPosition ***\n",
      "    internal_dbtype=5, colpos=2, prec=0, scale=0, ctx=0, dbsize=3, piecelen=0\n",
      "*** getParamLength ***\n*** bindParamData ***\n    bind value (4 bytes)\n",
      "Setting vector\n*** OCIBindByPos 3 ***   NO DATA_AT_EXEC ",
      "    column buffer (4 bytes)",
      "========= support8:bindParamData, returning &col->lobloc",
      "*** setValueWithStream ***",
      "*** OCIBindByPos 2 ***   DATA_AT_EXEC ",
      "*** OCIBindDynamic 1 ***\n",
      "*** OCIBindDynamic 1 ***   new LONG COLUMN, do setup for insert CALLBACK\n",
      "BIND DYNAMIC: col->bufptr=NULL",
      "*** OCIStmtExecute 1 *** \n*** ICBFP *** \1 OCI_FIRST_PIECE\n",
      "+++ Allocate Java Byte Array +++\n*** getNextStreamBuffer\n    bytes_read=12\n",
      "+++ PIN buffer from ctx->jbytes +++  col:\n  buf_len=12\n    stream chunk (12 bytes)\n",
      " OCI_NEXT_PIECE\n+++ UNPIN ctx->buf from ctx->jbytes +++  col:=1\n",
      "    bytes_read=0\n    OCI_LAST_PIECE\n",
      "   NOTE: OCI_LAST_PIECE==3.   piecep value=\3\n",
      "  buf_len=0",
      "    OCIStmtExecute result=0",
      "*********  clean_longinsert_chain  invoked ***\n---------- got columndata for col: =1\n",
      "+++ exec  - UNPIN ctx->buf from ctx->jbytes +++  col:\n",
      "    +++  first 10 bytes ctx->buf  (10 bytes)\n    bytes:\n    30 31 32 33 34 35 36 37 38 39",
      "+++ exec  - DELETE col->ctx\n",
      "+++ exec  - DELETE and DEQUEUE longcol_node from INSERT CHAIN\n",
      "    Call to getNextStreamBuffer FAILED ... Returning OCI_ERROR\n",
      "    OCIStmtExecute result=-1\n",
      "*** bindCursorByPosition  OCIBindByPos 1 *** colpos=5",
      "*** OCBFP ***  Not implemented, use Piecewise Fetch for LONG chunking"};
  expect_trace(parts, [&] {
    clean_longinsert_chain(env, nullptr);
    const jobject text = new_column(1, SQLT_CHR, 2);
    column_of(text)->min_bind_size = 3;
    COLUMN(setValueWithString)(env, text, bytes("ab"), JNI_FALSE);
    bind(text);
    bind(new_column(1, SQLT_CLOB, 3));
    bind(new_stream(1));
    exec();
    const jobject without_streams = new_cursor();
    CURSOR(bindVariableByPosition)(env, without_streams, new_stream(4));
    CURSOR(exec)(env, without_streams);
    EXPECT_NE(raised(), "");
    CURSOR(bindCursorByPosition)(env, cursor, without_streams, 5);
    CURSOR(close)(env, without_streams);
    EXPECT_EQ(ocbfp(nullptr, nullptr, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr), -1);
  });
}

}  // namespace
