#include "PreviewCommand.h"

#include <fmt/chrono.h>

#include <ctime>
#include <map>

#include "MovieOptions.h"
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

}  // namespace

PreviewCommand::PreviewCommand(CLI::App& app)
    : command_(app.add_subcommand(
          "preview",
          "Look through the camera. A click focuses; keys: s switches the camera, r begins and ends a recording, p "
          "pauses it, t turns the torch on and off, q quits")),
      effects_(*command_),
      diagnostics_(*command_) {
  command_->add_option("--camera", devices_.camera, "A name that `tavrel devices` shows, front, back or file:PATH")
      ->type_name("NAME")
      ->capture_default_str();
  command_->add_option("--microphone", devices_.microphone, "For recordings: a name, default, file:PATH or none")
      ->type_name("NAME")
      ->capture_default_str();
  command_->add_option("--size", size_, "Of the picture, in pixels")->type_name("WxH")->capture_default_str();
  command_->add_option("--fps", devices_.framesPerSecond, "Frames a second")
      ->type_name("N")
      ->check(CLI::Range(1.0, 240.0))
      ->capture_default_str();
}

int PreviewCommand::run() {
  // First of all: a window shows only what is drawn on the window system's own display.
  const auto userInterface = Application::shared().startUserInterface();
  const EffectChain effects = effects_.makeChain();  // wrong usage is said on machines without a display as well
  devices_.size = parsedMovieSize(size_);
  auto rig = CaptureRig::create(devices_, effects);
  if (!rig) return fail("{}", rig.error().description);
  rig_ = *rig;
  if (!userInterface) {
    return fail("a window is asked for and none can be had: {}", userInterface.error().description);
  }
  const auto window = Window::create("tavrel preview", rig_->movieSize());
  if (!window) return fail("a window is asked for and none can be had: {}", window.error().description);
  (*window)->setCloseHandler([] { RunLoop::main().stop(); });
  (*window)->setKeyHandler([this](std::string_view key) { pressed(key); });
  const auto& view = rig_->camera()->previewView();
  view->setFillsSuperview(true);
  (*window)->rootView()->addSubview(view);

  if (const auto started = diagnostics_.start(); !started) return fail("{}", started.error().description);
  if (const auto started = rig_->start(); !started) return fail("{}", started.error().description);
  RunLoop::main().run();
  rig_->stop();
  if (rig_->isWriting()) finishRecording();
  view->removeFromSuperview();
  return diagnostics_.finish(kSuccess);
}

void PreviewCommand::pressed(std::string_view key) {
  const std::map<std::string_view, std::function<void()>> actions = {
      {"S", [this] { rig_->camera()->switchCamera(); }},
      {"R", [this] { toggleRecording(); }},
      {"P",
       [this] {
         if (rig_->isWriting()) rig_->writer()->setPaused(!rig_->writer()->isPaused());
       }},
      {"T", [this] { toggleTorch(); }},
      {"Q", [] { RunLoop::main().stop(); }},
  };
  if (const auto action = actions.find(key); action != actions.end()) action->second();
}

void PreviewCommand::toggleRecording() {
  if (rig_->isWriting()) {
    finishRecording();
    return;
  }
  recording_ = newMovieName();
  if (const auto writing = rig_->startWriting(recording_, fileTypeOf(recording_)); !writing) {
    say("{}", writing.error().description);
  } else {
    say("recording {}", recording_.string());
  }
}

void PreviewCommand::finishRecording() {
  rig_->finishWriting();
  if (rig_->isBrokenOff()) {
    say("the recording broke off: {}; the file plays up to {:.2f} s",
        rig_->writer()->error() ? rig_->writer()->error()->description : "?",
        rig_->writer()->assetWriter()->writtenUntil().seconds());
  } else {
    fmt::print("{} {:.1f} s\n", recording_.string(), rig_->writer()->duration().seconds());
  }
}

void PreviewCommand::toggleTorch() {
  const bool isOn = rig_->camera()->torchMode() == CaptureTorchMode::on;
  rig_->camera()->setPreferredTorchMode(isOn ? CaptureTorchMode::off : CaptureTorchMode::on);
}

}  // namespace tavrel::tool
