#include "Platform/Imaging/Private/JpegSegments.h"

#include <algorithm>
#include <map>
#include <string_view>

namespace tavrel {
namespace {

using Bytes = std::span<const std::uint8_t>;
using namespace std::string_view_literals;

constexpr std::string_view kExif = "Exif\0\0"sv;
constexpr std::string_view kXmp = "http://ns.adobe.com/xap/1.0/\0"sv;
constexpr std::string_view kProfile = "ICC_PROFILE\0"sv;
constexpr std::size_t kLargestSegment = 65533;

enum Marker : std::uint8_t { kStartOfScan = 0xDA, kApplication0 = 0xE0, kApplication1 = 0xE1, kApplication2 = 0xE2 };

bool beginsWith(Bytes bytes, std::string_view beginning) {
  return bytes.size() >= beginning.size() &&
         std::equal(beginning.begin(), beginning.end(), bytes.begin(),
                    [](char expected, std::uint8_t actual) { return static_cast<std::uint8_t>(expected) == actual; });
}

std::size_t lengthAt(Bytes bytes, std::size_t place) { return bytes[place] << 8U | bytes[place + 1]; }

void assign(Data& target, Bytes bytes) { target.assign(bytes.begin(), bytes.end()); }

void appendSegment(Data& segments, Marker marker, std::string_view beginning, Bytes bytes) {
  const std::size_t size = beginning.size() + bytes.size();
  if (size > kLargestSegment) return;
  const std::size_t length = size + 2;
  segments.insert(segments.end(),
                  {0xFF, marker, static_cast<std::uint8_t>(length >> 8), static_cast<std::uint8_t>(length)});
  segments.insert(segments.end(), beginning.begin(), beginning.end());
  segments.insert(segments.end(), bytes.begin(), bytes.end());
}

}  // namespace

ImageMetadata metadataOfJpeg(Bytes jpeg) {
  ImageMetadata metadata;
  std::map<std::uint8_t, Bytes> profileParts;
  for (std::size_t place = 2; place + 4 <= jpeg.size() && jpeg[place] == 0xFF;) {
    const std::uint8_t marker = jpeg[place + 1];
    if (marker == 0xFF) {  // a fill byte
      ++place;
      continue;
    }
    const std::size_t length = lengthAt(jpeg, place + 2);
    if (marker == kStartOfScan || length < 2 || place + 2 + length > jpeg.size()) break;
    const Bytes bytes = jpeg.subspan(place + 4, length - 2);
    if (marker == kApplication1 && metadata.exif.empty() && beginsWith(bytes, kExif)) {
      assign(metadata.exif, bytes.subspan(kExif.size()));
    } else if (marker == kApplication1 && metadata.xmp.empty() && beginsWith(bytes, kXmp)) {
      assign(metadata.xmp, bytes.subspan(kXmp.size()));
    } else if (marker == kApplication2 && beginsWith(bytes, kProfile) && bytes.size() > kProfile.size() + 2) {
      profileParts.emplace(bytes[kProfile.size()], bytes.subspan(kProfile.size() + 2));
    }
    place += 2 + length;
  }
  for (const auto& [number, part] : profileParts) {
    metadata.colorProfile.insert(metadata.colorProfile.end(), part.begin(), part.end());
  }
  return metadata;
}

void addMetadataToJpeg(Data& jpeg, const ImageMetadata& metadata) {
  Data segments;
  if (!metadata.exif.empty()) appendSegment(segments, kApplication1, kExif, metadata.exif);
  if (!metadata.xmp.empty()) appendSegment(segments, kApplication1, kXmp, metadata.xmp);
  const Bytes profile = metadata.colorProfile;
  constexpr std::size_t kLargestPart = kLargestSegment - kProfile.size() - 2;
  const std::size_t count = (profile.size() + kLargestPart - 1) / kLargestPart;
  for (std::size_t i = 0; i < count && count < 256; ++i) {
    std::string beginning(kProfile);
    beginning += static_cast<char>(i + 1);
    beginning += static_cast<char>(count);
    const std::size_t begin = i * kLargestPart;
    appendSegment(segments, kApplication2, beginning,
                  profile.subspan(begin, std::min(kLargestPart, profile.size() - begin)));
  }
  std::size_t place = 2;
  if (jpeg.size() > 6 && jpeg[2] == 0xFF && jpeg[3] == kApplication0) place = 4 + lengthAt(jpeg, 4);
  jpeg.insert(jpeg.begin() + static_cast<std::ptrdiff_t>(place), segments.begin(), segments.end());
}

}  // namespace tavrel
