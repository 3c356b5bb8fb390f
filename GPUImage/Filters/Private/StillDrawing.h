#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "GPUImage/Private/PendingDrawing.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebufferLease.h"

namespace tavrel {

/// What a filter drew last, and of what, so that it need not draw the same again. On the video-processing queue.
struct StillDrawing {
  struct Cause {
    std::uint64_t still = 0;  ///< the input's number; 0 for what is none
    Size size;
    std::array<GLfloat, 8> vertices{};
    const GLfloat* textureCoordinates = nullptr;
    std::shared_ptr<const UniformSetters> uniforms;
    std::array<GLfloat, 4> background{};
    TavrelGPUImageScaling scaling;
    bool operator==(const Cause&) const = default;
  };

  Cause cause;
  TavrelGPUImageFramebufferLease framebuffer;
};

}  // namespace tavrel
