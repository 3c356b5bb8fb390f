#include <cstddef>
#include <cstdint>

#include "Platform/Imaging/ImageSource.h"

namespace {

/// Larger animations only cost time: their frames go the same ways.
constexpr std::size_t kMostPixels = std::size_t{1} << 21;

void decode(tavrel::ImageSource& source, std::size_t index) {
  const auto image = source.imageAtIndex(index);
  if (image && (*image)->dataProvider()->bytes().size() != (*image)->width() * (*image)->height() * 4) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  // Random changes of the signature would lead away from the format.
  tavrel::Data file = {'G', 'I', 'F', '8', '9', 'a'};
  file.insert(file.end(), bytes, bytes + size);
  const auto source = tavrel::ImageSource::create(std::move(file));
  if (!source) return 0;
  const std::size_t count = (*source)->count();
  const tavrel::ImageProperties properties = (*source)->properties(0);
  if (properties.width * properties.height * count > kMostPixels) return 0;
  for (std::size_t i = 0; i < count; ++i) decode(**source, i);
  for (std::size_t i = count; i-- > 0;) decode(**source, i);  // backwards: composed from the start again
  decode(**source, count);
  return 0;
}
