#include "oci_double.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>

namespace oci_double {
namespace {

// Registered handles stay for the life of the process, so that a use after release has a name.
struct Handle {
  std::string name;
  std::string number;
  std::unique_ptr<char[]> user_memory;  // goes with the handle
};

std::map<const void*, std::unique_ptr<Handle>>& handles() {
  // Never destroyed: what statements keep in their memory stays reachable for the leak check.
  static auto& all = *new std::map<const void*, std::unique_ptr<Handle>>;
  return all;
}

void* make_handle(const std::string& kind, const std::string& number) {
  auto handle = std::make_unique<Handle>();
  handle->name = kind + number;
  handle->number = number;
  void* address = handle.get();
  handles()[address] = std::move(handle);
  return address;
}

void* next_handle(const std::string& kind) {
  return make_handle(kind, std::to_string(++state().serials[kind]));
}

template <typename... Arguments>
void record(const char* function, const Arguments&... arguments) {
  static std::mutex lock;
  std::ostringstream line;
  const char* separator = "";
  line << function << '(';
  ((line << separator << arguments, separator = ","), ...);
  line << ')';
  const std::lock_guard<std::mutex> held(lock);
  state().calls.push_back(line.str());
}

template <typename T>
T taken(std::deque<T>& queue) {
  const T first = queue.front();
  queue.pop_front();
  return first;
}

bool is_to_fail(const std::string& call) {
  State& s = state();
  if (s.calls_to_fault == 0 || --s.calls_to_fault > 0) return false;
  s.faulted = call;
  s.error = 3113;
  // No fetch brings rows of an execution that has failed.
  if (call == "OCIStmtExecute") s.replies["OCIStmtFetch"] = {{OCI_ERROR, 1002}};
  return true;
}

Reply next_reply(const std::string& call) {
  if (is_to_fail(call)) return {OCI_ERROR, 3113};
  std::deque<Reply>& queue = state().replies[call];
  if (queue.empty()) return {};
  return taken(queue);
}

// Every call but the queries leaves its own error, or none, in the error handle.
sword answer(const void* handle, const std::string& call) {
  if (!handles().contains(handle) || name(handle).starts_with("freed:")) return OCI_INVALID_HANDLE;
  const Reply reply = next_reply(call);
  state().error = reply.error;
  return reply.status;
}

// Records a call on a handle, which must be alive, and takes the reply.
template <typename Handle, typename... Arguments>
sword called(const char* function, const Handle* handle, const Arguments&... arguments) {
  record(function, name(handle), arguments...);
  return answer(handle, function);
}

const char* given(const void* pointer) {
  return pointer == nullptr ? "-" : "+";
}

template <typename T>
void put(void* target, T value) {
  std::memcpy(target, &value, sizeof value);
}

void read_statement(ub4 attribute, void* target) {
  const State& s = state();
  if (attribute == OCI_ATTR_STMT_TYPE) put(target, s.stmt_type);
  if (attribute == OCI_ATTR_ROW_COUNT) put(target, s.row_count);
  if (attribute == OCI_ATTR_SQLFNCODE) put(target, s.sqlfncode);
  if (attribute == OCI_ATTR_FNCODE) put(target, s.fncode);
}

void read_parameter(const Column& column, ub4 attribute, void* target, ub4* size) {
  if (attribute == OCI_ATTR_DATA_TYPE) put(target, column.type);
  if (attribute == OCI_ATTR_DATA_SIZE) put(target, column.size);
  if (attribute == OCI_ATTR_PRECISION) put(target, column.prec);
  if (attribute == OCI_ATTR_SCALE) std::memcpy(target, column.scale.data(), column.scale.size());
  if (attribute != OCI_ATTR_NAME) return;
  put(target, column.name.data());
  *size = static_cast<ub4>(column.name.size());
}

std::string attribute_value(const void* value, ub4 size, ub4 attribute) {
  const char* chars = static_cast<const char*>(value);
  switch (attribute) {
    case OCI_ATTR_USERNAME:
    case OCI_ATTR_PASSWORD:
      return std::string(chars, size);
    case OCI_ATTR_NONBLOCKING_MODE:
      return std::to_string(*static_cast<const ub1*>(value));
    case OCI_ATTR_PREFETCH_ROWS:
      return std::to_string(*static_cast<const ub4*>(value));
  }
  return name(value);
}

// The piece that SetPieceInfo has been given and the next fetch fills.
struct Offer {
  void* buffer = nullptr;
  ub4* length = nullptr;
};
Offer offered;

sword fill_offer() {
  if (is_to_fail("OCIStmtFetch")) {
    offered = {};
    return OCI_ERROR;
  }
  const Piece piece = taken(state().pieces);
  char* const buffer = static_cast<char*>(offered.buffer);
  *offered.length = static_cast<ub4>(piece.data.copy(buffer, *offered.length));
  offered = {};
  state().error = piece.fetch.error;
  return piece.fetch.status;
}

void drop_binds(const void* statement) {
  std::erase_if(state().binds, [&](const Bind& bind) { return bind.statement == statement; });
  for (Define& define : state().defines) {
    if (define.statement == statement) define.statement = nullptr;
  }
}

void write_rows(const Define& define, ub4 rows) {
  for (ub4 row = 0; row < rows && define.ind != nullptr; ++row) {
    static_cast<sb2*>(define.ind)[row] = 0;
    define.rlen[row] = static_cast<ub2>(define.size);
    define.rcode[row] = 0;
  }
  if (define.mode != OCI_DEFAULT || define.value == nullptr || define.size < 0) return;
  std::memset(define.value, 'v', static_cast<std::size_t>(define.size) * rows);
}

void read_bind(const Bind& bind) {
  static std::string last;
  if (bind.ind != nullptr && *bind.ind == -1) return;
  last.assign(static_cast<const char*>(bind.value), static_cast<std::size_t>(bind.size));
}

void bring_rows(const OCIStmt* statement, ub4 rows) {
  if (!state().transfers) return;
  for (const Define& define : state().defines) {
    if (define.statement == statement) write_rows(define, rows);
  }
}

void take_values(const OCIStmt* statement) {
  if (!state().transfers) return;
  for (const Bind& bind : state().binds) {
    if (bind.statement == statement) read_bind(bind);
  }
}

// Pulls a streamed value to its last piece. False once the callback has refused.
bool pull(const Bind& bind) {
  const std::string placeholder = std::to_string(bind.position) + ": ";
  for (ub1 piece = OCI_FIRST_PIECE; piece != OCI_LAST_PIECE;) {
    void* data = nullptr;
    void* ind = nullptr;
    ub4 length = 0;
    const sb4 result = bind.pull(bind.context, bind.handle, 0, 0, &data, &length, &piece, &ind);
    const bool refused = result != OCI_CONTINUE;
    const std::string outcome = refused && data == nullptr && length == 0
                                    ? "refused"
                                    : std::to_string(piece) + ", " + std::to_string(length);
    state().pulled.push_back(placeholder + outcome);
    if (refused) return false;
    state().streamed[bind.position].append(static_cast<const char*>(data), length);
    if (piece == OCI_FIRST_PIECE) piece = OCI_NEXT_PIECE;
  }
  return true;
}

bool pull_streams(const OCIStmt* statement) {
  const std::vector<Bind> binds = state().binds;  // Java may bind on other statements meanwhile
  for (const Bind& bind : binds) {
    if (bind.statement == statement && bind.pull != nullptr && !pull(bind)) return false;
  }
  return true;
}

}  // namespace

State& state() {
  static State the_state;
  return the_state;
}

void forget_handles() {
  std::erase_if(handles(), [](const auto& handle) {
    const std::string& its_name = handle.second->name;
    return its_name.starts_with("freed:") || its_name.starts_with("par") ||
           its_name.starts_with("bind") || its_name.starts_with("def");
  });
}

std::string name(const void* handle) {
  if (handle == nullptr) return "null";
  const auto found = handles().find(handle);
  return found == handles().end() ? "?" : found->second->name;
}

}  // namespace oci_double

