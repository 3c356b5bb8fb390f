#include "Platform/Imaging/Private/StoredPixels.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "Platform/Imaging/Private/ColorTransform.h"
#include "Platform/Imaging/Private/PixelConversion.h"

namespace tavrel {
namespace {

using Layout = ColorTransform::Layout;

/// Colours divided by alpha, rounded; those above alpha stand for full ones.
template <typename Component>
void divideByAlpha(Data& bytes) {
  constexpr std::uint32_t kFull = std::numeric_limits<Component>::max();
  constexpr std::size_t kAlpha = 3;
  for (std::size_t i = 0; i + 4 * sizeof(Component) <= bytes.size(); i += 4 * sizeof(Component)) {
    Component pixel[4];
    std::memcpy(pixel, bytes.data() + i, sizeof pixel);
    const std::uint32_t alpha = pixel[kAlpha];
    if (alpha == kFull) continue;
    for (std::size_t c = 0; c < kAlpha; ++c) {
      pixel[c] = static_cast<Component>(alpha == 0 ? 0 : std::min((pixel[c] * kFull + alpha / 2) / alpha, kFull));
    }
    std::memcpy(bytes.data() + i, pixel, sizeof pixel);
  }
}

/// R, G, B, A of 16 bits become B, G, R, A of 8, in place: what is written ends before what is read next.
void reduceToBytes(Data& bytes, const ColorTransform* transform, std::size_t width) {
  const std::size_t count = bytes.size() / 8;
  Data row(width * 4);
  for (std::size_t done = 0; done < count; done += width) {
    const std::uint8_t* const from = bytes.data() + done * 8;
    if (transform) {
      transform->convert(from, row.data(), width);
    } else {
      for (std::size_t i = 0; i < width * 4; ++i) {
        std::uint16_t word = 0;
        std::memcpy(&word, from + i * 2, sizeof word);
        row[i % 4 == 3 ? i : i - i % 4 + 2 - i % 4] = static_cast<std::uint8_t>((word + 128U) / 257U);
      }
    }
    std::memcpy(bytes.data() + done * 4, row.data(), row.size());
  }
  bytes.resize(count * 4);
}

}  // namespace

void convertStoredPixels(StoredPixels& stored, std::span<const std::uint8_t> colorProfile,
                         const ImageDecoding& decoding) {
  const bool deep = stored.isDeep && decoding.keepsDepth;
  const auto layout = [](bool isDeep) { return isDeep ? Layout::rgba16 : Layout::bgra8; };
  const auto transform = decoding.keepsColors && isProfileOfRGB(colorProfile)
                             ? nullptr
                             : ColorTransform::toSRGB(colorProfile, layout(stored.isDeep), layout(deep));
  if (transform && stored.isPremultiplied) {
    stored.isDeep ? divideByAlpha<std::uint16_t>(stored.bytes) : divideByAlpha<std::uint8_t>(stored.bytes);
    stored.isPremultiplied = false;
  }
  if (stored.isDeep != deep) {
    reduceToBytes(stored.bytes, transform.get(), stored.width);
  } else if (transform) {
    transform->convert(stored.bytes.data(), stored.bytes.data(), stored.bytes.size() / (deep ? 8 : 4));
  }
  stored.isDeep = deep;
}

std::shared_ptr<Image> imageOfStoredPixels(StoredPixels stored, std::span<const std::uint8_t> colorProfile,
                                           const ImageDecoding& decoding) {
  convertStoredPixels(stored, colorProfile, decoding);
  if (decoding.keepsStraight && !stored.isOpaque && !stored.isPremultiplied && !stored.isDeep) {
    const std::size_t height = stored.bytes.size() / (stored.width * 4);
    return Image::create(stored.width, height, 8, 32, stored.width * 4,
                         bitmapInfo(kBitmapByteOrder32Little, AlphaInfo::first),
                         DataProvider::create(std::move(stored.bytes)));
  }
  if (!stored.isOpaque && !stored.isPremultiplied)
    stored.isDeep ? multiplyByAlphaDeep(stored.bytes) : multiplyByAlpha(stored.bytes);
  return imageOfPixels(std::move(stored.bytes), stored.width, stored.isDeep, stored.isOpaque);
}

std::shared_ptr<Image> imageOfInks(Data pixels, std::size_t width, std::span<const std::uint8_t> colorProfile) {
  if (const auto transform = ColorTransform::toSRGB(colorProfile, Layout::cmykLight8, Layout::bgra8)) {
    transform->convert(pixels.data(), pixels.data(), pixels.size() / 4);
    return imageOfPixels(std::move(pixels), width, false, true);
  }
  for (std::size_t i = 0; i < pixels.size(); i += 4) {
    std::uint8_t* const pixel = pixels.data() + i;
    std::swap(pixel[0], pixel[2]);
    for (int c = 0; c < 3; ++c) pixel[c] = static_cast<std::uint8_t>(pixel[c] * pixel[3] / 255);
    pixel[3] = 255;
  }
  return imageOfPixels(std::move(pixels), width, false, true);
}

}  // namespace tavrel
