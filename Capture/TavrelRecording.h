#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Geometry.h"

namespace tavrel {

/// What became of the frames and the sound of one movie, from the start of its writing to now or to its end.
struct TavrelRecordingStatistics {
  std::uint64_t framesWritten = 0;      ///< the file has taken them
  std::uint64_t late = 0;               ///< lost: the capture queue was still busy
  std::uint64_t busy = 0;               ///< lost: the frame before was still on its way through the effects
  std::uint64_t whileSwitching = 0;     ///< lost: the camera was being switched or its effects exchanged
  std::uint64_t lostInWriter = 0;       ///< lost: the encoder had no room
  std::uint64_t soundLostInWriter = 0;  ///< buffers of sound that the encoder had no room for

  std::uint64_t framesLost() const { return late + busy + whileSwitching + lostInWriter; }
};

/// A movie that a `TavrelRecorder` has written.
struct TavrelRecording {
  std::filesystem::path file;
  /// Of the stored picture, in pixels: the asked one, rounded up where the codec wants even numbers.
  Size size;
  /// How much was recorded, without pauses.
  double seconds = 0;
  /// How much of it plays: all, or after an error what had reached the disk. 0 when there is no file that plays.
  double playableSeconds = 0;
  TavrelRecordingStatistics statistics;
  /// Why the recording broke off; nothing when the file is complete.
  std::optional<Error> error;
};

}  // namespace tavrel
