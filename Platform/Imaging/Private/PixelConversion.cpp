#include "Platform/Imaging/Private/PixelConversion.h"

#include <libyuv/convert_argb.h>
#include <libyuv/planar_functions.h>

#include <cstring>
#include <utility>

#include "Platform/Imaging/Image.h"

namespace tavrel {
namespace {

/// Where the components of a 32-bit pixel stand in memory.
struct Components {
  int red, green, blue, alpha;
};

/// Little-endian words stand in memory back to front.
Components componentsOf(const Image& image) {
  const AlphaInfo alpha = image.alphaInfo();
  const bool isAlphaFirst =
      alpha == AlphaInfo::premultipliedFirst || alpha == AlphaInfo::first || alpha == AlphaInfo::noneSkipFirst;
  const Components bigEndian = isAlphaFirst ? Components{1, 2, 3, 0} : Components{0, 1, 2, 3};
  const bool isLittleEndian = (image.bitmapInfo() & kBitmapByteOrderMask) == kBitmapByteOrder32Little;
  if (!isLittleEndian) return bigEndian;
  return {3 - bigEndian.red, 3 - bigEndian.green, 3 - bigEndian.blue, 3 - bigEndian.alpha};
}

bool isPremultiplied(AlphaInfo alpha) {
  return alpha == AlphaInfo::premultipliedFirst || alpha == AlphaInfo::premultipliedLast;
}

std::uint8_t multiplied(std::uint8_t component, std::uint8_t alpha) {
  return static_cast<std::uint8_t>((component * alpha + 127) / 255);
}

void convertRow32(const Image& image, const std::uint8_t* source, std::uint8_t* target, int width) {
  const auto [red, green, blue, alpha] = componentsOf(image);
  const bool opaque = isOpaque(image);
  const bool multiplies = !opaque && !isPremultiplied(image.alphaInfo());
  for (int x = 0; x < width; ++x, source += 4, target += 4) {
    const std::uint8_t a = opaque ? 255 : source[alpha];
    const std::uint8_t colors[] = {source[blue], source[green], source[red]};
    for (int i = 0; i < 3; ++i) target[i] = multiplies ? multiplied(colors[i], a) : colors[i];
    target[3] = a;
  }
}

void convertRow24(const std::uint8_t* source, std::uint8_t* target, int width) {
  for (int x = 0; x < width; ++x, source += 3, target += 4) {
    target[0] = source[2];
    target[1] = source[1];
    target[2] = source[0];
    target[3] = 255;
  }
}

void convertRow8(const std::uint8_t* source, std::uint8_t* target, int width) {
  for (int x = 0; x < width; ++x, ++source, target += 4) {
    std::memset(target, *source, 3);
    target[3] = 255;
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
  const std::uint8_t* const bytes = image.dataProvider()->bytes().data();
  if (image.bitmapInfo() == kBitmapPremultipliedBGRA) {
    libyuv::ARGBCopy(bytes, static_cast<int>(image.bytesPerRow()), bitmap.pixels.data(), bitmap.bytesPerRow(),
                     bitmap.width, bitmap.height);
    return bitmap;
  }
  for (int y = 0; y < bitmap.height; ++y) {
    const std::uint8_t* const source = bytes + static_cast<std::size_t>(y) * image.bytesPerRow();
    if (image.bitsPerPixel() == 32) {
      convertRow32(image, source, bitmap.row(y), bitmap.width);
    } else if (image.bitsPerPixel() == 24) {
      convertRow24(source, bitmap.row(y), bitmap.width);
    } else if (image.bitsPerPixel() == 8) {
      convertRow8(source, bitmap.row(y), bitmap.width);
    }
  }
  return bitmap;
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
    std::swap(pixel[0], pixel[2]);
  }
  return bitmap;
}

std::shared_ptr<Image> imageOf(Bitmap bitmap, bool opaque) {
  const auto width = static_cast<std::size_t>(bitmap.width);
  const auto height = static_cast<std::size_t>(bitmap.height);
  return Image::create(width, height, 8, 32, width * 4, opaque ? kBitmapOpaqueBGRX : kBitmapPremultipliedBGRA,
                       DataProvider::create(std::move(bitmap.pixels)));
}

}  // namespace tavrel
