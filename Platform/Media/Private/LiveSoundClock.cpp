#include "Platform/Media/Private/LiveSoundClock.h"

#include <algorithm>

namespace tavrel {

std::int64_t LiveSoundClock::deviationOf(std::int64_t deviation, std::int64_t frameCount) {
  // Nothing is held up for so long that it would not be missing.
  if (deviation > gap_) return deviation;
  arrivals_.push_back({deviation, frameCount});
  framesHeld_ += frameCount;
  while (framesHeld_ - arrivals_.front().frameCount >= window_) {
    framesHeld_ -= arrivals_.front().frameCount;
    arrivals_.pop_front();
  }
  const std::int64_t least = std::min_element(arrivals_.begin(), arrivals_.end(), [](const auto& a, const auto& b) {
                               return a.deviation < b.deviation;
                             })->deviation;
  if (least < 0) return least;
  return framesHeld_ >= window_ ? least : 0;
}

void LiveSoundClock::reset() {
  arrivals_.clear();
  framesHeld_ = 0;
}

}  // namespace tavrel
