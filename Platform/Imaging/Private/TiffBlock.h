#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "Platform/Foundation/Data.h"

namespace tavrel {

/// The numbers of a TIFF block; 0 beyond its end.
class TiffBlock {
 public:
  enum Tag : std::uint16_t {
    kOrientation = 0x0112,
    kThumbnail = 0x0201,
    kThumbnailLength = 0x0202,
    kExifDirectory = 0x8769,
    kColorSpace = 0xA001,
    kWidth = 0xA002,
    kHeight = 0xA003,
  };
  static constexpr std::size_t kEntrySize = 12;

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
  enum Type : std::uint16_t { kShort = 3, kLong = 4 };

  std::uint8_t at(std::size_t offset) const { return offset < bytes_.size() ? bytes_[offset] : 0; }

  std::span<const std::uint8_t> bytes_;
  const bool isBigEndian_;
};

}  // namespace tavrel
