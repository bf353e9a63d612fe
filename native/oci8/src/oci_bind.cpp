// Binds: the variables of a statement's placeholders.
// Checks what can be judged without the statement's SQL; whether a value fits the column shows at
// the execute. bind.cpp reads the variables, execute.cpp decides when.
#include "guard.h"
#include "locator.h"
#include "statement.h"

namespace oci8 {
namespace {

// A buffer of no bytes may be null: every value of it is NULL then.
void check_bind(const BindHandle& wanted) {
  if (const int code = bind_error(wanted.type, wanted.room)) fail(code);
  if (wanted.at_execution && !arrives_in_pieces(wanted.type)) fail(3115);
  if (wanted.buffer == nullptr && wanted.room > 0 && !wanted.at_execution) fail(24328);
}

}  // namespace
}  // namespace oci8

using namespace oci8;

/// Binds the variable of the placeholder at `position` (from 1): an element of `value_sz` bytes at
/// `valuep`, with an optional indicator, length in bytes and return code. All of them are the
/// caller's, read by each execute and written by a block's; a fetch does not need them any more.
/// With OCI_DATA_AT_EXEC there is no buffer, `value_sz` is the length expected in all, and the
/// value comes from the callback of OCIBindDynamic. For SQLT_CLOB and SQLT_BLOB the element is the
/// address of a locator, of its own width whatever `value_sz` is: the statement gets a copy of the
/// value that it names, and a block may fill it. The bind handle is the statement's. ORA-01036
/// for a position without a placeholder, ORA-01459 for a bad size, ORA-24328 for a missing buffer
/// and for PL/SQL tables, ORA-03115 for an external type that is not offered.
sword OCIBindByPos(OCIStmt* stmtp, OCIBind** bindpp, OCIError* errhp, ub4 position, void* valuep,
                   sb4 value_sz, ub2 dty, void* indp, ub2* alenp, ub2* rcodep, ub4 maxarr_len, ub4*,
                   ub4 mode) {
  return guarded(errhp, [&](ErrorRecord&) {
    StatementHandle& statement = as_statement(stmtp);
    statement.note_call(CallCode::BindByPos);
    statement.prepared_text();
    if (bindpp == nullptr || maxarr_len > 0) fail(24328);
    if (value_sz < 0) fail(1459);
    BindHandle wanted;
    wanted.statement = &statement;
    wanted.position = position;
    wanted.buffer = static_cast<ub1*>(valuep);
    // For OCI_DATA_AT_EXEC this is the expected total, which serves as a hint for memory only.
    wanted.room = element_size(dty, static_cast<size_t>(value_sz));
    wanted.type = dty;
    wanted.indicators = static_cast<sb2*>(indp);
    wanted.lengths = alenp;
    wanted.codes = rcodep;
    wanted.at_execution = (mode & OCI_DATA_AT_EXEC) != 0;
    check_bind(wanted);
    *bindpp = reinterpret_cast<OCIBind*>(&statement.bind(wanted));
    return OCI_SUCCESS;
  });
}

/// Names the callback that brings the value of a bind with OCI_DATA_AT_EXEC. It is called within
/// the execute, on the same thread, for one piece after the other until it marks one as
/// OCI_LAST_PIECE or OCI_ONE_PIECE; each piece is taken before the next call. NULL is a value
/// without bytes or an indicator of -1; a bound indicator of -1 spares the calls. The callback may
/// ask the statement for attributes and errors, and must not free it. Anything but OCI_CONTINUE
/// ends the execute with ORA-24343, a value that is too long with ORA-01401; nothing has run then.
/// There are no output callbacks: a block that assigns to such a bind is ORA-03001. ORA-24328 for a
/// bind with a buffer.
sword OCIBindDynamic(OCIBind* bindp, OCIError* errhp, void* ictxp, OCICallbackInBind icbfp, void*,
                     OCICallbackOutBind) {
  // Of a bind that failed, whose error is still to be told.
  if (bindp == nullptr) return OCI_INVALID_HANDLE;
  return guarded(errhp, [&](ErrorRecord&) {
    BindHandle& bind = as_bind(bindp);
    bind.statement->note_call(CallCode::BindDynamic);
    if (icbfp == nullptr || !bind.at_execution) fail(24328);
    bind.callback = icbfp;
    bind.context = ictxp;
    return OCI_SUCCESS;
  });
}