using namespace oci_double;

sword OCIInitialize(ub4 mode, void* ctxp, void* (*malocfp)(void*, size_t),
                    void* (*ralocfp)(void*, void*, size_t), void (*mfreefp)(void*, void*)) {
  const bool plain = !ctxp && !malocfp && !ralocfp && !mfreefp;
  record("OCIInitialize", mode, plain ? "-" : "+");
  if (const char* setting = std::getenv("NLS_LANG")) state().nls_lang = setting;
  // Time for a second thread to walk into an initialisation that is not guarded.
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
  return OCI_SUCCESS;
}

sword OCIEnvInit(OCIEnv** envhpp, ub4 mode, size_t xtramem_sz, void** usrmempp) {
  static int serial = 0;
  *envhpp = static_cast<OCIEnv*>(make_handle("env", std::to_string(++serial)));
  record("OCIEnvInit", name(*envhpp), mode, xtramem_sz, given(usrmempp));
  return OCI_SUCCESS;
}

sword OCIHandleAlloc(const void* parenth, void** hndlpp, ub4 type, size_t xtramem_sz,
                     void** usrmempp) {
  static const std::map<ub4, const char*> kinds = {{OCI_HTYPE_ERROR, "err"},
                                                   {OCI_HTYPE_SVCCTX, "svc"},
                                                   {OCI_HTYPE_SERVER, "srv"},
                                                   {OCI_HTYPE_STMT, "stmt"},
                                                   {OCI_HTYPE_SESSION, "ses"}};
  const sword status = called("OCIHandleAlloc", parenth, type, xtramem_sz, given(usrmempp));
  if (status != OCI_SUCCESS) return status;
  const bool of_environment = type != OCI_HTYPE_STMT && type != OCI_HTYPE_SESSION;
  *hndlpp = of_environment ? make_handle(kinds.at(type), handles().at(parenth)->number)
                           : next_handle(kinds.at(type));
  if (usrmempp == nullptr) return OCI_SUCCESS;
  auto& memory = handles().at(*hndlpp)->user_memory;
  memory.reset(new char[xtramem_sz]);
  std::memset(memory.get(), 0xEE, xtramem_sz);
  *usrmempp = memory.get();
  return OCI_SUCCESS;
}

