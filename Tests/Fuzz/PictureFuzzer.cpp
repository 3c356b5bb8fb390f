#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "Platform/Imaging/Image.h"
#include "Platform/Imaging/ImageSource.h"

namespace {

/// Larger pictures only cost time.
constexpr std::size_t kMostPixels = std::size_t{1} << 18;

/// Further ones go the same ways.
constexpr std::size_t kMostFrames = 8;

}  // namespace

/// Pictures of all kinds, EXIF included, and animations of all but GIF, in any order: what is decoded is as large as
/// announced, and can be turned upright.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const auto source = tavrel::ImageSource::create(tavrel::Data(bytes, bytes + size));
  if (!source) return 0;
  const tavrel::ImageProperties properties = (*source)->properties(0);
  if (properties.width * properties.height > kMostPixels) return 0;
  const std::size_t count = std::min((*source)->count(), kMostFrames);
  for (std::size_t i = 0; i < 2 * count; ++i) {
    const auto image = (*source)->imageAtIndex(i < count ? i : 2 * count - 1 - i);
    if (!image) continue;
    if ((*image)->width() != properties.width || (*image)->height() != properties.height) __builtin_trap();
    const auto upright = tavrel::normalizedImage(*image);
    if (upright->width() * upright->height() != properties.width * properties.height) __builtin_trap();
  }
  while ((*source)->prepareJumps()) continue;
  return 0;
}
