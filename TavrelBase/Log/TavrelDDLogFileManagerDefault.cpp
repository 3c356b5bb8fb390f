#include "TavrelBase/Log/TavrelDDLogFileManagerDefault.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <system_error>
#include <tuple>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/Environment.h"
#include "TavrelBase/Log/LogClock.h"
#include "TavrelBase/Log/Private/LogFileName.h"

namespace tavrel {

const unsigned kTavrelDDDefaultLogMaxNumLogFiles = 10;
const std::uint64_t kTavrelDDDefaultLogFilesDiskQuota = std::uint64_t{20} * 1024 * 1024;

TavrelDDLogFileManager::~TavrelDDLogFileManager() = default;

namespace {

std::filesystem::path homeDirectory() {
  if (const auto home = environmentVariable("HOME"); home && home->starts_with('/')) return *home;
  passwd entry{};
  passwd* found = nullptr;
  char buffer[4096];
  if (getpwuid_r(getuid(), &entry, buffer, sizeof buffer, &found) == 0 && found && *found->pw_dir == '/') {
    return found->pw_dir;
  }
  return {};
}

std::filesystem::path stateDirectory() {
  // Relative paths in the variable are to be ignored.
  if (const auto state = environmentVariable("XDG_STATE_HOME"); state && state->starts_with('/')) return *state;
  if (const auto home = homeDirectory(); !home.empty()) return home / ".local" / "state";
  std::error_code error;
  const auto temporary = std::filesystem::temp_directory_path(error);
  return error ? std::filesystem::path("/tmp") : temporary;
}

template <typename T, typename Projection>
std::vector<T> collect(const std::vector<TavrelDDLogFileInfo>& infos, Projection projection) {
  std::vector<T> collected;
  collected.reserve(infos.size());
  for (const auto& info : infos) collected.push_back(projection(info));
  return collected;
}

std::vector<std::filesystem::path> pathsOf(const std::vector<TavrelDDLogFileInfo>& infos) {
  return collect<std::filesystem::path>(infos, [](const auto& info) { return info.filePath(); });
}

std::vector<std::string> namesOf(const std::vector<TavrelDDLogFileInfo>& infos) {
  return collect<std::string>(infos, [](const auto& info) { return info.fileName(); });
}

}  // namespace

struct TavrelDDLogFileManagerDefault::Implementation {
  std::optional<std::filesystem::path> givenDirectory;
  std::optional<LogFileProtection> defaultFileProtectionLevel;
  std::atomic<unsigned> maximumNumberOfLogFiles = kTavrelDDDefaultLogMaxNumLogFiles;
  std::atomic<std::uint64_t> logFilesDiskQuota = kTavrelDDDefaultLogFilesDiskQuota;
  std::atomic<bool> hasReportedDirectory = false;
  std::mutex deletion;
};

TavrelDDLogFileManagerDefault::TavrelDDLogFileManagerDefault(std::optional<std::filesystem::path> logsDirectory,
                                                             std::optional<LogFileProtection> protection)
    : implementation_(std::make_unique<Implementation>()) {
  implementation_->givenDirectory = std::move(logsDirectory);
  implementation_->defaultFileProtectionLevel = protection;
}

TavrelDDLogFileManagerDefault::~TavrelDDLogFileManagerDefault() = default;

unsigned TavrelDDLogFileManagerDefault::maximumNumberOfLogFiles() const {
  return implementation_->maximumNumberOfLogFiles;
}

std::uint64_t TavrelDDLogFileManagerDefault::logFilesDiskQuota() const { return implementation_->logFilesDiskQuota; }

std::optional<LogFileProtection> TavrelDDLogFileManagerDefault::defaultFileProtectionLevel() const {
  return implementation_->defaultFileProtectionLevel;
}

void TavrelDDLogFileManagerDefault::setMaximumNumberOfLogFiles(unsigned count) {
  if (implementation_->maximumNumberOfLogFiles.exchange(count) != count) deleteOldLogFilesSoon();
}

void TavrelDDLogFileManagerDefault::setLogFilesDiskQuota(std::uint64_t bytes) {
  if (implementation_->logFilesDiskQuota.exchange(bytes) != bytes) deleteOldLogFilesSoon();
}

std::string TavrelDDLogFileManagerDefault::applicationName() const { return program_invocation_short_name; }

std::filesystem::path TavrelDDLogFileManagerDefault::defaultLogsDirectory() const {
  return stateDirectory() / applicationName() / "Tavrel" / "Logs";
}

std::filesystem::path TavrelDDLogFileManagerDefault::logsDirectory() {
  std::filesystem::path directory =
      implementation_->givenDirectory ? *implementation_->givenDirectory : defaultLogsDirectory();
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (!error) {
    implementation_->hasReportedDirectory = false;
  } else if (!implementation_->hasReportedDirectory.exchange(true)) {
    ConsoleLog::write("TavrelDDFileLogManagerDefault: Error creating logsDirectory: {}: {}", directory.string(),
                      error.message());
  }
  return directory;
}

std::vector<TavrelDDLogFileInfo> TavrelDDLogFileManagerDefault::unsortedLogFileInfos() {
  std::vector<TavrelDDLogFileInfo> infos;
  std::error_code error;
  for (auto entry = std::filesystem::directory_iterator(logsDirectory(), error);
       !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    std::error_code ignored;
    if (isLogFile(entry->path().filename().native()) &&
        entry->symlink_status(ignored).type() == std::filesystem::file_type::regular) {
      infos.emplace_back(entry->path());
    }
  }
  return infos;
}

std::vector<TavrelDDLogFileInfo> TavrelDDLogFileManagerDefault::sortedLogFileInfos() {
  std::vector<TavrelDDLogFileInfo> infos = unsortedLogFileInfos();
  // Times of birth may be as coarse as a minute; then what was written last is newest.
  const auto key = [](const TavrelDDLogFileInfo& info) {
    const std::string name = info.fileName();
    return std::tuple(info.creationDate(), info.modificationDate(), LogFileName::parse(name)->number);
  };
  std::ranges::sort(infos, std::ranges::greater(), key);
  return infos;
}

std::vector<std::filesystem::path> TavrelDDLogFileManagerDefault::unsortedLogFilePaths() {
  return pathsOf(unsortedLogFileInfos());
}

std::vector<std::string> TavrelDDLogFileManagerDefault::unsortedLogFileNames() {
  return namesOf(unsortedLogFileInfos());
}

std::vector<std::filesystem::path> TavrelDDLogFileManagerDefault::sortedLogFilePaths() {
  return pathsOf(sortedLogFileInfos());
}

std::vector<std::string> TavrelDDLogFileManagerDefault::sortedLogFileNames() { return namesOf(sortedLogFileInfos()); }

std::string TavrelDDLogFileManagerDefault::newLogFileName() const {
  return LogFileName::make(applicationName(), LogClock::now());
}

bool TavrelDDLogFileManagerDefault::isLogFile(std::string_view fileName) const {
  const auto parsed = LogFileName::parse(fileName);
  return parsed && parsed->application == applicationName();
}

Expected<std::filesystem::path> TavrelDDLogFileManagerDefault::createNewLogFile() {
  const std::string name = newLogFileName();
  const std::filesystem::path directory = logsDirectory();
  const LogFileProtection protection =
      implementation_->defaultFileProtectionLevel.value_or(LogFileProtection::completeUntilFirstUserAuthentication);
  for (unsigned attempt = 1;; ++attempt) {
    std::filesystem::path path = directory / (attempt == 1 ? name : LogFileName::numbered(name, attempt));
    // Exclusive, so that two processes never take the same name.
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH);
    if (file < 0) {
      if (errno == EEXIST) continue;
      const int reason = errno;
      return failure("posix", reason,
                     fmt::format("cannot create {}: {}", path.string(), std::generic_category().message(reason)));
    }
    close(file);
    TavrelDDLogFileInfo(path).setProtection(protection);
    deleteOldLogFilesExcept(path);
    return path;
  }
}

