#include "Platform/Imaging/Private/PixelConversion.h"

#include <libyuv/convert_argb.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/planar_functions.h>

#include <algorithm>
#include <array>
#include <utility>

#include "Platform/Imaging/Image.h"
#include "Platform/Imaging/Private/PixmanImage.h"

namespace tavrel {
namespace {

/// For each byte of B, G, R, A, where it stands in a 32-bit pixel of the image; for four pixels.
std::array<std::uint8_t, 16> shuffleToBGRA(const Image& image) {
  const AlphaInfo alpha = image.alphaInfo();
  const bool isAlphaFirst =
      alpha == AlphaInfo::premultipliedFirst || alpha == AlphaInfo::first || alpha == AlphaInfo::noneSkipFirst;
  // Little-endian words stand in memory back to front.
  const bool isBackToFront = (image.bitmapInfo() & kBitmapByteOrderMask) == kBitmapByteOrder32Little;
  std::array<std::uint8_t, 16> places = {3, 2, 1, 0};
  if (!isAlphaFirst) places = {2, 1, 0, 3};
  for (std::size_t i = 0; i < places.size(); ++i) {
    if (i >= 4)
      places[i] = static_cast<std::uint8_t>(places[i - 4] + 4);
    else if (isBackToFront)
      places[i] = static_cast<std::uint8_t>(3 - places[i]);
  }
  return places;
}

bool isPremultiplied(AlphaInfo alpha) {
  return alpha == AlphaInfo::premultipliedFirst || alpha == AlphaInfo::premultipliedLast;
}

/// Multiplies by alpha, or makes opaque. pixman rounds to the nearest value; libyuv is off by one for every third.
void finishColors(std::span<std::uint8_t> bytes, bool opaque) {
  // Without padding the pixels are a picture of any width, and pixman's end at 32767.
  constexpr std::size_t kSide = 16384;
  const std::size_t count = bytes.size() / 4;
  for (std::size_t done = 0; done < count;) {
    const std::size_t width = std::min(kSide, count - done);
    const std::size_t height = std::min(kSide, (count - done) / width);
    const auto part = [&](pixman_format_code_t format) {
      return pixmanImage(format, bytes.data() + done * 4, static_cast<int>(width), static_cast<int>(height),
                         static_cast<int>(width) * 4);
    };
    const PixmanImage pixels = part(PIXMAN_x8r8g8b8);
    const PixmanImage target = part(PIXMAN_a8r8g8b8);
    pixman_image_composite32(PIXMAN_OP_SRC, pixels.get(), opaque ? nullptr : target.get(), target.get(), 0, 0, 0, 0, 0,
                             0, static_cast<int>(width), static_cast<int>(height));
    done += width * height;
  }
}

}  // namespace

bool isOpaque(const Image& image) {
  if (image.bitsPerPixel() != 32) return true;
  const AlphaInfo alpha = image.alphaInfo();
  return alpha == AlphaInfo::none || alpha == AlphaInfo::noneSkipFirst || alpha == AlphaInfo::noneSkipLast;
}

Bitmap premultipliedBGRA(const Image& image) {
  Bitmap bitmap(static_cast<int>(image.width()), static_cast<int>(image.height()));
  if (bitmap.pixels.empty()) return bitmap;
  const std::uint8_t* const source = image.dataProvider()->bytes().data();
  const int stride = static_cast<int>(image.bytesPerRow());
  std::uint8_t* const target = bitmap.pixels.data();
  if (image.bitsPerPixel() == 24) {
    libyuv::RAWToARGB(source, stride, target, bitmap.bytesPerRow(), bitmap.width, bitmap.height);
  } else if (image.bitsPerPixel() == 8) {
    libyuv::J400ToARGB(source, stride, target, bitmap.bytesPerRow(), bitmap.width, bitmap.height);
  } else if (image.bitsPerPixel() == 32) {
    libyuv::ARGBShuffle(source, stride, target, bitmap.bytesPerRow(), shuffleToBGRA(image).data(), bitmap.width,
                        bitmap.height);
    const bool opaque = isOpaque(image);
    if (opaque || !isPremultiplied(image.alphaInfo())) finishColors(bitmap.pixels, opaque);
  }
  return bitmap;
}

void multiplyByAlpha(std::span<std::uint8_t> straight) { finishColors(straight, false); }

void layOnto(Bitmap& target, Bitmap& source, int left, int top, bool over) {
  const PixmanImage from = pixmanImage(PIXMAN_a8r8g8b8, source);
  const PixmanImage to = pixmanImage(PIXMAN_a8r8g8b8, target);
  pixman_image_composite32(over ? PIXMAN_OP_OVER : PIXMAN_OP_SRC, from.get(), nullptr, to.get(), 0, 0, 0, 0, left, top,
                           source.width, source.height);
}

Bitmap straightRGBA(const Image& image) {
  Bitmap bitmap = premultipliedBGRA(image);
  for (std::size_t i = 0; i < bitmap.pixels.size(); i += 4) {
    std::uint8_t* const pixel = bitmap.pixels.data() + i;
    const int alpha = pixel[3];
    if (alpha > 0 && alpha < 255) {
      // Colours above alpha cannot come from multiplication; they stand for full ones.
      for (int c = 0; c < 3; ++c) {
        const int straight = (pixel[c] * 255 + alpha / 2) / alpha;
        pixel[c] = static_cast<std::uint8_t>(straight > 255 ? 255 : straight);
      }
    }
  }
  libyuv::ARGBToABGR(bitmap.pixels.data(), bitmap.bytesPerRow(), bitmap.pixels.data(), bitmap.bytesPerRow(),
                     bitmap.width, bitmap.height);
  return bitmap;
}

std::shared_ptr<Image> imageOf(Bitmap bitmap, bool opaque) {
  const auto width = static_cast<std::size_t>(bitmap.width);
  const auto height = static_cast<std::size_t>(bitmap.height);
  return Image::create(width, height, 8, 32, width * 4, opaque ? kBitmapOpaqueBGRX : kBitmapPremultipliedBGRA,
                       DataProvider::create(std::move(bitmap.pixels)));
}

}  // namespace tavrel
