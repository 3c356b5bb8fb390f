#pragma once

#include <atomic>
#include <memory>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Graphics/PixelBufferSnapshot.h"
#include "Platform/Media/AudioBufferList.h"
#include "Platform/Media/FormatDescription.h"
#include "Platform/Media/MediaTime.h"
#include "Platform/Media/Private/Writing/PacketQueue.h"

namespace tavrel {

/// A sample on its way from `append` to the encoder's thread: one of picture, sound and packet.
struct TrackSample {
  std::shared_ptr<const FormatDescription> format;
  std::shared_ptr<const PixelBufferSnapshot> picture;
  std::shared_ptr<const AudioBufferList> sound;
  std::shared_ptr<const Data> packet;
  bool isKeyframe = true;
  std::int64_t frameCount = 0;  ///< of sound
  std::int64_t timeUnits = 0;   ///< of a picture, in the track's timescale
  std::int32_t timescale = 0;   ///< of a picture
  MediaTime presentationTime;   ///< on the movie's time line
  MediaTime decodeTime;         ///< of a packet
  MediaTime duration;
};

/// Turns one track's samples into packets of the movie file. Used by one thread at a time.
class TrackEncoder {
 public:
  virtual ~TrackEncoder() = default;

  /// Whether `file` can hold what this makes. Does not open anything.
  virtual Expected<void> check(const MovieFile& file) const = 0;
  /// Opens the encoder and tells `output` the track's format, where it is known already.
  virtual Expected<void> open(TrackOutput output, bool isRealTime) = 0;
  virtual Expected<void> encode(const TrackSample& sample) = 0;
  /// Writes what the encoder still holds.
  virtual Expected<void> finish() = 0;

  /// Makes a long `encode` return soon. Any thread.
  void stop() { isStopped_ = true; }

 protected:
  std::atomic<bool> isStopped_ = false;
};

}  // namespace tavrel
