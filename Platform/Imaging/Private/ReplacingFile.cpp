#include "Platform/Imaging/Private/ReplacingFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace tavrel {

namespace {

/// Leads to the open file, which may have no name.
std::string linkTo(int descriptor) { return fmt::format("/proc/self/fd/{}", descriptor); }

int openWithoutName(const std::filesystem::path& folder) {
  const int descriptor = open(folder.empty() ? "." : folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
  if (descriptor < 0 || access(linkTo(descriptor).c_str(), F_OK) == 0) return descriptor;
  close(descriptor);  // no name could be given to it
  return -1;
}

}  // namespace

ReplacingFile::ReplacingFile(const std::filesystem::path& finalPath)
    : finalPath_(finalPath), descriptor_(openWithoutName(finalPath.parent_path())) {
  if (descriptor_ >= 0) return;
  path_ = finalPath.string() + ".XXXXXX";
  descriptor_ = mkostemp(path_.data(), O_CLOEXEC);
}

ReplacingFile::~ReplacingFile() {
  if (descriptor_ < 0) return;
  close(descriptor_);
  if (!isKept_ && !path_.empty()) unlink(path_.c_str());
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
  isKept_ = path_.empty() ? giveName() : rename(path_.c_str(), finalPath_.c_str()) == 0;
  return isKept_;
}

bool ReplacingFile::giveName() {
  const std::string file = linkTo(descriptor_);
  const auto link = [&](const char* name) {
    return linkat(AT_FDCWD, file.c_str(), AT_FDCWD, name, AT_SYMLINK_FOLLOW) == 0;
  };
  if (link(finalPath_.c_str())) return true;
  // A link does not replace a file.
  for (unsigned i = 0; errno == EEXIST && i < 1000; ++i) {
    path_ = fmt::format("{}.{}.{}", finalPath_.string(), getpid(), i);
    if (link(path_.c_str())) return rename(path_.c_str(), finalPath_.c_str()) == 0;
  }
  path_.clear();
  return false;
}

tl::unexpected<Error> ReplacingFile::systemFailure() const {
  const int error = errno;
  return failure("posix", error,
                 fmt::format("cannot write {}: {}", finalPath_.string(), std::generic_category().message(error)));
}

}  // namespace tavrel
