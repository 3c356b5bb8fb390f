#include "GPUImage/Destinations/Private/MovieTimeline.h"

namespace tavrel {

void MovieTimeline::restart() { beginAt(MediaTime::invalid()); }

void MovieTimeline::beginAt(MediaTime time) {
  const std::lock_guard lock(mutex_);
  startTime_ = time;
}

MediaTime MovieTimeline::startTime() const {
  const std::lock_guard lock(mutex_);
  return startTime_;
}

void MovieTimeline::pause() {
  const std::lock_guard lock(mutex_);
  discont_ = true;
}

std::optional<MediaTime> MovieTimeline::timeToCut(Stream stream, MediaTime time) {
  const std::lock_guard lock(mutex_);
  // Raw values are tested, whatever their timescale.
  if (discont_) {
    const MediaTime current = offsetTime_.value > 0 ? time - offsetTime_ : time;
    const MediaTime gap = current - (stream == Stream::video ? previousFrameTime_ : previousAudioTime_);
    offsetTime_ = offsetTime_.value == 0 ? gap : offsetTime_ + gap;
    discont_ = false;
  }
  return offsetTime_.value > 0 ? std::optional(offsetTime_) : std::nullopt;
}

std::optional<MediaTime> MovieTimeline::placeOfFrame(MediaTime time) {
  if (const auto cut = timeToCut(Stream::video, time)) time = time - *cut;
  const std::lock_guard lock(mutex_);
  if (!time.isValid() || time == previousFrameTime_ || time.isIndefinite()) return std::nullopt;
  return time;
}

void MovieTimeline::advance(Stream stream, MediaTime time) {
  const std::lock_guard lock(mutex_);
  (stream == Stream::video ? previousFrameTime_ : previousAudioTime_) = time;
}

MediaTime MovieTimeline::duration() const {
  const std::lock_guard lock(mutex_);
  if (!startTime_.isValid()) return MediaTime::zero();
  for (const MediaTime& end : {previousFrameTime_, previousAudioTime_}) {
    if (!end.isNegativeInfinity()) return end - startTime_;
  }
  return MediaTime::zero();
}

}  // namespace tavrel
