#include "Platform/Imaging/Private/Exif.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

namespace tavrel {
namespace {

enum Tag : std::uint16_t {
  kOrientation = 0x0112,
  kThumbnail = 0x0201,
  kThumbnailLength = 0x0202,
  kExifDirectory = 0x8769,
  kColorSpace = 0xA001,
  kWidth = 0xA002,
  kHeight = 0xA003,
};
enum Type : std::uint16_t { kShort = 3, kLong = 4 };

constexpr std::size_t kEntrySize = 12;

/// The numbers of a TIFF block; 0 beyond its end.
class TiffBlock {
 public:
  explicit TiffBlock(std::span<const std::uint8_t> bytes) : bytes_(bytes), isBigEndian_(at(0) == 'M') {
    const bool isKnown = (at(0) == 'I' || at(0) == 'M') && at(1) == at(0) && number(2, 2) == 42;
    if (!isKnown) bytes_ = {};
  }

  std::uint32_t number(std::size_t offset, std::size_t size) const {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < size; ++i) value = value << 8 | at(offset + (isBigEndian_ ? i : size - 1 - i));
    return value;
  }
  std::size_t firstDirectory() const { return number(4, 4); }
  std::size_t nextDirectoryField(std::size_t directory) const {
    return directory + 2 + number(directory, 2) * kEntrySize;
  }
  /// Where the directory's entry of this tag begins.
  std::optional<std::size_t> entry(std::size_t directory, Tag tag) const {
    const std::size_t end = std::min(nextDirectoryField(directory), bytes_.size());
    if (directory == 0) return std::nullopt;
    for (std::size_t place = directory + 2; place + kEntrySize <= end; place += kEntrySize) {
      if (number(place, 2) == tag) return place;
    }
    return std::nullopt;
  }
  /// A single number in an entry.
  std::optional<std::uint32_t> value(std::size_t directory, Tag tag) const {
    const auto place = entry(directory, tag);
    if (!place || number(*place + 4, 4) != 1) return std::nullopt;
    const std::uint32_t type = number(*place + 2, 2);
    if (type != kShort && type != kLong) return std::nullopt;
    return number(*place + 8, type == kShort ? 2 : 4);
  }

  void set(Data& bytes, std::size_t offset, std::size_t size, std::uint32_t value) const {
    for (std::size_t i = 0; i < size; ++i) {
      const std::size_t place = offset + (isBigEndian_ ? size - 1 - i : i);
      if (place < bytes.size()) bytes[place] = static_cast<std::uint8_t>(value >> (8 * i));
    }
  }
  void setValue(Data& bytes, std::size_t directory, Tag tag, std::size_t value) const {
    if (!this->value(directory, tag)) return;
    const std::size_t place = *entry(directory, tag);
    const std::size_t size = number(place + 2, 2) == kShort ? 2 : 4;
    set(bytes, place + 8, size, static_cast<std::uint32_t>(value));
  }

 private:
  std::uint8_t at(std::size_t offset) const { return offset < bytes_.size() ? bytes_[offset] : 0; }

  std::span<const std::uint8_t> bytes_;
  const bool isBigEndian_;
};

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
  const std::uint32_t value = block.value(block.firstDirectory(), kOrientation).value_or(1);
  return value >= 1 && value <= 8 ? kOrientations[value - 1] : ImageOrientation::up;
}

void makeExifUpright(Data& exif, std::size_t width, std::size_t height, bool isSRGB) {
  const TiffBlock block(exif);
  const std::size_t first = block.firstDirectory();
  if (first == 0) return;
  block.setValue(exif, first, kOrientation, 1);
  const std::size_t details = block.value(first, kExifDirectory).value_or(0);
  block.setValue(exif, details, kWidth, width);
  block.setValue(exif, details, kHeight, height);
  constexpr std::uint32_t kIsSRGB = 1, kIsOther = 0xFFFF;
  block.setValue(exif, details, kColorSpace, isSRGB ? kIsSRGB : kIsOther);

  const std::size_t second = block.number(block.nextDirectoryField(first), 4);
  if (second == 0) return;
  const std::size_t begin = std::min<std::size_t>(block.value(second, kThumbnail).value_or(0), exif.size());
  const std::size_t size = block.value(second, kThumbnailLength).value_or(0);
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
