#include <cstdint>
#include <cstring>

#include "TavrelBase/Log/Private/AppendUtf8.h"

namespace tavrel {
namespace {

/// How many of the first bytes are ASCII, looked at eight at a time.
std::size_t asciiLength(std::string_view bytes) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080;
  std::size_t length = 0;
  for (std::uint64_t word = 0; length + sizeof word <= bytes.size(); length += sizeof word) {
    std::memcpy(&word, bytes.data() + length, sizeof word);
    if (word & kHighBits) break;
  }
  while (length < bytes.size() && static_cast<unsigned char>(bytes[length]) < 0x80) ++length;
  return length;
}

/// Length of the well-formed character at the start (Unicode, table 3-7); 0 when there is none.
std::size_t characterLength(std::string_view bytes) {
  const auto at = [&](std::size_t i) { return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U; };
  const auto continues = [&](std::size_t i) { return (at(i) & 0xC0) == 0x80; };
  const unsigned first = at(0);
  const unsigned second = at(1);
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first <= 0xDF) return continues(1) ? 2 : 0;
  if (first >= 0xE0 && first <= 0xEF) {
    const unsigned lowest = first == 0xE0 ? 0xA0 : 0x80;
    const unsigned highest = first == 0xED ? 0x9F : 0xBF;
    return second >= lowest && second <= highest && continues(2) ? 3 : 0;
  }
  if (first >= 0xF0 && first <= 0xF4) {
    const unsigned lowest = first == 0xF0 ? 0x90 : 0x80;
    const unsigned highest = first == 0xF4 ? 0x8F : 0xBF;
    return second >= lowest && second <= highest && continues(2) && continues(3) ? 4 : 0;
  }
  return 0;
}

}  // namespace

void appendUtf8(std::string& text, std::string_view bytes) {
  while (!bytes.empty()) {
    std::size_t good = asciiLength(bytes);
    while (good < bytes.size()) {
      const std::size_t length = characterLength(bytes.substr(good));
      if (length == 0) break;
      good += length;
    }
    text.append(bytes.substr(0, good));
    if (good == bytes.size()) return;
    text.append("\xEF\xBF\xBD");
    bytes.remove_prefix(good + 1);
  }
}

std::string_view utf8Of(std::string_view bytes, std::string& room) {
  if (asciiLength(bytes) == bytes.size()) return bytes;
  room.clear();
  appendUtf8(room, bytes);
  return room;
}

}  // namespace tavrel
