#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// `--camera`, `--microphone`, `--size`, `--fps` and `--zoom` of a command.
class RecorderOptions {
 public:
  enum class Sound { possible, none };

  RecorderOptions(CLI::App& command, std::string defaultSize, Sound sound = Sound::possible);

  /// Throws UsageError for invalid values.
  void check() const;
  double zoom() const { return zoom_; }
  TavrelRecorderConfiguration configuration(const TavrelCaptureEffectChain& effects) const;

 private:
  std::string camera_ = "front";
  std::string microphone_ = "default";
  std::string size_;
  double framesPerSecond_ = 30;
  double zoom_ = 1;
  double audioOffset_ = 0;  // in milliseconds
};

}  // namespace tavrel::tool
