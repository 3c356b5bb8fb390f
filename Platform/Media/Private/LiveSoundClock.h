#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>

namespace tavrel {

/// Tells late stamps from gaps. Sound that is stamped when it arrives is never early, but late by whatever held it up;
/// only what all stamps of half a second agree on is a deviation. In frames of the track.
class LiveSoundClock {
 public:
  explicit LiveSoundClock(int rate) : window_(rate / 2), gap_(rate) {}

  /// How far the track must be moved, forwards if positive, for a buffer of `frameCount` that deviates by `deviation`.
  std::int64_t deviationOf(std::int64_t deviation, std::int64_t frameCount);
  /// The track was moved.
  void reset();

 private:
  struct Arrival {
    std::int64_t deviation;
    std::int64_t frameCount;
  };

  const std::int64_t window_;
  const std::int64_t gap_;
  std::deque<Arrival> arrivals_;
  std::int64_t framesHeld_ = 0;
};

}  // namespace tavrel
