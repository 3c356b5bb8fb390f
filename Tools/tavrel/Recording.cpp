#include "Recording.h"

#include <csignal>
#include <utility>

namespace tavrel::tool {
namespace {

volatile std::sig_atomic_t isInterrupted = 0;

void interrupt(int) {
  isInterrupted = 1;
}

/// The largest part of a picture of `size`, centred, that has the proportions of `wanted`; in 0…1.
Rect centredPart(Size size, Size wanted) {
  const Rect part = rectWithAspectRatioInsideRect(wanted, {{0, 0}, size});
  return {{part.origin.x / size.width, part.origin.y / size.height},
          {part.size.width / size.width, part.size.height / size.height}};
}

}  // namespace

Recording::Recording(Options options, EffectChain effects)
    : options_(std::move(options)), effects_(std::move(effects)) {}

int Recording::run(bool printJson) {
  if (const auto opened = openDevices(); !opened) return fail("{}", opened.error().description);
  buildGraph();
  if (const auto error = writer_->error()) return fail("{}", error->description);

  isInterrupted = 0;
  std::signal(SIGINT, interrupt);
  std::signal(SIGTERM, interrupt);
  start();
  if (const auto error = writer_->error()) {
    stop();
    return fail("{}", error->description);
  }
  {
    ProgressBar progress;
    record(progress);
  }
  stop();
  return report(printJson);
}

Expected<void> Recording::openDevices() {
  const bool isSideways = effects_.turnsSideways();
  auto camera = VirtualCamera::create(options_.camera, {.width = isSideways ? options_.height : options_.width,
                                                        .height = isSideways ? options_.width : options_.height,
                                                        .frameRate = options_.framesPerSecond});
  if (!camera) return tl::unexpected(camera.error());
  camera_ = *camera;
  if (options_.microphone == "none") return {};
  auto microphone = VirtualMicrophone::create(options_.microphone, {});
  if (!microphone) return tl::unexpected(microphone.error());
  microphone_ = *microphone;
  AudioSession::shared().setSampleRate(microphone_->configuration().sampleRate);
  return {};
}

void Recording::buildGraph() {
  const Size movieSize = {static_cast<double>(options_.width), static_cast<double>(options_.height)};
  writer_ = std::make_shared<TavrelGPUImageMovieWriter>(options_.output, movieSize, options_.fileType, std::nullopt);
  if (microphone_) writer_->setHasAudioTrack(true);

  const Size cameraSize = {static_cast<double>(camera_->configuration().width),
                           static_cast<double>(camera_->configuration().height)};
  auto crop = std::make_shared<TavrelGPUImageCropFilter>(centredPart(effects_.sizeAfter(cameraSize), movieSize));
  const auto last = effects_.connect(input_, cameraSize);
  last->addTarget(crop);
  crop->addTarget(writer_);
}

void Recording::start() {
  writer_->startRecording();
  // Both devices count from the same instant, a little ahead so that neither starts late.
  startTime_ =
      CaptureClock::realTime()->now() + MediaTime::make(CaptureClock::kTimescale / 10, CaptureClock::kTimescale);
  camera_->start([this](std::shared_ptr<PixelBuffer> pixelBuffer, MediaTime time) { receiveFrame(pixelBuffer, time); },
                 cameraQueue_, startTime_);
  if (!microphone_) return;
  microphone_->start([this](std::shared_ptr<SampleBuffer> sound) { receiveSound(sound); }, microphoneQueue_,
                     startTime_);
}

void Recording::receiveFrame(const std::shared_ptr<PixelBuffer>& pixelBuffer, MediaTime time) {
  const double seconds = (time - startTime_).seconds();
  // Half a frame of tolerance: the frame at the very end belongs to what comes after.
  if (options_.duration && seconds > *options_.duration - 0.5 / options_.framesPerSecond) {
    isOver_ = true;
    return;
  }
  pauseOrResume(seconds);
  elapsed_ = seconds;
  effects_.advanceTo(seconds);
  ++(input_->processCVPixelBuffer(pixelBuffer, time, false) ? framesTaken_ : framesRefused_);
}

void Recording::receiveSound(const std::shared_ptr<SampleBuffer>& sound) {
  const double end = (sound->presentationTimeStamp() + sound->duration() - startTime_).seconds();
  if (options_.duration && end > *options_.duration) return;
  writer_->processAudioBuffer(sound);
}

void Recording::pauseOrResume(double seconds) {
  if (!options_.pauseAt) return;
  const double resumeAt = options_.resumeAt.value_or(seconds + 1);
  writer_->setPaused(seconds >= *options_.pauseAt && seconds < resumeAt);
}

bool Recording::isBrokenOff() const {
  return writer_->assetWriter()->status() == AssetWriterStatus::failed;
}

void Recording::record(ProgressBar& progress) {
  constexpr std::chrono::milliseconds kStep(100);
  while (!isOver_ && !isInterrupted && !isBrokenOff()) {
    RunLoop::main().runUntil([this] { return isOver_.load(); }, kStep);
    const double fraction = options_.duration ? elapsed_ / *options_.duration : 0;
    progress.show(fraction, fmt::format("{:.1f} s{}", elapsed_.load(), writer_->isPaused() ? ", paused" : ""));
  }
}

void Recording::stop() {
  camera_->stop();
  if (microphone_) microphone_->stop();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});  // the last frame is delivered
  DispatchSemaphore finished(0);
  writer_->finishRecordingWithCompletionHandler([&finished] { finished.signal(); });
  finished.wait();
}

int Recording::report(bool printJson) const {
  const std::string name = options_.output.string();
  if (isBrokenOff()) {
    const auto error = writer_->error();
    return fail("the recording broke off: {}; {} is kept and plays up to {:.1f} s", error ? error->description : "?",
                name, writer_->assetWriter()->writtenUntil().seconds());
  }
  const std::uint64_t dropped = camera_->droppedFrames() + framesRefused_ + writer_->droppedVideoFrames();
  const double seconds = writer_->duration().seconds();
  const Size encoded = writer_->encodedSize();
  if (encoded != writer_->maximumOutputSize()) {
    say("the codec takes even sizes only: {}x{} is stored as {:.0f}x{:.0f}, its last row or column repeated",
        options_.width, options_.height, encoded.width, encoded.height);
  }
  if (printJson) {
    fmt::print(
        "{{\"output\": {}, \"width\": {:.0f}, \"height\": {:.0f}, \"seconds\": {:.3f}, \"frames\": {}, "
        "\"dropped\": {}}}\n",
        jsonString(name), encoded.width, encoded.height, seconds, framesTaken_ - writer_->droppedVideoFrames(),
        dropped);
  } else {
    fmt::print("{} {:.0f}x{:.0f}, {:.1f} s, {} frames", name, encoded.width, encoded.height, seconds,
               framesTaken_ - writer_->droppedVideoFrames());
    if (dropped > 0) fmt::print(", {} dropped because this machine was too slow", dropped);
    fmt::print("\n");
  }
  return kSuccess;
}

}  // namespace tavrel::tool
