#pragma once

#include <chrono>
#include <functional>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// The main thread's loop: it runs the blocks of the main queue.
///
/// Either the application gives it the main thread (`run`, `runFor`), or it embeds the loop in one of its own: it waits
/// until `fileDescriptor()` is readable and then calls `drain()`. All members except `stop` belong to the main thread.
class TAVREL_API RunLoop {
 public:
  static RunLoop& main();

  /// Runs blocks until `stop` is called.
  void run();
  /// Runs blocks for this long, or until `stop` is called; waits where there are none. A nested call is allowed.
  void runFor(std::chrono::nanoseconds duration);
  /// Runs blocks until `done` answers true or `duration` has passed; `done` is asked after every block and at least
  /// every 5 ms. Returns the last answer.
  bool runUntil(const std::function<bool()>& done, std::chrono::nanoseconds duration) {
    return runUntil(done, duration, std::chrono::milliseconds(5));
  }
  /// Ends the innermost `run` or `runFor` that is under way when its turn among the blocks comes; none, where none is.
  /// Any thread.
  void stop();

  /// Readable while blocks wait; for poll, epoll or another loop. Owned by the run loop.
  int fileDescriptor();
  /// Runs the blocks that wait now, and none that these submit; the descriptor stays readable for those. Returns how
  /// many it ran.
  int drain();

  /// True on the process's main thread.
  static bool isMainThread();

 private:
  RunLoop() = default;
  bool runUntil(const std::function<bool()>& done, std::chrono::nanoseconds duration,
                std::chrono::nanoseconds longestStep);
  void runOne(std::chrono::nanoseconds timeout);

  int runs_ = 0;
  bool isStopped_ = false;
};

}  // namespace tavrel
