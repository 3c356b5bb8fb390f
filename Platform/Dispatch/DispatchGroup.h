#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "Platform/Dispatch/DispatchQueue.h"

namespace tavrel {

/// Counts work in progress and tells when all of it is done. Any thread.
class TAVREL_API DispatchGroup {
 public:
  void enter();
  /// Ends one `enter`; without one the program stops.
  void leave();
  /// Submits `block` to `queue` inside the group. The group must live until the block has run.
  void async(const std::shared_ptr<DispatchQueue>& queue, DispatchQueue::Block block);
  /// Submits `block` to `queue` once the group is empty, at once when it is empty now.
  void notify(const std::shared_ptr<DispatchQueue>& queue, DispatchQueue::Block block);
  void wait();
  /// False when the group was not empty in time.
  bool wait(std::chrono::nanoseconds timeout);

 private:
  struct Notification {
    std::shared_ptr<DispatchQueue> queue;
    DispatchQueue::Block block;
  };

  std::mutex mutex_;
  std::condition_variable empty_;
  std::size_t count_ = 0;
  std::vector<Notification> notifications_;
};

}  // namespace tavrel
