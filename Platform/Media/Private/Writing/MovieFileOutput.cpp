#include "Platform/Media/Private/Writing/MovieFileOutput.h"
#include "Platform/Media/MediaError.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

extern "C" {
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

namespace tavrel {
namespace {

constexpr int kBufferSize = 256 * 1024;

tl::unexpected<Error> systemFailure(int code, const std::filesystem::path& path, const char* what) {
  return failure("posix", code,
                 fmt::format("{} cannot be {}: {}", path.string(), what, std::generic_category().message(code)));
}

}  // namespace

Expected<std::unique_ptr<MovieFileOutput>> MovieFileOutput::open(const std::filesystem::path& path) {
  bool isNew = true;
  int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (descriptor < 0 && errno == EEXIST) {
    isNew = false;
    // Not blocking, so that a pipe without a reader is an error and not a wait.
    descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
  }
  if (descriptor < 0) return systemFailure(errno, path, "opened for writing");
  struct stat about {};
  if (::fstat(descriptor, &about) != 0 || !S_ISREG(about.st_mode)) {
    ::close(descriptor);
    return failure(MediaErrorCode::unwritableFile,
                   fmt::format("{} is not a regular file, which a movie needs", path.string()));
  }
  return std::unique_ptr<MovieFileOutput>(new MovieFileOutput(path, descriptor, isNew));
}

MovieFileOutput::MovieFileOutput(std::filesystem::path path, int descriptor, bool isNew)
    : path_(std::move(path)), descriptor_(descriptor), isNew_(isNew) {}

MovieFileOutput::~MovieFileOutput() {
  const bool isUnused = isNew_ && !hasBegun_ && descriptor_ >= 0;
  close();
  if (isUnused) ::unlink(path_.c_str());
}

Expected<void> MovieFileOutput::begin() {
  if (::ftruncate(descriptor_, 0) != 0) return systemFailure(errno, path_, "emptied");
  auto* const buffer = static_cast<std::uint8_t*>(av_malloc(kBufferSize));
  context_ = buffer ? avio_alloc_context(buffer, kBufferSize, 1, this, nullptr, write, seek) : nullptr;
  if (!context_) {
    av_free(buffer);
    return systemFailure(ENOMEM, path_, "written");
  }
  hasBegun_ = true;
  return {};
}

int MovieFileOutput::write(void* opaque, std::uint8_t* bytes, int size) {
  auto& self = *static_cast<MovieFileOutput*>(opaque);
  if (self.failure_ != 0) return AVERROR(self.failure_);
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

void MovieFileOutput::closeAtCheckpoint() {
  if (descriptor_ < 0 || !hasBegun_) return;
  if (completeSize_ == 0) return closeAndRemove();
  // A file that cannot be cut still plays: readers stop at the incomplete end.
  if (::ftruncate(descriptor_, completeSize_) != 0) failure_ = errno;
  close();
}

void MovieFileOutput::closeAndRemove() {
  if (descriptor_ < 0) return;
  close();
  ::unlink(path_.c_str());
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
