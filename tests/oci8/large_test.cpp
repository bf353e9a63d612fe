// Large values: the store behind the border, the cells that own them, long LONGs.

#include "oci_fixture.h"
#include "sqlite_large.h"

namespace oci8 {
namespace {

using Unit = LargeName::Unit;
constexpr size_t kChunk = kLargePart;

std::string pattern(size_t size, int seed) {
  std::string bytes(size, 0);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 7 + i / 251) + seed);
  return bytes;
}

class Large : public LoggedInTest {
 protected:
  Large() { EXPECT_EQ(run("create table t (n number primary key, c clob, b blob, l long)"), 0); }

  /// Runs, with a large value for :1 where there is one; the error, or 0.
  int run(std::string_view sql, const LargeName& name = {}, bool given = false) {
    const auto body = [&] {
      const Prepared prepared(*db_, sql);
      const Value value{Value::Kind::Large, 0, 0, nullptr, 0, name, given};
      if (!prepared.source.placeholders.empty()) prepared->inputs()[0] = value;
      prepared->step();
    };
    return failure(body).code;
  }
  LargeName cell(std::string_view query) {
    const Prepared prepared(*db_, query);
    return prepared->step() ? prepared->row()[0].large : LargeName();
  }
  std::string content(const LargeName& name) {
    std::string bytes(static_cast<size_t>(db_->large_size(name)), '#');
    EXPECT_EQ(db_->read_large(name, 0, bytes.data(), bytes.size()), bytes.size());
    return bytes;
  }
  LargeName made(const std::string& bytes) {
    const LargeName name = db_->create_large(Unit::Byte);
    db_->write_large(name, 0, bytes.data(), bytes.size());
    return name;
  }
  /// Committed values and chunks.
  std::string kept() {
    db_->commit();
    EXPECT_EQ(OCITransCommit(c.svc, c.err, OCI_DEFAULT), OCI_SUCCESS);
    return in_file(database_,
                   "SELECT count(*) || '/' || (SELECT count(*) FROM OCI8$CHUNKS) "
                   "FROM OCI8$LARGE");
  }

  std::unique_ptr<Connection> db_ = open_database(database_);
};

int code_of_size(Connection& db, const LargeName& name) {
  return failure([&] { db.large_size(name); }).code;
}

TEST_F(Large, TheLargestSizeIsALimit) {
  for (const Unit unit : {Unit::Byte, Unit::Character}) {
    const LargeName name = db_->create_large(unit);
    EXPECT_EQ(failure([&] { db_->write_large(name, 0xffffffff, "..", 1); }).code, 22925);
    db_->write_large(name, 0xfffffffe, "..", 1);
    EXPECT_EQ(db_->large_size(name), 0xffffffff);
  }
  db_->rollback();
  EXPECT_EQ(kept(), "0/0");
}

TEST_F(Large, NamesOfValuesThatAreGoneAreTold) {
  const LargeName undone = made("undone");
  db_->rollback();
  ASSERT_EQ(run("insert into t (n, b) values (1, :1)", made("first"), true), 0);
  const LargeName first = cell("select b from t");
  EXPECT_EQ(first.id, undone.id);
  EXPECT_EQ(code_of_size(*db_, undone), 22922);
  db_->commit();
  EXPECT_EQ(failure([&] { db_->write_large(first, 0, "x", 1); }).code, 22920);
  const auto other = open_database(database_);
  cell("select b from t for update");
  db_->write_large(first, 0, "x", 1);
  EXPECT_EQ(run("delete from t"), 0);
  EXPECT_EQ(code_of_size(*other, first), 0);
  db_->commit();
  EXPECT_EQ(code_of_size(*other, first), 22922);
  EXPECT_EQ(run("insert into t (n, b) values (1, :1)", first, true), 22922);
}

// A break may stop any statement, here at its first instruction.
TEST_F(Large, AStoppedCallLeavesTheStoreUsable) {
  const LargeName name = made("kept");
  db_->commit();
  const auto raw = open_file(database_, SQLITE_OPEN_READWRITE);
  LargeStore store(raw.get());
  sqlite3_progress_handler(
      raw.get(), 1, [](void*) { return 1; }, nullptr);
  EXPECT_EQ(failure([&] { store.size(name); }).code, 1013);
  EXPECT_EQ(failure([&] { store.view(); }).code, 1013);
  sqlite3_progress_handler(raw.get(), 0, nullptr, nullptr);
  EXPECT_EQ(store.size(name), 4U);
  sqlite3_reset(store.view());
}

