// SQLite has one writer at a time. Sessions of this process take turns in a queue (sqlite_queue.h),
// other processes are waited for with pauses, and both count against one timeout (ORA-00054).
// Readers do not wait for writers: in WAL mode an open query goes on seeing the database as it was
// when it began. Of what its own session changes SQLite would show it all, so that it is read to
// its end before that.
#include "sqlite_session.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <utility>

#include "declared_type.h"
#include "sqlite_catalogue.h"
#include "sqlite_control.h"
#include "sqlite_functions.h"
#include "sqlite_rowid.h"

namespace oci8 {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

// Long enough for another session's ordinary transaction, short enough for a person who waits.
// The environment variable OCI8_LOCK_TIMEOUT (milliseconds) overrides it.
constexpr milliseconds kLockTimeout{5000};
// How long a session waits for its turn before it looks whether it is to stop.
constexpr milliseconds kTurn{20};
// Between two attempts at a lock. Of different length each time, because what waits in different
// processes must not keep in step; never growing, because that would favour who came last.
constexpr microseconds kShortestPause{500};
constexpr long long kPauseSpread = 1000;

// Instructions of SQLite's virtual machine between two looks at the break: a fraction of a
// millisecond, and no measurable cost.
constexpr int kProgressSteps = 1000;

// How long a change may take to notice by itself that it is to stop; see must_stop.
constexpr milliseconds kGentleTime{300};

// Pages of the log from which on a commit moves them into the file.
constexpr int kShortLog = 1000;
// How often and how long a commit waits for those who read from a long log, while nobody can write.
constexpr int kReadersWaits = 4;
constexpr int kReadersWaitMs = 25;

// In the order of enum Control. The names are ones that no client chooses by accident.
constexpr const char* kControls[] = {"BEGIN IMMEDIATE",
                                     "COMMIT",
                                     "ROLLBACK",
                                     "SAVEPOINT \"oci8 mark\"",
                                     "RELEASE \"oci8 mark\"",
                                     "ROLLBACK TO \"oci8 mark\"",
                                     "SAVEPOINT \"oci8 step\"",
                                     "RELEASE \"oci8 step\"",
                                     "ROLLBACK TO \"oci8 step\""};

milliseconds lock_timeout() {
  const char* setting = std::getenv("OCI8_LOCK_TIMEOUT");
  int value = 0;
  if (setting == nullptr) return kLockTimeout;
  const auto [end, error] = std::from_chars(setting, setting + std::strlen(setting), value);
  return error == std::errc() && value >= 0 ? milliseconds(value) : kLockTimeout;
}

// What the clock's last digits say is as good as chance.
microseconds pause_by_chance() {
  const long long chance = std::chrono::steady_clock::now().time_since_epoch().count();
  return kShortestPause + microseconds(chance % kPauseSpread);
}

// SQLite does not wait where each of two sessions could be waiting for the other.
void use_log(sqlite3* db) {
  const auto until = std::chrono::steady_clock::now() + lock_timeout();
  for (;;) {
    try {
      return execute_sql(db, kUseLog);
    } catch (const Failure& raised) {
      if (raised.code != 54 || std::chrono::steady_clock::now() >= until) throw;
    }
    std::this_thread::sleep_for(pause_by_chance());
  }
}

SqliteOwner open_database_file(const std::string& path) {
  const bool memory = path == ":memory:";
  // Never CREATE: attaching must not make a file.
  SqliteOwner db = open_file(path, SQLITE_OPEN_READWRITE | (memory ? SQLITE_OPEN_MEMORY : 0));
  if (memory) {
    create_system_objects(db.get());
    return db;
  }
  if (!has_system_objects(db.get())) {
    throw Failure{1251, error_text(1251) + path + " was not made by oci8db\n"};
  }
  // Not before: the file of somebody else stays as it is.
  use_log(db.get());
  LargeStore::create_tables(db.get());
  return db;
}

}  // namespace

