// The database has accounts of its own because the engine has none: a file that can be opened can
// be read. A login is therefore no protection of the file against its reader; it decides which
// sessions a client program gets, and under which name.
#include "accounts.h"

#include <crypt.h>
#include <pwd.h>
#include <sys/random.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <optional>

#include "ascii.h"
#include "error.h"
#include "sqlite_handle.h"

namespace oci8 {
namespace {

// The limits of the server's release 8. A longer password could not be stored there either, and the
// fixed limit lets a password's copy live on the stack, where it can be wiped.
constexpr size_t kMaxName = 30;
constexpr size_t kMaxPassword = 30;
constexpr size_t kSaltSize = 16;
// Salted SHA-512: strong enough, and quick enough for programs that log in many sessions.
constexpr std::string_view kMethod = "$6$";
constexpr std::string_view kExternalPrefix = "OPS$";
// What an unknown user's password is compared with, so that the answer takes as long.
constexpr const char* kNobodySalt = "$6$0000000000000000$";

bool in_name(char c) {
  return is_letter(c) || is_digit(c) || std::strchr("_$#.-", c) != nullptr;
}

// The name in upper case. Names of the operating system's users, which may hold points and hyphens,
// must be possible behind "OPS$".
std::string checked_name(std::string_view user) {
  if (user.empty()) fail(987);
  if (user.size() > kMaxName) fail(972);
  if (!is_letter(user.front())) fail(987);
  for (char c : user) {
    if (c == '\0' || !in_name(c)) fail(911);
  }
  return upper(user);
}

// A password's copy with the terminator that crypt_r needs, wiped when it has served.
class Secret {
 public:
  // The copy is cut to the limit rather than refused, so that the check of an overlong password
  // takes one hash as well; usable() refuses it afterwards.
  explicit Secret(std::string_view password) {
    std::memcpy(bytes_, password.data(), std::min(password.size(), kMaxPassword));
  }
  ~Secret() { explicit_bzero(bytes_, sizeof bytes_); }
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;

  const char* bytes() const { return bytes_; }

 private:
  char bytes_[kMaxPassword + 1] = {};
};

// crypt_r stops at a zero byte: what stands behind one must not be ignored.
bool usable(std::string_view password) {
  return !password.empty() && password.size() <= kMaxPassword &&
         password.find('\0') == std::string_view::npos;
}

std::string hash(std::string_view password, const char* salt) {
  // 32 KB of working memory are too much for an embedding program's stack.
  // crypt in its place would need none, but has one static buffer for all threads.
  const auto work = std::make_unique<crypt_data>();
  const Secret secret(password);
  const char* result = crypt_r(secret.bytes(), salt, work.get());
  if (result == nullptr || result[0] == '*') fail(600, "crypt");
  std::string text = result;
  explicit_bzero(work.get(), sizeof *work);
  return text;
}

// 64 letters divide the values of a byte evenly: every letter is as likely as any other.
std::string new_salt() {
  constexpr std::string_view kLetters =
      "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  unsigned char random[kSaltSize];
  // A call for at most 256 bytes is not interrupted once the system's pool is ready, see
  // getrandom(2): anything but a full answer is a broken system and not a case for another try.
  if (getrandom(random, sizeof random, 0) != static_cast<ssize_t>(sizeof random)) {
    fail(600, "getrandom");
  }
  std::string salt(kMethod);
  for (unsigned char byte : random) salt += kLetters[byte % kLetters.size()];
  return salt + '$';
}

// An empty hash equals no password's hash: such an account is the operating system's to let in.
std::string stored_hash(std::string_view password) {
  if (password.empty()) return {};
  return hash(password, new_salt().c_str());
}

// Looks at every byte, whatever differs first.
bool same(std::string_view left, std::string_view right) {
  unsigned difference = left.size() == right.size() ? 0 : 1;
  for (size_t i = 0; i < left.size() && i < right.size(); ++i) {
    difference |= static_cast<unsigned char>(left[i] ^ right[i]);
  }
  return difference == 0;
}

// Runs a change with the values bound in order; false where it met no row.
// sqlite3_changes counts the rows of the connection's last change that has finished, so it is asked
// directly behind the step.
bool change(sqlite3* db, std::string_view sql, std::string_view first, std::string_view second) {
  const SqliteStatementOwner statement = prepare_sql(db, sql);
  bind_text(statement.get(), 1, first);
  if (sqlite3_bind_parameter_count(statement.get()) > 1) bind_text(statement.get(), 2, second);
  step_sql(statement.get());
  return sqlite3_changes(db) > 0;
}

// A row of the table; `number` is never used again for another account.
// AUTOINCREMENT in the table below is what keeps numbers from being given out twice: UID shows the
// number to programs, which may have stored it.
struct Account {
  std::string hash;
  long long number = 0;
};

std::optional<Account> find_account(sqlite3* db, const std::string& name) {
  const SqliteStatementOwner statement =
      prepare_sql(db, "SELECT hash, number FROM \"OCI8$ACCOUNTS\" WHERE name = ?1");
  bind_text(statement.get(), 1, name);
  if (!step_sql(statement.get())) return std::nullopt;
  return Account{std::string(column_text(statement.get(), 0)),
                 sqlite3_column_int64(statement.get(), 1)};
}

// The operating system's user that this process acts for; empty where it has no name.
std::string system_user() {
  // Long enough for any entry of a local user; an entry that does not fit counts as no name, and
  // the login is refused.
  char names[4096];
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(geteuid(), &entry, names, sizeof names, &found) != 0 || found == nullptr)
    return {};
  return found->pw_name;
}

}  // namespace

