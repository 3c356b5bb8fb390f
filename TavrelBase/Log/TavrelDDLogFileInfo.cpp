#include "TavrelBase/Log/TavrelDDLogFileInfo.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <string_view>

#include "TavrelBase/Log/LogClock.h"
#include "TavrelBase/Log/Private/LogFileName.h"

namespace tavrel {
namespace {

constexpr const char* kArchivedAttribute = "user.archived";
constexpr const char* kProtectionAttribute = "user.protection";

constexpr std::string_view kProtectionTexts[] = {"None", "CompleteUntilFirstUserAuthentication", "CompleteUnlessOpen",
                                                 "Complete"};

TavrelDDLogFileInfo::TimePoint timePoint(const statx_timestamp& stamp) {
  return TavrelDDLogFileInfo::TimePoint(std::chrono::duration_cast<TavrelDDLogFileInfo::TimePoint::duration>(
      std::chrono::seconds(stamp.tv_sec) + std::chrono::nanoseconds(stamp.tv_nsec)));
}

bool setAttribute(const std::filesystem::path& path, const char* name, std::string_view value) {
  return setxattr(path.c_str(), name, value.data(), value.size(), 0) == 0;
}

}  // namespace

const TavrelDDLogFileInfo::FileAttributes& TavrelDDLogFileInfo::fileAttributes() const {
  if (attributes_) return *attributes_;
  attributes_ = FileAttributes{};
  FileAttributes& attributes = *attributes_;
  struct statx status {};
  if (statx(AT_FDCWD, filePath_.c_str(), 0, STATX_BASIC_STATS | STATX_BTIME, &status) != 0) return attributes;
  attributes.size = status.stx_size;
  attributes.modificationDate = timePoint(status.stx_mtime);
  attributes.permissions = status.stx_mode & 07777U;
  if (status.stx_mask & STATX_BTIME) {
    attributes.creationDate = timePoint(status.stx_btime);
  } else {
    const std::string name = fileName();
    const auto parsed = LogFileName::parse(name);
    attributes.creationDate = parsed ? parsed->minute : attributes.modificationDate;
  }
  return attributes;
}

double TavrelDDLogFileInfo::age() const {
  return std::chrono::duration<double>(LogClock::now() - creationDate()).count();
}

bool TavrelDDLogFileInfo::isArchived() const {
  if (isArchived_) return *isArchived_;
  char value = 0;
  const ssize_t length = getxattr(filePath_.c_str(), kArchivedAttribute, &value, sizeof value);
  if (length < 0 && errno == ENOTSUP) {
    isArchived_ = (fileAttributes().permissions & S_IWUSR) == 0;
  } else {
    isArchived_ = length == 1 && value == '1';
  }
  return *isArchived_;
}

bool TavrelDDLogFileInfo::setIsArchived(bool isArchived) {
  reset();
  const bool isSet = isArchived ? setAttribute(filePath_, kArchivedAttribute, "1")
                                : removexattr(filePath_.c_str(), kArchivedAttribute) == 0 || errno == ENODATA;
  if (isSet) return true;
  if (errno != ENOTSUP) return false;
  struct stat status {};
  if (stat(filePath_.c_str(), &status) != 0) return false;
  const mode_t writable = S_IWUSR | S_IWGRP | S_IWOTH;
  const mode_t mode = isArchived ? status.st_mode & ~writable : status.st_mode | S_IWUSR;
  return chmod(filePath_.c_str(), mode & 07777U) == 0;
}

std::optional<LogFileProtection> TavrelDDLogFileInfo::protection() const {
  char value[64];
  const ssize_t length = getxattr(filePath_.c_str(), kProtectionAttribute, value, sizeof value);
  if (length <= 0) return std::nullopt;
  const std::string_view text(value, static_cast<std::size_t>(length));
  for (unsigned i = 0; i < std::size(kProtectionTexts); ++i) {
    if (kProtectionTexts[i] == text) return static_cast<LogFileProtection>(i);
  }
  return std::nullopt;
}

bool TavrelDDLogFileInfo::setProtection(LogFileProtection protection) {
  if (protection != LogFileProtection::none && chmod(filePath_.c_str(), S_IRUSR | S_IWUSR) != 0) return false;
  reset();
  return setAttribute(filePath_, kProtectionAttribute, kProtectionTexts[static_cast<unsigned>(protection)]);
}

void TavrelDDLogFileInfo::reset() {
  attributes_.reset();
  isArchived_.reset();
}

}  // namespace tavrel
