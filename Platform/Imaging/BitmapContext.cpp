#include "Platform/Imaging/BitmapContext.h"

#include <libyuv/planar_functions.h>
#include <libyuv/scale_argb.h>

#include <algorithm>
#include <cmath>

#include "Platform/Imaging/Private/PixelConversion.h"

namespace tavrel {
namespace {

/// Premultiplied source over target.
void blendRow(const std::uint8_t* source, std::uint8_t* target, int width) {
  for (int x = 0; x < width; ++x, source += 4, target += 4) {
    const int uncovered = 255 - source[3];
    for (int i = 0; i < 4; ++i) {
      const int sum = source[i] + (target[i] * uncovered + 127) / 255;
      target[i] = static_cast<std::uint8_t>(std::min(sum, 255));
    }
  }
}

}  // namespace

std::shared_ptr<BitmapContext> BitmapContext::create(void* data, std::size_t width, std::size_t height,
                                                     std::size_t bitsPerComponent, std::size_t bytesPerRow,
                                                     std::uint32_t bitmapInfo) {
  if (!data || bitsPerComponent != 8 || bitmapInfo != kBitmapPremultipliedBGRA || bytesPerRow < width * 4) {
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
    libyuv::ARGBScale(picture.pixels.data(), picture.bytesPerRow(), picture.width, picture.height, scaled.pixels.data(),
                      scaled.bytesPerRow(), width, height, libyuv::kFilterBox);
    picture = std::move(scaled);
  }
  const int firstColumn = std::max(0, -left);
  const int columns = std::min(width, width_ - left) - firstColumn;
  if (columns <= 0) return;
  for (int y = std::max(0, -top); y < std::min(height, height_ - top); ++y) {
    std::uint8_t* const target = data_ + static_cast<std::ptrdiff_t>(top + y) * bytesPerRow_ +
                                 static_cast<std::ptrdiff_t>(left + firstColumn) * 4;
    blendRow(picture.row(y) + static_cast<std::ptrdiff_t>(firstColumn) * 4, target, columns);
  }
}

}  // namespace tavrel
