#pragma once

#include <cstdint>
#include <memory>
#include <stop_token>

#include "Platform/Foundation/Export.h"
#include "Platform/Media/MediaTime.h"

namespace tavrel {

/// The time line on which capture devices stamp and pace what they deliver: seconds since the epoch (1970, UTC) as a
/// `MediaTime` of timescale 100 000 000. It never jumps backwards. Any thread.
class TAVREL_API CaptureClock {
 public:
  static constexpr std::int32_t kTimescale = 100'000'000;

  /// Names one device that waits on the clock; 0 is never given out by `attach`.
  using Attendee = std::uint64_t;

  /// The process's real clock: the monotonic clock, anchored to the wall clock once, when it is first asked for.
  /// Setting the wall clock later does not move it.
  static const std::shared_ptr<CaptureClock>& realTime();

  /// The clock that capture runs on: the real one, unless the virtual devices were given another.
  static std::shared_ptr<CaptureClock> current();
  /// nullptr restores the real clock. Devices that run keep theirs.
  static void setCurrent(std::shared_ptr<CaptureClock> clock);

  virtual ~CaptureClock() = default;

  virtual MediaTime now() const = 0;
  /// `now()` in seconds, to about a quarter of a microsecond.
  double nowSeconds() const { return now().seconds(); }

  /// Waits until the clock shows `time`, no time at all when it is past. False when `cancel` was requested first.
  virtual bool waitUntil(MediaTime time, const std::stop_token& cancel, Attendee attendee = 0) = 0;

  /// True when time passes by itself, so that whoever is late has missed something; false when it waits for its
  /// devices.
  virtual bool isRealTime() const { return true; }

  /// Announces a device that will wait on this clock until it detaches. Clocks that wait for their devices need this.
  virtual Attendee attach() { return 0; }
  virtual void detach(Attendee) {}
};

}  // namespace tavrel
