#pragma once

#include <algorithm>
#include <cstddef>

#include "Platform/Capture/Private/FrameConversion.h"

namespace tavrel {

/// How many planes a layout has, and how their rows are. Widths and heights count from the first plane's.
struct FrameShape {
  std::size_t planeCount = 1;       ///< 0 where pictures are encoded
  std::size_t pixelBytes = 1;       ///< of the first plane; of two pixels where `isInPairs`
  bool isInPairs = false;           ///< two pixels share their chroma, in one plane
  bool isChromaInterleaved = true;  ///< in one plane, else in two
  bool isChromaHalfWide = true;
  bool isChromaHalfHigh = true;

  static FrameShape of(const RawFrame& frame);

  std::size_t rowBytes(std::size_t plane, std::size_t width) const {
    if (plane == 0) return (isInPairs ? half(width) : width) * pixelBytes;
    return (isChromaHalfWide ? half(width) : width) * (isChromaInterleaved ? 2 : 1) * pixelBytes;
  }
  std::size_t rows(std::size_t plane, std::size_t height) const {
    return plane > 0 && isChromaHalfHigh ? half(height) : height;
  }
  /// Of a plane that does not say, where the first one has rows of `first` bytes.
  std::size_t bytesPerRow(std::size_t plane, std::size_t first, std::size_t width) const {
    const bool isLikeFirst = plane == 0 || isChromaInterleaved == isChromaHalfWide;
    const std::size_t told = isLikeFirst ? first : isChromaInterleaved ? 2 * first : half(first);
    return std::max(told, rowBytes(plane, width));  // of an odd width the chroma's last pair is a whole one
  }

  static std::size_t half(std::size_t value) { return (value + 1) / 2; }
};

}  // namespace tavrel
