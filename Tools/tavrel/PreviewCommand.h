#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string_view>

#include "Diagnostics.h"
#include "EffectOptions.h"
#include "RecorderOptions.h"

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
  int look();
  void pressed(std::string_view key);
  void toggleRecording();
  void togglePause();
  void finishRecording();
  void toggleTorch();

  CLI::App* command_;
  EffectOptions effects_;
  RecorderOptions devices_;
  Diagnostics diagnostics_;
  std::shared_ptr<TavrelRecorder> recorder_;
};

}  // namespace tavrel::tool
