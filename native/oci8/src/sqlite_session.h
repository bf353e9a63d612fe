// A SQLite connection with the state of the session on it: transactions, waits for locks, the
// break, sequences. Shared by the engine's connection and its statements, so that whichever of
// them goes last closes the file.
// How the scopes nest: an Operation around everything that may be broken, in it a Change around one
// data change, in it a Whole where several engine statements make up that change. Change and Whole
// undo in their destructors what was not kept.
#ifndef OCI8_SQLITE_SESSION_H
#define OCI8_SQLITE_SESSION_H

#include <array>
#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "sqlite_cache.h"
#include "sqlite_handle.h"
#include "sqlite_large.h"
#include "sqlite_queue.h"
#include "sqlite_schema.h"
#include "sqlite_sequence.h"
#include "sqlite_stop.h"

namespace oci8 {

/// A query that has a row and may have more.
class OpenQuery {
 public:
  /// Reads the rest and lets go of the tables. A failure of the reading comes up in its place among
  /// the rows; one that is raised here has left the query as it was.
  virtual void read_out() = 0;

 protected:
  ~OpenQuery() = default;
};

/// For one thread at a time, except interrupt().
class SqliteSession {
  using Clock = std::chrono::steady_clock;

 public:
  /// Opens the file `path`, which exists, or ":memory:". Raises ORA-01251 for a file that is no
  /// database of this library.
  explicit SqliteSession(const std::string& path);
  ~SqliteSession();
  SqliteSession(const SqliteSession&) = delete;
  SqliteSession& operator=(const SqliteSession&) = delete;

  sqlite3* db() const { return db_.get(); }
  SqliteSchema& schema() { return schema_; }
  Sequences& sequences() { return sequences_; }
  LargeStore& large() { return large_; }
  StatementCache& cache() { return cache_; }

  /// Begins a session: `user` in upper case.
  void log_in(std::string user);
  /// Rolls back what is open and refuses all further work with ORA-03114.
  void close() noexcept;
  void require_open() const {
    if (closed_) fail(3114);
  }
  bool closed() const { return closed_; }
  /// Makes a closed session ready to wait for its next use: false where it cannot be, because
  /// others use the file.
  bool rest() noexcept;
  /// Opens a session again that rests, for a new login.
  void resume();

  bool in_transaction() const { return sqlite3_get_autocommit(db()) == 0; }
  /// Begins a transaction, where none is open. Takes the lock for writing; waits for another writer
  /// up to the lock timeout, or not at all (ORA-00054).
  /// Reads open queries out, as the transaction begins with the latest state.
  void begin(bool wait = true);
  /// The schema's version in the open transaction: the lock keeps others from changing it.
  int transaction_schema() const { return transaction_schema_; }
  /// Without a transaction does nothing. ORA-02091 where the transaction could not be committed,
  /// or where a part of it was lost before; it is rolled back then.
  void commit();
  void rollback();
  /// Runs a step that reads or changes; where its failure has cost the transaction, the error says
  /// so.
  template <class Step>
  auto attempt(Step&& step) {
    const bool lost_before = lost_;
    try {
      return step();
    } catch (Failure& raised) {
      if (lost_ && !lost_before) raised.text += error_text(2091);
      throw;
    }
  }

  /// A query reads from the tables from here on.
  void enter(OpenQuery& query) { open_.push_back(&query); }
  void leave(const OpenQuery& query) noexcept;
  bool has_open_query() const { return !open_.empty(); }
  /// Has all open queries read to their end, so that what they give is the state that they began
  /// with: to be called before anything that changes a table. ORA-01013 after a break, which may
  /// end a query, too.
  void read_out();

  /// The client's "SAVEPOINT name", in a transaction or before one.
  void set_savepoint(const std::string& name);
  /// The client's "ROLLBACK TO name". Ends the transaction where the savepoint was set before it.
  void return_to_savepoint(const std::string& name);

