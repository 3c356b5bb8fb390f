#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "Platform/Dispatch/DispatchQueue.h"

namespace tavrel {

/// Runs a block on a queue at regular intervals.
///
/// Ticks do not drift: they are multiples of the interval from the start. Ticks missed while the queue is busy are
/// merged into one. Destruction cancels. Any thread.
class TAVREL_API DispatchTimer {
 public:
  /// The first tick is after `interval`, which must be positive.
  DispatchTimer(std::shared_ptr<DispatchQueue> queue, std::chrono::nanoseconds interval, DispatchQueue::Block block);
  DispatchTimer(const DispatchTimer&) = delete;
  DispatchTimer& operator=(const DispatchTimer&) = delete;
  ~DispatchTimer();

  /// No tick begins after the return; one in progress on another thread may still finish.
  void cancel();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace tavrel
