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

/// Initial settings of a recorder. For NaN and infinity the default is taken.
struct TavrelRecorderConfiguration {
  /// A name as `CaptureDevice::deviceNamed` takes it: a device's name or identity, "front", "back" or "file:PATH".
  std::string camera = "front";
  /// Likewise; "default" for the system's microphone, or no sound where there is none; empty for none.
  std::string microphone = "default";
  Size size = {1280, 720};  ///< of the movies' frames, in pixels
  double framesPerSecond = 30;
  double audioOffset = 0;  ///< seconds by which movies have their sound later, besides the latency that devices tell
  std::vector<std::shared_ptr<TavrelCaptureEffect>> effects = {};  ///< in order of application
};

/// Options of one movie.
struct TavrelRecordingOptions {
  /// One of the `kFileType…` values; if empty, chosen by the extension .mov, .mp4, .mkv or .webm.
  std::string fileType = {};
  /// Seconds after the first frame, pauses included, from which on frames and sound are left out. A frame due less than
  /// half a frame earlier is left out, too. None if not finite.
  std::optional<double> durationLimit = {};
  /// See `AssetWriter::setStaysFragmented`.
  bool staysFragmented = false;
  /// Further output settings of the movie writer, for instance `kVideoPresetKey` or `kTavrelEncodingLiveVideoKey`.
  Dictionary settings = {};
  /// Further settings of the sound track, for instance `kAudioEncoderBitRateKey`. By default it has the codec usual for
  /// the file type and the microphone's channels, at most two.
  Dictionary audioSettings = {};
};

}  // namespace tavrel