  /// See Connection::mark.
  void mark();
  void release_mark() noexcept;
  void return_to_mark() noexcept;

  /// Stops the operation that runs, if one does. Any thread.
  void interrupt() noexcept;
  // Relaxed: the flag carries no data, and a look that misses it is followed by another.
  bool stopping() const { return state_.load(std::memory_order_relaxed) == RunState::Stopping; }

  /// The scope in which interrupt() reaches an operation; everywhere else it does nothing, so that
  /// it can neither hit a later operation nor break what cleans up after a failed one.
  class Operation {
   public:
    explicit Operation(SqliteSession& session);
    ~Operation();
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

   private:
    SqliteSession& session_;
  };

  /// The scope of one data change. Begins a transaction where none is open, and leaves none behind
  /// unless the change is kept. A change that fails later in a transaction is undone by SQLite.
  class Change {
   public:
    explicit Change(SqliteSession& session, bool wait = true);
    ~Change();
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;

    /// Leaves the change to the transaction.
    void keep();
    /// Commits a transaction that this change has begun and that the client knows nothing of.
    void commit();

   private:
    SqliteSession& session_;
    const bool first_;
    bool kept_ = false;
  };

  /// The scope of several steps that take effect as a whole or not at all, within a transaction and
  /// between the statements of SQLite.
  class Whole {
   public:
    explicit Whole(SqliteSession& session);
    ~Whole();
    Whole(const Whole&) = delete;
    Whole& operator=(const Whole&) = delete;

    void keep();

   private:
    SqliteSession& session_;
    bool open_ = true;
  };

 private:
  enum class Control : ub1 {
    Begin,
    Commit,
    Rollback,
    Mark,
    Release,
    Return,
    Step,
    ReleaseStep,
    ReturnStep
  };

  /// The client's, set before the transaction began.
  struct EarlySavepoint {
    std::string name;
    bool lost;  // lost_ at that time
  };

  void read_out_before_undo() noexcept;
  void note_mark();
  void renew_indexes();
  void forget_savepoints();
  void stop_listening() { state_.store(RunState::Idle, std::memory_order_release); }
  int run(Control control);
  void open_savepoint(Control savepoint);
  void empty_log(int pages);
  void start_waiting() { wait_until_ = Clock::now() + lock_timeout_; }
  bool pause();
  bool may_wait() const { return !stopping() && Clock::now() < wait_until_; }
  bool await_turn();
  int begin_in_turn();
  bool must_stop();
  void prepare_controls();
  void register_all();
  static int on_progress(void* session);
  static int on_busy(void* session, int waits);
  static void on_rollback(void* session);
  static int on_log(void* session, sqlite3* db, const char* name, int pages);

  std::string user_;  // read by SQL functions: before the connection
  SqliteOwner db_;
  std::array<SqliteStatementOwner, 9> controls_;
  SqliteSchema schema_;
  Sequences sequences_;
  LargeStore large_;
  StatementCache cache_;
  std::vector<OpenQuery*> open_;
  std::shared_ptr<WriteQueue> queue_;
  std::chrono::milliseconds lock_timeout_;
  Clock::time_point wait_until_;
  Clock::time_point gentle_until_;
  std::atomic<RunState> state_ = RunState::Idle;
  int transaction_schema_ = 0;
  bool in_control_ = false;
  bool gentle_ = false;  // a stop must not cost the transaction
  std::vector<EarlySavepoint> early_savepoints_, early_at_mark_;
  std::string newest_savepoint_;  // of those in the transaction, where no other is behind it
  WriteQueue::Place* place_ = nullptr;  // of a transaction that begins: its timeout runs already
  bool unkept_ = false;  // the transaction has nothing yet that was kept
  bool lost_ = false;  // changes are gone that the client has not been told to repeat
  bool marked_ = false;  // a savepoint stands for the mark; else it is where no transaction was
  bool lost_at_mark_ = false;
  bool closed_ = false;
};

}  // namespace oci8

#endif
