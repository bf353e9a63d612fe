// Fixed scenarios on the client library by its interface, for counting instructions: what is
// counted is inside measured(). bench_counts_oci NAME runs one, without a name lists them with
// their units.
#include <cstring>
#include <functional>
#include <memory>

#include "client.h"

using bench::Client;
using bench::kArray;
using bench::kLarge;
using bench::kPiece;

/// The one function that the counter is switched on for.
extern "C" __attribute__((noinline, visibility("default"))) void measured(
    const std::function<void()>& body) {
  body();
}

namespace {

void scan(Client& c) {
  bench::make_six(c, 10 * kArray);
  bench::SixColumns columns(kArray);
  c.prepare("select id, name, amount, made, code, note from t");
  columns.define(c, kArray);
  measured([&] {
    c.execute(kArray);
    while (c.fetch(kArray) == OCI_SUCCESS) {
    }
  });
}

void insert(Client& c) {
  c.run(
      "create table t (id number(9), name varchar2(20), amount number(10,2), made date,"
      " code raw(16))");
  c.prepare("insert into t values (:1, :2, :3, :4, :5)");
  sb4 id = 0;
  char name[] = "abcdefghijklmnopqrst";
  double amount = 1.25;
  ub1 made[] = {120, 120, 1, 2, 1, 1, 1};
  ub1 code[16] = {};
  c.bind(1, &id, sizeof id, SQLT_INT);
  c.bind(2, name, sizeof name, SQLT_STR);
  c.bind(3, &amount, sizeof amount, SQLT_FLT);
  c.bind(4, made, sizeof made, SQLT_DAT);
  c.bind(5, code, sizeof code, SQLT_BIN);
  measured([&] {
    for (id = 0; id < 1000; ++id) c.execute(1);
  });
}

void by_key(Client& c) {
  bench::make_six(c, 1000);
  sb4 id = 0;
  bench::SixColumns columns(1);
  c.prepare("select id, name, amount, made, code, note from t where id = :1");
  c.bind(1, &id, sizeof id, SQLT_INT);
  columns.define(c, 1);
  measured([&] {
    for (id = 1; id <= 1000; ++id) c.execute(1);
  });
}

void prepare(Client& c) {
  bench::make_six(c, 10);
  sb4 id = 1;
  bench::SixColumns columns(1);
  measured([&] {
    for (int i = 0; i < 100; ++i) {
      c.prepare("select id, name, amount, made, code, note from t where id = :1");
      c.execute(0, OCI_DESCRIBE_ONLY);
      c.bind(1, &id, sizeof id, SQLT_INT);
      columns.define(c, 1);
      c.execute(1);
    }
  });
}

sb4 give_piece(void* left, OCIBind*, ub4, ub4, void** buffer, ub4* length, ub1* piece,
               void** indicator) {
  static char bytes[kPiece];
  ub4& rest = *static_cast<ub4*>(left);
  *buffer = bytes;
  *length = rest < kPiece ? rest : kPiece;
  rest -= *length;
  *piece = rest == 0 ? OCI_LAST_PIECE : OCI_NEXT_PIECE;
  *indicator = nullptr;
  return OCI_CONTINUE;
}

void insert_stream(Client& c, ub4& left) {
  c.prepare("insert into t values (:1)");
  OCIBind* bind = c.bind(1, nullptr, kLarge, SQLT_LBI, OCI_DATA_AT_EXEC);
  c.must(OCIBindDynamic(bind, c.err, &left, give_piece, nullptr, nullptr), "callback");
}

void stream_in(Client& c) {
  c.run("create table t (v long raw)");
  ub4 left = kLarge;
  insert_stream(c, left);
  measured([&] { c.execute(1); });
}

void stream_out(Client& c) {
  c.run("create table t (v long raw)");
  ub4 left = kLarge;
  insert_stream(c, left);
  c.execute(1);
  static char piece[kPiece];
  c.prepare("select v from t");
  OCIDefine* define = c.define(1, nullptr, kLarge, SQLT_LBI, nullptr, nullptr, OCI_DYNAMIC_FETCH);
  measured([&] {
    c.execute(0);
    sword status = c.fetch(1);
    while (status == OCI_NEED_DATA) {
      ub4 length = kPiece;
      c.must(OCIStmtSetPieceInfo(define, OCI_HTYPE_DEFINE, c.err, piece, &length, OCI_NEXT_PIECE,
                                 nullptr, nullptr),
             "piece");
      status = c.fetch(1);
    }
  });
}

/// A locator of the one value of a new column, `size` units long.
OCILobLocator* make_lob(Client& c, const char* type, ub2 code, ub4 units) {
  c.run(std::string("create table t (v ") + type + ")");
  c.run(std::string("insert into t values (empty_") + type + "())");
  void* locator = nullptr;
  c.must(OCIDescriptorAlloc(c.env, &locator, OCI_DTYPE_LOB, 0, nullptr), "locator");
  c.prepare("select v from t for update");
  c.define(1, &locator, sizeof locator, code);
  c.execute(1);
  auto* lob = static_cast<OCILobLocator*>(locator);
  std::string part(kPiece, 'x');
  for (ub4 at = 0; at < units; at += kPiece) {
    ub4 amount = kPiece;
    c.must(OCILobWrite(c.svc, c.err, lob, &amount, at + 1, part.data(), kPiece, OCI_ONE_PIECE,
                       nullptr, nullptr, 0, SQLCS_IMPLICIT),
           "write");
  }
  return lob;
}

void read_lob(Client& c, OCILobLocator* lob, ub4 units, ub2 charset, ub4 width) {
  static char piece[2 * kPiece];
  measured([&] {
    for (ub4 at = 0; at < units; at += kPiece) {
      ub4 amount = kPiece;
      c.must(OCILobRead(c.svc, c.err, lob, &amount, at + 1, piece, width * kPiece, nullptr, nullptr,
                        charset, SQLCS_IMPLICIT),
             "read");
    }
  });
}

void blob(Client& c) {
  read_lob(c, make_lob(c, "blob", SQLT_BLOB, kLarge), kLarge, 0, 1);
}

void clob(Client& c) {
  read_lob(c, make_lob(c, "clob", SQLT_CLOB, kLarge), kLarge, OCI_UCS2ID, 2);
}

// By the operating system's word: a password's hash would outweigh all the rest.
void login(Client&) {
  const char* database = std::getenv("BENCH_DATABASE");
  if (database == nullptr) std::exit(2);
  measured([&] {
    for (int i = 0; i < 10; ++i) {
      Client session;
      session.log_in(database, OCI_CRED_EXT);
      session.log_out();
    }
  });
}

void environments(Client&) {
  measured([] {
    for (int i = 0; i < 100; ++i) const Client made;
  });
}

struct Scenario {
  const char* name;
  const char* unit;
  long units;
  void (*run)(Client&);
};

constexpr Scenario kScenarios[] = {
    {"scan", "value", 60'000, scan},       {"insert", "row-of-5", 1000, insert},
    {"by-key", "execution", 1000, by_key}, {"prepare", "statement", 100, prepare},
    {"stream-in", "KB", 4882, stream_in},  {"stream-out", "KB", 4882, stream_out},
    {"blob-read", "KB", 4882, blob},       {"clob-read", "K-chars", 4882, clob},
    {"login", "session", 10, login},       {"handles", "session", 100, environments},
};

}  // namespace

int main(int count, char** arguments) {
  for (const Scenario& scenario : kScenarios) {
    if (count == 1) {
      std::printf("%s %s %ld\n", scenario.name, scenario.unit, scenario.units);
    } else if (std::strcmp(arguments[1], scenario.name) == 0) {
      Client client;
      client.log_in();
      scenario.run(client);
      return 0;
    }
  }
  return count == 1 ? 0 : 2;
}
