// oci8db: creates databases and manages their accounts.
// It works on files directly, with the library's own modules and without the call interface: no
// account exists yet that it could log in to.
#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>

#include "accounts.h"
#include "sqlite_catalogue.h"
#include "sqlite_engine.h"
#include "sqlite_handle.h"

namespace {

using namespace oci8;
namespace fs = std::filesystem;

constexpr const char* kUsage =
    "usage: oci8db create       NAME [USER[/PASSWORD]]\n"
    "       oci8db add-user     NAME USER[/PASSWORD]\n"
    "       oci8db set-password NAME USER[/PASSWORD]\n"
    "       oci8db drop-user    NAME USER\n"
    "       oci8db list         NAME\n"
    "NAME is a net service name (the file NAME.db in the folder $OCI8_DATA, by default\n"
    "$XDG_DATA_HOME/oralayer or ~/.oralayer) or a path with a slash. A password that is not given\n"
    "is read from standard input; 'OPS$USER/' has none, and is the account of the operating\n"
    "system's user of that name, who logs in as /.\n";

// Exit codes: scripts tell a wrong call from a failed one.
constexpr int kFailed = 1;
constexpr int kBadUsage = 2;

struct Credentials {
  std::string user;
  std::string password;
};

/// What the user has to be told, without an Oracle number.
struct Complaint {
  std::string text;
};

/// Keeps what is typed from the screen; without a terminal does nothing.
class Unseen {
 public:
  Unseen() : terminal_(tcgetattr(STDIN_FILENO, &before_) == 0) {
    if (!terminal_) return;
    termios silent = before_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    // Flushed, so that what was typed ahead, with its echo, is not taken for the password.
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    std::cerr << "Password: " << std::flush;
  }
  ~Unseen() {
    if (!terminal_) return;
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
    std::cerr << '\n';
  }
  Unseen(const Unseen&) = delete;
  Unseen& operator=(const Unseen&) = delete;

 private:
  termios before_;
  const bool terminal_;
};

std::string read_password() {
  const Unseen unseen;
  std::string password;
  if (!std::getline(std::cin, password) || password.empty()) throw Complaint{"no password given"};
  return password;
}

// A password in the arguments can be seen by every user of the machine while the command runs;
// standard input is the way around that.
Credentials read_credentials(const std::string& argument) {
  // The first one: a password may hold slashes, a user name cannot.
  const size_t slash = argument.find('/');
  Credentials credentials{argument.substr(0, slash), {}};
  if (credentials.user.empty()) throw Complaint{"no user name given"};
  credentials.password = slash == std::string::npos ? read_password() : argument.substr(slash + 1);
  checked_account(credentials.user, credentials.password);
  return credentials;
}

/// A file that is made under a name of its own and appears under its final name complete or not
/// at all.
class NewFile {
 public:
  explicit NewFile(std::string path)
      // In the same folder, as a link cannot lead from one file system to another.
      : final_(std::move(path)), path_(final_ + ".new" + std::to_string(getpid())) {}
  // Also after appear(): the file has its final name by then, and only the temporary one goes.
  ~NewFile() { unlink(path_.c_str()); }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  const std::string& path() const { return path_; }

  /// Fails where the final name has come into being meanwhile, unlike a rename.
  void appear() const {
    if (link(path_.c_str(), final_.c_str()) != 0) {
      throw Complaint{final_ + ": " + std::strerror(errno)};
    }
  }

 private:
  const std::string final_;
  const std::string path_;
};

const char* set_variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != '\0' ? value : nullptr;
}

/// The script that starts the console has the same default: the two find each other's databases.
void choose_folder() {
  if (set_variable("OCI8_DATA") != nullptr) return;
  const char* data = set_variable("XDG_DATA_HOME");
  const char* home = set_variable("HOME");
  if (data == nullptr && home == nullptr) return;
  const std::string folder =
      data != nullptr ? std::string(data) + "/oralayer" : std::string(home) + "/.oralayer";
  setenv("OCI8_DATA", folder.c_str(), 1);
}

std::string database_path(const std::string& name) {
  std::string path = resolve_connect_string(name);
  if (path == ":memory:") throw Complaint{"a database in memory has no file"};
  return path;
}

// With the path in the message, which the Oracle error of a connect string leaves out.
SqliteOwner open_existing(const std::string& name) {
  const std::string path = database_path(name);
  if (!fs::is_regular_file(path)) throw Complaint{path + ": no such database"};
  SqliteOwner db = open_file(path, SQLITE_OPEN_READWRITE);
  if (!has_system_objects(db.get())) throw Complaint{path + ": not made by oci8db"};
  return db;
}

// SQLite would take a log of that name for the new file's own, and bring back from it what the
// former database held, its accounts included.
void refuse_remains(const std::string& path) {
  for (const char* suffix : {"-wal", "-shm", "-journal"}) {
    if (!fs::exists(path + suffix)) continue;
    throw Complaint{path + suffix + ": left of a database that is gone, or in use"};
  }
}

// The password is asked for and checked before anything is made: nothing is left behind without it.
void create(const std::string& name, const char* account) {
  const std::string path = database_path(name);
  if (fs::exists(path)) throw Complaint{path + ": already exists"};
  refuse_remains(path);
  Credentials credentials;
  if (account != nullptr) credentials = read_credentials(account);
  // Before the mask below: a folder for several users' databases keeps its usual rights.
  fs::create_directories(fs::path(path).parent_path());
  // The file holds the hashes of passwords: its owner decides who else may read it.
  umask(S_IRWXG | S_IRWXO);
  const NewFile file(path);
  // Closed before the file gets its name, so that nobody finds it half written.
  {
    const SqliteOwner db = open_file(file.path(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    create_system_objects(db.get());
    if (account != nullptr) add_account(db.get(), credentials.user, credentials.password);
    // Here, as first logins that come together would contend for it; last, so that all is in the
    // file itself.
    execute_sql(db.get(), kUseLog);
  }
  file.appear();
  std::cout << "created " << path << '\n';
}

void change_account(const std::string& command, const std::string& name,
                    const std::string& account) {
  const SqliteOwner db = open_existing(name);
  if (command == "drop-user") return drop_account(db.get(), account);
  const Credentials credentials = read_credentials(account);
  const auto change = command == "add-user" ? add_account : set_password;
  change(db.get(), credentials.user, credentials.password);
}

void list(const std::string& name) {
  const SqliteOwner db = open_existing(name);
  for (const std::string& user : list_accounts(db.get())) std::cout << user << '\n';
}

int run(int count, char** arguments) {
  const std::string command = count > 1 ? arguments[1] : "";
  if (command == "create" && (count == 3 || count == 4)) {
    create(arguments[2], count == 4 ? arguments[3] : nullptr);
  } else if (command == "list" && count == 3) {
    list(arguments[2]);
  } else if ((command == "add-user" || command == "set-password" || command == "drop-user") &&
             count == 4) {
    change_account(command, arguments[2], arguments[3]);
  } else {
    std::cerr << kUsage;
    return kBadUsage;
  }
  return 0;
}

}  // namespace

int main(int count, char** arguments) {
  try {
    choose_folder();
    return run(count, arguments);
  } catch (const Complaint& complaint) {
    std::cerr << "oci8db: " << complaint.text << '\n';
  } catch (const Failure& failure) {
    std::cerr << "oci8db: " << failure.text;
  } catch (const std::exception& error) {
    std::cerr << "oci8db: " << error.what() << '\n';
  }
  return kFailed;
}
