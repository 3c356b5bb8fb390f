#pragma once

#include <cstddef>
#include <cstdint>

namespace tavrel {

/// Rows of pixels of four bytes, which somebody else owns.
struct PixelRows {
  std::uint8_t* bytes = nullptr;
  std::size_t bytesPerRow = 0;
  int width = 0;
  int height = 0;
};

/// Draws `source`, premultiplied or opaque, over the whole of `target`: what becomes smaller as the mean of the area
/// that each pixel covers, what becomes larger linearly. Not in place. Any thread.
void scalePixels(const PixelRows& source, const PixelRows& target);

}  // namespace tavrel
