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

#include "exceptions.h"
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

void allocate_for(int type, sword buflen, int rows, std::size_t megabytes) {
  columndata column(0);
  column.internal_dbtype = static_cast<sb2>(type);
  column.buflen = buflen;
  limit_memory(megabytes << 20);
  allocSelectData(&column, buflen, rows);
  _exit(0);
}

TEST(ProcessDeathTest, BuffersThatDoNotFitEndTheProcess) {
  constexpr sb4 kMost = std::numeric_limits<sb4>::max();
  const std::tuple<const char*, int, sword, int, std::size_t> cases[] = {
      // The fetch arrays of 10M rows: 20, 20, 20, 40 and 80 MB.
      {"2.1", SQLT_CLOB, -1, 10'000'000, 10},
      {"2.2", SQLT_CLOB, -1, 10'000'000, 30},
      {"2.3", SQLT_CLOB, -1, 10'000'000, 50},
      {"2.4", SQLT_CLOB, -1, 10'000'000, 70},
      {"2.5", SQLT_CLOB, -1, 10'000'000, 130},
      {"1", SQLT_CHR, 200 << 20, 1, 100},
      {"1", SQLT_CHR, kMost, 1, 100},
      // Of all rows together.
      {"1", SQLT_CHR, 1 << 30, 4, 1000},
      {"1", SQLT_CHR, 196606, 65536, 1000},
      {"1", SQLT_BIN, 65536, 32768, 1000},
      {"1", SQLT_LNG, 1 << 30, 4, 1000},
      {"2.1", SQLT_CHR, 10, -1, 1000},
      {"2.1", SQLT_CHR, 10, std::numeric_limits<int>::min(), 1000}};
  for (const auto& [place, type, buflen, rows, megabytes] : cases) {
    EXPECT_EXIT(allocate_for(type, buflen, rows, megabytes), testing::ExitedWithCode(1),
                "^PROCESS OUT OF MEMORY \\(" + std::string(place) + "\\)\n$");
  }
}

TEST(ProcessDeathTest, AJavaRuntimeWithoutItsOwnClassesEndsTheProcess) {
  JNINativeInterface_ table{};
  table.FindClass = [](JNIEnv*, const char*) -> jclass { return nullptr; };
  JNIEnv env{&table};
  EXPECT_DEATH(TV_FindClass(&env, nullptr, "trevalon/db/oci/OciLob"), "getClass");
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
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back(churn);
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
