#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "TavrelBase/Log/TavrelDDAbstractLogger.h"
#include "TavrelBase/Log/TavrelDDLogFileManagerDefault.h"

namespace tavrel {

TAVREL_API extern const std::uint64_t kTavrelDDDefaultLogMaxFileSize;  ///< 6 MiB
TAVREL_API extern const double kTavrelDDDefaultLogRollingFrequency;    ///< 24 hours in seconds

/// Writes records as lines of UTF-8 into log files, and starts a new file when the current one is too large or too old.
///
///     (no file) ──message──▶ open ──size, age, rollLogFile, file gone──▶ archived, (no file)
///
/// A line is "APP[PROCESS:THREAD] LEVEL TAG MESSAGE FUNCTION FILE:LINE", followed by a blank and the formatter's result
/// when there is a formatter. With `TavrelDDLogFileFormatterDefault`, which it starts with, LEVEL is the message's own
/// level; with another formatter or none, it is the mask that guarded the call. Bytes that are not UTF-8 become U+FFFD.
/// Lines are never split, neither between files nor by a full disk.
///
/// A line is with the kernel when the call returns that logged it, asynchronous calls included, so that it is in the
/// file however the process ends: `_exit` and a kill lose nothing. While the disk takes longer than half a second for a
/// line, lines wait in the dispatcher instead, and at most `TavrelDDLog::kMaximumQueueSize` of them can be lost so. The
/// text of a fatal assertion, and the name of a signal that ends the process, are the last line; see
/// `TavrelLogger::setHandlesSignals`. A child made by `fork` logs into the same files.
///
/// A newest file that is neither archived nor too large nor too old is continued after a restart. Several processes may
/// write into one folder: the size of a file exceeds the limit by a line of each at most. When the open file or a
/// folder above it is deleted or moved from outside, the next message opens a new one. Failures to write go to the
/// console, the first ten of them; the messages are lost, the application goes on, and the next line that can be
/// written says how many they were.
///
/// Accessors: see `TavrelDDAbstractLogger`. Create it with `std::make_shared`.
class TAVREL_API TavrelDDFileLogger : public TavrelDDAbstractLogger,
                                      public std::enable_shared_from_this<TavrelDDFileLogger> {
 public:
  /// With a `TavrelDDLogFileManagerDefault` in its default directory.
  TavrelDDFileLogger();
  explicit TavrelDDFileLogger(std::shared_ptr<TavrelDDLogFileManager> logFileManager);
  ~TavrelDDFileLogger() override;

  const std::shared_ptr<TavrelDDLogFileManager>& logFileManager() const { return logFileManager_; }
  /// Bytes after which a file is complete; 0 for no limit. A new limit takes effect at once.
  std::uint64_t maximumFileSize();
  void setMaximumFileSize(std::uint64_t bytes);
  /// Seconds after which a file is complete; 0 or less, or infinity, for no limit. A new limit takes effect at once;
  /// NaN changes nothing and is reported on the console.
  double rollingFrequency();
  void setRollingFrequency(double seconds);
  /// Starts a new file with every process.
  bool doNotReuseLogFiles();
  void setDoNotReuseLogFiles(bool doNotReuse);
  /// Whether lines that end with the result of a formatter other than the default one get a newline; true at first.
  bool automaticallyAppendNewlineForCustomFormatters();
  void setAutomaticallyAppendNewlineForCustomFormatters(bool append);

  /// The file that is being written; opened, or created, when there is none. Nothing when that fails.
  std::optional<TavrelDDLogFileInfo> currentLogFileInfo();
  /// The descriptor of that file, which the logger owns and closes when it rolls; -1 when it cannot be opened.
  int currentLogFileHandle();

  /// Completes the current file; the next message opens another. Returns at once.
  void rollLogFile() { rollLogFileWithCompletionBlock(nullptr); }
  /// The same, and calls `completion` on the global queue afterwards.
  void rollLogFileWithCompletionBlock(std::function<void()> completion);
  void maybeRollLogFileDueToAge();
  void maybeRollLogFileDueToSize();

  void logMessage(const TavrelDDLogMessage& message) override;
  void finishHandOver() override;
  bool writesThrough() const override { return true; }
  /// Writes and synchronises the file with the disk.
  void flush() override;
  void willRemoveLogger() override;
  std::string loggerName() const override { return "video.tavrel.log.file"; }

 private:
  struct State;

  void rollOrWait();
  void startRollingTimer();

  const std::shared_ptr<TavrelDDLogFileManager> logFileManager_;
  std::unique_ptr<State> state_;
};

}  // namespace tavrel
