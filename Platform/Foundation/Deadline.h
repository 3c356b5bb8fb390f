#pragma once

#include <chrono>

namespace tavrel {

/// `duration` from now on the steady clock, or the clock's maximum if that would overflow.
inline std::chrono::steady_clock::time_point deadlineAfter(std::chrono::nanoseconds duration) {
  using Clock = std::chrono::steady_clock;
  const auto now = Clock::now();
  return duration < Clock::time_point::max() - now ? now + duration : Clock::time_point::max();
}

}  // namespace tavrel
