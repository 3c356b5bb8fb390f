#pragma once

#include <linux/videodev2.h>

#include <array>
#include <vector>

#include "Platform/Capture/V4L2/Private/V4L2Probe.h"

namespace tavrel {

/// A picture that the driver has filled.
struct V4L2FilledBuffer {
  std::uint32_t index = 0;
  std::uint32_t sequence = 0;
  std::uint32_t flags = 0;
  std::int64_t nanoseconds = 0;                ///< the driver's stamp
  std::array<RawFrame::Plane, 3> planes = {};  ///< bytes and counts
};

/// The mapped memory of a node's pictures, one block for each or one for each plane. One thread at a time.
class V4L2Buffers {
 public:
  V4L2Buffers(const V4L2SystemCalls& calls, const V4L2Descriptor& node, std::uint32_t bufferType)
      : calls_(calls), node_(node), type_(bufferType) {}
  V4L2Buffers(const V4L2Buffers&) = delete;
  V4L2Buffers& operator=(const V4L2Buffers&) = delete;
  /// Gives the memory back; the stream must be off.
  ~V4L2Buffers();

  /// What the driver did not do, with `errno`; nullptr when all is well.
  const char* map();
  const char* enqueueAll();
  bool enqueue(std::uint32_t index);
  /// False with `errno`; EBADR for a buffer that does not exist.
  bool dequeue(V4L2FilledBuffer& filled);

 private:
  struct Mapping {
    void* address = nullptr;
    std::size_t length = 0;
  };
  using Mappings = std::array<Mapping, 3>;
  /// A buffer as the kernel speaks of it; nothing points into it once a call is over.
  struct Request;

  bool isMultiPlanar() const { return type_ == V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE; }

  const V4L2SystemCalls& calls_;
  const V4L2Descriptor& node_;
  const std::uint32_t type_;
  std::vector<Mappings> buffers_;
};

}  // namespace tavrel
