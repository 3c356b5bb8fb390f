#include "Platform/Media/Private/Writing/PictureParts.h"

#include <cmath>

extern "C" {
#include <libavutil/parseutils.h>
}

#include "Platform/Graphics/PixelBufferAttachments.h"

namespace tavrel {
namespace {

/// `share` of `whole`, centred; what differs by less than a line of chroma is the whole.
void centre(double share, int whole, int& start, int& length) {
  length = static_cast<int>(std::lround(whole * share / 2)) * 2;
  if (length > whole - 2) length = whole;
  start = (whole - length) / 4 * 2;
}

}  // namespace

AVRational pixelAspectOf(const PixelBufferSnapshot& picture) {
  const auto text = picture.attachment(kPixelBufferPixelAspectRatioKey);
  AVRational aspect{1, 1};
  constexpr int kMostSpacing = 65535;
  if (text && av_parse_ratio(&aspect, text->c_str(), kMostSpacing, 0, nullptr) >= 0 && aspect.num > 0 && aspect.den > 0)
    return aspect;
  return {1, 1};
}

PictureParts PictureParts::of(const PixelBufferSnapshot& picture, const AVFrame& frame, ScalingMode mode) {
  const int width = static_cast<int>(picture.width());
  const int height = static_cast<int>(picture.height());
  PictureParts parts{{0, 0, width, height}, {0, 0, frame.width, frame.height}};
  if (mode == ScalingMode::stretch) return parts;
  const AVRational square{1, 1};
  const AVRational wanted = frame.sample_aspect_ratio.num > 0 ? frame.sample_aspect_ratio : square;
  const double shape = width * av_q2d(pixelAspectOf(picture)) / height;
  const double ratio = shape / (frame.width * av_q2d(wanted) / frame.height);
  if (mode == ScalingMode::fit) {
    if (ratio > 1) centre(1 / ratio, frame.height, parts.target.y, parts.target.height);
    if (ratio < 1) centre(ratio, frame.width, parts.target.x, parts.target.width);
  } else {
    if (ratio > 1) centre(1 / ratio, width, parts.source.x, parts.source.width);
    if (ratio < 1) centre(ratio, height, parts.source.y, parts.source.height);
  }
  return parts;
}

bool PictureParts::isWhole(const PixelBufferSnapshot& picture, const AVFrame& frame) const {
  const bool isAll =
      source.width == static_cast<int>(picture.width()) && source.height == static_cast<int>(picture.height());
  return isAll && !hasBars(frame);
}

}  // namespace tavrel
