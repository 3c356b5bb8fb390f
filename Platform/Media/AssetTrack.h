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

/// A segment of a composition's track: a range of another track, played during `target`.
struct AssetTrackSegment {
  std::shared_ptr<const AssetTrack> track;  ///< nullptr for an empty segment
  MediaTimeRange source;
  MediaTimeRange target;

  bool isEmpty() const { return !track; }
};

/// A track of a file or composition. Immutable; any thread.
class TAVREL_API AssetTrack {
 public:
  /// How to read the track, as far as examining the whole file has shown.
  struct Access {
    bool canSeek = true;             ///< false if the file's clock jumps, so that a time identifies no place
    std::int64_t searchedBytes = 0;  ///< how far to search for tracks; 0 for the usual distance, some 5 MB
  };

  struct Properties {
    std::filesystem::path path;
    int trackID = 0;
    MediaType mediaType = MediaType::video;
    std::string codecName;
    MediaTimeRange timeRange;
    std::int32_t naturalTimescale = 0;
    Size naturalSize;
    AffineTransform preferredTransform;
    Size pixelAspectRatio{1, 1};
    bool containsHDRVideo = false;
    double nominalFrameRate = 0;
    Access access;
    int sampleRate = 0;
    int channelCount = 0;
    bool isDefault = false;
    std::string languageCode;
    std::shared_ptr<const FormatDescription> storedFormat;
    std::vector<AssetTrackSegment> segments;
  };

  explicit AssetTrack(Properties properties) : properties_(std::move(properties)) {}

  /// The track's file; empty for a composition.
  const std::filesystem::path& path() const { return properties_.path; }
  /// The track's index among all tracks of the file; in a composition, a number from 1.
  int trackID() const { return properties_.trackID; }
  MediaType mediaType() const { return properties_.mediaType; }
  /// Short lower-case codec name, such as "h264" or "aac".
  const std::string& codecName() const { return properties_.codecName; }
  /// On the asset's time line. The duration is zero if unknown.
  const MediaTimeRange& timeRange() const { return properties_.timeRange; }
  /// The timescale of the samples that are read.
  std::int32_t naturalTimescale() const { return properties_.naturalTimescale; }
  /// Size of the stored frames in pixels, before `preferredTransform`; zero for audio.
  Size naturalSize() const { return properties_.naturalSize; }
  /// The shape of a stored pixel as two whole numbers, such as 64 and 45; square where the file says nothing.
  Size pixelAspectRatio() const { return properties_.pixelAspectRatio; }
  /// Whether the frames are of high dynamic range, by PQ or HLG of ITU-R BT.2100, as the file says.
  bool containsHDRVideo() const { return properties_.containsHDRVideo; }
  /// Rotates the stored frames upright. Readers deliver them as stored.
  const AffineTransform& preferredTransform() const { return properties_.preferredTransform; }
  /// Mean frame rate per second; 0 for audio or if unknown.
  double nominalFrameRate() const { return properties_.nominalFrameRate; }
  const Access& access() const { return properties_.access; }
  /// Sample rate per second, and channels; 0 for video.
  int sampleRate() const { return properties_.sampleRate; }
  int channelCount() const { return properties_.channelCount; }
  /// Whether players choose the track where there are several.
  bool isDefault() const { return properties_.isDefault; }
  /// ISO 639-2, as "fra"; empty where the file says nothing.
  const std::string& languageCode() const { return properties_.languageCode; }
  /// Format of the stored samples, for passthrough to a writer; nullptr for a composition.
  const std::shared_ptr<const FormatDescription>& storedFormat() const { return properties_.storedFormat; }
  /// Contiguous from 0 for a composition; empty for a file.
  const std::vector<AssetTrackSegment>& segments() const { return properties_.segments; }

 private:
  Properties properties_;
};

}  // namespace tavrel
