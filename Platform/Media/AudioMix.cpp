#include "Platform/Media/AudioMix.h"

#include "Platform/Foundation/Finite.h"
#include "Platform/Media/Private/Composing/Ramps.h"

namespace tavrel {

void AudioMixInputParameters::setVolume(double volume, MediaTime time) {
  setVolumeRamp(volume, volume, {time, MediaTime::zero()});
}

void AudioMixInputParameters::setVolumeRamp(double startVolume, double endVolume, const MediaTimeRange& timeRange) {
  if (!isFinite(startVolume) || !isFinite(endVolume)) return;
  addRamp(volumes_, {startVolume, endVolume, timeRange});
}

double AudioMixInputParameters::volumeAt(MediaTime time) const { return levelAt(volumes_, time); }

}  // namespace tavrel