SqliteSession::SqliteSession(const std::string& path)
    : db_(open_database_file(path)),
      schema_(db(), user_),
      sequences_(*this),
      large_(db()),
      queue_(WriteQueue::of(sqlite3_db_filename(db(), "main"))),
      lock_timeout_(lock_timeout()) {
  register_all();
  prepare_controls();
  renew_indexes();
}

SqliteSession::~SqliteSession() {
  close();
}

void SqliteSession::register_all() {
  register_functions(db(), &user_);
  register_catalogue_functions(db());
  protect_system_objects(db());
  register_rowid_functions(db());
  register_control_functions(db());
  sequences_.register_functions();
  large_.register_functions();
  // In the place of the plain timeout that open_file has set, which no break could end.
  check(db(), sqlite3_busy_handler(db(), on_busy, this));
  sqlite3_progress_handler(db(), kProgressSteps, on_progress, this);
  sqlite3_rollback_hook(db(), on_rollback, this);
  sqlite3_wal_hook(db(), on_log, this);
}

// Once for all transactions: they are most of the statements that run between small changes.
void SqliteSession::prepare_controls() {
  static_assert(std::size(kControls) == std::tuple_size_v<decltype(controls_)>);
  for (size_t i = 0; i < controls_.size(); ++i) controls_[i] = prepare_sql(db(), kControls[i]);
}

// Indexes on expressions hold what the functions gave when rows were written, and rows that they
// would give otherwise now could neither be found nor deleted.
void SqliteSession::renew_indexes() {
  if (sqlite3_db_filename(db(), "main")[0] == '\0' || function_version(db()) >= kFunctionVersion) {
    return;
  }
  const std::vector<std::string> names = expression_indexes(db());
  if (names.empty()) return;
  try {
    Change change(*this);
    for (const std::string& name : names) execute_sql(db(), "REINDEX " + quote_name(name));
    note_function_version(db());
    change.commit();
  } catch (const Failure& raised) {
    // Rows that are equal now and were not: such an index can only stay as it is.
    if (raised.code != 1) throw;
  }
}

void SqliteSession::log_in(std::string user) {
  if (user != user_) cache_.clear();  // a name in a text may be the user's
  user_ = std::move(user);
  sequences_.forget();
}

// Runs also where the client has gone without a word: what it did not commit is not kept.
void SqliteSession::close() noexcept {
  if (!closed_ && in_transaction()) run(Control::Rollback);
  closed_ = true;
}

// Empties the log, as closing the file would, without waiting for anybody. What is not there is
// empty.
bool SqliteSession::rest() noexcept {
  const char* file = sqlite3_db_filename(db(), "main");
  if (file == nullptr || *file == '\0') return false;  // a database in memory ends with its session
  int moved = 0;
  if (sqlite3_file_control(db(), "main", SQLITE_FCNTL_HAS_MOVED, &moved) != SQLITE_OK || moved) {
    return false;
  }
  struct stat log;
  if (stat(sqlite3_filename_wal(file), &log) != 0 || log.st_size == 0) return true;
  sqlite3_busy_handler(db(), nullptr, nullptr);
  return sqlite3_wal_checkpoint_v2(db(), "main", SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr) ==
         SQLITE_OK;
}

void SqliteSession::resume() {
  check(db(), sqlite3_busy_handler(db(), on_busy, this));
  lock_timeout_ = lock_timeout();
  lost_ = false;
  forget_savepoints();
  closed_ = false;
}

// Gives SQLite's result instead of raising, for callers that have to clean up first.
int SqliteSession::run(Control control) {
  sqlite3_stmt* statement = controls_[static_cast<size_t>(control)].get();
  const bool ends = control == Control::Commit || control == Control::Rollback;
  const bool lost = lost_;
  // SQLite could still answer a break when the control has done its work.
  in_control_ = true;
  // Controls have no rows: anything but DONE is an error.
  const int stepped = sqlite3_step(statement);
  in_control_ = false;
  sqlite3_reset(statement);
  if (ends) {
    // What is given up here is the caller's to tell.
    lost_ = lost;
    queue_->released();
  }
  return stepped == SQLITE_DONE ? SQLITE_OK : stepped;
}

