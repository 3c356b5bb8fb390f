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
  /// With `allowsPlanes`, 'BGRA' leaves the turning of plain planes of 4:2:0 into RGB to whoever draws them.
  PictureMaker(PixelFormat format, bool allowsPlanes) : format_(format), allowsPlanes_(allowsPlanes), colors_(format) {}

  Expected<std::shared_ptr<PixelBuffer>> make(const AVFrame& decoded);

 private:
  struct ScalerDeleter {
    void operator()(SwsContext* context) const { sws_freeContext(context); }
  };

  /// Of the pixel buffer for a decoded picture that is `prepared` or is still as it was.
  PixelFormat formatFor(const AVFrame& picture, bool isPrepared) const;
  Expected<std::shared_ptr<PixelBuffer>> emptyBuffer(const AVFrame& picture, PixelFormat format);
  Expected<void> fill(const AVFrame& picture, PixelBuffer& buffer);
  Expected<void> fillBiPlanar(const AVFrame& picture, PixelBuffer& buffer);

  const PixelFormat format_;
  const bool allowsPlanes_;
  std::mutex mutex_;
  ColorPreparation colors_;
  BgraConverter bgra_;
  std::unique_ptr<SwsContext, ScalerDeleter> scaler_;
  std::shared_ptr<PixelBufferPool> pool_;
};

}  // namespace tavrel
