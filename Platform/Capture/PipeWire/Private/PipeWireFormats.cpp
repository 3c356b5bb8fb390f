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
#include "Platform/Capture/PipeWire/Private/PipeWireKnownFormats.h"
#include "Platform/Capture/PipeWire/Private/PipeWireLoans.h"
#include "Platform/Capture/Private/CameraModes.h"
#include "Platform/Capture/Private/CaptureTimes.h"
#include "Platform/Capture/Private/FrameRates.h"

namespace tavrel {
namespace {

constexpr std::uint32_t kMostValues = 256;
constexpr double kFastest = 240;
constexpr CaptureFrameRateRange kUsualRate = {30, 30};
constexpr std::int64_t kLinear = 0;  // DRM_FORMAT_MOD_LINEAR

/// The values of a property: one, the alternatives of an enumeration (without the default in front), or the ends of a
/// range, and its step if it has one.
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
  const std::uint32_t end = result.isRange ? std::min(count, 4U) : count;
  result.values.assign(values + std::min(skipped, end), values + end);
  return result;
}

double rateOf(const spa_fraction& fraction) {
  return fraction.denom > 0 ? static_cast<double>(fraction.num) / fraction.denom : 0;
}

std::vector<CaptureFrameRateRange> ratesOf(const spa_pod& object, bool& isVariable) {
  const auto found = valuesOf<spa_fraction>(object, SPA_FORMAT_VIDEO_framerate, SPA_TYPE_Fraction);
  std::vector<CaptureFrameRateRange> rates;
  if (found.isRange && found.values.size() >= 2) {
    const double slowest = std::max(1.0, rateOf(found.values[0]));
    rates.push_back({slowest, std::max(slowest, std::min(kFastest, rateOf(found.values[1])))});
  } else {
    for (const spa_fraction& fraction : found.values) {
      if (const double rate = rateOf(fraction); rate > 0) rates.push_back({rate, rate});
    }
  }
  // A node that does not say, or says 0, has a rate of its own, up to one that it may tell.
  const auto most = valuesOf<spa_fraction>(object, SPA_FORMAT_VIDEO_maxFramerate, SPA_TYPE_Fraction).values;
  const double fastest = most.empty() ? 0 : std::min(kFastest, rateOf(most.back()));
  isVariable = rates.empty();
  if (isVariable) rates.push_back(fastest > 0 ? CaptureFrameRateRange{std::min(1.0, fastest), fastest} : kUsualRate);
  return rates;
}

struct Sizes {
  std::vector<CaptureVideoDimensions> each;
  std::optional<CaptureSizeRange> range;
};

CaptureVideoDimensions dimensionsOf(const spa_rectangle& size) {
  constexpr std::uint32_t kLargestSide = 32767;
  return {static_cast<int>(std::min(size.width, kLargestSide)), static_cast<int>(std::min(size.height, kLargestSide))};
}

Sizes sizesOf(const spa_pod& object) {
  const auto found = valuesOf<spa_rectangle>(object, SPA_FORMAT_VIDEO_size, SPA_TYPE_Rectangle);
  Sizes sizes;
  if (!found.isRange || found.values.size() < 2) {
    for (const spa_rectangle& size : found.values) {
      if (size.width > 0 && size.height > 0 && size.width < 32768 && size.height < 32768) {
        sizes.each.push_back(dimensionsOf(size));
      }
    }
    return sizes;
  }
  const CaptureVideoDimensions step =
      found.values.size() > 2 ? dimensionsOf(found.values[2]) : CaptureVideoDimensions();
  sizes.range = sizeRangeOf(dimensionsOf(found.values[0]), dimensionsOf(found.values[1]), step);
  if (sizes.range) sizes.each = usualSizesIn(*sizes.range);
  return sizes;
}

spa_fraction fractionOf(double rate) {
  const MediaTime duration = frameDurationOf(rate);
  return {static_cast<std::uint32_t>(duration.timescale), static_cast<std::uint32_t>(duration.value)};
}

/// Whether the parameter is about memory of a device, and of which kinds.
bool hasModifier(const spa_pod& object) { return spa_pod_find_prop(&object, nullptr, SPA_FORMAT_VIDEO_modifier); }

std::vector<std::int64_t> modifiersOf(const spa_pod& object) {
  return valuesOf<std::int64_t>(object, SPA_FORMAT_VIDEO_modifier, SPA_TYPE_Long).values;
}

/// Those that the CPU reads, or the GPU takes in place.
std::vector<std::int64_t> usableModifiers(FrameLayout layout, std::vector<std::int64_t> offered, bool isRefused) {
  const auto imported = isRefused ? std::vector<std::uint64_t>() : importableModifiers(layout);
  std::erase_if(offered, [&](std::int64_t modifier) {
    const auto named = static_cast<std::uint64_t>(modifier);
    return modifier != kLinear && (named == DeviceMemory::kImplicit || std::ranges::count(imported, named) == 0);
  });
  return offered;
}

/// The camera's to choose, once it knows which of them its device can have.
void addModifiers(spa_pod_builder& builder, const std::vector<std::int64_t>& modifiers) {
  spa_pod_frame choice{};
  spa_pod_builder_prop(&builder, SPA_FORMAT_VIDEO_modifier,
                       SPA_POD_PROP_FLAG_MANDATORY | SPA_POD_PROP_FLAG_DONT_FIXATE);
  spa_pod_builder_push_choice(&builder, &choice, SPA_CHOICE_Enum, 0);
  spa_pod_builder_long(&builder, modifiers.front());
  for (const std::int64_t modifier : modifiers) spa_pod_builder_long(&builder, modifier);
  spa_pod_builder_pop(&builder, &choice);
}

/// One format, or when it is not known, a choice of all of ours.
void addFormats(spa_pod_builder& builder, spa_video_format format) {
  if (format != SPA_VIDEO_FORMAT_UNKNOWN) {
    spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_format, SPA_POD_Id(format), 0);
    return;
  }
  spa_pod_frame choice{};
  spa_pod_builder_prop(&builder, SPA_FORMAT_VIDEO_format, 0);
  spa_pod_builder_push_choice(&builder, &choice, SPA_CHOICE_Enum, 0);
  spa_pod_builder_id(&builder, knownPipeWireFormats().front().format);
  for (const PipeWireKnownFormat& known : knownPipeWireFormats()) {
    if (known.subtype == SPA_MEDIA_SUBTYPE_raw) spa_pod_builder_id(&builder, known.format);
  }
  spa_pod_builder_pop(&builder, &choice);
}

