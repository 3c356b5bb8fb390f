#include "PicturePrecision.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace tavrel::tool {
namespace {

/// Bayer's pattern: each number from 0 to 63 once, neighbours far apart.
constexpr std::array<std::array<int, 8>, 8> kPattern = [] {
  std::array<std::array<int, 8>, 8> pattern{};
  for (int y = 0; y < 8; ++y) {
    for (int x = 0; x < 8; ++x) {
      int value = 0;
      for (int bit = 0; bit < 3; ++bit) {
        const int column = x >> bit & 1;
        const int row = y >> bit & 1;
        value = value << 2 | (column ^ row) << 1 | row;
      }
      pattern[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)] = value;
    }
  }
  return pattern;
}();

}  // namespace

std::shared_ptr<Image> deepened(const std::shared_ptr<Image>& image) {
  const bool isOpaque = image->bitmapInfo() == kBitmapOpaqueBGRX;
  if (!isOpaque && image->bitmapInfo() != kBitmapPremultipliedBGRA) return image;
  const std::size_t width = image->width();
  Data pixels(width * image->height() * 8);
  for (std::size_t y = 0; y < image->height(); ++y) {
    const std::uint8_t* const row = image->dataProvider()->bytes().data() + y * image->bytesPerRow();
    for (std::size_t x = 0; x < width; ++x) {
      const std::uint8_t* const from = row + x * 4;
      const auto word = [](int byte) { return static_cast<std::uint16_t>(byte * 257); };
      const std::array<std::uint16_t, 4> to = {word(from[2]), word(from[1]), word(from[0]),
                                               word(isOpaque ? 255 : from[3])};
      std::memcpy(pixels.data() + (y * width + x) * 8, to.data(), 8);
    }
  }
  return Image::create(width, image->height(), 16, 64, width * 8,
                       isOpaque ? kBitmapOpaqueRGBX16 : kBitmapPremultipliedRGBA16,
                       DataProvider::create(std::move(pixels)));
}

std::shared_ptr<Image> dithered(const std::shared_ptr<Image>& image) {
  if (image->bitsPerPixel() != 64) return image;
  const std::size_t width = image->width();
  Data pixels(width * image->height() * 4);
  for (std::size_t y = 0; y < image->height(); ++y) {
    const std::uint8_t* const row = image->dataProvider()->bytes().data() + y * image->bytesPerRow();
    for (std::size_t x = 0; x < width; ++x) {
      std::array<std::uint16_t, 4> from{};
      std::memcpy(from.data(), row + x * 8, 8);
      std::uint8_t* const to = pixels.data() + (y * width + x) * 4;
      to[3] = static_cast<std::uint8_t>((from[3] + 128) / 257);
      // 257 steps of 16 bits are one of 8.
      const int threshold = (kPattern[y % 8][x % 8] * 2 + 1) * 257 / 128;
      for (std::size_t c = 0; c < 3; ++c)
        to[2 - c] = static_cast<std::uint8_t>(std::min<int>((from[c] + threshold) / 257, to[3]));
    }
  }
  return Image::create(width, image->height(), 8, 32, width * 4, kBitmapPremultipliedBGRA,
                       DataProvider::create(std::move(pixels)));
}

}  // namespace tavrel::tool
