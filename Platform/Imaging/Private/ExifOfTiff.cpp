#include <algorithm>
#include <array>
#include <vector>

#include "Platform/Imaging/Private/Exif.h"
#include "Platform/Imaging/Private/TiffBlock.h"

namespace tavrel {
namespace {

/// More has no room in a JPEG.
constexpr std::size_t kMostBytes = 60000;
constexpr std::size_t kDeepest = 3;

/// Entries of a file's first directory that speak of the picture, not of how it is stored.
constexpr std::array<std::uint16_t, 15> kOfPicture = {
    0x010E, 0x010F, 0x0110, 0x0112, 0x0131, 0x0132, 0x013B, 0x013C,  // description, camera … artist, host
    0x8298, 0x8769, 0x8825,                                          // copyright, EXIF, place
    0x9C9B, 0x9C9C, 0x9C9D, 0x9C9E,                                  // title, comment, author, keywords
};
constexpr std::array<std::uint16_t, 3> kDirectories = {0x8769, 0x8825, 0xA005};

template <typename List>
bool contains(const List& list, std::uint32_t tag) {
  return std::find(list.begin(), list.end(), tag) != list.end();
}

/// Copies directories of one block into another, with what their entries point to.
class Copy {
 public:
  explicit Copy(std::span<const std::uint8_t> file) : file_(file), block_(file) {}

  Data run() {
    if (block_.firstDirectory() == 0) return {};
    const std::vector<std::size_t> entries = entriesOf(block_.firstDirectory(), true);
    const bool saysSomething = std::any_of(entries.begin(), entries.end(), [&](std::size_t entry) {
      return block_.number(entry, 2) != TiffBlock::kOrientation;
    });
    if (!saysSomething) return {};
    result_.assign(file_.begin(), file_.begin() + 4);
    result_.resize(8);
    block_.set(result_, 4, 4, 8);
    add(entries, 1);
    return result_.size() <= kMostBytes ? std::move(result_) : Data{};
  }

 private:
  std::size_t sizeOf(std::size_t entry) const {
    static constexpr std::array<std::size_t, 13> kSizes = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8};
    const std::uint32_t type = block_.number(entry + 2, 2);
    return type < kSizes.size() ? kSizes[type] * block_.number(entry + 4, 4) : 0;
  }

  std::vector<std::size_t> entriesOf(std::size_t directory, bool isFirst) const {
    std::vector<std::size_t> entries;
    const std::size_t end = std::min(block_.nextDirectoryField(directory), file_.size());
    for (std::size_t entry = directory + 2; entry + TiffBlock::kEntrySize <= end; entry += TiffBlock::kEntrySize) {
      const std::size_t size = sizeOf(entry);
      const std::size_t place = block_.number(entry + 8, 4);
      const bool isThere = size <= 4 || (size <= kMostBytes && place <= file_.size() && size <= file_.size() - place);
      if (isThere && size > 0 && (!isFirst || contains(kOfPicture, block_.number(entry, 2)))) entries.push_back(entry);
    }
    return entries;
  }

  void add(const std::vector<std::size_t>& entries, std::size_t depth) {
    const std::size_t begin = result_.size();
    result_.resize(begin + 2 + entries.size() * TiffBlock::kEntrySize + 4);
    block_.set(result_, begin, 2, static_cast<std::uint32_t>(entries.size()));
    for (std::size_t i = 0; i < entries.size() && result_.size() <= kMostBytes; ++i) {
      const std::size_t from = entries[i];
      const std::size_t to = begin + 2 + i * TiffBlock::kEntrySize;
      const std::size_t size = sizeOf(from);
      const std::size_t place = block_.number(from + 8, 4);
      std::copy_n(file_.begin() + static_cast<std::ptrdiff_t>(from), TiffBlock::kEntrySize,
                  result_.begin() + static_cast<std::ptrdiff_t>(to));
      const bool isDirectory = contains(kDirectories, block_.number(from, 2));
      if (size <= 4 && !isDirectory) continue;
      result_.resize(result_.size() + result_.size() % 2);
      block_.set(result_, to + 8, 4, static_cast<std::uint32_t>(result_.size()));
      if (!isDirectory) {
        result_.insert(result_.end(), file_.begin() + static_cast<std::ptrdiff_t>(place),
                       file_.begin() + static_cast<std::ptrdiff_t>(place + size));
      } else {
        add(depth < kDeepest ? entriesOf(place, false) : std::vector<std::size_t>{}, depth + 1);
      }
    }
  }

  const std::span<const std::uint8_t> file_;
  const TiffBlock block_;
  Data result_;
};

}  // namespace

Data exifBlockOfTiff(std::span<const std::uint8_t> file) { return Copy(file).run(); }

}  // namespace tavrel