FrameRange rangeOf(spa_video_color_range range) {
  if (range == SPA_VIDEO_COLOR_RANGE_UNKNOWN) return FrameRange::unsaid;
  return range == SPA_VIDEO_COLOR_RANGE_0_255 ? FrameRange::full : FrameRange::limited;
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
  const auto modifiers = modifiersOf(parameter);
  bool isVariable = false;
  const auto rates = ratesOf(parameter, isVariable);
  const bool isEncoded = mediaSubtype != SPA_MEDIA_SUBTYPE_raw;
  const auto named = valuesOf<std::uint32_t>(parameter, SPA_FORMAT_VIDEO_format, SPA_TYPE_Id).values;
  const auto add = [&](CaptureVideoDimensions size, const std::optional<CaptureSizeRange>& range) {
    for (const std::uint32_t format : isEncoded ? std::vector<std::uint32_t>{SPA_VIDEO_FORMAT_ENCODED} : named) {
      const PipeWireKnownFormat* known = knownPipeWireFormat(mediaSubtype, format);
      if (!known || (hasModifier(parameter) && usableModifiers(known->layout, modifiers, false).empty())) continue;
      modes.push_back({known->subtype, known->format, isEncoded ? std::vector<std::int64_t>() : modifiers, size, rates,
                       range, isVariable});
    }
  };
  const Sizes sizes = sizesOf(parameter);
  for (const CaptureVideoDimensions size : sizes.each) add(size, std::nullopt);
  if (sizes.range) add(sizes.range->largest(), sizes.range);
  return modes;
}

