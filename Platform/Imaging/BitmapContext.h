#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Imaging/Image.h"

namespace tavrel {

/// Draws images into the caller's memory of premultiplied B, G, R, A pixels. One thread at a time.
class TAVREL_API BitmapContext {
 public:
  /// `data`, `bytesPerRow` × `height` bytes, must outlive the context. nullptr if `data` is null, the layout is not
  /// `kBitmapPremultipliedBGRA` with 8 bits per component, or the stride is too short or not a multiple of 4.
  static std::shared_ptr<BitmapContext> create(void* data, std::size_t width, std::size_t height,
                                               std::size_t bitsPerComponent, std::size_t bytesPerRow,
                                               std::uint32_t bitmapInfo);

  /// Draws `image` as stored, ignoring its orientation, over the bitmap: scaled to `rectangle` (pixels from the top
  /// left, rounded) and clipped. An image of the rectangle's size is not resampled.
  void drawImage(const Image& image, const Rect& rectangle);

 private:
  BitmapContext() = default;

  std::uint8_t* data_ = nullptr;
  int width_ = 0;
  int height_ = 0;
  int bytesPerRow_ = 0;
};

}  // namespace tavrel
