#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "TavrelBase/Log/Private/LogFile.h"

namespace tavrel {
namespace {

auto systemFailure(const char* what, const std::filesystem::path& path, int reason) {
  return failure("posix", reason,
                 fmt::format("cannot {} {}: {}", what, path.string(), std::generic_category().message(reason)));
}

}  // namespace

Expected<std::unique_ptr<LogFile>> LogFile::open(const std::filesystem::path& path) {
  const int fileDescriptor = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW);
  if (fileDescriptor < 0) return systemFailure("open", path, errno);
  return std::unique_ptr<LogFile>(new LogFile(fileDescriptor, path));
}

LogFile::LogFile(int fileDescriptor, const std::filesystem::path& path)
    : fileDescriptor_(fileDescriptor), path_(path), watch_(fileDescriptor, path) {
  look();
}

LogFile::~LogFile() { close(fileDescriptor_); }

LogFile::Appended LogFile::append(std::string_view text, std::span<const std::size_t> lineEnds, bool looks) {
  std::size_t written = 0;
  int reason = 0;
  while (written < text.size() && reason == 0) {
    // Not `write`, which lets a thread be cancelled here.
    const ssize_t count = syscall(SYS_write, fileDescriptor_, text.data() + written, text.size() - written);
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      reason = errno;
    }
  }
  offset_ += written;
  const off_t position = reason == 0 ? -1 : lseek(fileDescriptor_, 0, SEEK_CUR);
  if (looks || reason != 0) look();
  if (reason == 0) return {lineEnds.size(), 0};
  const auto end = std::ranges::upper_bound(lineEnds, written);
  const std::size_t whole = end == lineEnds.begin() ? 0 : *std::prev(end);
  // Not when another process has appended behind the torn line.
  if (whole < written && static_cast<std::uint64_t>(position) == offset_) takeBack(written - whole);
  return {static_cast<std::size_t>(end - lineEnds.begin()), reason};
}

void LogFile::takeBack(std::size_t bytes) {
  if (ftruncate(fileDescriptor_, static_cast<off_t>(offset_ - bytes)) == 0) offset_ -= bytes;
}

void LogFile::look() {
  // Not fstat: who asks for the time of the last change too has the next change noted to the nanosecond, which is dear.
  struct statx status {};
  if (statx(fileDescriptor_, "", AT_EMPTY_PATH, STATX_SIZE | STATX_NLINK, &status) != 0) return;
  offset_ = status.stx_size;
  isDeleted_ = status.stx_nlink == 0;
}

void LogFile::synchronise() const { fdatasync(fileDescriptor_); }

}  // namespace tavrel
