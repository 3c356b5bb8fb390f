#include "Platform/Imaging/Private/ReplacingFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace tavrel {

ReplacingFile::ReplacingFile(const std::filesystem::path& finalPath)
    : finalPath_(finalPath), path_(finalPath.string() + ".XXXXXX") {
  descriptor_ = mkostemp(path_.data(), O_CLOEXEC);
}

ReplacingFile::~ReplacingFile() {
  if (descriptor_ < 0) return;
  close(descriptor_);
  if (!isKept_) unlink(path_.c_str());
}

bool ReplacingFile::write(std::span<const std::uint8_t> bytes) const {
  if (descriptor_ < 0) return false;
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor_, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  return true;
}

bool ReplacingFile::keep() {
  const mode_t mask = umask(0);
  umask(mask);
  if (fchmod(descriptor_, 0666 & ~mask) != 0 || fsync(descriptor_) != 0) return false;
  isKept_ = rename(path_.c_str(), finalPath_.c_str()) == 0;
  return isKept_;
}

tl::unexpected<Error> ReplacingFile::systemFailure() const {
  const int error = errno;
  return failure("posix", error,
                 fmt::format("cannot write {}: {}", finalPath_.string(), std::generic_category().message(error)));
}

}  // namespace tavrel
