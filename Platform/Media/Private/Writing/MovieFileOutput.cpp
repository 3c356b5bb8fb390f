#include "Platform/Media/Private/Writing/MovieFileOutput.h"
#include "Platform/Media/MediaError.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <string_view>
#include <system_error>
#include <utility>

extern "C" {
#include <libavutil/error.h>
#include <libavutil/intreadwrite.h>
#include <libavutil/mem.h>
}

namespace tavrel {
namespace {

constexpr int kBufferSize = 256 * 1024;

tl::unexpected<Error> systemFailure(int code, const std::filesystem::path& path, const char* what) {
  return failure("posix", code,
                 fmt::format("{} cannot be {}: {}", path.string(), what, std::generic_category().message(code)));
}

tl::unexpected<Error> inUse(const std::filesystem::path& path) {
  return failure(MediaErrorCode::fileInUse, fmt::format("{} is being written already", path.string()));
}

/// A name that may be as long as a file's name can be.
std::filesystem::path partOf(const std::filesystem::path& path) {
  constexpr std::size_t kMostBytes = NAME_MAX - std::string_view("..part").size();
  return path.parent_path() / fmt::format(".{}.part", path.filename().string().substr(0, kMostBytes));
}

/// Where file systems have no locks, two writers are not kept apart.
bool isLockedByAnother(int descriptor) { return ::flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK; }

bool hasName(int descriptor, const std::filesystem::path& name) {
  struct stat own {};
  struct stat named {};
  return ::fstat(descriptor, &own) == 0 && ::lstat(name.c_str(), &named) == 0 && own.st_ino == named.st_ino &&
         own.st_dev == named.st_dev;
}

/// Whether a file of this name can be replaced: there is none, or a regular one that may be written and that nobody
/// writes.
Expected<void> checkReplaceable(const std::filesystem::path& path) {
  struct stat about {};
  if (::stat(path.c_str(), &about) != 0) return {};
  if (!S_ISREG(about.st_mode)) {
    return failure(MediaErrorCode::unwritableFile,
                   fmt::format("{} is not a regular file, which a movie needs", path.string()));
  }
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return systemFailure(errno, path, "opened for writing");
  const bool isLocked = isLockedByAnother(descriptor);
  ::close(descriptor);
  return isLocked ? Expected<void>(inUse(path)) : Expected<void>();
}

/// The descriptor of the hidden file, locked.
Expected<int> openPart(const std::filesystem::path& part, const std::filesystem::path& path) {
  while (true) {
    const int descriptor = ::open(part.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0666);
    if (descriptor < 0) return systemFailure(errno, path, "opened for writing");
    const bool isLocked = isLockedByAnother(descriptor);
    if (!isLocked && hasName(descriptor, part)) return descriptor;
    ::close(descriptor);
    if (isLocked) return inUse(path);
    // Between opening and locking it, another writer has given it its own name or removed it.
  }
}

/// What links lead to, be it there or not: that is replaced or made, not the link.
std::filesystem::path behindLinks(std::filesystem::path path) {
  constexpr int kMostLinks = 40;
  std::error_code error;
  for (int i = 0; i < kMostLinks && std::filesystem::is_symlink(path, error); ++i) {
    const auto target = std::filesystem::read_symlink(path, error);
    if (error) break;
    path = path.parent_path() / target;
  }
  return path;
}

}  // namespace

Expected<std::unique_ptr<MovieFileOutput>> MovieFileOutput::open(const std::filesystem::path& name) {
  const std::filesystem::path path = behindLinks(name);
  if (auto replaceable = checkReplaceable(path); !replaceable) return tl::unexpected(replaceable.error());
  const auto part = partOf(path);
  const auto descriptor = openPart(part, path);
  if (!descriptor) return tl::unexpected(descriptor.error());
  std::unique_ptr<MovieFileOutput> output(new MovieFileOutput(path, part, *descriptor));
  // Once more: another writer may have come this far, and further, in between.
  if (auto replaceable = checkReplaceable(path); !replaceable) return tl::unexpected(replaceable.error());
  return output;
}

MovieFileOutput::MovieFileOutput(std::filesystem::path path, std::filesystem::path part, int descriptor)
    : path_(std::move(path)), part_(std::move(part)), descriptor_(descriptor) {}

MovieFileOutput::~MovieFileOutput() {
  if (!isPublished_) closeAndRemove();
  close();
}

Expected<void> MovieFileOutput::begin() {
  // An end by force may have left something.
  if (::ftruncate(descriptor_, 0) != 0) return systemFailure(errno, path_, "emptied");
  auto* const buffer = static_cast<std::uint8_t*>(av_malloc(kBufferSize));
  context_ = buffer ? avio_alloc_context(buffer, kBufferSize, 1, this, nullptr, write, seek) : nullptr;
  if (!context_) {
    av_free(buffer);
    return systemFailure(ENOMEM, path_, "written");
  }
  return {};
}

int MovieFileOutput::write(void* opaque, std::uint8_t* bytes, int size) {
  auto& self = *static_cast<MovieFileOutput*>(opaque);
  if (self.failure_ != 0) return AVERROR(self.failure_);
  if (std::exchange(self.isNextBoxHidden_, false) && size >= 8) std::copy_n("free", 4, bytes + 4);
  for (int done = 0; done < size;) {
    const ssize_t count = ::write(self.descriptor_, bytes + done, static_cast<std::size_t>(size - done));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      self.failure_ = count < 0 ? errno : EIO;
      return AVERROR(self.failure_);
    }
    done += static_cast<int>(count);
  }
  return size;
}

