#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Dispatch/DispatchSemaphore.h"
#include "Support/ConsoleCapture.h"
#include "TavrelBase/Log/TavrelLogger.h"

namespace tavrel::test {

/// A folder of its own for one test, removed afterwards.
class LogTestFolder {
 public:
  LogTestFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "tavrel-log-XXXXXX").string();
    path_ = mkdtemp(name.data());
  }
  LogTestFolder(const LogTestFolder&) = delete;
  LogTestFolder& operator=(const LogTestFolder&) = delete;
  ~LogTestFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

inline std::string readText(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

inline std::vector<std::string> readLines(const std::filesystem::path& path) {
  std::istringstream text(readText(path));
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

inline std::size_t count(std::string_view text, std::string_view part) {
  std::size_t count = 0;
  for (auto at = text.find(part); at != std::string_view::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

/// Remembers the texts it is given; can be held up at a gate, and counts the hooks.
class RecordingLogger : public TavrelDDAbstractLogger {
 public:
  void logMessage(const TavrelDDLogMessage& message) override {
    if (onMessage) onMessage(message);
    const std::lock_guard lock(mutex_);
    texts_.emplace_back(message.message());
  }
  void flush() override { ++flushes; }
  void didAddLogger() override { ++additions; }
  void willRemoveLogger() override { ++removals; }
  std::string loggerName() const override { return "test.recording"; }

  std::vector<std::string> texts() const {
    const std::lock_guard lock(mutex_);
    return texts_;
  }

  std::function<void(const TavrelDDLogMessage&)> onMessage;
  std::atomic<int> flushes = 0;
  std::atomic<int> additions = 0;
  std::atomic<int> removals = 0;

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> texts_;
};

inline void logText(bool asynchronous, unsigned flag, std::string_view text) {
  TavrelDDLog::log(asynchronous, text, TavrelDDLogLevelVerbose, flag, 0, "Folder/Source.cpp", "Class::function", 42,
                   "Tag");
}

/// Every test starts and ends without loggers.
class LogTest : public ::testing::Test {
 protected:
  LogTest() { removeAll(); }
  ~LogTest() override {
    removeAll();
    tavrelDDLogLevel = TavrelDDLogLevelDebug;
  }

 private:
  static void removeAll() {
    TavrelDDLog::removeAllLoggers();
    TavrelDDLog::flushLog();
  }
};

}  // namespace tavrel::test
