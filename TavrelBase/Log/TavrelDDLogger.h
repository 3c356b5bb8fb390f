#pragma once

#include <memory>
#include <string>

#include "Platform/Dispatch/DispatchQueue.h"
#include "TavrelBase/Log/TavrelDDLogFormatter.h"

namespace tavrel {

/// Something that writes log records. Implement it, or derive from `TavrelDDAbstractLogger`, and add it to
/// `TavrelDDLog`.
///
/// Everything except `loggerQueue` and `loggerName` runs on the logger's own serial queue. An exception from any of
/// these is caught and reported on the console (ten times at most for each logger); the other loggers go on. A logger
/// may log itself: such calls never wait, neither for room in the backlog nor to be written.
class TAVREL_API TavrelDDLogger {
 public:
  virtual ~TavrelDDLogger();

  /// Writes one record. The next record is handed to the loggers only after all of them have returned from this one;
  /// those that write through may be ahead.
  virtual void logMessage(const TavrelDDLogMessage& message) = 0;
  /// Everything that was handed over so far must now reach the file, console … itself: for loggers that gather their
  /// output. Called after the last of several records that were handed over together, before this logger waits for a
  /// slower one, and before a synchronous call returns to its caller.
  virtual void finishHandOver() {}
  /// Whether its records are written at once, on the thread that logs: in the place of the logger's queue, followed by
  /// `finishHandOver`, as long as that takes few microseconds. Nothing that was logged is lost then, however the
  /// process ends; but callers may have to wait for it, for half a second at most, and then not again for a second.
  /// Asked once, when the logger is added.
  virtual bool writesThrough() const { return false; }
  /// Part of `TavrelDDLog::flushLog`: puts what was written where it lasts.
  virtual void flush() {}
  virtual void didAddLogger() {}
  virtual void willRemoveLogger() {}
  /// The serial queue to run on; none lets the dispatcher create one. Asked once, when the logger is added.
  virtual std::shared_ptr<DispatchQueue> loggerQueue() { return nullptr; }
  virtual std::string loggerName() const { return {}; }
  virtual std::shared_ptr<TavrelDDLogFormatter> logFormatter() { return nullptr; }
};

}  // namespace tavrel
