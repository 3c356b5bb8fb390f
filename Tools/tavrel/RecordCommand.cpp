#include <optional>

#include "CameraOutputOptions.h"
#include "Command.h"
#include "Diagnostics.h"
#include "EffectOptions.h"
#include "EncodingOptions.h"
#include "MovieOptions.h"
#include "RecorderOptions.h"
#include "Recording.h"

namespace tavrel::tool {
namespace {

void checkTimes(const Recording::Options& options) {
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

class RecordCommand : public Command {
 public:
  explicit RecordCommand(CLI::App& app)
      : Command(app, "record", "Record camera and microphone to a movie"),
        effects_(*command_),
        devices_(*command_, "1280x720"),
        encoding_(*command_, EncodingOptions::Copying::impossible),
        cameraOutput_(CameraOutputOptions::besides(*command_)),
        diagnostics_(*command_) {
    command_->add_option("OUTPUT", options_.output, "The movie to write: .mov, .mp4, .mkv or .webm")->required();
    command_->add_option("--duration", options_.duration, "Stop after this time, pauses included; else on Ctrl-C")
        ->type_name("SECONDS");
    command_->add_option("--pause-at", options_.pauseAt, "Pause at this time after the start")->type_name("SECONDS");
    command_->add_option("--resume-at", options_.resumeAt, "Resume at this time after the start")->type_name("SECONDS");
    command_->add_option("--switch-at", options_.switchAt, "Switch to the other camera at this time after the start")
        ->type_name("SECONDS");
    command_->add_option("--snapshot", options_.snapshot, "Also take a still picture: .png or .jpg")->type_name("FILE");
    command_->add_option("--snapshot-at", options_.snapshotAt, "When to take it")
        ->type_name("SECONDS")
        ->capture_default_str();
    command_->add_flag("--preview", options_.hasPreview, "Show what is recorded in a window");
    command_->add_flag("--force", isForced_, "Replace a file that has the movie's name");
    addFragmentedFlag(*command_, options_.isFragmented);
    command_->add_flag("--json", json_, "Print the result as JSON");
  }

  int run() override {
    devices_.check();
    encoding_.check();
    options_.videoSettings = encoding_.videoSettings();
    options_.audioSettings = encoding_.audioSettings();
    options_.zoom = devices_.zoom();
    checkTimes(options_);
    (void)fileTypeOf(options_.output);
    if (!mayWrite(options_.output, isForced_)) return kFailure;
    // Before the effects: a window shows only what is drawn on the window system's own display. What keeps it from
    // opening is said by the recording.
    if (options_.hasPreview) (void)Application::shared().startUserInterface();
    Recording recording(options_, devices_.configuration(effects_.makeChain()), cameraOutput_);
    return diagnostics_.measure(json_, [&] { return recording.run(json_, diagnostics_); });
  }

 private:
  EffectOptions effects_;
  RecorderOptions devices_;
  EncodingOptions encoding_;
  CameraOutputOptions cameraOutput_;
  Diagnostics diagnostics_;
  Recording::Options options_;
  bool isForced_ = false;
  bool json_ = false;
};

}  // namespace

std::unique_ptr<Command> makeRecordCommand(CLI::App& app) { return std::make_unique<RecordCommand>(app); }

}  // namespace tavrel::tool
