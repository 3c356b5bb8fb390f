#pragma once

extern "C" {
#include <libavutil/intreadwrite.h>
#include <libavutil/macros.h>
}

#include <cstdint>
#include <span>
#include <vector>

namespace tavrel {

/// The boxes that QuickTime and MP4 files are made of: ISO/IEC 14496-12. Those of more than 4 GB are not among them.
inline constexpr std::size_t kBoxHeaderSize = 8;

/// Calls `visit` with the type and the content of each.
template <typename Visit>
void forEachBox(std::span<const std::uint8_t> boxes, const Visit& visit) {
  while (boxes.size() >= kBoxHeaderSize) {
    const std::size_t size = AV_RB32(boxes.data());
    if (size < kBoxHeaderSize || size > boxes.size()) return;
    visit(AV_RB32(boxes.data() + 4), boxes.subspan(kBoxHeaderSize, size - kBoxHeaderSize));
    boxes = boxes.subspan(size);
  }
}

/// A `moov` box whose tracks, in order, begin to play at `starts`, each in its own timescale, and not at 0. It must be
/// that of a movie of fragments and have no edit lists yet.
std::vector<std::uint8_t> withEditLists(std::span<const std::uint8_t> moov, std::span<const std::int64_t> starts);

}  // namespace tavrel
