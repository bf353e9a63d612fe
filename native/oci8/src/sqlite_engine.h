// The engine on SQLite: what the command that manages databases shares with the connections.
// The connections themselves are reached through open_database (engine.h) only.
#ifndef OCI8_SQLITE_ENGINE_H
#define OCI8_SQLITE_ENGINE_H

#include <string>
#include <string_view>

namespace oci8 {

/// The file that a connect string stands for (see open_database), whether or not it is there;
/// ":memory:" as it is. ORA-12154 for what is no connect string, or a net service name without
/// the environment variable OCI8_DATA.
std::string resolve_connect_string(std::string_view connect_string);

}  // namespace oci8

#endif
