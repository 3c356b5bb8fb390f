#pragma once

#include <cstdint>

namespace tavrel::benchmarks {

/// What the process has made since its start, the driver included.
struct ResourceCount {
  std::uint64_t glObjects = 0;     ///< textures, buffers, frame and render buffers, shaders, programs
  std::uint64_t largeBuffers = 0;  ///< pieces of memory of 64 KiB and more

  static ResourceCount now();
  ResourceCount operator-(const ResourceCount& earlier) const {
    return {glObjects - earlier.glObjects, largeBuffers - earlier.largeBuffers};
  }
};

}  // namespace tavrel::benchmarks
