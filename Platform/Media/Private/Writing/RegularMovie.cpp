#include "Platform/Media/Private/Writing/RegularMovie.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace tavrel {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::int64_t kHeaderSize = 8;
constexpr std::int64_t kLargeHeaderSize = 16;
constexpr std::int64_t kMostRoom = std::int64_t{1} << 30;

void appendNumber(Bytes& bytes, std::uint64_t number, int size) {
  for (int shift = (size - 1) * 8; shift >= 0; shift -= 8) bytes.push_back(static_cast<std::uint8_t>(number >> shift));
}

void appendHeader(Bytes& bytes, std::string_view type, std::int64_t size) {
  appendNumber(bytes, static_cast<std::uint64_t>(size), 4);
  bytes.insert(bytes.end(), type.begin(), type.end());
}

/// With a size of 64 bits.
Bytes largeHeader(std::string_view type, std::int64_t size) {
  Bytes bytes;
  appendHeader(bytes, type, 1);
  appendNumber(bytes, static_cast<std::uint64_t>(size), 8);
  return bytes;
}

}  // namespace

Expected<RegularMovie> RegularMovie::reserve(MovieFileOutput& output, std::int64_t room) {
  const auto fileType = output.boxAt(0);
  if (!fileType) return tl::unexpected(fileType.error());
  const auto start = static_cast<std::int64_t>(fileType->size());
  const auto moov = output.boxAt(start);
  if (!moov) return tl::unexpected(moov.error());
  const std::int64_t size = std::min(std::max(room, kHeaderSize) + kLargeHeaderSize, kMostRoom);
  std::int64_t unit = 256;
  while (size > 255 * unit) unit *= 256;
  const RegularMovie movie(start, unit, start + kHeaderSize + (size + unit - 1) / unit * unit);
  if (auto written = output.writeAt(movie.end_, *moov); !written) return tl::unexpected(written.error());
  Bytes header;
  appendHeader(header, "free", movie.end_ - start);
  if (auto written = output.writeAt(start, header); !written) return tl::unexpected(written.error());
  output.skipTo(movie.end_ + static_cast<std::int64_t>(moov->size()));
  return movie;
}

std::int64_t RegularMovie::tables() const { return room_ + kHeaderSize; }

Expected<std::int64_t> RegularMovie::prepareFront(MovieFileOutput& output, Bytes moov) const {
  const std::int64_t rest = end_ - kLargeHeaderSize - tables() - static_cast<std::int64_t>(moov.size());
  if (rest > 0) appendHeader(moov, "free", rest);
  if (auto written = output.writeAt(tables(), moov); !written) return tl::unexpected(written.error());
  const std::int64_t end = output.position();
  auto written = output.writeAt(end_ - kLargeHeaderSize, largeHeader("mdat", end - end_ + kLargeHeaderSize));
  if (!written) return tl::unexpected(written.error());
  return end;
}

Expected<std::int64_t> RegularMovie::prepareEnd(MovieFileOutput& output, const Bytes& moov) const {
  const std::int64_t end = output.position();
  Bytes hidden;
  appendHeader(hidden, "free", kHeaderSize + static_cast<std::int64_t>(moov.size()));
  hidden.insert(hidden.end(), moov.begin(), moov.end());
  if (auto written = output.writeAt(end, hidden); !written) return tl::unexpected(written.error());
  auto written = output.writeAt(tables(), largeHeader("mdat", end + kHeaderSize - tables()));
  if (!written) return tl::unexpected(written.error());
  return end + static_cast<std::int64_t>(hidden.size());
}

Expected<void> RegularMovie::complete(MovieFileOutput& output, const Bytes& moov) const {
  const std::int64_t rest = end_ - kLargeHeaderSize - tables() - static_cast<std::int64_t>(moov.size());
  const bool fits = rest == 0 || rest >= kHeaderSize;
  const auto end = fits ? prepareFront(output, moov) : prepareEnd(output, moov);
  if (!end) return tl::unexpected(end.error());
  if (auto synced = output.sync(); !synced) return synced;
  // Of the size's four bytes, highest first, the one that counts in units.
  const std::int64_t place = unit_ == 256 ? 2 : unit_ == 65536 ? 1 : 0;
  constexpr std::array<std::uint8_t, 1> kNothing{};
  if (auto shown = output.writeAt(room_ + place, kNothing); !shown) return shown;
  output.completeAt(*end);
  return output.sync();
}

}  // namespace tavrel
