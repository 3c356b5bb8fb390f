#pragma once

#include <memory>
#include <string>

#include "Platform/Foundation/Pimpl.h"
#include "TavrelBase/Log/TavrelDDAbstractLogger.h"

namespace tavrel {

/// Writes records to standard error as lines of local time with zone, program, process ID, level, tag and text, such as
/// "2026-03-01 12:00:00.250 +0100 tavrel[812] [W] TavrelCamera: front camera not available". A formatter's result
/// replaces tag and text. On a terminal errors are red, warnings yellow, debug grey and verbose dim, unless the
/// environment variable NO_COLOR is set. Lines are never split.
///
/// A blocked descriptor, such as a full pipe or a stopped terminal, delays the process by at most a second, once, and
/// never ends it. What it does not take is lost; a line tells how much as soon as it accepts output again.
///
/// Lines are written soon after the call. `_exit`, a kill and, without a file logger, other signals lose those that are
/// pending, at most `TavrelDDLog::kMaximumQueueSize` and `kMaximumGathering`. Other ends of the process lose none.
class TAVREL_API TavrelDDTTYLogger : public TavrelDDAbstractLogger {
 public:
  /// The process's console logger, added by `TavrelLogger` when the library is loaded.
  static const std::shared_ptr<TavrelDDTTYLogger>& sharedInstance();

  /// Writes to `fileDescriptor`, which must stay open for the logger's lifetime.
  explicit TavrelDDTTYLogger(int fileDescriptor);
  ~TavrelDDTTYLogger() override;

  void logMessage(const TavrelDDLogMessage& message) override;
  void finishHandOver() override;
  void flush() override { finishHandOver(); }
  std::string loggerName() const override { return "video.tavrel.log.console"; }

 private:
  struct Implementation;

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
