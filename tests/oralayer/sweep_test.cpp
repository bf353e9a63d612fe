// Every call that can fail, failed in turn: the JNI calls, OCI calls and allocations of scenarios;
// and walks that bytes decide.
#include <gtest/gtest-spi.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "exceptions.h"
#include "jni_double.h"
#include "jvm_test.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#else
#define __lsan_do_recoverable_leak_check() 0
#endif

// --- The library's allocations -------------------------------------------------------------------

namespace {

int allocations = 0;
int allocations_to_fault = 0;
bool allocation_faulted = false;
std::atomic<int> low_records = 0;

bool allocation_fails() {
  ++allocations;
  if (allocations_to_fault == 0 || --allocations_to_fault > 0) return false;
  return allocation_faulted = true;
}

template <typename Allocate>
void* allocated(Allocate allocate) {
  try {
    return allocation_fails() ? nullptr : allocate();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace

// The library asks for memory in these forms, and nothing else in the process does.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocated([size] { return ::operator new(size); });
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocated([size] { return ::operator new[](size); });
}

// Their names, as the linker knows them.
#if UINTPTR_MAX > 0xFFFFFFFF
#define ALLOCATE_LOW(prefix) prefix##_Z12allocate_lowm
#else
#define ALLOCATE_LOW(prefix) prefix##_Z12allocate_lowj
#endif

extern "C" {
void* ALLOCATE_LOW(__real_)(std::size_t size);
void __real__Z11release_lowPv(void* record);
void* ALLOCATE_LOW(__wrap_)(std::size_t size) {
  void* record = allocation_fails() ? nullptr : ALLOCATE_LOW(__real_)(size);
  low_records += record != nullptr;
  return record;
}
void __wrap__Z11release_lowPv(void* record) {
  low_records -= record != nullptr;
  __real__Z11release_lowPv(record);
}
}

namespace {

// --- Scenarios -----------------------------------------------------------------------------------

// The calls of one scenario, and what Java saw of them.
struct Calls {
  template <typename Result, typename... P, typename... A>
  void operator()(Result (*native)(JNIEnv*, jobject, P...), jobject object, A... arguments) {
    {
      const jni_double::NativeCall frame;
      if constexpr (std::is_same_v<Result, jboolean> || std::is_same_v<Result, jlong>) {
        const jlong result = native(env, object, static_cast<P>(arguments)...);
        failed |= std::is_same_v<Result, jlong> ? result < 0 : result != 0;
      } else {
        native(env, object, static_cast<P>(arguments)...);
      }
    }
    const std::string exception = raised();
    if (first.empty()) first = exception;
  }

  bool failed = false;
  std::string first;  // exception
};

struct Peers {
  jobject connection;
  jobject cursor = allocate("OciCursor");
  jobject one = allocate("OciColumn");
  jobject two = allocate("OciColumn");
  jobject lob = allocate("OciLob");
};

void open_cursor(Calls& run, const Peers& p) {
  run(CURSOR(initialize), p.cursor, 0);
  set_int(p.cursor, "selPieceLength", 4);
  run(CURSOR(open), p.cursor, p.connection);
  run(CURSOR(parse), p.cursor, bytes("SELECT one, two FROM t"), JNI_FALSE);
  for (const jobject column : {p.one, p.two}) {
    run(COLUMN(initialize), column, 1, 0);
    run(COLUMN(setPosition), column, column == p.one ? 1 : 2);
  }
}

void describe_columns(Calls& run, const Peers& p, int rows) {
  for (const jobject column : {p.one, p.two}) {
    run(CURSOR(describe), p.cursor, column);
    run(COLUMN(name), column, bytes("................"));
    run(CURSOR(bindSelectItem), p.cursor, column, rows);
  }
}

void more_rows(Calls& run, const Peers& p, int count) {
  for (; count > 0; --count) {
    run(CURSOR(getStringValue), p.cursor, p.one, 1, bytes("..........."));
    run(CURSOR(getByteValue), p.cursor, p.two, 0, bytes("...."));
    run(CURSOR(getDateValue), p.cursor, p.one, 1, bytes("......."));
    run(CURSOR(arrayFetch), p.cursor, 2);
  }
}

void query(Calls& run, const Peers& p) {
  const jbyteArray text = bytes(std::string(200, 'x'));
  state().columns = {{SQLT_CHR, 10, "ONE"}, {SQLT_NUM, 22, "TWO"}};
  run(CONNECTION(native_1loginwithblock), p.connection, text, text, text, JNI_TRUE);
  open_cursor(run, p);
  describe_columns(run, p, 2);
  run(CURSOR(execAndFetch), p.cursor, 2);
  more_rows(run, p, 1);
  run(CONNECTION(native_1getError), p.connection, 0, JNI_FALSE, text);
  run(CONNECTION(native_1rollback), p.connection);
}

template <typename Fetch>
void long_row(Calls& run, const Peers& p, Fetch fetch) {
  const oci_double::Reply more = {OCI_NEED_DATA, 3130};
  state().replies["OCIStmtFetch"] = {more};
  state().pieces = {{0, OCI_FIRST_PIECE, "abcd", more},
                    {0, OCI_LAST_PIECE, "e", more},
                    {1, OCI_ONE_PIECE, "fgh", {}}};
  run(fetch, p.cursor, 1);
  run(CURSOR(getLongStringValue), p.cursor, p.one, 0, bytes("...."));
  run(CURSOR(getLongByteValue), p.cursor, p.two, 0, bytes("...."));
}

void more_long_rows(Calls& run, const Peers& p, int count) {
  for (; count > 0; --count) long_row(run, p, CURSOR(arrayFetch));
}

void long_columns(Calls& run, const Peers& p) {
  state().columns = {{SQLT_LNG, 0, "ONE"}, {SQLT_LBI, 0, "TWO"}};
  open_cursor(run, p);
  describe_columns(run, p, 1);
  long_row(run, p, CURSOR(execAndFetch));
  more_long_rows(run, p, 1);
}

void stream(Calls& run, const Peers& p, int chunks) {
  jni_double::next_stream_buffer = [&chunks](jbyteArray, jint, jint length) {
    return chunks-- > 0 ? length : 0;
  };
  run(COLUMN(setValueWithStream), p.one, 100, 8, 1, JNI_FALSE);
  run(COLUMN(setValueWithString), p.two, bytes("key"), JNI_FALSE);
  run(CURSOR(bindVariableByPosition), p.cursor, p.one);
  run(CURSOR(bindVariableByPosition), p.cursor, p.two);
  run(CURSOR(exec), p.cursor);
  jni_double::next_stream_buffer = nullptr;
}

void streamed_insert(Calls& run, const Peers& p) {
  state().stmt_type = OCI_STMT_INSERT;
  open_cursor(run, p);
  stream(run, p, 2);
  run(CONNECTION(native_1commit), p.connection);
}

void more_transfers(Calls& run, const Peers& p, int count) {
  const jcharArray chars = env->NewCharArray(4);
  const jbyteArray four = bytes("....");
  for (; count > 0; --count) {
    run(LOB(getLobBuf), p.lob, p.connection, four, 1, 4, 4, 0, 1);
    run(LOB(getLobUCS2CharBuf), p.lob, p.connection, chars, 1, 4, 0, 1);
    run(LOB(writeLobBuf), p.lob, p.connection, four, 1, 4, 4, 0, 0, 1);
    run(LOB(writeLobUCS2CharBuf), p.lob, p.connection, chars, 1, 4, 0, 0, 1);
  }
}

void lobs(Calls& run, const Peers& p) {
  state().columns = {{SQLT_CLOB, 4000, "ONE"}, {SQLT_CLOB, 4000, "TWO"}};
  state().lob_amount = 3;
  open_cursor(run, p);
  describe_columns(run, p, 1);
  run(COLUMN(allocLobLocator), p.one, p.connection, 112);
  run(CURSOR(bindSelectItem), p.cursor, p.one, 1);
  run(CURSOR(execAndFetch), p.cursor, 1);
  run(LOB(initialize), p.lob);
  run(LOB(allocLob), p.lob, p.connection);
  run(LOB(assignLobFromColumn), p.lob, p.connection, p.one);
  run(LOB(getLobLength), p.lob, p.connection);
  run(LOB(getLobUCS2Buf), p.lob, p.connection, 1, 4, 0, 1);
  more_transfers(run, p, 1);
  run(COLUMN(setValueWithClob), p.two, p.lob, JNI_FALSE);
  run(CURSOR(bindVariableByPosition), p.cursor, p.two);
}

// Ends what there is, in the order of Java code that closes what it has opened.
void finish(Calls& run, const Peers& p) {
  if (get_int(p.cursor, "cursordata32") != 0) run(CURSOR(close), p.cursor);
  for (const jobject column : {p.one, p.two}) {
    if (get_int(column, "coldata32") != 0) run(COLUMN(deallocLobLocator), column);
    run(COLUMN(native_1finalize), column);
  }
  run(LOB(native_1finalize), p.lob);
  run(CURSOR(native_1finalize), p.cursor);
  run(CONNECTION(native_1logout), p.connection);
}

const struct Scenario {
  const char* name;
  void (*body)(Calls&, const Peers&);
  /// Goes on with as many rows, values or pieces.
  void (*again)(Calls&, const Peers&, int count);
} kScenarios[] = {{"query", query, more_rows},
                  {"long columns", long_columns, more_long_rows},
                  {"streamed insert", streamed_insert, stream},
                  {"LOBs", lobs, more_transfers}};

// --- Sweeps --------------------------------------------------------------------------------------

const char* const kOfJni =
    "java.lang.OutOfMemoryError: (Out of memory|by the double)|"
    "java.lang.(NullPointerException|InternalError): .*|"
    "java.io.IOException: by the double";

const struct Source {
  const char* name;
  void (*arm)(int n);
  bool (*fired)();
  const char* exceptions;  // that it may end in
} kSources[] = {
    {"JNI, null", [](int n) { jni_double::fail_call(n, jni_double::Fault::Bare); },
     jni_double::fault_fired, kOfJni},
    {"JNI, raising", [](int n) { jni_double::fail_call(n, jni_double::Fault::Raising); },
     jni_double::fault_fired, kOfJni},
    {"OCI", [](int n) { state().calls_to_fault = n; }, [] { return state().faulted != ""; },
     "|java.sql.SQLException: .*|java.lang.(InternalError|NullPointerException): .*"},
    {"memory", [](int n) { allocation_faulted = false, allocations_to_fault = n; },
     [] { return allocation_faulted; },
     "|java.lang.NullPointerException: .*|"
     "java.lang.OutOfMemoryError: (Out of memory| - out of memory, allocating LONG data buffer|"
     "OciLob_initialize Out of memory)"}};

// Failures of the client library that no native method tells of, or only by its result: what the
// login prepares before the session starts, queries of codes and types, what ends a session.
bool is_told(const std::string& call) {
  static const std::vector<std::string> untold = {
      "OCIServerAttach", "OCIServerDetach", "OCISessionEnd", "OCIHandleAlloc", "OCIHandleFree",
      "OCIAttrSet:6",    "OCIAttrSet:7",    "OCIAttrSet:22", "OCIAttrSet:23",  "OCIAttrSet:11",
      "OCIAttrGet:24",   "OCIAttrGet:1",    "OCIAttrGet:9",  "OCIAttrGet:10",  "OCIDescriptorFree"};
  return call != "" && std::find(untold.begin(), untold.end(), call) == untold.end();
}

class Sweep : public JvmTest {
 protected:
  void TearDown() override {
    EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
    JvmTest::TearDown();
  }

  // Keeps what the library writes out of the log, unless there is a failure to be understood.
  template <typename Action>
  static void quietly(Action action) {
    const std::string text = captured(action);
    if (HasFailure()) std::cout << text;
  }

  // Runs a scenario and ends it; nothing is left of it, whatever has failed.
  Calls attempt(const Scenario& scenario, const Source* source, int n) {
    env->PushLocalFrame(100);
    const int records = low_records;
    const std::size_t globals = jni_double::globals_held();
    const Peers peers{connection};
    Calls run, ending;
    state() = {};
    if (source != nullptr) source->arm(n);
    scenario.body(run, peers);
    if (source != nullptr) {
      finish(run, peers);
      fired = source->fired();
      source->arm(0);
    }
    finish(ending, peers);
    EXPECT_EQ(ending.first, "");
    EXPECT_EQ(low_records, records);
    EXPECT_EQ(jni_double::globals_held(), globals);
    env->PopLocalFrame(nullptr);
    return run;
  }

  // True where the library ends the process, as it does for want of column buffers.
  bool ends_the_process(const Scenario& scenario, const Source& source, int n) {
    const pid_t child = fork();
    if (child == 0) {
      std::atexit([] { _exit(1); });  // what is left then is not looked for
      attempt(scenario, &source, n);
      _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) <= 1) << status;
    return status != 0;
  }

  void fail_nth(const Scenario& scenario, const Source& source, int n) {
    if (source.name == std::string("memory") && ends_the_process(scenario, source, n)) return;
    const Calls run = attempt(scenario, &source, n);
    if (!fired) return;
    const std::string faulted = state().faulted;
    untold += run.first.empty() && faulted.empty();
    EXPECT_TRUE(run.failed || run.first != "" || !is_told(faulted)) << faulted;
    EXPECT_THAT(run.first, testing::MatchesRegex(source.exceptions)) << faulted;
    const Calls again = attempt(scenario, nullptr, 0);
    EXPECT_FALSE(again.failed);
    EXPECT_EQ(again.first, "");
  }

  bool fired = false;
  int untold = 0;  // failures that made no difference
};

TEST_F(Sweep, EveryFailureIsToldAndLeavesNothingBehind) {
  for (const Scenario& scenario : kScenarios) {
    for (const Source& source : kSources) {
      int n = 1;
      for (fired = true; fired && !HasFailure(); ++n) {
        SCOPED_TRACE(testing::Message() << scenario.name << ", " << source.name << " " << n);
        quietly([&] { fail_nth(scenario, source, n); });
      }
      EXPECT_GT(n, 3) << scenario.name << " " << source.name;
    }
  }
  EXPECT_EQ(untold, 1) << "only the stack of spare pieces can be done without";
}

TEST_F(Sweep, MoreOfTheSameTakesNoMoreMemory) {
  for (const Scenario& scenario : kScenarios) {
    const Peers peers{connection};
    Calls run, ending;
    state() = {};
    scenario.body(run, peers);
    int taken[3] = {0, 0, 0};
    for (int i = 0; i < 3; ++i) {
      taken[i] = -allocations;
      scenario.again(run, peers, i < 2 ? 1 : 20);
      taken[i] += allocations;
    }
    EXPECT_EQ(taken[2], taken[1]);
    EXPECT_EQ(run.first, "");
    finish(ending, peers);
  }
}

TEST_F(Sweep, WalksLeaveNothingBehind) {
  std::mt19937 random(1);
  const int records = low_records;
  for (int seed = 0; seed < 3000 && !HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    std::vector<std::uint8_t> data(random() % 600);
    for (std::uint8_t& byte : data) byte = static_cast<std::uint8_t>(random());
    quietly([&] { jni_double::walk(data.data(), data.size()); });
    EXPECT_EQ(low_records, records);
  }
}

// What the double could not see, no test above would see.
TEST_F(Sweep, BreachesOfTheRulesAreReported) {
  static jobject column = new_column(), deleted = env->NewGlobalRef(column);
  static jbyteArray array = bytes("pinned");
  env->DeleteGlobalRef(deleted);
  EXPECT_NONFATAL_FAILURE(env->GetIntField(nullptr, coldata32iD), "null");
  EXPECT_NONFATAL_FAILURE(env->GetIntField(deleted, coldata32iD), "deleted");
  EXPECT_NONFATAL_FAILURE(env->GetIntField(column, cdadata32iD), "of a trevalon/db/oci/OciColumn");
  EXPECT_NONFATAL_FAILURE(env->GetIntField(column, coldata64iD), "coldata64");
  EXPECT_NONFATAL_FAILURE(env->GetArrayLength(static_cast<jarray>(column)), "in place of a [B");
  EXPECT_NONFATAL_FAILURE(env->DeleteGlobalRef(deleted), "none such");
  EXPECT_NONFATAL_FAILURE(env->ReleaseByteArrayElements(array, nullptr, 0), "not pinned");
  TV_ThrowInternalError(env, "pending");
  EXPECT_NONFATAL_FAILURE(env->GetArrayLength(array), "with a pending java/lang/InternalError");
  EXPECT_EQ(raised(), "java.lang.InternalError: pending");
}

}  // namespace
