// An idle session has the file open, and others may do with a file that no program has logged in to
// what they like. So that they find it as if it were closed:
// - The write-ahead log is empty: the file is complete without it, and what is put in the file's
//   place meets no log of its predecessor.
// - It lasts for a moment only, and is not used again for a file that was changed or replaced by
//   other means.
// - It ends before the process does, and before the process forks: SQLite's locks are the
//   process's own, and a child must find no connection that claims to have them. Where a client is
//   logged in at a fork, the child can no longer open the file.
#include "sqlite_idle.h"

#include <pthread.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <new>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace oci8 {
namespace {

using Clock = std::chrono::steady_clock;

// Long enough for a program to log in again, short enough to go unnoticed.
constexpr std::chrono::milliseconds kStay{100};
constexpr size_t kMost = 8;

/// What tells a file from one that has taken its place, and shows writes past SQLite.
struct FileState {
  dev_t device;
  ino_t inode;
  off_t size;
  time_t seconds;
  long nanoseconds;

  bool operator==(const FileState&) const = default;
};

std::optional<FileState> state_of(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return std::nullopt;
  return FileState{status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
                   status.st_mtim.tv_nsec};
}

/// A file that a client uses.
struct Used {
  std::string path;
  dev_t device;
  ino_t inode;
  bool inherited;  // by the parent, when this process was forked
};

struct Idle {
  std::string path;
  FileState file;
  Clock::time_point until;
  std::shared_ptr<SqliteSession> session;
};

/// Sessions end under the lock: who opens their file next must not meet one that is just ending.
class IdleSessions {
 public:
  /// Notes a client's use of a file. ORA-03113 where the process has inherited one from its parent:
  /// SQLite would rely on locks that only the parent has, and what is committed could be lost.
  void begin_use(const std::string& path) {
    const std::optional<FileState> file = state_of(path);
    if (!file) return;  // a database in memory
    const std::lock_guard lock(mutex_);
    const auto same = [&](const Used& u) {
      return u.inherited && u.device == file->device && u.inode == file->inode;
    };
    if (std::ranges::any_of(used_, same)) {
      throw Failure{3113, error_text(3113) + path + " was in use when this process was forked\n"};
    }
    used_.push_back({path, file->device, file->inode, false});
  }
  /// False for a file that this process has not begun to use itself.
  bool end_use(const std::string& path) noexcept {
    const std::lock_guard lock(mutex_);
    const auto own = [&](const Used& u) { return !u.inherited && u.path == path; };
    const auto found = std::ranges::find_if(used_, own);
    if (found == used_.end()) return false;
    used_.erase(found);
    return true;
  }

  std::shared_ptr<SqliteSession> take(const std::string& path) {
    const std::optional<FileState> file = state_of(path);
    const std::lock_guard lock(mutex_);
    std::erase_if(idle_, [&](const Idle& i) { return i.path == path && file != i.file; });
    const auto found =
        std::find_if(idle_.rbegin(), idle_.rend(), [&](const Idle& i) { return i.path == path; });
    if (found == idle_.rend()) return nullptr;
    std::shared_ptr<SqliteSession> session = std::move(found->session);
    idle_.erase(std::next(found).base());
    return session;
  }

  void keep(const std::string& path, std::shared_ptr<SqliteSession> session) {
    const std::optional<FileState> file = state_of(path);
    const std::lock_guard lock(mutex_);
    if (!file || ended_ || idle_.size() == kMost) return;
    idle_.push_back({path, *file, Clock::now() + kStay, std::move(session)});
    if (ending_) return;
    try {
      std::thread([this] { end_in_time(); }).detach();
      ending_ = true;
    } catch (const std::system_error&) {
      idle_.clear();
    }
  }

  /// At the end of the process: what is left from here on is closed at once.
  void end() {
    const std::lock_guard lock(mutex_);
    ended_ = true;
    idle_.clear();
  }

  void before_fork() {
    mutex_.lock();
    idle_.clear();
  }
  void after_fork() { mutex_.unlock(); }
  void after_fork_in_child() {
    ending_ = false;  // the thread is the parent's
    for (Used& used : used_) used.inherited = true;
    mutex_.unlock();
  }

 private:
  // As long as there is something to end; the next idle session starts another thread.
  void end_in_time() {
    std::unique_lock lock(mutex_);
    while (!idle_.empty()) {
      const Clock::time_point until = idle_.front().until;
      if (until <= Clock::now()) {
        idle_.erase(idle_.begin());
        continue;
      }
      lock.unlock();
      std::this_thread::sleep_until(until);
      lock.lock();
    }
    ending_ = false;
  }

  std::mutex mutex_;
  std::vector<Idle> idle_;  // the one that was left last at the end
  std::vector<Used> used_;
  bool ending_ = false;  // a thread runs
  bool ended_ = false;
};

IdleSessions& idle_sessions();

struct AtExit {
  ~AtExit() { idle_sessions().end(); }
};

// Never destroyed: other threads may go on while the process ends.
IdleSessions& idle_sessions() {
  static auto* const sessions = [] {
    const int result =
        pthread_atfork([] { idle_sessions().before_fork(); }, [] { idle_sessions().after_fork(); },
                       [] { idle_sessions().after_fork_in_child(); });
    if (result != 0) throw std::bad_alloc();
    return new IdleSessions;
  }();
  static const AtExit at_exit;
  return *sessions;
}

}  // namespace

std::shared_ptr<SqliteSession> open_session(const std::string& path) {
  IdleSessions& sessions = idle_sessions();
  sessions.begin_use(path);
  try {
    std::shared_ptr<SqliteSession> session = sessions.take(path);
    if (session == nullptr) return std::make_shared<SqliteSession>(path);
    session->resume();
    return session;
  } catch (...) {
    sessions.end_use(path);
    throw;
  }
}

void leave_session(const std::string& path, std::shared_ptr<SqliteSession> session) noexcept {
  session->close();
  const bool own = idle_sessions().end_use(path);
  try {
    // Statements that are left keep it to themselves.
    const bool alone = session.use_count() == 1;
    if (own && alone && session->rest()) idle_sessions().keep(path, std::move(session));
  } catch (const std::bad_alloc&) {
    // Closed at once, as `session` ends.
  }
}

}  // namespace oci8
