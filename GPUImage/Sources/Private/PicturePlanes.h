#pragma once

#include <memory>

#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "Platform/Graphics/PixelBuffer.h"

namespace tavrel {

/// Pictures in two planes of 4:2:0, luma and chroma, as frames of the graph. On the video-processing queue.
class PicturePlanes {
 public:
  /// Whether planes that go up as they are, and are turned into RGB by a shader, are shown sooner than BGRA that the
  /// processor makes of them: not where drawing is the processor's work, too.
  static bool areShownSooner();

  /// A frame that is not drawn yet, locked once: a filter that is drawn together with others turns the planes into RGB
  /// on the way. Where chroma lies between pixels, it is interpolated. The range is told by the pixel format, the
  /// matrix by the attachment (BT.601 without it). Stops the program if the planes cannot go up.
  static std::shared_ptr<TavrelGPUImageFramebuffer> framebufferOf(const std::shared_ptr<PixelBuffer>& picture);
};

}  // namespace tavrel