// Of each page that was changed before a savepoint and has to leave memory behind it, SQLite puts a
// copy into another file. Once that may have been done to as many as fit in memory, those in memory
// go into the log before the next savepoint, where they cost no copy. Not before each: pages that
// change with every row would go there every time.
void SqliteSession::open_savepoint(Control savepoint) {
  constexpr int kPagesInMemory = 500;  // 2 MB, SQLite's default
  int written = 0;
  int most = 0;
  const auto count = [&](bool anew) {
    return sqlite3_db_status(db(), SQLITE_DBSTATUS_CACHE_SPILL, &written, &most, anew);
  };
  if (count(false) == SQLITE_OK && written >= kPagesInMemory) {
    // What cannot be written now cannot be either when it is due, and is told then.
    sqlite3_db_cacheflush(db());
    count(true);
  }
  check(db(), run(savepoint));
}

// The lock is taken at the transaction's first change, not at its first write to a page: SQLite
// could otherwise refuse it in the middle of the statement, where waiting does not help any more.
void SqliteSession::begin(bool wait) {
  newest_savepoint_.clear();
  // A query that began before the latest commit of another session would keep this one out.
  read_out();
  start_waiting();
  if (!wait) wait_until_ = Clock::now();
  const int result = begin_in_turn();
  place_ = nullptr;
  // A wait that a break has ended looks like a busy database.
  if (result != SQLITE_OK && stopping()) fail(1013);
  if (result == SQLITE_BUSY) fail(54);
  check(db(), result);
  // Read under the lock, so that a change can compare its translation with it and nobody can alter
  // a table in between.
  try {
    transaction_schema_ = schema_.version();
  } catch (...) {
    // Whoever began keeps nothing yet that would end it.
    run(Control::Rollback);
    throw;
  }
}

// The place is given up with the lock in hand: the next one in turn then asks for it.
int SqliteSession::begin_in_turn() {
  WriteQueue::Place place(*queue_);
  place_ = &place;
  unkept_ = true;
  return await_turn() ? run(Control::Begin) : SQLITE_BUSY;
}

bool SqliteSession::await_turn() {
  while (!place_->first_within(kTurn)) {
    if (!may_wait()) return false;
  }
  return true;
}

// A client that did not read the text of the error that lost its changes must not take the rest
// of the transaction for all of it.
void SqliteSession::commit() {
  if (lost_) {
    rollback();
    fail(2091);
  }
  forget_savepoints();
  if (!in_transaction()) return;
  const int result = run(Control::Commit);
  if (result == SQLITE_OK) return;
  // A transaction that could not be committed (a deferred foreign key, a full disk) never stays
  // open: the client has been told that it is over.
  Failure failure = sqlite_failure(db(), result);
  rollback();
  throw Failure{2091, error_text(2091) + failure.text};
}

void SqliteSession::rollback() {
  forget_savepoints();
  if (in_transaction()) read_out_before_undo();
  lost_ = false;
  lost_at_mark_ = false;
  // The reading may have cost the transaction.
  if (in_transaction()) check(db(), run(Control::Rollback));
}

void SqliteSession::forget_savepoints() {
  marked_ = false;
  early_savepoints_.clear();
  early_at_mark_.clear();
}

void SqliteSession::leave(const OpenQuery& query) noexcept {
  std::erase(open_, &query);
  if (open_.empty()) large_.let_go();
}

void SqliteSession::read_out() {
  while (!open_.empty()) {
    open_.back()->read_out();
    if (stopping()) fail(1013);
  }
}

