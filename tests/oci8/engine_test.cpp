// The engine through its own interface, on database files in a folder of the test.
#include "engine.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <csignal>
#include <fstream>
#include <latch>
#include <map>
#include <thread>

#include "oci_fixture.h"
#include "sqlite_functions.h"
#include "sqlite_statement.h"

namespace oci8 {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using namespace std::string_literals;
using ConnectionPtr = std::unique_ptr<Connection>;

/// Adds the rows that are left to `rows`; what ends them.
Failure read_on(const Prepared& open, std::string& rows) {
  return failure([&] {
    while (open->step()) rows += ' ' + text_of(open->row()[0]);
  });
}

/// Runs `body` while no file of this process may grow beyond `most` bytes.
template <class Body>
void with_small_files(rlim_t most, Body body) {
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit former;
  getrlimit(RLIMIT_FSIZE, &former);
  const rlimit small = {most, former.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  body();
  setrlimit(RLIMIT_FSIZE, &former);
}

class EngineTest : public DatabaseTest {
 protected:
  EngineTest() {
    setenv("OCI8_DATA", folder_.c_str(), 1);
    setenv("OCI8_LOCK_TIMEOUT", "200", 1);
  }
  ~EngineTest() override {
    unsetenv("OCI8_DATA");
    unsetenv("OCI8_LOCK_TIMEOUT");
  }

  static ConnectionPtr connect() {
    ConnectionPtr connection = open_database("TEST");
    connection->log_in("scott", "tiger");
    return connection;
  }
  /// With a table T(A unique) of the numbers 1 to `rows`, a power of two.
  static ConnectionPtr connect_with_table(int rows = 1) {
    ConnectionPtr connection = connect();
    query(*connection, "CREATE TABLE T(A NUMBER UNIQUE, B VARCHAR2(20))");
    query(*connection, "INSERT INTO T(A) VALUES (1)");
    for (int count = 1; count < rows; count *= 2) {
      query(*connection, "INSERT INTO T(A) SELECT A + " + std::to_string(count) + " FROM T");
    }
    connection->commit();
    return connection;
  }

  /// Steps "session SQL -> rows", or the error, of the first session and of others as they appear.
  static void expect(const std::string& steps, ConnectionPtr first = connect()) {
    std::map<char, ConnectionPtr> sessions;
    sessions['1'] = std::move(first);
    for (const auto& [step, expected] : cases(steps)) {
      ConnectionPtr& session = sessions[step[0]];
      if (session == nullptr) session = connect();
      std::string rows;
      const int code = failure([&, &sql = step] { rows = query(*session, sql.substr(2)); }).code;
      EXPECT_EQ(code == 0 ? rows : "ORA-" + std::to_string(code), expected) << step;
    }
  }
};

TEST_F(EngineTest, ConnectStringsNameDatabases) {
  std::ofstream(folder_ / "TEXT.db") << std::string(2000, 'x');
  std::ofstream(folder_ / "FOREIGN.db") << "";
  const auto code_of = [](const std::string& name) {
    return failure([&] { open_database(name); }).code;
  };
  const std::string zero("\0x", 2);
  for (const std::string& good : {"TEST"s, database_}) EXPECT_EQ(code_of(good), 0);
  for (const std::string& bad :
       {""s, "NOPE"s, "TE ST"s, "TEST;"s, folder_.string(), "TEST" + zero, database_ + zero}) {
    EXPECT_EQ(code_of(bad), 12154) << bad;
  }
  for (const char* other : {"TEXT", "FOREIGN"}) EXPECT_EQ(code_of(other), 1251);
  EXPECT_FALSE(fs::exists(folder_ / "NOPE.db"));
  unsetenv("OCI8_DATA");
  EXPECT_EQ(code_of("TEST"), 12154);
  const ConnectionPtr memory = open_database(":memory:");
  memory->log_in("anyone", "");
  EXPECT_EQ(query(*memory, "SELECT DUMMY FROM DUAL"), "X");
}

// What such a user's session makes beside the file would keep its owner from writing.
TEST_F(EngineTest, AUserWhoMayNotWriteCannotLogInAndLeavesNothing) {
  const auto login = [] { return failure([] { connect(); }).code; };
  for (const char* suffix : {"-wal", "-shm"}) {
    fs::create_directory(database_ + suffix);
    EXPECT_EQ(login(), 16000) << suffix;
    fs::remove(database_ + suffix);
  }
  if (geteuid() != 0) GTEST_SKIP() << "there is no other user to be";
  for (const auto& [file, folder] : {std::pair(0644, 0777), std::pair(0666, 0755)}) {
    fs::permissions(database_, fs::perms(file));
    fs::permissions(folder_, fs::perms(folder));
    const pid_t child = fork_between_threads(true);
    if (child == 0) _exit(setuid(65534) == 0 && login() == 16000 ? 0 : 1);
    EXPECT_EQ(end_of(child), 0);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_), {}), 1);
  }
  EXPECT_EQ(login(), 0);
}

