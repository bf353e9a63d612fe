// Single calls: native methods on objects of a JVM in this process, on a database in memory, and
// what the two libraries are made of. The JVM's own way from compiled Java into a native method is
// not in it. Built twice: with the library as it is, its trace off, and without trace statements.
#include <benchmark/benchmark.h>

#include "date.h"
#include "number.h"
#include "oralayer8.h"
#include "peers.h"

using bench::Peers;

namespace {

JNIEnv* env = nullptr;

void start_jvm() {
  std::string class_path = "-Djava.class.path=" BENCH_JAR_PATH;
  JavaVMOption options[] = {{class_path.data(), nullptr}};
  JavaVMInitArgs arguments{JNI_VERSION_1_8, 1, options, JNI_FALSE};
  JavaVM* vm = nullptr;
  if (JNI_CreateJavaVM(&vm, reinterpret_cast<void**>(&env), &arguments) != JNI_OK) std::exit(1);
}

Peers& peers() {
  static Peers made(env);
  return made;
}

/// A fetched row with a column of each kind of value.
struct Row {
  Row() {
    peers().run(
        "create table t (n number(9), s varchar2(20), d date, r raw(16), x varchar2(40), l long)");
    peers().run(
        "insert into t values (12345.5, 'abcdefghijklmnopqrst', to_date('2020', 'YYYY'),"
        " hextoraw('00112233445566778899AABBCCDDEEFF'), null, 'abc')");
    query = peers().new_cursor("select n, s, d, r, x from t");
    columns = peers().define(query, 5, 10);
    peers().must(CURSOR(execAndFetch)(env, query, 10), "fetch");
    buffer = env->NewByteArray(130);
    bound = peers().new_column(1);
    COLUMN(setValueWithInt)(env, bound, 7, JNI_FALSE);
    real = peers().new_column(1);
    COLUMN(setValueWithDouble)(env, real, 7, JNI_FALSE);
  }

