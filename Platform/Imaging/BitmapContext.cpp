#include "Platform/Imaging/BitmapContext.h"

#include <libyuv/scale_argb.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "Platform/Imaging/Private/PixmanImage.h"

namespace tavrel {
namespace {

/// The picture, averaged over so many pixels that libyuv, which ends at 32768 a side, can scale it.
Bitmap reducedForScaling(Bitmap picture) {
  constexpr int kLargestSide = 32768;
  const int across = (picture.width - 1) / kLargestSide + 1;
  const int down = (picture.height - 1) / kLargestSide + 1;
  if (across * down == 1) return picture;
  Bitmap reduced((picture.width - 1) / across + 1, (picture.height - 1) / down + 1);
  for (int y = 0; y < reduced.height; ++y) {
    for (int byte = 0; byte < reduced.width * 4; ++byte) {
      int sum = 0;
      for (int i = 0; i < across * down; ++i) {
        const int column = std::min(byte / 4 * across + i % across, picture.width - 1);
        sum += picture.row(std::min(y * down + i / across, picture.height - 1))[column * 4 + byte % 4];
      }
      reduced.row(y)[byte] = static_cast<std::uint8_t>((sum + across * down / 2) / (across * down));
    }
  }
  return reduced;
}

}  // namespace

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

  Bitmap picture = reducedForScaling(premultipliedBGRA(image));
  if (picture.width != width || picture.height != height) {
    Bitmap scaled(width, height);
    libyuv::ARGBScale(picture.pixels.data(), picture.bytesPerRow(), picture.width, picture.height, scaled.pixels.data(),
                      scaled.bytesPerRow(), width, height, libyuv::kFilterBox);
    picture = std::move(scaled);
  }
  const PixmanImage source = pixmanImage(PIXMAN_a8r8g8b8, picture);
  const PixmanImage target = pixmanImage(PIXMAN_a8r8g8b8, data_, width_, height_, bytesPerRow_);
  pixman_image_composite32(PIXMAN_OP_OVER, source.get(), nullptr, target.get(), 0, 0, 0, 0, left, top, width, height);
}

}  // namespace tavrel
