#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "Platform/Foundation/Export.h"
#include "Platform/Media/VideoComposition.h"

namespace tavrel {

/// How loud a track is in a mix. Values. One thread at a time.
class TAVREL_API AudioMixInputParameters {
 public:
  explicit AudioMixInputParameters(int trackID) : trackID_(trackID) {}

  int trackID() const { return trackID_; }
  /// A factor, 0 or more, from `time` on.
  void setVolume(double volume, MediaTime time);
  /// From one factor to another, evenly; the last one holds afterwards.
  void setVolumeRamp(double startVolume, double endVolume, const MediaTimeRange& timeRange);
  /// 1 without a ramp; before the first ramp its first value.
  double volumeAt(MediaTime time) const;

 private:
  int trackID_;
  std::vector<Ramp<double>> volumes_;
};

/// How the sound tracks of an asset become one. Tracks without parameters are as loud as they are. Immutable.
class TAVREL_API AudioMix {
 public:
  explicit AudioMix(std::vector<AudioMixInputParameters> inputParameters)
      : inputParameters_(std::move(inputParameters)) {}

  const std::vector<AudioMixInputParameters>& inputParameters() const { return inputParameters_; }

 private:
  const std::vector<AudioMixInputParameters> inputParameters_;
};

}  // namespace tavrel