  jobject query, bound, real;
  std::vector<jobject> columns;
  jbyteArray buffer;
};

Row& row() {
  static Row made;
  return made;
}

template <typename Call>
void repeat(benchmark::State& state, Call call) {
  row();
  for (auto _ : state) call();
}

// --- Getters -------------------------------------------------------------------------------------

void get_indicator(benchmark::State& state) {
  repeat(state, [] {
    benchmark::DoNotOptimize(CURSOR(getIndicator)(env, row().query, row().columns[4], 0));
  });
}
void get_return_code(benchmark::State& state) {
  repeat(state, [] {
    benchmark::DoNotOptimize(CURSOR(getReturnCode)(env, row().query, row().columns[1], 0));
  });
}
void get_text(benchmark::State& state) {
  repeat(state, [] {
    benchmark::DoNotOptimize(
        CURSOR(getStringValue)(env, row().query, row().columns[1], 0, row().buffer));
  });
}
void get_number_as_text(benchmark::State& state) {
  repeat(state, [] {
    benchmark::DoNotOptimize(
        CURSOR(getStringValue)(env, row().query, row().columns[0], 0, row().buffer));
  });
}
void get_date(benchmark::State& state) {
  repeat(state, [] {
    benchmark::DoNotOptimize(
        CURSOR(getDateValue)(env, row().query, row().columns[2], 0, row().buffer));
  });
}
void get_bytes(benchmark::State& state) {
  repeat(state, [] {
    benchmark::DoNotOptimize(
        CURSOR(getByteValue)(env, row().query, row().columns[3], 0, row().buffer));
  });
}
void get_int(benchmark::State& state) {
  repeat(state, [] {
    benchmark::DoNotOptimize(CURSOR(getIntegerValue)(env, row().query, row().bound, 0));
  });
}
void get_double(benchmark::State& state) {
  repeat(state,
         [] { benchmark::DoNotOptimize(CURSOR(getDoubleValue)(env, row().query, row().real, 0)); });
}
BENCHMARK(get_indicator);
BENCHMARK(get_return_code);
BENCHMARK(get_text);
BENCHMARK(get_number_as_text);
BENCHMARK(get_date);
BENCHMARK(get_bytes);
BENCHMARK(get_int);
BENCHMARK(get_double);

// --- Setters -------------------------------------------------------------------------------------

void set_int(benchmark::State& state) {
  repeat(state, [] { COLUMN(setValueWithInt)(env, row().bound, 42, JNI_FALSE); });
}
void set_float(benchmark::State& state) {
  repeat(state, [] { COLUMN(setValueWithFloat)(env, row().real, 42, JNI_FALSE); });
}
void set_double(benchmark::State& state) {
  repeat(state, [] { COLUMN(setValueWithDouble)(env, row().real, 42, JNI_FALSE); });
}
void set_text(benchmark::State& state) {
  static const jobject column = peers().new_column(1);
  static const jbyteArray text = peers().bytes("abcdefghijklmnopqrst");
  repeat(state, [] { COLUMN(setValueWithString)(env, column, text, JNI_FALSE); });
}
void set_bytes(benchmark::State& state) {
  static const jobject column = peers().new_column(1);
  static const jbyteArray bytes = peers().bytes(std::string(16, 'x'));
  repeat(state, [] { COLUMN(setValueWithBytes)(env, column, bytes, JNI_FALSE, JNI_TRUE); });
}
void set_date(benchmark::State& state) {
  static const jobject column = peers().new_column(1);
  repeat(state, [] { COLUMN(setValueWithDate)(env, column, 20, 20, 1, 2, 1, 1, 1, JNI_FALSE); });
}
void set_stream(benchmark::State& state) {
  static const jobject column = peers().new_column(1);
  repeat(state, [] { COLUMN(setValueWithStream)(env, column, 1000, 1000, 1, JNI_FALSE); });
}
BENCHMARK(set_int);
BENCHMARK(set_float);
BENCHMARK(set_double);
BENCHMARK(set_text);
BENCHMARK(set_bytes);
BENCHMARK(set_date);
BENCHMARK(set_stream);

// --- Records and statements ----------------------------------------------------------------------

void column_record(benchmark::State& state) {
  static const jobject column = peers().allocate("OciColumn");
  repeat(state, [] {
    COLUMN(initialize)(env, column, 1, 0);
    COLUMN(native_1finalize)(env, column);
  });
}
void piece_get_and_release(benchmark::State& state) {
  LongdataBufPool pool;
  repeat(state,
         [&] { LongdataBufPool::releaseBuf(LongdataBufPool::getBuf(32 * 1024, &pool), &pool); });
}
void execute_and_fetch(benchmark::State& state) {
  repeat(state, [] { peers().must(CURSOR(execAndFetch)(env, row().query, 10), "fetch"); });
}
BENCHMARK(column_record);
BENCHMARK(piece_get_and_release);
BENCHMARK(execute_and_fetch);

// --- Conversion in the client library ------------------------------------------------------------

void integer_to_text(benchmark::State& state) {
  char text[oci8::kNumberTextSize];
  long long value = 123456789;
  for (auto _ : state) {
    benchmark::DoNotOptimize(value);
    benchmark::DoNotOptimize(oci8::number_to_text(value, text));
  }
}
void decimal_to_text(benchmark::State& state) {
  char text[oci8::kNumberTextSize];
  double value = 123456.78;
  for (auto _ : state) {
    benchmark::DoNotOptimize(value);
    benchmark::DoNotOptimize(oci8::number_to_text(value, text));
  }
}
void text_to_number(benchmark::State& state) {
  oci8::Number value;
  for (auto _ : state) benchmark::DoNotOptimize(oci8::parse_number("123456.78", value));
}
void pack_date(benchmark::State& state) {
  const oci8::DateFields fields{2020, 1, 2, 3, 4, 5};
  for (auto _ : state) benchmark::DoNotOptimize(oci8::pack_date(fields));
}
void unpack_date(benchmark::State& state) {
  const oci8::DateBytes bytes = oci8::pack_date({2020, 1, 2, 3, 4, 5});
  for (auto _ : state) benchmark::DoNotOptimize(oci8::unpack_date(bytes.data()));
}
void date_to_text(benchmark::State& state) {
  const oci8::DateFields fields{2020, 1, 2, 3, 4, 5};
  for (auto _ : state) {
    benchmark::DoNotOptimize(oci8::format_date(fields, "YYYY-MM-DD HH24:MI:SS"));
  }
}
void text_to_date(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(oci8::parse_date("2020-01-02 03:04:05", "YYYY-MM-DD HH24:MI:SS"));
  }
}
BENCHMARK(integer_to_text);
BENCHMARK(decimal_to_text);
BENCHMARK(text_to_number);
BENCHMARK(pack_date);
BENCHMARK(unpack_date);
BENCHMARK(date_to_text);
BENCHMARK(text_to_date);

}  // namespace

int main(int count, char** arguments) {
  start_jvm();
  benchmark::Initialize(&count, arguments);
  benchmark::RunSpecifiedBenchmarks();
  // Without the JVM's own end, which would wait for its threads.
  std::fflush(nullptr);
  std::_Exit(0);
}
