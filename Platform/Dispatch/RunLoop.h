#pragma once

#include <chrono>

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
  template <typename Predicate>
  bool runUntil(Predicate done, std::chrono::nanoseconds duration) {
    const auto deadline = std::chrono::steady_clock::now() + duration;
    while (!done()) {
      const auto left = deadline - std::chrono::steady_clock::now();
      if (left <= std::chrono::nanoseconds::zero()) return false;
      runOne(left < kStep ? left : kStep);
    }
    return true;
  }
  /// Ends the innermost `run` or `runFor` after the current block. Any thread.
  void stop();

  /// Readable while blocks wait; for poll, epoll or another loop. Owned by the run loop.
  int fileDescriptor();
  /// Runs the blocks that wait now, without waiting for more. Returns how many it ran.
  int drain();

  /// True on the process's main thread.
  static bool isMainThread();

 private:
  static constexpr std::chrono::nanoseconds kStep = std::chrono::milliseconds(5);

  RunLoop() = default;
  bool runOne(std::chrono::nanoseconds timeout);

  bool stopped_ = false;
};

}  // namespace tavrel
