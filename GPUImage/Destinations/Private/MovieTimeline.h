#pragma once

#include <mutex>
#include <optional>

#include "Platform/Media/MediaTime.h"

namespace tavrel {

/// The time line that the streams of a recording share: when it begins, what pauses took out of it, how far each stream
/// has come.
///
///     open ──beginAt──▶ running ──pause──▶ interrupted ──the next sample of either stream measures the gap──▶ running
///       ▲                  │
///       └─────restart──────┘
///
/// It knows times only, no samples and no file. Any thread.
class MovieTimeline {
 public:
  enum class Stream { video, audio };

  /// The time at which the movie begins is open again.
  void restart();
  void beginAt(MediaTime time);
  /// When the movie begins; invalid while that is open.
  MediaTime startTime() const;

  void pause();
  /// What to take off the times of this sample, because it passed in pauses; nothing without any.
  std::optional<MediaTime> timeToCut(Stream stream, MediaTime time);
  /// The place of a frame of this time; nothing for one that would break the file: without a time, or with that of the
  /// frame before it.
  std::optional<MediaTime> placeOfFrame(MediaTime time);
  /// The stream has come to a sample of this time.
  void advance(Stream stream, MediaTime time);

  /// From the beginning to the last frame; where there is none, to the last sound.
  MediaTime duration() const;

 private:
  mutable std::mutex mutex_;
  MediaTime startTime_;
  MediaTime previousFrameTime_ = MediaTime::negativeInfinity();
  MediaTime previousAudioTime_ = MediaTime::negativeInfinity();
  MediaTime offsetTime_;
  bool discont_ = false;
};

}  // namespace tavrel
