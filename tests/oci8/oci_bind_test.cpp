// Values in, by every external type and by callback, and values and cursors out of blocks.
#include <cfloat>
#include <climits>
#include <cmath>

#include "oci_fixture.h"

namespace {

std::string seven(std::initializer_list<int> values) {
  return std::string(values.begin(), values.end());
}

template <class T>
std::string raw(T value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

class Bind : public LoggedInTest {
 protected:
  Bind() {
    must("create table t (n number, f float, g float(10), s varchar2(4000), d date, r raw(2000))");
    must("create table l (n number, x long)");
    must("create table b (n number, x long raw)");
  }

  /// Inserts one value into "table.column" and fetches it as `fetched`: as first_value, or the
  /// error.
  std::string round_trip(const std::string& target, const std::string& value, ub2 type, ub2 fetched,
                         size_t room) {
    const std::string table = target.substr(0, 1), column = target.substr(2);
    EXPECT_EQ(c.run("delete from " + table), OCI_SUCCESS);
    EXPECT_EQ(c.prepare("insert into " + table + " (" + column + ") values (:v)"), OCI_SUCCESS);
    EXPECT_EQ(c.bind(1, value.data(), value.size(), type), OCI_SUCCESS) << c.code();
    if (const int error = c.error_of(c.execute(1))) return "ORA-" + std::to_string(error);
    EXPECT_EQ(c.row_count(), 1u);
    return first_value("select " + column + " from " + table, fetched, room);
  }

  /// The element, "NULL" for that, or the error.
  std::string first_value(const std::string& query, ub2 type, size_t room) {
    std::string out(room, '?');
    sb2 indicator = 0;
    EXPECT_EQ(c.run(query, 0), OCI_SUCCESS) << c.code();
    EXPECT_EQ(c.define(1, out.data(), room, type, &indicator, &length), OCI_SUCCESS);
    const sword status = c.fetch(1);
    if (status != OCI_SUCCESS) return "none " + std::to_string(c.code());
    if (indicator == -1) return "NULL";
    return room > 65535 ? out : out.substr(0, length);
  }

  /// What is refused while a callback runs.
  void expect_busy() {
    EXPECT_EQ(c.row_count(), 0u);
    EXPECT_EQ(c.attribute<ub2>(OCI_ATTR_SQLFNCODE), 2);
    EXPECT_EQ(c.error_of(c.prepare("select 1 from dual")), 3127);
    EXPECT_EQ(opened_by_a_block(), 3127);
    EXPECT_EQ(OCIHandleFree(c.stmt, OCI_HTYPE_STMT), OCI_ERROR);
    EXPECT_EQ(OCIHandleFree(c.env, OCI_HTYPE_ENV), OCI_ERROR);
  }
  // What becomes of a block that would make the executing statement its query.
  int opened_by_a_block() {
    OCIStmt* executing = std::exchange(c.stmt, c.make<OCIStmt>(OCI_HTYPE_STMT));
    c.prepare("begin open :c for select 1 from dual; end;");
    c.bind(1, &executing, 4, SQLT_RSET);
    const int error = c.error_of(c.execute(1));
    OCIHandleFree(std::exchange(c.stmt, executing), OCI_HTYPE_STMT);
    return error;
  }

  ub2 length = 0;
};

TEST_F(Bind, EveryTypeComesBackAsItWentIn) {
  std::string noise(65536, 0);
  for (size_t i = 0; i < noise.size(); ++i) noise[i] = static_cast<char>(i);
  const auto same = [&](const char* column, ub2 type, const std::string& value, ub2 fetched = 0) {
    if (fetched == 0) fetched = type;
    EXPECT_EQ(round_trip(column, value, type, fetched, value.size()), value) << column << type;
  };
  same("t.s", SQLT_AFC, std::string("a\0b", 3), SQLT_CHR);
  same("t.s", SQLT_LNG, std::string(4000, 'x'), SQLT_CHR);
  same("l.x", SQLT_CHR, "007" + std::string(65533, 'y'), SQLT_LNG);
  for (const int value : {SCHAR_MIN, INT_MIN, INT_MAX}) same("t.n", SQLT_INT, raw(value));
  same("t.n", SQLT_INT, raw<short>(SHRT_MAX));
  same("t.n", SQLT_INT, raw(LLONG_MIN));
  same("t.n", SQLT_FLT, raw(1.5f));
  same("t.s", SQLT_CHR, "abc  ");
  for (const auto& day : {seven({118, 199, 12, 31, 24, 60, 60}), seven({53, 88, 1, 1, 1, 1, 1}),
                          seven({199, 199, 12, 31, 1, 1, 1})}) {
    same("t.d", SQLT_DAT, day);
  }
  same("t.r", SQLT_BIN, noise.substr(0, 256));
  same("b.x", SQLT_LBI, noise.substr(0, 65535));
  same("b.x", SQLT_LBI, noise);
  same("l.x", SQLT_LNG, std::string(65535, 'y'));
  for (const double real : {0.1, 0.1 + 0.2, 1.0 / 3, 1e-130, std::nextafter(1e126, 0), -DBL_EPSILON,
                            1234567890123456789.0, 1.2345678901234567e20}) {
    same("t.n", SQLT_FLT, raw(real));
    same("t.f", SQLT_FLT, raw(-real));
  }
}

TEST_F(Bind, ValuesAreReadByTheRulesOfTheirType) {
  const std::tuple<const char*, std::string, ub2, const char*> cases[] = {
      {"t.n", raw(-0.0), SQLT_FLT, "0"},
      {"t.n", raw(3.0), SQLT_FLT, "3"},
      {"t.n", raw(1e126), SQLT_FLT, "ORA-1426"},
      {"t.n", raw(DBL_TRUE_MIN), SQLT_FLT, "ORA-1426"},
      {"t.n", raw(-HUGE_VAL), SQLT_FLT, "ORA-1426"},
      {"t.n", raw(std::nan("")), SQLT_FLT, "ORA-1426"},
      {"t.g", raw(1024.5), SQLT_FLT, "1025"},
      {"t.g", raw(-10245), SQLT_INT, "-10250"},
      {"t.n", "12.50", SQLT_CHR, "12.5"},
      {"t.n", "12x", SQLT_CHR, "ORA-1722"},
      {"t.s", std::string("ab\0cd", 5), SQLT_STR, "ab"},
      {"t.s", "abc", SQLT_STR, "ORA-1480"},
      {"t.s", std::string(2, 0), SQLT_STR, "NULL"},
      {"t.s", "", SQLT_CHR, "NULL"},
      {"t.r", "", SQLT_BIN, "NULL"},
      {"t.d", seven({119, 199, 13, 1, 1, 1, 1}), SQLT_DAT, "ORA-1843"},
      {"t.d", seven({0, 0, 0, 0, 0, 0, 0}), SQLT_DAT, "ORA-1841"},
  };
  for (const auto& [column, value, type, expected] : cases) {
    EXPECT_EQ(round_trip(column, value, type, SQLT_CHR, 100), expected) << value;
  }
}

// A describe has said VARCHAR2 or NUMBER, before there was a value.
TEST_F(Bind, ADateInASelectListIsFetchedAsText) {
  const std::string day = seven({119, 199, 3, 15, 14, 6, 10});
  for (const auto& [item, expected] : std::vector<std::pair<std::string, std::string>>{
           {":d", "15-MAR-99"}, {":d + 1", "16-MAR-99"}, {"trunc(:d)", "15-MAR-99"}}) {
    std::string out(9, '?');
    ASSERT_EQ(c.prepare("select " + item + " from dual"), OCI_SUCCESS);
    ASSERT_EQ(c.bind(1, day.data(), day.size(), SQLT_DAT), OCI_SUCCESS);
    ASSERT_EQ(c.define(1, out.data(), out.size(), SQLT_CHR), OCI_SUCCESS);
    EXPECT_EQ(c.error_of(c.execute(1)), 0) << item;
    EXPECT_EQ(out, expected) << item;
  }
}

TEST_F(Bind, IndicatorAndLengthAreReadByEachExecute) {
  sb2 indicator = 0;
  ub2 size = 2;
  int number = 1;
  ASSERT_EQ(c.prepare("insert into t (s, n) values (:s, :n)"), OCI_SUCCESS);
  ASSERT_EQ(c.bind(1, "wrong", 5, SQLT_CHR), OCI_SUCCESS);
  OCIBind* former = c.bound;
  ASSERT_EQ(c.bind(1, "abc", 3, SQLT_CHR, &indicator, &size), OCI_SUCCESS);
  EXPECT_EQ(c.bound, former);
  ASSERT_EQ(c.bind(2, &number, 4, SQLT_INT), OCI_SUCCESS);
  const std::tuple<int, ub2, sb2, int> steps[] = {
      {1, 2, 0, 0}, {2, 0, 0, 0}, {3, 4, 0, 1458}, {3, 4, -1, 0}};
  for (const auto& [next, length_of_next, null, error] : steps) {
    number = next, size = length_of_next, indicator = null;
    EXPECT_EQ(c.error_of(c.execute(1)), error);
  }
  const int numbers[] = {4, 5, 6};
  ASSERT_EQ(c.bind(2, numbers, 4, SQLT_INT), OCI_SUCCESS);
  ASSERT_EQ(c.bind(1, "xyz", 1, SQLT_CHR), OCI_SUCCESS);
  EXPECT_EQ(c.execute(3), OCI_SUCCESS);
  EXPECT_EQ(c.row_count(), 3u);
  EXPECT_EQ(first_value("select n from t where s = 'z'", SQLT_CHR, 9), "6");
  EXPECT_EQ(first_value("select s from t where n = 1", SQLT_CHR, 9), "ab");
  EXPECT_EQ(first_value("select count(*) from t where s is null", SQLT_CHR, 9), "2");
}

TEST_F(Bind, MistakesHaveTheirCodes) {
  const int one = 1;
  ASSERT_EQ(c.prepare("insert into t (n, s) values (:a, :a)"), OCI_SUCCESS);
  const std::tuple<ub4, const void*, int, ub2, ub4, int> cases[] = {
      {0, &one, 4, SQLT_INT, 0, 1036},     {3, &one, 4, SQLT_INT, 0, 1036},
      {1, nullptr, 4, SQLT_INT, 0, 24328}, {1, &one, -1, SQLT_CHR, 0, 1459},
      {1, &one, 3, SQLT_INT, 0, 1459},     {1, &one, 4, SQLT_DAT, 0, 1459},
      {1, &one, 4, 999, 0, 3115},          {1, &one, 4, SQLT_INT, OCI_DATA_AT_EXEC, 3115}};
  for (const auto& [position, value, room, type, mode, expected] : cases) {
    const auto size = static_cast<size_t>(room);
    const sword status = c.bind(position, value, size, type, nullptr, nullptr, nullptr, mode);
    EXPECT_EQ(c.error_of(status), expected) << position << ' ' << type;
  }
  EXPECT_EQ(OCIBindDynamic(nullptr, c.err, nullptr, nullptr, nullptr, nullptr), OCI_INVALID_HANDLE);
  EXPECT_EQ(c.code(), 3115) << "the failed bind's";
  ASSERT_EQ(c.bind(1, &one, 4, SQLT_INT), OCI_SUCCESS);
  EXPECT_EQ(OCIBindDynamic(c.bound, c.err, nullptr, nullptr, nullptr, nullptr), OCI_ERROR);
  EXPECT_EQ(c.attribute<ub4>(OCI_ATTR_FNCODE), 17u);
  EXPECT_EQ(c.error_of(c.execute(1)), 1008);
  c.bind(2, nullptr, 9, SQLT_LNG, nullptr, nullptr, nullptr, OCI_DATA_AT_EXEC);
  EXPECT_EQ(c.attribute<ub4>(OCI_ATTR_FNCODE), 66u);
  EXPECT_EQ(c.error_of(c.execute(1)), 3129);
  ASSERT_EQ(c.prepare("select 1 from dual"), OCI_SUCCESS);
  EXPECT_EQ(OCIBindDynamic(c.bound, c.err, nullptr, nullptr, nullptr, nullptr), OCI_INVALID_HANDLE);
}

// The caller's memory is its own again after the execute, also when rows are still to come.
TEST_F(Bind, AnOpenQueryKeepsItsValues) {
  must("insert into t (n, s) select rownum, 'key' from user_tables");
  std::string key = "key", out(9, 0);
  ASSERT_EQ(c.prepare("select s || :k from t where s = :k"), OCI_SUCCESS);
  ASSERT_EQ(c.bind(1, key.data(), 3, SQLT_CHR), OCI_SUCCESS);
  ASSERT_EQ(c.bind(2, key.data(), 3, SQLT_CHR), OCI_SUCCESS);
  ASSERT_EQ(c.define(1, out.data(), 9, SQLT_STR), OCI_SUCCESS);
  ASSERT_EQ(c.execute(0), OCI_SUCCESS);
  ASSERT_EQ(c.fetch(1), OCI_SUCCESS);
  std::fill(key.begin(), key.end(), '#');
  ASSERT_EQ(c.bind(1, "other", 5, SQLT_CHR), OCI_SUCCESS);
  for (ub4 rows = 1; rows < 3; ++rows) {
    EXPECT_STREQ(out.c_str(), "keykey");
    ASSERT_EQ(c.fetch(1), OCI_SUCCESS) << c.code();
  }
}

TEST_F(Bind, StreamsArePulledPieceByPiece) {
  const std::string value = std::string(9999, 'a') + "z";
  sb2 null = -1;
  const auto expect = [&](const std::string& given, sb2* indicator, const std::vector<int>& asked,
                          const std::string& stored, size_t failing = 0, size_t breaking = 0) {
    Stream stream{given, 4096};
    stream.meanwhile = [&] {
      expect_busy();
      if (stream.asked.size() == breaking) OCIBreak(c.svc, c.err);
      return stream.asked.size() == failing ? OCI_ERROR : OCI_CONTINUE;
    };
    must("delete from l");
    const char* const insert = "insert into l values (1, :x)";
    ASSERT_EQ(c.stream(insert, SQLT_LNG, stream, indicator), OCI_SUCCESS);
    const int raised = failing != 0 ? 24343 : breaking != 0 ? 1013 : 0;
    EXPECT_EQ(c.error_of(c.execute(1)), raised);
    EXPECT_EQ(c.row_count(), raised != 0 ? 0u : 1u);
    EXPECT_EQ(stream.asked, asked);
    EXPECT_EQ(first_value("select x from l", SQLT_LNG, 10000), stored);
  };
  expect(value, nullptr, {1, 2, 2}, value);
  expect("", nullptr, {1}, "NULL");
  expect(value, &null, {}, "NULL");
  expect(value, nullptr, {1, 2, 2}, "none 1403", 3);
  expect(value, nullptr, {1, 2}, "none 1403", 0, 2);
}

// What a block ends with for an output variable, whose memory is no value of its type before.
TEST_F(Bind, ABlockIsUndoneWhereItsOutputDoesNotFitOrIsNotFound) {
  const std::tuple<const char*, ub2, int> cases[] = {
      {":d := 'seven77'", SQLT_STR, 1406},
      {":d := null", SQLT_DAT, 1405},
      {":d := 'x'", SQLT_FLT, 1722},
      {"savepoint s; :d := null", SQLT_DAT, 1405},
      {"select 'x' into :d from t where n = 0", SQLT_STR, OCI_NO_DATA},
      {":d := sysdate", SQLT_DAT, 0},
      {"select 1, sysdate into v, :d from dual", SQLT_DAT, 0}};
  for (const auto& [step, type, error] : cases) {
    std::string out(type == SQLT_FLT ? 8 : 7, '\xEE');
    const std::string insert = "declare v number; begin insert into t (n) values (7); ";
    ASSERT_EQ(c.prepare(insert + step + "; end;"), OCI_SUCCESS);
    ASSERT_EQ(c.bind(1, out.data(), out.size(), type), OCI_SUCCESS);
    const ub4 mode = error == 0 ? OCI_DEFAULT : OCI_COMMIT_ON_SUCCESS;
    EXPECT_EQ(c.error_of(c.execute(1, mode)), error) << step;
    EXPECT_TRUE(error != OCI_NO_DATA || c.code() == 1403);
    EXPECT_EQ(c.row_count(), error == 0 ? 1u : 0u) << step;
    EXPECT_EQ(c.number("select count(*) from t"), error == 0 ? 1 : 0) << step;
    must("rollback");
  }
}

// Each iteration has its own, and none runs where one of them is wrong.
TEST_F(Bind, CursorVariablesMayBeAnArray) {
  OCIStmt* opened[] = {c.make<OCIStmt>(OCI_HTYPE_STMT), nullptr};
  const int values[] = {11, 22};
  ASSERT_EQ(c.prepare("begin insert into t (n) values (:a); open :c for select :a from dual; end;"),
            OCI_SUCCESS);
  ASSERT_EQ(c.bind(1, values, 4, SQLT_INT), OCI_SUCCESS);
  ASSERT_EQ(c.bind(2, opened, sizeof opened[0], SQLT_RSET), OCI_SUCCESS);
  EXPECT_EQ(c.error_of(c.execute(2)), 1001);
  EXPECT_EQ(c.row_count(), 0u);
  opened[1] = c.make<OCIStmt>(OCI_HTYPE_STMT);
  ASSERT_EQ(c.execute(2), OCI_SUCCESS) << c.code();
  for (int i = 0; i < 2; ++i) {
    int number = 0;
    c.stmt = opened[i];
    ASSERT_EQ(c.define(1, &number, 4, SQLT_INT), OCI_SUCCESS);
    EXPECT_EQ(c.fetch(1), OCI_SUCCESS) << c.code();
    EXPECT_EQ(number, values[i]);
  }
}

// As after an execute of that query; the block may be gone by then.
TEST_F(Bind, ACursorVariableIsTheOpenedQuery) {
  must("insert into t (n, s) values (5, 'five')");
  must("insert into t (n, s) values (6, 'six')");
  Client other;
  OCIStmt* opened = c.make<OCIStmt>(OCI_HTYPE_STMT);
  int least = 7, number = 0;
  ASSERT_EQ(c.prepare("begin open :c for select n, s from t where n >= :n; end;"), OCI_SUCCESS);
  ASSERT_EQ(c.bind(2, &least, 4, SQLT_INT), OCI_SUCCESS);
  for (void* wrong : std::vector<void*>{nullptr, c.err, c.stmt, other.stmt}) {
    ASSERT_EQ(c.bind(1, &wrong, 4, SQLT_RSET), OCI_SUCCESS);
    EXPECT_EQ(c.error_of(c.execute(1)), 1001);
  }
  ASSERT_EQ(c.bind(1, "text", 4, SQLT_CHR), OCI_SUCCESS);
  EXPECT_EQ(c.error_of(c.execute(1)), 932);
  ASSERT_EQ(c.bind(1, &opened, 4, SQLT_RSET), OCI_SUCCESS);
  for (; least > 5; --least) ASSERT_EQ(c.execute(1), OCI_SUCCESS) << c.code();
  must("delete from t where n = 5");

  std::swap(c.stmt, opened);
  EXPECT_EQ(c.attribute<ub4>(OCI_ATTR_PARAM_COUNT), 2u);
  EXPECT_EQ(c.attribute<ub2>(OCI_ATTR_STMT_TYPE), OCI_STMT_SELECT);
  EXPECT_EQ(c.error_of(c.fetch(1)), 24374);
  ASSERT_EQ(c.define(1, &number, 4, SQLT_INT), OCI_SUCCESS);
  EXPECT_EQ(c.fetch(1), OCI_SUCCESS) << c.code();
  EXPECT_EQ(number, 6);
  EXPECT_EQ(c.row_count(), 1u);
  EXPECT_EQ(c.fetch(1), OCI_NO_DATA);
  ASSERT_EQ(OCISessionEnd(c.svc, c.err, c.ses, OCI_DEFAULT), OCI_SUCCESS);
  EXPECT_EQ(c.error_of(c.fetch(1)), 1002);
}

}  // namespace
