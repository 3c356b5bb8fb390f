#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Imaging/Image.h"

namespace tavrel {

/// Draws images into memory of 32-bit premultiplied B, G, R, A pixels that the caller owns. One thread at a time.
class TAVREL_API BitmapContext {
 public:
  /// The memory, `bytesPerRow` × `height` bytes, must outlive the context. Another layout than
  /// `kBitmapPremultipliedBGRA` with 8 bits a component, no memory, and rows that are too short or no whole number of
  /// pixels long give none.
  static std::shared_ptr<BitmapContext> create(void* data, std::size_t width, std::size_t height,
                                               std::size_t bitsPerComponent, std::size_t bytesPerRow,
                                               std::uint32_t bitmapInfo);

  /// Stretches `image`, as stored, to `rectangle` (pixels, origin at the top left, rounded to whole ones) and lays it
  /// over what is there. What lies outside of the bitmap is cut off. A picture of the rectangle's size is copied
  /// exactly.
  void drawImage(const Image& image, const Rect& rectangle);

 private:
  BitmapContext() = default;

  std::uint8_t* data_ = nullptr;
  int width_ = 0;
  int height_ = 0;
  int bytesPerRow_ = 0;
};

}  // namespace tavrel
