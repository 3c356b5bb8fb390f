#pragma once

#include <CLI/CLI.hpp>
#include <memory>

namespace tavrel::tool {

/// A command of the program, with its options.
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

/// `tavrel camera [--name NAME] [--to pipewire|/dev/videoN] [EFFECTS]`: is a camera for other programs.
std::unique_ptr<Command> makeCameraCommand(CLI::App& app);
/// `tavrel devices [--json]`: lists cameras and microphones.
std::unique_ptr<Command> makeDevicesCommand(CLI::App& app);
/// `tavrel filter INPUT OUTPUT [EFFECTS]`: applies effects to a picture.
std::unique_ptr<Command> makeFilterCommand(CLI::App& app);
/// `tavrel preview [--camera NAME] [EFFECTS]`: shows the camera through effects in a window. A click focuses; keys: s
/// switches the camera, r starts and stops a recording, p pauses it, t toggles the torch, q quits.
std::unique_ptr<Command> makePreviewCommand(CLI::App& app);
/// `tavrel record OUTPUT [options]`: records camera and microphone, through effects, to a movie file.
std::unique_ptr<Command> makeRecordCommand(CLI::App& app);
/// `tavrel transcode INPUT OUTPUT [options]`: applies effects to a movie.
std::unique_ptr<Command> makeTranscodeCommand(CLI::App& app);

}  // namespace tavrel::tool
