#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>

#include "Platform/Capture/CaptureClock.h"

namespace tavrel {

/// How many nanoseconds ago something was captured that has just come, and has this time by the system's monotonic
/// clock; nothing for times that cannot be true: zero and negative ones, in the future, or more than ten seconds past.
inline std::optional<std::int64_t> ageOfCapture(std::int64_t monotonic) {
  const std::int64_t age = std::chrono::steady_clock::now().time_since_epoch().count() - monotonic;
  if (monotonic <= 0 || age < 0 || age > 10'000'000'000) return std::nullopt;
  return age;
}

/// The stamps of one stream, believed as long as they go on: a clock that stands still, goes back or leaps is none.
class CaptureStamps {
 public:
  /// `ageOfCapture` of the next picture; nothing for a while after one whose stamp is not later than the one before, or
  /// says that the picture took longer than any camera does and than nothing was read.
  std::optional<std::int64_t> ageOf(std::int64_t monotonic) {
    constexpr int kPicturesInDoubt = 100;
    constexpr std::int64_t kLongestWay = 1'000'000'000;
    const auto age = ageOfCapture(monotonic);
    const std::int64_t arrival = std::chrono::steady_clock::now().time_since_epoch().count();
    const std::int64_t pause = arrival_ > 0 ? arrival - arrival_ : 0;
    const bool isBelieved = monotonic > last_ && age <= std::max(age_, kLongestWay) + pause;
    if (age && !isBelieved) doubted_ = kPicturesInDoubt;
    last_ = monotonic;
    arrival_ = arrival;
    if (doubted_ > 0 && doubted_-- > 0) return std::nullopt;
    age_ = age.value_or(0);
    return age;
  }

 private:
  std::int64_t last_ = 0;
  std::int64_t arrival_ = 0;  // of the picture before
  std::int64_t age_ = 0;      // its
  int doubted_ = 0;
};

/// The instant that long ago on the real-time capture clock; without an age, now.
inline MediaTime captureTimeOf(std::optional<std::int64_t> age) {
  const MediaTime now = CaptureClock::realTime()->now();
  constexpr std::int64_t kNanosecondsPerUnit = 1'000'000'000 / CaptureClock::kTimescale;
  return MediaTime::make(now.value - age.value_or(0) / kNanosecondsPerUnit, CaptureClock::kTimescale);
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
