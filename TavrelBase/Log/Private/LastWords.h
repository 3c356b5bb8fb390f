#pragma once

#include <string_view>

namespace tavrel {

class LogBacklog;

/// What the log still does in a process that is dying: it waits until the records that are under way are written, for a
/// second at most and only while that goes on, and writes the reason into the open log files. Fatal assertions,
/// `quick_exit` and, unless turned off, the signals that end a process come here; a signal goes to the handler before
/// next. Takes no lock and allocates nothing. Any thread.
class LastWords {
 public:
  /// From now on, with the first logger.
  static void watch(const LogBacklog& backlog);
  /// From now on, with the first log file, unless turned off.
  static void hearSignals();
  static void setHandlesSignals(bool handles);

  static void addFile(int fileDescriptor);
  static void removeFile(int fileDescriptor);

  /// Gives the calling thread a stack for signal handlers unless it has one: its own may be what is used up.
  static void coverThisThread();
};

}  // namespace tavrel
