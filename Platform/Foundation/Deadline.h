#pragma once

#include <chrono>

namespace tavrel {

/// When `duration` from now will have passed on the steady clock; its end of time for durations that go beyond.
inline std::chrono::steady_clock::time_point deadlineAfter(std::chrono::nanoseconds duration) {
  using Clock = std::chrono::steady_clock;
  const auto now = Clock::now();
  return duration < Clock::time_point::max() - now ? now + duration : Clock::time_point::max();
}

}  // namespace tavrel
