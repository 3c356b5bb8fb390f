#include "Platform/Media/Private/Writing/VideoSettings.h"

#include <fmt/format.h>

#include <cmath>

#include "Platform/Media/MediaError.h"
#include "Platform/Media/MediaSettings.h"

namespace tavrel {
namespace {

constexpr double kLargestSide = 16384;

Expected<int> side(const Dictionary& settings, const char* key) {
  const auto number = numberFor(settings, key);
  if (!number)
    return failure(MediaErrorCode::invalidSettings, fmt::format("the video settings lack a number for {}", key));
  if (!(*number >= 1 && *number <= kLargestSide)) {
    return failure(MediaErrorCode::invalidSettings,
                   fmt::format("{} is {}: it must be 1 to {}", key, *number, kLargestSide));
  }
  const int whole = static_cast<int>(*number);
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

  if (const auto rate = numberFor(settings, kVideoAverageBitRateKey)) {
    if (!(*rate >= 1000 && *rate <= 2e9)) {
      return failure(MediaErrorCode::invalidSettings,
                     fmt::format("{} is {}: it must be 1000 to 2000000000", kVideoAverageBitRateKey, *rate));
    }
    result.averageBitRate = std::llround(*rate);
  }
  if (const auto quality = numberFor(settings, kVideoQualityKey)) {
    if (!(*quality >= 0 && *quality <= 1)) {
      return failure(MediaErrorCode::invalidSettings,
                     fmt::format("{} is {}: it must be 0 to 1", kVideoQualityKey, *quality));
    }
    result.quality = *quality;
  }
  if (const auto interval = numberFor(settings, kVideoMaxKeyFrameIntervalKey)) {
    if (!(*interval >= 1 && *interval <= 1e6)) {
      return failure(MediaErrorCode::invalidSettings,
                     fmt::format("{} is {}: it must be 1 to 1000000", kVideoMaxKeyFrameIntervalKey, *interval));
    }
    result.maxKeyFrameInterval = static_cast<int>(*interval);
  }
  if (const std::string* const preset = textFor(settings, kVideoPresetKey)) result.preset = *preset;
  return result;
}

}  // namespace tavrel