std::string pipeWireFormatNames(const spa_pod& parameter) {
  std::uint32_t mediaType = 0;
  std::uint32_t mediaSubtype = 0;
  if (spa_format_parse(&parameter, &mediaType, &mediaSubtype) < 0) return {};
  const auto nameOf = [](const spa_type_info* types, std::uint32_t value) {
    const char* name = spa_debug_type_find_short_name(types, value);
    return std::string(name ? name : "unknown");
  };
  if (mediaSubtype != SPA_MEDIA_SUBTYPE_raw) return nameOf(spa_type_media_subtype, mediaSubtype);
  std::string names;
  for (const std::uint32_t format : valuesOf<std::uint32_t>(parameter, SPA_FORMAT_VIDEO_format, SPA_TYPE_Id).values) {
    names += (names.empty() ? "" : ", ") + nameOf(spa_type_video_format, format);
  }
  if (names.empty()) names = "one without a name";  // such as GStreamer has and PipeWire lacks
  return hasModifier(parameter) ? names + " of a device" : names;
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
                                              CaptureVideoDimensions dimensions, double rate, bool isRefused) {
  const spa_rectangle size = {static_cast<std::uint32_t>(dimensions.width),
                              static_cast<std::uint32_t>(dimensions.height)};
  const spa_fraction wanted = fractionOf(rate);
  const spa_rectangle smallest = {1, 1};
  const spa_rectangle largest = {32767, 32767};
  // Of raw pictures whose format is not said, all are asked for.
  const auto build = [&](const PipeWireMode& mode, bool isExact, bool isOfAnySize = false,
                         const std::vector<std::int64_t>& modifiers = {}) {
    // The daemon takes any of the rates in between. One that is no fraction of small numbers is met as closely.
    const bool isNear = isExact && !mode.isVariable;
    const auto thousandths = [&](double part) { return static_cast<std::uint32_t>(rate * part * 1000); };
    const spa_fraction slowest = isNear ? spa_fraction{thousandths(0.98), 1000} : spa_fraction{0, 1};
    const spa_fraction fastest = isNear ? spa_fraction{thousandths(1.02), 1000} : spa_fraction{1000, 1};
    spa_pod_frame frame{};
    spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype,
                        SPA_POD_Id(mode.subtype), SPA_FORMAT_VIDEO_framerate,
                        SPA_POD_CHOICE_RANGE_Fraction(&wanted, &slowest, &fastest), 0);
    if (isOfAnySize) {
      spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_size, SPA_POD_CHOICE_RANGE_Rectangle(&size, &smallest, &largest),
                          0);
    } else {
      spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&size), 0);
    }
    if (mode.subtype == SPA_MEDIA_SUBTYPE_raw) addFormats(builder, mode.format);
    if (!modifiers.empty()) addModifiers(builder, modifiers);
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
    for (const PipeWireKnownFormat& known : knownPipeWireFormats()) {
      // The CPU reads ordinary memory faster than a device's.
      const bool isImported = !isRefused && !importableModifiers(known.layout).empty();
      for (const bool isOfDevice : {isImported, !isImported}) {
        for (const PipeWireMode& mode : modes) {
          const bool isIt = mode.subtype == known.subtype && mode.format == known.format;
          if (!isIt || mode.modifiers.empty() == isOfDevice || !hasSize(mode, dimensions) || has(mode) != isExact) {
            continue;
          }
          const auto modifiers = usableModifiers(known.layout, mode.modifiers, isRefused);
          if (modifiers.empty() == isOfDevice) continue;
          parameters.push_back(build(mode, isExact, false, modifiers));
        }
      }
    }
  }
  for (const auto subtype : {SPA_MEDIA_SUBTYPE_raw, SPA_MEDIA_SUBTYPE_mjpg, SPA_MEDIA_SUBTYPE_h264}) {
    parameters.push_back(build({.subtype = subtype}, false, true));
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

bool isToBeChosen(const spa_pod& parameter) {
  const spa_pod_prop* modifier = spa_pod_find_prop(&parameter, nullptr, SPA_FORMAT_VIDEO_modifier);
  return modifier && (modifier->flags & SPA_POD_PROP_FLAG_DONT_FIXATE) != 0;
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
    const PipeWireKnownFormat* known = knownPipeWireFormat(mediaSubtype, info.format);
    if (!known) return std::nullopt;
    frame.layout = known->layout;
    frame.matrix = matrixOf(info.color_matrix);
    frame.packed = known->packed;
    frame.range = rangeOf(info.color_range);
    size = info.size;
    agreed = info.framerate;
  }
  if (size.width < 1 || size.height < 1 || size.width > 32767 || size.height > 32767) return std::nullopt;
  frame.width = static_cast<int>(size.width);
  frame.height = static_cast<int>(size.height);
  if (const double found = rateOf(agreed); found > 0) rate = found;
  PipeWireAgreement agreement = {frame};
  const auto modifiers = modifiersOf(parameter);
  if (!modifiers.empty()) agreement.modifier = static_cast<std::uint64_t>(modifiers.front());
  return agreement;
}

RawFrame::Plane pipeWirePlane(const spa_data& data) {
  if (!data.data || !data.chunk) return {};
  const std::uint32_t offset = std::min(data.chunk->offset, data.maxsize);
  return {static_cast<const std::uint8_t*>(data.data) + offset, std::min(data.chunk->size, data.maxsize - offset),
          static_cast<std::size_t>(std::abs(std::int64_t{data.chunk->stride}))};
}

}  // namespace tavrel
