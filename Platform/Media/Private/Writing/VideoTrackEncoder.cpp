#include "Platform/Media/Private/Writing/VideoTrackEncoder.h"

#include <fmt/format.h>

#include <algorithm>

#include "Platform/Media/MediaError.h"
#include "Platform/Media/Private/FFmpegTime.h"

namespace tavrel {
namespace {

// Of a track whose header had to be written before its first picture: a multiple of the common frame rates' timescales.
constexpr std::int32_t kFallbackTimescale = 720'000;

}  // namespace

Expected<void> VideoTrackEncoder::check(const MovieFile& file) const {
  if (!VideoEncoder::isAvailable(settings_.isHEVC)) {
    return failure(MediaErrorCode::encoderUnavailable,
                   fmt::format("this FFmpeg has no encoder for {}", settings_.isHEVC ? "H.265" : "H.264"));
  }
  if (!file.container().canHold(settings_.isHEVC ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264)) {
    return failure(MediaErrorCode::unsuitableContainer,
                   fmt::format("{} cannot hold this video coding", file.container().name()));
  }
  return {};
}

Expected<void> VideoTrackEncoder::open(TrackOutput output, bool isRealTime) {
  output_ = std::move(output);
  isRealTime_ = isRealTime;
  auto encoder = VideoEncoder::open(
      {settings_, ColorTags{}, AVRational{1, timescale_ > 0 ? timescale_ : kFallbackTimescale}, isRealTime});
  if (!encoder) return tl::unexpected(encoder.error());
  encoder_.emplace(std::move(*encoder));
  output_.setFormat(encoder_->parameters().get(), encoder_->options().timeBase, false);
  return {};
}

Expected<void> VideoTrackEncoder::adoptFirstSample(const TrackSample& sample) {
  hasFirstSample_ = true;
  VideoEncoder::Options options = encoder_->options();
  options.colors = ColorTags::of(*sample.picture);
  options.timeBase = AVRational{1, sample.timescale};
  const bool isSame =
      options.colors == encoder_->options().colors && av_cmp_q(options.timeBase, encoder_->options().timeBase) == 0;
  if (isSame) {
    output_.setFormat(encoder_->parameters().get(), options.timeBase, true);
    return {};
  }
  auto encoder = VideoEncoder::open(options);
  if (!encoder) return tl::unexpected(encoder.error());
  // Too late when the header was written meanwhile: then the encoder that it describes stays.
  if (output_.setFormat(encoder->parameters().get(), options.timeBase, true)) encoder_.emplace(std::move(*encoder));
  return {};
}

VideoEncoder::PacketHandler VideoTrackEncoder::packetHandler() {
  return [this](Packet packet) { output_.write(std::move(packet)); };
}

Expected<void> VideoTrackEncoder::encode(const TrackSample& sample) {
  if (!hasFirstSample_) {
    if (auto adopted = adoptFirstSample(sample); !adopted) return adopted;
  }
  const auto frame = encoder_->writableFrame();
  if (!frame) return tl::unexpected(frame.error());
  if (auto converted = converter_.convert(*sample.picture, **frame); !converted) return converted;
  const std::int64_t time = unitsOf(MediaTime::make(sample.timeUnits, sample.timescale), encoder_->options().timeBase);
  // Two times may meet in a fallback timescale that is coarser than theirs.
  lastTime_ = std::max(time, lastTime_ + 1);
  return encoder_->encode(lastTime_, packetHandler());
}

Expected<void> VideoTrackEncoder::finish() { return encoder_ ? encoder_->finish(packetHandler()) : Expected<void>{}; }

}  // namespace tavrel
