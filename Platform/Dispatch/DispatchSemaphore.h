#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "Platform/Foundation/Deadline.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Counting semaphore. Unlike a mutex it may be taken on one thread and given back on another.
class TAVREL_API DispatchSemaphore {
 public:
  explicit DispatchSemaphore(long count) : count_(count) {}

  void wait() {
    std::unique_lock lock(mutex_);
    available_.wait(lock, [this] { return count_ > 0; });
    --count_;
  }

  /// False when none was available in time.
  bool wait(std::chrono::nanoseconds timeout) {
    std::unique_lock lock(mutex_);
    if (!available_.wait_until(lock, deadlineAfter(timeout), [this] { return count_ > 0; })) return false;
    --count_;
    return true;
  }

  /// Takes one without waiting; false when none is available.
  bool tryWait() {
    const std::lock_guard lock(mutex_);
    if (count_ <= 0) return false;
    --count_;
    return true;
  }

  void signal() {
    const std::lock_guard lock(mutex_);
    ++count_;
    available_.notify_one();
  }

 private:
  std::mutex mutex_;
  std::condition_variable available_;
  long count_;
};

}  // namespace tavrel
