#pragma once

#include <poll.h>
#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string>

namespace tavrel {

/// Every call by which cameras are driven. Each fails like the system's: -1 (`MAP_FAILED` for mmap) and `errno`. Tests
/// put a device of their own behind them. Called from several threads.
struct V4L2SystemCalls {
  std::function<int(const char* path, int flags)> open;
  std::function<int(int descriptor)> close;
  std::function<int(int descriptor, unsigned long request, void* argument)> ioctl;
  std::function<void*(std::size_t length, int protection, int flags, int descriptor, off_t offset)> mmap;
  std::function<int(void* address, std::size_t length)> munmap;
  std::function<ssize_t(int descriptor, const void* bytes, std::size_t count)> write;
  std::function<int(pollfd* descriptors, nfds_t count, int milliseconds)> poll;
  /// The serial number of the hardware behind a node, with its maker's and product's numbers; empty when it has none.
  std::function<std::string(const std::string& path)> serialNumber;

  /// The system's own, restarted when a signal interrupts them.
  static V4L2SystemCalls real();
};

}  // namespace tavrel
