#include <fmt/chrono.h>

#include <chrono>
#include <ctime>
#include <map>

#include "CameraOutputOptions.h"
#include "Command.h"
#include "Diagnostics.h"
#include "EffectOptions.h"
#include "EncodingOptions.h"
#include "HintLine.h"
#include "RecorderCalls.h"
#include "RecorderOptions.h"
#include "Report.h"

namespace tavrel::tool {
namespace {

/// A name that is not taken yet, in the working folder.
std::filesystem::path newMovieName() {
  const std::string name = fmt::format("tavrel-{:%Y%m%d-%H%M%S}", fmt::localtime(std::time(nullptr)));
  std::filesystem::path path = name + ".mov";
  for (int i = 2; std::filesystem::exists(path); ++i) path = fmt::format("{}-{}.mov", name, i);
  return path;
}

class PreviewCommand : public Command {
 public:
  explicit PreviewCommand(CLI::App& app)
      : Command(
            app, "preview",
            "Show the camera in a window. Click to focus; keys: s switches the camera, r starts and stops a recording, "
            "p pauses it, t toggles the torch, h hides the line that tells these, q quits"),
        effects_(*command_),
        devices_(*command_, "640x480"),
        encoding_(*command_, EncodingOptions::Copying::impossible),
        cameraOutput_(CameraOutputOptions::besides(*command_)),
        diagnostics_(*command_) {
    command_->add_flag("--no-hints", hidesHints_, "Do not begin with the line of keys on the picture");
  }

  int run() override {
    devices_.check();
    encoding_.check();
    // First of all: a window shows only what is drawn on the window system's own display. What keeps it from opening is
    // said when it is opened; wrong usage is said on machines without a display as well.
    (void)Application::shared().startUserInterface();
    const TavrelRecorderConfiguration configuration = devices_.configuration(effects_.makeChain());
    auto recorder = openRecorder(configuration, devices_.zoom());
    if (!recorder) return fail("{}", recorder.error().description);
    recorder_ = std::move(*recorder);
    recorder_->setEventHandler(sayEvent);
    const auto shown = cameraOutput_.attachTo(*recorder_, configuration.size, configuration.framesPerSecond);
    if (!shown) return fail("{}", shown.error().description);
    const auto window = Window::create("tavrel preview", configuration.size);
    if (!window) return fail("a window is asked for and none can be had: {}", window.error().description);
    (*window)->setCloseHandler([this] { end(); });
    (*window)->setKeyHandler([this](std::string_view key) { pressed(key); });
    recorder_->previewView()->setFillsSuperview(true);
    (*window)->rootView()->addSubview(recorder_->previewView());
    hints_ = std::make_shared<HintLine>();
    hints_->setHidden(hidesHints_);
    (*window)->rootView()->addSubview(hints_);
    showHints();
    return diagnostics_.measure(false, [this] { return look(); });
  }

 private:
  int look() {
    if (const auto started = startDevices(*recorder_); !started) return fail("{}", started.error().description);
    // The clock of a recording.
    const DispatchTimer timer(DispatchQueue::main(), std::chrono::milliseconds(250), [this] { showHints(); });
    // It may have been told to end while the devices started.
    if (!isEnding_ && !Application::shared().isTerminating()) RunLoop::main().run();
    recorder_->stop();
    if (recorder_->isWriting()) finishRecording();
    recorder_->previewView()->removeFromSuperview();
    return kSuccess;
  }

  void end() {
    isEnding_ = true;
    RunLoop::main().stop();
  }

  void pressed(std::string_view key) {
    const std::map<std::string_view, std::function<void()>> actions = {
        {"S", [this] { switchToNextCamera(*recorder_->camera()); }},
        {"R", [this] { toggleRecording(); }},
        {"P", [this] { togglePause(); }},
        {"T", [this] { toggleTorch(); }},
        {"+", [this] { zoomBy(1.25); }},
        {"=", [this] { zoomBy(1.25); }},
        {"Keypad +", [this] { zoomBy(1.25); }},
        {"-", [this] { zoomBy(0.8); }},
        {"Keypad -", [this] { zoomBy(0.8); }},
        {"H", [this] { hints_->setHidden(!hints_->isHidden()); }},
        {"Q", [this] { end(); }},
    };
    if (const auto action = actions.find(key); action != actions.end()) action->second();
    showHints();
  }

  /// What keys do now, and for how long there is a recording, pauses left out.
  void showHints() {
    const auto now = std::chrono::steady_clock::now();
    if (!recorder_->isWriting()) return hints_->setText("R RECORD  S CAMERA  T TORCH  H HIDE  Q QUIT", false);
    const bool isPaused = recorder_->isPaused();
    if (!isPaused) recorded_ += now - counted_;
    counted_ = now;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(recorded_).count();
    hints_->setText(fmt::format("{:02}:{:02}  {}  R STOP  H HIDE", seconds / 60, seconds % 60,
                                isPaused ? "PAUSED  P GO ON" : "P PAUSE"),
                    true);
  }

  void toggleRecording() {
    if (recorder_->isWriting()) return finishRecording();
    const std::filesystem::path movie = newMovieName();
    const TavrelRecordingOptions options = {.settings = encoding_.videoSettings(),
                                            .audioSettings = encoding_.audioSettings()};
    const auto writing = recorder_->startWriting(movie, options);
    if (!writing) return say("{}", writing.error().description);
    // From now on the camera runs in the background, too.
    recorder_->camera()->removeObservers();
    say("recording {}", movie.string());
    recorded_ = {};
    counted_ = std::chrono::steady_clock::now();
  }

  void togglePause() {
    if (recorder_->isPaused()) return recorder_->resume();
    recorder_->pause();
  }

  void finishRecording() {
    const TavrelRecording recording = finishMovie(*recorder_);
    if (recording.error) return (void)sayBrokenOff(recording);
    fmt::print("{} {:.1f} s\n", recording.file.string(), recording.seconds);
  }

  void toggleTorch() {
    const auto& camera = recorder_->camera();
    const bool isOn = camera->torchMode() == CaptureTorchMode::on;
    camera->setPreferredTorchMode(isOn ? CaptureTorchMode::off : CaptureTorchMode::on);
  }

  void zoomBy(double factor) {
    const auto& camera = recorder_->camera();
    const double most = std::max(1.0, camera->videoMaxZoomFactor());
    camera->setPreferredVideoZoomFactor(std::clamp(camera->videoZoomFactor() * factor, 1.0, most));
  }

  EffectOptions effects_;
  RecorderOptions devices_;
  EncodingOptions encoding_;
  CameraOutputOptions cameraOutput_;
  Diagnostics diagnostics_;
  bool hidesHints_ = false;
  bool isEnding_ = false;
  std::shared_ptr<TavrelRecorder> recorder_;
  std::shared_ptr<HintLine> hints_;
  std::chrono::steady_clock::duration recorded_ = {};
  std::chrono::steady_clock::time_point counted_;
};

}  // namespace

std::unique_ptr<Command> makePreviewCommand(CLI::App& app) { return std::make_unique<PreviewCommand>(app); }

}  // namespace tavrel::tool
