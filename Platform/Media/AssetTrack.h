#pragma once

#include <cstdint>
#include <string>

#include "Platform/Foundation/Geometry.h"
#include "Platform/Media/MediaTime.h"
#include "Platform/Media/MediaType.h"

namespace tavrel {

/// What a file says about one of its tracks. Immutable; any thread.
class TAVREL_API AssetTrack {
 public:
  struct Properties {
    int trackID = 0;
    MediaType mediaType = MediaType::video;
    std::string codecName;
    MediaTimeRange timeRange;
    std::int32_t naturalTimescale = 0;
    Size naturalSize;
    AffineTransform preferredTransform;
    double nominalFrameRate = 0;
    int sampleRate = 0;
    int channelCount = 0;
  };

  explicit AssetTrack(Properties properties) : properties_(std::move(properties)) {}

  /// The track's place in the file, counted from 0 over all its tracks.
  int trackID() const { return properties_.trackID; }
  MediaType mediaType() const { return properties_.mediaType; }
  /// Short lower-case name of the coding, for instance "h264" or "aac".
  const std::string& codecName() const { return properties_.codecName; }
  /// Where the track's samples lie on the asset's time line. The duration is zero when the file does not say.
  const MediaTimeRange& timeRange() const { return properties_.timeRange; }
  /// Units in a second of the file's time stamps: the timescale of the samples that are read.
  std::int32_t naturalTimescale() const { return properties_.naturalTimescale; }
  /// Size of the stored pictures in pixels, before `preferredTransform`; zero for sound.
  Size naturalSize() const { return properties_.naturalSize; }
  /// Turns the stored pictures upright. Pictures are delivered as stored.
  const AffineTransform& preferredTransform() const { return properties_.preferredTransform; }
  /// Mean frames a second; 0 for sound and where the file does not say.
  double nominalFrameRate() const { return properties_.nominalFrameRate; }
  /// Samples a second and channels; 0 for pictures.
  int sampleRate() const { return properties_.sampleRate; }
  int channelCount() const { return properties_.channelCount; }

 private:
  Properties properties_;
};

}  // namespace tavrel