TEST_F(Large, CharactersOfAByteTakeAByte) {
  const LargeName name = db_->create_large(Unit::Character);
  std::vector<utext> text(kChunk + 7, 0xFF);
  db_->write_large(name, 0, text.data(), text.size());
  db_->commit();
  EXPECT_EQ(in_file(database_, "SELECT group_concat(length(data)) FROM OCI8$CHUNKS"),
            "16385,16385,9");
  // Whatever a damaged file holds there, as many characters are read.
  for (const char* data : {"x'FF'", "x'01'", "x'000000'", "x'414202'", "zeroblob(16387)", "x''",
                           "zeroblob(99999)", "zeroblob(40000)"}) {
    db_->commit();
    in_file(database_, std::string("UPDATE OCI8$CHUNKS SET data = ") + data);
    EXPECT_EQ(db_->read_large(name, 1, text.data(), text.size()), text.size() - 1) << data;
    cell("select b from t for update");
    db_->write_large(name, 20000, text.data(), 1);
  }
}

TEST_F(Large, AnOpenQueryGoesOnNamingItsValues) {
  for (const char n : {'1', '2', '3'}) {
    const std::string insert = std::string("insert into t (n, b) values (") + n + ", :1)";
    ASSERT_EQ(run(insert, made(pattern(2 * kChunk, n)), true), 0);
  }
  const Prepared open(*db_, "select n, b from t");
  for (int n = '1'; open->step(); ++n) {
    ASSERT_EQ(run("update t set n = n + 10, c = 'new'"), 0);
    EXPECT_EQ(open->row()[0].integer, n - '0');
    EXPECT_TRUE(content(open->row()[1].large) == pattern(2 * kChunk, n));
  }
}

// What reads leave open beside a query goes with it: the next ones see what others have written.
TEST_F(Large, ReadsHoldNoViewBehindTheirQuery) {
  ASSERT_EQ(run("insert into t (n, b) values (1, :1)", made("before"), true), 0);
  ASSERT_EQ(run("insert into t (n) values (2)"), 0);
  db_->commit();
  const Prepared open(*db_, "select b from t order by n");
  ASSERT_TRUE(open->step());
  const LargeName name = open->row()[0].large;
  EXPECT_EQ(content(name), "before");
  const auto other = open_database(database_);
  query(*other, "select b from t where n = 1 for update");
  other->write_large(name, 0, "behind", 6);
  other->commit();
  EXPECT_EQ(content(name), "before");
  open->reset();
  EXPECT_EQ(content(name), "behind");
}

// Each step with its error, then the values and chunks that are there behind it.
TEST_F(Large, ValuesGoWithTheirCells) {
  std::istringstream steps(
      "0 0/0 create table child (n number references t (n) on delete cascade, b blob);"
      "0 2/2 insert into t (n, c, b) values (1, 'text', 'FF00');"
      "0 3/2 insert into t (n, c) values (2, empty_clob());"
      "1 3/2 insert into t (n, c) values (1, 'twice');"
      "1465 3/2 insert into t (n, c, b) values (3, 'x', 'no digits');"
      "0 6/4 insert into t (n, c, b) select n + 2, c, b from t;"
      "1 6/4 insert into t (n, c) select 6 - n, c from t;0 6/6 update t set c = 'new';"
      "0 8/8 update t set (c, b) = (select c, b from t where n = 1) where n > 1;"
      "0 7/7 update t set b = null, n = 11 where n = 1;0 8/8 insert into child values (11, 'AA');"
      "0 6/6 delete from t where n = 11;0 12/12 create table copy as select n, c, b from t;"
      "0 12/12 rename copy to named;0 15/15 insert into child select 2, b from named;"
      "0 12/12 truncate table child;0 12/12 alter table named add (more clob);"
      "0 15/15 update named set more = c;0 12/12 alter table named drop column c;"
      "0 10/10 delete from named where n = 2;0 6/6 drop table named;"
      "0 6/6 create table named (n number, c clob default empty_clob());"
      "0 9/6 insert into named (n) select n from t;0 3/0 delete from t");
  int code = 0;
  for (std::string sql, left; steps >> code >> left && std::getline(steps, sql, ';');) {
    EXPECT_EQ(run(sql), code) << sql;
    EXPECT_EQ(kept(), left) << sql;
  }
}

