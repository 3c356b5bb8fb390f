#include "Platform/Media/Private/Writing/VideoTrackEncoder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "Platform/Media/MediaError.h"
#include "Platform/Media/Private/FFmpegTime.h"

namespace tavrel {
namespace {

// Of a track whose header had to be written before its first picture: a multiple of the common frame rates' timescales.
constexpr std::int32_t kFallbackTimescale = 720'000;
constexpr double kUsualFrameRate = 30;
constexpr int kLongestGap = 60;  // seconds

/// 29.97 and the like as the standards have them.
AVRational rational(double framesPerSecond) {
  const double ofTelevision = framesPerSecond * 1.001;
  const bool isTelevision = std::abs(ofTelevision - std::round(ofTelevision)) < 0.002 * ofTelevision / 60 &&
                            std::abs(framesPerSecond - std::round(framesPerSecond)) > 0.01;
  if (isTelevision) return {static_cast<int>(std::lround(ofTelevision)) * 1000, 1001};
  return av_d2q(framesPerSecond, 1000);
}

}  // namespace

Expected<void> VideoTrackEncoder::check(const MovieFile& file) const {
  if (auto checked = VideoEncoder::check(settings_); !checked) return checked;
  if (!file.container().canHold(settings_.codec)) {
    return failure(MediaErrorCode::unsuitableContainer,
                   fmt::format("{} cannot hold {}", file.container().name(), avcodec_get_name(settings_.codec)));
  }
  return {};
}

Expected<void> VideoTrackEncoder::open(TrackOutput output, bool isRealTime) {
  output_ = std::move(output);
  isRealTime_ = isRealTime;
  VideoEncoderOptions options;
  options.settings = settings_;
  options.timeBase = AVRational{1, timescale_ > 0 ? timescale_ : kFallbackTimescale};
  options.frameRate = rational(settings_.frameRate.value_or(kUsualFrameRate));
  options.isRealTime = isRealTime;
  auto encoder = VideoEncoder::open(options);
  if (!encoder) return tl::unexpected(encoder.error());
  encoder_.emplace(std::move(*encoder));
  setFormat(*encoder_, false);
  if (isRealTime) output_.queue->file().setEncoderDelay(encoder_->liveDelay() / av_q2d(options.frameRate));
  return {};
}

bool VideoTrackEncoder::setFormat(const VideoEncoder& encoder, bool isFinal) const {
  const VideoEncoderOptions& options = encoder.options();
  const bool isRateKnown = isFinal || settings_.frameRate;
  const CodecParameters parameters = encoder.parameters();
  const std::int64_t lead = av_rescale_q(encoder.reordering(), av_inv_q(options.frameRate), options.timeBase);
  return output_.setFormat({.parameters = parameters.get(),
                            .timeBase = options.timeBase,
                            .frameRate = isRateKnown ? options.frameRate : AVRational{0, 1},
                            .decodeLead = lead,
                            .colorVolume = options.pictures.volume},
                           isFinal);
}

Expected<void> VideoTrackEncoder::adopt(const TrackSample& first, double framesPerSecond, bool isFinal) {
  VideoEncoderOptions options = encoder_->options();
  options.pictures = VideoEncoderOptions::Pictures::like(*first.picture);
  options.timeBase = AVRational{1, first.timescale};
  options.frameRate = rational(framesPerSecond);
  const bool isSame = options.pictures == encoder_->options().pictures &&
                      av_cmp_q(options.timeBase, encoder_->options().timeBase) == 0 &&
                      av_cmp_q(options.frameRate, encoder_->options().frameRate) == 0;
  if (isSame) {
    setFormat(*encoder_, isFinal);
    return {};
  }
  auto encoder = VideoEncoder::open(options);
  if (!encoder) return tl::unexpected(encoder.error());
  // Too late when the header was written meanwhile: then the encoder that it describes stays.
  if (setFormat(*encoder, isFinal)) encoder_.emplace(std::move(*encoder));
  return {};
}

VideoEncoder::PacketHandler VideoTrackEncoder::packetHandler() {
  return [this](Packet packet) { output_.write(std::move(packet)); };
}

Expected<void> VideoTrackEncoder::encode(const TrackSample& sample) {
  if (!hasFirstSample_) {
    hasFirstSample_ = true;
    const bool isRateKnown = settings_.frameRate.has_value();
    auto adopted = adopt(sample, settings_.frameRate.value_or(kUsualFrameRate), isRateKnown);
    if (!adopted || !isRateKnown) {
      first_ = sample;
      return adopted;
    }
  }
  if (first_) {
    const TrackSample first = std::move(*first_);
    first_.reset();
    const double interval = (sample.presentationTime - first.presentationTime).seconds();
    if (auto adopted = adopt(first, std::clamp(1 / interval, 1.0, 1000.0), true); !adopted) return adopted;
    if (auto encoded = encodePicture(first); !encoded) return encoded;
  }
  return encodePicture(sample);
}

Expected<void> VideoTrackEncoder::encodePicture(const TrackSample& sample) {
  const std::int64_t time = unitsOf(MediaTime::make(sample.timeUnits, sample.timescale), encoder_->options().timeBase);
  const AVRational base = encoder_->options().timeBase;
  const bool isLater = lastTime_ >= 0 && av_compare_ts(time - lastTime_, base, kLongestGap, {1, 1}) > 0;
  if (isLater && encoder_->reordering() > 0) {
    if (auto begun = beginAnew(); !begun) return begun;
  }
  // Two times may meet in a fallback timescale that is coarser than theirs.
  lastTime_ = std::max(time, lastTime_ + 1);
  const auto attempt = [&]() -> Expected<void> {
    const auto frame = encoder_->writableFrame();
    if (!frame) return tl::unexpected(frame.error());
    if (auto converted = converter_.convert(*sample.picture, **frame); !converted) return converted;
    return encoder_->encode(lastTime_, packetHandler(), fieldOrderOf(*sample.picture));
  };
  auto encoded = attempt();
  if (encoded) return encoded;
  if (auto replaced = replaceEncoder(encoded.error()); !replaced) return replaced;
  return attempt();
}

Expected<void> VideoTrackEncoder::beginAnew() {
  if (auto finished = encoder_->finish(packetHandler()); !finished) return finished;
  auto encoder = VideoEncoder::open(encoder_->options());
  if (!encoder) return tl::unexpected(encoder.error());
  encoder_.emplace(std::move(*encoder));
  return {};
}

Expected<void> VideoTrackEncoder::replaceEncoder(const Error& failure) {
  if (encoder_->kind().device == EncoderDevice::processor) return tl::unexpected(failure);
  auto encoder = VideoEncoder::openSuccessor(encoder_->options());
  if (!encoder) return tl::unexpected(failure);
  encoder_.emplace(std::move(*encoder));
  return {};
}

Expected<void> VideoTrackEncoder::finish() {
  if (first_) {
    const TrackSample first = std::move(*first_);
    first_.reset();
    if (auto encoded = encodePicture(first); !encoded) return encoded;
  }
  return encoder_ ? encoder_->finish(packetHandler()) : Expected<void>{};
}

}  // namespace tavrel
