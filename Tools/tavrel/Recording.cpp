#include "Recording.h"

#include <csignal>
#include <utility>

namespace tavrel::tool {
namespace {

volatile std::sig_atomic_t isInterrupted = 0;

void interrupt(int) {
  isInterrupted = 1;
}

}  // namespace

Recording::Recording(Options options, EffectChain effects)
    : options_(std::move(options)), effects_(std::move(effects)) {}

int Recording::run(bool printJson, Diagnostics& diagnostics) {
  if (const auto started = diagnostics.start(); !started) return fail("{}", started.error().description);
  const int status = perform(printJson, diagnostics);
  return diagnostics.finish(status, printJson);
}

int Recording::perform(bool printJson, Diagnostics& diagnostics) {
  if (const auto opened = openPreview(); !opened) return fail("{}", opened.error().description);
  auto rig = CaptureRig::create(options_.devices, effects_);
  if (!rig) return fail("{}", rig.error().description);
  rig_ = *rig;
  if (window_) {
    rig_->camera()->previewView()->setFillsSuperview(true);
    window_->rootView()->addSubview(rig_->camera()->previewView());
  }
  rig_->setFrameHandler([this](double seconds) { return acceptFrame(seconds); });
  if (options_.duration) rig_->setSoundLimit(*options_.duration);

  isInterrupted = 0;
  std::signal(SIGINT, interrupt);
  std::signal(SIGTERM, interrupt);
  const auto writing = rig_->startWriting(options_.output, options_.fileType);
  if (!writing) return fail("{}", writing.error().description);
  if (const auto started = rig_->start(); !started) {
    rig_->writer()->cancelRecording();
    return fail("{}", started.error().description);
  }
  {
    ProgressBar progress;
    record(progress);
  }
  rig_->stop();
  rig_->finishWriting();
  if (window_) rig_->camera()->previewView()->removeFromSuperview();
  return report(printJson, diagnostics);
}

Expected<void> Recording::openPreview() {
  if (!options_.hasPreview) return {};
  auto window = Window::create("tavrel record", options_.devices.size);
  if (!window) {
    return failure("tavrel", 1,
                   fmt::format("a window is asked for and none can be had: {}", window.error().description));
  }
  window_ = *window;
  window_->setCloseHandler([this] { isOver_ = true; });
  return {};
}

bool Recording::acceptFrame(double seconds) {
  // Half a frame of tolerance: the frame at the very end belongs to what comes after.
  if (options_.duration && seconds > *options_.duration - 0.5 / options_.devices.framesPerSecond) {
    isOver_ = true;
    return false;
  }
  elapsed_ = seconds;
  if (options_.pauseAt) {
    const double resumeAt = options_.resumeAt.value_or(seconds + 1);
    rig_->writer()->setPaused(seconds >= *options_.pauseAt && seconds < resumeAt);
  }
  return true;
}

void Recording::record(ProgressBar& progress) {
  constexpr std::chrono::milliseconds kStep(100);
  // A camera that stops delivering must not keep the recording from its end.
  constexpr double kPatience = 1;
  const double begin = CaptureClock::current()->nowSeconds();
  while (!isOver_ && !isInterrupted && !rig_->isBrokenOff()) {
    RunLoop::main().runUntil([this] { return isOver_.load(); }, kStep);
    actOnTime();
    const double passed = CaptureClock::current()->nowSeconds() - begin;
    if (options_.duration && passed > *options_.duration + kPatience) isOver_ = true;
    const double fraction = options_.duration ? elapsed_ / *options_.duration : 0;
    progress.show(fraction, fmt::format("{:.1f} s{}", elapsed_.load(), rig_->writer()->isPaused() ? ", paused" : ""));
  }
  if (options_.snapshot && !hasAskedForSnapshot_) snapshotProblem_ = "the recording ended before it was due";
  RunLoop::main().runUntil([this] { return isSnapshotOver_.load(); }, std::chrono::seconds(10));
}

void Recording::actOnTime() {
  if (options_.switchAt && elapsed_ >= *options_.switchAt && !hasSwitched_) {
    hasSwitched_ = true;
    rig_->camera()->switchCamera();
  }
  if (options_.snapshot && elapsed_ >= options_.snapshotAt && !hasAskedForSnapshot_) takeSnapshot();
}

void Recording::takeSnapshot() {
  hasAskedForSnapshot_ = true;
  isSnapshotOver_ = false;
  rig_->camera()->snapshotWithCompletion(
      [this](const std::shared_ptr<Image>& image, const std::optional<Error>& error) {
        if (error) {
          snapshotProblem_ = error->description;
        } else if (const auto written = ImageDestination::write(image, *options_.snapshot); !written) {
          snapshotProblem_ = written.error().description;
        }
        isSnapshotOver_ = true;
      });
}

int Recording::report(bool printJson, Diagnostics& diagnostics) const {
  const std::string name = options_.output.string();
  const auto& writer = rig_->writer();
  if (rig_->isBrokenOff()) {
    const std::string reason = writer->error() ? writer->error()->description : "?";
    const double until = writer->assetWriter()->writtenUntil().seconds();
    if (until <= 0) return fail("the recording broke off: {}; nothing was recorded", reason);
    return fail("the recording broke off: {}; the file plays up to {:.2f} s; {} is kept", reason, until, name);
  }
  const double seconds = writer->duration().seconds();
  const std::uint64_t frames = rig_->framesWritten() - writer->droppedVideoFrames();
  const Size encoded = writer->encodedSize();
  if (encoded != writer->maximumOutputSize()) {
    say("the codec takes even sizes only: {:.0f}x{:.0f} is stored as {:.0f}x{:.0f}, its last row or column repeated",
        options_.devices.size.width, options_.devices.size.height, encoded.width, encoded.height);
  }
  if (printJson) {
    fmt::print(
        "{{\"output\": {}, \"width\": {:.0f}, \"height\": {:.0f}, \"seconds\": {:.3f}, \"frames\": {}, "
        "\"dropped\": {}{}}}\n",
        jsonString(name), encoded.width, encoded.height, seconds, frames, rig_->framesLost(), diagnostics.json());
  } else {
    fmt::print("{} {:.0f}x{:.0f}, {:.1f} s, {} frames", name, encoded.width, encoded.height, seconds, frames);
    if (rig_->framesLost() > 0) fmt::print(", {} lost", rig_->framesLost());
    fmt::print("\n");
  }
  if (snapshotProblem_) return fail("no snapshot: {}", *snapshotProblem_);
  return kSuccess;
}

}  // namespace tavrel::tool