TEST_F(Large, BoundValuesAreTakenOnceAndCopiedElse) {
  const std::string bytes = pattern(3 * kChunk, 1);
  ASSERT_EQ(run("insert into t (n) select 1 from dual union all select 2 from dual"), 0);
  const LargeName name = made(bytes);
  EXPECT_EQ(run("update t set b = :1 where n = 7", made("lost"), true), 0);
  EXPECT_EQ(run("insert into t (n, b) values (1, :1)", name, true), 1);
  EXPECT_EQ(run("update t set b = :1", name, true), 0);
  const LargeName one = cell("select b from t where n = 1");
  const LargeName two = cell("select b from t where n = 2");
  EXPECT_NE(one.id, two.id);
  db_->write_large(one, 0, "changed", 7);
  EXPECT_TRUE(content(two) == bytes);
  EXPECT_EQ(run("update t set b = :1 where n = 1", two), 0);
  EXPECT_TRUE(content(cell("select b from t where n = 1")) == bytes);
  EXPECT_EQ(kept(), "2/6");
  std::istringstream misused(
      "update t set c = :1;update t set l = :1;insert into t (n) values (:1);select max(l) from t;"
      "update t set b = nvl(:1, b);select 1 from dual where :1 is null;select nvl(c, 'x') from t;"
      "select n from t where c = 'x';select c || 'x' from t;select n from t where n in (b);"
      "select decode(n, 1, c) from t;select c from t order by c;select distinct l from t;"
      "select 1 from t group by b;select c from t union select c from t;create index i on t (c);"
      "select l from t union all select null from dual;insert into t (n, l) select 7, c from t;"
      "update t set c = (select b from t where n = 1);select cast(l as varchar2(9)) from t");
  for (std::string sql; std::getline(misused, sql, ';');) EXPECT_EQ(run(sql, two), 932) << sql;
}

TEST_F(Large, LongValuesStreamThroughTheStore) {
  ASSERT_EQ(run("create table s (n number primary key, r long raw, b blob)"), 0);
  const struct {
    const char* sql;
    size_t size, piece;
    const char* kept;
    int code = 0;
  } cases[] = {
      {"insert into s (n, r) values (1, :1)", kChunk, 999, "0/0"},
      {"insert into s (n, r) values (2, :1)", kChunk + 1, 999, "1/2"},
      {"insert into t (n, l) values (3, :1)", 4 * kChunk, kChunk, "2/6"},
      {"begin insert into s (n, b) values (4, :1); end;", 5 * kChunk + 5, 70000, "3/12"},
      {"insert into s (n, r) values (2, :1)", 100000, 5000, "3/12", 1},
      {"begin insert into s (n, r) values (1, :1); end;", 100000, 5000, "3/12", 1},
      {"update s set r = :1", 100000, 5000, "3/12", 24343},
      {"begin commit; insert into s (n, r) values ('z', :1); end;", 2 * kChunk, 5000, "3/12", 1722},
      {"begin savepoint a; insert into s (n, r) values (5, :1); rollback to a; end;", 2 * kChunk,
       5000, "3/12"},
      {"begin rollback; insert into s (n, r) values (6, :1); end;", 2 * kChunk, 5000, "3/12"}};
  for (const auto& one : cases) {
    Stream stream{pattern(one.size, 3), one.piece};
    // From its third chunk on the value is in the database, with a lock.
    stream.meanwhile = [&] {
      const bool large = stream.done > 2 * kChunk;
      EXPECT_TRUE(!large || OCITransCommit(c.svc, c.err, OCI_DEFAULT) == OCI_ERROR);
      return large && one.code == 24343 ? OCI_ERROR : OCI_CONTINUE;
    };
    const ub2 type = one.sql[12] == 't' ? SQLT_LNG : SQLT_LBI;
    ASSERT_EQ(c.stream(one.sql, type, stream), OCI_SUCCESS);
    EXPECT_EQ(c.error_of(c.execute(1)), one.code) << one.sql;
    EXPECT_EQ(kept(), one.kept) << one.sql;
  }
  EXPECT_TRUE(content(cell("select b from s where n = 4")) == pattern(5 * kChunk + 5, 3));
  EXPECT_TRUE(query(*db_, "select r from s where n = 6") == pattern(2 * kChunk, 3));
  std::string buffer(100, '#');
  ub2 code = 0;
  ASSERT_EQ(c.prepare("select r from s where n = 2"), OCI_SUCCESS);
  ASSERT_EQ(c.define(1, buffer.data(), 100, SQLT_LBI, nullptr, nullptr, &code), OCI_SUCCESS);
  ASSERT_EQ(c.execute(1), OCI_SUCCESS_WITH_INFO);
  EXPECT_EQ(buffer + std::to_string(code), pattern(100, 3) + "1406");
}

}  // namespace
}  // namespace oci8
