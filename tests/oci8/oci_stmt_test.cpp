#include "oci_fixture.h"

namespace {

class Stmt : public LoggedInTest {
 protected:
  /// Gets what is selected from t: by a fetch, or out of a block.
  sword get(bool block, const std::string& selected, void* value, size_t room, ub2 type,
            sb2* indicator, ub2* length, ub2* code) {
    if (block) {
      EXPECT_EQ(c.prepare("begin select " + selected + " into :1 from t; end;"), OCI_SUCCESS);
      EXPECT_EQ(c.bind(1, value, room, type, indicator, length, code), OCI_SUCCESS);
      const sword status = c.execute(1);
      EXPECT_EQ(c.row_count(), status == OCI_ERROR ? 0u : 1u);
      return status;
    }
    EXPECT_EQ(c.run("select " + selected + " from t", 0), OCI_SUCCESS);
    EXPECT_EQ(c.define(1, value, room, type, indicator, length, code), OCI_SUCCESS);
    return c.fetch(1);
  }
};

TEST_F(Stmt, CallsOutOfOrderAndBadStatementsHaveTheirCodes) {
  ub2 value = 0;
  const auto error_of = [&](ub4 attribute) {
    return c.error_of(OCIAttrGet(c.stmt, OCI_HTYPE_STMT, &value, nullptr, attribute, c.err));
  };
  EXPECT_EQ(error_of(OCI_ATTR_STMT_TYPE), 24337);
  EXPECT_EQ(error_of(OCI_ATTR_USERNAME), 24315);
  EXPECT_EQ(c.error_of(c.execute(1)), 24337);
  const std::tuple<const char*, ub4, ub4, int> cases[] = {
      {"delete from dual", 0, OCI_DEFAULT, 24333},
      {"select :a from dual", 0, OCI_DEFAULT, 1008},
      {"select :a from dual", 0, OCI_DESCRIBE_ONLY, 0},
      {"select x from nowhere", 0, OCI_DESCRIBE_ONLY, 942},
      {"select 1 from dual", 1, OCI_DEFAULT, 24374},
  };
  for (const auto& [sql, iterations, mode, code] : cases) {
    EXPECT_EQ(c.error_of(c.run(sql, iterations, mode)), code) << sql;
  }
  ASSERT_EQ(c.run("select x from nowhere", 0), OCI_ERROR);
  EXPECT_EQ(c.attribute<ub2>(OCI_ATTR_PARSE_ERROR_OFFSET), 14);
  EXPECT_EQ(c.error_of(c.fetch(1)), 942);  // the failed execute again
  ASSERT_EQ(c.prepare("select 1 from dual"), OCI_SUCCESS);
  EXPECT_EQ(c.attribute<ub4>(OCI_ATTR_FNCODE), 13u);
  EXPECT_EQ(c.attribute<ub4>(OCI_ATTR_PREFETCH_ROWS), 1u);
  EXPECT_EQ(c.error_of(c.fetch(1)), 1002);
  const std::tuple<ub4, void*, size_t, ub2, int> defines[] = {
      {0, &value, 4, SQLT_INT, 1007},         {1, nullptr, 4, SQLT_INT, 24328},
      {1, &value, 0, SQLT_STR, 1459},         {1, &value, 3, SQLT_INT, 3115},
      {1, &value, 4, SQLT_RSET, 3115},        {1, &value, 4, 999, 3115},
      {1, &value, size_t(-1), SQLT_STR, 1459}};
  for (const auto& [position, at, size, type, code] : defines) {
    EXPECT_EQ(c.error_of(c.define(position, at, size, type)), code);
  }
}

TEST_F(Stmt, TheSelectListIsDescribed) {
  must("create table t (a varchar2(10) not null, b number(7,2), c number)");
  ASSERT_EQ(c.run("select a, b, c as \"mixed\" from t", 0, OCI_DESCRIBE_ONLY), OCI_SUCCESS);
  const std::tuple<std::string, ub2, ub2, sb2, sb1> columns[] = {
      {"A", SQLT_CHR, 10, 0, 0}, {"B", SQLT_NUM, 22, 7, 2}, {"mixed", SQLT_NUM, 22, 0, -127}};
  EXPECT_EQ(c.attribute<ub4>(OCI_ATTR_PARAM_COUNT), std::size(columns));
  ub4 position = 0;
  for (const auto& [name, type, size, precision, scale] : columns) {
    void* parameter = nullptr;
    ASSERT_EQ(OCIParamGet(c.stmt, OCI_HTYPE_STMT, c.err, &parameter, ++position), OCI_SUCCESS);
    const auto get = [&](ub4 number, auto value, ub4* room = nullptr) {
      EXPECT_EQ(OCIAttrGet(parameter, OCI_DTYPE_PARAM, &value, room, number, c.err), OCI_SUCCESS);
      return value;
    };
    ub4 length = 0;
    const char* start = get(OCI_ATTR_NAME, static_cast<const char*>(nullptr), &length);
    EXPECT_EQ(std::string(start, length), name);
    EXPECT_EQ(get(OCI_ATTR_DATA_TYPE, ub2{0}), type) << name;
    EXPECT_EQ(get(OCI_ATTR_DATA_SIZE, ub2{9}), size) << name;
    EXPECT_EQ(get(OCI_ATTR_PRECISION, sb2{9}), precision) << name;
    EXPECT_EQ(get(OCI_ATTR_IS_NULL, ub1{9}), position == 1 ? 0 : 1) << name;
    // One byte of the caller's two is written.
    EXPECT_EQ(get(OCI_ATTR_SCALE, ub2{0x5500}), 0x5500 | static_cast<ub1>(scale));
  }
  void* beyond = nullptr;
  EXPECT_EQ(c.error_of(OCIParamGet(c.stmt, OCI_HTYPE_STMT, c.err, &beyond, position + 1)), 24334);
  ASSERT_EQ(OCIParamGet(c.stmt, OCI_HTYPE_STMT, c.err, &beyond, 1), OCI_SUCCESS);
  ASSERT_EQ(c.prepare("select 1 from dual"), OCI_SUCCESS);
  EXPECT_EQ(OCIAttrGet(beyond, OCI_DTYPE_PARAM, &position, nullptr, OCI_ATTR_DATA_TYPE, c.err),
            OCI_INVALID_HANDLE);
}

// One value into one variable: what arrives, with an indicator and a return code to tell it.
TEST_F(Stmt, ValuesAreConvertedToTheVariablesType) {
  must("create table t (s varchar2(10), n number, d date, r raw(4), l long)");
  must(
      "insert into t values ('abc', -1.25, to_date('2040-04-01', 'YYYY-MM-DD'), "
      "hextoraw('0AFF00'), 'long text')");
  using namespace std::string_literals;
  const struct {
    const char* column;
    ub2 type;
    size_t room;
    std::string expected;
    ub2 length;
    int code;  // of the call, and of the value
    sb2 indicator = 0;
  } cases[] = {
      {"s", SQLT_STR, 4, "abc\0"s, 3, 0},
      {"s", SQLT_STR, 3, "ab\0"s, 2, 24345, 3},
      {"s", SQLT_STR, 1, "\0"s, 0, 24345, 3},
      {"s", SQLT_CHR, 5, "abc##", 3, 0},
      {"s", SQLT_AFC, 5, "abc  ", 5, 0},
      {"n", SQLT_STR, 10, "-1.25\0####"s, 5, 0},
      {"n", SQLT_INT, 4, "\xff\xff\xff\xff", 4, 0},
      {"n * 1000", SQLT_INT, 2, "\x1e\xfb", 2, 0},
      {"n * 1000", SQLT_INT, 1, "#", 0, 1455},
      {"s", SQLT_INT, 4, "####", 0, 1722},
      {"d", SQLT_STR, 10, "01-APR-40\0"s, 9, 0},
      {"d", SQLT_INT, 4, "####", 0, 932},
      {"r", SQLT_BIN, 4, "\x0a\xff\0#"s, 3, 0},
      {"r", SQLT_BIN, 2, "\x0a\xff", 2, 24345, 3},
      {"r", SQLT_STR, 6, "0AFF0\0"s, 5, 24345, 6},
      {"l", SQLT_LNG, 4, "long", 4, 24345, 9},
      {"l", SQLT_STR, 10, "long text\0"s, 9, 0},
      {"n", SQLT_BIN, 4, "####", 0, 932},
  };
  for (const auto& one : cases) {
    for (const bool block : {false, true}) {
      const std::string name = std::string(one.column) + " as " + std::to_string(one.type) +
                               (block ? " of a block" : "");
      std::vector<char> heap(one.room, '#');  // the address checker watches its end
      sb2 indicator = 0;
      ub2 length = block ? static_cast<ub2>(one.room) : 0, code = 0;
      get(block, one.column, heap.data(), one.room, one.type, &indicator, &length, &code);
      EXPECT_EQ(c.code(), one.code) << name;
      EXPECT_EQ(std::string(heap.begin(), heap.end()), one.expected) << name;
      EXPECT_EQ(length, block && one.code == 932 ? one.room : one.length) << name;
      EXPECT_EQ(indicator, one.indicator) << name;
      EXPECT_EQ(code, one.code == 24345 ? 1406 : code) << name;
    }
  }
}

TEST_F(Stmt, NullAndCutAreToldWhereThereIsRoomToTellThem) {
  must("create table t as select 1 n from dual");
  const std::tuple<const char*, bool, bool, sword, int, sb2, ub2> cases[] = {
      {"null", false, false, OCI_ERROR, 1405, 9, 9},
      {"null", false, true, OCI_ERROR, 1405, 9, 1405},
      {"null", true, false, OCI_SUCCESS, 0, -1, 9},
      {"null", true, true, OCI_SUCCESS, 0, -1, 1405},
      {"'abcd'", false, false, OCI_ERROR, 1406, 9, 9},
      {"'abcd'", true, false, OCI_ERROR, 1406, 4, 9},
      {"'abcd'", false, true, OCI_SUCCESS_WITH_INFO, 24345, 9, 1406},
      {"'abc'", true, true, OCI_SUCCESS, 0, 0, 0},
  };
  for (size_t i = 0; i < 2 * std::size(cases); ++i) {
    const auto& [selected, indicated, coded, status, call_code, wanted, wanted_code] = cases[i / 2];
    char buffer[4];
    sb2 indicator = 9;
    ub2 code = 9;
    const sword result = get(i % 2 == 0, selected, buffer, 4, SQLT_STR,
                             indicated ? &indicator : nullptr, nullptr, coded ? &code : nullptr);
    EXPECT_EQ(result, status) << i;
    EXPECT_EQ(c.code(), call_code) << i;
    EXPECT_EQ(indicator, wanted) << i;
    EXPECT_EQ(code, wanted_code) << i;
  }
}

TEST_F(Stmt, RowsComeInArrays) {
  must("create table t (n number, s varchar2(5))");
  for (const char* row : {"1, 'a'", "2, null", "3, 'ccc'", "4, 'd'", "5, 'e'"}) {
    must(std::string("insert into t values (") + row + ")");
  }
  std::vector<int> n(3);
  std::vector<char> s(3 * 6);
  sb2 present[3];
  ub2 lengths[3], codes[3];
  ASSERT_EQ(c.prepare("select n, s from t order by n"), OCI_SUCCESS);
  ASSERT_EQ(c.define(2, s.data(), 6, SQLT_STR, present, lengths, codes), OCI_SUCCESS);
  ASSERT_EQ(c.define(1, s.data(), 1, SQLT_INT), OCI_SUCCESS);
  ASSERT_EQ(c.define(1, n.data(), sizeof(int), SQLT_INT), OCI_SUCCESS);  // replaces the former
  for (int run = 0; run < 2; ++run) {
    ASSERT_EQ(c.execute(3), OCI_SUCCESS);
    EXPECT_EQ(c.row_count(), 3u);
    EXPECT_EQ(n, (std::vector<int>{1, 2, 3}));
    EXPECT_STREQ(&s[12], "ccc");
    EXPECT_EQ(present[1], -1);
    EXPECT_EQ(lengths[2], 3);
    EXPECT_EQ(c.fetch(3), OCI_NO_DATA);
    EXPECT_EQ(c.code(), 1403);
    EXPECT_EQ(c.row_count(), 5u);
    EXPECT_EQ(n, (std::vector<int>{4, 5, 3}));
    EXPECT_EQ(c.fetch(3), OCI_NO_DATA);
    EXPECT_EQ(c.row_count(), 5u);
  }
  ASSERT_EQ(c.execute(0), OCI_SUCCESS);
  EXPECT_EQ(c.fetch(0), OCI_SUCCESS);
  EXPECT_EQ(c.error_of(c.fetch(1)), 1002);
  ASSERT_EQ(c.define(3, n.data(), sizeof(int), SQLT_INT), OCI_SUCCESS);
  EXPECT_EQ(c.error_of(c.execute(1)), 1007);
}

// By another session, between two executes with the same defines.
TEST_F(Stmt, AQueryFollowsItsTableAtEveryRun) {
  Client other(database_);
  const struct {
    const char* selected;
    ub2 type;
    ub4 mode;
    const char *former, *former_value, *later, *later_value;
    int code;
  } cases[] = {
      {"v from t", SQLT_LNG, OCI_DYNAMIC_FETCH, "v long", "'x'", "v clob", "'long text'", 932},
      {"v from t", SQLT_DAT, OCI_DEFAULT, "v date", "sysdate", "v raw(10)", "'0102'", 932},
      {"v || 'x' from t", SQLT_STR, OCI_DEFAULT, "v char", "'1'", "v clob", "'text'", 932},
      {"v from t where v like '1%'", SQLT_STR, OCI_DEFAULT, "v char", "'1'", "v clob", "'x'", 932},
      {"* from t", SQLT_STR, OCI_DEFAULT, "v char", "'1'", "v char, n number", "'1', 1", 1007},
      {"v from t", SQLT_STR, OCI_DEFAULT, "v char, n char", "'1', '1'", "n char", "'1'", 904},
      {"v from t", SQLT_STR, OCI_DEFAULT, "v char", "'1'", "v number(1)", "1", 0},
  };
  for (const auto& one : cases) {
    const auto create = [&](const std::string& columns, const std::string& values) {
      other.run("drop table t");
      EXPECT_EQ(other.run("create table t (" + columns + ")"), OCI_SUCCESS);
      EXPECT_EQ(other.run("insert into t values (" + values + ")"), OCI_SUCCESS);
      EXPECT_EQ(other.run("commit"), OCI_SUCCESS);
    };
    char value[7];
    const bool pieces = one.mode == OCI_DYNAMIC_FETCH;
    const sword good = pieces ? OCI_NEED_DATA : OCI_SUCCESS;
    create(one.former, one.former_value);
    ASSERT_EQ(c.prepare(std::string("select ") + one.selected), OCI_SUCCESS);
    c.define(1, value, pieces ? 0x7fffffff : sizeof value, one.type, nullptr, nullptr, nullptr,
             one.mode);
    EXPECT_EQ(c.execute(1), good) << one.selected;
    create(one.later, one.later_value);
    for (int run = 0; run < 3; ++run) {
      EXPECT_EQ(c.error_of(c.execute(1)), one.code) << one.selected << one.later << run;
    }
    create(one.former, one.former_value);
    EXPECT_EQ(c.execute(1), good) << one.selected;
  }
}

class Pieces : public LoggedInTest {
 protected:
  Pieces() {
    must("create table t (n number, a long, b long)");
    must("insert into t values (1, '0123456789', 'abcdefghijklmnopqrst')");
    must("insert into t values (2, null, '0123456789abcdefghijABCDE')");
    must("insert into t values (3, 'x', null)");
  }

