#include <spa/buffer/type-info.h>
#include <spa/debug/types.h>
#include <spa/param/audio/format-utils.h>
#include <spa/param/type-info.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/iter.h>
#include <spa/pod/parser.h>

#include <algorithm>
#include <cstdlib>

#include "Platform/Capture/PipeWire/Private/PipeWireFormats.h"
#include "Platform/Capture/Private/CameraModes.h"
#include "Platform/Capture/Private/CaptureTimes.h"
#include "Platform/Capture/Private/FrameRates.h"

namespace tavrel {
namespace {

struct KnownFormat {
  spa_video_format format;
  FrameLayout layout;
  spa_media_subtype subtype = SPA_MEDIA_SUBTYPE_raw;
};

/// Cheapest first; without colour only where there is nothing else.
constexpr KnownFormat kKnownFormats[] = {
    {SPA_VIDEO_FORMAT_BGRA, FrameLayout::bgra},
    {SPA_VIDEO_FORMAT_BGRx, FrameLayout::bgra},
    {SPA_VIDEO_FORMAT_RGBA, FrameLayout::rgba},
    {SPA_VIDEO_FORMAT_RGBx, FrameLayout::rgba},
    {SPA_VIDEO_FORMAT_NV12, FrameLayout::nv12},
    {SPA_VIDEO_FORMAT_NV21, FrameLayout::nv21},
    {SPA_VIDEO_FORMAT_I420, FrameLayout::i420},
    {SPA_VIDEO_FORMAT_YV12, FrameLayout::yv12},
    {SPA_VIDEO_FORMAT_YUY2, FrameLayout::yuyv},
    {SPA_VIDEO_FORMAT_UYVY, FrameLayout::uyvy},
    {SPA_VIDEO_FORMAT_YVYU, FrameLayout::yvyu},
    {SPA_VIDEO_FORMAT_NV16, FrameLayout::nv16},
    {SPA_VIDEO_FORMAT_BGR, FrameLayout::bgr24},
    {SPA_VIDEO_FORMAT_RGB, FrameLayout::rgb24},
    {SPA_VIDEO_FORMAT_P010_10LE, FrameLayout::p010},
    {SPA_VIDEO_FORMAT_ENCODED, FrameLayout::mjpeg, SPA_MEDIA_SUBTYPE_mjpg},
    {SPA_VIDEO_FORMAT_ENCODED, FrameLayout::h264, SPA_MEDIA_SUBTYPE_h264},
    {SPA_VIDEO_FORMAT_GRAY8, FrameLayout::gray8},
};

constexpr std::uint32_t kMostValues = 256;
constexpr std::int64_t kLinear = 0;  // DRM_FORMAT_MOD_LINEAR

const KnownFormat* knownFormat(std::uint32_t subtype, std::uint32_t format) {
  const auto* found = std::find_if(std::begin(kKnownFormats), std::end(kKnownFormats), [&](const KnownFormat& known) {
    return known.subtype == subtype && (subtype != SPA_MEDIA_SUBTYPE_raw || known.format == format);
  });
  return found != std::end(kKnownFormats) ? found : nullptr;
}

/// The values of a property: one, the alternatives of an enumeration (without the default in front), or the ends of a
/// range.
template <typename T>
struct Values {
  std::vector<T> values;
  bool isRange = false;
};

template <typename T>
Values<T> valuesOf(const spa_pod& object, std::uint32_t key, std::uint32_t type) {
  Values<T> result;
  const spa_pod_prop* property = spa_pod_find_prop(&object, nullptr, key);
  if (!property) return result;
  std::uint32_t count = 0;
  std::uint32_t choice = 0;
  const spa_pod* first = spa_pod_get_values(&property->value, &count, &choice);
  if (!first || first->type != type || first->size < sizeof(T)) return result;
  const auto* values = static_cast<const T*>(SPA_POD_BODY_CONST(first));
  count = std::min(count, kMostValues);
  result.isRange = choice == SPA_CHOICE_Range || choice == SPA_CHOICE_Step;
  const std::uint32_t skipped = choice != SPA_CHOICE_None && count > 1 ? 1 : 0;
  const std::uint32_t end = result.isRange ? std::min(count, 3U) : count;
  result.values.assign(values + std::min(skipped, end), values + end);
  return result;
}

double rateOf(const spa_fraction& fraction) {
  return fraction.denom > 0 ? static_cast<double>(fraction.num) / fraction.denom : 0;
}

std::vector<CaptureFrameRateRange> ratesOf(const spa_pod& object) {
  const auto found = valuesOf<spa_fraction>(object, SPA_FORMAT_VIDEO_framerate, SPA_TYPE_Fraction);
  std::vector<CaptureFrameRateRange> rates;
  if (found.isRange && found.values.size() == 2) {
    const double slowest = std::max(1.0, rateOf(found.values[0]));
    rates.push_back({slowest, std::max(slowest, std::min(240.0, rateOf(found.values[1])))});
  } else {
    for (const spa_fraction& fraction : found.values) {
      if (const double rate = rateOf(fraction); rate > 0) rates.push_back({rate, rate});
    }
  }
  // A node that does not say, or says 0, has a rate of its own.
  if (rates.empty()) rates.push_back({30, 30});
  return rates;
}

std::vector<CaptureVideoDimensions> sizesOf(const spa_pod& object) {
  const auto found = valuesOf<spa_rectangle>(object, SPA_FORMAT_VIDEO_size, SPA_TYPE_Rectangle);
  std::vector<CaptureVideoDimensions> sizes;
  if (found.isRange && found.values.size() == 2) {
    const spa_rectangle least = found.values[0];
    const spa_rectangle most = found.values[1];
    for (const CaptureVideoDimensions usual : kUsualSizes) {
      const bool fits =
          std::cmp_greater_equal(usual.width, least.width) && std::cmp_less_equal(usual.width, most.width) &&
          std::cmp_greater_equal(usual.height, least.height) && std::cmp_less_equal(usual.height, most.height);
      if (fits) sizes.push_back(usual);
    }
    return sizes;
  }
  for (const spa_rectangle& size : found.values) {
    if (size.width > 0 && size.height > 0 && size.width < 32768 && size.height < 32768) {
      sizes.push_back({static_cast<int>(size.width), static_cast<int>(size.height)});
    }
  }
  return sizes;
}

spa_fraction fractionOf(double rate) {
  const MediaTime duration = frameDurationOf(rate);
  return {static_cast<std::uint32_t>(duration.timescale), static_cast<std::uint32_t>(duration.value)};
}

/// Whether the parameter is about memory of a device, and if so, whether the CPU can read it, too.
bool hasModifier(const spa_pod& object) { return spa_pod_find_prop(&object, nullptr, SPA_FORMAT_VIDEO_modifier); }

bool isReadable(const spa_pod& object) {
  const auto offered = valuesOf<std::int64_t>(object, SPA_FORMAT_VIDEO_modifier, SPA_TYPE_Long).values;
  return !hasModifier(object) || std::ranges::count(offered, kLinear) > 0;
}

FrameMatrix matrixOf(spa_video_color_matrix matrix) {
  switch (matrix) {
    case SPA_VIDEO_COLOR_MATRIX_BT709: return FrameMatrix::bt709;
    case SPA_VIDEO_COLOR_MATRIX_BT2020: return FrameMatrix::bt2020;
    default: return FrameMatrix::bt601;
  }
}

}  // namespace

std::vector<PipeWireMode> parsePipeWireModes(const spa_pod& parameter) {
  std::uint32_t mediaType = 0;
  std::uint32_t mediaSubtype = 0;
  if (spa_format_parse(&parameter, &mediaType, &mediaSubtype) < 0 || mediaType != SPA_MEDIA_TYPE_video) return {};
  std::vector<PipeWireMode> modes;
  if (!isReadable(parameter)) return {};
  const auto rates = ratesOf(parameter);
  for (const CaptureVideoDimensions size : sizesOf(parameter)) {
    if (mediaSubtype != SPA_MEDIA_SUBTYPE_raw) {
      const KnownFormat* encoded = knownFormat(mediaSubtype, SPA_VIDEO_FORMAT_ENCODED);
      if (encoded) modes.push_back({encoded->subtype, encoded->format, false, size, rates});
      continue;
    }
    for (const std::uint32_t format : valuesOf<std::uint32_t>(parameter, SPA_FORMAT_VIDEO_format, SPA_TYPE_Id).values) {
      if (const KnownFormat* known = knownFormat(mediaSubtype, format)) {
        modes.push_back({known->subtype, known->format, hasModifier(parameter), size, rates});
      }
    }
  }
  return modes;
}

std::uint32_t parsePipeWireChannels(const spa_pod& parameter) {
  std::uint32_t mediaType = 0;
  std::uint32_t mediaSubtype = 0;
  if (spa_format_parse(&parameter, &mediaType, &mediaSubtype) < 0 || mediaType != SPA_MEDIA_TYPE_audio) return 0;
  const auto channels = valuesOf<std::int32_t>(parameter, SPA_FORMAT_AUDIO_channels, SPA_TYPE_Int);
  if (channels.values.empty() || channels.values.front() < 1) return 0;
  return static_cast<std::uint32_t>(channels.values.front());
}

std::vector<const spa_pod*> buildVideoFormats(spa_pod_builder& builder, const std::vector<PipeWireMode>& modes,
                                              CaptureVideoDimensions dimensions, double rate) {
  const spa_rectangle size = {static_cast<std::uint32_t>(dimensions.width),
                              static_cast<std::uint32_t>(dimensions.height)};
  const spa_fraction wanted = fractionOf(rate);
  const auto build = [&](const PipeWireMode& mode, bool isExact) {
    // The daemon takes any of the rates in between. One that is no fraction of small numbers is met as closely.
    const auto thousandths = [&](double part) { return static_cast<std::uint32_t>(rate * part * 1000); };
    const spa_fraction slowest = isExact ? spa_fraction{thousandths(0.98), 1000} : spa_fraction{0, 1};
    const spa_fraction fastest = isExact ? spa_fraction{thousandths(1.02), 1000} : spa_fraction{1000, 1};
    spa_pod_frame frame{};
    spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype,
                        SPA_POD_Id(mode.subtype), SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&size),
                        SPA_FORMAT_VIDEO_framerate, SPA_POD_CHOICE_RANGE_Fraction(&wanted, &slowest, &fastest), 0);
    if (mode.subtype == SPA_MEDIA_SUBTYPE_raw) {
      spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_format, SPA_POD_Id(mode.format), 0);
    }
    if (mode.hasModifier) {
      spa_pod_builder_prop(&builder, SPA_FORMAT_VIDEO_modifier, SPA_POD_PROP_FLAG_MANDATORY);
      spa_pod_builder_long(&builder, kLinear);
    }
    return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
  };
  const auto has = [&](const PipeWireMode& mode) {
    return std::any_of(mode.rates.begin(), mode.rates.end(), [&](const CaptureFrameRateRange& range) {
      return range.minFrameRate <= rate * 1.02 && range.maxFrameRate >= rate * 0.98;
    });
  };
  // Those that have the rate in front.
  std::vector<const spa_pod*> parameters;
  for (const bool isExact : {true, false}) {
    for (const KnownFormat& known : kKnownFormats) {
      // The CPU reads ordinary memory faster than a device's.
      for (const bool isOfDevice : {false, true}) {
        for (const PipeWireMode& mode : modes) {
          const bool isIt = mode.subtype == known.subtype && mode.format == known.format;
          if (!isIt || mode.hasModifier != isOfDevice || mode.dimensions != dimensions || has(mode) != isExact)
            continue;
          parameters.push_back(build(mode, isExact));
        }
      }
    }
  }
  return parameters;
}

