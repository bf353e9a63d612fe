// Attributes of handles and of parameter descriptors. An attribute's number has a meaning only
// together with the kind of its target, so the kind comes first.
// Numbers overlap between kinds (oci.h), and widths differ from attribute to attribute: writing
// four bytes into a caller's ub2 would damage what lies beside it, so that every width is spelled
// out here.
#include <cstring>
#include <string>

#include "guard.h"
#include "statement.h"

namespace oci8 {
namespace {

constexpr int kIllegalAttribute = 24315;
constexpr int kIllegalAttributeValue = 24328;

/// Where an attribute goes: the caller's variable, and its size where the caller asks for it.
struct Target {
  void* value;
  ub4* size;

  // The interface fixes each attribute's width; callers' variables need not be aligned to it.
  template <class T>
  void put(T attribute) const {
    std::memcpy(value, &attribute, sizeof attribute);
    if (size != nullptr) *size = sizeof attribute;
  }

  void put_text(const std::string& attribute) const {
    const char* data = attribute.data();
    std::memcpy(value, &data, sizeof data);
    if (size != nullptr) *size = static_cast<ub4>(attribute.size());
  }
};

// What callers ask for after each call, a failed one included, is there without a statement, too.
void get_statement(const StatementHandle& statement, ub4 attribute, const Target& target) {
  switch (attribute) {
    case OCI_ATTR_FNCODE:
      return target.put<ub4>(statement.last_call.load(std::memory_order_relaxed));
    case OCI_ATTR_ROW_COUNT:
      return target.put<ub4>(statement.row_count.load(std::memory_order_relaxed));
    case OCI_ATTR_SQLFNCODE:
      return target.put<ub2>(statement.function());
    case OCI_ATTR_PARSE_ERROR_OFFSET:
      return target.put<ub2>(statement.parse_error_offset);
    case OCI_ATTR_PREFETCH_ROWS:
      return target.put<ub4>(statement.prefetch_rows);
    case OCI_ATTR_STMT_TYPE:
      return target.put<ub2>(statement.prepared_text().type);
    case OCI_ATTR_PARAM_COUNT:
      return target.put<ub4>(statement.parameter_count());
    default:
      fail(kIllegalAttribute);
  }
}

// A descriptor is not in the table of kinds, because callers neither allocate nor free it.
void get_parameter(const ColumnInfo& column, ub4 attribute, const Target& target) {
  switch (attribute) {
    case OCI_ATTR_DATA_TYPE:
      return target.put<ub2>(column.type);
    case OCI_ATTR_DATA_SIZE:
      return target.put<ub2>(column.size);
    case OCI_ATTR_NAME:
      return target.put_text(column.name);
    case OCI_ATTR_PRECISION:
      return target.put<sb2>(column.precision);
    case OCI_ATTR_SCALE:
      // One byte and no more: the rest of a wider variable is left as its owner preset it.
      return target.put<sb1>(column.scale);
    case OCI_ATTR_IS_NULL:
      return target.put<ub1>(column.nullable ? 1 : 0);
    default:
      fail(kIllegalAttribute);
  }
}

void get_service(const ServiceContext& service, ub4 attribute, const Target& target) {
  if (attribute == OCI_ATTR_SERVER) return target.put<void*>(service.server);
  if (attribute == OCI_ATTR_SESSION) return target.put<void*>(service.session);
  fail(kIllegalAttribute);
}

/// On kinds that have no attributes, a bad handle is still told from a bad attribute.
[[noreturn]] void refuse(const void* handle, ub4 type) {
  const HandleKind* kind = find_kind(type);
  if (kind == nullptr || kind->find(handle) == nullptr) throw InvalidHandle();
  fail(kIllegalAttribute);
}

/// Of everything but statements.
void get_attribute(const void* handle, ub4 type, ub4 attribute, const Target& target) {
  switch (type) {
    case OCI_DTYPE_PARAM:
      return get_parameter(*as_parameter(handle).column, attribute, target);
    case OCI_HTYPE_SVCCTX:
      return get_service(as_service(handle), attribute, target);
    case OCI_HTYPE_SERVER: {
      const ServerHandle& server = as_server(handle);
      if (attribute != OCI_ATTR_NONBLOCKING_MODE) fail(kIllegalAttribute);
      return target.put<ub1>(server.nonblocking);
    }
    default:
      refuse(handle, type);
  }
}

// The address is checked now and again at each use: the handle may be freed in between.
void set_service(ServiceContext& service, ub4 attribute, void* value) {
  if (attribute == OCI_ATTR_SERVER) {
    as_server(value);
    service.server = value;
  } else if (attribute == OCI_ATTR_SESSION) {
    as_session(value);
    service.session = value;
  } else {
    fail(kIllegalAttribute);
  }
}

// Callers give the mode that they want; without a value the mode is switched over.
void set_server(ServerHandle& server, ub4 attribute, const void* value) {
  if (attribute != OCI_ATTR_NONBLOCKING_MODE) fail(kIllegalAttribute);
  const bool wanted = value == nullptr ? server.nonblocking == 0 : *static_cast<const ub1*>(value);
  server.nonblocking = wanted ? 1 : 0;
}

// Credentials are copied: callers release theirs before the session starts.
void set_session(SessionHandle& session, ub4 attribute, const void* value, ub4 size) {
  const bool user = attribute == OCI_ATTR_USERNAME;
  if (!user && attribute != OCI_ATTR_PASSWORD) fail(kIllegalAttribute);
  if (value == nullptr && size > 0) fail(kIllegalAttributeValue);
  (user ? session.user : session.password)
      .assign(size == 0 ? "" : static_cast<const char*>(value), size);
}

void set_statement(StatementHandle& statement, ub4 attribute, const void* value) {
  if (attribute != OCI_ATTR_PREFETCH_ROWS) fail(kIllegalAttribute);
  if (value == nullptr) fail(kIllegalAttributeValue);
  std::memcpy(&statement.prefetch_rows, value, sizeof statement.prefetch_rows);
}

void set_attribute(void* handle, ub4 type, ub4 attribute, void* value, ub4 size) {
  switch (type) {
    case OCI_HTYPE_SVCCTX:
      return set_service(as_service(handle), attribute, value);
    case OCI_HTYPE_SERVER:
      return set_server(as_server(handle), attribute, value);
    case OCI_HTYPE_SESSION:
      return set_session(as_session(handle), attribute, value, size);
    case OCI_HTYPE_STMT:
      return set_statement(as_statement(handle), attribute, value);
    default:
      refuse(handle, type);
  }
}

}  // namespace
}  // namespace oci8

