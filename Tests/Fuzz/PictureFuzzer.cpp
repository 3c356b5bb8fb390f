#include <cstddef>
#include <cstdint>

#include "Platform/Imaging/Image.h"
#include "Platform/Imaging/ImageSource.h"

namespace {

/// Larger pictures only cost time.
constexpr std::size_t kMostPixels = std::size_t{1} << 18;

}  // namespace

/// PNG and JPEG, EXIF included: what is decoded is as large as announced, and can be turned upright.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const auto source = tavrel::ImageSource::create(tavrel::Data(bytes, bytes + size));
  if (!source) return 0;
  const tavrel::ImageProperties properties = (*source)->properties(0);
  if (properties.width * properties.height > kMostPixels) return 0;
  const auto image = (*source)->imageAtIndex(0);
  if (!image) return 0;
  if ((*image)->width() != properties.width || (*image)->height() != properties.height) __builtin_trap();
  const auto upright = tavrel::normalizedImage(*image);
  if (upright->width() * upright->height() != properties.width * properties.height) __builtin_trap();
  return 0;
}
