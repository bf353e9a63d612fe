#include <atomic>

#include "oci_fixture.h"

namespace {

using Session = OciTest;

/// On a table that has a 7.
class TableSession : public LoggedInTest {
 protected:
  TableSession() {
    must("create table t (n number)");
    must("begin insert into t values (7); commit; end;");
  }

  void leave() { OCIServerDetach(c.srv, c.err, 0); }
  int rows_of_left_file() {
    log_in();
    const int found = c.number("select sum(n) from t");
    leave();
    return found;
  }
};

TEST_F(Session, LoginFailuresHaveTheirCodesAndTheHandlesGoOn) {
  EXPECT_EQ(c.error_of(OCITransCommit(c.svc, c.err, 0)), 24324);
  const std::tuple<std::string, std::string, std::string, int> cases[] = {
      {folder_ / "NOT_THERE.db", "scott", "tiger", 12154},
      {database_, "scott", "lion", 1017},
      {database_, "", "", 1017}};
  for (const auto& [database, user, password, code] : cases) {
    EXPECT_EQ(c.error_of(c.log_in(database, user, password)), code) << database << user;
    EXPECT_EQ(c.error_of(OCISessionEnd(c.svc, c.err, c.ses, 0)), 1012);
  }
  EXPECT_EQ(c.log_in(database_), OCI_SUCCESS);
  EXPECT_EQ(c.error_of(OCIServerAttach(c.srv, c.err, bytes(database_), 1, 0)), 24309);
  EXPECT_EQ(c.error_of(OCISessionBegin(c.svc, c.err, c.ses, OCI_CRED_RDBMS, 0)), 24313);
  EXPECT_EQ(OCISessionEnd(c.svc, c.err, c.ses, 0), OCI_SUCCESS);
  EXPECT_EQ(c.error_of(OCITransCommit(c.svc, c.err, 0)), 1012);
  EXPECT_EQ(OCIServerDetach(c.srv, c.err, 0), OCI_SUCCESS);
  EXPECT_EQ(c.error_of(c.run("select 1 from dual", 0)), 3114);
  EXPECT_EQ(c.log_in(database_), OCI_SUCCESS);
}

// How each way to end a transaction or a session shows to another session.
TEST_F(TableSession, WorkIsKeptOrTakenBackAsTheEndSays) {
  const std::tuple<const char*, ub4, void (*)(Client&), int> cases[] = {
      {"commit", 0, [](Client& o) { OCITransCommit(o.svc, o.err, 0); }, 1},
      {"rollback", 0, [](Client& o) { OCITransRollback(o.svc, o.err, 0); }, 0},
      {"kept", OCI_COMMIT_ON_SUCCESS, [](Client& o) { OCITransRollback(o.svc, o.err, 0); }, 1},
      {"session end", 0, [](Client& o) { OCISessionEnd(o.svc, o.err, o.ses, 0); }, 1},
      {"detach", 0, [](Client& o) { OCIServerDetach(o.srv, o.err, 0); }, 1},
      {"session freed", 0, [](Client& o) { OCIHandleFree(o.ses, OCI_HTYPE_SESSION); }, 1}};
  for (const auto& [name, mode, end, rows] : cases) {
    must("begin delete from t; commit; end;");
    Client other(database_);
    ASSERT_EQ(other.run("insert into t values (1)", 1, mode), OCI_SUCCESS) << other.code();
    EXPECT_EQ(other.row_count(), 1u);
    end(other);
    EXPECT_EQ(c.number("select count(*) from t"), rows) << name;
  }
}

// A caller who knows how many rows there are fetches no further.
TEST_F(TableSession, ACursorWhoseRowsAreAllFetchedKeepsNoOldView) {
  EXPECT_EQ(c.number("select n from t"), 7);
  Client other(database_);
  ASSERT_EQ(other.run("update t set n = 2", 1, OCI_COMMIT_ON_SUCCESS), OCI_SUCCESS);
  c.stmt = c.make<OCIStmt>(OCI_HTYPE_STMT);
  EXPECT_EQ(c.number("select n from t"), 2);
}

TEST_F(TableSession, AStatementMovesToAnotherSessionAndOutlivesIt) {
  int found = 0;
  ASSERT_EQ(c.run("select n from t", 0), OCI_SUCCESS);
  ASSERT_EQ(c.define(1, &found, sizeof found, SQLT_INT), OCI_SUCCESS);
  {
    Client other(database_);
    ASSERT_EQ(OCIStmtExecute(other.svc, c.stmt, c.err, 0, 0, nullptr, nullptr, 0), OCI_SUCCESS);
    EXPECT_EQ(c.fetch(1), OCI_SUCCESS);
    EXPECT_EQ(found, 7);
  }
  EXPECT_EQ(c.error_of(c.fetch(1)), 1002);
  EXPECT_EQ(c.execute(1), OCI_SUCCESS);
}

/// On a table of a hundred rows.
class Break : public LoggedInTest {
 protected:
  Break() {
    must("create table t (n number)");
    for (int i = 0; i < 100; ++i) must("insert into t values (1)");
  }

