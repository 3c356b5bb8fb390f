#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
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

std::uint64_t sizeOf(int fileDescriptor) {
  struct stat status {};
  return fstat(fileDescriptor, &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

}  // namespace

Expected<std::unique_ptr<LogFile>> LogFile::open(const std::filesystem::path& path) {
  const int fileDescriptor = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW);
  if (fileDescriptor < 0) return systemFailure("open", path, errno);
  return std::unique_ptr<LogFile>(new LogFile(fileDescriptor, path));
}

LogFile::LogFile(int fileDescriptor, const std::filesystem::path& path)
    : fileDescriptor_(fileDescriptor), path_(path), offset_(sizeOf(fileDescriptor)), watch_(fileDescriptor, path) {}

LogFile::~LogFile() { close(fileDescriptor_); }

LogFile::Appended LogFile::append(std::string_view text, std::span<const std::size_t> lineEnds) {
  std::size_t written = 0;
  int reason = 0;
  while (written < text.size() && reason == 0) {
    const ssize_t count = ::write(fileDescriptor_, text.data() + written, text.size() - written);
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      reason = errno;
    }
  }
  offset_ += written;
  if (reason == 0) return {lineEnds.size(), 0};
  const auto end = std::ranges::upper_bound(lineEnds, written);
  takeBack(written, end == lineEnds.begin() ? 0 : *std::prev(end));
  return {static_cast<std::size_t>(end - lineEnds.begin()), reason};
}

void LogFile::takeBack(std::size_t written, std::size_t whole) {
  const off_t position = lseek(fileDescriptor_, 0, SEEK_CUR);
  updateOffset();
  // Not when another process has appended behind the torn line.
  if (whole == written || position < 0 || static_cast<std::uint64_t>(position) != offset_) return;
  const std::uint64_t end = offset_ - (written - whole);
  if (ftruncate(fileDescriptor_, static_cast<off_t>(end)) == 0) offset_ = end;
}

void LogFile::updateOffset() {
  const off_t end = lseek(fileDescriptor_, 0, SEEK_END);
  if (end >= 0) offset_ = static_cast<std::uint64_t>(end);
}

void LogFile::synchronise() const { fdatasync(fileDescriptor_); }

}  // namespace tavrel
