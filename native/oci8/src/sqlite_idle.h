// Sessions that nobody is logged in to, kept for a moment: a program that logs in for each of its
// tasks would otherwise have the file opened, its schema read and all functions registered each
// time, which costs many times what the login does.
#ifndef OCI8_SQLITE_IDLE_H
#define OCI8_SQLITE_IDLE_H

#include <memory>
#include <string>

#include "sqlite_session.h"

namespace oci8 {

/// A session on the file `path`: one that was left a moment ago, or a new one. Any thread.
std::shared_ptr<SqliteSession> open_session(const std::string& path);

/// Ends the client's use of a session that open_session has given; the file is closed a moment
/// later, unless somebody opens it again. Any thread.
void leave_session(const std::string& path, std::shared_ptr<SqliteSession> session) noexcept;

}  // namespace oci8

#endif
