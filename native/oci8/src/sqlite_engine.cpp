// The engine border's Connection, on a session (sqlite_session.h). A call that a break may stop
// opens an Operation, outside of which interrupt() does nothing.
#include "sqlite_engine.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <utility>

#include "accounts.h"
#include "ascii.h"
#include "sqlite_idle.h"
#include "sqlite_statement.h"

namespace oci8 {
namespace {

constexpr std::string_view kMemory = ":memory:";

bool service_name_character(char c) {
  return is_letter(c) || is_digit(c) || std::string_view("_.$-").find(c) != std::string_view::npos;
}

// Checked before SQLite sees the name: an attach must never make a file.
// A folder or a device is no database either, whatever SQLite would make of it.
bool is_file(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

class SqliteConnection final : public Connection {
 public:
  explicit SqliteConnection(const std::string& path)
      : memory_(path == kMemory), path_(path), session_(open_session(path)) {}
  // Statements that are left keep the session's memory; its transaction ends here.
  ~SqliteConnection() override { leave_session(path_, std::move(session_)); }
  SqliteConnection(const SqliteConnection&) = delete;
  SqliteConnection& operator=(const SqliteConnection&) = delete;

  void log_in(std::string_view user, std::string_view password) override {
    const SqliteSession::Operation running(*session_);
    // A database in memory is the caller's own and has no accounts: every user is let in.
    session_->log_in(memory_ ? upper(user) : check_password(session_->db(), user, password));
  }

  void log_in_external() override {
    const SqliteSession::Operation running(*session_);
    session_->log_in(check_external(session_->db()));
  }

  std::unique_ptr<Statement> prepare(const SqlText& text) override {
    const SqliteSession::Operation running(*session_);
    return session_->attempt([&] { return std::make_unique<SqliteStatement>(session_, text); });
  }

  void commit() override { session_->commit(); }
  void rollback() override { session_->rollback(); }
  void mark() override { session_->mark(); }
  void release_mark() noexcept override { session_->release_mark(); }
  void return_to_mark() noexcept override { session_->return_to_mark(); }
  LargeName create_large(LargeName::Unit unit) override {
    session_->require_open();
    const SqliteSession::Operation running(*session_);
    LargeName made;
    SqliteSession::Change change(*session_);
    session_->attempt([&] { made = session_->large().create(unit); });
    change.keep();
    return made;
  }

  unsigned long long large_size(const LargeName& name) override {
    session_->require_open();
    const SqliteSession::Operation running(*session_);
    return session_->attempt([&] { return session_->large().size(name); });
  }

  size_t read_large(const LargeName& name, unsigned long long place, void* target,
                    size_t units) override {
    session_->require_open();
    const SqliteSession::Operation running(*session_);
    return session_->attempt([&] {
      return session_->large().read(name, place, target, units, session_->has_open_query());
    });
  }

  // Each read of the body is an operation of its own, and they do not nest.
  void in_one_view(const std::function<void()>& body) override {
    session_->require_open();
    sqlite3_stmt* row = nullptr;
    {
      const SqliteSession::Operation running(*session_);
      row = session_->large().view();
    }
    const ResetOnExit view(row);
    body();
  }

  void write_large(const LargeName& name, unsigned long long place, const void* source,
                   size_t units) override {
    change_large(name, true, [&](LargeStore& store) { store.write(name, place, source, units); });
  }

  void write_part(const LargeName& name, unsigned long long place, const void* source,
                  size_t units) override {
    change_large(name, false, [&](LargeStore& store) { store.write(name, place, source, units); });
  }

  void remove_large(const LargeName& name) override {
    change_large(name, true, [&](LargeStore& store) { store.remove(name); });
  }

  void interrupt() noexcept override { session_->interrupt(); }

 private:
  // The session's transaction holds the lock for writing, which stands for that of the value's row.
  // A savepoint costs more than a part of a stream: of each page that has to leave its memory,
  // SQLite keeps a copy if the page was changed before the latest savepoint.
  template <class Body>
  void change_large(const LargeName& name, bool as_a_whole, Body&& body) {
    session_->require_open();
    if (name.id == 0) fail(22275);
    if (!session_->in_transaction()) fail(22920);
    const SqliteSession::Operation running(*session_);
    SqliteSession::Change change(*session_);
    std::optional<SqliteSession::Whole> whole;
    if (as_a_whole) whole.emplace(*session_);
    session_->attempt([&] { body(session_->large()); });
    if (whole) whole->keep();
    change.keep();
  }

  // What a database in memory may do without: accounts.
  const bool memory_;
  const std::string path_;
  std::shared_ptr<SqliteSession> session_;
};

// Where the process goes afterwards must not lead to another file. Absolute names are also none
// that SQLite would read as URIs.
std::string absolute(const std::string& path) {
  std::error_code error;
  const std::filesystem::path found = std::filesystem::absolute(path, error);
  if (error) fail(12154);
  return found.string();
}

}  // namespace

std::string resolve_connect_string(std::string_view connect_string) {
  if (connect_string == kMemory) return std::string(kMemory);
  const bool usable = connect_string.find('\0') == std::string_view::npos;
  if (usable && connect_string.find('/') != std::string_view::npos) {
    return absolute(std::string(connect_string));
  }
  // The characters of a name cannot lead out of the folder.
  const char* folder = std::getenv("OCI8_DATA");
  const bool named =
      !connect_string.empty() && std::ranges::all_of(connect_string, service_name_character);
  if (!named || folder == nullptr || *folder == '\0') fail(12154);
  return absolute(std::string(folder) + '/' + std::string(connect_string) + ".db");
}

std::unique_ptr<Connection> open_database(std::string_view connect_string) {
  const std::string path = resolve_connect_string(connect_string);
  // The server's code for a name that leads nowhere.
  if (path != kMemory && !is_file(path)) fail(12154);
  return std::make_unique<SqliteConnection>(path);
}

}  // namespace oci8
