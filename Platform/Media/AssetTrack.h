#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Foundation/Geometry.h"
#include "Platform/Media/FormatDescription.h"
#include "Platform/Media/MediaTime.h"
#include "Platform/Media/MediaType.h"

namespace tavrel {

class AssetTrack;

/// A piece of a composition's track: a range of another track, played where and as long as `target` says.
struct AssetTrackSegment {
  std::shared_ptr<const AssetTrack> track;  ///< nullptr where the track is empty
  MediaTimeRange source;
  MediaTimeRange target;

  bool isEmpty() const { return !track; }
};

/// What a file or a composition says about one of its tracks. Immutable; any thread.
class TAVREL_API AssetTrack {
 public:
  struct Properties {
    std::filesystem::path path;
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
    std::shared_ptr<const FormatDescription> storedFormat;
    std::vector<AssetTrackSegment> segments;
  };

  explicit AssetTrack(Properties properties) : properties_(std::move(properties)) {}

  /// The file that holds the track; empty for a track of a composition.
  const std::filesystem::path& path() const { return properties_.path; }
  /// The track's place in the file, counted from 0 over all its tracks; in a composition a number of its own.
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
  /// What the stored samples are, for a writer that takes them as they come; nullptr for a track of a composition.
  const std::shared_ptr<const FormatDescription>& storedFormat() const { return properties_.storedFormat; }
  /// The pieces of a composition's track, one behind the other from 0; none for a track of a file.
  const std::vector<AssetTrackSegment>& segments() const { return properties_.segments; }

 private:
  Properties properties_;
};

}  // namespace tavrel
