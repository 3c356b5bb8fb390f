#include "Platform/Capture/V4L2/Private/V4L2SystemCalls.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

namespace tavrel {
namespace {

namespace fs = std::filesystem;

template <typename Call>
auto restarted(Call call) {
  decltype(call()) result = -1;
  do {
    result = call();
  } while (result < 0 && errno == EINTR);
  return result;
}

std::string lineOf(const fs::path& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

/// Looks for the USB device above the node in the kernel's device tree.
std::string serialNumberOf(const std::string& path) {
  std::error_code error;
  fs::path folder = fs::canonical(fs::path("/sys/class/video4linux") / fs::path(path).filename() / "device", error);
  for (int level = 0; !error && level < 4 && folder.has_relative_path(); ++level, folder = folder.parent_path()) {
    const std::string serial = lineOf(folder / "serial");
    if (!serial.empty()) return lineOf(folder / "idVendor") + ":" + lineOf(folder / "idProduct") + ":" + serial;
  }
  return {};
}

}  // namespace

V4L2SystemCalls V4L2SystemCalls::real() {
  V4L2SystemCalls calls;
  calls.open = [](const char* path, int flags) { return restarted([&] { return ::open(path, flags); }); };
  calls.close = [](int descriptor) { return ::close(descriptor); };
  calls.ioctl = [](int descriptor, unsigned long request, void* argument) {
    return restarted([&] { return ::ioctl(descriptor, request, argument); });
  };
  calls.mmap = [](std::size_t length, int protection, int flags, int descriptor, off_t offset) {
    return ::mmap(nullptr, length, protection, flags, descriptor, offset);
  };
  calls.munmap = [](void* address, std::size_t length) { return ::munmap(address, length); };
  calls.write = [](int descriptor, const void* bytes, std::size_t count) {
    return restarted([&] { return ::write(descriptor, bytes, count); });
  };
  calls.poll = [](pollfd* descriptors, nfds_t count, int milliseconds) {
    return restarted([&] { return ::poll(descriptors, count, milliseconds); });
  };
  calls.serialNumber = serialNumberOf;
  return calls;
}

}  // namespace tavrel
