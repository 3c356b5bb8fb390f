#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>

#include "Diagnostics.h"
#include "EffectOptions.h"

namespace tavrel::tool {

/// `tavrel filter INPUT OUTPUT [EFFECTS]`: a picture through the graph.
class FilterCommand {
 public:
  explicit FilterCommand(CLI::App& app);
  bool isChosen() const { return command_->parsed(); }
  /// The program's exit status.
  int run();

 private:
  int filter(TavrelCaptureEffectChain& effects);

  CLI::App* command_;
  EffectOptions effects_;
  Diagnostics diagnostics_;
  std::filesystem::path input_;
  std::filesystem::path output_;
  double quality_ = 0.92;
  double memory_ = 1024;
  bool json_ = false;
};

}  // namespace tavrel::tool