// A break ends the queries here, not what has to be undone. Those that cannot be read out go on
// with what is there afterwards.
void SqliteSession::read_out_before_undo() noexcept {
  if (open_.empty()) return;
  const Operation running(*this);
  try {
    while (!open_.empty()) open_.back()->read_out();
  } catch (...) {
  }
}

// What readers do not need any more goes into the file, and where they need nothing of it the next
// change begins the log anew. Where one query of others follows another that moment never comes by
// itself: now and then it has to be waited for, with the lock for writing. More than once, because
// a reader's next query may take the place in the log that SQLite waits for; it reads the latest
// state then, and is not waited for any more.
void SqliteSession::empty_log(int pages) {
  if (pages < kShortLog) return;
  // The commit has succeeded, whatever becomes of this.
  const auto move = [this](int mode) {
    return sqlite3_wal_checkpoint_v2(db(), "main", mode, nullptr, nullptr);
  };
  move(SQLITE_CHECKPOINT_PASSIVE);
  if (!queue_->log_is_long(pages)) return;
  sqlite3_busy_timeout(db(), kReadersWaitMs);
  int waits = 0;
  while (move(SQLITE_CHECKPOINT_RESTART) == SQLITE_BUSY && ++waits < kReadersWaits) {
  }
  sqlite3_busy_handler(db(), on_busy, this);
}

// Without a transaction a name says it all, while one of SQLite's would keep others from writing.
// The newest savepoint moves when it is set again: SQLite would keep each of them until the
// transaction ends, and look at all with every page that is written.
void SqliteSession::set_savepoint(const std::string& name) {
  if (!in_transaction()) {
    std::erase_if(early_savepoints_, [&](const auto& early) { return early.name == name; });
    early_savepoints_.push_back({name, lost_});
    return;
  }
  const std::string quoted = quote_name(name);
  if (name == newest_savepoint_) execute_sql(db(), "RELEASE " + quoted);
  newest_savepoint_.clear();
  execute_sql(db(), "SAVEPOINT " + quoted);
  newest_savepoint_ = name;
}

// What was set within the transaction hides an earlier one of its name.
void SqliteSession::return_to_savepoint(const std::string& name) {
  newest_savepoint_.clear();
  const auto early = std::ranges::find(early_savepoints_, name, &EarlySavepoint::name);
  try {
    execute_sql(db(), "ROLLBACK TO " + quote_name(name));
    newest_savepoint_ = name;
    return;
  } catch (const Failure& raised) {
    if (raised.code != 1086 || early == early_savepoints_.end()) throw;
  }
  // What was lost after the savepoint is what the client has taken back with this.
  lost_ = lost_at_mark_ = early->lost;
  early_savepoints_.erase(early + 1, early_savepoints_.end());
  if (!in_transaction()) return;
  check(db(), run(Control::Rollback));
  if (marked_) note_mark();
}

void SqliteSession::mark() {
  require_open();
  newest_savepoint_.clear();
  note_mark();
  if (marked_) open_savepoint(Control::Mark);
}

// Without a transaction this is all that the mark is: going back brings back what a commit has
// still to tell.
void SqliteSession::note_mark() {
  marked_ = in_transaction();
  lost_at_mark_ = lost_;
  early_at_mark_ = early_savepoints_;
}

// A savepoint that stays does no harm: the transaction's end takes it away.
void SqliteSession::release_mark() noexcept {
  newest_savepoint_.clear();
  if (std::exchange(marked_, false) && in_transaction()) run(Control::Release);
}

void SqliteSession::return_to_mark() noexcept {
  newest_savepoint_.clear();
  early_savepoints_.swap(early_at_mark_);
  const bool marked = std::exchange(marked_, false);
  if (in_transaction()) read_out_before_undo();
  if (!marked) lost_ = lost_at_mark_;
  if (!in_transaction()) return;
  if (marked && run(Control::Return) == SQLITE_OK && run(Control::Release) == SQLITE_OK) return;
  // Without a savepoint to go back to: the transaction began behind the mark, or SQLite has given
  // the savepoint up, which the client has to be told.
  run(Control::Rollback);
  if (marked) lost_ = true;
}