// A database that was not made by today's oci8db turns to the log at its first login.
TEST_F(EngineTest, FirstLoginsMayComeTogether) {
  setenv("OCI8_LOCK_TIMEOUT", "60000", 1);
  constexpr int kSessions = 8;
  std::atomic<int> failures{0};
  for (int round = 0; round < 30; ++round) {
    const std::string fresh = folder_ / ("FRESH" + std::to_string(round) + ".db");
    fs::copy_file(database_, fresh);
    std::latch all(kSessions);
    std::vector<std::jthread> threads;
    for (int i = 0; i < kSessions; ++i) {
      threads.emplace_back([&] {
        all.arrive_and_wait();
        if (failure([&] { const SqliteSession first(fresh); }).code != 0) ++failures;
      });
    }
  }
  EXPECT_EQ(failures, 0);
}

// A log would bring the former database back, with its passwords.
TEST_F(EngineTest, NothingIsCreatedBesideWhatADatabaseHasLeft) {
  const std::string said = folder_ / "said", create = OCI8DB " create NEW a/b >" + said + " 2>&1";
  for (const char* suffix : {"-wal", "-shm", "-journal"}) {
    const std::string left = folder_ / ("NEW.db"s + suffix);
    std::ofstream(left) << "left";
    EXPECT_NE(std::system(create.c_str()), 0);
    std::string text;
    std::getline(std::ifstream(said), text);
    EXPECT_THAT(text, testing::HasSubstr(left + ": "));
    EXPECT_TRUE(fs::remove(left));
    EXPECT_FALSE(fs::exists(folder_ / "NEW.db"));
  }
  EXPECT_EQ(std::system(create.c_str()), 0);
  EXPECT_EQ(in_file(folder_ / "NEW.db", "PRAGMA journal_mode"), "wal");
}

TEST_F(EngineTest, OnlyAnAccountOfTheSystemHasNoPassword) {
  const auto tool = [this](const std::string& arguments) {
    return std::system((OCI8DB " " + arguments + " 2>" + folder_.string() + "/said").c_str());
  };
  for (const char* refused : {"create NEW bob/", "set-password TEST scott/", "add-user TEST a/"}) {
    EXPECT_NE(tool(refused), 0) << refused;
  }
  EXPECT_FALSE(fs::exists(folder_ / "NEW.db"));
  EXPECT_EQ(failure([] { connect(); }).code, 0);
  EXPECT_EQ(tool("add-user TEST 'OPS$ME/'"), 0);
}

TEST_F(EngineTest, FailedChangeIsUndoneAloneAndLeavesNoEmptyTransaction) {
  expect(R"(
    1 UPDATE T SET A = A + 1 WHERE A > 4 -> ORA-1 | 2 UPDATE T SET B = 'x' WHERE A = 8 ->
    2 COMMIT -> | 1 INSERT INTO T(A) VALUES (100) ->
    1 INSERT INTO T(A) SELECT 102 - A FROM T WHERE A < 4 -> ORA-1
    1 UPDATE T SET B = 'y' WHERE 1 / (A - 5) < 9 -> ORA-1476
    1 INSERT INTO T(A) SELECT 200 / (A - 5) FROM T WHERE A < 9 -> ORA-1476
    1 DELETE FROM T WHERE 1 / (A - 5) < 9 -> ORA-1476 | 1 COMMIT ->
    2 SELECT COUNT(*) FROM T WHERE B = 'x' OR B IS NULL -> 9)",
         connect_with_table(8));
}

TEST_F(EngineTest, TransactionsAreSeenByOthersWhenCommittedAndDdlCommitsBeforeItself) {
  expect(R"(
    1 INSERT INTO T(A) VALUES (2) -> | 2 SELECT COUNT(*) FROM T -> 1 | 1 ROLLBACK ->
    1 SELECT COUNT(*) FROM T -> 1 | 1 INSERT INTO T(A) VALUES (2) -> | 1 SAVEPOINT S ->
    1 INSERT INTO T(A) VALUES (3) -> | 1 ROLLBACK TO S -> | 1 ROLLBACK TO NOWHERE -> ORA-1086
    1 SAVEPOINT S -> | 1 SAVEPOINT R -> | 1 DELETE FROM T -> | 1 SAVEPOINT S -> | 1 SAVEPOINT S ->
    1 ROLLBACK TO R -> | 1 SAVEPOINT R -> | 1 DELETE FROM T -> | 1 ROLLBACK TO S ->
    1 ROLLBACK TO R -> ORA-1086
    1 COMMIT -> | 2 SELECT COUNT(*) FROM T -> 2 | 1 INSERT INTO T(A) VALUES (3) ->
    1 CREATE TABLE T(B NUMBER) -> ORA-955 | 2 SELECT COUNT(*) FROM T -> 3)",
         connect_with_table());
}

