#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "TavrelBase/Log/Private/LimitedReports.h"
#include "TavrelBase/Log/Private/LogFile.h"
#include "TavrelBase/Log/TavrelDDLogFileManager.h"

namespace tavrel {

/// The file logger's lines on their way to disk: gathers them, opens and completes files. On the file logger's queue
/// only. Failures are reported on the console, the first ten.
class RollingLogFile {
 public:
  /// `didOpen` is called whenever a file was opened.
  RollingLogFile(std::shared_ptr<TavrelDDLogFileManager> manager, std::function<void()> didOpen)
      : manager_(std::move(manager)), didOpen_(std::move(didOpen)) {}
  ~RollingLogFile() { close(); }

  std::uint64_t maximumFileSize = 0;
  double rollingFrequency = 0;
  bool doNotReuseLogFiles = false;

  /// Opens the file to write to unless one is open. False when that fails.
  bool open();
  /// Takes the line of a record of that time, or drops it when no file can be opened. It reaches the file with the next
  /// `write`, or earlier.
  void add(std::string_view line, std::chrono::system_clock::time_point time);
  void write();
  /// Completes the open file, if any.
  void roll();
  void rollIfTooLarge();
  /// True when there is no file left whose age must be watched.
  bool rollIfTooOld();
  void synchronise();
  /// Writes and closes; the file may be continued later.
  void close();
  /// In a forked child: closes without writing what is the parent's.
  void leaveToParent();

  const std::optional<TavrelDDLogFileInfo>& info() const { return info_; }
  const std::unique_ptr<LogFile>& file() const { return file_; }

 private:
  using TimePoint = std::chrono::system_clock::time_point;

  void report(std::string_view reason);
  std::optional<TavrelDDLogFileInfo> reusableFile();
  Expected<void> openPath(TavrelDDLogFileInfo info);
  std::unique_ptr<LogFile> takeFile();
  void noteLost(std::size_t lines, const std::string& reason);
  void append();
  bool mustLook();
  void replace();
  void writeLostNote();
  bool isTooOld(const TavrelDDLogFileInfo& info) const;
  template <typename Callback>
  void tellManager(Callback callback);

  const std::shared_ptr<TavrelDDLogFileManager> manager_;
  const std::function<void()> didOpen_;
  std::optional<TavrelDDLogFileInfo> info_;
  std::unique_ptr<LogFile> file_;
  std::string gathered_;
  std::vector<std::size_t> lineEnds_;
  TimePoint lastTime_;
  TimePoint timeBefore_;
  TimePoint lookedAt_;
  std::size_t lostLines_ = 0;
  std::string lostReason_;
  LimitedReports reports_{"TavrelDDFileLogger.logMessage: Too many exceptions -- will not log any more of them."};
};

}  // namespace tavrel