// The prefix of the name keeps the table out of the user's sight: the dialect finds no table that
// begins with OCI8$.
void create_accounts_table(sqlite3* db) {
  execute_sql(db,
              "CREATE TABLE IF NOT EXISTS \"OCI8$ACCOUNTS\"(number INTEGER PRIMARY KEY "
              "AUTOINCREMENT, name TEXT NOT NULL UNIQUE, hash TEXT NOT NULL)");
}

std::string checked_account(std::string_view user, std::string_view password) {
  std::string name = checked_name(user);
  // The operating system vouches for names with the prefix only: every other account would be
  // locked without a password.
  const bool external = password.empty() && name.starts_with(kExternalPrefix);
  if (!external && !usable(password)) fail(988);
  return name;
}

void add_account(sqlite3* db, std::string_view user, std::string_view password) {
  const std::string name = checked_account(user, password);
  const std::string hashed = stored_hash(password);
  if (!change(db, "INSERT OR IGNORE INTO \"OCI8$ACCOUNTS\"(name, hash) VALUES(?1, ?2)", name,
              hashed)) {
    fail(1920, name);
  }
}

void set_password(sqlite3* db, std::string_view user, std::string_view password) {
  const std::string name = checked_account(user, password);
  const std::string hashed = stored_hash(password);
  if (!change(db, "UPDATE \"OCI8$ACCOUNTS\" SET hash = ?2 WHERE name = ?1", name, hashed)) {
    fail(1918, name);
  }
}

void drop_account(sqlite3* db, std::string_view user) {
  const std::string name = checked_name(user);
  if (!change(db, "DELETE FROM \"OCI8$ACCOUNTS\" WHERE name = ?1", name, {})) fail(1918, name);
}

std::vector<std::string> list_accounts(sqlite3* db) {
  std::vector<std::string> names;
  const SqliteStatementOwner statement =
      prepare_sql(db, "SELECT name FROM \"OCI8$ACCOUNTS\" ORDER BY name");
  while (step_sql(statement.get())) names.emplace_back(column_text(statement.get(), 0));
  return names;
}

long long account_number(sqlite3* db, std::string_view user) {
  const std::optional<Account> account = find_account(db, upper(user));
  return account ? account->number : 0;
}

// Passwords are compared with their case. Every refusal takes one hash, as an acceptance does.
std::string check_password(sqlite3* db, std::string_view user, std::string_view password) {
  // Folded only, not checked as a new name is: whatever no account can be called is simply unknown,
  // with the one answer that does not tell why.
  std::string name = upper(user);
  const std::optional<Account> account = find_account(db, name);
  const bool known = account && !account->hash.empty();
  const std::string hashed = hash(password, known ? account->hash.c_str() : kNobodySalt);
  if (!known || !usable(password) || !same(hashed, account->hash)) fail(1017);
  return name;
}

std::string check_external(sqlite3* db) {
  const std::string user = system_user();
  std::string name = upper(std::string(kExternalPrefix) + user);
  if (user.empty() || !find_account(db, name)) fail(1017);
  return name;
}

}  // namespace oci8
