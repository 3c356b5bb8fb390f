#pragma once

#include <functional>

namespace tavrel {

/// Waits for what the system tells the process: SIGTERM and memory pressure. One thread, "tavrel.system", which ends
/// with the process.
class SystemWatch {
 public:
  /// Both are called on the watching thread.
  struct Handlers {
    std::function<void()> terminationRequested;
    std::function<void()> memoryIsShort;
  };

  /// Once a process. SIGTERM is left alone when the program handles or ignores it already; a second one ends the
  /// process as usual.
  static void start(Handlers handlers);
};

}  // namespace tavrel
