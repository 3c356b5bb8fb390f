#include "Platform/Media/Private/ColorVolume.h"

#include <fmt/format.h>

#include <array>
#include <cstdio>
#include <utility>

#include "Platform/Graphics/PixelBufferAttachments.h"

extern "C" {
#include <libavutil/mastering_display_metadata.h>
}

namespace tavrel {
namespace {

constexpr int kChromaticityUnits = 50000;
constexpr int kLuminanceUnits = 10000;
// FFmpeg's order is red, green, blue.
constexpr std::array kGreenBlueRed = {1, 2, 0};

std::string textOf(const AVMasteringDisplayMetadata* display) {
  if (!display || !display->has_primaries || !display->has_luminance) return "";
  const auto units = [](AVRational number, int scale) { return av_rescale(number.num, scale, number.den); };
  std::string text;
  const auto add = [&](const char* name, const AVRational(&place)[2]) {
    text += fmt::format("{}({},{})", name, units(place[0], kChromaticityUnits), units(place[1], kChromaticityUnits));
  };
  add("G", display->display_primaries[1]);
  add("B", display->display_primaries[2]);
  add("R", display->display_primaries[0]);
  add("WP", display->white_point);
  return text + fmt::format("L({},{})", units(display->max_luminance, kLuminanceUnits),
                            units(display->min_luminance, kLuminanceUnits));
}

std::string textOf(const AVContentLightMetadata* light) {
  return light && light->MaxCLL > 0 ? fmt::format("{},{}", light->MaxCLL, light->MaxFALL) : "";
}

template <typename Metadata>
const Metadata* metadataIn(const void* bytes) {
  return static_cast<const Metadata*>(bytes);
}

template <typename Metadata>
void add(AVStream& stream, AVPacketSideDataType type, Metadata* metadata, std::size_t size) {
  auto* const bytes = static_cast<std::uint8_t*>(static_cast<void*>(metadata));
  if (bytes && av_stream_add_side_data(&stream, type, bytes, size) < 0) av_free(bytes);
}

}  // namespace

ColorVolume ColorVolume::of(const PixelBufferSnapshot& picture) {
  return {picture.attachment(kPixelBufferMasteringDisplayColorVolumeKey).value_or(""),
          picture.attachment(kPixelBufferContentLightLevelKey).value_or("")};
}

ColorVolume ColorVolume::of(const AVFrame& picture) {
  const auto data = [&](AVFrameSideDataType type) {
    const AVFrameSideData* const found = av_frame_get_side_data(&picture, type);
    return found ? found->data : nullptr;
  };
  return {textOf(metadataIn<AVMasteringDisplayMetadata>(data(AV_FRAME_DATA_MASTERING_DISPLAY_METADATA))),
          textOf(metadataIn<AVContentLightMetadata>(data(AV_FRAME_DATA_CONTENT_LIGHT_LEVEL)))};
}

ColorVolume ColorVolume::of(const AVStream& stream) {
  const auto data = [&](AVPacketSideDataType type) { return av_stream_get_side_data(&stream, type, nullptr); };
  return {textOf(metadataIn<AVMasteringDisplayMetadata>(data(AV_PKT_DATA_MASTERING_DISPLAY_METADATA))),
          textOf(metadataIn<AVContentLightMetadata>(data(AV_PKT_DATA_CONTENT_LIGHT_LEVEL)))};
}

void ColorVolume::addTo(AVStream& stream) const {
  std::array<int, 10> n{};
  const bool isDisplay = std::sscanf(masteringDisplay.c_str(), "G(%d,%d)B(%d,%d)R(%d,%d)WP(%d,%d)L(%d,%d)", &n[0],
                                     &n[1], &n[2], &n[3], &n[4], &n[5], &n[6], &n[7], &n[8], &n[9]) == 10;
  if (AVMasteringDisplayMetadata* const display = isDisplay ? av_mastering_display_metadata_alloc() : nullptr) {
    for (std::size_t color = 0; color < 3; ++color) {
      for (std::size_t axis = 0; axis < 2; ++axis) {
        display->display_primaries[kGreenBlueRed[color]][axis] = {n[color * 2 + axis], kChromaticityUnits};
      }
    }
    display->white_point[0] = {n[6], kChromaticityUnits};
    display->white_point[1] = {n[7], kChromaticityUnits};
    display->max_luminance = {n[8], kLuminanceUnits};
    display->min_luminance = {n[9], kLuminanceUnits};
    display->has_primaries = display->has_luminance = 1;
    add(stream, AV_PKT_DATA_MASTERING_DISPLAY_METADATA, display, sizeof *display);
  }
  unsigned brightest = 0;
  unsigned mean = 0;
  if (std::sscanf(contentLight.c_str(), "%u,%u", &brightest, &mean) != 2) return;
  std::size_t size = 0;
  AVContentLightMetadata* const light = av_content_light_metadata_alloc(&size);
  if (!light) return;
  light->MaxCLL = brightest;
  light->MaxFALL = mean;
  add(stream, AV_PKT_DATA_CONTENT_LIGHT_LEVEL, light, size);
}

}  // namespace tavrel
