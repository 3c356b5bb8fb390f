#include "TavrelBase/Log/TavrelDDFileLogger.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <csignal>
#include <map>
#include <thread>

#include "Support/LogTestSupport.h"
#include "TavrelBase/Log/LogClock.h"

namespace tavrel {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using test::logText;
using test::readLines;
using test::readText;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// Remembers what the logger tells its manager.
struct ObservedManager : TavrelDDLogFileManagerDefault {
  using TavrelDDLogFileManagerDefault::TavrelDDLogFileManagerDefault;
  void didArchiveLogFile(const fs::path& path) override { archived.push_back(path); }
  void didRollAndArchiveLogFile(const fs::path& path) override { rolled.push_back(path); }
  std::vector<fs::path> archived;
  std::vector<fs::path> rolled;
};

class FileLoggerTest : public test::LogTest {
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
  fs::path current() { return logger_->currentLogFileInfo()->filePath(); }
  /// The text of all files, oldest first.
  std::string everything() {
    std::string text;
    auto paths = manager_->sortedLogFilePaths();
    for (auto path = paths.rbegin(); path != paths.rend(); ++path) text += readText(*path);
    return text;
  }

  test::LogTestFolder folder_;
  std::shared_ptr<ObservedManager> manager_;
  std::shared_ptr<TavrelDDFileLogger> logger_;
};

TEST_F(FileLoggerTest, ALineSaysWhoWhatAndWhere) {
  logger_->setLogFormatter(nullptr);
  TavrelDDLog::log(false, "torch on", 15, 1, 0, "Capture/Camera.cpp", "TavrelCamera::setTorch", 12, "TavrelCamera");
  logText(true, TavrelDDLogFlagDebug, "ends itself\n");
  TavrelDDLog::flushLog();
  const std::string head = fmt::format("{}[{}:{}] ", program_invocation_short_name, getpid(), gettid());
  EXPECT_EQ(readText(current()),
            head + "[D] TavrelCamera torch on TavrelCamera::setTorch Camera.cpp:12\n" +  //
                head + "[V] Tag ends itself\n Class::function Source.cpp:42\n");
}

TEST_F(FileLoggerTest, TheFormattersResultEndsTheLine) {
  const TavrelDDLogMessage::Clock::time_point time(std::chrono::sys_days(std::chrono::March / 1 / 2026) + 1h + 2min +
                                                   3s + 4ms);
  TavrelDDLog::log(false, TavrelDDLogMessage("text", 15, 4, 0, "f.cpp", "f", 1, "Tag", 0, time));
  EXPECT_THAT(readText(current()), HasSubstr(" [I] Tag text f f.cpp:1 2026/03/01 01:02:03:004 +0000\n"));

  struct Marked : TavrelDDLogFormatter {
    std::string formatLogMessage(const TavrelDDLogMessage&) override { return "<mark>"; }
  };
  logger_->setLogFormatter(std::make_shared<Marked>());
  log("a");
  EXPECT_TRUE(logger_->automaticallyAppendNewlineForCustomFormatters());
  logger_->setAutomaticallyAppendNewlineForCustomFormatters(false);
  log("b");
  log("c");
  EXPECT_THAT(readText(current()),
              ::testing::ContainsRegex(" a [^\n]* <mark>\n[^\n]* b [^\n]* <mark>[^\n]* c [^\n]* <mark>$"));
}

TEST_F(FileLoggerTest, DefaultsAreThoseOfTheConstants) {
  EXPECT_EQ(logger_->maximumFileSize(), 6U << 20);
  EXPECT_EQ(logger_->rollingFrequency(), 86400.0);
  EXPECT_FALSE(logger_->doNotReuseLogFiles());
  EXPECT_EQ(manager_->maximumNumberOfLogFiles(), 10U);
  EXPECT_EQ(manager_->logFilesDiskQuota(), 20U << 20);
}

TEST_F(FileLoggerTest, RollsBySizeInMidStreamWithoutALostOrSplitLine) {
  constexpr int kThreads = 4;
  constexpr int kLines = 2000;
  manager_->setMaximumNumberOfLogFiles(0);
  logger_->setMaximumFileSize(20000);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread] {
      for (int i = 0; i < kLines; ++i) logText(true, TavrelDDLogFlagInfo, fmt::format("<{}:{}>", thread, i));
    });
  }
  for (auto& thread : threads) thread.join();
  TavrelDDLog::flushLog();

  auto paths = manager_->sortedLogFilePaths();
  EXPECT_GT(paths.size(), 20U);
  EXPECT_EQ(manager_->rolled, std::vector<fs::path>(paths.rbegin(), paths.rend() - 1));
  int next[kThreads] = {};
  for (auto path = paths.rbegin(); path != paths.rend(); ++path) {
    const std::string text = readText(*path);
    EXPECT_EQ(text.back(), '\n') << *path;
    const bool isLast = *path == paths.front();
    EXPECT_EQ(TavrelDDLogFileInfo(*path).isArchived(), !isLast);
    EXPECT_LT(text.size(), 20200U);
    EXPECT_TRUE(isLast || text.size() >= 20000U);
    for (const std::string& line : readLines(*path)) {
      int thread = 0;
      int number = 0;
      ASSERT_EQ(std::sscanf(line.c_str() + line.find('<'), "<%d:%d> Class::function", &thread, &number), 2) << line;
      EXPECT_EQ(number, next[thread]++);
    }
  }
  for (const int count : next) EXPECT_EQ(count, kLines);
}