const spa_pod* buildAudioFormat(spa_pod_builder& builder, const AudioFormat& format) {
  spa_audio_info_raw info{};
  info.format = SPA_AUDIO_FORMAT_F32;
  info.rate = static_cast<std::uint32_t>(format.sampleRate);
  info.channels = format.channelCount;
  info.position[0] = format.channelCount == 1 ? SPA_AUDIO_CHANNEL_MONO : SPA_AUDIO_CHANNEL_FL;
  if (format.channelCount == 2) info.position[1] = SPA_AUDIO_CHANNEL_FR;
  return spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info);
}

std::optional<PipeWireAgreement> parseAgreedVideoFormat(const spa_pod& parameter, double& rate) {
  std::uint32_t mediaType = 0;
  std::uint32_t mediaSubtype = 0;
  if (spa_format_parse(&parameter, &mediaType, &mediaSubtype) < 0 || mediaType != SPA_MEDIA_TYPE_video) {
    return std::nullopt;
  }
  RawFrame frame;
  spa_rectangle size{};
  spa_fraction agreed{};
  if (mediaSubtype == SPA_MEDIA_SUBTYPE_mjpg) {
    spa_video_info_mjpg info{};
    if (spa_format_video_mjpg_parse(&parameter, &info) < 0) return std::nullopt;
    frame.layout = FrameLayout::mjpeg;
    size = info.size;
    agreed = info.framerate;
  } else if (mediaSubtype == SPA_MEDIA_SUBTYPE_h264) {
    spa_video_info_h264 info{};
    if (spa_format_video_h264_parse(&parameter, &info) < 0) return std::nullopt;
    frame.layout = FrameLayout::h264;
    size = info.size;
    agreed = info.framerate;
  } else {
    spa_video_info_raw info{};
    if (mediaSubtype != SPA_MEDIA_SUBTYPE_raw || spa_format_video_raw_parse(&parameter, &info) < 0) {
      return std::nullopt;
    }
    const KnownFormat* known = knownFormat(mediaSubtype, info.format);
    if (!known) return std::nullopt;
    frame.layout = known->layout;
    frame.matrix = matrixOf(info.color_matrix);
    frame.isFullRange = info.color_range == SPA_VIDEO_COLOR_RANGE_0_255;
    size = info.size;
    agreed = info.framerate;
  }
  if (size.width < 1 || size.height < 1 || size.width > 32767 || size.height > 32767) return std::nullopt;
  frame.width = static_cast<int>(size.width);
  frame.height = static_cast<int>(size.height);
  if (const double found = rateOf(agreed); found > 0) rate = found;
  return PipeWireAgreement{frame, hasModifier(parameter)};
}

