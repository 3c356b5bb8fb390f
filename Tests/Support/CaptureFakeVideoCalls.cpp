#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

#include "Support/CaptureFakeVideoNode.h"

namespace tavrel::test {

V4L2SystemCalls FakeVideoNode::calls(std::vector<std::shared_ptr<FakeVideoNode>> nodes) {
  struct Table {
    std::mutex mutex;
    std::map<int, std::shared_ptr<FakeVideoNode>> open;
    std::map<void*, std::shared_ptr<FakeVideoNode>> mapped;
  };
  auto table = std::make_shared<Table>();
  const auto nodeOf = [table](int descriptor) {
    const std::lock_guard lock(table->mutex);
    const auto found = table->open.find(descriptor);
    return found != table->open.end() ? found->second : nullptr;
  };
  V4L2SystemCalls calls;
  calls.open = [table, nodes](const char* path, int flags) {
    for (const auto& node : nodes) {
      if (node->path_ != path) continue;
      const std::lock_guard lock(node->mutex_);
      if ((flags & O_NONBLOCK) == 0) node->violations_.emplace_back("opened blocking");
      if (node->isGone_) return node->fail(ENODEV);
      if (node->openErrno_ != 0) return node->fail(node->openErrno_);
      const int descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
      ++node->openCount_;
      ++node->openings_;
      const std::lock_guard tableLock(table->mutex);
      table->open[descriptor] = node;
      return descriptor;
    }
    errno = ENOENT;
    return -1;
  };
  calls.close = [table, nodeOf](int descriptor) {
    if (const auto node = nodeOf(descriptor)) {
      const std::lock_guard lock(node->mutex_);
      --node->openCount_;
      if (node->isStreaming_ && !node->isGone_ && node->openCount_ == 0) {
        node->violations_.emplace_back("closed while streaming");
      }
    }
    const std::lock_guard lock(table->mutex);
    table->open.erase(descriptor);
    return ::close(descriptor);
  };
  calls.ioctl = [nodeOf](int descriptor, unsigned long request, void* argument) {
    const auto node = nodeOf(descriptor);
    if (!node) {
      errno = EBADF;
      return -1;
    }
    return node->control(request, argument);
  };
  calls.mmap = [table, nodeOf](std::size_t length, int, int, int descriptor, off_t offset) -> void* {
    const auto node = nodeOf(descriptor);
    const std::lock_guard lock(node->mutex_);
    const auto index = static_cast<std::size_t>(offset) / 4096 / 8;
    const auto plane = static_cast<std::size_t>(offset) / 4096 % 8;
    if (index >= node->buffers_.size() || plane >= node->buffers_[index].planes.size() ||
        node->buffers_[index].planes[plane].memory.size() != length) {
      node->fail(EINVAL, "mapped what is no buffer");
      return MAP_FAILED;  // NOLINT(performance-no-int-to-ptr)
    }
    node->buffers_[index].planes[plane].isMapped = true;
    void* address = node->buffers_[index].planes[plane].memory.data();
    const std::lock_guard tableLock(table->mutex);
    table->mapped[address] = node;
    return address;
  };
  calls.munmap = [table](void* address, std::size_t length) {
    std::shared_ptr<FakeVideoNode> node;
    {
      const std::lock_guard lock(table->mutex);
      node = table->mapped[address];
      table->mapped.erase(address);
    }
    if (!node) {
      errno = EINVAL;
      return -1;
    }
    const std::lock_guard lock(node->mutex_);
    for (Buffer& buffer : node->buffers_) {
      for (Plane& plane : buffer.planes) {
        if (plane.memory.data() == address && plane.memory.size() == length) plane.isMapped = false;
      }
    }
    return 0;
  };
  calls.poll = [nodeOf](pollfd* descriptors, nfds_t count, int milliseconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    const auto node = nodeOf(descriptors[0].fd);
    for (;;) {
      descriptors[0].revents = 0;
      {
        const std::lock_guard lock(node->mutex_);
        node->advance();
        if (!node->filled_.empty() || node->dequeueFailures_ > 0) descriptors[0].revents = POLLIN;
        if (node->isGone_) descriptors[0].revents = POLLERR | POLLHUP;
        if (!node->isStreaming_) descriptors[0].revents |= POLLERR;
        if (node->hasEvent_) descriptors[0].revents |= descriptors[0].events & POLLPRI;
      }
      if (descriptors[0].revents != 0) return 1;
      if (::poll(descriptors + 1, count - 1, 2) > 0) return 1;
      if (std::chrono::steady_clock::now() > deadline) return 0;
    }
  };
  calls.serialNumber = [nodes](const std::string& path) -> std::string {
    for (const auto& node : nodes) {
      if (node->path_ == path) return node->serial;
    }
    return {};
  };
  return calls;
}

}  // namespace tavrel::test
