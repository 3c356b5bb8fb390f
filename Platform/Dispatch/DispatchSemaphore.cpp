#include "Platform/Dispatch/DispatchSemaphore.h"

#include <condition_variable>
#include <mutex>

#include "Platform/Dispatch/Private/LendingWait.h"
#include "Platform/Foundation/Deadline.h"

namespace tavrel {

struct DispatchSemaphore::Implementation {
  std::mutex mutex;
  std::condition_variable available;
  long count;
};

DispatchSemaphore::DispatchSemaphore(long count) : implementation_(new Implementation{{}, {}, count}) {}

DispatchSemaphore::~DispatchSemaphore() = default;

void DispatchSemaphore::wait() { wait(std::chrono::nanoseconds::max()); }

bool DispatchSemaphore::wait(std::chrono::nanoseconds timeout) {
  return waitLending(timeout, [this](auto limit) { return waitHolding(limit); });
}

/// Without lending what the queue of the calling thread holds.
bool DispatchSemaphore::waitHolding(std::chrono::nanoseconds timeout) {
  auto& [mutex, available, count] = *implementation_;
  std::unique_lock lock(mutex);
  if (!available.wait_until(lock, deadlineAfter(timeout), [this] { return implementation_->count > 0; })) return false;
  --count;
  return true;
}

bool DispatchSemaphore::tryWait() {
  const std::lock_guard lock(implementation_->mutex);
  if (implementation_->count <= 0) return false;
  --implementation_->count;
  return true;
}

void DispatchSemaphore::signal() {
  const std::lock_guard lock(implementation_->mutex);
  ++implementation_->count;
  implementation_->available.notify_one();
}

}  // namespace tavrel
