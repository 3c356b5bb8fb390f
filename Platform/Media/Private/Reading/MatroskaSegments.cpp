#include "Platform/Media/Private/Reading/MatroskaSegments.h"

#include <bit>
#include <fstream>
#include <optional>
#include <string_view>

namespace tavrel {
namespace {

constexpr std::uint64_t kHeader = 0x1A45DFA3;
constexpr std::uint64_t kSegment = 0x18538067;

/// A number of variable length: as many zero bits in front as bytes follow the first. The marker after them belongs to
/// an element's name, not to its size.
std::optional<std::uint64_t> number(std::istream& file, bool keepsMarker) {
  const int first = file.get();
  if (first <= 0) return std::nullopt;
  const int more = std::countl_zero(static_cast<std::uint8_t>(first));
  const auto marker = 0x80U >> static_cast<unsigned>(more);
  std::uint64_t value = static_cast<unsigned>(first) & (keepsMarker ? 0xFFU : marker - 1);
  bool isUnknown = value == marker - 1;
  for (int i = 0; i < more; ++i) {
    const int byte = file.get();
    if (byte < 0) return std::nullopt;
    isUnknown = isUnknown && byte == 0xFF;
    value = value << 8U | static_cast<unsigned>(byte);
  }
  if (isUnknown && !keepsMarker) return std::nullopt;
  return value;
}

/// Goes behind the element that begins here; false when it is another one, or ends nowhere.
bool pass(std::ifstream& file, std::uint64_t name) {
  if (number(file, true) != name) return false;
  const auto size = number(file, false);
  constexpr std::uint64_t kMost = std::uint64_t{1} << 50U;
  return size && *size < kMost && file.seekg(static_cast<std::streamoff>(*size), std::ios::cur).good();
}

}  // namespace

std::vector<std::int64_t> laterMatroskaSegments(const AVFormatContext& file) {
  constexpr std::size_t kMost = 1000;
  constexpr std::string_view kScheme = "file:";
  const std::string_view url = file.url ? file.url : "";
  if (!std::string_view(file.iformat->name).starts_with("matroska") || !url.starts_with(kScheme)) return {};
  std::ifstream bytes(std::string(url.substr(kScheme.size())), std::ios::binary);
  std::vector<std::int64_t> starts;
  while (bytes && pass(bytes, kHeader)) {
    const auto start = static_cast<std::int64_t>(bytes.tellg());
    if (starts.size() == kMost || number(bytes, true) != kSegment) break;
    starts.push_back(start);
    bytes.seekg(start);
    if (!pass(bytes, kSegment)) break;
  }
  if (!starts.empty()) starts.erase(starts.begin());
  return starts;
}

}  // namespace tavrel
