#include "InputMovie.h"

#include <fmt/format.h>

namespace tavrel::tool {

Expected<InputMovie> InputMovie::open(const TranscodingOptions& options) {
  auto asset = Asset::create(options.input, {.prefersPreciseDurationAndTiming = true});
  if (!asset) return tl::unexpected(asset.error());
  const auto pictures = (*asset)->tracksWithMediaType(MediaType::video);
  if (pictures.empty()) {
    return failure(MediaErrorCode::noPlayableTrack,
                   fmt::format("{} has no pictures, only sound", options.input.string()));
  }
  const auto sounds = (*asset)->tracksWithMediaType(MediaType::audio);
  return InputMovie{.asset = std::move(*asset),
                    .pictures = pictures.front(),
                    .sound = options.hasSound && !sounds.empty() ? sounds.front() : nullptr};
}

Dictionary pictureSettings(const AssetTrack& track, const std::string& fileType, Size size, Dictionary asked) {
  asked.emplace(kVideoCodecKey, AssetWriter::usualVideoCodec(fileType));
  asked.emplace(kVideoWidthKey, static_cast<std::int64_t>(size.width));
  asked.emplace(kVideoHeightKey, static_cast<std::int64_t>(size.height));
  const double frameRate = track.nominalFrameRate();
  if (frameRate >= 1 && frameRate <= 1000) asked.emplace(kVideoExpectedFrameRateKey, frameRate);
  return asked;
}

}  // namespace tavrel::tool
