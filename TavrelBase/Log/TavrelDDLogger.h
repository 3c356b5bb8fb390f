#pragma once

#include <memory>
#include <string>

#include "Platform/Dispatch/DispatchQueue.h"
#include "TavrelBase/Log/TavrelDDLogFormatter.h"

namespace tavrel {

/// Writes log records. Implement it, or derive from `TavrelDDAbstractLogger`, and add it to `TavrelDDLog`.
///
/// All members except `loggerQueue` and `loggerName` are called on the logger's serial queue. Their exceptions are
/// caught and reported on the console, at most ten times per logger; other loggers are not affected. A logger may
/// itself log: such calls never wait.
class TAVREL_API TavrelDDLogger {
 public:
  virtual ~TavrelDDLogger();

  /// Writes a record. The next one follows when all loggers have returned, except that those that write through may be
  /// ahead.
  virtual void logMessage(const TavrelDDLogMessage& message) = 0;
  /// For loggers that buffer their output: must write everything received so far. Called after the last of several
  /// records handed over together, at most `TavrelDDLog::kMaximumGathering`, before waiting for a slower logger, and
  /// before a synchronous call returns.
  virtual void finishHandOver() {}
  /// True to write records on the thread that logs, as if on the logger's queue, followed by `finishHandOver`, as long
  /// as that takes only microseconds. Then nothing logged is lost, however the process ends, but callers may wait for
  /// the logger, at most half a second, and then not again for a second. Called once, when the logger is added.
  virtual bool writesThrough() const { return false; }
  /// Makes written records durable. Called by `TavrelDDLog::flushLog`.
  virtual void flush() {}
  virtual void didAddLogger() {}
  virtual void willRemoveLogger() {}
  /// The serial queue to run on; nullptr lets the dispatcher create one. Called once, when the logger is added.
  virtual std::shared_ptr<DispatchQueue> loggerQueue() { return nullptr; }
  virtual std::string loggerName() const { return {}; }
  virtual std::shared_ptr<TavrelDDLogFormatter> logFormatter() { return nullptr; }
};

}  // namespace tavrel