RawFrame::Plane pipeWirePlane(const spa_data& data) {
  if (!data.data || !data.chunk) return {};
  const std::uint32_t offset = std::min(data.chunk->offset, data.maxsize);
  return {static_cast<const std::uint8_t*>(data.data) + offset, std::min(data.chunk->size, data.maxsize - offset),
          static_cast<std::size_t>(std::max(data.chunk->stride, 0))};
}

std::string pipeWireFormatName(const spa_pod& parameter) {
  spa_video_info info{};
  if (spa_format_video_parse(&parameter, &info) < 0) return "an unknown format";
  const char* name = info.media_subtype == SPA_MEDIA_SUBTYPE_raw
                         ? spa_debug_type_find_short_name(spa_type_video_format, info.info.raw.format)
                         : spa_debug_type_find_short_name(spa_type_media_subtype, info.media_subtype);
  return name ? name : "an unknown format";
}

std::string pipeWireMemoryName(std::uint32_t dataType) {
  const char* name = spa_debug_type_find_short_name(spa_type_data_type, dataType);
  return name ? name : "unknown";
}

std::string valueOf(const PipeWireProperties& properties, const char* key) {
  const auto found = properties.find(key);
  return found != properties.end() ? found->second : std::string();
}

CaptureDevicePosition positionOf(const PipeWireProperties& properties) {
  const std::string location = valueOf(properties, "api.libcamera.location");
  if (location == "front") return CaptureDevicePosition::front;
  if (location == "back") return CaptureDevicePosition::back;
  return CaptureDevicePosition::unspecified;
}

int mountRotationOf(const PipeWireProperties& properties) {
  const std::string rotation = valueOf(properties, "api.libcamera.rotation");
  return mountRotationOf(static_cast<int>(std::strtol(rotation.c_str(), nullptr, 10)));
}

}  // namespace tavrel