TEST_F(EngineTest, DefinitionsThatFailByANameCommitAndThoseThatCannotBeReadDoNot) {
  const ConnectionPtr one = connect_with_table();
  query(*one, "CREATE VIEW V AS SELECT A FROM T");
  query(*one, "INSERT INTO T(A) VALUES (3)");
  { const Prepared described(*one, "DROP TABLE N"); }
  one->rollback();
  for (const auto& [sql, expected] : cases(R"(
           DROP TABLE N -> 942 1 | DROP VIEW N -> 942 1 | DROP INDEX N -> 1418 1
           DROP SEQUENCE N -> 2289 1 | TRUNCATE TABLE N -> 942 1 | RENAME N TO M -> 942 1
           ALTER TABLE N ADD (A NUMBER) -> 942 1 | ALTER TABLE T ADD (A NUMBER) -> 1430 1
           ALTER TABLE T DROP COLUMN N -> 904 1 | CREATE INDEX I ON N(A) -> 942 1
           CREATE INDEX I ON T(N) -> 904 1 | CREATE VIEW W AS SELECT N FROM T -> 904 1
           CREATE VIEW V AS SELECT 1 A FROM DUAL -> 955 1 | CREATE TABLE T(A NUMBER) -> 955 1
           CREATE TABLE M(A NOTYPE) -> 902 1 | CREATE TABLE M(A DATE, A DATE) -> 957 1
           CREATE TABLE M AS SELECT * FROM N -> 942 1 | CREATE TABLE -> 903 0
           CREATE TABLE M(A DATE -> 907 0 | CREATE TABLE M(1 DATE) -> 904 0
           DROP TABLE T N -> 922 0 | CREATE TRIGGER N -> 3001 0 | CREATE VIEW W AS -> 928 0)")) {
    query(*one, "INSERT INTO T(A) VALUES (2)");
    const int code = code_of(*one, sql);
    one->rollback();
    const std::string kept = query(*one, "SELECT COUNT(*) - 1 FROM T");
    EXPECT_EQ(std::to_string(code) + ' ' + kept, expected) << sql;
    query(*one, "DELETE FROM T WHERE A = 2");
    one->commit();
  }
}

TEST_F(EngineTest, LockedDatabaseIsReportedAfterTheTimeout) {
  const ConnectionPtr one = connect_with_table();
  const ConnectionPtr other = connect();
  query(*one, "LOCK TABLE T IN EXCLUSIVE MODE");
  const auto begun = steady_clock::now();
  EXPECT_EQ(code_of(*other, "INSERT INTO T(A) VALUES (3)"), 54);
  EXPECT_GE(steady_clock::now() - begun, milliseconds(200));
  setenv("OCI8_LOCK_TIMEOUT", "60000", 1);
  const ConnectionPtr hasty = connect();
  EXPECT_EQ(code_of(*hasty, "SELECT A FROM T FOR UPDATE NOWAIT"), 54);
  EXPECT_EQ(code_of(*hasty, "LOCK TABLE T IN SHARE MODE NOWAIT"), 54);
  EXPECT_LT(steady_clock::now() - begun, std::chrono::seconds(50)) << "it has waited";
  const Prepared open(*other, "SELECT A FROM T");
  EXPECT_TRUE(open->step());
  query(*one, "INSERT INTO T(A) VALUES (2)");
  one->commit();
  EXPECT_EQ(code_of(*other, "INSERT INTO T(A) VALUES (3)"), 0) << "under an older query";
  EXPECT_FALSE(open->step());
}

// Between its queries there is a moment, but never one that a commit meets by chance.
TEST_F(EngineTest, TheLogDoesNotGrowWithoutEndWhileSomebodyReads) {
  const ConnectionPtr one = connect_with_table(512);
  query(*one, "CREATE TABLE U(A NUMBER, B VARCHAR2(4000))");
  query(*one, "INSERT INTO U SELECT A, RPAD('x', 3900, 'x') FROM T");
  one->commit();
  const std::jthread reader([other = connect()](const std::stop_token& over) {
    while (!over.stop_requested()) {
      const Prepared open(*other, "SELECT A FROM U");
      open->step();
      std::this_thread::sleep_for(milliseconds(5));
    }
  });
  uintmax_t most = 0;
  for (int commits = 0; commits < 48; ++commits) {
    query(*one, "UPDATE U SET A = A + 1");
    one->commit();
    most = std::max(most, fs::file_size(database_ + "-wal"));
  }
  EXPECT_LT(most, 50'000'000u) << "of 100 million that were written";
}

// Runs `sql` while another thread interrupts it.
Failure interrupted(Connection& connection, std::string_view sql) {
  const Prepared prepared(connection, sql);
  std::thread breaker([&] {
    std::this_thread::sleep_for(milliseconds(50));
    connection.interrupt();
  });
  std::string rows;
  const Failure raised = read_on(prepared, rows);
  breaker.join();
  return raised;
}

TEST_F(EngineTest, InterruptStopsWhatRunsOrWaitsAndUndoesItAlone) {
  const ConnectionPtr one = connect_with_table(1024);
  query(*one, "CREATE SEQUENCE S");
  one->interrupt();
  EXPECT_EQ(query(*one, "SELECT MAX(A) FROM T"), "1024") << "without an operation it hit the next";
  const std::string endless =
      "UPDATE T SET B = 'x' WHERE A IN (SELECT A.A FROM T A, T B, T C, T D WHERE A.A + B.A + C.A + "
      "D.A > 0)";
  EXPECT_EQ(interrupted(*one, endless).code, 1013);
  query(*one, "INSERT INTO T(A) VALUES (5000)");
  const Failure raised = interrupted(*one, endless);
  EXPECT_EQ(raised.code, 1013);
  EXPECT_EQ(raised.text, error_text(1013)) << "the transaction was lost";
  setenv("OCI8_LOCK_TIMEOUT", "60000", 1);
  for (const char* sql : {"UPDATE T SET B = 'x'", "SELECT S.NEXTVAL FROM DUAL"}) {
    EXPECT_EQ(interrupted(*connect(), sql).code, 1013) << "waiting for a lock: " << sql;
  }
  one->commit();
  EXPECT_EQ(query(*one, "SELECT COUNT(*) FROM T WHERE A = 5000"), "1");
  EXPECT_EQ(query(*one, "SELECT COUNT(*) FROM T WHERE B = 'x'"), "0");

  const Prepared open(*one, "SELECT A.A FROM T A, T B, T C, T D");
  ASSERT_TRUE(open->step());
  EXPECT_EQ(interrupted(*one, "DELETE FROM T").code, 1013) << "reading an open query out";
  EXPECT_EQ(query(*one, "SELECT COUNT(*) FROM T"), "1025");
  std::string rows;
  EXPECT_EQ(read_on(open, rows).code, 1013) << "the rows that were read are not all";
}

// SQLite looks for a break every so many instructions of a statement: in so many rounds once at
// each place.
TEST_F(EngineTest, AStoppedBeginOrEndOfAStepIsDoneOrUndone) {
  connect_with_table();
  SqliteSession session(database_);
  for (int i = 0; i < 1000; ++i) {
    const SqliteSession::Operation running(session);
    session.interrupt();
    failure([&] { const SqliteSession::Change change(session); });
    ASSERT_FALSE(session.in_transaction()) << i;
  }
  session.begin();
  int kept = 0;
  for (int i = 0; i < 1000; ++i) {
    const SqliteSession::Operation running(session);
    session.interrupt();
    const auto step = [&] {
      SqliteSession::Whole whole(session);
      execute_sql(session.db(), "UPDATE T SET A = A + 1");
      whole.keep();
    };
    if (failure(step).code == 0) ++kept;
  }
  const auto row = prepare_sql(session.db(), "SELECT A FROM T");
  ASSERT_TRUE(step_sql(row.get()));
  EXPECT_EQ(sqlite3_column_int(row.get(), 0), 1 + kept);
}

TEST_F(EngineTest, SavepointsBeforeATransactionKeepNobodyFromWriting) {
  expect(R"(
    1 SAVEPOINT A -> | 1 SAVEPOINT B -> | 1 ROLLBACK TO B -> | 1 ROLLBACK TO X -> ORA-1086
    2 UPDATE T SET B = 'x' -> | 2 COMMIT -> | 1 INSERT INTO T(A) VALUES (2) -> | 1 SAVEPOINT C ->
    1 DELETE FROM T -> | 1 ROLLBACK TO C -> | 1 SELECT COUNT(*) FROM T -> 2
    1 SAVEPOINT A -> | 1 DELETE FROM T -> | 1 ROLLBACK TO A -> | 1 SELECT COUNT(*) FROM T -> 2
    1 ROLLBACK TO B -> | 1 SELECT B FROM T -> x | 1 ROLLBACK TO C -> ORA-1086
    2 INSERT INTO T(A) VALUES (3) -> | 2 COMMIT -> | 1 DELETE FROM T -> | 1 ROLLBACK TO A ->
    1 SELECT COUNT(*) FROM T -> 2 | 1 ROLLBACK TO B -> ORA-1086 | 1 SAVEPOINT B ->
    1 SAVEPOINT A -> | 1 ROLLBACK TO B -> | 1 ROLLBACK TO A -> ORA-1086 | 1 COMMIT ->
    1 ROLLBACK TO B -> ORA-1086 | 1 SAVEPOINT B -> | 1 DELETE FROM T -> | 1 ROLLBACK ->
    1 DELETE FROM T -> | 1 ROLLBACK TO B -> ORA-1086 | 1 SELECT COUNT(*) FROM T -> 0)",
         connect_with_table());
}

