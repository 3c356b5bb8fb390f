#pragma once

#include <cstddef>
#include <span>

namespace tavrel {

/// Keeps sound within full scale: turns it down at once where it would leave it, in all channels alike, and back up
/// slowly. Without delay, so that the first swing that is too large is flattened. One thread at a time.
class PeakLimiter {
 public:
  PeakLimiter(std::size_t channels, double sampleRate);

  /// `samples` are interleaved; 1 is full scale.
  void limit(std::span<float> samples);

 private:
  std::size_t channels_;
  float recovery_;  // of what is lacking to no change, in each frame
  float gain_ = 1;
};

}  // namespace tavrel
