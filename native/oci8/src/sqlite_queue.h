// The order in which the sessions of this process wait to write to a file. SQLite lets its waiters
// ask again and again, and gives the lock to whoever asks first once it is free: with many of them
// one can be overtaken until its patience ends. In the queue only the first one asks.
#ifndef OCI8_SQLITE_QUEUE_H
#define OCI8_SQLITE_QUEUE_H

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

namespace oci8 {

/// A waiting line for one file. Any thread; places are entered and left under one lock, and each
/// place has a condition of its own, so that a released lock wakes one session and not all.
class WriteQueue {
 public:
  /// The queue of the database file `path`, which lives as long as a session has it. A database in
  /// memory (an empty path) has one of its own.
  static std::shared_ptr<WriteQueue> of(const std::string& path);

  /// Tells the first one that the lock may be free. Only saves it time: it asks by itself, too.
  void released();

  /// Whether it is time to wait for those who read from a log of so many pages, so that it can
  /// begin anew: once it is long, and each time that it has grown by as much again.
  bool log_is_long(int pages);

  /// A place behind all others, until the scope ends.
  class Place {
   public:
    explicit Place(WriteQueue& queue);
    ~Place();
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    /// Waits to become the first, for at most `time`; whether it is.
    bool first_within(std::chrono::milliseconds time);
    /// Waits until a session of this process may have given up the lock, for at most `time`.
    void wait_for_release(std::chrono::microseconds time);

   private:
    friend class WriteQueue;
    WriteQueue& queue_;
    std::condition_variable turn_;
  };

 private:
  static constexpr int kLongLog = 4000;

  std::mutex mutex_;
  std::deque<Place*> places_;
  int long_log_ = kLongLog;
};

}  // namespace oci8

#endif
