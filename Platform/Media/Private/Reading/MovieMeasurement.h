#pragma once

#include <cstdint>
#include <set>
#include <vector>

#include "Platform/Media/AssetTrack.h"
#include "Platform/Media/Private/Reading/SoundHeaders.h"

namespace tavrel {

/// What only a file's packets tell.
struct MovieMeasurement {
  std::vector<std::int64_t> lengths;  ///< of the tracks, in units of theirs; AV_NOPTS_VALUE where unknown
  SoundHeaders headers;
  AssetTrack::Access access;
  std::set<int> farTracks;  ///< that begin farther in the file than tracks are searched for

  /// Reads the file to its end, where its container does not say how long its tracks are; else nothing is measured.
  static MovieMeasurement of(AVFormatContext& file);
};

/// A track's times by the container, on the asset's time line.
MediaTimeRange timeRangeOf(const AVFormatContext& file, const AVStream& stream);

}  // namespace tavrel
