#include "oci_fixture.h"

namespace {

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
      ASSERT_EQ(c.define(i + 2, nullptr, 0x7fffffff, SQLT_LNG, &present_[i], nullptr, nullptr,
                         OCI_DYNAMIC_FETCH),
                OCI_SUCCESS);
    }
    ASSERT_EQ(c.execute(0), OCI_SUCCESS) << c.code();
  }

  /// Fetches a row as a caller does: its columns as "<piece>text" for each piece, parted by '|'.
  std::string fetch_row() {
    std::string row;
    void* former = nullptr;
    size_t column = 0;
    sword status = c.fetch(1);
    while (status == OCI_NEED_DATA) {
      EXPECT_EQ(c.code(), 3130);
      void* define = nullptr;
      ub4 type = 0, iteration = 7, index = 7;
      ub1 direction = 0, piece = 9;
      EXPECT_EQ(OCIStmtGetPieceInfo(c.stmt, c.err, &define, &type, &direction, &iteration, &index,
                                    &piece),
                OCI_SUCCESS);
      EXPECT_EQ(type, ub4{OCI_HTYPE_DEFINE});
      EXPECT_EQ(direction, OCI_PARAM_OUT);
      EXPECT_EQ(define != former, piece == OCI_FIRST_PIECE);
      if (define != former) ++column;
      former = define;
      if (column > 3) return row + "too many columns";
      present_[column - 1] = 0;
      std::vector<char> buffer(10, '#');
      ub4 length = 10;
      EXPECT_EQ(
          OCIStmtSetPieceInfo(define, type, c.err, buffer.data(), &length, piece, nullptr, nullptr),
          OCI_SUCCESS);
      if (!change_.empty()) {
        std::swap(c.stmt, other_);
        must(change_);
        std::swap(c.stmt, other_);
      }
      status = c.fetch(1);
      row += (piece == OCI_FIRST_PIECE ? "|<" : "<") + std::string(buffer.data(), length);
      if (present_[column - 1] == -1) row += "NULL";
    }
    return row + "=" + std::to_string(status);
  }

  std::string change_;  // to be run before each piece
  OCIStmt* other_ = c.make<OCIStmt>(OCI_HTYPE_STMT);
  int n_ = 0;
  sb2 present_[3] = {};
};

TEST_F(Pieces, EveryLengthComesInSelectListOrderWithoutAnEmptyPiece) {
  query();
  EXPECT_EQ(fetch_row(), "|<0123456789|<abcdefghij<klmnopqrst|<0123456789=0");
  EXPECT_EQ(n_, 1);
  EXPECT_EQ(fetch_row(), "|<NULL|<0123456789<abcdefghij<ABCDE|<NULL=0");
  EXPECT_EQ(fetch_row(), "|<x|<NULL|<x=0");
  EXPECT_EQ(n_, 3);
  EXPECT_EQ(c.row_count(), 3u);
  EXPECT_EQ(fetch_row(), "=100");
}

TEST_F(Pieces, ARowGoesOnWhereItsTableIsEmptiedBetweenTwoPieces) {
  query();
  change_ = "delete from t";
  EXPECT_EQ(fetch_row(), "|<0123456789|<abcdefghij<klmnopqrst|<0123456789=0");
  EXPECT_EQ(fetch_row(), "|<NULL|<0123456789<abcdefghij<ABCDE|<NULL=0");
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
  void* define = nullptr;
  ub4 type = 0, length = 4;
  char buffer[10];
  const auto get = [&] {
    return OCIStmtGetPieceInfo(c.stmt, c.err, &define, &type, nullptr, nullptr, nullptr, nullptr);
  };
  const auto set = [&](void* handle) {
    return OCIStmtSetPieceInfo(handle, OCI_HTYPE_DEFINE, c.err, buffer, &length, 0, nullptr,
                               nullptr);
  };
  EXPECT_EQ(c.error_of(get()), 1002);
  EXPECT_EQ(c.error_of(c.fetch(2)), 24391);
  ASSERT_EQ(c.fetch(1), OCI_NEED_DATA);
  EXPECT_EQ(c.error_of(c.fetch(1)), 1002);  // no buffer was offered
  ASSERT_EQ(get(), OCI_SUCCESS);
  void* first = define;
  ASSERT_EQ(set(first), OCI_SUCCESS);
  ASSERT_EQ(c.fetch(1), OCI_NEED_DATA);
  length = 0;
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
