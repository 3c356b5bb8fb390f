#pragma once

#include "Platform/Graphics/PixelBufferSnapshot.h"
#include "Platform/Media/Private/FFmpegHandles.h"
#include "Platform/Media/Private/Writing/VideoSettings.h"

namespace tavrel {

/// Which part of a picture becomes which part of a frame, so that its shape on the screen stays. In pixels; places and
/// sizes are even, as 4:2:0 wants them.
struct PictureParts {
  struct Part {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
  };
  Part source;
  Part target;

  static PictureParts of(const PixelBufferSnapshot& picture, const AVFrame& frame, ScalingMode mode);

  bool isWhole(const PixelBufferSnapshot& picture, const AVFrame& frame) const;
  bool hasBars(const AVFrame& frame) const { return target.width < frame.width || target.height < frame.height; }
};

/// The shape of a picture's pixels by its attachment.
AVRational pixelAspectOf(const PixelBufferSnapshot& picture);

}  // namespace tavrel
