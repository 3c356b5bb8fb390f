#include "GPUImage/Filters/TavrelLookupTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "GPUImage/Filters/Private/ColorTable.h"
#include "Platform/Imaging/BitmapContext.h"
#include "Platform/Imaging/ImageSource.h"

namespace tavrel {
namespace {

constexpr std::size_t kTiles = 8;   // along an edge of the picture
constexpr std::size_t kSteps = 64;  // of each component, along an edge of a tile
constexpr std::size_t kSide = kTiles * kSteps;
constexpr std::size_t kSmallestHaldLevel = 2;
constexpr std::size_t kLargestHaldLevel = 16;

/// The pixels of a picture as blue, green, red, alpha.
std::vector<std::uint8_t> pixelsOf(const Image& image) {
  std::vector<std::uint8_t> pixels(image.width() * image.height() * 4);
  const auto context = BitmapContext::create(pixels.data(), image.width(), image.height(), 8, image.width() * 4,
                                             kBitmapPremultipliedBGRA);
  context->drawImage(image, {{0, 0}, {static_cast<double>(image.width()), static_cast<double>(image.height())}});
  return pixels;
}

std::uint8_t byteOf(float component) {
  return static_cast<std::uint8_t>(std::lround(std::clamp(component, 0.0F, 1.0F) * 255.0F));
}

/// Draws the tiles from a function of red, green and blue, each in 0…1.
template <typename Function>
std::shared_ptr<Image> drawn(Function colorOf) {
  Data pixels(kSide * kSide * 4);
  std::uint8_t* pixel = pixels.data();
  const auto level = [](std::size_t step) { return static_cast<float>(step) / static_cast<float>(kSteps - 1); };
  for (std::size_t y = 0; y < kSide; ++y) {
    for (std::size_t x = 0; x < kSide; ++x, pixel += 4) {
      const std::size_t tile = y / kSteps * kTiles + x / kSteps;
      const Color color = colorOf(Color{level(x % kSteps), level(y % kSteps), level(tile)});
      for (std::size_t i = 0; i < 3; ++i) pixel[2 - i] = byteOf(color[i]);
      pixel[3] = 255;
    }
  }
  return Image::create(kSide, kSide, 8, 32, kSide * 4, kBitmapOpaqueBGRX, DataProvider::create(std::move(pixels)));
}

/// The level of a HALD picture; 0 when it is none.
std::size_t haldLevel(const Image& picture) {
  if (picture.width() != picture.height()) return 0;
  for (std::size_t level = kSmallestHaldLevel; level <= kLargestHaldLevel; ++level) {
    if (level * level * level == picture.width()) return level;
  }
  return 0;
}

/// Which pixel of a picture of the filter's size has the colour of these steps.
using Layout = std::size_t (*)(std::size_t red, std::size_t green, std::size_t blue);

std::size_t inTiles(std::size_t red, std::size_t green, std::size_t blue) {
  return (blue / kTiles * kSteps + green) * kSide + blue % kTiles * kSteps + red;
}

std::size_t inHald(std::size_t red, std::size_t green, std::size_t blue) {
  return (blue * kSteps + green) * kSteps + red;
}

/// How much neighbouring colours differ, in all, when the pixels lie as `layout` says.
std::uint64_t roughness(const std::vector<std::uint8_t>& pixels, Layout layout) {
  std::uint64_t sum = 0;
  const auto add = [&](std::size_t first, std::size_t second) {
    for (std::size_t i = 0; i < 3; ++i) {
      sum += static_cast<std::uint64_t>(std::abs(pixels[first * 4 + i] - pixels[second * 4 + i]));
    }
  };
  for (std::size_t blue = 0; blue + 1 < kSteps; ++blue) {
    for (std::size_t green = 0; green + 1 < kSteps; ++green) {
      for (std::size_t red = 0; red < kSteps; ++red) {
        add(layout(red, green, blue), layout(red, green + 1, blue));
        add(layout(red, green, blue), layout(red, green, blue + 1));
      }
    }
  }
  return sum;
}

/// A level 8 HALD picture is as large as the filter's.
bool isHaldOfFilterSize(const Image& picture) {
  const std::vector<std::uint8_t> pixels = pixelsOf(picture);
  return roughness(pixels, inHald) < roughness(pixels, inTiles);
}

bool looksLikeText(const Data& bytes) {
  const auto end = bytes.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(bytes.size(), 512));
  return std::find(bytes.begin(), end, std::uint8_t{0}) == end;
}

std::shared_ptr<Image> drawnFrom(const ColorTable& table) {
  return drawn([&](const Color& color) { return table.at(color); });
}

TavrelLookupTable lookupOf(ColorTable&& parsed) {
  auto table = std::make_shared<const ColorTable>(std::move(parsed));
  auto image = drawnFrom(*table);
  return {std::move(table), std::move(image)};
}

/// The straight colours of a picture, each in 0…1.
std::vector<Color> colorsOf(const Image& picture) {
  std::vector<Color> colors;
  colors.reserve(picture.width() * picture.height());
  if (picture.bitsPerPixel() == 64) {
    for (std::size_t y = 0; y < picture.height(); ++y) {
      const std::uint8_t* const row = picture.dataProvider()->bytes().data() + y * picture.bytesPerRow();
      for (std::size_t x = 0; x < picture.width(); ++x) {
        std::array<std::uint16_t, 3> words{};
        std::memcpy(words.data(), row + x * 8, sizeof words);
        colors.push_back({static_cast<float>(words[0]) / 65535, static_cast<float>(words[1]) / 65535,
                          static_cast<float>(words[2]) / 65535});
      }
    }
    return colors;
  }
  const std::vector<std::uint8_t> pixels = pixelsOf(picture);
  for (std::size_t i = 0; i < pixels.size(); i += 4)
    colors.push_back({pixels[i + 2] / 255.0F, pixels[i + 1] / 255.0F, pixels[i] / 255.0F});
  return colors;
}

Expected<ColorTable> tableFromHald(const Image& picture) {
  const std::size_t level = haldLevel(picture);
  if (level == 0) {
    return failure("lookup", EINVAL,
                   fmt::format("a picture of {}x{} is no lookup table; it must be 512x512 (8 by 8 tiles) or a HALD "
                               "picture, a square with a side of 8, 27, 64, 125 … pixels",
                               picture.width(), picture.height()));
  }
  return ColorTable{.stages = {{.size = level * level, .colors = colorsOf(picture)}}};
}

Expected<TavrelLookupTable> tableFromPicture(const std::shared_ptr<Image>& picture) {
  if (picture->width() == kSide && picture->height() == kSide && !isHaldOfFilterSize(*picture))
    return TavrelLookupTable{nullptr, picture};
  return tableFromHald(*picture).map(lookupOf);
}

}  // namespace

