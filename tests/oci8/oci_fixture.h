// A database file with one account, and a session on it by the interface alone.
#ifndef OCI8_TESTS_OCI_FIXTURE_H
#define OCI8_TESTS_OCI_FIXTURE_H

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <thread>

#include "engine_fixture.h"
#include "oci.h"

inline const text* bytes(const std::string& value) {
  return reinterpret_cast<const text*>(value.data());
}

/// A stream of the caller: all pieces of its value from one buffer, the last of them short.
struct Stream {
  static sb4 next(void* context, OCIBind*, ub4 iteration, ub4 index, void** data, ub4* size,
                  ub1* piece, void**) {
    auto& self = *static_cast<Stream*>(context);
    EXPECT_EQ(iteration + index, 0u);
    self.asked.push_back(*piece);
    const sb4 answer = self.meanwhile ? self.meanwhile() : OCI_CONTINUE;
    self.buffer = self.value.substr(self.done, self.room);
    self.done += self.buffer.size();
    *data = self.buffer.data();
    *size = static_cast<ub4>(self.buffer.size());
    if (*size < self.room) *piece = OCI_LAST_PIECE;
    return answer;
  }

  std::string value;
  size_t room;  // of a piece
  std::function<sb4()> meanwhile{};  // at each call, and what it answers
  size_t done = 0;
  std::string buffer{};
  std::vector<int> asked{};
};

