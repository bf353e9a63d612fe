// What loading the library costs (its pools of session records are made then), over an empty
// library that is linked alike: bench_load FOLDER ROUNDS. Each load is in a process of its own, in
// turns.
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct Memory {
  double resident = 0;  // KB, with the pages of library files, which processes share
  double own = 0;  // KB of no file
};

struct Cost {
  double micros = 0;
  Memory memory;
};

// From smaps_rollup, which is exact where /proc/self/statm may lag behind.
Memory memory_now() {
  Memory now;
  std::FILE* file = std::fopen("/proc/self/smaps_rollup", "r");
  if (file == nullptr) return now;
  char line[256];
  while (std::fgets(line, sizeof line, file) != nullptr) {
    double kilobytes = 0;
    if (std::sscanf(line, "Rss: %lf", &kilobytes) == 1) now.resident = kilobytes;
    if (std::sscanf(line, "Anonymous: %lf", &kilobytes) == 1) now.own = kilobytes;
  }
  std::fclose(file);
  return now;
}

Cost load_here(const std::string& library) {
  memory_now();  // touches what reading takes
  const Memory before = memory_now();
  const auto start = std::chrono::steady_clock::now();
  const void* loaded = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  const auto end = std::chrono::steady_clock::now();
  if (loaded == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    _exit(1);
  }
  const Memory after = memory_now();
  return {std::chrono::duration<double, std::micro>(end - start).count(),
          {after.resident - before.resident, after.own - before.own}};
}

Cost load_in_child(const std::string& library) {
  int ends[2];
  if (pipe(ends) != 0) std::abort();
  const pid_t child = fork();
  if (child == 0) {
    const Cost cost = load_here(library);
    _exit(write(ends[1], &cost, sizeof cost) == sizeof cost ? 0 : 1);
  }
  Cost cost;
  close(ends[1]);
  const bool good = read(ends[0], &cost, sizeof cost) == sizeof cost;
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (!good || status != 0) std::exit(1);
  return cost;
}

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return 2;
  const std::string folder = arguments[1];
  const int rounds = std::max(1, std::atoi(arguments[2]));
  std::vector<double> full_time, empty_time, time, resident, own;
  for (int i = -3; i < rounds; ++i) {
    const Cost full = load_in_child(folder + "/liboralayer.so");
    const Cost empty = load_in_child(folder + "/libbench_empty.so");
    if (i < 0) continue;  // until everything is in the page cache
    full_time.push_back(full.micros);
    empty_time.push_back(empty.micros);
    time.push_back(full.micros - empty.micros);
    resident.push_back(full.memory.resident - empty.memory.resident);
    own.push_back(full.memory.own - empty.memory.own);
  }
  std::printf(
      "load with 2 pools of session records: %.0f us; of an empty library linked alike: %.0f us\n"
      "     difference: %.0f us (aim: under 1000); %.0f KB resident (aim: under 1024), %.0f KB of "
      "it"
      " memory of its own, the rest pages of library files; medians of %d\n",
      median(full_time), median(empty_time), median(time), median(resident), median(own), rounds);
  return 0;
}
