#pragma once

#include <chrono>
#include <memory>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// Tracks work in progress and tells when all of it is done. Any thread.
class TAVREL_API DispatchGroup {
 public:
  DispatchGroup();
  DispatchGroup(const DispatchGroup&) = delete;
  DispatchGroup& operator=(const DispatchGroup&) = delete;
  ~DispatchGroup();

  void enter();
  /// Balances an `enter`; without one it stops the program.
  void leave();
  /// Submits `block` to `queue` as part of the group, which must live until the block has run.
  void async(const std::shared_ptr<DispatchQueue>& queue, DispatchQueue::Block block);
  /// Submits `block` to `queue` as soon as the group is empty.
  void notify(const std::shared_ptr<DispatchQueue>& queue, DispatchQueue::Block block);
  void wait();
  /// False if the group is not empty in time.
  bool wait(std::chrono::nanoseconds timeout);

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
