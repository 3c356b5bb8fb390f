#pragma once

#include <cstddef>
#include <cstdint>

namespace tavrel {

/// Rows of pixels of four bytes; borrowed.
struct PixelRows {
  std::uint8_t* bytes = nullptr;
  std::size_t bytesPerRow = 0;
  int width = 0;
  int height = 0;
};

/// Scales `source`, premultiplied or opaque, to fill `target`: reduces by averaging the area that each pixel covers,
/// enlarges linearly. They must not overlap. Any thread.
void scalePixels(const PixelRows& source, const PixelRows& target);

}  // namespace tavrel
