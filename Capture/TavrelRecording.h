#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Geometry.h"

namespace tavrel {

/// What became of the frames and sound of one movie since its writing started.
struct TavrelRecordingStatistics {
  std::uint64_t framesWritten = 0;      ///< safely in the file
  std::uint64_t late = 0;               ///< lost in capture, mostly because its queue was busy
  std::uint64_t busy = 0;               ///< lost: the previous frame was still in the effects
  std::uint64_t whileSwitching = 0;     ///< lost: the camera was being switched or its effects changed
  std::uint64_t lostInWriter = 0;       ///< lost: the encoder's queue was full
  std::uint64_t soundLostInWriter = 0;  ///< audio buffers lost: the encoder's queue was full

  std::uint64_t framesLost() const { return late + busy + whileSwitching + lostInWriter; }
};

/// A movie written by a `TavrelRecorder`.
struct TavrelRecording {
  std::filesystem::path file;
  /// Encoded size in pixels: the requested one, rounded up to even numbers if the codec needs that.
  Size size;
  /// Recorded time, without pauses.
  double seconds = 0;
  /// Playable time: all of it, or after an error what had reached the disk; 0 without a playable file.
  double playableSeconds = 0;
  TavrelRecordingStatistics statistics;
  /// Why the recording broke off; nothing if the file is complete.
  std::optional<Error> error;
};

}  // namespace tavrel
