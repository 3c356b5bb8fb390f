#include "Platform/Media/AudioSession.h"

#include <cmath>

namespace tavrel {

AudioSession& AudioSession::shared() {
  static AudioSession session;
  return session;
}

void AudioSession::setSampleRate(double sampleRate) {
  sampleRate_ = std::isfinite(sampleRate) && sampleRate > 0 ? sampleRate : kDefaultSampleRate;
}

}  // namespace tavrel
