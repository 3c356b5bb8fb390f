#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Foundation/Dictionary.h"
#include "Platform/Foundation/Geometry.h"

namespace tavrel {

class TavrelCaptureEffect;

/// With what a `TavrelRecorder` begins.
struct TavrelRecorderConfiguration {
  /// As `CaptureDevice::deviceNamed` takes it: a name or an identity, "front", "back" or "file:PATH".
  std::string camera = "front";
  /// As for the camera; "default" for the system's, empty for no sound.
  std::string microphone = "default";
  /// Of the movies' pictures, in pixels.
  Size size = {1280, 720};
  double framesPerSecond = 30;
  /// In the order in which they are applied.
  std::vector<std::shared_ptr<TavrelCaptureEffect>> effects = {};
};

/// How one movie is written.
struct TavrelRecordingOptions {
  /// One of the `kFileType…` values; empty: as the file's name ends, in .mov, .mp4 or .mkv.
  std::string fileType = {};
  /// Frames and sound from this many seconds after the first frame on are left out, pauses included. A frame that is
  /// due less than half a frame before belongs to what is left out.
  std::optional<double> durationLimit = {};
  /// Further output settings of the movie writer, for instance `kVideoPresetKey` or `kTavrelEncodingLiveVideoKey`.
  Dictionary settings = {};
};

}  // namespace tavrel
