// Statements: prepare, execute, define, fetch, pieces.
// The calls only check arguments and note the call's function code; statement.cpp, execute.cpp and
// fetch.cpp do the work.
#include "guard.h"
#include "locator.h"
#include "statement.h"

using namespace oci8;

/// Takes over the statement's text, of which a copy is made; what is wrong with it shows when it
/// is executed or described. ORA-24373 for no text.
sword OCIStmtPrepare(OCIStmt* stmtp, OCIError* errhp, const text* stmt, ub4 stmt_len, ub4, ub4) {
  return guarded(errhp, [&](ErrorRecord&) {
    StatementHandle& statement = as_statement(stmtp);
    statement.note_call(CallCode::Prepare);
    if (stmt == nullptr || stmt_len == 0) fail(24373);
    statement.prepare({reinterpret_cast<const char*>(stmt), stmt_len});
    return OCI_SUCCESS;
  });
}

/// Runs the statement, or with OCI_DESCRIBE_ONLY makes its select list known. A query also fetches
/// up to `iters` rows: OCI_NO_DATA with ORA-01403 when there are fewer. Anything else runs `iters`
/// times (ORA-24333 for none), each time with the next element of the bound variables, and
/// OCI_COMMIT_ON_SUCCESS commits what it changed. ORA-01008 for a placeholder without a variable,
/// ORA-01001 for a cursor variable that holds no statement handle; OCI_NO_DATA with ORA-01403 when
/// a block finds no row. ORA-03001 for a row offset.
sword OCIStmtExecute(OCISvcCtx* svchp, OCIStmt* stmtp, OCIError* errhp, ub4 iters, ub4 rowoff,
                     const OCISnapshot*, OCISnapshot*, ub4 mode) {
  return guarded(errhp, [&](ErrorRecord& record) -> sword {
    const ServiceContext& service = as_service(svchp);
    StatementHandle& statement = as_statement(stmtp);
    // Noted before the run: callers read the code of a failed call for their messages.
    statement.note_call(CallCode::Execute);
    Attachment& attachment = service.live();
    if (mode & OCI_DESCRIBE_ONLY) {
      statement.describe(attachment);
      return OCI_SUCCESS;
    }
    if (rowoff != 0) fail(3001);
    return statement.execute(attachment, iters, (mode & OCI_COMMIT_ON_SUCCESS) != 0, record);
  });
}

/// Defines where the values of a column go: elements of `value_sz` bytes from `valuep` on, with
/// optional arrays of indicators, lengths (without a terminator) and return codes. With
/// OCI_DYNAMIC_FETCH there is no buffer, `value_sz` is the greatest length expected, and the values
/// are fetched in pieces. For SQLT_CLOB and SQLT_BLOB the elements are addresses of locators, of an
/// address's own width whatever `value_sz` is; a fetch fills the locators, and empties them for
/// NULL (ORA-22275 for an element that holds no locator). The define handle is the statement's.
/// ORA-01459 for a bad size, ORA-24328 for a missing buffer, ORA-03115 for an external type that is
/// not offered; a type that does not suit the column is ORA-00932 at the fetch.
sword OCIDefineByPos(OCIStmt* stmtp, OCIDefine** defnpp, OCIError* errhp, ub4 position,
                     void* valuep, sb4 value_sz, ub2 dty, void* indp, ub2* rlenp, ub2* rcodep,
                     ub4 mode) {
  return guarded(errhp, [&](ErrorRecord&) {
    StatementHandle& statement = as_statement(stmtp);
    statement.note_call(CallCode::DefineByPos);
    statement.prepared_text();
    const bool in_pieces = (mode & OCI_DYNAMIC_FETCH) != 0;
    if (defnpp == nullptr || (valuep == nullptr && !in_pieces)) fail(24328);
    if (position == 0) fail(1007);
    if (value_sz <= 0 && !is_locator(dty)) fail(1459);
    const size_t room = element_size(dty, static_cast<size_t>(value_sz));
    if (!definable(dty, room)) fail(3115);
    DefineHandle wanted;
    wanted.statement = &statement;
    wanted.position = position;
    wanted.buffer = static_cast<ub1*>(valuep);
    wanted.room = room;
    wanted.type = dty;
    wanted.indicators = static_cast<sb2*>(indp);
    wanted.lengths = rlenp;
    wanted.codes = rcodep;
    wanted.in_pieces = in_pieces;
    *defnpp = reinterpret_cast<OCIDefine*>(&statement.define(wanted));
    return OCI_SUCCESS;
  });
}

