// Many sessions at once, processes that die, and the same work again and again.
#include <atomic>
#include <csignal>
#include <deque>
#include <fstream>
#include <optional>
#include <random>

#include "oci_fixture.h"
#include "sqlite_queue.h"

namespace {

using std::chrono::microseconds;

// Repetitions, times the environment variable OCI8_TEST_SCALE for a longer look.
int scaled(int repetitions) {
  const char* scale = std::getenv("OCI8_TEST_SCALE");
  return repetitions * std::max(scale == nullptr ? 1 : std::atoi(scale), 1);
}

// In a process of its own: whatever the first call sets up must not be there yet.
TEST(FirstCall, MayComeFromTwoThreadsAtOnce) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto race = [] {
    std::atomic<int> ready{0}, good{0};
    const auto body = [&] {
      for (++ready; ready < 2;) {
      }
      OCIInitialize(OCI_THREADED, nullptr, nullptr, nullptr, nullptr);
      Client client;
      if (client.log_in(":memory:") == 0 && client.run("select 1 from dual", 0) == 0) ++good;
    };
    std::thread other(body);
    body();
    other.join();
    std::exit(good == 2 ? 0 : 1);
  };
  EXPECT_EXIT(race(), testing::ExitedWithCode(0), "");
}

class Threads : public LoggedInTest {
 protected:
  static constexpr int kSessions = 64, kAmount = 100;

  // A writer waits for all others in turn, on a machine that may be busy with something else.
  Threads() {
    setenv("OCI8_LOCK_TIMEOUT", "120000", 0);
    must("create table t (id number primary key, amount number)");
    for (int i = 0; i < kSessions; ++i) {
      must("insert into t values (" + std::to_string(i) + ", " + std::to_string(kAmount) + ")");
      clients_.emplace_back(database_);
    }
    OCITransCommit(c.svc, c.err, 0);
  }

  static bool add(Client& client, int row, int amount) {
    const std::string change = std::to_string(amount) + " where id = " + std::to_string(row);
    return client.run("update t set amount = amount + " + change) == OCI_SUCCESS;
  }

  std::deque<Client> clients_;
};

