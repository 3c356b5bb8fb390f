#pragma once

#include <chrono>
#include <memory>

#include "Platform/Dispatch/DispatchQueue.h"

namespace tavrel {

/// Counts work in progress and tells when all of it is done. Any thread.
class TAVREL_API DispatchGroup {
 public:
  DispatchGroup();
  DispatchGroup(const DispatchGroup&) = delete;
  DispatchGroup& operator=(const DispatchGroup&) = delete;
  ~DispatchGroup();

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
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
