#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "EffectOptions.h"

namespace tavrel::tool {

/// `tavrel preview [--camera NAME] [EFFECTS]`: the camera through effects in a window, until it is closed or 'q' is
/// pressed. A click shows the focus ring.
class PreviewCommand {
 public:
  explicit PreviewCommand(CLI::App& app);
  bool isChosen() const { return command_->parsed(); }
  /// The program's exit status.
  int run();

 private:
  CLI::App* command_;
  EffectOptions effects_;
  std::string camera_ = "front";
};

}  // namespace tavrel::tool
