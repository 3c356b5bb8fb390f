#pragma once

#include <CLI/CLI.hpp>

#include "Diagnostics.h"
#include "EffectOptions.h"
#include "RecorderOptions.h"
#include "Recording.h"

namespace tavrel::tool {

/// `tavrel record OUTPUT [options]`: camera and microphone through effects into a movie file.
class RecordCommand {
 public:
  explicit RecordCommand(CLI::App& app);
  bool isChosen() const { return command_->parsed(); }
  /// The program's exit status.
  int run();

 private:
  CLI::App* command_;
  EffectOptions effects_;
  RecorderOptions devices_;
  Diagnostics diagnostics_;
  Recording::Options options_;
  bool isForced_ = false;
  bool json_ = false;
};

}  // namespace tavrel::tool