sword OCIHandleFree(void* hndlp, ub4 type) {
  const sword status = called("OCIHandleFree", hndlp, type);
  if (status != OCI_SUCCESS) return status;
  handles().at(hndlp)->name.insert(0, "freed:");
  handles().at(hndlp)->user_memory.reset();
  drop_binds(hndlp);
  return status;
}

sword OCIAttrGet(const void* trgthndlp, ub4 trghndltyp, void* attributep, ub4* sizep, ub4 attrtype,
                 OCIError* errhp) {
  record("OCIAttrGet", name(trgthndlp), trghndltyp, given(sizep), attrtype, name(errhp));
  const Reply reply = next_reply("OCIAttrGet:" + std::to_string(attrtype));
  if (reply.status != OCI_SUCCESS) {
    state().error = reply.error;
    return reply.status;
  }
  if (!handles().contains(trgthndlp)) return OCI_INVALID_HANDLE;
  if (trghndltyp == OCI_HTYPE_SERVER) {
    put(attributep, state().nonblocking);
  } else if (trghndltyp == OCI_HTYPE_STMT) {
    read_statement(attrtype, attributep);
  } else {
    const auto position = std::stoul(handles().at(trgthndlp)->number);
    read_parameter(state().columns.at(position - 1), attrtype, attributep, sizep);
  }
  return OCI_SUCCESS;
}

sword OCIAttrSet(void* trgthndlp, ub4 trghndltyp, void* attributep, ub4 size, ub4 attrtype,
                 OCIError* errhp) {
  record("OCIAttrSet", name(trgthndlp), trghndltyp, attribute_value(attributep, size, attrtype),
         size, attrtype, name(errhp));
  return answer(trgthndlp, "OCIAttrSet:" + std::to_string(attrtype));
}

sword OCIParamGet(const void* hndlp, ub4 htype, OCIError* errhp, void** parmdpp, ub4 pos) {
  const sword status = called("OCIParamGet", hndlp, htype, name(errhp), pos);
  if (status != OCI_SUCCESS) return status;
  if (pos < 1 || pos > state().columns.size()) return OCI_ERROR;
  *parmdpp = make_handle("par", std::to_string(pos));
  return status;
}

sword OCIErrorGet(void* hndlp, ub4 recordno, text* sqlstate, sb4* errcodep, text* bufp, ub4 bufsiz,
                  ub4 type) {
  record("OCIErrorGet", name(hndlp), recordno, given(sqlstate), given(bufp), bufsiz, type);
  if (state().error == 0) return OCI_NO_DATA;
  *errcodep = state().error;
  if (bufp == nullptr || bufsiz == 0) return OCI_SUCCESS;
  bufp[state().message.copy(reinterpret_cast<char*>(bufp), bufsiz - 1)] = 0;
  return OCI_SUCCESS;
}

