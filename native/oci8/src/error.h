// Oracle errors inside the client library: raised as C++ exceptions, turned into the status and
// the error record of the call at the interface's border (never beyond it).
// Codes and meanings are those of the server's documentation of error messages; sqlite_errors.h
// maps what the engine reports. An offset counts bytes from the beginning of the text that the
// caller prepared, and becomes OCI_ATTR_PARSE_ERROR_OFFSET.
#ifndef OCI8_ERROR_H
#define OCI8_ERROR_H

#include <string>
#include <string_view>

namespace oci8 {

/// An Oracle error under way to the caller's error handle.
struct Failure {
  int code = 0;
  std::string text;  // complete: "ORA-00942: table or view does not exist\n"
  int offset = -1;  // byte offset into the statement, -1 where it is not known
};

/// The usual meaning of an Oracle error number, with "%s" where an argument belongs; a generic
/// text for a number that the catalogue does not know.
std::string_view message_template(int code);

/// "ORA-NNNNN: meaning\n", with `argument` in the place of the template's "%s".
std::string error_text(int code, std::string_view argument = {});

/// Raises the error `code`.
[[noreturn]] void fail(int code, std::string_view argument = {}, int offset = -1);

}  // namespace oci8

#endif
