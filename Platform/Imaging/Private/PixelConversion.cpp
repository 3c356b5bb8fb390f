#include "Platform/Imaging/Private/PixelConversion.h"

#include <libyuv/convert_argb.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/planar_functions.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "Platform/Imaging/Image.h"
#include "Platform/Imaging/Private/PixmanImage.h"

namespace tavrel {
namespace {

bool isBackToFront(const Image& image) {
  // Little-endian words stand in memory back to front.
  return (image.bitmapInfo() & kBitmapByteOrderMask) == kBitmapByteOrder32Little;
}

bool isAlphaFirst(AlphaInfo alpha) {
  return alpha == AlphaInfo::premultipliedFirst || alpha == AlphaInfo::first || alpha == AlphaInfo::noneSkipFirst;
}

/// For each byte of B, G, R, A, where it stands in a 32-bit pixel of the image; for four pixels.
std::array<std::uint8_t, 16> shuffleToBGRA(const Image& image) {
  std::array<std::uint8_t, 16> places = {3, 2, 1, 0};
  if (!isAlphaFirst(image.alphaInfo())) places = {2, 1, 0, 3};
  for (std::size_t i = 0; i < places.size(); ++i) {
    if (i >= 4)
      places[i] = static_cast<std::uint8_t>(places[i - 4] + 4);
    else if (isBackToFront(image))
      places[i] = static_cast<std::uint8_t>(3 - places[i]);
  }
  return places;
}

/// 32-bit pixels as B, G, R, A, otherwise as they are.
Bitmap shuffledToBGRA(const Image& image) {
  Bitmap bitmap(static_cast<int>(image.width()), static_cast<int>(image.height()));
  libyuv::ARGBShuffle(image.dataProvider()->bytes().data(), static_cast<int>(image.bytesPerRow()), bitmap.pixels.data(),
                      bitmap.bytesPerRow(), shuffleToBGRA(image).data(), bitmap.width, bitmap.height);
  return bitmap;
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

std::uint16_t wordAt(const std::uint8_t* bytes) {
  std::uint16_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

void setWord(std::uint8_t* bytes, std::uint32_t value) {
  const auto word = static_cast<std::uint16_t>(value);
  std::memcpy(bytes, &word, sizeof word);
}

/// R, G, B, A of 16 bits to premultiplied B, G, R, A of 8.
Bitmap reducedToBytes(const Image& image) {
  Bitmap bitmap(static_cast<int>(image.width()), static_cast<int>(image.height()));
  const bool opaque = isOpaque(image);
  for (int y = 0; y < bitmap.height; ++y) {
    const std::uint8_t* const from =
        image.dataProvider()->bytes().data() + static_cast<std::size_t>(y) * image.bytesPerRow();
    std::uint8_t* const to = bitmap.row(y);
    for (std::size_t i = 0; i < image.width() * 4; ++i) {
      const std::size_t place = i % 4 == 3 ? i : i - i % 4 + 2 - i % 4;
      to[place] = static_cast<std::uint8_t>((wordAt(from + i * 2) + 128U) / 257U);
      if (i % 4 == 3 && opaque) to[place] = 255;
    }
  }
  return bitmap;
}

}  // namespace

bool isDeep(const Image& image) { return image.bitsPerPixel() == 64 && image.bitsPerComponent() == 16; }

bool isStraight(const Image& image) {
  const AlphaInfo alpha = image.alphaInfo();
  return image.bitsPerPixel() == 32 && (alpha == AlphaInfo::first || alpha == AlphaInfo::last);
}

bool isOpaque(const Image& image) {
  if (image.bitsPerPixel() < 32) return true;
  const AlphaInfo alpha = image.alphaInfo();
  return alpha == AlphaInfo::none || alpha == AlphaInfo::noneSkipFirst || alpha == AlphaInfo::noneSkipLast;
}

bool isOpaqueThroughout(const Image& image) {
  if (isOpaque(image)) return true;
  const std::size_t pixelBytes = image.bitsPerPixel() / 8;
  const std::size_t alpha = isDeep(image) ? 6 : isAlphaFirst(image.alphaInfo()) == isBackToFront(image) ? 3 : 0;
  for (std::size_t y = 0; y < image.height(); ++y) {
    const std::uint8_t* const row = image.dataProvider()->bytes().data() + y * image.bytesPerRow() + alpha;
    for (std::size_t x = 0; x < image.width(); ++x) {
      const std::uint8_t* const pixel = row + x * pixelBytes;
      if (pixel[0] != 255 || (isDeep(image) && pixel[1] != 255)) return false;
    }
  }
  return true;
}

Bitmap premultipliedBGRA(const Image& image) {
  if (isDeep(image)) return reducedToBytes(image);
  if (image.bitsPerPixel() == 32) {
    Bitmap bitmap = shuffledToBGRA(image);
    const bool opaque = isOpaque(image);
    if (opaque || !isPremultiplied(image.alphaInfo())) finishColors(bitmap.pixels, opaque);
    return bitmap;
  }
  Bitmap bitmap(static_cast<int>(image.width()), static_cast<int>(image.height()));
  if (bitmap.pixels.empty()) return bitmap;
  const std::uint8_t* const source = image.dataProvider()->bytes().data();
  const int stride = static_cast<int>(image.bytesPerRow());
  std::uint8_t* const target = bitmap.pixels.data();
  if (image.bitsPerPixel() == 24) {
    libyuv::RAWToARGB(source, stride, target, bitmap.bytesPerRow(), bitmap.width, bitmap.height);
  } else if (image.bitsPerPixel() == 8) {
    libyuv::J400ToARGB(source, stride, target, bitmap.bytesPerRow(), bitmap.width, bitmap.height);
  }
  return bitmap;
}

void multiplyByAlpha(std::span<std::uint8_t> straight) { finishColors(straight, false); }

void multiplyByAlphaDeep(std::span<std::uint8_t> straight) {
  for (std::size_t i = 0; i + 8 <= straight.size(); i += 8) {
    std::uint8_t* const pixel = straight.data() + i;
    const std::uint32_t alpha = wordAt(pixel + 6);
    for (int c = 0; c < 6; c += 2) setWord(pixel + c, (wordAt(pixel + c) * alpha + 32767) / 65535);
  }
}

Data premultipliedRGBA16(const Image& image) {
  const std::array<std::uint8_t, 16> places = shuffleToBGRA(image);
  Data result(image.width() * image.height() * 8);
  std::uint8_t* to = result.data();
  for (std::size_t y = 0; y < image.height(); ++y) {
    const std::uint8_t* from = image.dataProvider()->bytes().data() + y * image.bytesPerRow();
    for (std::size_t x = 0; x < image.width(); ++x, from += 4, to += 8) {
      const std::uint32_t alpha = from[places[3]];
      // 257 is 65535 / 255.
      for (std::size_t c = 0; c < 3; ++c) setWord(to + c * 2, (from[places[2 - c]] * alpha * 257 + 127) / 255);
      setWord(to + 6, alpha * 257);
    }
  }
  return result;
}

Data straightRGBA16(const Image& image) {
  Data result(image.width() * image.height() * 8);
  if (!isDeep(image)) {
    const Bitmap bytes = straightRGBA(image);
    for (std::size_t i = 0; i < bytes.pixels.size(); ++i) setWord(result.data() + i * 2, bytes.pixels[i] * 257U);
    return result;
  }
  const bool opaque = isOpaque(image);
  const bool isMultiplied = isPremultiplied(image.alphaInfo());
  for (std::size_t y = 0; y < image.height(); ++y) {
    std::uint8_t* const row = result.data() + y * image.width() * 8;
    std::memcpy(row, image.dataProvider()->bytes().data() + y * image.bytesPerRow(), image.width() * 8);
    for (std::size_t x = 0; x < image.width(); ++x) {
      std::uint8_t* const pixel = row + x * 8;
      if (opaque) setWord(pixel + 6, 65535);
      const std::uint32_t alpha = wordAt(pixel + 6);
      if (!isMultiplied || alpha == 0 || alpha == 65535) continue;
      for (int c = 0; c < 6; c += 2) {
        setWord(pixel + c, std::min((wordAt(pixel + c) * 65535U + alpha / 2) / alpha, 65535U));
      }
    }
  }
  return result;
}

void layOnto(Bitmap& target, Bitmap& source, int left, int top, bool over) {
  const PixmanImage from = pixmanImage(PIXMAN_a8r8g8b8, source);
  const PixmanImage to = pixmanImage(PIXMAN_a8r8g8b8, target);
  pixman_image_composite32(over ? PIXMAN_OP_OVER : PIXMAN_OP_SRC, from.get(), nullptr, to.get(), 0, 0, 0, 0, left, top,
                           source.width, source.height);
}

Bitmap straightRGBA(const Image& image) {
  Bitmap bitmap = isStraight(image) ? shuffledToBGRA(image) : premultipliedBGRA(image);
  for (std::size_t i = 0; !isStraight(image) && i < bitmap.pixels.size(); i += 4) {
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
  return imageOfPixels(std::move(bitmap.pixels), static_cast<std::size_t>(bitmap.width), false, opaque);
}

std::shared_ptr<Image> imageOfPixels(Data pixels, std::size_t width, bool deep, bool opaque) {
  const std::size_t rowBytes = width * (deep ? 8 : 4);
  const std::size_t height = width == 0 ? 0 : pixels.size() / rowBytes;
  const std::uint32_t info = deep ? (opaque ? kBitmapOpaqueRGBX16 : kBitmapPremultipliedRGBA16)
                                  : (opaque ? kBitmapOpaqueBGRX : kBitmapPremultipliedBGRA);
  return Image::create(width, height, deep ? 16 : 8, deep ? 64 : 32, rowBytes, info,
                       DataProvider::create(std::move(pixels)));
}

std::shared_ptr<Image> rowsOf(const Image& image, std::size_t first, std::size_t count) {
  const std::uint8_t* const rows = image.dataProvider()->bytes().data() + first * image.bytesPerRow();
  const std::size_t size =
      std::min(count * image.bytesPerRow(), image.dataProvider()->bytes().size() - first * image.bytesPerRow());
  return Image::create(image.width(), count, image.bitsPerComponent(), image.bitsPerPixel(), image.bytesPerRow(),
                       image.bitmapInfo(), DataProvider::create(nullptr, rows, size, nullptr));
}

}  // namespace tavrel
