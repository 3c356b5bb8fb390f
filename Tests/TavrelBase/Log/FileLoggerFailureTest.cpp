// Folders and disks that take no lines, and files that somebody else moves or deletes.
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

#include "FileLoggerTestSupport.h"

namespace tavrel {
namespace {

namespace fs = std::filesystem;
using FileLoggerFailureTest = test::FileLoggerTest;
using test::logText;
using test::readLines;
using test::readText;
using ::testing::HasSubstr;

TEST_F(FileLoggerFailureTest, AFileDeletedOrMovedFromOutsideIsReplacedByTheNextMessage) {
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

TEST_F(FileLoggerFailureTest, AFolderThatTakesNoFilesIsReportedTenTimes) {
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

TEST_F(FileLoggerFailureTest, AReadOnlyFolderDoesNotDisturbTheApplication) {
  const fs::path readOnly = folder_.path() / "readOnly";
  fs::create_directory(readOnly);
  fs::permissions(readOnly, fs::perms(0555));
  fs::permissions(folder_.path(), fs::perms(0755));
  const auto tenTimes = ::testing::Truly([](const std::string& output) {
    return test::count(output, "logMessage: cannot create") == 10 &&
           output.find("Too many exceptions") != std::string::npos;
  });
  EXPECT_EXIT(logIntoReadOnlyFolder(readOnly), ::testing::ExitedWithCode(0), tenTimes);
}

TEST_F(FileLoggerFailureTest, AFullDiskLosesWholeLinesOnlyAndIsReportedTenTimes) {
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

}  // namespace
}  // namespace tavrel
