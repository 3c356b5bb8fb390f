#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <span>

namespace tavrel::test {

/// The longest run of samples (48000 a second) of an unbroken tone: each sample of a sine follows from the two before.
inline std::size_t longestTone(std::span<const float> samples, double frequency, double tolerance = 0.01) {
  const double factor = 2 * std::cos(2 * std::numbers::pi * frequency / 48000);
  std::size_t longest = 0, run = 0;
  for (std::size_t i = 2; i < samples.size(); ++i) {
    const bool follows = std::abs(factor * samples[i - 1] - samples[i - 2] - samples[i]) <= tolerance;
    run = follows && std::abs(samples[i]) + std::abs(samples[i - 1]) > 0.001F ? run + 1 : 0;
    longest = std::max(longest, run);
  }
  return longest;
}

}  // namespace tavrel::test
