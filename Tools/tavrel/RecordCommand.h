#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>
#include <optional>
#include <string>

#include "Diagnostics.h"
#include "EffectOptions.h"

namespace tavrel::tool {

/// `tavrel record OUTPUT [options]`: camera and microphone through effects into a movie file.
class RecordCommand {
 public:
  explicit RecordCommand(CLI::App& app);
  bool isChosen() const { return command_->parsed(); }
  /// The program's exit status.
  int run();

 private:
  void checkTimes() const;

  CLI::App* command_;
  EffectOptions effects_;
  Diagnostics diagnostics_;
  std::filesystem::path output_;
  std::string camera_ = "front";
  std::string microphone_ = "default";
  std::string size_ = "1280x720";
  double framesPerSecond_ = 30;
  std::optional<double> duration_;
  std::optional<double> pauseAt_;
  std::optional<double> resumeAt_;
  std::optional<double> switchAt_;
  std::optional<std::filesystem::path> snapshot_;
  double snapshotAt_ = 0;
  bool hasPreview_ = false;
  bool json_ = false;
};

}  // namespace tavrel::tool