using namespace oci8;

/// Reads an attribute in the width that the interface fixes for it. Texts stay the handle's, are
/// not zero-terminated, and their length goes to `sizep`. ORA-24315 for an attribute that the kind
/// does not have, ORA-24337 and ORA-24338 before the statement is prepared or described.
sword OCIAttrGet(const void* trgthndlp, ub4 trghndltyp, void* attributep, ub4* sizep, ub4 attrtype,
                 OCIError* errhp) {
  if (attributep == nullptr) return guarded(errhp, [](ErrorRecord&) -> sword { fail(24328); });
  const Target target{attributep, sizep};
  if (trghndltyp != OCI_HTYPE_STMT) {
    return guarded(errhp, [&](ErrorRecord&) {
      get_attribute(trgthndlp, trghndltyp, attrtype, target);
      return OCI_SUCCESS;
    });
  }
  // Asked after every close of a statement: too common for an exception.
  const StatementHandle* statement = pool<StatementHandle>.find(trgthndlp);
  if (statement == nullptr) return OCI_INVALID_HANDLE;
  // After a failed call its caller first reads row count and function codes of the statement, and
  // then asks for the message; the breaking thread reads them while the broken call reports.
  return guarded_keeping_record(errhp, [&](ErrorRecord&) {
    get_statement(*statement, attrtype, target);
    return OCI_SUCCESS;
  });
}

/// Sets an attribute from the caller's variable or, for handles, from the handle itself; texts are
/// `size` bytes and are copied. ORA-24315 for an attribute that cannot be set.
sword OCIAttrSet(void* trgthndlp, ub4 trghndltyp, void* attributep, ub4 size, ub4 attrtype,
                 OCIError* errhp) {
  return guarded(errhp, [&](ErrorRecord&) {
    set_attribute(trgthndlp, trghndltyp, attrtype, attributep, size);
    return OCI_SUCCESS;
  });
}

/// The descriptor of the select-list column `pos` (from 1). It belongs to the statement and lives
/// until that is prepared again, freed, or loses its session. ORA-24334 beyond the last column.
sword OCIParamGet(const void* hndlp, ub4 htype, OCIError* errhp, void** parmdpp, ub4 pos) {
  return guarded(errhp, [&](ErrorRecord& record) -> sword {
    if (htype != OCI_HTYPE_STMT) throw InvalidHandle();
    StatementHandle& statement = as_statement(hndlp);
    statement.note_call(CallCode::ParamGet);
    if (parmdpp == nullptr) fail(kIllegalAttributeValue);
    // This is how callers find the end of the select list: too common for an exception.
    if (pos > statement.parameter_count()) return note(record, OCI_ERROR, 24334);
    *parmdpp = &statement.parameter(pos);
    return OCI_SUCCESS;
  });
}
