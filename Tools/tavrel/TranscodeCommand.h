#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "Diagnostics.h"
#include "EffectOptions.h"
#include "Transcoding.h"

namespace tavrel::tool {

/// `tavrel transcode INPUT OUTPUT [options]`: a movie through effects into another movie.
class TranscodeCommand {
 public:
  explicit TranscodeCommand(CLI::App& app);
  bool isChosen() const { return command_->parsed(); }
  /// The program's exit status.
  int run();

 private:
  CLI::App* command_;
  EffectOptions effects_;
  Diagnostics diagnostics_;
  Transcoding::Options options_;
  std::string size_;
  bool noAudio_ = false;
  bool isForced_ = false;
  bool json_ = false;
};

}  // namespace tavrel::tool
