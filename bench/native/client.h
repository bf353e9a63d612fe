// A session on a database in memory by the OCI interface, for measuring: every failure ends the
// process.
#ifndef BENCH_CLIENT_H
#define BENCH_CLIENT_H

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "oci.h"

namespace bench {

class Client {
 public:
  Client() {
    must(OCIEnvInit(&env, OCI_DEFAULT, 0, nullptr), "environment");
    err = make<OCIError>(OCI_HTYPE_ERROR);
    srv = make<OCIServer>(OCI_HTYPE_SERVER);
    svc = make<OCISvcCtx>(OCI_HTYPE_SVCCTX);
    stmt = make<OCIStmt>(OCI_HTYPE_STMT);
  }
  ~Client() { OCIHandleFree(env, OCI_HTYPE_ENV); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  void log_in(std::string database = ":memory:", ub4 credentials = OCI_CRED_RDBMS) {
    must(OCIServerAttach(srv, err, bytes(database), static_cast<sb4>(database.size()), OCI_DEFAULT),
         "attach");
    set(svc, OCI_HTYPE_SVCCTX, srv, 0, OCI_ATTR_SERVER);
    ses = make<OCISession>(OCI_HTYPE_SESSION);
    std::string user = "bench";
    set(ses, OCI_HTYPE_SESSION, user.data(), 5, OCI_ATTR_USERNAME);
    set(ses, OCI_HTYPE_SESSION, user.data(), 5, OCI_ATTR_PASSWORD);
    must(OCISessionBegin(svc, err, ses, credentials, OCI_DEFAULT), "session");
    set(svc, OCI_HTYPE_SVCCTX, ses, 0, OCI_ATTR_SESSION);
  }
  void log_out() {
    must(OCISessionEnd(svc, err, ses, OCI_DEFAULT), "end");
    must(OCIServerDetach(srv, err, OCI_DEFAULT), "detach");
    OCIHandleFree(ses, OCI_HTYPE_SESSION);
  }

  void prepare(const std::string& sql) {
    must(OCIStmtPrepare(stmt, err, bytes(sql), static_cast<ub4>(sql.size()), OCI_NTV_SYNTAX,
                        OCI_DEFAULT),
         "prepare");
  }
  sword execute(ub4 iterations, ub4 mode = OCI_DEFAULT) {
    return must(OCIStmtExecute(svc, stmt, err, iterations, 0, nullptr, nullptr, mode), "execute");
  }
  void run(const std::string& sql) {
    prepare(sql);
    execute(1);
  }
  sword fetch(ub4 rows) {
    return must(OCIStmtFetch(stmt, err, rows, OCI_FETCH_NEXT, OCI_DEFAULT), "fetch");
  }
  OCIDefine* define(ub4 position, void* value, sb4 size, ub2 type, sb2* indicators = nullptr,
                    ub2* lengths = nullptr, ub4 mode = OCI_DEFAULT) {
    OCIDefine* made = nullptr;
    must(OCIDefineByPos(stmt, &made, err, position, value, size, type, indicators, lengths, nullptr,
                        mode),
         "define");
    return made;
  }
  OCIBind* bind(ub4 position, void* value, sb4 size, ub2 type, ub4 mode = OCI_DEFAULT) {
    OCIBind* made = nullptr;
    must(OCIBindByPos(stmt, &made, err, position, value, size, type, nullptr, nullptr, nullptr, 0,
                      nullptr, mode),
         "bind");
    return made;
  }

  /// Passes on what is no failure.
  sword must(sword status, const char* what) {
    if (status != OCI_ERROR && status != OCI_INVALID_HANDLE) return status;
    text message[OCI_ERROR_MAXMSG_SIZE] = {};
    sb4 code = 0;
    if (err != nullptr) {
      OCIErrorGet(err, 1, nullptr, &code, message, sizeof message, OCI_HTYPE_ERROR);
    }
    std::fprintf(stderr, "%s: %s\n", what, reinterpret_cast<const char*>(message));
    std::exit(1);
  }

  template <class T>
  T* make(ub4 type) {
    void* made = nullptr;
    must(OCIHandleAlloc(env, &made, type, 0, nullptr), "handle");
    return static_cast<T*>(made);
  }

  OCIEnv* env = nullptr;
  OCIError* err = nullptr;
  OCIServer* srv = nullptr;
  OCISvcCtx* svc = nullptr;
  OCISession* ses = nullptr;
  OCIStmt* stmt = nullptr;

 private:
  static const text* bytes(const std::string& value) {
    return reinterpret_cast<const text*>(value.data());
  }
  void set(void* handle, ub4 type, void* value, ub4 size, ub4 attribute) {
    must(OCIAttrSet(handle, type, value, size, attribute, err), "attribute");
  }
};

inline constexpr ub4 kArray = 1000;
inline constexpr ub4 kPiece = 32 * 1024;
inline constexpr ub4 kLarge = 5'000'000;

/// The table of six columns that rows are fetched from.
inline void make_six(Client& c, int rows) {
  c.run(
      "create table t (id number(9) primary key, name varchar2(20), amount number(10,2),"
      " made date, code raw(16), note varchar2(40))");
  c.prepare(
      "insert into t values (:1, 'abcdefghijklmnopqrst', :1 * 1.25,"
      " to_date('2020-01-02', 'YYYY-MM-DD'), hextoraw('00112233445566778899AABBCCDDEEFF'),"
      " decode(mod(:1, 4), 0, null, 'a note'))");
  sb4 id = 0;
  for (ub4 i = 1; i <= 3; ++i) c.bind(i, &id, sizeof id, SQLT_INT);
  for (id = 1; id <= rows; ++id) c.execute(1);
}

/// Where its rows go, as the library defines them: numbers as text.
struct SixColumns {
  explicit SixColumns(ub4 rows)
      : id(130 * rows),
        name(61 * rows),
        amount(130 * rows),
        made(7 * rows),
        code(16 * rows),
        note(121 * rows),
        indicators(6 * rows),
        lengths(6 * rows) {}

  void define(Client& c, ub4 rows) {
    c.define(1, id.data(), 130, SQLT_STR, indicators.data(), lengths.data());
    c.define(2, name.data(), 61, SQLT_STR, &indicators[rows], &lengths[rows]);
    c.define(3, amount.data(), 130, SQLT_STR, &indicators[2 * rows], &lengths[2 * rows]);
    c.define(4, made.data(), 7, SQLT_DAT, &indicators[3 * rows], &lengths[3 * rows]);
    c.define(5, code.data(), 16, SQLT_BIN, &indicators[4 * rows], &lengths[4 * rows]);
    c.define(6, note.data(), 121, SQLT_STR, &indicators[5 * rows], &lengths[5 * rows]);
  }

  std::vector<char> id, name, amount, made, code, note;
  std::vector<sb2> indicators;
  std::vector<ub2> lengths;
};

}  // namespace bench

#endif