void TavrelDDLogFileManagerDefault::deleteOldLogFiles() { deleteOldLogFilesExcept({}); }

void TavrelDDLogFileManagerDefault::deleteOldLogFilesExcept(const std::filesystem::path& kept) {
  const std::lock_guard lock(implementation_->deletion);
  const std::vector<TavrelDDLogFileInfo> infos = sortedLogFileInfos();
  std::size_t firstToDelete = infos.size();
  if (const std::uint64_t quota = implementation_->logFilesDiskQuota; quota != 0) {
    std::uint64_t total = 0;
    for (std::size_t i = 0; i < infos.size(); ++i) {
      total += infos[i].fileSize();
      if (total <= quota) continue;
      firstToDelete = i;
      break;
    }
  }
  if (const unsigned count = implementation_->maximumNumberOfLogFiles; count != 0) {
    firstToDelete = std::min<std::size_t>(firstToDelete, count);
  }
  if (firstToDelete == 0 && !infos.empty() && !infos.front().isArchived()) firstToDelete = 1;
  for (std::size_t i = firstToDelete; i < infos.size(); ++i) {
    // A file created after the clock was set back sorts behind older ones, and is about to be written all the same.
    if (infos[i].filePath() == kept) continue;
    std::error_code ignored;
    std::filesystem::remove(infos[i].filePath(), ignored);
  }
}

void TavrelDDLogFileManagerDefault::deleteOldLogFilesSoon() {
  DispatchQueue::global()->async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->deleteOldLogFiles();
  });
}

}  // namespace tavrel
