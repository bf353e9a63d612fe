// A client library that records every call as one line of text and answers as a test has scripted.
//
// Handles are named by kind and number: environments, and the handles made from them when the
// library loads, by their pool slot from 1 ("env1", "err1", "srv1", "svc1"); statements, sessions,
// binds, defines and parameters by order within the test ("stmt1"). A handle used after its release
// shows as "freed:stmt1".
#ifndef ORALAYER_OCI_DOUBLE_H
#define ORALAYER_OCI_DOUBLE_H

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "oci.h"

namespace oci_double {

/// What a call returns, and the error number that it leaves in record 1.
struct Reply {
  sword status = OCI_SUCCESS;
  sb4 error = 0;
};

struct Column {
  ub2 type = SQLT_CHR;
  ub2 size = 10;
  std::string name = "NAME";
  sb2 prec = 0;
  std::string scale = std::string(1, '\0');  // the bytes that are written, one or two
};

struct Define {
  void* handle;
  ub4 position;
  void* value;
  sb4 size;
  ub2 type;
  void* ind;
  ub2* rlen;
  ub2* rcode;
  ub4 mode;
  const OCIStmt* statement;  // null once it has dropped the define
};

/// A placeholder's bind: its bytes as the interface reads them at the call, or where it pulls them.
struct Bind {
  OCIBind* handle;
  OCIStmt* statement;
  ub4 position;
  const void* value;
  sb4 size;
  std::string bytes;
  const sb2* ind;
  const ub2* lengths;
  void* context = nullptr;
  OCICallbackInBind pull = nullptr;
};

/// One round of the piece protocol: which define is asked for which piece, and what the fetch
/// after it delivers.
struct Piece {
  std::size_t define;
  ub1 piece;
  std::string data;
  Reply fetch;
};

struct State {
  std::vector<std::string> calls;
  /// Taken from the front; success where there is none. Keyed by the function's name, attribute
  /// calls by name and attribute number ("OCIAttrGet:24").
  std::map<std::string, std::deque<Reply>> replies;
  sb4 error = 0;
  std::string message;
  ub2 stmt_type = OCI_STMT_SELECT;
  ub4 row_count = 0;
  ub2 sqlfncode = 0;
  ub4 fncode = 0;
  ub1 nonblocking = 0;
  std::vector<Column> columns;
  std::vector<Define> defines;
  std::vector<Bind> binds;  // at most one for each placeholder
  std::vector<std::string> pulled;  // "placeholder: piece code, bytes" or "placeholder: refused"
  std::map<ub4, std::string> streamed;  // by placeholder
  std::deque<Piece> pieces;
  std::vector<const void*> piece_buffers;
  ub4 lob_amount = 0;  // what every LOB call answers as length or amount
  std::string lob_data;  // what a read writes into the buffer, as far as it fits
  std::string lob_written;  // the buffer of the last write
  std::string nls_lang;  // the variable, as OCIInitialize found it
  std::map<std::string, int> serials;
  /// Executions read what is bound, executions and fetches of rows write what is defined.
  bool transfers = false;
  /// The n-th call from now that takes a reply fails with ORA-03113, and leaves its name; 0: none.
  int calls_to_fault = 0;
  std::string faulted;

  void reply(const std::string& call, sword status, sb4 code = 0) {
    replies[call].push_back({status, code});
  }
};

/// The one state. Usable during static initialisation, when the session pools are built.
State& state();
/// Forgets the handles that only one statement or nobody has any more.
void forget_handles();
/// The name of a handle, "null", or "?" for an address that is no handle.
std::string name(const void* handle);

}  // namespace oci_double

#endif
