#include "TavrelBase/Log/TavrelDDLogFileManagerDefault.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <regex>
#include <thread>

#include "Support/LogTestSupport.h"
#include "TavrelBase/Log/LogClock.h"

namespace tavrel {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

class LogFileManagerTest : public ::testing::Test {
 protected:
  ~LogFileManagerTest() override { LogClock::set(nullptr); }

  fs::path createFile(std::uintmax_t size = 0) {
    const auto path = manager_->createNewLogFile();
    EXPECT_TRUE(path) << path.error().description;
    fs::resize_file(*path, size);
    return *path;
  }
  fs::path put(const std::string& name) {
    std::ofstream(folder_.path() / name) << "content";
    return folder_.path() / name;
  }
  static bool waitUntilGone(const fs::path& path) {
    for (int i = 0; i < 500 && fs::exists(path); ++i) std::this_thread::sleep_for(10ms);
    return !fs::exists(path);
  }

  test::LogTestFolder folder_;
  std::shared_ptr<TavrelDDLogFileManagerDefault> manager_ =
      std::make_shared<TavrelDDLogFileManagerDefault>(folder_.path());
  std::string app_ = manager_->applicationName();
};

TEST_F(LogFileManagerTest, NamesHoldTheApplicationAndTheMinute) {
  LogClock::set(
      [] { return LogClock::TimePoint(std::chrono::sys_days(std::chrono::March / 1 / 2026) + 12h + 34min + 56s); });
  EXPECT_EQ(manager_->newLogFileName(), app_ + " 2026-03-01 12-34.log");
  EXPECT_EQ(createFile().filename(), app_ + " 2026-03-01 12-34.log");
  EXPECT_EQ(createFile().filename(), app_ + " 2026-03-01 12-34 2.log");
  EXPECT_EQ(createFile().filename(), app_ + " 2026-03-01 12-34 3.log");
}

TEST_F(LogFileManagerTest, OnlyItsOwnNamesAreLogFiles) {
  for (const char* good : {" 2026-03-01 12-34.log", " 2026-03-01 12-34 2.log", " 2024-02-29 00-00 137.log"}) {
    EXPECT_TRUE(manager_->isLogFile(app_ + good)) << good;
  }
  for (const char* foreign :
       {".log", " .log", " notes.log", " 2026-13-01 12-34.log", " 2025-02-29 12-34.log", " 2026-03-01 24-00.log",
        " 2026-03-01 12-60.log", " 2026-03-01.log", " 2026-03-01 12-34.txt", " 2026-03-01 12-34 x.log",
        " 2026-03-01 12-34 1.log", "2026-03-01 12-34.log", " 2026-03-01 12-34.log.gz", "-x 2026-03-01 12-34.log",
        " 2026-03-01 12-34 99999999999999999999.log", "\n2026-03-01 12-34.log"}) {
    EXPECT_FALSE(manager_->isLogFile(app_ + foreign)) << foreign;
  }
  EXPECT_FALSE(manager_->isLogFile("x" + app_ + " 2026-03-01 12-34.log"));
}

TEST_F(LogFileManagerTest, ForeignFilesAreLeftAlone) {
  const fs::path foreign[] = {put("notes.log"), put(app_ + " old.log"), put("other 2026-03-01 12-34.log")};
  fs::create_directory(folder_.path() / (app_ + " 2020-01-01 00-00.log"));
  fs::create_symlink("notes.log", folder_.path() / (app_ + " 2020-01-01 00-01.log"));
  manager_->setMaximumNumberOfLogFiles(1);
  createFile();
  const fs::path newest = createFile();
  EXPECT_EQ(manager_->unsortedLogFilePaths(), std::vector<fs::path>{newest});
  for (const auto& path : foreign) EXPECT_TRUE(fs::exists(path)) << path;
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path()), {}), 6);
}

TEST_F(LogFileManagerTest, OfTwelveFilesTheTenNewestStay) {
  std::vector<fs::path> created;
  for (int i = 0; i < 12; ++i) created.push_back(createFile(1 << 20));
  manager_->deleteOldLogFiles();
  auto sorted = manager_->sortedLogFilePaths();
  EXPECT_EQ(sorted, std::vector<fs::path>(created.rbegin(), created.rbegin() + 10));
  EXPECT_EQ(manager_->sortedLogFileNames().front(), created.back().filename());
}

TEST_F(LogFileManagerTest, NothingIsDeletedWithoutLimits) {
  manager_->setMaximumNumberOfLogFiles(0);
  manager_->setLogFilesDiskQuota(0);
  for (int i = 0; i < 15; ++i) createFile(3 << 20);
  manager_->deleteOldLogFiles();
  EXPECT_EQ(manager_->unsortedLogFileNames().size(), 15U);
}

TEST_F(LogFileManagerTest, TheQuotaCountsFromTheNewest) {
  const fs::path oldest = createFile(400);
  const fs::path middle = createFile(500);
  const fs::path newest = createFile(500);
  manager_->setLogFilesDiskQuota(1000);
  EXPECT_TRUE(waitUntilGone(oldest));  // a change deletes by itself
  EXPECT_TRUE(fs::exists(middle));
  fs::resize_file(newest, 1001);
  manager_->deleteOldLogFiles();
  EXPECT_EQ(manager_->sortedLogFilePaths(), std::vector<fs::path>{newest});  // over the quota alone, and kept
  TavrelDDLogFileInfo(newest).setIsArchived(true);
  manager_->deleteOldLogFiles();
  EXPECT_TRUE(manager_->unsortedLogFilePaths().empty());
}

