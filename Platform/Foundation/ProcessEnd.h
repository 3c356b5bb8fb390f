#pragma once

#include <functional>
#include <string_view>

namespace tavrel {

/// The one order in which the library leaves a process that calls `exit` or returns from `main`, whatever thread does
/// so. Only the library's own floors use it; it is not installed.
///
///     exit ──▶ endingThread ──▶ sources ──▶ driver ──▶ trace ──▶ log ──▶ queues ──▶ what others registered
///
/// Stages have time limits, in one table in the source. All but the first run on a thread of their own, and one that
/// takes too long, because it waits for the ending thread for instance, is left behind. The rest of `exit` follows,
/// unless something may still be inside a driver then: a driver whose statics are gone does not come back, so the
/// process leaves with its status at once. Statics of the library are never destroyed. Any thread.
///
/// A child made by `fork` has none of the threads that the stages are about, and begins with empty stages.
class ProcessEnd {
 public:
  enum class Stage {
    endingThread,  ///< on the ending thread itself: what only that one knows. Must not wait for anything
    sources,       ///< devices and the system deliver nothing more
    driver,        ///< nothing enters GL any more
    trace,         ///< the trace's file is completed
    log,           ///< records are written, and log files closed
    queues,        ///< no queue begins another block
  };

  /// Has `action` called in `stage`, once; within a stage the one registered last comes first.
  static void at(Stage stage, std::function<void()> action);
  /// Puts the whole order before everything that was registered with the C library so far: drivers register the end of
  /// their own statics when they are loaded and when parts of them are first used, and `exit` goes from the last
  /// registration to the first.
  static void comeFirst();
  /// Has the calling thread do so by itself when it calls `exit`, which destroys the thread's variables before it does
  /// anything else. The thread that loads the library does.
  static void watchThisThread();
  /// The calling thread is about to end by itself.
  static void stopWatchingThisThread();

  /// Sees to forks from now on: what registers with `pthread_atfork` after this finds empty stages in the child.
  static void watchForks();

  /// Hears the text of a fatal assertion on its thread, before the process aborts. One for the process.
  using AssertionHandler = void (*)(std::string_view text);
  static void atFatalAssertion(AssertionHandler handler);
  static void tellFatalAssertion(std::string_view text);

  static bool hasBegun();
  /// Whether the calling thread has called `exit`: it must get to the end, and must not enter GL.
  static bool isOnEndingThread();
  /// Stands still until the process is gone: for other threads that have nothing to wait for any more.
  [[noreturn]] static void standStill();
};

}  // namespace tavrel
