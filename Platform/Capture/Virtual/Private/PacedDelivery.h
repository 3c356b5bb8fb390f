#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "Platform/Capture/CaptureClock.h"
#include "Platform/Dispatch/DispatchQueue.h"

namespace tavrel {

/// The engine of a virtual device: a thread that waits for each event's time, makes what is delivered then, and hands
/// it to the consumer's queue, with a bounded number of deliveries on their way. Any thread.
class PacedDelivery {
 public:
  /// Hands one event to the consumer; runs on the consumer's queue, or on the device's thread when there is none.
  using Delivery = std::function<void()>;

  struct Plan {
    std::string threadName;  ///< at most 15 characters
    std::shared_ptr<CaptureClock> clock;
    std::shared_ptr<DispatchQueue> queue;  ///< nullptr: the consumer is called on the device's thread
    unsigned maximumInFlight = 1;
    /// How many events may be due before the current one counts as missed, on a real-time clock.
    unsigned patience = 1;
    std::function<MediaTime(std::uint64_t number)> dueTime;    ///< called on the device's thread
    std::function<Delivery(std::uint64_t number)> produce;     ///< called on the device's thread; empty when it failed
    std::function<void(std::uint64_t number)> drop = nullptr;  ///< called on the device's thread
  };

  PacedDelivery();
  ~PacedDelivery();

  /// Does nothing while running.
  void start(Plan plan);
  /// Returns when nothing is delivered any more; from inside a delivery, when nothing follows it.
  void stop();
  bool isRunning() const;

  /// Since the last start.
  std::uint64_t delivered() const;
  std::uint64_t dropped() const;

 private:
  class Run;

  std::shared_ptr<Run> current() const;

  std::mutex controlMutex_;  // held while starting and while joining
  mutable std::mutex mutex_;
  std::shared_ptr<Run> run_;
  std::jthread thread_;
  bool running_ = false;
};

}  // namespace tavrel
