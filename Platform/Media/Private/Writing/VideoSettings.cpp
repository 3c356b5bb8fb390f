#include "Platform/Media/Private/Writing/VideoSettings.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "Platform/Media/MediaError.h"
#include "Platform/Media/MediaSettings.h"
#include "Platform/Media/Private/Writing/VideoEncoderKind.h"

namespace tavrel {
namespace {

/// The number under `key`, which must lie in the range; nothing when there is none.
Expected<std::optional<double>> numberIn(const Dictionary& settings, const char* key, double least, double most) {
  const std::optional<double> number = numberFor(settings, key);
  if (!number || (*number >= least && *number <= most)) return number;
  return failure(MediaErrorCode::invalidSettings,
                 fmt::format("{} is {}: it must be {} to {}", key, *number, least, static_cast<std::int64_t>(most)));
}

Expected<int> side(const Dictionary& settings, const char* key) {
  const auto number = numberIn(settings, key, 1, 16384);
  if (!number) return tl::unexpected(number.error());
  if (!*number)
    return failure(MediaErrorCode::invalidSettings, fmt::format("the video settings lack a number for {}", key));
  const int whole = static_cast<int>(**number);
  return whole + whole % 2;
}

const std::string* textFor(const Dictionary& settings, const char* key) {
  const auto entry = settings.find(key);
  return entry == settings.end() ? nullptr : std::get_if<std::string>(&entry->second);
}

constexpr std::array<std::pair<const char*, AVCodecID>, 4> kCodecs{{{kVideoCodecH264, AV_CODEC_ID_H264},
                                                                    {kVideoCodecHEVC, AV_CODEC_ID_HEVC},
                                                                    {kVideoCodecAV1, AV_CODEC_ID_AV1},
                                                                    {kVideoCodecVP9, AV_CODEC_ID_VP9}}};

Expected<AVCodecID> codecOf(const Dictionary& settings) {
  const std::string* const name = textFor(settings, kVideoCodecKey);
  std::string names;
  for (const auto& [known, codec] : kCodecs) {
    if (name && *name == known) return codec;
    names += fmt::format("{}\"{}\"", names.empty() ? "" : ", ", known);
  }
  return failure(MediaErrorCode::invalidSettings,
                 fmt::format("{} is \"{}\": it must be one of {}", kVideoCodecKey, name ? *name : "", names));
}

/// NAME or NAME:NODE
Expected<void> readEncoder(const Dictionary& settings, VideoSettings& result) {
  const std::string* const text = textFor(settings, kVideoEncoderKey);
  if (!text) return {};
  const std::size_t colon = text->find(':');
  result.encoder = text->substr(0, colon);
  if (colon != std::string::npos) result.encoderNode = text->substr(colon + 1);
  const auto kinds = VideoEncoderKind::all();
  const auto kind =
      std::find_if(kinds.begin(), kinds.end(), [&](const auto& each) { return result.encoder == each.name; });
  if (kind == kinds.end() || kind->codec == result.codec) return {};  // one that is not there has an error of its own
  return failure(MediaErrorCode::invalidSettings, fmt::format("{} is \"{}\", which does not make {}", kVideoEncoderKey,
                                                              result.encoder, avcodec_get_name(result.codec)));
}

Expected<void> readShape(const Dictionary& settings, VideoSettings& result) {
  constexpr double kMostSpacing = 65535;
  const auto width = numberIn(settings, kVideoPixelAspectRatioHorizontalSpacingKey, 1, kMostSpacing);
  if (!width) return tl::unexpected(width.error());
  const auto height = numberIn(settings, kVideoPixelAspectRatioVerticalSpacingKey, 1, kMostSpacing);
  if (!height) return tl::unexpected(height.error());
  result.pixelAspect = {static_cast<int>(width->value_or(1)), static_cast<int>(height->value_or(1))};
  const std::string* const mode = textFor(settings, kVideoScalingModeKey);
  if (!mode) return {};
  constexpr std::array<std::pair<const char*, ScalingMode>, 3> kModes{
      {{kVideoScalingModeResize, ScalingMode::stretch},
       {kVideoScalingModeResizeAspect, ScalingMode::fit},
       {kVideoScalingModeResizeAspectFill, ScalingMode::fill}}};
  for (const auto& [name, known] : kModes) {
    if (*mode != name) continue;
    result.scalingMode = known;
    return {};
  }
  return failure(MediaErrorCode::invalidSettings,
                 fmt::format("{} is \"{}\": it must be {}, {} or {}", kVideoScalingModeKey, *mode, kModes[0].first,
                             kModes[1].first, kModes[2].first));
}

}  // namespace

std::string VideoSettings::codecName() const {
  const auto* const known =
      std::find_if(kCodecs.begin(), kCodecs.end(), [this](const auto& each) { return each.second == codec; });
  return known->first;
}

Expected<VideoSettings> VideoSettings::parse(const Dictionary& settings) {
  VideoSettings result;
  const auto codec = codecOf(settings);
  if (!codec) return tl::unexpected(codec.error());
  result.codec = *codec;
  const auto width = side(settings, kVideoWidthKey);
  if (!width) return tl::unexpected(width.error());
  const auto height = side(settings, kVideoHeightKey);
  if (!height) return tl::unexpected(height.error());
  result.width = *width;
  result.height = *height;

  const auto rate = numberIn(settings, kVideoAverageBitRateKey, 1000, 2e9);
  if (!rate) return tl::unexpected(rate.error());
  if (*rate) result.averageBitRate = std::llround(**rate);
  const auto quality = numberIn(settings, kVideoQualityKey, 0, 1);
  if (!quality) return tl::unexpected(quality.error());
  result.quality = quality->value_or(result.quality);
  const auto interval = numberIn(settings, kVideoMaxKeyFrameIntervalKey, 1, 1e6);
  if (!interval) return tl::unexpected(interval.error());
  if (*interval) result.maxKeyFrameInterval = static_cast<int>(**interval);
  const auto frameRate = numberIn(settings, kVideoExpectedFrameRateKey, 1, 1000);
  if (!frameRate) return tl::unexpected(frameRate.error());
  result.frameRate = *frameRate;
  if (auto encoder = readEncoder(settings, result); !encoder) return tl::unexpected(encoder.error());
  if (auto shape = readShape(settings, result); !shape) return tl::unexpected(shape.error());
  if (const std::string* const preset = textFor(settings, kVideoPresetKey)) result.preset = *preset;
  return result;
}

}  // namespace tavrel