TEST_F(Threads, SessionsChangeOneFileAndNothingIsLostOrSeenHalf) {
  std::atomic<int> failures{0}, torn{0};
  std::atomic<bool> over{false};
  std::thread breaker([&] {
    for (std::mt19937 random(1); !over;) {
      Client& victim = clients_[random() % kSessions];
      OCIBreak(victim.svc, victim.err);
      std::this_thread::sleep_for(microseconds(random() % 1000));
    }
  });
  const auto work = [&](int number, Client& client) {
    std::mt19937 random(static_cast<unsigned>(number));
    for (int round = scaled(4); round > 0; --round) {
      const int from = static_cast<int>(random() % kSessions), to = (from + number) % kSessions;
      const bool moved = add(client, from, -number) && add(client, to, number);
      if (!moved && client.code() != 1013) ++failures;
      (moved && random() % 4 != 0 ? OCITransCommit : OCITransRollback)(client.svc, client.err, 0);
      const int sum = client.number("select sum(amount) from t");
      if (sum != kSessions * kAmount && sum != -1013) ++torn;
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < kSessions; ++i) threads.emplace_back(work, i, std::ref(clients_[i]));
  for (std::thread& thread : threads) thread.join();
  over = true;
  breaker.join();
  EXPECT_EQ(failures + torn, 0) << failures << " failures";
  EXPECT_EQ(c.number("select sum(amount) from t"), kSessions * kAmount);
}

// Whoever waits is served after those who came before, also where the file's lock is free by now.
TEST_F(OciTest, AWriterDoesNotOvertakeThoseWhoWait) {
  setenv("OCI8_LOCK_TIMEOUT", "50", 1);
  log_in();
  unsetenv("OCI8_LOCK_TIMEOUT");
  must("create table t (id number)");
  const auto queue = oci8::WriteQueue::of(std::filesystem::canonical(database_).string());
  std::optional<oci8::WriteQueue::Place> first(*queue), second(*queue);
  EXPECT_FALSE(second->first_within({}));
  EXPECT_EQ(c.run("insert into t values (1)"), OCI_ERROR);
  EXPECT_EQ(c.code(), 54);
  first.reset();
  EXPECT_TRUE(second->first_within({}));
  second.reset();
  must("insert into t values (1)");
}

class Crash : public oci8::DatabaseTest {
 protected:
  static constexpr int kRowsOfOne = 3;

  [[noreturn]] static void load(const std::string& database, int next, int acknowledge) {
    Client client;
    bool good = client.log_in(database) == OCI_SUCCESS;
    for (; good; ++next) {
      const std::string row = "insert into t values (rpad('x', 3000, 'y'), " + std::to_string(next);
      for (int i = 0; i < kRowsOfOne; ++i) good &= client.run(row + ")") == 0;
      good &= OCITransCommit(client.svc, client.err, 0) == 0 && write(acknowledge, "+", 1) == 1;
    }
    _exit(1);
  }

  int kill_after(microseconds life, int next) {
    int channel[2];
    EXPECT_EQ(pipe(channel), 0);
    const pid_t child = fork_between_threads(true);
    if (child == 0) load(database_, next, channel[1]);
    close(channel[1]);
    char sign = 0;
    int acknowledged = static_cast<int>(read(channel[0], &sign, 1));
    std::this_thread::sleep_for(life);
    kill(child, SIGKILL);
    EXPECT_TRUE(WIFSIGNALED(end_of(child))) << "the loading process failed by itself";
    while (read(channel[0], &sign, 1) == 1) ++acknowledged;
    close(channel[0]);
    return acknowledged;
  }
};

TEST_F(Crash, EveryAcknowledgedCommitIsThereAndNothingElse) {
  EXPECT_EQ(Client(database_).run("create table t (v varchar2(4000), n number)"), OCI_SUCCESS);
  std::mt19937 random(20010125);
  int kept = 0;
  for (int kills = scaled(10); kills > 0 && !HasFailure(); --kills) {
    const int expected = kept + kill_after(microseconds(random() % 30000), kept);
    Client c(database_);
    kept = c.number("select nvl(max(n) + 1, 0) from t");
    EXPECT_TRUE(kept == expected || kept == expected + 1) << kept << " not " << expected;
    EXPECT_EQ(c.number("select count(*) from t"), kept * kRowsOfOne) << "half a transaction";
    EXPECT_EQ(c.number("select count(distinct n) from t where length(v) = 3000"), kept);
    EXPECT_EQ(oci8::in_file(database_, "PRAGMA integrity_check"), "ok");
  }
}

long resident_kilobytes() {
  long pages = 0;
  std::ifstream("/proc/self/statm") >> pages >> pages;
  return pages * (sysconf(_SC_PAGESIZE) / 1024);
}

class Soak : public LoggedInTest {
 protected:
  Soak() {
    must("create table t (n number, l long)");
    must("insert into t values (1, 'a long text')");
  }

  template <class Body>
  void repeat(int times, Body body) {
    for (int i = 0; i < times / 4 + 1; ++i) body();
    [[maybe_unused]] const long before = resident_kilobytes();
    for (int i = 0; i < times && !HasFailure(); ++i) body();
#if !defined(__SANITIZE_ADDRESS__)  // which keeps freed memory for a while
    EXPECT_LE(resident_kilobytes(), before + 512)
        << "more than what allocator and page cache still settle";
#endif
  }
};

TEST_F(Soak, CursorsThatStreamAValueInAndFetchIt) {
  int times = 0;
  repeat(scaled(2000), [&] {
    Stream stream{std::string(9000, 'x'), 3000};
    OCIStmt* former = std::exchange(c.stmt, c.make<OCIStmt>(OCI_HTYPE_STMT));
    ASSERT_EQ(c.stream("update t set l = :1 where n = 1", SQLT_LNG, stream), OCI_SUCCESS);
    ASSERT_EQ(c.execute(1), OCI_SUCCESS) << c.code();
    // Not each one: a commit waits for the disk, and is not what is looked at.
    if (++times % 1000 == 0) OCITransCommit(c.svc, c.err, 0);
    ASSERT_EQ(c.number("select n, l from t"), 1);
    ASSERT_EQ(OCIHandleFree(std::exchange(c.stmt, former), OCI_HTYPE_STMT), OCI_SUCCESS);
  });
}

TEST_F(Soak, LoginsAndLogouts) {
  repeat(scaled(20), [&] {
    Client client(database_);
    OCISessionEnd(client.svc, client.err, client.ses, 0);
    ASSERT_EQ(OCIServerDetach(client.srv, client.err, 0), OCI_SUCCESS);
  });
}

}  // namespace
