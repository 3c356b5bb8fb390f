#pragma once

#include "Platform/Foundation/Error.h"
#include "Platform/Graphics/PixelBufferSnapshot.h"
#include "Platform/Media/Private/FFmpegHandles.h"
#include "Platform/Media/Private/Writing/PictureParts.h"

struct SwsContext;

namespace tavrel {

/// Pictures of any kind to 4:2:0 in limited range, as encoders take them. BGRA with the BT.601 matrix and 4:2:0 of
/// limited range, at the size asked for or one less (the edge is repeated), go through libyuv; everything else through
/// libswscale's bicubic. One thread at a time.
class PictureConverter {
 public:
  explicit PictureConverter(ScalingMode mode = ScalingMode::stretch) : mode_(mode) {}
  PictureConverter(const PictureConverter&) = delete;
  PictureConverter& operator=(const PictureConverter&) = delete;
  ~PictureConverter();

  /// Writes `picture` into `frame`, which has its size, its format (I420 or NV12), its matrix and its pixels' shape set
  /// and its memory allocated.
  Expected<void> convert(const PixelBufferSnapshot& picture, AVFrame& frame);

 private:
  static Expected<void> convertToNV12(const PixelBufferSnapshot& picture, AVFrame& frame);
  Expected<void> scale(const PixelBufferSnapshot& picture, AVFrame& frame);

  const ScalingMode mode_;
  SwsContext* scaler_ = nullptr;
};

}  // namespace tavrel
