#include "Platform/Capture/CaptureClock.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace tavrel {
namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;
using std::chrono::system_clock;

constexpr std::int64_t kNanosecondsPerUnit = 1'000'000'000 / CaptureClock::kTimescale;

class RealTimeClock : public CaptureClock {
 public:
  MediaTime now() const override {
    const nanoseconds sinceEpoch = steady_clock::now().time_since_epoch() + offset_;
    return MediaTime::make(sinceEpoch.count() / kNanosecondsPerUnit, kTimescale);
  }

  bool waitUntil(MediaTime time, const std::stop_token& cancel, Attendee) override {
    const MediaTime precise = time.convertedToTimescale(kTimescale);
    if (!precise.isNumeric()) return !cancel.stop_requested();
    const nanoseconds sinceEpoch(precise.value * kNanosecondsPerUnit);
    const steady_clock::time_point deadline(sinceEpoch - offset_);
    std::mutex mutex;
    std::condition_variable_any never;
    std::unique_lock lock(mutex);
    never.wait_until(lock, cancel, deadline, [] { return false; });
    return !cancel.stop_requested();
  }

 private:
  const nanoseconds offset_ = system_clock::now().time_since_epoch() - steady_clock::now().time_since_epoch();
};

std::mutex currentMutex;
std::shared_ptr<CaptureClock>& currentClock = *new std::shared_ptr<CaptureClock>;

}  // namespace

const std::shared_ptr<CaptureClock>& CaptureClock::realTime() {
  static const auto& clock = *new std::shared_ptr<CaptureClock>(std::make_shared<RealTimeClock>());
  return clock;
}

std::shared_ptr<CaptureClock> CaptureClock::current() {
  const std::lock_guard lock(currentMutex);
  return currentClock ? currentClock : realTime();
}

void CaptureClock::setCurrent(std::shared_ptr<CaptureClock> clock) {
  const std::lock_guard lock(currentMutex);
  currentClock.swap(clock);
}

}  // namespace tavrel