/// The handles of one connection, as callers keep them.
struct Client {
  Client() {
    EXPECT_EQ(OCIEnvInit(&env, OCI_DEFAULT, 0, nullptr), OCI_SUCCESS);
    err = make<OCIError>(OCI_HTYPE_ERROR);
    srv = make<OCIServer>(OCI_HTYPE_SERVER);
    svc = make<OCISvcCtx>(OCI_HTYPE_SVCCTX);
    stmt = make<OCIStmt>(OCI_HTYPE_STMT);
  }
  explicit Client(const std::string& database) : Client() {
    EXPECT_EQ(log_in(database), OCI_SUCCESS) << code();
  }
  ~Client() { OCIHandleFree(env, OCI_HTYPE_ENV); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  template <class T>
  T* make(ub4 type) {
    void* made = nullptr;
    EXPECT_EQ(OCIHandleAlloc(env, &made, type, 0, nullptr), OCI_SUCCESS);
    return static_cast<T*>(made);
  }

  sword log_in(const std::string& database, std::string user = "scott",
               std::string password = "tiger") {
    OCIServerAttach(srv, err, bytes(database), static_cast<sb4>(database.size()), OCI_DEFAULT);
    OCIAttrSet(svc, OCI_HTYPE_SVCCTX, srv, 0, OCI_ATTR_SERVER, err);
    ses = make<OCISession>(OCI_HTYPE_SESSION);
    OCIAttrSet(ses, OCI_HTYPE_SESSION, user.data(), static_cast<ub4>(user.size()),
               OCI_ATTR_USERNAME, err);
    OCIAttrSet(ses, OCI_HTYPE_SESSION, password.data(), static_cast<ub4>(password.size()),
               OCI_ATTR_PASSWORD, err);
    const sword status = OCISessionBegin(svc, err, ses, OCI_CRED_RDBMS, OCI_DEFAULT);
    if (status == OCI_SUCCESS) OCIAttrSet(svc, OCI_HTYPE_SVCCTX, ses, 0, OCI_ATTR_SESSION, err);
    return status;
  }

  sword prepare(const std::string& sql) {
    return OCIStmtPrepare(stmt, err, bytes(sql), static_cast<ub4>(sql.size()), OCI_NTV_SYNTAX,
                          OCI_DEFAULT);
  }
  sword execute(ub4 iterations, ub4 mode = OCI_DEFAULT) {
    return OCIStmtExecute(svc, stmt, err, iterations, 0, nullptr, nullptr, mode);
  }
  sword run(const std::string& sql, ub4 iterations = 1, ub4 mode = OCI_DEFAULT) {
    const sword status = prepare(sql);
    return status == OCI_SUCCESS ? execute(iterations, mode) : status;
  }
  sword fetch(ub4 rows) { return OCIStmtFetch(stmt, err, rows, OCI_FETCH_NEXT, OCI_DEFAULT); }

  sword define(ub4 position, void* value, size_t size, ub2 type, sb2* indicator = nullptr,
               ub2* length = nullptr, ub2* code = nullptr, ub4 mode = OCI_DEFAULT) {
    OCIDefine* made = nullptr;
    return OCIDefineByPos(stmt, &made, err, position, value, static_cast<sb4>(size), type,
                          indicator, length, code, mode);
  }

  sword bind(ub4 position, const void* value, size_t size, ub2 type, sb2* indicator = nullptr,
             ub2* length = nullptr, ub2* code = nullptr, ub4 mode = OCI_DEFAULT) {
    return OCIBindByPos(stmt, &bound, err, position, const_cast<void*>(value),
                        static_cast<sb4>(size), type, indicator, length, code, 0, nullptr, mode);
  }
  /// Prepares, and binds the first variable to a stream.
  sword stream(const std::string& sql, ub2 type, Stream& from, sb2* indicator = nullptr) {
    EXPECT_EQ(prepare(sql), OCI_SUCCESS);
    bind(1, nullptr, 0x7fffffff, type, indicator, nullptr, nullptr, OCI_DATA_AT_EXEC);
    return OCIBindDynamic(bound, err, &from, Stream::next, nullptr, nullptr);
  }

  /// The first value of a query, or the code of its failure below 0.
  int number(const std::string& query) {
    int found = 0;
    if (run(query, 0) != OCI_SUCCESS) return -code();
    define(1, &found, sizeof found, SQLT_INT);
    return fetch(1) == OCI_SUCCESS ? found : -code();
  }

  /// The code of the diagnostic, 0 without one.
  int code() {
    sb4 found = 0;
    OCIErrorGet(err, 1, nullptr, &found, nullptr, 0, OCI_HTYPE_ERROR);
    return found;
  }

  /// The code of a failed call, or its status.
  int error_of(sword status) { return status == OCI_ERROR ? code() : status; }

  template <class T>
  T attribute(ub4 number) {
    T value{};
    EXPECT_EQ(OCIAttrGet(stmt, OCI_HTYPE_STMT, &value, nullptr, number, err), OCI_SUCCESS);
    return value;
  }
  ub4 row_count() { return attribute<ub4>(OCI_ATTR_ROW_COUNT); }

  OCIEnv* env = nullptr;
  OCIError* err = nullptr;
  OCIServer* srv = nullptr;
  OCISvcCtx* svc = nullptr;
  OCISession* ses = nullptr;
  OCIStmt* stmt = nullptr;
  OCIBind* bound = nullptr;  // the latest
};

/// Forks while no other thread starts or ends: the sanitizers' allocator, which one of them may
/// have locked then, would stay locked in the child. `alone`: once the library's thread has ended.
inline pid_t fork_between_threads(bool alone) {
  const auto threads = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
  };
  int waits = 0;
  do {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  } while (alone && threads() > 1 && ++waits < 50);
  return fork();
}

/// How a child process has ended.
inline int end_of(pid_t child) {
  int status = -1;
  waitpid(child, &status, 0);
  return status;
}

class OciTest : public oci8::DatabaseTest {
 protected:
  void log_in() { ASSERT_EQ(c.log_in(database_), OCI_SUCCESS) << c.code(); }
  void must(const std::string& sql) { ASSERT_EQ(c.run(sql), OCI_SUCCESS) << sql << c.code(); }

  Client c;
};

/// With `c` logged in from the start.
class LoggedInTest : public OciTest {
 protected:
  LoggedInTest() { log_in(); }
};

#endif
