#pragma once

#include <chrono>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// The clock for log files' names and ages: the system clock unless a test sets another. Any thread.
class TAVREL_API LogClock {
 public:
  using TimePoint = std::chrono::system_clock::time_point;
  using Now = TimePoint (*)();

  static TimePoint now();
  /// nullptr restores the system clock.
  static void set(Now now);
};

}  // namespace tavrel
