#pragma once

#include <memory>

#include "Platform/Graphics/PixelBufferPool.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

/// Turns and mirrors BGRA pictures into buffers of its own pools, by libyuv. One thread at a time.
class PictureTurner {
 public:
  /// `sample`'s picture turned by `degrees` clockwise (0, 90, 180, 270), then mirrored; `sample` itself when there is
  /// nothing to do. The same question about the same sample again costs nothing. nullptr when no memory is left.
  std::shared_ptr<SampleBuffer> turned(const std::shared_ptr<SampleBuffer>& sample, int degrees, bool mirrored);

 private:
  std::shared_ptr<PixelBuffer> makeBuffer(std::size_t width, std::size_t height);

  std::shared_ptr<PixelBufferPool> pool_;
  std::weak_ptr<SampleBuffer> lastSource_;
  int lastDegrees_ = 0;
  bool lastMirrored_ = false;
  std::shared_ptr<SampleBuffer> lastResult_;
};

}  // namespace tavrel
