#include <csignal>
#include <optional>
#include <utility>

#include "CameraOutputOptions.h"
#include "Command.h"
#include "EffectOptions.h"
#include "Interruption.h"
#include "RecorderCalls.h"
#include "RecorderOptions.h"
#include "Report.h"

namespace tavrel::tool {
namespace {

volatile std::sig_atomic_t pauseToggles = 0;

class CameraCommand : public Command {
 public:
  explicit CameraCommand(CLI::App& app)
      : Command(app, "camera",
                "Be a camera for other programs, until Ctrl-C. The real camera runs while somebody looks; SIGUSR1 "
                "pauses, and goes on"),
        effects_(*command_),
        devices_(*command_, "1280x720", RecorderOptions::Sound::none),
        output_(CameraOutputOptions::ofCameraCommand(*command_)) {}

  int run() override {
    devices_.check();
    const TavrelRecorderConfiguration configuration = devices_.configuration(effects_.makeChain());
    auto recorder = openRecorder(configuration, devices_.zoom());
    if (!recorder) return fail("{}", recorder.error().description);
    recorder_ = std::move(*recorder);
    recorder_->setEventHandler(sayEvent);
    const auto output = output_.attachTo(*recorder_, configuration.size, configuration.framesPerSecond);
    if (!output) return fail("{}", output.error().description);
    (*output)->setReadersHandler([this](bool hasReaders) { followReaders(hasReaders); });
    const Interruption interruption;
    std::signal(SIGUSR1, [](int) { pauseToggles = pauseToggles + 1; });
    say("a camera for other programs; Ctrl-C ends it");
    while (!interruption.isAskedFor() && !problem_) {
      RunLoop::main().runUntil([this] { return problem_.has_value(); }, std::chrono::milliseconds(100));
      (*output)->setPaused(pauseToggles % 2 != 0);
    }
    recorder_->stop();
    return problem_ ? fail("{}", *problem_) : kSuccess;
  }

 private:
  void followReaders(bool hasReaders) {
    isWanted_ = hasReaders;
    if (isChanging_) return;  // then what is wanted is looked at again
    if (!isWanted_) {
      if (std::exchange(isRunning_, false)) recorder_->stop();
      return;
    }
    if (isRunning_) return;
    isChanging_ = true;
    recorder_->startWithCompletion([this](const std::optional<Error>& error) {
      isChanging_ = false;
      isRunning_ = !error;
      if (error) problem_ = error->description;
      followReaders(isWanted_ && !error);
    });
  }

  EffectOptions effects_;
  RecorderOptions devices_;
  CameraOutputOptions output_;
  std::shared_ptr<TavrelRecorder> recorder_;
  std::optional<std::string> problem_;
  bool isWanted_ = false;
  bool isRunning_ = false;
  bool isChanging_ = false;
};

}  // namespace

std::unique_ptr<Command> makeCameraCommand(CLI::App& app) { return std::make_unique<CameraCommand>(app); }

}  // namespace tavrel::tool
