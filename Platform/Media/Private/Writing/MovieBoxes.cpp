#include "Platform/Media/Private/Writing/MovieBoxes.h"

#include <algorithm>
#include <array>

namespace tavrel {
namespace {

using Bytes = std::vector<std::uint8_t>;

void appendBox(Bytes& bytes, std::uint32_t type, std::span<const std::uint8_t> content) {
  std::array<std::uint8_t, kBoxHeaderSize> header;
  AV_WB32(header.data(), static_cast<std::uint32_t>(kBoxHeaderSize + content.size()));
  AV_WB32(header.data() + 4, type);
  bytes.insert(bytes.end(), header.begin(), header.end());
  bytes.insert(bytes.end(), content.begin(), content.end());
}

/// One edit from `start` on, of a length that the fragments tell.
Bytes editList(std::int64_t start) {
  std::array<std::uint8_t, 28> content{};
  content[0] = 1;  // numbers of 64 bits
  AV_WB32(content.data() + 4, 1);
  AV_WB64(content.data() + 16, start);
  AV_WB16(content.data() + 24, 1);  // the speed
  Bytes list, box;
  appendBox(list, MKBETAG('e', 'l', 's', 't'), content);
  appendBox(box, MKBETAG('e', 'd', 't', 's'), list);
  return box;
}

}  // namespace

std::vector<std::uint8_t> withEditLists(std::span<const std::uint8_t> moov, std::span<const std::int64_t> starts) {
  Bytes boxes;
  std::size_t track = 0;
  forEachBox(moov.subspan(kBoxHeaderSize), [&](std::uint32_t type, std::span<const std::uint8_t> content) {
    if (type != MKBETAG('t', 'r', 'a', 'k')) return appendBox(boxes, type, content);
    const std::int64_t start = track < starts.size() ? starts[track] : 0;
    ++track;
    Bytes parts;
    forEachBox(content, [&](std::uint32_t part, std::span<const std::uint8_t> inside) {
      appendBox(parts, part, inside);
      if (part != MKBETAG('t', 'k', 'h', 'd') || start == 0) return;
      const Bytes list = editList(start);
      parts.insert(parts.end(), list.begin(), list.end());
    });
    appendBox(boxes, type, parts);
  });
  Bytes result;
  appendBox(result, MKBETAG('m', 'o', 'o', 'v'), boxes);
  return result;
}

}  // namespace tavrel
