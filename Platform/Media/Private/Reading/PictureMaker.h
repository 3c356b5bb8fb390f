#pragma once

#include <memory>
#include <mutex>

#include "Platform/Foundation/Error.h"
#include "Platform/Graphics/PixelBufferPool.h"
#include "Platform/Media/Private/Reading/BgraConverter.h"
#include "Platform/Media/Private/Reading/ColorPreparation.h"

namespace tavrel {

/// Makes pixel buffers of one format, from a pool, out of decoded pictures. Any thread.
class PictureMaker {
 public:
  explicit PictureMaker(PixelFormat format) : format_(format), colors_(format) {}

  Expected<std::shared_ptr<PixelBuffer>> make(const AVFrame& decoded);

 private:
  struct ScalerDeleter {
    void operator()(SwsContext* context) const { sws_freeContext(context); }
  };

  Expected<std::shared_ptr<PixelBuffer>> emptyBuffer(std::size_t width, std::size_t height);
  Expected<void> fill(const AVFrame& picture, PixelBuffer& buffer);
  Expected<void> fillBiPlanar(const AVFrame& picture, PixelBuffer& buffer);

  const PixelFormat format_;
  std::mutex mutex_;
  ColorPreparation colors_;
  BgraConverter bgra_;
  std::unique_ptr<SwsContext, ScalerDeleter> scaler_;
  std::shared_ptr<PixelBufferPool> pool_;
};

}  // namespace tavrel
