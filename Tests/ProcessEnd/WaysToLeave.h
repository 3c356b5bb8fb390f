#pragma once

#include <chrono>
#include <span>

namespace tavrel::test {

/// A place in a program that uses the library, from which it exits.
struct WayToLeave {
  const char* name;
  void (*go)();
};

using LeavingClock = std::chrono::steady_clock;
constexpr int kLeavingStatus = 42;

std::span<const WayToLeave> waysToLeave();

/// Writes the `LeavingClock::time_point` of the exit to the descriptor `report`, and exits with `kLeavingStatus`, or
/// with 1 if the way led nowhere.
[[noreturn]] void leaveBy(const WayToLeave& way, int report);

}  // namespace tavrel::test
