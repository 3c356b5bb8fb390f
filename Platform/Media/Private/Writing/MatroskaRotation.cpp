#include "Platform/Media/Private/Writing/MatroskaRotation.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

extern "C" {
#include <libavutil/crc.h>
#include <libavutil/intreadwrite.h>
#include <libavutil/mem.h>
#include <libavutil/spherical.h>
}

namespace tavrel {
namespace {

using Bytes = std::span<std::uint8_t>;

constexpr std::uint64_t kSegment = 0x18538067;
constexpr std::uint64_t kTracks = 0x1654AE6B;
constexpr std::uint64_t kTrack = 0xAE;
constexpr std::uint64_t kVideo = 0xE0;
constexpr std::uint64_t kProjection = 0x7670;
constexpr std::uint64_t kProjectionType = 0x7671;
constexpr std::uint64_t kChecksum = 0xBF;

/// A number whose leading zeros tell its length, taken from the front of `bytes`; an element's ID keeps its marker.
std::optional<std::uint64_t> takeNumber(Bytes& bytes, bool keepsMarker) {
  const auto length = bytes.empty() ? 9U : static_cast<unsigned>(std::countl_zero(bytes[0])) + 1;
  if (length > 8 || length > bytes.size()) return std::nullopt;
  std::uint64_t number = keepsMarker ? bytes[0] : bytes[0] & (0xFFU >> length);
  for (unsigned i = 1; i < length; ++i) number = number << 8 | bytes[i];
  bytes = bytes.subspan(length);
  return number;
}

/// Calls `visit` with the ID and the content of each element; the last may be cut off or of unknown size.
template <typename Visit>
void forEachElement(Bytes elements, const Visit& visit) {
  while (!elements.empty()) {
    const auto id = takeNumber(elements, true);
    const auto size = id ? takeNumber(elements, false) : std::nullopt;
    if (!size) return;
    const Bytes content = elements.first(std::min<std::size_t>(*size, elements.size()));
    elements = elements.subspan(content.size());
    visit(*id, content);
  }
}

/// Calls `visit` with the content of each element on this way down.
template <typename Visit>
void forEachAt(Bytes elements, std::span<const std::uint64_t> way, const Visit& visit) {
  forEachElement(elements, [&](std::uint64_t id, Bytes content) {
    if (id != way.front()) return;
    if (way.size() == 1) return visit(content);
    forEachAt(content, way.subspan(1), visit);
  });
}

}  // namespace

std::optional<double> matroskaRoll(const AffineTransform& transform) {
  constexpr double kTolerance = 1e-6;
  const bool onlyTurns = std::abs(transform.a - transform.d) < kTolerance &&
                         std::abs(transform.b + transform.c) < kTolerance &&
                         std::abs(std::hypot(transform.a, transform.b) - 1) < kTolerance;
  const double degrees = std::atan2(-transform.b, transform.a) * 180 / std::numbers::pi;
  if (!onlyTurns || std::abs(degrees) < kTolerance) return std::nullopt;
  return degrees;
}

void addMatroskaRoll(AVStream& stream, double degrees) {
  std::size_t size = 0;
  AVSphericalMapping* const mapping = av_spherical_alloc(&size);
  if (!mapping) return;
  mapping->projection = AV_SPHERICAL_EQUIRECTANGULAR;
  mapping->roll = static_cast<std::int32_t>(std::lround(degrees * 65536));
  auto* const bytes = static_cast<std::uint8_t*>(static_cast<void*>(mapping));
  if (av_stream_add_side_data(&stream, AV_PKT_DATA_SPHERICAL, bytes, size) < 0) av_free(mapping);
}

bool flattenMatroskaTracks(Bytes head) {
  bool hasTracks = false;
  constexpr std::uint64_t kWayToTracks[] = {kSegment, kTracks};
  constexpr std::uint64_t kWayToTypes[] = {kTrack, kVideo, kProjection, kProjectionType};
  forEachAt(head, kWayToTracks, [&](Bytes tracks) {
    hasTracks = true;
    forEachAt(tracks, kWayToTypes, [](Bytes type) { std::fill(type.begin(), type.end(), std::uint8_t{0}); });
    Bytes rest = tracks;
    constexpr std::size_t kChecksumSize = 4;
    const bool isChecked = takeNumber(rest, true) == kChecksum && takeNumber(rest, false) == kChecksumSize;
    if (!isChecked || rest.size() < kChecksumSize) return;
    const Bytes checked = rest.subspan(kChecksumSize);
    const std::uint32_t sum = av_crc(av_crc_get_table(AV_CRC_32_IEEE_LE), ~0U, checked.data(), checked.size());
    AV_WL32(rest.data(), ~sum);
  });
  return hasTracks;
}

}  // namespace tavrel
