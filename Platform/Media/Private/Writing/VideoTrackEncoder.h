#pragma once

#include <optional>

#include "Platform/Media/Private/Writing/PictureConverter.h"
#include "Platform/Media/Private/Writing/TrackEncoder.h"
#include "Platform/Media/Private/Writing/VideoEncoder.h"

namespace tavrel {

/// Pictures to a video track: conversion to 4:2:0, encoding, time stamps.
class VideoTrackEncoder final : public TrackEncoder {
 public:
  VideoTrackEncoder(VideoSettings settings, std::int32_t timescale)
      : settings_(std::move(settings)), timescale_(timescale), converter_(settings_.scalingMode) {}

  Expected<void> check(const MovieFile& file) const override;
  Expected<void> open(TrackOutput output, bool isRealTime) override;
  Expected<void> encode(const TrackSample& sample) override;
  Expected<void> finish() override;

 private:
  /// Opens the encoder that suits the first picture, and the frame rate that came out.
  Expected<void> adopt(const TrackSample& first, double framesPerSecond, bool isFinal);
  bool setFormat(const VideoEncoder& encoder, bool isFinal) const;
  Expected<void> encodePicture(const TrackSample& sample);
  /// Empties the encoder before a long gap in the times: a picture is stored behind others by a short time only.
  Expected<void> beginAnew();
  /// Goes on in software when a device has failed.
  Expected<void> replaceEncoder(const Error& failure);
  VideoEncoder::PacketHandler packetHandler();

  const VideoSettings settings_;
  const std::int32_t timescale_;  // 0: chosen by the first sample
  TrackOutput output_;
  bool isRealTime_ = true;
  std::optional<VideoEncoder> encoder_;
  PictureConverter converter_;
  bool hasFirstSample_ = false;
  std::optional<TrackSample> first_;  // waits for the second, which tells the frame rate
  std::int64_t lastTime_ = -1;
};

}  // namespace tavrel