  /// Breaks a call as soon as it has told of its first row or iteration.
  template <class Call>
  void expect_broken(ub4 rows, Call call) {
    bool late = false;
    std::thread breaker([&] {
      while (c.row_count() == 0) {
      }
      OCIBreak(c.svc, c.err);
      late = c.row_count() == rows;  // on a busy machine
    });
    const int code = c.error_of(call());
    breaker.join();
    EXPECT_TRUE(code == 1013 || late) << code;
  }
};

TEST_F(Break, StopsTheRunningCallAndNothingElse) {
  EXPECT_EQ(OCIBreak(c.svc, c.err), OCI_SUCCESS);
  EXPECT_EQ(OCIBreak(c.srv, c.err), OCI_SUCCESS);
  ASSERT_EQ(c.prepare("select count(*) from t a, t b, t c, t d, t e, t f"), OCI_SUCCESS);
  std::atomic<bool> over{false};
  std::thread breaker([&] {
    while (!over) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      // What a cancel from another thread does: the break, and then a look at the diagnostics.
      OCIBreak(c.svc, c.err);
      sb4 code = 0;
      text message[200];
      OCIErrorGet(c.err, 1, nullptr, &code, message, sizeof message, OCI_HTYPE_ERROR);
      c.row_count();
      c.attribute<ub2>(OCI_ATTR_SQLFNCODE);
    }
  });
  EXPECT_EQ(c.error_of(c.execute(0)), 1013);
  EXPECT_EQ(c.fetch(1), OCI_ERROR);  // must not start the query again
  over = true;
  breaker.join();
  must("insert into t values (2)");
  EXPECT_EQ(c.row_count(), 1u);
  // A break may also come while the server is detached.
  std::thread late([&] {
    for (int i = 0; i < 1000; ++i) OCIBreak(c.srv, c.err);
  });
  OCIServerDetach(c.srv, c.err, 0);
  late.join();
}

// None of them lasts long enough to hear of one.
TEST_F(Break, IsNotLostBetweenTwoRowsOfAnArrayOrTwoStepsOfABlock) {
  std::vector<int> values(1000000);
  for (int round = 0; round < 20; ++round) {
    ASSERT_EQ(c.run("select 1 from t a, t b, t c", 0), OCI_SUCCESS);
    ASSERT_EQ(c.define(1, values.data(), sizeof values[0], SQLT_INT), OCI_SUCCESS);
    expect_broken(1000000, [&] { return c.fetch(1000000); });
  }
  std::string block = "begin ";
  for (int i = 0; i < 2000; ++i) block += ":a := 1; ";
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(c.prepare(block + "end;"), OCI_SUCCESS);
    ASSERT_EQ(c.bind(1, values.data(), sizeof values[0], SQLT_INT), OCI_SUCCESS);
    expect_broken(2, [&] { return c.execute(2); });
  }
}

TEST_F(Session, TheBlockingModeIsTheOneThatWasAskedFor) {
  ub1 on = 1, off = 0;
  const std::tuple<ub1*, ub1> steps[] = {{&on, 1}, {&on, 1}, {&off, 0}, {nullptr, 1}, {nullptr, 0}};
  for (const auto& [value, wanted] : steps) {
    OCIAttrSet(c.srv, OCI_HTYPE_SERVER, value, 0, OCI_ATTR_NONBLOCKING_MODE, c.err);
    ub1 mode = 0x9d;
    OCIAttrGet(c.srv, OCI_HTYPE_SERVER, &mode, nullptr, OCI_ATTR_NONBLOCKING_MODE, c.err);
    EXPECT_EQ(mode, wanted);
  }
}