// SQLite gives the transaction up where the file cannot grow for a single row.
TEST_F(EngineTest, ALostTransactionIsToldByTheNextCommit) {
  const ConnectionPtr other = connect_with_table();
  for (const auto& [sql, expected] : cases(R"(
    ROLLBACK TO S -> 1086 | SELECT 1 / (A - A) FROM T FOR UPDATE -> 1476
    SELECT A FROM T FOR UPDATE NOWAIT -> 54 | ROLLBACK TO EARLY -> 0)")) {
    const auto session = std::make_shared<SqliteSession>(database_);
    const auto code_of = [&](const std::string& text) {
      const SqlText source = tokenize(text);
      return failure([&] { SqliteStatement(session, source).step(); }).code;
    };
    execute_sql(session->db(), "PRAGMA max_page_count = 1");
    EXPECT_EQ(code_of("SAVEPOINT EARLY"), 0);
    EXPECT_EQ(code_of("INSERT INTO T(A) VALUES (0)"), 0);
    EXPECT_EQ(code_of("SAVEPOINT S"), 0);
    int code = 0;
    for (int a = 2; code == 0; ++a) {
      code = code_of("INSERT INTO T VALUES (" + std::to_string(a) + ", 'to the end')");
    }
    EXPECT_EQ(code, 1653);
    if (expected == "54") query(*other, "LOCK TABLE T IN SHARE MODE");
    EXPECT_EQ(code_of(sql), std::stoi(expected)) << sql;
    other->rollback();
    EXPECT_EQ(code_of("UPDATE T SET B = 'later'"), 0);
    // All that was lost came after the savepoint.
    EXPECT_EQ(failure([&] { session->commit(); }).code, expected == "0" ? 0 : 2091) << sql;
  }
}

