#include "Platform/Dispatch/DispatchTimer.h"

#include <atomic>
#include <utility>

#include "Platform/Foundation/Deadline.h"

namespace tavrel {

struct DispatchTimer::State : std::enable_shared_from_this<State> {
  std::shared_ptr<DispatchQueue> queue;
  std::chrono::nanoseconds interval{};
  DispatchQueue::Block block;
  std::chrono::steady_clock::time_point next;
  std::atomic<bool> isCancelled = false;

  void schedule() {
    queue->asyncAfter(next - std::chrono::steady_clock::now(), [weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->tick();
    });
  }

  void tick() {
    if (isCancelled) return;
    block();
    if (isCancelled) return;
    const auto now = std::chrono::steady_clock::now();
    do next += interval;
    while (next <= now);
    schedule();
  }
};

DispatchTimer::DispatchTimer(std::shared_ptr<DispatchQueue> queue, std::chrono::nanoseconds interval,
                             DispatchQueue::Block block)
    : state_(std::make_shared<State>()) {
  state_->queue = std::move(queue);
  state_->interval = interval;
  state_->block = std::move(block);
  state_->next = deadlineAfter(interval);
  state_->schedule();
}

DispatchTimer::~DispatchTimer() { cancel(); }

void DispatchTimer::cancel() { state_->isCancelled = true; }

}  // namespace tavrel
