// When a file is full or old the next one begins, and no line is lost or split.
#include <limits>
#include <thread>

#include "FileLoggerTestSupport.h"
#include "Platform/Dispatch/DispatchSemaphore.h"

namespace tavrel {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using FileLoggerRollingTest = test::FileLoggerTest;
using test::logText;
using test::ObservedManager;
using test::readLines;
using test::readText;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// Several threads at once; now and then a line is synchronous.
void logNumberedLines(int threadCount, int lines) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < threadCount; ++thread) {
    threads.emplace_back([thread, lines] {
      for (int i = 0; i < lines; ++i) logText(i % 10000 != 0, TavrelDDLogFlagInfo, fmt::format("<{}:{}>", thread, i));
    });
  }
  for (auto& thread : threads) thread.join();
  TavrelDDLog::flushLog();
}

/// The files hold all numbered lines, whole and in each thread's order.
void expectEveryLine(TavrelDDLogFileManager& manager, int threadCount, int lines) {
  std::vector<int> next(static_cast<std::size_t>(threadCount));
  const auto paths = manager.sortedLogFilePaths();
  for (auto path = paths.rbegin(); path != paths.rend(); ++path) {
    for (const std::string& line : readLines(*path)) {
      int thread = 0;
      int number = 0;
      int year = 0;
      const auto start = line.find("] Tag <");
      ASSERT_NE(start, std::string::npos) << line;
      ASSERT_EQ(
          std::sscanf(line.c_str() + start, "] Tag <%d:%d> Class::function Source.cpp:42 %d/", &thread, &number, &year),
          3)
          << line;
      ASSERT_EQ(number, next.at(static_cast<std::size_t>(thread))++);
    }
  }
  for (const int count : next) EXPECT_EQ(count, lines);
}

TEST_F(FileLoggerRollingTest, RollsBySizeInMidStreamWithoutALostOrSplitLine) {
  constexpr int kThreads = 4;
  constexpr int kLines = 2000;
  manager_->setMaximumNumberOfLogFiles(0);
  logger_->setMaximumFileSize(20000);
  logNumberedLines(kThreads, kLines);

  auto paths = manager_->sortedLogFilePaths();
  EXPECT_GT(paths.size(), 20U);
  EXPECT_EQ(manager_->rolled, std::vector<fs::path>(paths.rbegin(), paths.rend() - 1));
  for (auto path = paths.rbegin(); path != paths.rend(); ++path) {
    const std::string text = readText(*path);
    EXPECT_EQ(text.back(), '\n') << *path;
    const bool isLast = *path == paths.front();
    EXPECT_EQ(TavrelDDLogFileInfo(*path).isArchived(), !isLast);
    EXPECT_LT(text.size(), 20200U);
    EXPECT_TRUE(isLast || text.size() >= 20000U);
  }
  expectEveryLine(*manager_, kThreads, kLines);
}

TEST_F(FileLoggerRollingTest, EightThreadsAndThreeLoggersKeepEveryLineWhole) {
  constexpr int kThreads = 8;
  constexpr int kLines = TAVREL_LOG_TEST_LINES;
  test::LogTestFolder folders[2];
  std::vector<std::shared_ptr<ObservedManager>> managers = {manager_};
  for (const auto& folder : folders) {
    managers.push_back(std::make_shared<ObservedManager>(folder.path()));
    TavrelDDLog::addLogger(std::make_shared<TavrelDDFileLogger>(managers.back()));
  }
  for (const auto& manager : managers) {
    manager->setMaximumNumberOfLogFiles(0);
    manager->setLogFilesDiskQuota(0);
  }
  logNumberedLines(kThreads, kLines);
  for (const auto& manager : managers) expectEveryLine(*manager, kThreads, kLines);
}

TEST_F(FileLoggerRollingTest, RollsByAge) {
  log("young");
  const fs::path first = current();
  logger_->maybeRollLogFileDueToAge();
  EXPECT_EQ(current(), first);
  LogClock::set([] { return std::chrono::system_clock::now() + 24h + 1s; });
  logger_->maybeRollLogFileDueToAge();
  EXPECT_THAT(manager_->rolled, ElementsAre(first));
  EXPECT_TRUE(TavrelDDLogFileInfo(first).isArchived());
  LogClock::set(nullptr);  // the file system dates new files by its own clock
  log("next");
  EXPECT_NE(current(), first);
  EXPECT_THAT(readText(current()), HasSubstr("next"));

  logger_->setRollingFrequency(0);
  LogClock::set([] { return std::chrono::system_clock::now() + 240h; });
  logger_->maybeRollLogFileDueToAge();
  EXPECT_EQ(manager_->rolled.size(), 1U);

  const test::ConsoleCapture console;
  logger_->setRollingFrequency(std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(logger_->rollingFrequency(), 0);
  EXPECT_EQ(console.messages().size(), 1U);
  logger_->setRollingFrequency(std::numeric_limits<double>::infinity());
  EXPECT_EQ(manager_->rolled.size(), 1U);
}

TEST_F(FileLoggerRollingTest, TheTimerRollsByItself) {
  logger_->setRollingFrequency(0.2);
  log("text");
  const fs::path path = current();
  for (int i = 0; i < 500 && !TavrelDDLogFileInfo(path).isArchived(); ++i) std::this_thread::sleep_for(10ms);
  EXPECT_TRUE(TavrelDDLogFileInfo(path).isArchived());
  EXPECT_GE(std::chrono::system_clock::now() - TavrelDDLogFileInfo(path).creationDate(), 200ms);
}

TEST_F(FileLoggerRollingTest, RollsOnRequest) {
  log("text");
  const fs::path first = current();
  EXPECT_GE(logger_->currentLogFileHandle(), 0);
  DispatchSemaphore rolled(0);
  logger_->rollLogFileWithCompletionBlock([&] { rolled.signal(); });
  ASSERT_TRUE(rolled.wait(10s));
  EXPECT_TRUE(TavrelDDLogFileInfo(first).isArchived());
  EXPECT_NE(current(), first);
}

TEST_F(FileLoggerRollingTest, ARestartContinuesTheLastFileOrArchivesIt) {
  log("first run");
  const fs::path first = current();
  start();
  log("second run");
  EXPECT_EQ(current(), first);
  EXPECT_THAT(readText(first), ::testing::ContainsRegex("first run.*\n.*second run"));

  start();
  logger_->setMaximumFileSize(10);
  log("too large");
  EXPECT_THAT(manager_->archived, ElementsAre(first));
  EXPECT_TRUE(TavrelDDLogFileInfo(first).isArchived());

  start();
  log("after an archived one");
  EXPECT_TRUE(manager_->archived.empty());
  const fs::path third = current();
  start();
  LogClock::set([] { return std::chrono::system_clock::now() + 25h; });
  log("too old");
  EXPECT_THAT(manager_->archived, ElementsAre(third));
  LogClock::set(nullptr);

  const fs::path fourth = current();
  start();
  logger_->setDoNotReuseLogFiles(true);
  log("on its own");
  EXPECT_NE(current(), fourth);
  EXPECT_FALSE(TavrelDDLogFileInfo(fourth).isArchived());

  const fs::path fifth = current();
  TavrelDDLogFileInfo(fifth).setProtection(LogFileProtection::complete);
  start();
  log("not under that protection");
  EXPECT_THAT(manager_->archived, ElementsAre(fifth));
}

}  // namespace
}  // namespace tavrel