// Also where it cannot write what a query sorts, be it that a change reads the query out.
TEST_F(EngineTest, ATransactionLostByAQueryIsToldByTheNextCommit) {
  const ConnectionPtr one = connect_with_table(2048);
  const std::string sorting = "SELECT MAX(A) FROM T GROUP BY RPAD(A, 4000, 'x')";
  for (const bool by_change : {false, true}) {
    query(*one, "INSERT INTO T(A) VALUES (5000)");
    const Prepared open(*one, "SELECT 0 FROM DUAL UNION ALL " + sorting);
    ASSERT_TRUE(open->step());
    std::string rows;
    Failure raised;
    with_small_files(1 << 20, [&] {
      if (!by_change) raised = read_on(open, rows);
      EXPECT_EQ(code_of(*one, "INSERT INTO T(A) VALUES (5001)"), 0);
      if (by_change) raised = read_on(open, rows);
    });
    EXPECT_THAT(raised.text, testing::HasSubstr(error_text(2091))) << by_change;
    EXPECT_EQ(failure([&] { one->commit(); }).code, 2091) << by_change;
    EXPECT_EQ(query(*one, "SELECT MAX(A) FROM T"), "2048") << by_change;
  }
  query(*one, "INSERT INTO T(A) VALUES (5000)");
  const Prepared open(*one, "SELECT 0 FROM DUAL UNION ALL " + sorting);
  ASSERT_TRUE(open->step());
  with_small_files(1 << 20, [&] { EXPECT_EQ(code_of(*one, "ROLLBACK"), 0); });
  EXPECT_EQ(code_of(*one, "COMMIT"), 0) << "nothing that the client has not given up itself";
}

// The functions of an earlier version gave another value where the row was written.
TEST_F(EngineTest, IndexesOfEarlierFunctionsAreMadeAnew) {
  const ConnectionPtr one = connect_with_table();
  query(*one, "CREATE TABLE M(A NUMBER, B NUMBER)");
  query(*one, "CREATE INDEX I ON M(A * B)");
  const auto earlier = [this](const char* sql) {
    const auto raw = open_file(database_, SQLITE_OPEN_READWRITE);
    const std::string user;
    register_functions(raw.get(), &user);
    const auto multiply = [](sqlite3_context* call, int, sqlite3_value**) {
      sqlite3_result_int(call, 7);
    };
    sqlite3_create_function(raw.get(), "ora_mul", 2, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr,
                            multiply, nullptr, nullptr);
    execute_sql(raw.get(), sql);
  };
  earlier("INSERT INTO M VALUES (1.5, 2.5); PRAGMA user_version = 0");
  EXPECT_EQ(query(*one, "SELECT A FROM M WHERE A * B = 3.75"), "") << "not what is to be mended";
  const SqliteSession later(database_);
  EXPECT_EQ(query(*one, "SELECT A FROM M WHERE A * B = 3.75"), "1.5");
  earlier("INSERT INTO M VALUES (1, 2)");
  const SqliteSession same(database_);
  EXPECT_EQ(query(*one, "SELECT A FROM M WHERE A * B = 2"), "") << "made anew once";
  query(*one, "ALTER INDEX I REBUILD");
  EXPECT_EQ(query(*one, "SELECT A FROM M WHERE A * B = 2"), "1");
}