TEST_F(FileLoggerTest, RollsByAge) {
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

TEST_F(FileLoggerTest, TheTimerRollsByItself) {
  logger_->setRollingFrequency(0.2);
  log("text");
  const fs::path path = current();
  for (int i = 0; i < 500 && !TavrelDDLogFileInfo(path).isArchived(); ++i) std::this_thread::sleep_for(10ms);
  EXPECT_TRUE(TavrelDDLogFileInfo(path).isArchived());
  EXPECT_GE(std::chrono::system_clock::now() - TavrelDDLogFileInfo(path).creationDate(), 200ms);
}

TEST_F(FileLoggerTest, RollsOnRequest) {
  log("text");
  const fs::path first = current();
  EXPECT_GE(logger_->currentLogFileHandle(), 0);
  DispatchSemaphore rolled(0);
  logger_->rollLogFileWithCompletionBlock([&] { rolled.signal(); });
  ASSERT_TRUE(rolled.wait(10s));
  EXPECT_TRUE(TavrelDDLogFileInfo(first).isArchived());
  EXPECT_NE(current(), first);
}

TEST_F(FileLoggerTest, ARestartContinuesTheLastFileOrArchivesIt) {
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

TEST_F(FileLoggerTest, AFileDeletedOrMovedFromOutsideIsReplacedByTheNextMessage) {
  log("one");
  const fs::path first = current();
  fs::remove(first);
  log("two");
  EXPECT_THAT(readText(current()), HasSubstr("two"));

  const fs::path moved = folder_.path() / "moved";
  const fs::path second = current();
  fs::rename(second, moved);
  std::ofstream(second) << "a stranger\n";
  TavrelDDLogFileInfo(second).setIsArchived(true);
  log("three");
  EXPECT_THAT(readText(moved), ::testing::Not(HasSubstr("three")));
  EXPECT_EQ(readText(second), "a stranger\n");
  EXPECT_NE(current(), second);
  EXPECT_THAT(readText(current()), HasSubstr("three"));

  fs::remove_all(folder_.path());
  log("four");
  EXPECT_THAT(readText(current()), HasSubstr("four"));

  // The file keeps its name, and a folder above it gets another one.
  const fs::path away = folder_.path().parent_path() / (folder_.path().filename().string() + "-away");
  fs::rename(folder_.path(), away);
  log("five");
  const std::string text = everything();
  fs::remove_all(away);
  EXPECT_THAT(text, HasSubstr("five"));
}

TEST_F(FileLoggerTest, HostileTextsSurvive) {
  const std::string percent = "100 % %s %n {} {0} {:x}";
  const std::string large(1 << 20, 'x');
  TavrelDDLog::log(false, percent, 15, 8, 0, "%s.cpp", "f<{}>", 1, "{}%d");
  log("first\nsecond\r\n\tthird");
  log(std::string_view("a\0b", 3));
  log("valid \xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80 broken \xFF \xC3 \xED\xA0\x80 \xF0\x9F");
  log(large);
  log("");
  TAVREL_LOG_INFO("%{}", "{} {}", percent, "\xFE");
  TavrelDDLog::flushLog();
  const std::string text = everything();
  EXPECT_THAT(text, HasSubstr("{}%d " + percent + " f<{}> %s.cpp:1"));
  EXPECT_THAT(text, HasSubstr("Tag first\nsecond\r\n\tthird Class::function"));
  EXPECT_NE(text.find(std::string_view("a\0b", 3)), std::string::npos);
  EXPECT_THAT(text, HasSubstr("valid \xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80 broken \xEF\xBF\xBD \xEF\xBF\xBD "
                              "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD \xEF\xBF\xBD\xEF\xBF\xBD Class::function"));
  EXPECT_NE(text.find(" " + large + " Class::function"), std::string::npos);
  EXPECT_THAT(text, HasSubstr("%{} " + percent + " \xEF\xBF\xBD FileLoggerTest_HostileTextsSurvive_Test::TestBody"));
}

TEST_F(FileLoggerTest, HostileNamesSurvive) {
  char hostile[] = "100% %s {}\n\xFF 2026-01-01 00-00";
  char* const name = std::exchange(program_invocation_short_name, hostile);
  const fs::path directory = folder_.path() / "%s {0}\n\xFE";
  const auto manager = std::make_shared<TavrelDDLogFileManagerDefault>(directory);
  const auto logger = std::make_shared<TavrelDDFileLogger>(manager);
  manager->setMaximumNumberOfLogFiles(2);
  TavrelDDLog::addLogger(logger);
  for (int i = 0; i < 4; ++i) {
    log("text");
    logger->setMaximumFileSize(1);  // every further line is a file
  }
  const auto names = manager->sortedLogFileNames();
  const auto paths = manager->sortedLogFilePaths();
  program_invocation_short_name = name;
  ASSERT_EQ(names.size(), 2U);
  for (const std::string& each : names) EXPECT_EQ(each.find(std::string(hostile) + " 20"), 0U) << each;
  EXPECT_THAT(readText(paths[0]), ::testing::StartsWith("100% %s {}\n\xEF\xBF\xBD 2026-01-01 00-00["));
}

TEST_F(FileLoggerTest, AFolderThatTakesNoFilesIsReportedTenTimes) {
  const test::ConsoleCapture console;
  std::ofstream(folder_.path() / "file") << "in the way";
  const auto logger = std::make_shared<TavrelDDFileLogger>(
      std::make_shared<TavrelDDLogFileManagerDefault>(folder_.path() / "file" / "Logs"));
  TavrelDDLog::addLogger(logger);
  for (int i = 0; i < 100; ++i) logText(true, TavrelDDLogFlagInfo, "text");
  TavrelDDLog::flushLog();
  EXPECT_FALSE(logger->currentLogFileInfo());
  EXPECT_EQ(logger->currentLogFileHandle(), -1);
  const auto& messages = console.messages();
  EXPECT_EQ(std::ranges::count_if(
                messages, [](const auto& m) { return m.starts_with("TavrelDDFileLogger.logMessage: cannot create"); }),
            10);
  EXPECT_EQ(messages.back(), "TavrelDDFileLogger.logMessage: Too many exceptions -- will not log any more of them.");
  EXPECT_EQ(messages.size(), 12U);               // and once that the folder cannot be made
  EXPECT_EQ(readLines(current()).size(), 100U);  // the other logger
}

/// A process without special rights, in a folder that it may only read.
void logIntoReadOnlyFolder(const fs::path& folder) {
  if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0) std::exit(1);
  TavrelDDLog::removeAllLoggers();
  TavrelDDLog::addLogger(std::make_shared<TavrelDDFileLogger>(std::make_shared<TavrelDDLogFileManagerDefault>(folder)));
  for (int i = 0; i < 100; ++i) logText(i % 2 == 0, TavrelDDLogFlagInfo, "text");
  std::exit(0);
}

TEST_F(FileLoggerTest, AReadOnlyFolderDoesNotDisturbTheApplication) {
  const fs::path readOnly = folder_.path() / "readOnly";
  fs::create_directory(readOnly);
  fs::permissions(readOnly, fs::perms(0555));
  fs::permissions(folder_.path(), fs::perms(0755));
  const auto tenTimes = ::testing::Truly([](const std::string& output) {
    std::size_t count = 0;
    for (auto at = output.find("logMessage: cannot create"); at != std::string::npos;
         at = output.find("logMessage: cannot create", at + 1)) {
      ++count;
    }
    return count == 10 && output.find("Too many exceptions") != std::string::npos;
  });
  EXPECT_EXIT(logIntoReadOnlyFolder(readOnly), ::testing::ExitedWithCode(0), tenTimes);
}

TEST_F(FileLoggerTest, AFullDiskLosesWholeLinesOnlyAndIsReportedTenTimes) {
  const test::ConsoleCapture console;
  log("before");
  const fs::path path = current();
  // A limit on the size of files fails like a full disk: in the middle of a line.
  struct rlimit before {};
  getrlimit(RLIMIT_FSIZE, &before);
  const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
  const struct rlimit small = {5000, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  for (int i = 0; i < 300; ++i) logText(i % 50 != 0, TavrelDDLogFlagInfo, fmt::format("number {}", i));
  for (int i = 0; i < 20; ++i) log("full");
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, oldHandler);
  log("after");

  const auto lines = readLines(path);
  EXPECT_GT(lines.size(), 20U);
  EXPECT_THAT(lines.back(), HasSubstr("after"));
  const std::size_t lost = 300 + 20 + 2 - (lines.size() - 1);
  EXPECT_THAT(
      lines[lines.size() - 2],
      HasSubstr(fmt::format("[W] TavrelLogger {} messages were lost before this line: cannot write {}: File too "
                            "large RollingLogFile::write - 20",
                            lost, path.string())));
  for (const std::string& line : lines) {
    if (&line == &lines[lines.size() - 2]) continue;
    EXPECT_THAT(line, ::testing::StartsWith(program_invocation_short_name));
    EXPECT_THAT(line, HasSubstr("Class::function Source.cpp:42 20"));
    EXPECT_EQ(line.find("Tag", line.find("Tag") + 1), std::string::npos) << line;
  }
  ASSERT_EQ(console.messages().size(), 11U);
  EXPECT_THAT(console.messages()[0],
              "TavrelDDFileLogger.logMessage: cannot write " + path.string() + ": File too large");
}

TEST_F(FileLoggerTest, EightThreadsAndThreeLoggersKeepEveryLineWhole) {
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
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread] {
      for (int i = 0; i < kLines; ++i) logText(i % 10000 != 0, TavrelDDLogFlagInfo, fmt::format("<{}:{}>", thread, i));
    });
  }
  for (auto& thread : threads) thread.join();
  TavrelDDLog::flushLog();
  for (const auto& manager : managers) {
    int next[kThreads] = {};
    auto paths = manager->sortedLogFilePaths();
    for (auto path = paths.rbegin(); path != paths.rend(); ++path) {
      for (const std::string& line : readLines(*path)) {
        int thread = 0;
        int number = 0;
        int year = 0;
        const auto start = line.find("] Tag <");
        ASSERT_NE(start, std::string::npos) << line;
        ASSERT_EQ(std::sscanf(line.c_str() + start, "] Tag <%d:%d> Class::function Source.cpp:42 %d/", &thread, &number,
                              &year),
                  3)
            << line;
        ASSERT_EQ(number, next[thread]++);
      }
    }
    for (const int count : next) EXPECT_EQ(count, kLines);
  }
}

}  // namespace
}  // namespace tavrel
