#include "Platform/Dispatch/DispatchGroup.h"

#include <utility>

#include "Platform/Foundation/Deadline.h"
#include "Platform/Foundation/FatalAssertion.h"

namespace tavrel {

void DispatchGroup::enter() {
  const std::lock_guard lock(mutex_);
  ++count_;
}

void DispatchGroup::leave() {
  std::vector<Notification> due;
  {
    const std::lock_guard lock(mutex_);
    if (count_ == 0) fatalAssertion("Unbalanced call to DispatchGroup::leave");
    if (--count_ > 0) return;
    due.swap(notifications_);
    // Notified under the lock: a waiter may destroy the group as soon as it sees it empty.
    empty_.notify_all();
  }
  for (Notification& notification : due) notification.queue->async(std::move(notification.block));
}

void DispatchGroup::async(const std::shared_ptr<DispatchQueue>& queue, DispatchQueue::Block block) {
  enter();
  queue->async([this, block = std::move(block)] {
    block();
    leave();
  });
}

void DispatchGroup::notify(const std::shared_ptr<DispatchQueue>& queue, DispatchQueue::Block block) {
  {
    const std::lock_guard lock(mutex_);
    if (count_ > 0) {
      notifications_.push_back({queue, std::move(block)});
      return;
    }
  }
  queue->async(std::move(block));
}

void DispatchGroup::wait() {
  std::unique_lock lock(mutex_);
  empty_.wait(lock, [this] { return count_ == 0; });
}

bool DispatchGroup::wait(std::chrono::nanoseconds timeout) {
  std::unique_lock lock(mutex_);
  return empty_.wait_until(lock, deadlineAfter(timeout), [this] { return count_ == 0; });
}

}  // namespace tavrel
