#include "Platform/Capture/V4L2/Private/V4L2Buffers.h"

#include <sys/mman.h>

#include <algorithm>
#include <cerrno>

namespace tavrel {
namespace {

constexpr std::uint32_t kBufferCount = 4;
constexpr std::uint32_t kFewestBuffers = 2;

v4l2_requestbuffers requestOf(std::uint32_t type, std::uint32_t count) {
  v4l2_requestbuffers request{};
  request.count = count;
  request.type = type;
  request.memory = V4L2_MEMORY_MMAP;
  return request;
}

}  // namespace

struct V4L2Buffers::Request {
  Request(std::uint32_t type, std::uint32_t index) {
    buffer.index = index;
    buffer.type = type;
    buffer.memory = V4L2_MEMORY_MMAP;
    if (type != V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE) return;
    buffer.m.planes = planes.data();
    buffer.length = static_cast<std::uint32_t>(planes.size());
  }
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;

  v4l2_buffer buffer{};
  std::array<v4l2_plane, VIDEO_MAX_PLANES> planes{};
};

V4L2Buffers::~V4L2Buffers() {
  for (const Mappings& planes : buffers_) {
    for (const Mapping& plane : planes) {
      if (plane.address) calls_.munmap(plane.address, plane.length);
    }
  }
  auto none = requestOf(type_, 0);
  node_.control(VIDIOC_REQBUFS, &none);
}

const char* V4L2Buffers::map() {
  auto wanted = requestOf(type_, kBufferCount);
  if (!node_.control(VIDIOC_REQBUFS, &wanted)) return "gives no buffers";
  if (wanted.count < kFewestBuffers) {
    errno = ENOMEM;
    return "has too little memory";
  }
  for (std::uint32_t index = 0; index < wanted.count; ++index) {
    Request request(type_, index);
    if (!node_.control(VIDIOC_QUERYBUF, &request.buffer)) return "hides a buffer";
    Mappings& planes = buffers_.emplace_back();
    const std::size_t count = isMultiPlanar() ? std::min<std::size_t>(request.buffer.length, planes.size()) : 1;
    for (std::size_t i = 0; i < count; ++i) {
      const v4l2_plane& plane = request.planes.at(i);
      const std::size_t length = isMultiPlanar() ? plane.length : request.buffer.length;
      const off_t offset = isMultiPlanar() ? plane.m.mem_offset : request.buffer.m.offset;
      void* address = calls_.mmap(length, PROT_READ | PROT_WRITE, MAP_SHARED, node_.get(), offset);
      if (address == MAP_FAILED) return "has a buffer that cannot be mapped";  // NOLINT(performance-no-int-to-ptr)
      planes.at(i) = {address, length};
    }
  }
  return nullptr;
}

const char* V4L2Buffers::enqueueAll() {
  for (std::uint32_t index = 0; index < buffers_.size(); ++index) {
    if (!enqueue(index)) return "takes no buffer";
  }
  return nullptr;
}

bool V4L2Buffers::enqueue(std::uint32_t index) {
  Request request(type_, index);
  const auto isMapped = [](const Mapping& plane) { return plane.address != nullptr; };
  if (isMultiPlanar()) {
    request.buffer.length = static_cast<std::uint32_t>(std::ranges::count_if(buffers_.at(index), isMapped));
  }
  return node_.control(VIDIOC_QBUF, &request.buffer);
}

bool V4L2Buffers::dequeue(V4L2FilledBuffer& filled) {
  Request request(type_, 0);
  if (!node_.control(VIDIOC_DQBUF, &request.buffer)) return false;
  const v4l2_buffer& buffer = request.buffer;
  if (buffer.index >= buffers_.size()) {
    errno = EBADR;
    return false;
  }
  filled = {.index = buffer.index,
            .sequence = buffer.sequence,
            .flags = buffer.flags,
            .nanoseconds = buffer.timestamp.tv_sec * 1'000'000'000LL + buffer.timestamp.tv_usec * 1'000LL};
  const Mappings& mapped = buffers_[buffer.index];
  for (std::size_t i = 0; i < mapped.size() && mapped.at(i).address; ++i) {
    const v4l2_plane& plane = request.planes.at(i);
    const std::size_t used =
        std::min<std::size_t>(isMultiPlanar() ? plane.bytesused : buffer.bytesused, mapped.at(i).length);
    const std::size_t skipped = isMultiPlanar() ? std::min<std::size_t>(plane.data_offset, used) : 0;
    filled.planes.at(i) = {static_cast<const std::uint8_t*>(mapped.at(i).address) + skipped, used - skipped, 0};
  }
  return true;
}

}  // namespace tavrel