TEST_F(EngineTest, OpenQueriesOutliveTheirConnection) {
  ConnectionPtr one = connect_with_table(4);
  const Prepared kept(*one, "SELECT A FROM T"), open(*one, "SELECT A FROM T");
  ASSERT_TRUE(kept->step());
  query(*one, "UPDATE T SET B = 'x'");
  ASSERT_TRUE(open->step());
  one.reset();
  for (const Prepared* each : {&kept, &open}) {
    EXPECT_EQ(text_of((*each)->row()[0]), "1");
    EXPECT_EQ(failure([&] { (*each)->step(); }).code, 3114);
  }
}

// The open query stands on its first row when the change comes.
TEST_F(EngineTest, OpenQueriesGiveTheStateThatTheyBeganWith) {
  const std::string all = "1 2 3 4 5 6 7 8";
  const std::tuple<std::string, std::string, std::string, int> cases[] = {
      {"SELECT A FROM T", "INSERT INTO T(A) SELECT A + 8 FROM T", all, 0},
      {"SELECT A FROM T ORDER BY A", "UPDATE T SET A = A + 1000", all, 0},
      {"SELECT A FROM T FOR UPDATE", "DELETE FROM T", all, 0},
      {"SELECT B FROM T ORDER BY A", "UPDATE T SET B = 'y'", "x x x x x x x x", 0},
      {"SELECT 10 / (A - 5) FROM T ORDER BY A", "DELETE FROM T", "-2.5 -3.33333333333333 -5 -10",
       1476},
      {"SELECT A FROM T", "ROLLBACK", all, 0},
      {"SELECT A FROM T", "ROLLBACK TO S", all, 0},
      {"SELECT A FROM T", "DROP TABLE T", all, 0},
      {"SELECT A FROM T", "ALTER TABLE T ADD (C NUMBER)", all, 0},
      {"SELECT A FROM T", "DROP TABLE U", all, 0},
      {"SELECT TABLE_NAME FROM USER_TABLES", "DROP TABLE U", "T U", 0},
      {"SELECT Q.NEXTVAL FROM T", "DELETE FROM T", "1 2 3 4 5", 8004},
  };
  for (const auto& [sql, change, expected, code] : cases) {
    const ConnectionPtr one = connect_with_table(4);
    query(*one, "CREATE TABLE U(A NUMBER)");
    query(*one, "CREATE SEQUENCE Q MAXVALUE 5");
    query(*one, "SAVEPOINT S");
    query(*one, "INSERT INTO T(A) SELECT A + 4 FROM T");
    query(*one, "UPDATE T SET B = 'x'");
    const Prepared open(*one, sql);
    ASSERT_TRUE(open->step());
    EXPECT_EQ(code_of(*one, change), 0) << sql;
    std::string rows = text_of(open->row()[0]);
    EXPECT_EQ(read_on(open, rows).code, code) << sql << ", " << change;
    EXPECT_EQ(rows, expected) << sql << ", " << change;
    for (const char* table : {"TABLE T", "TABLE U", "SEQUENCE Q"}) {
      code_of(*one, std::string("DROP ") + table);
    }
  }
}

TEST_F(EngineTest, RowsBeyondTheMemoryOfAnOpenQueryAreKeptToo) {
  const ConnectionPtr one = connect_with_table(128);
  const std::string sql =
      "SELECT RPAD(A.A || '.' || B.A, 4000, 'x') FROM T A, T B WHERE B.A <= 40 ORDER BY A.A, B.A";
  const std::string all = query(*one, sql);
  const Prepared open(*one, sql);
  ASSERT_TRUE(open->step());
  query(*one, "DELETE FROM T");
  std::string rows = text_of(open->row()[0]) + ' ';
  rows += rows_of(*open.statement);
  EXPECT_EQ(rows.size(), 128 * 40 * 4001 - 1);
  EXPECT_TRUE(rows == all);

  one->rollback();
  const Prepared cut(*one, sql);
  ASSERT_TRUE(cut->step());
  with_small_files(4 << 20, [&] { EXPECT_EQ(code_of(*one, "DELETE FROM T"), 0); });
  rows = text_of(cut->row()[0]);
  EXPECT_EQ(read_on(cut, rows).code, 1652) << "no place for the rest";
  EXPECT_TRUE(all.starts_with(rows) && rows.size() > 1 << 20);
}

