// Only sessions of this process can be put in order. Against other processes the first one here
// competes as SQLite has it, with pauses of changing length (SqliteSession::pause).
#include "sqlite_queue.h"

#include <map>

namespace oci8 {

std::shared_ptr<WriteQueue> WriteQueue::of(const std::string& path) {
  if (path.empty()) return std::make_shared<WriteQueue>();
  static std::mutex mutex;
  // Never destroyed: sessions may still be opened while the process ends. An entry that is left
  // behind by the last session on its file is used again by the next one.
  static auto& queues = *new std::map<std::string, std::weak_ptr<WriteQueue>>;
  const std::lock_guard lock(mutex);
  std::weak_ptr<WriteQueue>& entry = queues[path];
  std::shared_ptr<WriteQueue> queue = entry.lock();
  if (queue == nullptr) entry = queue = std::make_shared<WriteQueue>();
  return queue;
}

void WriteQueue::released() {
  const std::lock_guard lock(mutex_);
  if (!places_.empty()) places_.front()->turn_.notify_one();
}

bool WriteQueue::log_is_long(int pages) {
  const std::lock_guard lock(mutex_);
  if (pages < kLongLog) long_log_ = kLongLog;
  if (pages < long_log_) return false;
  long_log_ = pages + kLongLog;
  return true;
}

WriteQueue::Place::Place(WriteQueue& queue) : queue_(queue) {
  const std::lock_guard lock(queue_.mutex_);
  queue_.places_.push_back(this);
}

WriteQueue::Place::~Place() {
  const std::lock_guard lock(queue_.mutex_);
  const bool first = queue_.places_.front() == this;
  std::erase(queue_.places_, this);
  // Under the lock, which the next one needs to leave: it cannot be gone.
  if (first && !queue_.places_.empty()) queue_.places_.front()->turn_.notify_one();
}

bool WriteQueue::Place::first_within(std::chrono::milliseconds time) {
  std::unique_lock lock(queue_.mutex_);
  return turn_.wait_for(lock, time, [this] { return queue_.places_.front() == this; });
}

void WriteQueue::Place::wait_for_release(std::chrono::microseconds time) {
  std::unique_lock lock(queue_.mutex_);
  // Without a condition: waking up too early costs one attempt at the lock.
  turn_.wait_for(lock, time);
}

}  // namespace oci8
