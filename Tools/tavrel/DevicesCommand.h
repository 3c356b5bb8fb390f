#pragma once

#include <CLI/CLI.hpp>

namespace tavrel::tool {

/// `tavrel devices [--json]`: the cameras and microphones that there are.
class DevicesCommand {
 public:
  explicit DevicesCommand(CLI::App& app);
  bool isChosen() const { return command_->parsed(); }
  /// The program's exit status.
  int run() const;

 private:
  CLI::App* command_;
  bool json_ = false;
};

}  // namespace tavrel::tool
