#include "Recording.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Platform/Capture/CaptureClock.h"
#include "RecorderCalls.h"
#include "WrittenMovie.h"

namespace tavrel::tool {

Recording::Recording(Options options, TavrelRecorderConfiguration configuration,
                     const CameraOutputOptions& cameraOutput)
    : options_(std::move(options)), configuration_(std::move(configuration)), cameraOutput_(cameraOutput) {}

int Recording::run(bool printJson, Diagnostics& diagnostics) {
  if (options_.hasPreview) {
    auto window = Window::create("tavrel record", configuration_.size);
    if (!window) return fail("a window is asked for and none can be had: {}", window.error().description);
    window_ = std::move(*window);
    window_->setCloseHandler([this] { isOver_ = true; });
  }
  auto recorder = openRecorder(configuration_, options_.zoom);
  if (!recorder) return fail("{}", recorder.error().description);
  recorder_ = std::move(*recorder);
  if (window_) {
    recorder_->previewView()->setFillsSuperview(true);
    window_->rootView()->addSubview(recorder_->previewView());
    // A window that is put away ends the view, not the recording.
    recorder_->camera()->removeObservers();
  }
  recorder_->setFrameHandler([this](double seconds) { actOnFrame(seconds); });
  recorder_->setEventHandler([this](const TavrelRecorderEvent& event) {
    using Kind = TavrelRecorderEvent::Kind;
    sayEvent(event);
    if (event.kind == Kind::limitReached || event.kind == Kind::writingBrokeOff) isOver_ = true;
  });

  const auto shown = cameraOutput_.attachTo(*recorder_, configuration_.size, configuration_.framesPerSecond);
  if (!shown) return fail("{}", shown.error().description);

  const Interruption interruption;
  const auto writing = recorder_->startWriting(options_.output, {.durationLimit = options_.duration,
                                                                 .staysFragmented = options_.isFragmented,
                                                                 .settings = options_.videoSettings,
                                                                 .audioSettings = options_.audioSettings});
  if (!writing) return fail("{}", writing.error().description);
  if (const auto started = startDevices(*recorder_, [&] { return interruption.isAskedFor(); }); !started) {
    recorder_->cancelWriting();
    return fail("{}", started.error().description);
  }
  record(interruption);
  recorder_->stop();
  const TavrelRecording recording = finishMovie(*recorder_);
  if (window_) recorder_->previewView()->removeFromSuperview();
  if (recording.error) return sayBrokenOff(recording);
  return report(recording, printJson, diagnostics);
}

void Recording::record(const Interruption& interruption) {
  constexpr std::chrono::milliseconds kStep(100);
  // A camera that stops delivering must not keep the recording from its end, nor one that never begins; many take
  // seconds to begin.
  constexpr double kPatience = 1;
  constexpr double kLongestBeginning = 5;
  ProgressBar progress;
  const double latestBeginning = CaptureClock::current()->nowSeconds() + kLongestBeginning;
  while (!isOver_ && !interruption.isAskedFor()) {
    RunLoop::main().runUntil([this] { return isOver_; }, kStep);
    actOnTime();
    const double first = firstFrameAt_;
    const double passed = CaptureClock::current()->nowSeconds() - (std::isinf(first) ? latestBeginning : first);
    if (options_.duration && passed > *options_.duration + kPatience) isOver_ = true;
    const double fraction = options_.duration ? elapsed_ / *options_.duration : 0;
    progress.show(fraction, fmt::format("{:.1f} s{}", elapsed_.load(), recorder_->isPaused() ? ", paused" : ""));
  }
  if (options_.snapshot && !hasAskedForSnapshot_) snapshotProblem_ = "the recording ended before it was due";
  RunLoop::main().runUntil([this] { return isSnapshotOver_; }, std::chrono::seconds(10));
}

void Recording::actOnFrame(double seconds) {
  elapsed_ = seconds;
  if (std::isinf(firstFrameAt_)) firstFrameAt_ = CaptureClock::current()->nowSeconds();
  if (!options_.pauseAt) return;
  const bool isPause = seconds >= *options_.pauseAt && seconds < options_.resumeAt.value_or(seconds + 1);
  if (isPause) {
    recorder_->pause();
  } else {
    recorder_->resume();
  }
}

void Recording::actOnTime() {
  if (options_.switchAt && elapsed_ >= *options_.switchAt && !hasSwitched_) {
    hasSwitched_ = true;
    switchToNextCamera(*recorder_->camera());
  }
  if (options_.snapshot && elapsed_ >= options_.snapshotAt && !hasAskedForSnapshot_) takeSnapshot();
}

void Recording::takeSnapshot() {
  hasAskedForSnapshot_ = true;
  isSnapshotOver_ = false;
  recorder_->snapshotWithCompletion([this](const std::shared_ptr<Image>& image, const std::optional<Error>& error) {
    if (error) {
      snapshotProblem_ = error->description;
    } else if (const auto written = ImageDestination::write(image, *options_.snapshot); !written) {
      snapshotProblem_ = written.error().description;
    }
    isSnapshotOver_ = true;
  });
}

int Recording::report(const TavrelRecording& recording, bool printJson, Diagnostics& diagnostics) const {
  const WrittenMovie movie = {.file = recording.file,
                              .askedSize = configuration_.size,
                              .size = recording.size,
                              .seconds = recording.seconds,
                              .frames = recording.statistics.framesWritten,
                              .framesLost = recording.statistics.framesLost(),
                              .camera = sayDelivery(*recorder_->camera(), configuration_)};
  movie.report(printJson, diagnostics);
  return snapshotProblem_ ? fail("no snapshot: {}", *snapshotProblem_) : kSuccess;
}

}  // namespace tavrel::tool