TEST_F(Session, ATextThatWasPreparedBeforeIsReadAnewForAnotherSchemaOrUser) {
  log_in();
  must("create table t (n number(3))");
  const auto width = [this](const std::string& sql) {
    EXPECT_EQ(c.prepare(sql), OCI_SUCCESS);
    const sword status = c.execute(0, OCI_DESCRIBE_ONLY);
    return status == OCI_SUCCESS ? c.attribute<ub4>(OCI_ATTR_PARAM_COUNT) : 0;
  };
  const std::string own = "select t.* from scott.t";
  EXPECT_EQ(width(own), 1u);
  must("begin insert into t values (1); insert into t values (2); commit; end;");
  ASSERT_EQ(c.run("select n from t", 0), OCI_SUCCESS);
  OCIStmt* open_query = std::exchange(c.stmt, c.make<OCIStmt>(OCI_HTYPE_STMT));
  Client other(database_);
  ASSERT_EQ(other.run("alter table t add m number"), OCI_SUCCESS) << other.code();
  EXPECT_EQ(width(own), 1u) << "what the open query sees";
  OCIHandleFree(open_query, OCI_HTYPE_STMT);
  EXPECT_EQ(width(own), 2u);
  oci8::add_account(oci8::open_file(database_, SQLITE_OPEN_READWRITE).get(), "mary", "tiger");
  OCIServerDetach(c.srv, c.err, 0);
  ASSERT_EQ(c.log_in(database_, "mary"), OCI_SUCCESS) << c.code();
  EXPECT_EQ(width(own), 0u);
  EXPECT_EQ(c.code(), 942);
}

// SQLite takes what the parent has locked for its own, and commits would be lost.
TEST_F(TableSession, AFileIsRefusedToAChildWhileItIsInUse) {
  const pid_t child = fork_between_threads(false);
  if (child == 0) {
    Client own;
    _exit(own.log_in(database_) == OCI_SUCCESS ? 0 : own.code() % 256);
  }
  EXPECT_EQ(WEXITSTATUS(end_of(child)), 3113 % 256);
}

// Replaced while it is in use or left, or with a relative name that leads elsewhere by then.
TEST_F(TableSession, ALeftFileIsCompleteAndNotTakenForAnother) {
  const auto add_row = [this](const std::string& file) {
    ASSERT_EQ(c.log_in(file), OCI_SUCCESS);
    must("begin insert into t values (1); commit; end;");
    leave();
  };
  const char* const sum = "SELECT SUM(n) FROM t";
  const std::string copy = folder_ / "copy.db", here = folder_ / "here.db";
  leave();
  std::filesystem::copy_file(database_, copy);
  std::filesystem::copy_file(database_, here);
  log_in();
  std::filesystem::rename(copy, database_);
  leave();
  add_row(database_);
  EXPECT_EQ(oci8::in_file(database_, sum), "8");
  std::filesystem::copy_file(here, copy);
  add_row(database_);
  EXPECT_EQ(rows_of_left_file(), 9);
  std::filesystem::rename(copy, database_);
  EXPECT_EQ(rows_of_left_file(), 7);

  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder_);
  std::filesystem::create_directory("other");
  std::filesystem::copy_file(here, "other/here.db");
  ASSERT_EQ(c.log_in("./here.db"), OCI_SUCCESS);
  std::filesystem::current_path("other");
  leave();
  add_row("./here.db");
  std::filesystem::current_path(before);
  EXPECT_EQ(oci8::in_file(here, sum), "7");
}

// SQLite's locks are the process's own: what a child has open must not look closed to its parent.
TEST_F(TableSession, ALeftFileIsOpenedAnewByAChild) {
  leave();
  int to_child[2], to_parent[2];
  ASSERT_TRUE(pipe(to_child) == 0 && pipe(to_parent) == 0);
  char sign = '+';
  const pid_t child = fork_between_threads(false);
  if (child == 0) {
    Client own;
    bool good = own.log_in(database_) == OCI_SUCCESS && write(to_parent[1], &sign, 1) == 1;
    good = good && read(to_child[0], &sign, 1) == 1;
    good = good && own.run("insert into t values (1)", 1, OCI_COMMIT_ON_SUCCESS) == OCI_SUCCESS;
    _exit(good ? 0 : 1);
  }
  close(to_parent[1]);
  ASSERT_EQ(read(to_parent[0], &sign, 1), 1);
  EXPECT_EQ(rows_of_left_file(), 7);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));  // until the file is closed here
  ASSERT_EQ(write(to_child[1], &sign, 1), 1);
  EXPECT_EQ(end_of(child), 0);
  for (const int end : {to_child[0], to_child[1], to_parent[0]}) close(end);
  EXPECT_EQ(rows_of_left_file(), 8);
}

}  // namespace
