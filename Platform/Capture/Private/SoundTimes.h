#pragma once

#include <cmath>

#include "Platform/Media/MediaTime.h"

namespace tavrel {

/// When sound was heard, buffer after buffer: counted, and slowly led towards what is measured, which jitters.
class SoundTimes {
 public:
  /// Of a buffer of `length` seconds whose first sample was measured at `heard`.
  MediaTime next(MediaTime heard, double length) {
    if (!next_.isNumeric() || std::abs((heard - next_).seconds()) > kLargestJitter) next_ = heard;
    const MediaTime time = next_ + MediaTime::fromSeconds((heard - next_).seconds() * kFollowing, heard.timescale);
    next_ = time + MediaTime::fromSeconds(length, heard.timescale);
    return time;
  }

 private:
  /// Sound whose measured time is farther from its counted time has a gap.
  static constexpr double kLargestJitter = 0.05;
  /// How fast counted time follows measured time, for each buffer.
  static constexpr double kFollowing = 0.02;

  MediaTime next_;
};

}  // namespace tavrel
