#include "Platform/Dispatch/DispatchGroup.h"

#include <condition_variable>
#include <mutex>
#include <utility>
#include <vector>

#include "Platform/Dispatch/Private/LendingWait.h"
#include "Platform/Foundation/Deadline.h"
#include "Platform/Foundation/FatalAssertion.h"

namespace tavrel {
namespace {

struct Notification {
  std::shared_ptr<DispatchQueue> queue;
  DispatchQueue::Block block;
};

}  // namespace

struct DispatchGroup::Implementation {
  std::mutex mutex;
  std::condition_variable empty;
  std::size_t count = 0;
  std::vector<Notification> notifications;
};

DispatchGroup::DispatchGroup() : implementation_(std::make_unique<Implementation>()) {}

DispatchGroup::~DispatchGroup() = default;

void DispatchGroup::enter() {
  const std::lock_guard lock(implementation_->mutex);
  ++implementation_->count;
}

void DispatchGroup::leave() {
  std::vector<Notification> due;
  {
    const std::lock_guard lock(implementation_->mutex);
    if (implementation_->count == 0) fatalAssertion("Unbalanced call to DispatchGroup::leave");
    if (--implementation_->count > 0) return;
    due.swap(implementation_->notifications);
    // Notified under the lock: a waiter may destroy the group as soon as it sees it empty.
    implementation_->empty.notify_all();
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
    const std::lock_guard lock(implementation_->mutex);
    if (implementation_->count > 0) {
      implementation_->notifications.push_back({queue, std::move(block)});
      return;
    }
  }
  queue->async(std::move(block));
}

void DispatchGroup::wait() { wait(std::chrono::nanoseconds::max()); }

bool DispatchGroup::wait(std::chrono::nanoseconds timeout) {
  return waitLending(timeout, [this](auto limit) {
    std::unique_lock lock(implementation_->mutex);
    return implementation_->empty.wait_until(lock, deadlineAfter(limit),
                                             [this] { return implementation_->count == 0; });
  });
}

}  // namespace tavrel
