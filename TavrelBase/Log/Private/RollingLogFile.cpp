#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <system_error>
#include <utility>

#include "Platform/Dispatch/DispatchQueue.h"
#include "TavrelBase/Log/Private/LastWords.h"
#include "TavrelBase/Log/Private/LogLineFrame.h"
#include "TavrelBase/Log/Private/RollingLogFile.h"

namespace tavrel {
namespace {

using namespace std::chrono_literals;

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

Expected<void> RollingLogFile::openPath(TavrelDDLogFileInfo info) {
  auto opened = LogFile::open(info.filePath());
  if (!opened) return tl::make_unexpected(opened.error());
  file_ = std::move(*opened);
  info_ = std::move(info);
  LastWords::addFile(file_->fileDescriptor());
  didOpen_();
  return {};
}

std::unique_ptr<LogFile> RollingLogFile::takeFile() {
  if (file_) LastWords::removeFile(file_->fileDescriptor());
  return std::move(file_);
}

bool RollingLogFile::open() {
  if (file_) return true;
  // Another process may delete the new file as an old one before it is opened here.
  constexpr int kAttempts = 10;
  std::string reason;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    // A newest file that cannot be opened, for instance another user's, is no reason to give up.
    if (auto newest = reusableFile(); newest && openPath(std::move(*newest))) return true;
    const auto path = manager_->createNewLogFile();
    const auto opened = path ? openPath(TavrelDDLogFileInfo(*path)) : tl::make_unexpected(path.error());
    if (opened) return true;
    reason = opened.error().description;
    if (!path || opened.error().code != ENOENT) break;
  }
  report(reason);
  lostReason_ = std::move(reason);
  return false;
}

void RollingLogFile::add(std::string_view line, std::chrono::system_clock::time_point time) {
  if (!open()) {
    ++lostLines_;
    return;
  }
  timeBefore_ = std::exchange(lastTime_, time);
  gathered_.append(line);
  lineEnds_.push_back(gathered_.size());
  if (gathered_.size() >= kLargestGathering) write();
  rollIfTooLarge();
}

void RollingLogFile::write() {
  if (gathered_.empty()) return;
  if (file_ && file_->isGone(lastTime_)) replace();
  append();
  // It may have been deleted just before.
  if (file_ && file_->isDeleted()) {
    replace();
    append();
  }
  gathered_.clear();
  lineEnds_.clear();
  if (gathered_.capacity() > 2 * kLargestGathering) gathered_.shrink_to_fit();
  rollIfTooLarge();
}

void RollingLogFile::replace() {
  // The lines of a file that was taken away from outside belong into a new one.
  std::string kept = std::exchange(gathered_, {});
  std::vector<std::size_t> keptEnds = std::exchange(lineEnds_, {});
  roll();
  gathered_ = std::move(kept);
  lineEnds_ = std::move(keptEnds);
}

void RollingLogFile::append() {
  if (!open()) {
    lostLines_ += lineEnds_.size();
    return;
  }
  if (lostLines_ > 0) writeLostNote();
  info_->reset();
  const auto [lines, reason] = file_->append(gathered_, lineEnds_, mustLook());
  if (reason != 0) noteLost(lineEnds_.size() - lines, std::generic_category().message(reason));
}

bool RollingLogFile::mustLook() {
  const auto isWithin = [this](TimePoint then, TimePoint::duration limit) {
    return lastTime_ >= then && lastTime_ - then < limit;
  };
  // A look costs as much as a write. It is left out while one line follows upon another, for a few lines, since
  // deleting a file takes longer; but not where other processes can have filled the file meanwhile.
  const bool mayBeFull = maximumFileSize != 0 && file_->offset() + kLargestGathering >= maximumFileSize;
  if (!mayBeFull && isWithin(timeBefore_, 2us) && isWithin(lookedAt_, 10us)) return false;
  lookedAt_ = lastTime_;
  return true;
}

void RollingLogFile::noteLost(std::size_t lines, const std::string& reason) {
  lostLines_ += lines;
  lostReason_ = fmt::format("cannot write {}: {}", info_->filePath().string(), reason);
  report(lostReason_);
}

void RollingLogFile::writeLostNote() {
  const LogLineFrame frame(TavrelDDLogFlagWarning, "RollingLogFile::write");
  const std::string note = fmt::format("{}{} messages were lost before this line: {}{}", frame.head(), lostLines_,
                                       lostReason_, frame.tail());
  const std::size_t end[] = {note.size()};
  if (file_->append(note, end, true).reason == 0) lostLines_ = 0;
}

void RollingLogFile::roll() {
  write();
  if (!file_) return;
  const bool isGone = file_->isDeleted() || file_->isGone(std::chrono::system_clock::now());
  // Callers that write through would wait for the disk.
  DispatchQueue::global()->async([file = std::shared_ptr<LogFile>(takeFile())] { file->synchronise(); });
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
  takeFile().reset();
  info_.reset();
}

void RollingLogFile::leaveToParent() {
  gathered_.clear();
  lineEnds_.clear();
  lostLines_ = 0;
  close();
}

}  // namespace tavrel
