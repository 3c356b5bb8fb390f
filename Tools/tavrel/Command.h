#pragma once

#include <CLI/CLI.hpp>
#include <memory>

namespace tavrel::tool {

/// What the program is asked to do, with its options.
class Command {
 public:
  Command(CLI::App& app, const char* name, const char* description) : command_(app.add_subcommand(name, description)) {}
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;
  virtual ~Command() = default;

  bool isChosen() const { return command_->parsed(); }
  /// The program's exit status.
  virtual int run() = 0;

 protected:
  CLI::App* const command_;
};

/// `tavrel devices [--json]`: the cameras and microphones that there are.
std::unique_ptr<Command> makeDevicesCommand(CLI::App& app);
/// `tavrel filter INPUT OUTPUT [EFFECTS]`: a picture through the graph.
std::unique_ptr<Command> makeFilterCommand(CLI::App& app);
/// `tavrel preview [--camera NAME] [EFFECTS]`: the camera through effects in a window. A click focuses; keys: s
/// switches the camera, r begins and ends a recording, p pauses it, t turns the torch on and off, q quits.
std::unique_ptr<Command> makePreviewCommand(CLI::App& app);
/// `tavrel record OUTPUT [options]`: camera and microphone through effects into a movie file.
std::unique_ptr<Command> makeRecordCommand(CLI::App& app);
/// `tavrel transcode INPUT OUTPUT [options]`: a movie through effects into another movie.
std::unique_ptr<Command> makeTranscodeCommand(CLI::App& app);

}  // namespace tavrel::tool
