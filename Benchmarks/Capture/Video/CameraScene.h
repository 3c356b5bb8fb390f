#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "TavrelCaptureBase.h"

namespace tavrel::benchmarks {

/// What the camera and the bare draws make their pictures of. Pixels are 0xAARRGGBB.
using Pixels = std::vector<std::uint32_t>;

constexpr int kTableSide = 512;
constexpr int kStickerSide = 128;

/// The table that changes nothing.
inline Pixels tablePixels() {
  Pixels pixels(std::size_t{kTableSide} * kTableSide);
  for (std::uint32_t y = 0; y < kTableSide; ++y) {
    for (std::uint32_t x = 0; x < kTableSide; ++x) {
      const std::uint32_t blue = y / 64 * 8 + x / 64;
      pixels[y * kTableSide + x] = 0xff000000 | (x % 64 * 4) << 16 | (y % 64 * 4) << 8 | blue * 4;
    }
  }
  return pixels;
}

/// Opaque in its lower half, nothing above.
inline Pixels stickerPixels() {
  Pixels pixels(std::size_t{kStickerSide} * kStickerSide);
  std::fill(pixels.begin() + pixels.size() / 2, pixels.end(), 0xff2040c0);
  return pixels;
}

/// In red.
inline Pixels animationPixels() { return Pixels(std::size_t{kStickerSide} * kStickerSide, 0xffff0000); }

/// Where the stickers lie on a frame.
struct Layout {
  Size size;
  Rect still;
  Rect animated;

  explicit Layout(Size frame)
      : size(frame),
        still{{frame.width / 8, frame.height / 8}, {frame.width / 5, frame.height / 4}},
        animated{{frame.width / 2, frame.height / 2}, {frame.width / 5, frame.height / 4}} {}
};

}  // namespace tavrel::benchmarks