std::int64_t MovieFileOutput::seek(void* opaque, std::int64_t offset, int whence) {
  auto& self = *static_cast<MovieFileOutput*>(opaque);
  if (whence == AVSEEK_SIZE) {
    struct stat about {};
    return ::fstat(self.descriptor_, &about) == 0 ? about.st_size : AVERROR(errno);
  }
  const off_t position = ::lseek(self.descriptor_, offset, whence & ~AVSEEK_FORCE);
  return position < 0 ? AVERROR(errno) : position;
}

Expected<void> MovieFileOutput::status() const {
  if (failure_ != 0) return systemFailure(failure_, path_, "written");
  return {};
}

Expected<void> MovieFileOutput::checkpoint() {
  avio_flush(context_);
  if (auto result = status(); !result) return result;
  completeSize_ = avio_tell(context_);
  return {};
}

Expected<void> MovieFileOutput::hideNextBox() {
  avio_flush(context_);
  isNextBoxHidden_ = true;
  return status();
}

Expected<std::vector<std::uint8_t>> MovieFileOutput::bytesAt(std::int64_t offset, std::size_t size) const {
  std::vector<std::uint8_t> bytes(size);
  if (::pread(descriptor_, bytes.data(), size, offset) == static_cast<ssize_t>(size)) return bytes;
  return systemFailure(errno, path_, "read");
}

Expected<std::vector<std::uint8_t>> MovieFileOutput::boxAt(std::int64_t offset) const {
  const auto size = bytesAt(offset, 4);
  return size ? bytesAt(offset, AV_RB32(size->data())) : size;
}

Expected<void> MovieFileOutput::writeAt(std::int64_t offset, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::pwrite(descriptor_, bytes.data(), bytes.size(), offset);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return systemFailure(count < 0 ? errno : EIO, path_, "written");
    bytes = bytes.subspan(static_cast<std::size_t>(count));
    offset += count;
  }
  return {};
}

Expected<void> MovieFileOutput::sync() {
  if (::fdatasync(descriptor_) == 0 || errno == EINVAL || errno == ENOSYS) return {};
  failure_ = errno;
  return status();
}

Expected<void> MovieFileOutput::publish() {
  if (auto synced = sync(); !synced || isPublished_) return synced;
  struct stat replaced {};
  // A file system without permissions refuses.
  if (::stat(path_.c_str(), &replaced) == 0) (void)::fchmod(descriptor_, replaced.st_mode & ALLPERMS);
  if (::rename(part_.c_str(), path_.c_str()) != 0) return systemFailure(errno, path_, "written");
  isPublished_ = true;
  return {};
}

void MovieFileOutput::closeAtCheckpoint() {
  if (descriptor_ < 0) return;
  if (!isPublished_) return closeAndRemove();
  // A file that cannot be cut still plays: readers stop at the incomplete end.
  if (::ftruncate(descriptor_, completeSize_) != 0) failure_ = errno;
  close();
}

void MovieFileOutput::closeAndRemove() {
  if (descriptor_ < 0) return;
  // While it is locked: afterwards the name may be another writer's.
  ::unlink((isPublished_ ? path_ : part_).c_str());
  close();
}

void MovieFileOutput::close() {
  if (context_) {
    av_freep(&context_->buffer);
    avio_context_free(&context_);
  }
  if (descriptor_ >= 0) ::close(descriptor_);
  descriptor_ = -1;
}

}  // namespace tavrel
