// Fixed scenarios on the library through a double of the JVM, for counting instructions as in
// counts_oci.cpp. What counts is the library's own share: the double's calls have costs of their
// own.
#include <cstring>
#include <functional>

#include "jni_double.h"
#include "member_cache.h"
#include "peers.h"

using bench::Peers;

// The double asks for the library's classes, which the library keeps to itself: none here.
jclass OciConnectionClass, OciColumnClass, OciCursorClass, OciSchemaClass, OciLobClass;

extern "C" __attribute__((noinline, visibility("default"))) void measured(
    const std::function<void()>& body) {
  body();
}

namespace {

constexpr jint kRows = 1000;

void make_table(Peers& peers) {
  peers.run(
      "create table t (id number(9), name varchar2(20), made date, code raw(16), note"
      " varchar2(40))");
  const jobject insert = peers.new_cursor(
      "insert into t values (:1, 'abcdefghijklmnopqrst', to_date('2020', 'YYYY'),"
      " hextoraw('00112233445566778899AABBCCDDEEFF'), null)");
  const jobject id = peers.new_column(1);
  COLUMN(setValueWithInt)(peers.env, id, 0, JNI_FALSE);
  peers.must(CURSOR(bindVariableByPosition)(peers.env, insert, id), "bind");
  for (jint i = 0; i < kRows; ++i) {
    COLUMN(setValueWithInt)(peers.env, id, i, JNI_FALSE);
    peers.must(CURSOR(exec)(peers.env, insert), "insert");
  }
}

void fetch(Peers& peers) {
  make_table(peers);
  const jobject query = peers.new_cursor("select id, name, made, code, note from t");
  peers.define(query, 5, kRows);
  measured([&] { peers.must(CURSOR(execAndFetch)(peers.env, query, kRows), "fetch"); });
}

void values(Peers& peers) {
  make_table(peers);
  const jobject query = peers.new_cursor("select id, name, made, code, note from t");
  const std::vector<jobject> columns = peers.define(query, 5, kRows);
  peers.must(CURSOR(execAndFetch)(peers.env, query, kRows), "fetch");
  const jbyteArray buffer = peers.env->NewByteArray(130);
  measured([&] {
    for (jint row = 0; row < kRows; ++row) {
      for (const jobject column : columns) CURSOR(getIndicator)(peers.env, query, column, row);
      CURSOR(getStringValue)(peers.env, query, columns[0], row, buffer);
      CURSOR(getStringValue)(peers.env, query, columns[1], row, buffer);
      CURSOR(getDateValue)(peers.env, query, columns[2], row, buffer);
      CURSOR(getByteValue)(peers.env, query, columns[3], row, buffer);
    }
  });
}

void binds(Peers& peers) {
  peers.run("create table t (a number(9), b varchar2(20), c number, d date, e raw(16))");
  const jobject insert = peers.new_cursor("insert into t values (:1, :2, :3, :4, :5)");
  const jbyteArray name = peers.bytes(std::string("abcdefghijklmnopqrst") + '\0');
  const jbyteArray code = peers.bytes(std::string(16, 'x'));
  std::vector<jobject> columns;
  for (jint i = 1; i <= 5; ++i) columns.push_back(peers.new_column(i));
  const auto set = [&](jint i) {
    COLUMN(setValueWithInt)(peers.env, columns[0], i, JNI_FALSE);
    COLUMN(setValueWithString)(peers.env, columns[1], name, JNI_FALSE);
    COLUMN(setValueWithDouble)(peers.env, columns[2], 1.25, JNI_FALSE);
    COLUMN(setValueWithDate)(peers.env, columns[3], 20, 20, 1, 2, 1, 1, 1, JNI_FALSE);
    COLUMN(setValueWithBytes)(peers.env, columns[4], code, JNI_FALSE, JNI_TRUE);
  };
  set(0);
  for (const jobject column : columns) {
    peers.must(CURSOR(bindVariableByPosition)(peers.env, insert, column), "bind");
  }
  measured([&] {
    for (jint i = 0; i < kRows; ++i) {
      set(i);
      peers.must(CURSOR(exec)(peers.env, insert), "insert");
    }
  });
}

void statements(Peers& peers) {
  make_table(peers);
  measured([&] {
    for (int i = 0; i < 100; ++i) {
      peers.env->PushLocalFrame(16);
      const jobject query = peers.new_cursor("select id, name, made, code, note from t");
      const std::vector<jobject> columns = peers.define(query, 5, 10);
      peers.must(CURSOR(execAndFetch)(peers.env, query, 10), "fetch");
      CURSOR(close)(peers.env, query);
      for (const jobject column : columns) COLUMN(native_1finalize)(peers.env, column);
      CURSOR(native_1finalize)(peers.env, query);
      peers.env->PopLocalFrame(nullptr);
    }
  });
}

struct Scenario {
  const char* name;
  const char* unit;
  long units;
  void (*run)(Peers&);
};

constexpr Scenario kScenarios[] = {{"native-fetch", "value", 5000, fetch},
                                   {"native-get", "value", 5000, values},
                                   {"native-insert", "row-of-5", 1000, binds},
                                   {"native-prepare", "statement", 100, statements}};

}  // namespace

int main(int count, char** arguments) {
  for (const Scenario& scenario : kScenarios) {
    if (count == 1) {
      std::printf("%s %s %ld\n", scenario.name, scenario.unit, scenario.units);
    } else if (std::strcmp(arguments[1], scenario.name) == 0) {
      Peers peers(jni_double::environment());
      scenario.run(peers);
      return 0;
    }
  }
  return count == 1 ? 0 : 2;
}
