#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>

#include "Platform/Dispatch/DispatchQueue.h"

namespace tavrel {

/// The way from a capture thread to a delegate's queue: a bounded number of deliveries at a time, those of an earlier
/// delegate or run called off. Any thread.
class CaptureHandover : public std::enable_shared_from_this<CaptureHandover> {
 public:
  /// The right to make one delivery. Its place is free again when the last copy goes, also when a queue that has shut
  /// down drops the block.
  struct Ticket {
    std::shared_ptr<void> place;
    std::shared_ptr<DispatchQueue> queue;
    unsigned generation = 0;
  };
  enum class Entry { granted, full, closed };

  /// Calls off what waits. nullptr closes the way.
  void setQueue(std::shared_ptr<DispatchQueue> queue);
  /// Calls off what waits.
  void callOff();

  /// With `waits`, a full way is waited for until `cancelled`.
  Entry enter(unsigned limit, bool waits, const std::stop_token& cancelled, Ticket& ticket);
  /// Submits `delivery`, which does not run when it was called off before it began.
  void send(Ticket ticket, std::function<void()> delivery);
  /// A delivery that needs no place.
  void sendAnyway(std::function<void()> delivery);

 private:
  bool isCurrent(unsigned generation) const;
  void giveBack();

  mutable std::mutex mutex_;
  std::condition_variable_any changed_;
  std::shared_ptr<DispatchQueue> queue_;
  unsigned generation_ = 0;
  unsigned underWay_ = 0;
};

}  // namespace tavrel
