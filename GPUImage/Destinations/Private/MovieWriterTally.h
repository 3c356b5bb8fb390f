#pragma once

#include <atomic>
#include <cstdint>

#include "Platform/Media/MediaTime.h"
#include "Platform/Tracing/Tracer.h"

namespace tavrel {

/// Counts what a recording took and could not take, and tells the statistics what became of each frame and sound
/// buffer. Any thread.
class MovieWriterTally {
 public:
  void frameAppended(MediaTime time);
  /// With the time at which the buffer ends.
  void soundAppended(MediaTime end);
  void frameDropped(TraceName reason);
  void soundDropped(TraceName reason);
  /// The file did not take the frame: no drop of the recording's own.
  static void frameRefused();

  std::uint64_t writtenVideoFrames() const { return writtenVideoFrames_; }
  std::uint64_t droppedVideoFrames() const { return droppedVideoFrames_; }
  std::uint64_t droppedAudioBuffers() const { return droppedAudioBuffers_; }

 private:
  static constexpr std::int64_t kNoSound = INT64_MIN;

  std::atomic<std::uint64_t> writtenVideoFrames_ = 0;
  std::atomic<std::uint64_t> droppedVideoFrames_ = 0;
  std::atomic<std::uint64_t> droppedAudioBuffers_ = 0;
  std::atomic<std::int64_t> soundEnd_ = kNoSound;  // in nanoseconds; while tracing
};

}  // namespace tavrel
