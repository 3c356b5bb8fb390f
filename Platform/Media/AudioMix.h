#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "Platform/Foundation/Export.h"
#include "Platform/Media/VideoComposition.h"

namespace tavrel {

/// The volume of a track in a mix. A value; one thread at a time.
class TAVREL_API AudioMixInputParameters {
 public:
  explicit AudioMixInputParameters(int trackID) : trackID_(trackID) {}

  int trackID() const { return trackID_; }
  /// Sets the gain, 0 or more, from `time` on.
  void setVolume(double volume, MediaTime time);
  /// Changes the gain linearly during the range; the last value holds afterwards.
  void setVolumeRamp(double startVolume, double endVolume, const MediaTimeRange& timeRange);
  /// Before the first ramp its first value; 1 without a ramp.
  double volumeAt(MediaTime time) const;

 private:
  int trackID_;
  std::vector<Ramp<double>> volumes_;
};

/// How audio tracks are mixed into one. Tracks without parameters have volume 1. Immutable.
class TAVREL_API AudioMix {
 public:
  explicit AudioMix(std::vector<AudioMixInputParameters> inputParameters)
      : inputParameters_(std::move(inputParameters)) {}

  const std::vector<AudioMixInputParameters>& inputParameters() const { return inputParameters_; }

 private:
  const std::vector<AudioMixInputParameters> inputParameters_;
};

}  // namespace tavrel