// Only from Running to Stopping: without an operation there is nothing to change, and the next
// operation begins with Running whatever was asked before.
void SqliteSession::interrupt() noexcept {
  RunState running = RunState::Running;
  state_.compare_exchange_strong(running, RunState::Stopping);
}

bool SqliteSession::pause() {
  if (!may_wait()) return false;
  const microseconds time = pause_by_chance();
  if (place_ == nullptr) {
    std::this_thread::sleep_for(time);
  } else {
    place_->wait_for_release(time);
  }
  return true;
}

int SqliteSession::on_busy(void* session, int waits) {
  auto& self = *static_cast<SqliteSession*>(session);
  if (waits == 0 && self.place_ == nullptr) self.start_waiting();
  return self.pause() ? 1 : 0;
}

// SQLite answers the interrupt of a statement that writes by rolling back the whole transaction.
// Where that would take earlier changes along, the statement first gets the time to stop at the
// error of a SQL function (see sqlite_stop.h).
bool SqliteSession::must_stop() {
  if (!stopping() || in_control_) return false;
  if (!gentle_) return true;
  const Clock::time_point now = Clock::now();
  // The time begins with the first look after the break and not with the statement.
  if (gentle_until_ == Clock::time_point()) gentle_until_ = now + kGentleTime;
  return now >= gentle_until_;
}

int SqliteSession::on_progress(void* session) {
  return static_cast<SqliteSession*>(session)->must_stop() ? 1 : 0;
}

// SQLite gives up the whole transaction where even a read fails for want of memory or space. A
// change that began it and fails itself is all that there was, and is told by its own error.
void SqliteSession::on_rollback(void* session) {
  auto& self = *static_cast<SqliteSession*>(session);
  if (!self.unkept_) self.lost_ = true;
}

int SqliteSession::on_log(void* session, sqlite3*, const char*, int pages) {
  static_cast<SqliteSession*>(session)->empty_log(pages);
  return SQLITE_OK;
}

SqliteSession::Operation::Operation(SqliteSession& session) : session_(session) {
  session.state_.store(RunState::Running, std::memory_order_release);
  run_state_here = &session.state_;
}

SqliteSession::Operation::~Operation() {
  session_.stop_listening();
  run_state_here = nullptr;
}

SqliteSession::Change::Change(SqliteSession& session, bool wait)
    : session_(session), first_(!session.in_transaction()) {
  session.large_.let_go();
  if (first_) session.begin(wait);
  session.gentle_ = !first_;
  session.gentle_until_ = Clock::time_point();
}

// Breaks are no longer listened to before anything is rolled back: the cleaning up must not be
// interrupted itself.
SqliteSession::Change::~Change() {
  session_.stop_listening();
  session_.gentle_ = false;
  if (first_ && !kept_ && session_.in_transaction()) session_.run(Control::Rollback);
}

void SqliteSession::Change::keep() {
  session_.stop_listening();
  session_.unkept_ = false;
  kept_ = true;
}

void SqliteSession::Change::commit() {
  check(session_.db(), session_.run(Control::Commit));
  keep();
}

SqliteSession::Whole::Whole(SqliteSession& session) : session_(session) {
  session.open_savepoint(Control::Step);
}

// Without a transaction there is nothing left to undo: SQLite gave it up.
SqliteSession::Whole::~Whole() {
  if (!open_) return;
  session_.stop_listening();
  if (!session_.in_transaction()) return;
  session_.run(Control::ReturnStep);
  session_.run(Control::ReleaseStep);
}

void SqliteSession::Whole::keep() {
  check(session_.db(), session_.run(Control::ReleaseStep));
  open_ = false;
}

}  // namespace oci8
