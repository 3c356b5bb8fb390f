#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "Platform/Dispatch/DispatchQueue.h"

namespace tavrel {

/// Runs a block on a queue again and again.
///
/// Ticks are counted from the start, so that the mean interval is exact; ticks that the queue was too busy for are
/// merged into one. Destruction cancels. Any thread.
class TAVREL_API DispatchTimer {
 public:
  /// First after `interval`, then every `interval`, which must be positive.
  DispatchTimer(std::shared_ptr<DispatchQueue> queue, std::chrono::nanoseconds interval, DispatchQueue::Block block);
  DispatchTimer(const DispatchTimer&) = delete;
  DispatchTimer& operator=(const DispatchTimer&) = delete;
  ~DispatchTimer();

  /// No tick begins after the return, except that one that runs at this moment on another thread may finish.
  void cancel();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace tavrel
