#pragma once

#include <chrono>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// The clock of the log files: it names them and tells their age. The system's, unless a test sets its own. Any thread.
class TAVREL_API LogClock {
 public:
  using TimePoint = std::chrono::system_clock::time_point;
  using Now = TimePoint (*)();

  static TimePoint now();
  /// nullptr restores the system's clock.
  static void set(Now now);
};

}  // namespace tavrel