TEST_F(LogFileManagerTest, AFileCreatedAfterTheClockWasSetBackIsNotDeletedAtOnce) {
  manager_->setMaximumNumberOfLogFiles(1);
  manager_->setLogFilesDiskQuota(1);
  const fs::path first = createFile(10);
  const fs::path second = createFile();
  EXPECT_TRUE(fs::exists(second));
  EXPECT_FALSE(fs::exists(first));
}

TEST_F(LogFileManagerTest, InfoReadsOnceUntilReset) {
  const fs::path path = createFile(5);
  TavrelDDLogFileInfo info(path);
  EXPECT_EQ(info.fileName(), path.filename());
  EXPECT_EQ(info.fileSize(), 5U);
  EXPECT_LT(std::chrono::abs(info.creationDate() - std::chrono::system_clock::now()), 1min);
  LogClock::set([] { return std::chrono::system_clock::now() + 25h; });
  EXPECT_NEAR(info.age(), 25 * 3600, 60);
  fs::resize_file(path, 7);
  EXPECT_EQ(info.fileSize(), 5U);
  info.reset();
  EXPECT_EQ(info.fileSize(), 7U);
  EXPECT_EQ(TavrelDDLogFileInfo(folder_.path() / "missing").fileSize(), 0U);
}

TEST_F(LogFileManagerTest, TheArchivedMarkStaysWithTheFile) {
  const fs::path path = createFile();
  TavrelDDLogFileInfo info(path);
  EXPECT_FALSE(info.isArchived());
  EXPECT_TRUE(info.setIsArchived(true));
  EXPECT_TRUE(info.isArchived());
  EXPECT_TRUE(TavrelDDLogFileInfo(path).isArchived());
  EXPECT_TRUE(info.setIsArchived(false));
  EXPECT_TRUE(info.setIsArchived(false));
  EXPECT_FALSE(TavrelDDLogFileInfo(path).isArchived());
  EXPECT_FALSE(TavrelDDLogFileInfo(folder_.path() / "missing").setIsArchived(true));
}

TEST_F(LogFileManagerTest, ProtectedFilesAreTheirOwners) {
  const fs::path path = createFile();
  EXPECT_EQ(TavrelDDLogFileInfo(path).fileAttributes().permissions, 0600U);
  TavrelDDLogFileManagerDefault open(folder_.path(), LogFileProtection::none);
  const auto readable = open.createNewLogFile();
  EXPECT_EQ(TavrelDDLogFileInfo(*readable).protection(), LogFileProtection::none);
  EXPECT_EQ(TavrelDDLogFileInfo(*readable).fileAttributes().permissions & S_IRUSR, S_IRUSR);
}

TEST_F(LogFileManagerTest, TheDefaultDirectoryIsTheApplicationsStateDirectory) {
  setenv("XDG_STATE_HOME", folder_.path().c_str(), 1);
  const TavrelDDLogFileManagerDefault manager;
  EXPECT_EQ(manager.defaultLogsDirectory(), folder_.path() / app_ / "Tavrel" / "Logs");
  setenv("XDG_STATE_HOME", "relative", 1);
  EXPECT_TRUE(manager.defaultLogsDirectory().is_absolute());
  unsetenv("XDG_STATE_HOME");
}

TEST_F(LogFileManagerTest, ADirectoryThatCannotBeMadeIsReportedOnce) {
  const test::ConsoleCapture console;
  const fs::path path = put("file") / "Logs";
  TavrelDDLogFileManagerDefault manager(path);
  EXPECT_EQ(manager.logsDirectory(), path);
  EXPECT_EQ(manager.logsDirectory(), path);
  const auto created = manager.createNewLogFile();
  ASSERT_FALSE(created);
  EXPECT_EQ(created.error().code, ENOTDIR);
  ASSERT_EQ(console.messages().size(), 1U);
  EXPECT_THAT(console.messages()[0],
              ::testing::StartsWith("TavrelDDFileLogManagerDefault: Error creating logsDirectory: " + path.string()));
}

constexpr int kMountRefused = 77;

/// In a process of its own, on a file system without extended attributes.
void markOnPlainFileSystem(const fs::path& folder) {
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("none", folder.c_str(), "ramfs", 0, nullptr) != 0) {
    std::exit(kMountRefused);
  }
  const auto path = std::make_shared<TavrelDDLogFileManagerDefault>(folder)->createNewLogFile();
  if (setxattr(path->c_str(), "user.archived", "1", 1, 0) == 0 || errno != ENOTSUP) std::exit(1);
  TavrelDDLogFileInfo info(*path);
  if (info.isArchived() || !info.setIsArchived(true) || !TavrelDDLogFileInfo(*path).isArchived()) std::exit(2);
  if (info.fileAttributes().permissions != 0400) std::exit(3);
  if (!info.setIsArchived(false) || info.isArchived()) std::exit(4);
  // Its times of birth are missing or coarse too; the order still holds.
  std::exit(LogClock::now() - info.creationDate() < 2min ? 0 : 5);
}

TEST_F(LogFileManagerTest, WithoutExtendedAttributesTheWritePermissionIsTheMark) {
  if (geteuid() != 0) GTEST_SKIP() << "only root may mount a file system without extended attributes";
  bool isMountRefused = false;
  const auto passes = [&](int status) {
    isMountRefused = WIFEXITED(status) && WEXITSTATUS(status) == kMountRefused;
    return isMountRefused || (WIFEXITED(status) && WEXITSTATUS(status) == 0);
  };
  EXPECT_EXIT(markOnPlainFileSystem(folder_.path()), passes, "");
  if (isMountRefused) GTEST_SKIP() << "mounting a file system is not permitted here";
}

}  // namespace
}  // namespace tavrel
