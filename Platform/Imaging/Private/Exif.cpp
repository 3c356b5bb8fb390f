#include "Platform/Imaging/Private/Exif.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "Platform/Imaging/Private/TiffBlock.h"

namespace tavrel {
namespace {

/// Where the stored first row and column are seen, for 1 to 8.
constexpr ImageOrientation kOrientations[] = {
    ImageOrientation::up,
    ImageOrientation::upMirrored,
    ImageOrientation::down,
    ImageOrientation::downMirrored,
    ImageOrientation::leftMirrored,
    ImageOrientation::right,
    ImageOrientation::rightMirrored,
    ImageOrientation::left,
};

}  // namespace

Data exifBlockOf(std::span<const std::uint8_t> stored) {
  constexpr std::array<std::uint8_t, 6> kHeader = {'E', 'x', 'i', 'f', 0, 0};
  const bool hasHeader = stored.size() >= kHeader.size() && std::equal(kHeader.begin(), kHeader.end(), stored.begin());
  if (hasHeader) stored = stored.subspan(kHeader.size());
  return {stored.begin(), stored.end()};
}

ImageOrientation orientationOfExif(std::span<const std::uint8_t> exif) {
  const TiffBlock block(exif);
  return orientationOfNumber(block.value(block.firstDirectory(), TiffBlock::kOrientation).value_or(1));
}

ImageOrientation orientationOfNumber(std::uint32_t number) {
  return number >= 1 && number <= 8 ? kOrientations[number - 1] : ImageOrientation::up;
}

void makeExifUpright(Data& exif, std::size_t width, std::size_t height, bool isSRGB) {
  const TiffBlock block(exif);
  const std::size_t first = block.firstDirectory();
  if (first == 0) return;
  block.setValue(exif, first, TiffBlock::kOrientation, 1);
  const std::size_t details = block.value(first, TiffBlock::kExifDirectory).value_or(0);
  block.setValue(exif, details, TiffBlock::kWidth, width);
  block.setValue(exif, details, TiffBlock::kHeight, height);
  constexpr std::uint32_t kIsSRGB = 1, kIsOther = 0xFFFF;
  block.setValue(exif, details, TiffBlock::kColorSpace, isSRGB ? kIsSRGB : kIsOther);

  const std::size_t second = block.number(block.nextDirectoryField(first), 4);
  if (second == 0) return;
  const std::size_t begin = std::min<std::size_t>(block.value(second, TiffBlock::kThumbnail).value_or(0), exif.size());
  const std::size_t size = block.value(second, TiffBlock::kThumbnailLength).value_or(0);
  block.set(exif, block.nextDirectoryField(first), 4, 0);
  if (begin > 0) std::fill_n(exif.begin() + static_cast<std::ptrdiff_t>(begin), std::min(size, exif.size() - begin), 0);
  // Mostly it stands at the end.
  if (begin > 0 && begin + size == exif.size()) exif.resize(begin);
}

void makeXmpUpright(Data& xmp) {
  const std::string_view text(reinterpret_cast<const char*>(xmp.data()), xmp.size());
  constexpr std::string_view kName = "tiff:Orientation";
  for (std::size_t place = text.find(kName); place != std::string_view::npos; place = text.find(kName, place + 1)) {
    const std::size_t value = text.find_first_not_of("=\"'> \t\r\n", place + kName.size());
    if (value < text.size() && text[value] >= '1' && text[value] <= '8') xmp[value] = '1';
  }
}

}  // namespace tavrel
