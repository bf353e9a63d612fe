// Without a JVM: cases that end the process, and records when the low addresses are mostly taken.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <limits>
#include <thread>
#include <vector>

#include "oralayer8.h"

namespace {

constexpr std::uint64_t kFourGigabytes = std::uint64_t{1} << 32;
constexpr std::uintptr_t kMegabyte = std::uintptr_t{1} << 20;

void occupy(std::uint64_t from, std::uint64_t to) {
  for (std::uint64_t at = from; at < to; at += kMegabyte) {
    mmap(reinterpret_cast<void*>(static_cast<std::uintptr_t>(at)), kMegabyte, PROT_NONE,
         MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED_NOREPLACE, -1, 0);
  }
}

// Runs before the pools are built: all but the last stretch below 4 GiB is taken, also the range
// that MAP_32BIT would look at. A 32-bit process lives there itself.
__attribute__((constructor(101))) void occupy_the_usual_ranges() {
  if (sizeof(void*) == 4) return;
  occupy(kMegabyte, kFourGigabytes - 512 * kMegabyte);
}

void limit_memory(std::size_t headroom) {
  std::size_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  const rlim_t limit = pages * static_cast<std::size_t>(getpagesize()) + headroom;
  const rlimit both = {limit, limit};
  setrlimit(RLIMIT_AS, &both);
  dup2(2, 1);  // death tests look at standard error
}

using Ends = testing::ExitedWithCode;

TEST(ProcessDeathTest, ExhaustedFetchArraysEndTheProcess) {
  // 10M rows: 20, 20, 20, 40 and 80 MB.
  const struct {
    std::size_t megabytes;
    const char* message;
  } cases[] = {{10, "^PROCESS OUT OF MEMORY \\(2.1\\)\n$"},
               {30, "^PROCESS OUT OF MEMORY \\(2.2\\)\n$"},
               {50, "^PROCESS OUT OF MEMORY \\(2.3\\)\n$"},
               {70, "^PROCESS OUT OF MEMORY \\(2.4\\)\n$"},
               {130, "^PROCESS OUT OF MEMORY \\(2.5\\)\n$"}};
  for (const auto& c : cases) {
    EXPECT_EXIT(
        {
          columndata column(0);
          limit_memory(c.megabytes << 20);
          column.allocFetchArrays(10'000'000);
        },
        Ends(1), c.message);
  }
}

TEST(ProcessDeathTest, ExhaustedByteBufferEndsTheProcess) {
  const char* const message = "^PROCESS OUT OF MEMORY \\(1\\)\n$";
  columndata column(0);
  const auto grow = [&column](sb4 size) {
    limit_memory(100 << 20);
    column.allocByteArray(size);
  };
  EXPECT_EXIT(grow(200 << 20), Ends(1), message);
  EXPECT_EXIT(grow(std::numeric_limits<sb4>::max()), Ends(1), message);
}

TEST(ProcessDeathTest, BufferOfAllRowsThatDoesNotFitEndsTheProcess) {
  const struct {
    int type;
    sword buflen;
    int fetchsize;
  } cases[] = {{SQLT_CHR, 1 << 30, 4},
               {SQLT_CHR, 196606, 65536},
               {SQLT_BIN, 65536, 32768},
               {SQLT_LNG, 1 << 30, 4}};
  for (const auto& c : cases) {
    EXPECT_EXIT(
        {
          columndata column(0);
          column.internal_dbtype = static_cast<sb2>(c.type);
          column.buflen = c.buflen;
          limit_memory(1000 << 20);
          allocSelectData(&column, c.buflen, c.fetchsize);
          _exit(0);
        },
        Ends(1), "^PROCESS OUT OF MEMORY \\(1\\)\n$");
  }
}

TEST(ProcessDeathTest, NegativeRowCountsNeverCorruptMemory) {
  const auto exited = [](int status) { return WIFEXITED(status); };
  for (const int rows : {-1, std::numeric_limits<int>::min()}) {
    EXPECT_EXIT(
        {
          columndata column(1);
          limit_memory(100 << 20);
          column.buflen = 10;
          column.internal_dbtype = SQLT_CHR;
          allocSelectData(&column, 10, rows);
          _exit(0);
        },
        exited, "");
  }
}

TEST(LowRecords, AreHandedOutToSeveralThreads) {
  const auto churn = [] {
    for (int i = 0; i < 2000; ++i) {
      auto* column = new (std::nothrow) columndata(1);
      ASSERT_NE(column, nullptr);
      column->colpos = i;
      std::this_thread::yield();
      ASSERT_EQ(column->colpos, i);
      delete column;
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back(churn);
  for (std::thread& thread : threads) thread.join();
}

TEST(LowRecords, ComeWhileThereIsRoomAndThenFailCleanly) {
  if (sizeof(void*) == 4) GTEST_SKIP() << "no address is high, and the heap ends with the records";
  EXPECT_LT(reinterpret_cast<std::uintptr_t>(&xaldapool[0]), kFourGigabytes);
  std::vector<cdadata*> records;
  for (int i = 0; i < 5000; ++i) {
    records.push_back(new (std::nothrow) cdadata(0));
    ASSERT_NE(records.back(), nullptr);
    ASSERT_LT(reinterpret_cast<std::uintptr_t>(records.back()), kFourGigabytes);
  }
  occupy(kFourGigabytes - 512 * kMegabyte, kFourGigabytes);
  cdadata* last = nullptr;
  while ((last = new (std::nothrow) cdadata(0)) != nullptr) {
    ASSERT_LT(reinterpret_cast<std::uintptr_t>(last), kFourGigabytes);
    records.push_back(last);
  }
  delete records.back();
  records.back() = new (std::nothrow) cdadata(0);
  EXPECT_NE(records.back(), nullptr) << "a freed record makes room for the next";
  for (cdadata* record : records) delete record;
}

}  // namespace
