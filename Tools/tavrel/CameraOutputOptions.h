#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// Where and as what a command shows its pictures as a camera for other programs.
class CameraOutputOptions {
 public:
  /// `--name` and `--to`, for a command that does nothing else.
  static CameraOutputOptions ofCameraCommand(CLI::App& command);
  /// `--camera-output` and `--camera-name`, for commands that may do it besides.
  static CameraOutputOptions besides(CLI::App& command);

  CameraOutputOptions(const CameraOutputOptions&) = delete;
  CameraOutputOptions& operator=(const CameraOutputOptions&) = delete;

  /// Makes the camera, if one is asked for, and has the recorder show its pictures there. What fails later is printed.
  /// Returns nullptr without one.
  Expected<std::shared_ptr<TavrelGPUImageCameraOutput>> attachTo(TavrelRecorder& recorder, Size size,
                                                                 double framesPerSecond) const;

 private:
  CameraOutputOptions(CLI::App& command, const char* destination, const char* name, std::string defaultDestination);

  TavrelGPUImageCameraOutput::Configuration configuration_;
};

}  // namespace tavrel::tool
