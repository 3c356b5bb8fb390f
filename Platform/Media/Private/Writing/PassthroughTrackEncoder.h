#pragma once

#include <memory>

#include "Platform/Media/Private/Writing/TrackEncoder.h"

namespace tavrel {

/// A track of samples stored as they come: packets of one codec, or PCM. What it is shows the first sample.
class PassthroughTrackEncoder final : public TrackEncoder {
 public:
  PassthroughTrackEncoder(MediaType mediaType, std::int32_t timescale) : mediaType_(mediaType), timescale_(timescale) {}

  /// The coding that samples of this format are stored in; AV_CODEC_ID_NONE when they cannot be.
  static AVCodecID codecOf(const FormatDescription& format);

  Expected<void> check(const MovieFile&) const override { return {}; }
  Expected<void> open(TrackOutput output, bool isRealTime) override;
  Expected<void> encode(const TrackSample& sample) override;
  Expected<void> finish() override;

 private:
  Expected<void> adoptFirstSample(const TrackSample& sample);
  Expected<void> setPacketFormat(const TrackSample& sample);
  Expected<void> writePacket(const TrackSample& sample);
  Expected<void> trim(AVPacket& packet) const;
  /// Where sound begins that a file with coarse times, such as Matroska, places about here.
  std::int64_t exactPlaceOf(std::int64_t place) const;

  const MediaType mediaType_;
  const std::int32_t timescale_;
  TrackOutput output_;
  bool isRealTime_ = true;
  bool hasFirstSample_ = false;
  AVRational timeBase_{1, 1};
  std::int64_t lastDecodeTime_ = 0;
  bool isOpus_ = false;
  std::int64_t framesOfPacket_ = 0;  // 0 where packets differ, or of pictures
  std::int64_t priming_ = 0;         // frames before the movie's time 0
  bool hasDecodeTime_ = false;
  std::unique_ptr<TrackEncoder> pcm_;
};

}  // namespace tavrel
