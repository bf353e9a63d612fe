// LOBs through their locators.
// Offsets count from 1 in the interface and from 0 behind it, in characters of a CLOB (UCS-2 units)
// and bytes of a BLOB. The value is reached through the session of the service context; a locator
// only names it.
#include "guard.h"
#include "locator.h"

namespace oci8 {
namespace {

using Direction = LobTransfer::Direction;

constexpr int kIllegalParameter = 24801;
constexpr int kNextPieceToInsert = 3129;
constexpr int kNextBufferToFetch = 3130;

// Character set numbers as the server assigns them.
constexpr ub2 kUs7Ascii = 1, kUtf8 = 871, kAl32Utf8 = 873;
constexpr ub2 kDatabaseSet = kUtf8;

// A BLOB's bytes have no character set: whatever its callers pass for one has no meaning.
LobForm form_of(const LargeName& name, ub2 set, ub1 form) {
  if (name.unit == LargeName::Unit::Byte) return LobForm::Units;
  if (form > SQLCS_NCHAR) fail(kIllegalParameter);
  switch (set) {
    case OCI_UCS2ID:
      return LobForm::Units;
    case 0:
    case kUtf8:
    case kAl32Utf8:
      return LobForm::Utf8;
    case kUs7Ascii:
      return LobForm::Ascii;
    default:
      fail(12705);
  }
}

// Without an amount: as many units as there are.
LobTransfer::Request request_of(const Locator& locator, Direction direction, ub4 offset, ub2 set,
                                ub1 form) {
  const LobForm buffer_form = form_of(locator.named(), set, form);
  if (offset == 0) fail(kIllegalParameter);
  return {&locator, direction, buffer_form, offset - 1ULL, ~0ULL, false};
}

// Goes on with the open transfer that the call belongs to, or begins another. Any failure from here
// on ends the transfer: there is no telling how far it came.
template <class Begin, class Move>
sword transfer_on(LobTransfer& transfer, bool goes_on, ub4* amount, int due, ErrorRecord& record,
                  Begin&& begin, Move&& move) {
  try {
    if (!goes_on) begin();
    const LobTransfer::Moved moved = move();
    *amount = static_cast<ub4>(moved.amount);
    // A break that came between this call's last look at the database and its end.
    if (moved.more && !transfer.open()) fail(1013);
    if (moved.more) return note(record, OCI_NEED_DATA, due);
  } catch (...) {
    transfer.end();
    throw;
  }
  transfer.end();
  return OCI_SUCCESS;
}

}  // namespace
}  // namespace oci8

using namespace oci8;

/// Makes the locator `*dst_locpp`, which is allocated, name what `src_locp` names; they are
/// independent of each other then. A locator that names nothing makes the other one empty, too: a
/// copy that kept its former name would show the value of another row for one that is NULL.
sword OCILobAssign(OCIEnv* envhp, OCIError* errhp, const OCILobLocator* src_locp,
                   OCILobLocator** dst_locpp) {
  return guarded(errhp, [&](ErrorRecord&) {
    as_environment(envhp);
    const Locator& source = as_locator(src_locp);
    if (dst_locpp == nullptr) fail(kIllegalParameter);
    as_locator(*dst_locpp).name = source.name;
    return OCI_SUCCESS;
  });
}

/// The length, in characters of a CLOB and in bytes of a BLOB. ORA-22275 for an empty locator,
/// ORA-22922 when the value is gone.
sword OCILobGetLength(OCISvcCtx* svchp, OCIError* errhp, OCILobLocator* locp, ub4* lenp) {
  return guarded(errhp, [&](ErrorRecord&) {
    const ServiceContext& service = as_service(svchp);
    const Locator& locator = as_locator(locp);
    const Attachment& attachment = service.live();
    if (lenp == nullptr) fail(kIllegalParameter);
    // No value is longer than this can tell: writes see to that.
    *lenp = static_cast<ub4>(attachment.connection->large_size(locator.named()));
    return OCI_SUCCESS;
  });
}

/// The character set of the database for a CLOB, 0 for a BLOB. ORA-22275 for an empty locator.
sword OCILobCharSetId(OCIEnv* envhp, OCIError* errhp, const OCILobLocator* locp, ub2* csid) {
  return guarded(errhp, [&](ErrorRecord&) {
    as_environment(envhp);
    const LargeName& name = as_locator(locp).named();
    if (csid == nullptr) fail(kIllegalParameter);
    *csid = name.unit == LargeName::Unit::Character ? kDatabaseSet : 0;
    return OCI_SUCCESS;
  });
}

/// SQLCS_IMPLICIT for a CLOB, 0 for a BLOB. ORA-22275 for an empty locator.
sword OCILobCharSetForm(OCIEnv* envhp, OCIError* errhp, const OCILobLocator* locp, ub1* csfrm) {
  return guarded(errhp, [&](ErrorRecord&) {
    as_environment(envhp);
    const LargeName& name = as_locator(locp).named();
    if (csfrm == nullptr) fail(kIllegalParameter);
    *csfrm = name.unit == LargeName::Unit::Character ? SQLCS_IMPLICIT : 0;
    return OCI_SUCCESS;
  });
}

