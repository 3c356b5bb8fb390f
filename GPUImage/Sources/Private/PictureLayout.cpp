#include "GPUImage/Sources/Private/PictureLayout.h"

#include <GLES2/gl2ext.h>

#include <bit>
#include <cmath>
#include <cstring>

#include "Platform/Imaging/Image.h"

namespace tavrel {
namespace {

std::uint32_t swappedToHost(std::uint32_t word, bool isLittleEndian) {
  const bool isHostLittleEndian = std::endian::native == std::endian::little;
  return isLittleEndian == isHostLittleEndian ? word : __builtin_bswap32(word);
}

/// `component` (0…255, premultiplied) divided by `alpha` (0…1), truncated. Premultiplied data has no colour where alpha
/// is 0, so that the quotient, which is no number there, stands for 0.
std::uint32_t straight(std::uint32_t component, double alpha) {
  const double quotient = component / 255.0 / alpha;
  return std::isnan(quotient) ? 0 : static_cast<std::uint32_t>(quotient * 255.0);
}

std::uint32_t straightPixel(std::uint32_t pixel, bool isAlphaFirst) {
  const std::uint32_t alphaByte = isAlphaFirst ? pixel >> 24 : pixel & 0xFF;
  const std::uint32_t color = isAlphaFirst ? pixel : pixel >> 8;
  const double alpha = alphaByte / 255.0;
  const std::uint32_t straightColor = straight((color >> 16) & 0xFF, alpha) << 16 |
                                      straight((color >> 8) & 0xFF, alpha) << 8 | straight(color & 0xFF, alpha);
  const auto straightAlpha = static_cast<std::uint32_t>(alpha * 255.0);
  return isAlphaFirst ? straightColor | straightAlpha << 24 : straightColor << 8 | straightAlpha;
}

}  // namespace

PictureLayout redrawnLayout() {
  return {.format = GL_BGRA_EXT, .isLittleEndian = true, .isAlphaFirst = true, .isPremultiplied = true};
}

std::optional<PictureLayout> directLayoutOf(const Image& image) {
  if (image.bytesPerRow() != image.width() * 4 || image.bitsPerPixel() != 32 || image.bitsPerComponent() != 8) {
    return std::nullopt;
  }
  if ((image.bitmapInfo() & kBitmapFloatComponents) != 0) return std::nullopt;

  PictureLayout layout = {
      .format = GL_BGRA_EXT, .isLittleEndian = true, .isAlphaFirst = false, .isPremultiplied = false};
  const std::uint32_t byteOrder = image.bitmapInfo() & kBitmapByteOrderMask;
  const auto alpha = static_cast<AlphaInfo>(image.bitmapInfo() & kBitmapAlphaInfoMask);
  if (byteOrder == kBitmapByteOrder32Little) {
    // Premultiplied data counts as straight here, so that it is uploaded as it is.
    const bool isUsable =
        alpha == AlphaInfo::premultipliedFirst || alpha == AlphaInfo::first || alpha == AlphaInfo::noneSkipFirst;
    if (!isUsable) return std::nullopt;
  } else if (byteOrder == kBitmapByteOrderDefault || byteOrder == kBitmapByteOrder32Big) {
    const bool isUsable =
        alpha == AlphaInfo::premultipliedLast || alpha == AlphaInfo::last || alpha == AlphaInfo::noneSkipLast;
    if (!isUsable) return std::nullopt;
    layout.isLittleEndian = false;
    layout.format = GL_RGBA;
    layout.isPremultiplied = alpha == AlphaInfo::premultipliedLast;
  }
  return layout;
}

void removePremultiplication(std::span<std::uint8_t> pixels, const PictureLayout& layout) {
  for (std::size_t offset = 0; offset + 4 <= pixels.size(); offset += 4) {
    std::uint32_t word = 0;
    std::memcpy(&word, pixels.data() + offset, sizeof word);
    word = swappedToHost(straightPixel(swappedToHost(word, layout.isLittleEndian), layout.isAlphaFirst),
                         layout.isLittleEndian);
    std::memcpy(pixels.data() + offset, &word, sizeof word);
  }
}

}  // namespace tavrel
