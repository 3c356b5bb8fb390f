#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "CaptureRig.h"
#include "Diagnostics.h"
#include "EffectOptions.h"

namespace tavrel::tool {

/// `tavrel preview [--camera NAME] [EFFECTS]`: the camera through effects in a window. A click focuses; keys: s
/// switches the camera, r begins and ends a recording, p pauses it, t turns the torch on and off, q quits.
class PreviewCommand {
 public:
  explicit PreviewCommand(CLI::App& app);
  bool isChosen() const { return command_->parsed(); }
  /// The program's exit status.
  int run();

 private:
  void pressed(std::string_view key);
  void toggleRecording();
  void finishRecording();
  void toggleTorch();

  CLI::App* command_;
  EffectOptions effects_;
  Diagnostics diagnostics_;
  CaptureRig::Options devices_;
  std::string size_ = "640x480";
  std::shared_ptr<CaptureRig> rig_;
  std::filesystem::path recording_;
};

}  // namespace tavrel::tool