/// Reads `*amtp` characters of a CLOB or bytes of a BLOB, 0 for all to the end, from `offset`
/// (from 1) into `bufl` bytes at `bufp`. `csid` says what the buffer gets of a CLOB: UCS-2 in
/// machine order (1000), UTF-8 (871, 873, and 0 for the database's own set) or US7ASCII (1, with
/// '?' for what it lacks); of UTF-8 only whole characters. `*amtp` becomes what this call put
/// there: characters of UCS-2, else bytes. Less than was asked for is the end of the value; behind
/// it a read succeeds with 0, so that callers may read block by block without asking for the
/// length.
///
/// When the buffer ends first, OCI_NEED_DATA with ORA-03130: further calls with the locator go on
/// whatever their amount and offset, until OCI_SUCCESS. Until then the session does nothing else
/// (ORA-03127), unless the transfer ends early: by an error, a break, a rollback, the session's
/// end, or the locator's. ORA-24801 for arguments that are missing or make no sense, ORA-12705 for
/// other character sets, ORA-22275 for an empty locator, ORA-22922 when the value is gone. There is
/// no reading by callback: ORA-03001.
sword OCILobRead(OCISvcCtx* svchp, OCIError* errhp, OCILobLocator* locp, ub4* amtp, ub4 offset,
                 void* bufp, ub4 bufl, void*, OCICallbackLobRead cbfp, ub2 csid, ub1 csfrm) {
  return guarded(errhp, [&](ErrorRecord& record) {
    const ServiceContext& service = as_service(svchp);
    const Locator& locator = as_locator(locp);
    Attachment& attachment = service.logged_in();
    LobTransfer& transfer = attachment.transfer;
    const bool goes_on = transfer.continues(locator, Direction::Read);
    if (!goes_on) attachment.require_idle();
    if (cbfp != nullptr) fail(3001);
    if (amtp == nullptr || bufp == nullptr || bufl == 0) fail(kIllegalParameter);
    const auto begin = [&] {
      LobTransfer::Request request = request_of(locator, Direction::Read, offset, csid, csfrm);
      if (*amtp > 0) request.units = *amtp;
      transfer.begin(request);
    };
    const auto move = [&] {
      return transfer.read(*attachment.connection, static_cast<ub1*>(bufp), bufl);
    };
    return transfer_on(transfer, goes_on, amtp, kNextBufferToFetch, record, begin, move);
  });
}

/// Writes to `offset` (from 1), over what stands there and beyond the end. The buffer is as for a
/// read; the amount is in characters of a CLOB, whatever the character set, and bytes of a BLOB.
/// OCI_ONE_PIECE writes `*amtp` of them, all or nothing: ORA-24801 when the buffer has fewer.
///
/// OCI_FIRST_PIECE, any number of OCI_NEXT_PIECE, and OCI_LAST_PIECE write whole buffers one after
/// the other, with OCI_NEED_DATA and ORA-03129 before the last; only the last may be the end of a
/// character that a piece cuts. The first piece's `*amtp` announces the whole amount (ORA-24801 for
/// more, ORA-22993 for less) or is 0; each call sets it to what it has written. Until the last
/// piece the session does nothing else, as for a read; pieces of a transfer that ended early are
/// part of the transaction like any other change, and a rollback removes them.
///
/// ORA-22920 when the session has not locked the row, ORA-22925 beyond 4 GB - 1; other errors as
/// for a read.
sword OCILobWrite(OCISvcCtx* svchp, OCIError* errhp, OCILobLocator* locp, ub4* amtp, ub4 offset,
                  void* bufp, ub4 buflen, ub1 piece, void*, OCICallbackLobWrite cbfp, ub2 csid,
                  ub1 csfrm) {
  return guarded(errhp, [&](ErrorRecord& record) {
    const ServiceContext& service = as_service(svchp);
    const Locator& locator = as_locator(locp);
    Attachment& attachment = service.logged_in();
    LobTransfer& transfer = attachment.transfer;
    const bool whole = piece == OCI_ONE_PIECE;
    const bool starts = whole || piece == OCI_FIRST_PIECE;
    const bool goes_on = !starts && transfer.continues(locator, Direction::Write);
    if (!goes_on) attachment.require_idle();
    attachment.require_no_stream();
    if (cbfp != nullptr) fail(3001);
    if (piece > OCI_LAST_PIECE || starts == goes_on) fail(kIllegalParameter);
    if (amtp == nullptr || (bufp == nullptr && buflen > 0)) fail(kIllegalParameter);
    if (whole && *amtp == 0) fail(kIllegalParameter);
    const auto begin = [&] {
      LobTransfer::Request request = request_of(locator, Direction::Write, offset, csid, csfrm);
      request.exact = *amtp > 0;
      if (request.exact) request.units = *amtp;
      transfer.begin(request);
    };
    const auto move = [&] {
      const auto* source = static_cast<const ub1*>(bufp);
      const size_t size = whole ? transfer.bytes_of_all(source, buflen) : buflen;
      return transfer.write(*attachment.connection, source, size, whole || piece == OCI_LAST_PIECE);
    };
    return transfer_on(transfer, goes_on, amtp, kNextPieceToInsert, record, begin, move);
  });
}
