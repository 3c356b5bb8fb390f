#include "Platform/Media/Private/Writing/VideoSettings.h"

#include <fmt/format.h>

#include <cmath>

#include "Platform/Media/MediaError.h"
#include "Platform/Media/MediaSettings.h"

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

}  // namespace

Expected<VideoSettings> VideoSettings::parse(const Dictionary& settings) {
  VideoSettings result;
  const std::string* const codec = textFor(settings, kVideoCodecKey);
  if (!codec || (*codec != kVideoCodecH264 && *codec != kVideoCodecHEVC)) {
    return failure(MediaErrorCode::invalidSettings,
                   fmt::format("{} is \"{}\": it must be \"{}\" or \"{}\"", kVideoCodecKey, codec ? *codec : "",
                               kVideoCodecH264, kVideoCodecHEVC));
  }
  result.isHEVC = *codec == kVideoCodecHEVC;
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
  if (const std::string* const preset = textFor(settings, kVideoPresetKey)) result.preset = *preset;
  return result;
}

}  // namespace tavrel
