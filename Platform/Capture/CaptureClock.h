#pragma once

#include <cstdint>
#include <memory>
#include <stop_token>

#include "Platform/Foundation/Export.h"
#include "Platform/Media/MediaTime.h"

namespace tavrel {

/// The clock by which capture devices stamp and pace their samples: time since 1970 (UTC) as a `MediaTime` of timescale
/// 100 000 000. It never goes backwards. Any thread.
class TAVREL_API CaptureClock {
 public:
  static constexpr std::int32_t kTimescale = 100'000'000;

  /// Identifies a device that waits on the clock; 0 stands for none.
  using Attendee = std::uint64_t;

  /// The monotonic clock, anchored to the wall clock when first used. Later changes of the wall clock do not move it.
  static const std::shared_ptr<CaptureClock>& realTime();

  /// The clock of devices that are opened now: `realTime()` unless another was set.
  static std::shared_ptr<CaptureClock> current();
  /// nullptr restores the real-time clock. Running devices keep theirs.
  static void setCurrent(std::shared_ptr<CaptureClock> clock);

  virtual ~CaptureClock() = default;

  virtual MediaTime now() const = 0;
  /// `now()` in seconds, exact to about 0.25 µs.
  double nowSeconds() const { return now().seconds(); }

  /// Waits until the clock reaches `time`; returns at once if that has passed. False if `cancel` is requested first.
  virtual bool waitUntil(MediaTime time, const std::stop_token& cancel, Attendee attendee = 0) = 0;

  /// True if time passes by itself, so that a late device drops samples; false if the clock waits for its devices.
  virtual bool isRealTime() const { return true; }

  /// Registers a device until it detaches. Needed by clocks that wait for their devices.
  virtual Attendee attach() { return 0; }
  virtual void detach(Attendee) {}
};

}  // namespace tavrel
