// Servers, sessions, transactions and the break.
// Four steps make a session: attach, set the server on the service context, begin, set the session
// on the context. Each can be undone by itself, which is why each call checks what the others have
// left.
#include "guard.h"

using namespace oci8;

/// Opens the database that the connect string (`dblink_len` bytes) names. On a server handle that
/// is attached without a session the former database is closed: callers log in again after a
/// refused login without detaching. ORA-12154, ORA-24309.
sword OCIServerAttach(OCIServer* srvhp, OCIError* errhp, const text* dblink, sb4 dblink_len, ub4) {
  return guarded(errhp, [&](ErrorRecord&) {
    ServerHandle& server = as_server(srvhp);
    std::string_view name;
    if (dblink != nullptr && dblink_len > 0) {
      name = {reinterpret_cast<const char*>(dblink), static_cast<size_t>(dblink_len)};
    }
    server.attach(name);
    return OCI_SUCCESS;
  });
}

/// Ends a live session, which commits, and closes the database. ORA-03114 without one.
sword OCIServerDetach(OCIServer* srvhp, OCIError* errhp, ub4) {
  return guarded(errhp, [&](ErrorRecord&) {
    ServerHandle& server = as_server(srvhp);
    const bool attached = server.attachment() != nullptr;
    server.detach();
    if (!attached) fail(3114);
    return OCI_SUCCESS;
  });
}

/// Starts the session of `usrhp` on the server of the service context; the caller then makes it
/// the context's session. ORA-24324 without a server handle, ORA-24327 or the error of the last
/// attach without a database, ORA-24313 with a session on it, ORA-01017 for bad credentials.
sword OCISessionBegin(OCISvcCtx* svchp, OCIError* errhp, OCISession* usrhp, ub4 credt, ub4) {
  return guarded(errhp, [&](ErrorRecord&) {
    const ServiceContext& service = as_service(svchp);
    SessionHandle& session = as_session(usrhp);
    ServerHandle& server = service.server_handle();
    Attachment& attachment = server.attachment_for_login();
    if (attachment.session != nullptr || session.server != nullptr) fail(24313);
    if (credt == OCI_CRED_EXT) {
      attachment.connection->log_in_external();
    } else if (credt == OCI_CRED_RDBMS) {
      attachment.connection->log_in(session.user, session.password);
    } else {
      fail(24328);
    }
    attachment.session = &session;
    session.server = &server;
    return OCI_SUCCESS;
  });
}

/// Ends the session, which commits; its statements lose their runs. ORA-01012 for a session that
/// is not live on the context's server: one whose start was refused, for example.
sword OCISessionEnd(OCISvcCtx* svchp, OCIError* errhp, OCISession* usrhp, ub4) {
  return guarded(errhp, [&](ErrorRecord&) {
    const ServiceContext& service = as_service(svchp);
    const SessionHandle& session = as_session(usrhp);
    ServerHandle& server = service.server_handle();
    if (session.server != &server) fail(1012);
    server.attachment()->end_session();
    return OCI_SUCCESS;
  });
}

/// Commits. ORA-24324, ORA-03114 or ORA-01012 without a live session, ORA-03127 while a transfer of
/// a LOB is open.
sword OCITransCommit(OCISvcCtx* svchp, OCIError* errhp, ub4) {
  return guarded(errhp, [&](ErrorRecord&) {
    Attachment& attachment = as_service(svchp).live();
    attachment.require_no_stream();
    attachment.connection->commit();
    return OCI_SUCCESS;
  });
}

/// Rolls back; an open transfer of a LOB ends, and what it wrote goes with the rest. Errors as for
/// the commit otherwise.
sword OCITransRollback(OCISvcCtx* svchp, OCIError* errhp, ub4) {
  return guarded(errhp, [&](ErrorRecord&) {
    Attachment& attachment = as_service(svchp).logged_in();
    attachment.require_no_stream();
    attachment.transfer.end();
    attachment.connection->rollback();
    return OCI_SUCCESS;
  });
}

/// Stops the call that runs on the service context or server with ORA-01013, and ends a transfer of
/// a LOB that is open between calls; without either, does nothing and succeeds. Any thread.
/// ORA-24324 and ORA-03114 where nothing can be running.
sword OCIBreak(void* hndlp, OCIError* errhp) {
  // A success leaves the diagnostic alone: the broken call reports with the same error handle,
  // and what it says must not be lost to the break.
  return guarded_keeping_record(errhp, [&](ErrorRecord&) {
    const ServiceContext* service = pool<ServiceContext>.find(hndlp);
    ServerHandle& server = service != nullptr ? service->server_handle() : as_server(hndlp);
    if (!server.interrupt()) fail(3114);
    return OCI_SUCCESS;
  });
}
