#pragma once

#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Tracing/Tracer.h"

namespace tavrel {

/// One entry of a trace, in nanoseconds of the monotonic clock.
struct TraceEvent {
  enum class Kind : std::uint8_t { span, wait, gpu, offset, drop, level };

  std::int64_t begin = 0;
  std::int64_t value = 0;  ///< how long, or the level
  std::uint32_t frame = 0;
  TraceName name = 0;
  TraceName detail = 0;  ///< of a drop: the reason
  Kind kind = Kind::span;
};

/// The events of one thread on their way to the file: a bounded queue that one thread fills and one empties, neither of
/// which ever waits for the other.
class TraceRing {
 public:
  static constexpr std::size_t kCapacity = 4096;

  explicit TraceRing(std::string threadName)
      : thread(gettid()), events_(kCapacity), threadName_(std::move(threadName)) {}

  /// The filling thread. An event for which there is no room is lost, and counted.
  void push(const TraceEvent& event) {
    const std::size_t head = head_.load(std::memory_order_relaxed);
    if (head - tail_.load(std::memory_order_acquire) == kCapacity) {
      lost.fetch_add(1, std::memory_order_relaxed);
      return;
    }
    events_[head % kCapacity] = event;
    head_.store(head + 1, std::memory_order_release);
  }

  /// The emptying thread.
  template <typename Action>
  void drain(Action action) {
    const std::size_t head = head_.load(std::memory_order_acquire);
    for (std::size_t tail = tail_.load(std::memory_order_relaxed); tail != head; ++tail) {
      action(events_[tail % kCapacity]);
      tail_.store(tail + 1, std::memory_order_release);
    }
  }

  /// Any thread.
  void setThreadName(std::string name) {
    const std::lock_guard lock(mutex_);
    threadName_ = std::move(name);
    isNameNew_ = true;
  }
  /// The name, when it was not taken yet.
  std::string takeThreadName() {
    const std::lock_guard lock(mutex_);
    return std::exchange(isNameNew_, false) ? threadName_ : std::string();
  }
  /// The next file has to be told the name as well.
  void nameAgain() {
    const std::lock_guard lock(mutex_);
    isNameNew_ = true;
  }

  const pid_t thread;
  std::atomic<bool> isEnded = false;  ///< the thread is gone
  std::atomic<std::uint64_t> lost = 0;

 private:
  std::vector<TraceEvent> events_;
  std::atomic<std::size_t> head_ = 0;
  std::atomic<std::size_t> tail_ = 0;
  std::mutex mutex_;
  std::string threadName_;
  bool isNameNew_ = true;
};

}  // namespace tavrel
