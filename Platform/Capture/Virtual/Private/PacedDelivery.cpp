#include "Platform/Capture/Virtual/Private/PacedDelivery.h"

#include <pthread.h>

#include <algorithm>
#include <condition_variable>
#include <utility>
#include <vector>

namespace tavrel {

/// What one start shares with its thread and with the blocks on the consumer's queue, which may outlive the device.
class PacedDelivery::Run : public std::enable_shared_from_this<Run> {
 public:
  explicit Run(Plan plan) : plan_(std::move(plan)), attendee_(plan_.clock->attach()) {}

  void loop(const std::stop_token& cancel) {
    pthread_setname_np(pthread_self(), plan_.threadName.c_str());
    for (std::uint64_t number = 0; plan_.clock->waitUntil(plan_.dueTime(number), cancel, attendee_); ++number) {
      if (cancel.stop_requested()) break;
      if (!deliver(number, cancel)) countDrop(number);
    }
    plan_.clock->detach(attendee_);
    // The device's state that `produce` refers to may go away now; blocks that still lie on the queue do not need it.
    plan_.produce = nullptr;
    plan_.dueTime = nullptr;
    plan_.drop = nullptr;
  }

  void end() {
    std::unique_lock lock(mutex_);
    ended_ = true;
    const auto own = std::count(delivering_.begin(), delivering_.end(), std::this_thread::get_id());
    changed_.wait(lock, [&] { return std::cmp_equal(delivering_.size(), own); });
  }

  std::uint64_t delivered() const {
    const std::lock_guard lock(mutex_);
    return delivered_;
  }

  std::uint64_t dropped() const {
    const std::lock_guard lock(mutex_);
    return dropped_;
  }

 private:
  bool deliver(std::uint64_t number, const std::stop_token& cancel) {
    const bool realTime = plan_.clock->isRealTime();
    if (realTime && plan_.clock->now() >= plan_.dueTime(number + plan_.patience)) return false;
    std::shared_ptr<void> place = takePlace(realTime, cancel);
    if (!place) return false;
    Delivery delivery = plan_.produce(number);
    if (!delivery) return false;
    if (!plan_.queue) {
      runDelivery(delivery);
      return true;
    }
    plan_.queue->async([self = shared_from_this(), place = std::move(place), delivery = std::move(delivery)] {
      self->runDelivery(delivery);
    });
    return true;
  }

  /// One of the places on the way to the consumer, given back when the last copy goes: also when a queue that has shut
  /// down drops the block.
  std::shared_ptr<void> takePlace(bool realTime, const std::stop_token& cancel) {
    std::unique_lock lock(mutex_);
    const auto isFree = [this] { return inFlight_ < plan_.maximumInFlight; };
    if (!isFree() && (realTime || !changed_.wait(lock, cancel, isFree))) return nullptr;
    ++inFlight_;
    return {this, [self = shared_from_this()](void*) { self->giveBackPlace(); }};
  }

  void giveBackPlace() {
    const std::lock_guard lock(mutex_);
    --inFlight_;
    changed_.notify_all();
  }

  void runDelivery(const Delivery& delivery) {
    {
      const std::lock_guard lock(mutex_);
      if (ended_) return;
      delivering_.push_back(std::this_thread::get_id());
      ++delivered_;
    }
    delivery();
    const std::lock_guard lock(mutex_);
    delivering_.erase(std::find(delivering_.begin(), delivering_.end(), std::this_thread::get_id()));
    changed_.notify_all();
  }

  void countDrop(std::uint64_t number) {
    {
      const std::lock_guard lock(mutex_);
      ++dropped_;
    }
    if (plan_.drop) plan_.drop(number);
  }

  Plan plan_;
  const CaptureClock::Attendee attendee_;
  mutable std::mutex mutex_;
  std::condition_variable_any changed_;
  unsigned inFlight_ = 0;
  bool ended_ = false;
  std::vector<std::thread::id> delivering_;
  std::uint64_t delivered_ = 0;
  std::uint64_t dropped_ = 0;
};

PacedDelivery::PacedDelivery() = default;

PacedDelivery::~PacedDelivery() { stop(); }

void PacedDelivery::start(Plan plan) {
  const std::lock_guard control(controlMutex_);
  const std::lock_guard lock(mutex_);
  if (running_) return;
  run_ = std::make_shared<Run>(std::move(plan));
  running_ = true;
  thread_ = std::jthread([run = run_](const std::stop_token& cancel) { run->loop(cancel); });
}

void PacedDelivery::stop() {
  std::shared_ptr<Run> run;
  {
    const std::lock_guard control(controlMutex_);
    run = current();
    if (thread_.joinable()) {
      thread_.request_stop();
      thread_.join();
    }
    const std::lock_guard lock(mutex_);
    running_ = false;
  }
  // Outside the control lock: a handler that we wait for may be stopping the device itself.
  if (run) run->end();
}

bool PacedDelivery::isRunning() const {
  const std::lock_guard lock(mutex_);
  return running_;
}

std::uint64_t PacedDelivery::delivered() const {
  const auto run = current();
  return run ? run->delivered() : 0;
}

std::uint64_t PacedDelivery::dropped() const {
  const auto run = current();
  return run ? run->dropped() : 0;
}

std::shared_ptr<PacedDelivery::Run> PacedDelivery::current() const {
  const std::lock_guard lock(mutex_);
  return run_;
}

}  // namespace tavrel