Expected<std::shared_ptr<Image>> TavrelLookupImageFromCube(std::string_view text) {
  return parseCube(text).map(drawnFrom);
}

Expected<std::shared_ptr<Image>> TavrelLookupImageFromHald(const Image& picture) {
  return tableFromHald(picture).map(drawnFrom);
}

Expected<TavrelLookupTable> TavrelLookupTableFromFile(const std::filesystem::path& file) {
  auto bytes = readFile(file);
  if (!bytes) return tl::unexpected(bytes.error());
  const auto named = [&](Error error) {
    if (error.domain == "lookup") error.description = fmt::format("{}: {}", file.string(), error.description);
    return error;
  };
  if (auto source = ImageSource::create(*bytes, file.string())) {
    return (*source)->decodedImage(0, {.keepsDepth = true}).and_then(tableFromPicture).map_error(named);
  } else if (!looksLikeText(*bytes)) {
    return tl::unexpected(source.error());
  }
  return parseColorTable({reinterpret_cast<const char*>(bytes->data()), bytes->size()}).map(lookupOf).map_error(named);
}

Expected<std::shared_ptr<Image>> TavrelLookupImageFromFile(const std::filesystem::path& file) {
  return TavrelLookupTableFromFile(file).map([](TavrelLookupTable&& read) { return std::move(read.image); });
}

std::shared_ptr<Image> TavrelLookupIdentityImage() {
  return drawn([](const Color& color) { return color; });
}

}  // namespace tavrel