// Calls that are recorded and answered, and do no more.
#define ANSWERED(function, parameters, ...) \
  sword function parameters {               \
    return called(#function, __VA_ARGS__);  \
  }
// The properties of a LOB all have one value.
template <typename Value>
std::string property_of(const OCILobLocator* locator, Value* value) {
  *value = static_cast<Value>(state().lob_amount);
  return name(locator);
}
// clang-format off
ANSWERED(OCIServerAttach, (OCIServer* s, OCIError* e, const text* link, sb4 size, ub4 mode),
         s, name(e), std::string(link, link + size), size, mode)
ANSWERED(OCIServerDetach, (OCIServer* s, OCIError* e, ub4 mode), s, name(e), mode)
ANSWERED(OCISessionBegin, (OCISvcCtx* s, OCIError* e, OCISession* u, ub4 credt, ub4 mode),
         s, name(e), name(u), credt, mode)
ANSWERED(OCISessionEnd, (OCISvcCtx* s, OCIError* e, OCISession* u, ub4 mode),
         s, name(e), name(u), mode)
ANSWERED(OCITransCommit, (OCISvcCtx* s, OCIError* e, ub4 flags), s, name(e), flags)
ANSWERED(OCITransRollback, (OCISvcCtx* s, OCIError* e, ub4 flags), s, name(e), flags)
ANSWERED(OCIBreak, (void* s, OCIError* e), s, name(e))
ANSWERED(OCILobAssign, (OCIEnv* s, OCIError* e, const OCILobLocator* from, OCILobLocator** to),
         s, name(e), name(from), name(*to))
ANSWERED(OCILobGetLength, (OCISvcCtx* s, OCIError* e, OCILobLocator* of, ub4* length),
         s, name(e), property_of(of, length))
ANSWERED(OCILobCharSetId, (OCIEnv* s, OCIError* e, const OCILobLocator* of, ub2* id),
         s, name(e), property_of(of, id))
ANSWERED(OCILobCharSetForm, (OCIEnv* s, OCIError* e, const OCILobLocator* of, ub1* form),
         s, name(e), property_of(of, form))
// clang-format on

sword OCIStmtPrepare(OCIStmt* stmtp, OCIError* errhp, const text* stmt, ub4 stmt_len, ub4 language,
                     ub4 mode) {
  const std::string prepared(stmt, stmt + stmt_len);
  const sword status = called("OCIStmtPrepare", stmtp, name(errhp), prepared, language, mode);
  if (status == OCI_SUCCESS) drop_binds(stmtp);
  return status;
}

sword OCIStmtExecute(OCISvcCtx* svchp, OCIStmt* stmtp, OCIError* errhp, ub4 iters, ub4 rowoff,
                     const OCISnapshot* snap_in, OCISnapshot* snap_out, ub4 mode) {
  record("OCIStmtExecute", name(svchp), name(stmtp), name(errhp), iters, rowoff, given(snap_in),
         given(snap_out), mode);
  const bool complete = pull_streams(stmtp);
  const sword status = answer(stmtp, "OCIStmtExecute");
  const ub4 rows = state().stmt_type == OCI_STMT_SELECT ? iters : 0;
  if (!complete) {
    state().error = 24343;  // ORA-24343: user defined callback error
    return OCI_ERROR;
  }
  if (status == OCI_SUCCESS && mode != OCI_DESCRIBE_ONLY) {
    take_values(stmtp);
    bring_rows(stmtp, rows);
  }
  return status;
}

sword OCIBindByPos(OCIStmt* stmtp, OCIBind** bindpp, OCIError* errhp, ub4 position, void* valuep,
                   sb4 value_sz, ub2 dty, void* indp, ub2* alenp, ub2* rcodep, ub4 maxarr_len,
                   ub4* curelep, ub4 mode) {
  const sword status =
      called("OCIBindByPos", stmtp, name(*bindpp), name(errhp), position, value_sz, dty,
             given(indp), given(alenp), given(rcodep), maxarr_len, given(curelep), mode);
  if (status != OCI_SUCCESS) return status;
  *bindpp = static_cast<OCIBind*>(next_handle("bind"));
  std::erase_if(state().binds, [&](const Bind& bind) {
    return bind.statement == stmtp && bind.position == position;
  });
  const sb4 size = mode == OCI_DEFAULT && valuep != nullptr ? value_sz : 0;
  std::string bytes(static_cast<const char*>(size == 0 ? "" : valuep), std::size_t(size));
  state().binds.push_back(
      {*bindpp, stmtp, position, valuep, size, bytes, static_cast<sb2*>(indp), alenp});
  return status;
}

sword OCIBindDynamic(OCIBind* bindp, OCIError* errhp, void* ictxp, OCICallbackInBind icbfp,
                     void* octxp, OCICallbackOutBind ocbfp) {
  const sword status =
      called("OCIBindDynamic", bindp, name(errhp), icbfp != nullptr && ictxp == octxp ? "+" : "-",
             ocbfp != nullptr ? "+" : "-");
  if (status != OCI_SUCCESS) return status;
  state().binds.back().context = ictxp;
  state().binds.back().pull = icbfp;
  return status;
}

sword OCIDefineByPos(OCIStmt* stmtp, OCIDefine** defnpp, OCIError* errhp, ub4 position,
                     void* valuep, sb4 value_sz, ub2 dty, void* indp, ub2* rlenp, ub2* rcodep,
                     ub4 mode) {
  record("OCIDefineByPos", name(stmtp), name(*defnpp), name(errhp), position, given(valuep),
         value_sz, dty, mode);
  *defnpp = static_cast<OCIDefine*>(next_handle("def"));
  const sword status = answer(stmtp, "OCIDefineByPos");
  const bool defined = status == OCI_SUCCESS;  // else the former one stays in force
  for (Define& define : state().defines) {
    const bool former = define.position == position && define.statement == stmtp;
    if (former && defined) define.statement = nullptr;
  }
  state().defines.push_back({*defnpp, position, valuep, value_sz, dty, indp, rlenp, rcodep, mode,
                             defined ? stmtp : nullptr});
  return status;
}

sword OCIStmtFetch(OCIStmt* stmtp, OCIError* errhp, ub4 nrows, ub2 orientation, ub4 mode) {
  record("OCIStmtFetch", name(stmtp), name(errhp), nrows, orientation, mode);
  if (offered.buffer != nullptr) return fill_offer();
  const sword status = answer(stmtp, "OCIStmtFetch");
  if (status == OCI_SUCCESS) bring_rows(stmtp, nrows);
  return status;
}

sword OCIStmtGetPieceInfo(OCIStmt* stmtp, OCIError* errhp, void** hndlpp, ub4* typep, ub1* in_outp,
                          ub4* iterp, ub4* idxp, ub1* piecep) {
  const sword status = called("OCIStmtGetPieceInfo", stmtp, name(errhp), *typep);
  if (status != OCI_SUCCESS || state().pieces.empty()) return status;
  const Piece& piece = state().pieces.front();
  if (piece.define >= state().defines.size()) return OCI_ERROR;
  *hndlpp = state().defines[piece.define].handle;
  *piecep = piece.piece;
  *in_outp = OCI_PARAM_OUT;
  *iterp = *idxp = 0;
  return status;
}

sword OCIStmtSetPieceInfo(void* hndlp, ub4 type, OCIError* errhp, const void* bufp, ub4* alenp,
                          ub1 piece, const void* indp, ub2* rcodep) {
  const sword status = called("OCIStmtSetPieceInfo", hndlp, type, name(errhp), *alenp, int{piece},
                              given(indp), given(rcodep));
  const bool taken = status == OCI_SUCCESS || status == OCI_SUCCESS_WITH_INFO;
  if (!taken || state().pieces.empty()) return status;
  // The interface may write all the room that it is told of: let that show.
  offered = {const_cast<void*>(bufp), alenp};
  std::memset(offered.buffer, 0xEE, *alenp);
  state().piece_buffers.push_back(bufp);
  return status;
}

sword OCIDescriptorAlloc(const void* parenth, void** descpp, ub4 type, size_t xtramem_sz,
                         void** usrmempp) {
  const sword status =
      called("OCIDescriptorAlloc", parenth, name(*descpp), type, xtramem_sz, given(usrmempp));
  if (status == OCI_SUCCESS) *descpp = next_handle("lob");
  return status;
}

sword OCIDescriptorFree(void* descp, ub4 type) {
  const sword status = called("OCIDescriptorFree", descp, type);
  if (status != OCI_INVALID_HANDLE) handles().at(descp)->name.insert(0, "freed:");
  return status;
}

sword OCILobRead(OCISvcCtx* svchp, OCIError* errhp, OCILobLocator* locp, ub4* amtp, ub4 offset,
                 void* bufp, ub4 bufl, void* ctxp, OCICallbackLobRead cbfp, ub2 csid, ub1 csfrm) {
  const sword status = called("OCILobRead", svchp, name(errhp), name(locp), *amtp, offset, bufl,
                              given(ctxp), cbfp == nullptr ? "-" : "+", csid, int{csfrm});
  state().lob_data.copy(static_cast<char*>(bufp), bufl);
  *amtp = state().lob_amount;
  return status;
}

sword OCILobWrite(OCISvcCtx* svchp, OCIError* errhp, OCILobLocator* locp, ub4* amtp, ub4 offset,
                  void* bufp, ub4 buflen, ub1 piece, void* ctxp, OCICallbackLobWrite cbfp, ub2 csid,
                  ub1 csfrm) {
  state().lob_written.assign(static_cast<const char*>(bufp), buflen);
  const sword status =
      called("OCILobWrite", svchp, name(errhp), name(locp), *amtp, offset, buflen, int{piece},
             given(ctxp), cbfp == nullptr ? "-" : "+", csid, int{csfrm});
  *amtp = state().lob_amount;
  return status;
}