TEST_F(EngineTest, StatementFollowsChangesOfItsTable) {
  const ConnectionPtr one = connect_with_table();
  const ConnectionPtr other = connect();
  const Prepared insert(*one, "INSERT INTO T(A, B) VALUES (:1, :2)");
  const auto add = [&](long long a, std::string_view b) {
    insert->inputs()[0] = number(a);
    insert->inputs()[1] = words(b);
    return failure([&] { insert->step(); }).code;
  };
  EXPECT_EQ(add(2, "short"), 0);
  one->commit();
  query(*other, "DROP TABLE T");
  EXPECT_EQ(add(3, "none"), 942);
  query(*other, "CREATE TABLE T(A NUMBER, B VARCHAR2(40), C DATE)");
  EXPECT_EQ(add(4, std::string(30, 'x')), 0) << "the new length holds";
  EXPECT_EQ(insert->rows_changed(), 1u);
}

// By a placeholder of its own, whose value may go to its column without a check, and through a
// query, where every value is checked: they have to end alike, at the borders of every type.
TEST_F(EngineTest, BoundValuesAreStoredAsAllOthersAre) {
  using Kind = Value::Kind;
  constexpr std::string_view kTexts[] = {"",     "a",   "abc", "abcd", "ä",          "äbc",
                                         "1.25", " 7 ", "0aF", "x",    "15-MAR-1999"};
  constexpr std::string_view kBytes[] = {"abc", "abcd", "\x77\xc7\x03\x1d\x0e\x06\x0a",
                                         "\x77\xc7\x02\x1d\x0e\x06\x0a",
                                         "\x44\x5b\x02\x1d\x01\x01\x01"};
  std::vector<Value> values(1);
  for (const std::string_view text : kTexts) values.push_back(words(text));
  for (const std::string_view bytes : kBytes) values.push_back(words(bytes, Kind::Bytes));
  for (const long long integer : {0LL, -7LL, 99LL, 100LL, -999LL, 1000LL, LLONG_MAX, LLONG_MIN}) {
    values.push_back(number(integer));
  }
  for (const double real :
       {.5, -9.99, 9.999, 99.99, .0099, .01, 99.995, .1 + .2, 5.0, 1e30, 1e-9}) {
    values.push_back({Kind::Real, 0, real});
  }
  const ConnectionPtr db = connect();
  const auto outcome = [&](std::string_view table, std::string_view insert, const Value& value) {
    const Failure raised = failure([&] {
      const Prepared prepared(*db, insert);
      prepared->inputs()[0] = value;
      prepared->step();
    });
    const Prepared select(*db, "SELECT V FROM " + std::string(table));
    const bool row = select->step();
    const Value stored = row ? select->row()[0] : Value();
    return std::tuple(raised.code, row, stored.kind, text_of(stored));
  };
  for (const std::string type :
       {"VARCHAR2(3)", "CHAR(3)", "NUMBER", "NUMBER(2)", "NUMBER(3,2)", "NUMBER(2,4)",
        "NUMBER(3,-2)", "NUMBER(38,20)", "FLOAT", "DATE", "RAW(3)", "RAW(7)", "ROWID"}) {
    for (const std::string table : {"P", "Q"}) {
      query(*db, "CREATE TABLE " + table + "(V " + type + ")");
    }
    for (size_t i = 0; i < values.size(); ++i) {
      EXPECT_EQ(outcome("P", "INSERT INTO P VALUES (:1)", values[i]),
                outcome("Q", "INSERT INTO Q SELECT :1 FROM DUAL", values[i]))
          << type << ", value " << i;
      db->rollback();
    }
    query(*db, "DROP TABLE P");
    query(*db, "DROP TABLE Q");
  }
}

TEST_F(EngineTest, AStatementGoesOnAfterValuesThatDoNotFit) {
  const ConnectionPtr db = connect();
  query(*db, "CREATE TABLE U(A VARCHAR2(3), B NUMBER(3), C CHAR(3) NOT NULL, CHECK (B <> 13))");
  const Prepared insert(*db, "INSERT INTO U VALUES (:1, :2, :3)");
  const Prepared update(*db, "UPDATE U SET A = :1, B = B + :2 WHERE C = :3");
  const auto put = [](const Prepared& to, std::string_view text, const std::string& b) {
    const std::span<Value> inputs = to->inputs();
    inputs[0] = inputs[2] = words(text);
    inputs[1] = b.size() == 2 ? number(std::stoi(b)) : words(b);
    return failure([&] { to->step(); }).code;
  };
  EXPECT_EQ(put(insert, "abc", "10"), 0);
  EXPECT_EQ(put(insert, "abc", "13"), 2290);
  EXPECT_EQ(put(insert, "", "14"), 1400);
  EXPECT_EQ(put(insert, "abcd", "x"), 1401) << "the first column's error";
  EXPECT_EQ(put(insert, "b", "2"), 0) << "a number's text, and a text to be padded";
  EXPECT_EQ(put(insert, "def", "11"), 0);
  EXPECT_EQ(put(update, "def", "10"), 0);
  EXPECT_EQ(update->rows_changed(), 1u);
  EXPECT_EQ(put(update, "abcd", "10"), 0) << "no row, no error";
  EXPECT_EQ(put(update, "def", "999"), 1438);
  EXPECT_EQ(query(*db, "SELECT A || B || C FROM U ORDER BY B"), "b2b   abc10abc def21def");
}

