// The session record and the two fixed pools of them.

#include <cstdlib>
#include <cstring>

#include "oralayer8.h"
#include "trace.h"

// --- Session record ------------------------------------------------------------------------------

// Runs at load, before OCIInitialize. A handle that could not be made stays null, and the first
// call that needs it fails.
ldadata::ldadata()
    : envhp(nullptr),
      srvhp(nullptr),
      errhp(nullptr),
      svchp(nullptr),
      usrhp(nullptr),
      tmp(nullptr),
      authp(nullptr),
      status(OCI_SUCCESS),
      autocommit(0) {
  OCIEnvInit(&envhp, OCI_DEFAULT, 0, nullptr);
  OCIHandleAlloc(envhp, reinterpret_cast<void**>(&errhp), OCI_HTYPE_ERROR, 0, nullptr);
  OCIHandleAlloc(envhp, reinterpret_cast<void**>(&srvhp), OCI_HTYPE_SERVER, 0, nullptr);
  OCIHandleAlloc(envhp, reinterpret_cast<void**>(&svchp), OCI_HTYPE_SVCCTX, 0, nullptr);
}

namespace {

// The interface takes the value as void*, and only reads it.
void set_session_text(ldadata& ld, const char* value, ub4 attribute) {
  OCIAttrSet(ld.authp, OCI_HTYPE_SESSION, const_cast<char*>(value),
             static_cast<ub4>(std::strlen(value)), attribute, ld.errhp);
}

// As these lines always were: an address as an int.
std::int32_t as_int(const void* handle) {
  return static_cast<std::int32_t>(reinterpret_cast<std::intptr_t>(handle));
}

void trace_handles(const ldadata& ld) {
  TRACE("---  in oralayer ldadata login: svchp is: ", as_int(ld.svchp));
  TRACE("---  in oralayer ldadata login: srvhp is: ", as_int(ld.srvhp));
  TRACE("---  in oralayer ldadata login: authp is: ", as_int(ld.authp));
}

void free_session(OCISession*& session) {
  if (session != nullptr) OCIHandleFree(session, OCI_HTYPE_SESSION);
  session = nullptr;
}

}  // namespace

int ldadata::login(const char* username, const char* password, const char* host, boolean isXA) {
  TRACE("*** LOGIN ***  isXA=", isXA, ", srvhp=", srvhp);
  autocommit = 0;
  if (isXA) return 0;

  // Results up to the session start are not looked at: a failure shows there.
  OCIServerAttach(srvhp, errhp, reinterpret_cast<const text*>(host),
                  static_cast<sb4>(std::strlen(host)), OCI_DEFAULT);
  OCIAttrSet(svchp, OCI_HTYPE_SVCCTX, srvhp, 0, OCI_ATTR_SERVER, errhp);
  OCISession* former = authp;
  authp = nullptr;
  OCIHandleAlloc(envhp, reinterpret_cast<void**>(&authp), OCI_HTYPE_SESSION, 0, nullptr);
  set_session_text(*this, username, OCI_ATTR_USERNAME);
  set_session_text(*this, password, OCI_ATTR_PASSWORD);
  const ub4 credentials = std::strcmp(username, "/") == 0 ? OCI_CRED_EXT : OCI_CRED_RDBMS;
  status = OCISessionBegin(svchp, errhp, authp, credentials, OCI_DEFAULT);

  if (status == OCI_SUCCESS) {
    OCIAttrSet(svchp, OCI_HTYPE_SVCCTX, authp, 0, OCI_ATTR_SESSION, errhp);
    free_session(former);
    free_session(usrhp);
    trace_handles(*this);
    return 0;
  }
  // The service context names the session of the last login that succeeded, if any: its handle is
  // kept for as long.
  if (usrhp == nullptr) {
    usrhp = former;
  } else {
    free_session(former);
  }
  TRACE("*** OCISessionBegin failed");
  trace_handles(*this);
  write_line("\n\n----------  LOGIN ERROR CODE: ", oracle_error(errhp));
  return status;
}

int ldadata::logoff(boolean isXA) {
  autocommit = 0;
  TRACE("*** LOGOFF ***  isXA=", isXA, ", srvhp=", srvhp);
  if (isXA) return 0;
  if (errhp != nullptr && srvhp != nullptr) {
    if (authp != nullptr) OCISessionEnd(svchp, errhp, authp, OCI_DEFAULT);
    TRACE("DETACH FROM SERVER");
    OCIServerDetach(srvhp, errhp, OCI_DEFAULT);
  }
  return 0;
}

// --- Pools ---------------------------------------------------------------------------------------

namespace {

constexpr int kDefaultPoolSize = 512;

char* copy_of(const char* string) {
  const std::size_t size = std::strlen(string) + 1;
  char* copy = new char[size];
  std::memcpy(copy, string, size);
  return copy;
}

}  // namespace

int ldapool_holder::pool_size_from_str(const char* name) {
  if (name == nullptr) return kDefaultPoolSize;
  const char* value = std::getenv(name);
  if (value == nullptr || *value == '\0') return kDefaultPoolSize;
  // What atoi does, which leaves open what becomes of a number that an int has no room for.
  const auto size = static_cast<int>(std::strtol(value, nullptr, 10));
  return size < 1 ? kDefaultPoolSize : size;
}

ldapool_holder::ldapool_holder(const char* env_string)
    : is_inited(0),
      env_var(nullptr),
      pool_size(pool_size_from_str(env_string)),
      pool(new ldadata[static_cast<std::size_t>(pool_size)]) {
  if (env_string != nullptr) env_var = copy_of(env_string);
  if (pool != nullptr && pool_size >= 1) {
    is_inited = 1;
  } else {
    TRACE("pool allocation failed, out of memory");
  }
  TRACE("ldapool allocated - size", "=", pool_size);
  TRACE("ldapool env var ", "=", env_var != nullptr ? env_var : "");
}

// The records' handles are left to the end of the process: this runs while it ends.
ldapool_holder::~ldapool_holder() {
  delete[] pool;
  delete[] env_var;
}

// Built when the library is loaded, in this order.
ldapool_holder ldapool("TV_ORA_CONN_HANDLES");
ldapool_holder xaldapool("TV_ORA_CONN_HANDLES");

// No operation takes entries from it: Java is only told its capacity.
Cda_Def cdapool[4096];