  void query() {
    ASSERT_EQ(c.prepare("select n, a, b, a from t order by n"), OCI_SUCCESS);
    ASSERT_EQ(c.define(1, &n_, sizeof n_, SQLT_INT), OCI_SUCCESS);
    for (ub4 i = 0; i < 3; ++i) {
      c.define(i + 2, nullptr, 0x7fffffff, SQLT_LNG, &present_[i], nullptr, nullptr,
               OCI_DYNAMIC_FETCH);
    }
    ASSERT_EQ(c.execute(0), OCI_SUCCESS) << c.code();
  }

  sword get() {
    return OCIStmtGetPieceInfo(c.stmt, c.err, &define_, &type_, &direction_, &iteration_, nullptr,
                               &piece_);
  }
  sword set(void* define) {
    return OCIStmtSetPieceInfo(define, OCI_HTYPE_DEFINE, c.err, buffer_.data(), &length_, piece_,
                               nullptr, nullptr);
  }

  /// Fetches a row as a caller does: its columns as "<piece>text" for each piece, parted by '|'.
  std::string fetch_row() {
    std::string row;
    void* former = nullptr;
    size_t column = 0;
    sword status = c.fetch(1);
    while (status == OCI_NEED_DATA) {
      EXPECT_EQ(c.code(), 3130);
      EXPECT_EQ(get(), OCI_SUCCESS);
      EXPECT_EQ(type_, ub4{OCI_HTYPE_DEFINE});
      EXPECT_EQ(direction_, OCI_PARAM_OUT);
      EXPECT_EQ(define_ != former, piece_ == OCI_FIRST_PIECE);
      if (define_ != former) ++column;
      former = define_;
      if (column > 3) return row + "too many columns";
      present_[column - 1] = 0;
      buffer_.assign(length_ = 10, '#');
      EXPECT_EQ(set(define_), OCI_SUCCESS);
      if (!change_.empty()) {
        std::swap(c.stmt, other_);
        must(change_);
        std::swap(c.stmt, other_);
      }
      status = c.fetch(1);
      row += (piece_ == OCI_FIRST_PIECE ? "|<" : "<") + buffer_.substr(0, length_);
      if (present_[column - 1] == -1) row += "NULL";
    }
    return row + "=" + std::to_string(status);
  }