TEST_F(EngineTest, EngineErrorsHaveTheirNumbers) {
  expect(R"(
    1 CREATE TABLE P(ID NUMBER PRIMARY KEY) ->
    1 CREATE TABLE C(ID NUMBER REFERENCES P(ID), N NUMBER NOT NULL, K NUMBER CHECK (K > 0)) ->
    1 CREATE SEQUENCE S INCREMENT BY -1 START WITH -9223372036854775808 MAXVALUE 0
      MINVALUE -9223372036854775808 -> | 1 INSERT INTO P VALUES (-9223372036854775808) ->
    1 SELECT S.NEXTVAL FROM P WHERE ID = -9223372036854775808 -> -9223372036854775808
    1 DELETE FROM P -> | 1 INSERT INTO P VALUES (1) -> | 1 INSERT INTO C VALUES (1, 1, 1) ->
    1 CREATE TABLE E(ID NUMBER PRIMARY KEY, BOSS NUMBER REFERENCES E(ID)) ->
    1 INSERT INTO E VALUES (1, 1) -> | 1 COMMIT ->)");
  const ConnectionPtr one = connect();
  for (const auto& [sql, expected] : cases(R"(
    INSERT INTO P VALUES (1) -> 1 P.ID | INSERT INTO C VALUES (1, NULL, 1) -> 1400 "C"."N"
    UPDATE C SET N = NULL -> 1407 "C"."N" | INSERT INTO C VALUES (1, 1, 0) -> 2290 check
    INSERT INTO C VALUES (2, 1, 1) -> 2291 parent | UPDATE C SET ID = 2 -> 2291 parent
    DELETE FROM P -> 2292 child | UPDATE P SET ID = 2 -> 2292 child | DROP TABLE P -> 2449 foreign
    UPDATE C SET N = (SELECT MAX(ID) FROM P WHERE ID = 1), "ID" = 9 -> 2291 parent
    UPDATE C SET (N, ID) = (SELECT 1, 9 FROM DUAL) -> 2291 parent
    UPDATE E SET ID = CASE WHEN BOSS = 1 THEN 7 END -> 2292 child
    SELECT S.NEXTVAL FROM DUAL -> 8004 S.NEXTVAL goes below MINVALUE and
    DELETE FROM DUAL -> 1031 privileges | DROP VIEW USER_TABLES -> 1031 privileges)")) {
    const Failure raised = failure([&, text = sql] { query(*one, text); });
    EXPECT_EQ(raised.code, std::stoi(expected)) << sql << ": " << raised.text;
    EXPECT_THAT(raised.text, testing::HasSubstr(expected.substr(expected.find(' ') + 1)));
  }
  EXPECT_EQ(code_of(*one, ""), 900);
  EXPECT_EQ(error_text(31999), "ORA-31999: message not found\n");
}

TEST_F(EngineTest, SequencesCountForAllSessions) {
  expect(R"(
    1 CREATE SEQUENCE S START WITH 5 INCREMENT BY 2 MAXVALUE 9 ->
    1 SELECT S.CURRVAL FROM DUAL -> ORA-8002 | 1 SELECT S.NEXTVAL FROM DUAL -> 5
    2 SELECT S.NEXTVAL FROM DUAL -> 7 | 1 SELECT S.NEXTVAL FROM DUAL -> 9
    1 SELECT S.CURRVAL FROM DUAL -> 9 | 2 SELECT S.NEXTVAL FROM DUAL -> ORA-8004
    1 DROP SEQUENCE S -> | 2 SELECT S.NEXTVAL FROM DUAL -> ORA-2289)");
  const ConnectionPtr one = connect_with_table(2);
  query(*one, "CREATE SEQUENCE S");
  const Prepared open(*one, "SELECT A FROM T");
  ASSERT_TRUE(open->step());
  EXPECT_EQ(query(*connect(), "SELECT S.NEXTVAL FROM DUAL"), "1");
  EXPECT_EQ(query(*one, "SELECT S.NEXTVAL FROM DUAL"), "2") << "under an older query";

  const ConnectionPtr other = connect();
  for (const char* before : {"COMMIT", "UPDATE T SET B = 'y'"}) {
    query(*one, before);
    const Prepared drawing(*one, "SELECT S.NEXTVAL FROM T");
    ASSERT_TRUE(drawing->step());
    const std::string next = std::to_string(drawing->row()[0].integer + 1);
    one->commit();
    EXPECT_EQ(code_of(*other, "UPDATE T SET B = 'x'"), 0) << "behind " << before;
    other->commit();
    EXPECT_EQ(rows_of(*drawing.statement), next) << "behind " << before;
  }
}

}  // namespace
}  // namespace oci8
