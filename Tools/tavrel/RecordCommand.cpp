#include "RecordCommand.h"

#include <optional>

#include "MovieOptions.h"
#include "Report.h"

namespace tavrel::tool {
namespace {

void checkTimes(const Recording::Options& options) {
  const double fps = options.devices.framesPerSecond;
  if (!(fps >= 1 && fps <= 240)) throw UsageError(fmt::format("--fps {}: expected 1 to 240", fps));
  const std::optional<double>& duration = options.duration;
  const std::optional<double>& pauseAt = options.pauseAt;
  const std::optional<double>& resumeAt = options.resumeAt;
  const std::optional<double>& switchAt = options.switchAt;
  if (duration && !(*duration > 0)) throw UsageError(fmt::format("--duration {}: expected more than 0", *duration));
  if (switchAt && !(*switchAt >= 0)) throw UsageError(fmt::format("--switch-at {}: expected 0 or more", *switchAt));
  if (resumeAt && !pauseAt) throw UsageError("--resume-at needs --pause-at");
  if (pauseAt && !(*pauseAt >= 0)) throw UsageError(fmt::format("--pause-at {}: expected 0 or more", *pauseAt));
  if (resumeAt && !(*resumeAt > *pauseAt)) {
    throw UsageError(fmt::format("--resume-at {}: expected more than --pause-at {}", *resumeAt, *pauseAt));
  }
}

}  // namespace

RecordCommand::RecordCommand(CLI::App& app)
    : command_(app.add_subcommand("record", "Record camera and microphone into a movie")),
      effects_(*command_),
      diagnostics_(*command_) {
  command_->add_option("OUTPUT", options_.output, "The movie to write: .mov, .mp4 or .mkv")->required();
  command_
      ->add_option("--camera", options_.devices.camera, "A name that `tavrel devices` shows, front, back or file:PATH")
      ->type_name("NAME")
      ->capture_default_str();
  command_
      ->add_option("--microphone", options_.devices.microphone,
                   "A name that `tavrel devices` shows, default, file:PATH or none")
      ->type_name("NAME")
      ->capture_default_str();
  command_->add_option("--size", size_, "Of the movie's picture, in pixels")->type_name("WxH")->capture_default_str();
  command_->add_option("--fps", options_.devices.framesPerSecond, "Frames a second")
      ->type_name("N")
      ->capture_default_str();
  command_->add_option("--duration", options_.duration, "Stop after this time, pauses included; else on Ctrl-C")
      ->type_name("SECONDS");
  command_->add_option("--pause-at", options_.pauseAt, "Pause this long after the start")->type_name("SECONDS");
  command_->add_option("--resume-at", options_.resumeAt, "Go on this long after the start")->type_name("SECONDS");
  command_->add_option("--switch-at", options_.switchAt, "Switch to the other camera this long after the start")
      ->type_name("SECONDS");
  command_->add_option("--snapshot", options_.snapshot, "Take a still picture, too: .png or .jpg")->type_name("FILE");
  command_->add_option("--snapshot-at", options_.snapshotAt, "When to take it")
      ->type_name("SECONDS")
      ->capture_default_str();
  command_->add_flag("--preview", options_.hasPreview, "Show what is recorded in a window");
  command_->add_flag("--json", json_, "Print the result as JSON");
}

int RecordCommand::run() {
  checkTimes(options_);
  options_.fileType = fileTypeOf(options_.output);
  options_.devices.size = parsedMovieSize(size_);
  // Before the effects: a window shows only what is drawn on the window system's own display. What keeps it from
  // opening is said by the recording.
  if (options_.hasPreview) (void)Application::shared().startUserInterface();
  return Recording(options_, effects_.makeChain()).run(json_, diagnostics_);
}

}  // namespace tavrel::tool
