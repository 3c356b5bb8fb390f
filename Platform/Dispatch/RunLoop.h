#pragma once

#include <chrono>
#include <functional>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Runs the blocks of the main queue on the main thread.
///
/// An application either hands the main thread over (`run`, `runFor`) or embeds the loop in its own: it waits until
/// `fileDescriptor()` is readable, then calls `drain()`. Main thread, except `stop`.
class TAVREL_API RunLoop {
 public:
  static RunLoop& main();

  /// Runs until `stop`.
  void run();
  /// Runs for `duration` or until `stop`. Calls may nest.
  void runFor(std::chrono::nanoseconds duration);
  /// Runs until `done` returns true or `duration` has passed; `done` is called after every block and at least every 5
  /// ms. Returns its last result.
  bool runUntil(const std::function<bool()>& done, std::chrono::nanoseconds duration) {
    return runUntil(done, duration, std::chrono::milliseconds(5));
  }
  /// Ends the innermost `run` or `runFor`, after the blocks submitted before. Has no effect if none is running. Any
  /// thread.
  void stop();

  /// Readable while blocks are waiting; for poll, epoll or another loop. Owned by the run loop.
  int fileDescriptor();
  /// Runs the waiting blocks, but not those that they submit, for which the descriptor stays readable. Returns the
  /// number of blocks run.
  int drain();

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
