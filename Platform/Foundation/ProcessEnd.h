#pragma once

#include <functional>
#include <string_view>

namespace tavrel {

/// The order in which the library shuts down when the process calls `exit`, on any thread, or returns from `main`. For
/// the library only; not installed.
///
///     exit ──▶ endingThread ──▶ sources ──▶ driver ──▶ trace ──▶ log ──▶ queues ──▶ what others registered
///
/// Each stage has a time limit; those that write, trace and log, may take what the ones before have left over. All but
/// the first run on their own thread, and one that exceeds its limit, for instance because it waits for the ending
/// thread, is abandoned. Then `exit` continues, unless a thread may still be inside a driver: as a driver would hang or
/// crash once its statics are destroyed, the process ends at once, with its status.
/// The library's own statics are never destroyed. Any thread.
///
/// A child made by `fork` has none of the threads that the stages are about, and begins with empty stages. If its
/// parent used a driver it ends at once then, too.
class ProcessEnd {
 public:
  enum class Stage {
    endingThread,  ///< runs on the ending thread, and must not wait
    sources,       ///< capture devices and system events stop
    driver,        ///< no thread enters GL any more
    trace,         ///< the trace file is completed
    log,           ///< records are written and log files closed
    queues,        ///< queues begin no further blocks
  };

  /// Registers `action` to run once in `stage`; within a stage the last registered runs first.
  static void at(Stage stage, std::function<void()> action);
  /// Makes the shutdown precede everything registered with the C library so far. Needed after a driver was loaded or
  /// first used, as it registers the destruction of its statics then, and `exit` runs registrations last to first.
  static void comeFirst();
  /// Call it when a driver is loaded; makes the shutdown precede its end.
  static void noteDriver();
  /// Makes the calling thread call `comeFirst` when it ends the process, which first destroys thread-local variables.
  /// The thread that loads the library is watched already, and all are where the library's `exit` is the program's:
  /// wherever it is linked, not loaded later.
  static void watchThisThread();
  /// Call it before the calling thread ends normally.
  static void stopWatchingThisThread();

  /// Sees to forks from now on: what registers with `pthread_atfork` after this finds empty stages in the child.
  static void watchForks();

  /// Hears the text of a fatal assertion on its thread, before the process aborts. One for the process.
  using AssertionHandler = void (*)(std::string_view text);
  static void atFatalAssertion(AssertionHandler handler);
  static void tellFatalAssertion(std::string_view text);

  static bool hasBegun();
  /// Whether the calling thread has called `exit`. It must not block and must not enter GL.
  static bool isOnEndingThread();
  /// Blocks until the process is gone; for threads whose work will not be done any more.
  [[noreturn]] static void standStill();
};

}  // namespace tavrel
