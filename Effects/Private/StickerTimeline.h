#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>

namespace tavrel {

/// Which frame of an animated sticker is due, and after how many whole loops.
struct StickerMoment {
  std::size_t frameIndex = 0;
  double completedLoops = 0;
};

/// The moment of an animation whose frames are shown for different times. `position` outside of all frames, and an
/// animation without a finite duration, give the first one.
inline StickerMoment stickerMoment(double elapsed, double durationPerLoop,
                                   const std::map<std::size_t, double>& delayTimesForIndexes) {
  if (!(durationPerLoop > 0) || !std::isfinite(durationPerLoop)) return {};
  const double completedLoops = std::trunc(elapsed / durationPerLoop);
  const double position = elapsed - completedLoops * durationPerLoop;
  double start = 0;
  for (const auto& [index, delay] : delayTimesForIndexes) {
    if (position >= start && position < start + delay) return {index, completedLoops};
    start += delay;
  }
  return {0, completedLoops};
}

/// The moment of `count` pictures that are shown for `interval` seconds each.
inline StickerMoment stickerMoment(double elapsed, float interval, std::size_t count) {
  const float durationPerLoop = interval * static_cast<float>(count);
  if (!(durationPerLoop > 0) || !std::isfinite(durationPerLoop)) return {};
  const double completedLoops = std::trunc(elapsed / static_cast<double>(durationPerLoop));
  const double position = elapsed - completedLoops * static_cast<double>(durationPerLoop);
  // Rounding can lead just beyond the last picture, and a clock that goes back before the first.
  const double index = std::trunc(position / static_cast<double>(interval));
  return {static_cast<std::size_t>(std::clamp(index, 0.0, static_cast<double>(count - 1))), completedLoops};
}

}  // namespace tavrel
