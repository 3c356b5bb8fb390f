#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Support/LogTestSupport.h"
#include "TavrelBase/Log/LogClock.h"
#include "TavrelBase/Log/TavrelDDFileLogger.h"

namespace tavrel::test {

/// Remembers what the logger tells its manager.
struct ObservedManager : TavrelDDLogFileManagerDefault {
  using TavrelDDLogFileManagerDefault::TavrelDDLogFileManagerDefault;
  void didArchiveLogFile(const std::filesystem::path& path) override { archived.push_back(path); }
  void didRollAndArchiveLogFile(const std::filesystem::path& path) override { rolled.push_back(path); }
  std::vector<std::filesystem::path> archived;
  std::vector<std::filesystem::path> rolled;
};

/// A file logger in a folder of its own.
class FileLoggerTest : public LogTest {
 protected:
  FileLoggerTest() { start(); }
  ~FileLoggerTest() override { LogClock::set(nullptr); }

  /// As after a start of the application, with the files of the last one.
  void start() {
    if (logger_) TavrelDDLog::removeLogger(logger_);
    manager_ = std::make_shared<ObservedManager>(folder_.path());
    logger_ = std::make_shared<TavrelDDFileLogger>(manager_);
    TavrelDDLog::addLogger(logger_);
  }
  static void log(std::string_view text) { logText(false, TavrelDDLogFlagInfo, text); }
  std::filesystem::path current() { return logger_->currentLogFileInfo()->filePath(); }
  /// The text of all files, oldest first.
  std::string everything() {
    std::string text;
    auto paths = manager_->sortedLogFilePaths();
    for (auto path = paths.rbegin(); path != paths.rend(); ++path) text += readText(*path);
    return text;
  }

  LogTestFolder folder_;
  std::shared_ptr<ObservedManager> manager_;
  std::shared_ptr<TavrelDDFileLogger> logger_;
};

}  // namespace tavrel::test
