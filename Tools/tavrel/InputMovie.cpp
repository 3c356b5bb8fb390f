#include "InputMovie.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "Report.h"

namespace tavrel::tool {

namespace {

/// Whether the new movie can have these subtitles.
bool takes(const TranscodingOptions& options, const AssetTrack& subtitles) {
  return !options.isFragmented && AssetWriter::canStore(*subtitles.storedFormat(), options.fileType);
}

bool takesCover(const TranscodingOptions& options, const Asset& asset) {
  const auto cover = asset.artwork();
  return !options.isFragmented && cover && AssetWriter::canStore(*cover, asset.metadata(), options.fileType);
}

/// How long a movie of a usual rate would have an index as large as the new movie's.
double secondsOfIndex(const TranscodingOptions& options, const Asset& asset) {
  constexpr double kUsualRate = 30;
  constexpr double kMargin = 10;
  constexpr double kMost = 6 * 3600;  // more is rather damage than a film
  double rate = kUsualRate;
  for (const auto& pictures : asset.tracksWithMediaType(MediaType::video))
    rate = std::max(rate, pictures->nominalFrameRate());
  return std::min(options.secondsOf(asset) * rate / kUsualRate + kMargin, kMost);
}

}  // namespace

double TranscodingOptions::secondsOf(const Asset& asset) const {
  const double end = asset.duration().seconds();
  const MediaTime last = timeRange.end();
  return std::max(0.0, (last.isNumeric() ? std::min(last.seconds(), end) : end) - timeRange.start.seconds());
}

Expected<InputMovie> InputMovie::open(const TranscodingOptions& options) {
  auto asset = Asset::create(options.input, {.prefersPreciseDurationAndTiming = true});
  if (!asset) return tl::unexpected(asset.error());
  const auto pictures = (*asset)->tracksWithMediaType(MediaType::video);
  if (pictures.empty()) {
    return failure(MediaErrorCode::noPlayableTrack,
                   fmt::format("{} has no pictures, only sound", options.input.string()));
  }
  const auto usualOf = [](const auto& tracks) {
    const auto usual = std::find_if(tracks.begin(), tracks.end(), [](const auto& each) { return each->isDefault(); });
    return usual == tracks.end() ? tracks.front() : *usual;
  };
  InputMovie movie{.asset = *asset, .pictures = usualOf(pictures), .sounds = {}, .subtitles = {}};
  for (const auto& each : (*asset)->tracksWithMediaType(MediaType::subtitle)) {
    if (takes(options, *each)) movie.subtitles.push_back(each);
  }
  if (!options.hasSound) return movie;
  const auto sounds = (*asset)->tracksWithMediaType(MediaType::audio);
  if (options.soundTrack == "all") {
    movie.sounds = sounds;
  } else if (!options.soundTrack.empty()) {
    const std::size_t number = std::stoul(options.soundTrack);
    if (number > sounds.size()) {
      return failure(MediaErrorCode::noPlayableTrack,
                     fmt::format("{} has {} audio tracks: --audio-track {} is not among them", options.input.string(),
                                 sounds.size(), number));
    }
    movie.sounds = {sounds[number - 1]};
  } else if (!sounds.empty()) {
    movie.sounds = {usualOf(sounds)};
  }
  return movie;
}

void sayWhatIsLeftOut(const TranscodingOptions& options, const Asset& asset) {
  auto contents = asset.contentBesideTracks();
  for (const auto& each : asset.tracksWithMediaType(MediaType::subtitle)) {
    if (!takes(options, *each)) contents.push_back(fmt::format("subtitles ({})", each->codecName()));
  }
  const auto others = [&](MediaType type, const char* kind) {
    const std::size_t count = asset.tracksWithMediaType(type).size();
    if (count == 2) contents.push_back(fmt::format("another {} track", kind));
    if (count > 2) contents.push_back(fmt::format("{} other {} tracks", count - 1, kind));
  };
  others(MediaType::video, "video");
  if (options.hasSound && options.soundTrack.empty()) others(MediaType::audio, "audio");
  if (options.isFragmented && !asset.chapters().empty()) contents.emplace_back("chapters");
  if (asset.artwork() && !takesCover(options, asset)) contents.emplace_back("a cover");
  if (!contents.empty()) say("not carried over from {}: {}", options.input.string(), fmt::join(contents, ", "));
}

void carryOver(const TranscodingOptions& options, const Asset& asset, AssetWriter& writer) {
  writer.setIndexRoom(MediaTime::make(std::llround(secondsOfIndex(options, asset)), 1));
  writer.setMetadata(asset.metadata());
  if (takesCover(options, asset)) writer.setArtwork(asset.artwork());
  const MediaTimeRange& part = options.timeRange;
  std::vector<Chapter> chapters;
  for (Chapter chapter : asset.chapters()) {
    const MediaTime start = std::max(chapter.timeRange.start, part.start);
    const MediaTime end = std::min(chapter.timeRange.end(), part.end());
    if (start < end) chapters.push_back({{start - part.start, end - start}, std::move(chapter.title)});
  }
  writer.setChapters(std::move(chapters));
}

Size squaredSize(const AssetTrack& track) {
  const Size size = track.naturalSize();
  const Size pixel = track.pixelAspectRatio();
  return {std::round(size.width * pixel.width / pixel.height), size.height};
}

Size scaledSize(const TranscodingOptions& options, Size size) {
  if (!options.size || options.scalingMode == kVideoScalingModeResize) return options.size.value_or(size);
  const double across = options.size->width / size.width;
  const double down = options.size->height / size.height;
  const bool isFitted = options.scalingMode == kVideoScalingModeResizeAspect;
  const double scale = isFitted ? std::min(across, down) : std::max(across, down);
  return {std::round(size.width * scale), std::round(size.height * scale)};
}

Dictionary pictureSettings(const TranscodingOptions& options, const AssetTrack& track, Size size, Size pixelAspect) {
  const auto whole = [](double number) { return static_cast<std::int64_t>(std::llround(number)); };
  Dictionary settings = options.videoSettings;
  const std::string usual = AssetWriter::usualVideoCodec(options.fileType);
  const bool isDeep = options.keepsHDR && track.containsHDRVideo();
  settings.emplace(kVideoCodecKey, isDeep && usual == kVideoCodecH264 ? std::string(kVideoCodecHEVC) : usual);
  if (options.keepsFields) settings.emplace(kVideoEncoderKey, std::string("libx264"));
  if (options.size) {
    size = *options.size;
    pixelAspect = {1, 1};
    settings.emplace(kVideoScalingModeKey, options.scalingMode);
  }
  settings.emplace(kVideoWidthKey, whole(size.width));
  settings.emplace(kVideoHeightKey, whole(size.height));
  settings.emplace(kVideoPixelAspectRatioHorizontalSpacingKey, whole(pixelAspect.width));
  settings.emplace(kVideoPixelAspectRatioVerticalSpacingKey, whole(pixelAspect.height));
  const double frameRate = track.nominalFrameRate();
  if (frameRate >= 1 && frameRate <= 1000) settings.emplace(kVideoExpectedFrameRateKey, frameRate);
  return settings;
}

}  // namespace tavrel::tool
