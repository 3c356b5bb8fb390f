#include <fmt/format.h>

#include <exception>
#include <utility>

#include "TavrelBase/Log/Private/RollingLogFile.h"

namespace tavrel {
namespace {

/// Lines gather up to this size before they are written.
constexpr std::size_t kLargestGathering = std::size_t{64} * 1024;

/// The classes under which a background application may write at any time.
bool isProtectionReusable(std::optional<LogFileProtection> protection) {
  return !protection || protection == LogFileProtection::none ||
         protection == LogFileProtection::completeUntilFirstUserAuthentication;
}

}  // namespace

void RollingLogFile::report(std::string_view reason) {
  reports_.write(fmt::format("TavrelDDFileLogger.logMessage: {}", reason));
}

template <typename Callback>
void RollingLogFile::tellManager(Callback callback) {
  try {
    callback(*manager_);
  } catch (const std::exception& exception) {
    report(exception.what());
  } catch (...) {
    report("unknown exception");
  }
}

bool RollingLogFile::isTooOld(const TavrelDDLogFileInfo& info) const {
  return rollingFrequency > 0 && info.age() >= rollingFrequency;
}

std::optional<TavrelDDLogFileInfo> RollingLogFile::reusableFile() {
  std::vector<TavrelDDLogFileInfo> infos = manager_->sortedLogFileInfos();
  if (infos.empty() || infos.front().isArchived()) return std::nullopt;
  TavrelDDLogFileInfo& newest = infos.front();
  const bool isTooLarge = maximumFileSize != 0 && newest.fileSize() >= maximumFileSize;
  if (isTooLarge || isTooOld(newest) || !isProtectionReusable(newest.protection())) {
    newest.setIsArchived(true);
    tellManager([&](TavrelDDLogFileManager& manager) { manager.didArchiveLogFile(newest.filePath()); });
    return std::nullopt;
  }
  if (doNotReuseLogFiles) return std::nullopt;
  return newest;
}

bool RollingLogFile::openPath(TavrelDDLogFileInfo info, bool reports) {
  auto opened = LogFile::open(info.filePath());
  if (!opened) {
    if (reports) report(opened.error().description);
    return false;
  }
  file_ = std::move(*opened);
  info_ = std::move(info);
  didOpen_();
  return true;
}

bool RollingLogFile::open() {
  if (file_) return true;
  // A newest file that cannot be opened, for instance another user's, is no reason to give up.
  if (auto newest = reusableFile(); newest && openPath(std::move(*newest), false)) return true;
  const auto path = manager_->createNewLogFile();
  if (path) return openPath(TavrelDDLogFileInfo(*path), true);
  report(path.error().description);
  return false;
}

void RollingLogFile::add(std::string_view line) {
  if (!open()) return;
  gathered_.append(line);
  lineEnds_.push_back(gathered_.size());
  if (gathered_.size() >= kLargestGathering) write();
  rollIfTooLarge();
}

void RollingLogFile::write() {
  if (gathered_.empty()) return;
  // The lines of a file that was taken away from outside belong into a new one.
  if (file_ && file_->isGone()) {
    std::string kept = std::exchange(gathered_, {});
    std::vector<std::size_t> keptEnds = std::exchange(lineEnds_, {});
    roll();
    gathered_ = std::move(kept);
    lineEnds_ = std::move(keptEnds);
  }
  if (open()) {
    info_->reset();
    if (const auto result = file_->append(gathered_, lineEnds_); !result) report(result.error().description);
  }
  gathered_.clear();
  lineEnds_.clear();
  if (gathered_.capacity() > 2 * kLargestGathering) gathered_.shrink_to_fit();
}

void RollingLogFile::roll() {
  write();
  if (!file_) return;
  file_->synchronise();
  const bool isGone = file_->isGone();
  file_.reset();
  TavrelDDLogFileInfo rolled = *std::exchange(info_, std::nullopt);
  if (!isGone) rolled.setIsArchived(true);  // another file may stand under the path
  tellManager([&](TavrelDDLogFileManager& manager) { manager.didRollAndArchiveLogFile(rolled.filePath()); });
}

void RollingLogFile::rollIfTooLarge() {
  if (file_ && maximumFileSize != 0 && file_->offset() + gathered_.size() >= maximumFileSize) roll();
}

bool RollingLogFile::rollIfTooOld() {
  if (file_ && isTooOld(*info_)) roll();
  return !file_;
}

void RollingLogFile::synchronise() {
  write();
  if (file_) file_->synchronise();
}

void RollingLogFile::close() {
  write();
  file_.reset();
  info_.reset();
}

}  // namespace tavrel
