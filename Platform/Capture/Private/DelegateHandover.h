#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

#include "Platform/Capture/Private/CaptureHandover.h"
#include "Platform/Foundation/FatalAssertion.h"

namespace tavrel {

/// What data outputs have in common: the delegate, the way to its queue, and the counts. Any thread.
template <typename Delegate>
class DelegateHandover {
 public:
  void setDelegate(std::weak_ptr<Delegate> delegate, std::shared_ptr<DispatchQueue> queue) {
    if (queue && !queue->attribute().isSerial) fatalAssertion("setSampleBufferDelegate needs a serial queue");
    {
      const std::lock_guard lock(mutex_);
      delegate_ = std::move(delegate);
    }
    handover->setQueue(std::move(queue));
  }
  /// nullptr when it is gone.
  std::shared_ptr<Delegate> delegate() const {
    const std::lock_guard lock(mutex_);
    return delegate_.lock();
  }

  const std::shared_ptr<CaptureHandover> handover = std::make_shared<CaptureHandover>();
  std::atomic<std::uint64_t> delivered = 0;
  std::atomic<std::uint64_t> dropped = 0;

 private:
  mutable std::mutex mutex_;
  std::weak_ptr<Delegate> delegate_;
};

}  // namespace tavrel
