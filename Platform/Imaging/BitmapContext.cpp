#include "Platform/Imaging/BitmapContext.h"

#include <cmath>
#include <utility>

#include "Platform/Imaging/PixelScaling.h"
#include "Platform/Imaging/Private/PixmanImage.h"

namespace tavrel {
std::shared_ptr<BitmapContext> BitmapContext::create(void* data, std::size_t width, std::size_t height,
                                                     std::size_t bitsPerComponent, std::size_t bytesPerRow,
                                                     std::uint32_t bitmapInfo) {
  if (!data || bitsPerComponent != 8 || bitmapInfo != kBitmapPremultipliedBGRA || bytesPerRow < width * 4 ||
      bytesPerRow % 4 != 0) {
    return nullptr;
  }
  std::shared_ptr<BitmapContext> context(new BitmapContext);
  context->data_ = static_cast<std::uint8_t*>(data);
  context->width_ = static_cast<int>(width);
  context->height_ = static_cast<int>(height);
  context->bytesPerRow_ = static_cast<int>(bytesPerRow);
  return context;
}

void BitmapContext::drawImage(const Image& image, const Rect& rectangle) {
  const int left = static_cast<int>(std::lround(rectangle.minX()));
  const int top = static_cast<int>(std::lround(rectangle.minY()));
  const int width = static_cast<int>(std::lround(rectangle.maxX())) - left;
  const int height = static_cast<int>(std::lround(rectangle.maxY())) - top;
  if (width <= 0 || height <= 0 || image.width() == 0 || image.height() == 0) return;

  Bitmap picture = premultipliedBGRA(image);
  if (picture.width != width || picture.height != height) {
    Bitmap scaled(width, height);
    const auto rowsOf = [](Bitmap& bitmap) {
      return PixelRows{bitmap.pixels.data(), static_cast<std::size_t>(bitmap.bytesPerRow()), bitmap.width,
                       bitmap.height};
    };
    scalePixels(rowsOf(picture), rowsOf(scaled));
    picture = std::move(scaled);
  }
  const PixmanImage source = pixmanImage(PIXMAN_a8r8g8b8, picture);
  const PixmanImage target = pixmanImage(PIXMAN_a8r8g8b8, data_, width_, height_, bytesPerRow_);
  pixman_image_composite32(PIXMAN_OP_OVER, source.get(), nullptr, target.get(), 0, 0, 0, 0, left, top, width, height);
}

}  // namespace tavrel
