#include "RecordCommand.h"

#include <utility>

#include "MovieOptions.h"
#include "Recording.h"
#include "Report.h"

namespace tavrel::tool {

RecordCommand::RecordCommand(CLI::App& app)
    : command_(app.add_subcommand("record", "Record camera and microphone into a movie")),
      effects_(*command_),
      diagnostics_(*command_) {
  command_->add_option("OUTPUT", output_, "The movie to write: .mov, .mp4 or .mkv")->required();
  command_->add_option("--camera", camera_, "A name that `tavrel devices` shows, front, back or file:PATH")
      ->type_name("NAME")
      ->capture_default_str();
  command_->add_option("--microphone", microphone_, "A name that `tavrel devices` shows, default, file:PATH or none")
      ->type_name("NAME")
      ->capture_default_str();
  command_->add_option("--size", size_, "Of the movie's picture, in pixels")->type_name("WxH")->capture_default_str();
  command_->add_option("--fps", framesPerSecond_, "Frames a second")->type_name("N")->capture_default_str();
  command_->add_option("--duration", duration_, "Stop after this time, pauses included; else on Ctrl-C")
      ->type_name("SECONDS");
  command_->add_option("--pause-at", pauseAt_, "Pause this long after the start")->type_name("SECONDS");
  command_->add_option("--resume-at", resumeAt_, "Go on this long after the start")->type_name("SECONDS");
  command_->add_option("--switch-at", switchAt_, "Switch to the other camera this long after the start")
      ->type_name("SECONDS");
  command_->add_option("--snapshot", snapshot_, "Take a still picture, too: .png or .jpg")->type_name("FILE");
  command_->add_option("--snapshot-at", snapshotAt_, "When to take it")->type_name("SECONDS")->capture_default_str();
  command_->add_flag("--preview", hasPreview_, "Show what is recorded in a window");
  command_->add_flag("--json", json_, "Print the result as JSON");
}

void RecordCommand::checkTimes() const {
  if (!(framesPerSecond_ >= 1 && framesPerSecond_ <= 240)) {
    throw UsageError(fmt::format("--fps {}: expected 1 to 240", framesPerSecond_));
  }
  if (duration_ && !(*duration_ > 0)) throw UsageError(fmt::format("--duration {}: expected more than 0", *duration_));
  if (switchAt_ && !(*switchAt_ >= 0)) throw UsageError(fmt::format("--switch-at {}: expected 0 or more", *switchAt_));
  if (resumeAt_ && !pauseAt_) throw UsageError("--resume-at needs --pause-at");
  if (pauseAt_ && !(*pauseAt_ >= 0)) throw UsageError(fmt::format("--pause-at {}: expected 0 or more", *pauseAt_));
  if (resumeAt_ && !(*resumeAt_ > *pauseAt_)) {
    throw UsageError(fmt::format("--resume-at {}: expected more than --pause-at {}", *resumeAt_, *pauseAt_));
  }
}

int RecordCommand::run() {
  checkTimes();
  Recording::Options options;
  options.output = output_;
  options.fileType = fileTypeOf(output_);
  options.devices = {.camera = camera_,
                     .microphone = microphone_,
                     .size = parsedMovieSize(size_),
                     .framesPerSecond = framesPerSecond_};
  options.duration = duration_;
  options.pauseAt = pauseAt_;
  options.resumeAt = resumeAt_;
  options.switchAt = switchAt_;
  options.snapshot = snapshot_;
  options.snapshotAt = snapshotAt_;
  options.hasPreview = hasPreview_;
  // Before the effects: a window shows only what is drawn on the window system's own display. What keeps it from
  // opening is said by the recording.
  if (hasPreview_) (void)Application::shared().startUserInterface();
  return Recording(std::move(options), effects_.makeChain()).run(json_, diagnostics_);
}

}  // namespace tavrel::tool