/// Fetches up to `nrows` rows into the defined variables; none closes the cursor. OCI_NO_DATA with
/// ORA-01403 when there are fewer, OCI_NEED_DATA with ORA-03130 when a column is to be fetched in
/// pieces and the next buffer is due, OCI_SUCCESS_WITH_INFO with ORA-24345 when values were cut and
/// have that in their return codes. ORA-01405 and ORA-01406 for a value that is NULL or was cut and
/// has nowhere to say so, ORA-01002 when there is no cursor to fetch from; after a failed execute
/// or fetch, the failure again.
sword OCIStmtFetch(OCIStmt* stmtp, OCIError* errhp, ub4 nrows, ub2 orientation, ub4) {
  return guarded(errhp, [&](ErrorRecord& record) {
    StatementHandle& statement = as_statement(stmtp);
    statement.note_call(CallCode::Fetch);
    if (orientation != OCI_FETCH_NEXT) fail(24391);
    return statement.fetch(nrows, record);
  });
}

/// Tells which define the next piece belongs to. ORA-01002 when no piece is due.
sword OCIStmtGetPieceInfo(OCIStmt* stmtp, OCIError* errhp, void** hndlpp, ub4* typep, ub1* in_outp,
                          ub4* iterp, ub4* idxp, ub1* piecep) {
  return guarded(errhp, [&](ErrorRecord&) {
    StatementHandle& statement = as_statement(stmtp);
    statement.note_call(CallCode::GetPieceInfo);
    bool first = false;
    DefineHandle& define = statement.due_piece(first);
    if (hndlpp != nullptr) *hndlpp = &define;
    if (typep != nullptr) *typep = OCI_HTYPE_DEFINE;
    if (in_outp != nullptr) *in_outp = OCI_PARAM_OUT;
    if (iterp != nullptr) *iterp = 0;
    if (idxp != nullptr) *idxp = 0;
    if (piecep != nullptr) *piecep = first ? OCI_FIRST_PIECE : OCI_NEXT_PIECE;
    return OCI_SUCCESS;
  });
}

/// Offers `*alenp` bytes at `bufp` for the due piece of the define `hndlp`; the fetch that follows
/// fills them, stores the piece's length in `*alenp`, and the value's indicator and return code
/// where they are given, else in those of the define. All of them stay in place until then. The
/// order of pieces is the server's, `piece` has no effect. ORA-01002 for a define that is not due.
sword OCIStmtSetPieceInfo(void* hndlp, ub4 type, OCIError* errhp, const void* bufp, ub4* alenp, ub1,
                          const void* indp, ub2* rcodep) {
  return guarded(errhp, [&](ErrorRecord&) {
    if (type != OCI_HTYPE_DEFINE) throw InvalidHandle();
    const DefineHandle& define = as_define(hndlp);
    define.statement->note_call(CallCode::SetPieceInfo);
    // The interface's one prototype for both directions promises const; a fetch writes there.
    PieceBuffer buffer;
    buffer.data = static_cast<ub1*>(const_cast<void*>(bufp));
    buffer.length = alenp;
    buffer.indicator = static_cast<sb2*>(const_cast<void*>(indp));
    buffer.code = rcodep;
    define.statement->offer_buffer(define, buffer);
    return OCI_SUCCESS;
  });
}
