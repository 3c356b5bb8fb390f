#pragma once

#include <chrono>
#include <cstdint>

#include "Platform/Capture/CaptureClock.h"

namespace tavrel {

/// The instant `monotonic` nanoseconds of the system's monotonic clock on the real-time capture clock. Zero, negative
/// and impossible times (in the future, or more than ten seconds past) count as now.
inline MediaTime captureTimeOf(std::int64_t monotonic) {
  const MediaTime now = CaptureClock::realTime()->now();
  const std::int64_t age = std::chrono::steady_clock::now().time_since_epoch().count() - monotonic;
  if (monotonic <= 0 || age < 0 || age > 10'000'000'000) return now;
  constexpr std::int64_t kNanosecondsPerUnit = 1'000'000'000 / CaptureClock::kTimescale;
  return MediaTime::make(now.value - age / kNanosecondsPerUnit, CaptureClock::kTimescale);
}

/// How `landscapeRight` is turned, in degrees clockwise, on a device whose sensor's pictures must be turned by
/// `correction` degrees counter-clockwise to stand upright in the device's own orientation: portrait for sensors
/// mounted sideways, landscape for all others.
inline int mountRotationOf(int correction) {
  const int upright = ((360 - correction) % 360 + 360) % 360;
  const bool isPortrait = upright == 90 || upright == 270;
  return isPortrait ? (upright + 270) % 360 : upright / 180 * 180;
}

}  // namespace tavrel