  std::string change_;  // to be run before each piece
  OCIStmt* other_ = c.make<OCIStmt>(OCI_HTYPE_STMT);
  int n_ = 0;
  sb2 present_[3] = {};
  void* define_ = nullptr;
  ub4 type_ = 0, iteration_ = 0, length_ = 4;
  ub1 direction_ = 0, piece_ = 0;
  std::string buffer_ = std::string(10, '#');
};

TEST_F(Pieces, EveryLengthComesInSelectListOrderWithoutAnEmptyPiece) {
  for (const char* between : {"", "delete from t"}) {
    change_ = between;
    query();
    EXPECT_EQ(fetch_row(), "|<0123456789|<abcdefghij<klmnopqrst|<0123456789=0") << between;
    EXPECT_EQ(n_, 1);
    EXPECT_EQ(fetch_row(), "|<NULL|<0123456789<abcdefghij<ABCDE|<NULL=0") << between;
    EXPECT_EQ(fetch_row(), "|<x|<NULL|<x=0") << between;
    EXPECT_EQ(n_, 3);
    EXPECT_EQ(c.row_count(), 3u);
    EXPECT_EQ(fetch_row(), "=100");
  }
}

TEST_F(Pieces, ACutColumnBesideThemIsToldAtTheEndOfTheRow) {
  ASSERT_EQ(c.prepare("select 'abcd', a from t where n = 3"), OCI_SUCCESS);
  char cut[3];
  ub2 code = 0;
  c.define(1, cut, sizeof cut, SQLT_STR, nullptr, nullptr, &code);
  c.define(2, nullptr, 0x7fffffff, SQLT_LNG, present_, nullptr, nullptr, OCI_DYNAMIC_FETCH);
  ASSERT_EQ(c.execute(0), OCI_SUCCESS);
  EXPECT_EQ(fetch_row(), "|<x=1");
  EXPECT_EQ(c.code(), 24345);
}

TEST_F(Pieces, CallsOutOfOrderAreErrorsAndARowCanBeAbandoned) {
  query();
  EXPECT_EQ(c.error_of(get()), 1002);
  EXPECT_EQ(c.error_of(c.fetch(2)), 24391);
  ASSERT_EQ(c.fetch(1), OCI_NEED_DATA);
  EXPECT_EQ(c.error_of(c.fetch(1)), 1002);  // no buffer was offered
  ASSERT_EQ(get(), OCI_SUCCESS);
  void* first = define_;
  ASSERT_EQ(set(first), OCI_SUCCESS);
  ASSERT_EQ(c.fetch(1), OCI_NEED_DATA);
  length_ = 0;
  ASSERT_EQ(set(first), OCI_SUCCESS);
  EXPECT_EQ(c.error_of(c.fetch(1)), 1459);  // would go on for ever
  EXPECT_EQ(fetch_row(), "|<NULL|<0123456789<abcdefghij<ABCDE|<NULL=0");
  ASSERT_EQ(c.execute(0), OCI_SUCCESS);
  ASSERT_EQ(c.fetch(1), OCI_NEED_DATA);
  ASSERT_EQ(c.execute(0), OCI_SUCCESS);
  EXPECT_EQ(set(first), OCI_ERROR);
  EXPECT_EQ(fetch_row(), "|<0123456789|<abcdefghij<klmnopqrst|<0123456789=0");
  ASSERT_EQ(c.fetch(1), OCI_NEED_DATA);
  ASSERT_EQ(c.prepare("select 1 from dual"), OCI_SUCCESS);
  EXPECT_EQ(set(first), OCI_INVALID_HANDLE);
}

}  // namespace
