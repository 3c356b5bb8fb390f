#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "TavrelCaptureBase.h"

namespace tavrel::studio {

/// What the studio keeps from one time to the next.
struct Settings {
  std::string camera = {};             ///< a `CaptureDevice::uniqueID`; empty: the first one
  std::string microphone = "default";  ///< likewise; "default", or empty for none
  Size size = {1280, 720};             ///< of movies, in pixels
  double framesPerSecond = 30;
  std::string codec = kVideoCodecH264;       ///< a value of `kVideoCodecKey`
  std::string container = ".mov";            ///< the extension of movies
  double quality = 0.75;                     ///< of their pictures, 0 to 1
  std::filesystem::path movieFolder = {};    ///< empty: the person's own for videos
  std::filesystem::path stillFolder = {};    ///< empty: the person's own for pictures
  bool mirrors = false;                      ///< the picture in the window, not in movies
  std::string cameraName = "Tavrel Studio";  ///< of the camera for other programs
  double zoomOfPanels = 1;                   ///< besides the display's scale
  bool showsPanels = true;
  Size windowSize = {1280, 800};     ///< in points
  double bytesPerSecond = 0;         ///< of the latest movie; 0 before the first
  nlohmann::json effects = nullptr;  ///< see `EffectList::json`

  /// Where movies and still pictures go.
  std::filesystem::path movies() const;
  std::filesystem::path stills() const;
  TavrelRecordingOptions recordingOptions() const;

  /// Reads `file`. Without one, and for each value that is missing or senseless, the default is taken; fails if it is
  /// there and cannot be read.
  static Expected<Settings> load(const std::filesystem::path& file);
  /// Replaces `file` at once, and makes its folder.
  Expected<void> save(const std::filesystem::path& file) const;
};

}  // namespace tavrel::studio
