#include "Platform/Media/Private/Writing/TrackEncoderChoice.h"

#include <utility>

#include "Platform/Media/Private/Writing/AudioTrackEncoder.h"
#include "Platform/Media/Private/Writing/PassthroughTrackEncoder.h"
#include "Platform/Media/Private/Writing/SubtitleTrackEncoder.h"
#include "Platform/Media/Private/Writing/VideoTrackEncoder.h"

namespace tavrel {

Expected<TrackEncoderChoice> chooseTrackEncoder(MediaType mediaType, const std::optional<Dictionary>& settings,
                                                std::int32_t timescale,
                                                const std::shared_ptr<const FormatDescription>& hint) {
  if (mediaType == MediaType::subtitle) return TrackEncoderChoice{std::make_unique<SubtitleTrackEncoder>(hint), {}};
  if (!settings) return TrackEncoderChoice{std::make_unique<PassthroughTrackEncoder>(mediaType, timescale), {}};
  if (mediaType == MediaType::video) {
    auto parsed = VideoSettings::parse(*settings);
    if (!parsed) return tl::unexpected(parsed.error());
    const Size size{static_cast<double>(parsed->width), static_cast<double>(parsed->height)};
    return TrackEncoderChoice{std::make_unique<VideoTrackEncoder>(std::move(*parsed), timescale), size};
  }
  auto parsed = AudioSettings::parse(*settings);
  if (!parsed) return tl::unexpected(parsed.error());
  return TrackEncoderChoice{std::make_unique<AudioTrackEncoder>(*parsed), {}};
}

}  // namespace tavrel
