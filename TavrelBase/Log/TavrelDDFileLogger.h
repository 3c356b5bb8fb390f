#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Foundation/Pimpl.h"
#include "TavrelBase/Log/TavrelDDAbstractLogger.h"
#include "TavrelBase/Log/TavrelDDLogFileManagerDefault.h"

namespace tavrel {

TAVREL_API extern const std::uint64_t kTavrelDDDefaultLogMaxFileSize;  ///< 6 MiB
TAVREL_API extern const double kTavrelDDDefaultLogRollingFrequency;    ///< 24 hours in seconds

/// Writes records as lines of UTF-8 to log files, and rolls to a new file when the current one is too large or too old.
///
///     (no file) ──message──▶ open ──size, age, rollLogFile, file gone──▶ archived, (no file)
///
/// A line is "APP[PROCESS:THREAD] LEVEL TAG MESSAGE FUNCTION FILE:LINE", then a space and the formatter's result if
/// there is a formatter. With `TavrelDDLogFileFormatterDefault`, the initial formatter, LEVEL is the message's own
/// level; otherwise it is the mask that guarded the call. Invalid UTF-8 becomes U+FFFD. Lines are never split, neither
/// between files nor by a full disk.
///
/// Every log call, even an asynchronous one, passes its line to the kernel before it returns, so that not even `_exit`
/// or a kill loses lines. Only while the disk takes longer than half a second for a line do lines wait in the
/// dispatcher, where at most `TavrelDDLog::kMaximumQueueSize` and `kMaximumGathering` can be lost. The text of a fatal
/// assertion, or the name of a signal that ends the process, is the last line; see `TavrelLogger::setHandlesSignals`. A
/// forked child logs to the same files.
///
/// After a restart the newest file is continued unless it is archived, too large or too old. Several processes may
/// write to one directory; a file then exceeds the size limit by at most one line of each. If the open file or a
/// directory above it is deleted or moved by someone else, the next message opens a new one. Messages that cannot be
/// written are lost: the first ten failures are reported on the console, and the next line written tells how many were
/// lost.
///
/// Threads: see `TavrelDDAbstractLogger`. Create with `std::make_shared`.
class TAVREL_API TavrelDDFileLogger : public TavrelDDAbstractLogger,
                                      public std::enable_shared_from_this<TavrelDDFileLogger> {
 public:
  /// With a `TavrelDDLogFileManagerDefault` in its default directory.
  TavrelDDFileLogger();
  explicit TavrelDDFileLogger(std::shared_ptr<TavrelDDLogFileManager> logFileManager);
  ~TavrelDDFileLogger() override;

  const std::shared_ptr<TavrelDDLogFileManager>& logFileManager() const { return logFileManager_; }
  /// Size in bytes at which a file is rolled; 0 for no limit. Takes effect at once.
  std::uint64_t maximumFileSize();
  void setMaximumFileSize(std::uint64_t bytes);
  /// Age in seconds at which a file is rolled; 0 or less, or infinity, for no limit. Takes effect at once. NaN changes
  /// nothing and is reported on the console.
  double rollingFrequency();
  void setRollingFrequency(double seconds);
  /// Whether every process starts a new file.
  bool doNotReuseLogFiles();
  void setDoNotReuseLogFiles(bool doNotReuse);
  /// Whether a newline is added after the result of a formatter other than the default one; true by default.
  bool automaticallyAppendNewlineForCustomFormatters();
  void setAutomaticallyAppendNewlineForCustomFormatters(bool append);

  /// The current file, opened or created if necessary; nothing if that fails.
  std::optional<TavrelDDLogFileInfo> currentLogFileInfo();
  /// The current file's descriptor, which the logger owns and closes when it rolls; -1 if it cannot be opened.
  int currentLogFileHandle();

  /// Archives the current file; the next message opens another. Returns at once.
  void rollLogFile() { rollLogFileWithCompletionBlock(nullptr); }
  /// The same; then calls `completion` on the global queue.
  void rollLogFileWithCompletionBlock(std::function<void()> completion);
  void maybeRollLogFileDueToAge();
  void maybeRollLogFileDueToSize();

  void logMessage(const TavrelDDLogMessage& message) override;
  void finishHandOver() override;
  bool writesThrough() const override { return true; }
  /// Writes pending lines and syncs the file to disk.
  void flush() override;
  void willRemoveLogger() override;
  std::string loggerName() const override { return "video.tavrel.log.file"; }

 private:
  struct State;

  void rollOrWait();
  void startRollingTimer();

  const std::shared_ptr<TavrelDDLogFileManager> logFileManager_;
  const Pimpl<State> state_;
};

}  // namespace tavrel
