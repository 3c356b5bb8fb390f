#include "CaptureRig.h"

#include <cmath>
#include <optional>
#include <utility>

#include "MovieOptions.h"
#include "Platform/Foundation/Notifications.h"
#include "Report.h"

namespace tavrel::tool {
namespace {

/// A quarter turn at the end of the chain needs a frame that lies on its side to begin with, large enough to fill the
/// movie's.
Size cameraSizeFor(Size movieSize, const EffectChain& effects) {
  if (!effects.turnsSideways()) return movieSize;
  return {movieSize.width, std::round(movieSize.width * movieSize.width / movieSize.height)};
}

bool haveSameProportions(Size first, Size second) {
  return std::abs(first.width * second.height - second.width * first.height) < 0.01 * first.width * second.height;
}

void deliver(TavrelGPUImageInput& input, const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer,
             MediaTime time) {
  input.setInputFramebuffer(framebuffer, 0);
  input.setInputSize(framebuffer->size(), 0);
  TavrelGPUImageOutput::sendFrame(input, time, 0);
}

/// Waits for `isAnswered` while the main thread's work goes on.
template <typename Condition>
Expected<void> waitFor(Condition isAnswered, const char* device) {
  constexpr std::chrono::seconds kPatience(20);
  if (RunLoop::main().runUntil(isAnswered, kPatience)) return {};
  return failure("tavrel", 1, fmt::format("the {} does not start", device));
}

}  // namespace

Expected<std::shared_ptr<CaptureRig>> CaptureRig::create(const Options& options, const EffectChain& effects) {
  const std::shared_ptr<CaptureRig> rig(new CaptureRig);
  if (const auto opened = rig->open(options, effects); !opened) return tl::unexpected(opened.error());
  return rig;
}

CaptureRig::~CaptureRig() {
  for (const auto token : observers_) NotificationCenter::defaultCenter().removeObserver(token);
}

Expected<void> CaptureRig::open(const Options& options, const EffectChain& effects) {
  movieSize_ = options.size;
  const auto device = CaptureDevice::deviceNamed(options.camera, MediaType::video, CaptureDevicePosition::back);
  if (!device) return tl::unexpected(device.error());
  TavrelCameraConfiguration configuration;
  configuration.size = cameraSizeFor(options.size, effects);
  configuration.preferredSessionPreset = fmt::format("{:.0f}x{:.0f}", options.size.width, options.size.height);
  configuration.preferredDevicePosition = (*device)->position();
  configuration.preferredDeviceID = (*device)->uniqueID();
  configuration.preferredMinFrameRate = configuration.preferredMaxFrameRate = options.framesPerSecond;
  configuration.captureEffects = effects.effects();
  auto camera = TavrelCamera::create(configuration);
  if (!camera) return tl::unexpected(camera.error());
  camera_ = *camera;
  camera_->setDelegate(weak_from_this());
  if (camera_->devicePosition() == CaptureDevicePosition::unspecified) {
    return failure("tavrel", 1, fmt::format("{} cannot be opened", (*device)->localizedName()));
  }
  watchDevices();
  if (options.microphone == "none") return {};

  const auto source = CaptureDevice::deviceNamed(options.microphone, MediaType::audio);
  if (!source) return tl::unexpected(source.error());
  auto microphone = TavrelMicrophone::create({.mute = false, .deviceID = (*source)->uniqueID()});
  if (!microphone) return tl::unexpected(microphone.error());
  microphone_ = *microphone;
  microphone_->setDelegate(weak_from_this());
  AudioSession::shared().setSampleRate((*source)->activeFormat()->audioFormat.sampleRate);
  return {};
}

void CaptureRig::watchDevices() {
  auto& center = NotificationCenter::defaultCenter();
  observers_.push_back(
      center.addObserver(kCaptureSessionRuntimeErrorNotification, [](std::string_view, const void* session) {
        const auto error = static_cast<const CaptureSession*>(session)->runtimeError();
        if (error) say("{}; what else there is goes on", error->description);
      }));
  observers_.push_back(center.addObserver(kCaptureSessionDidRecoverNotification,
                                          [](std::string_view, const void*) { say("the device is back"); }));
}

Expected<void> CaptureRig::start() {
  // The sound first: a movie begins with its first frame.
  if (auto started = startMicrophone(); !started) return started;
  std::atomic<int> answer = -1;
  camera_->startWithCompletion([&](bool isGranted) { answer = isGranted; });
  if (auto answered = waitFor([&] { return answer >= 0; }, "camera"); !answered) return answered;
  if (answer == 0) return failure("tavrel", 1, "the system refuses access to the camera");
  return {};
}

Expected<void> CaptureRig::startMicrophone() {
  if (!microphone_) return {};
  std::atomic<int> answer = -1;
  std::optional<Error> problem;
  microphone_->startWithCompletion([&](bool isGranted, std::optional<Error> error) {
    problem = std::move(error);
    answer = isGranted;
  });
  if (auto answered = waitFor([&] { return answer >= 0; }, "microphone"); !answered) return answered;
  if (problem) return tl::unexpected(*problem);
  if (answer == 0) return failure("tavrel", 1, "the system refuses access to the microphone");
  return {};
}

void CaptureRig::stop() {
  camera_->stop();
  if (microphone_) microphone_->stop();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});  // the last frame is delivered
}

std::uint64_t CaptureRig::lostOnTheWay() const {
  const TavrelCameraStatistics statistics = camera_->statistics();
  return statistics.dropped() - statistics.whileNotRunning;
}

Expected<void> CaptureRig::startWriting(const std::filesystem::path& output, const std::string& fileType) {
  crop_->removeAllTargets();
  writer_ = std::make_shared<TavrelGPUImageMovieWriter>(output, movieSize_, fileType, std::nullopt);
  if (microphone_) writer_->setHasAudioTrack(true);
  if (!writer_->error()) writer_->startRecording();
  if (const auto error = writer_->error()) return tl::unexpected(*error);
  crop_->addTarget(writer_);
  firstFrameTime_ = -1;
  framesWritten_ = 0;
  lostBefore_ = lostOnTheWay();
  isWriting_ = true;
  return {};
}

void CaptureRig::finishWriting() {
  isWriting_ = false;
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  DispatchSemaphore finished(0);
  writer_->finishRecordingWithCompletionHandler([&finished] { finished.signal(); });
  finished.wait();
}

bool CaptureRig::isBrokenOff() const {
  return writer_ && writer_->assetWriter()->status() == AssetWriterStatus::failed;
}

std::uint64_t CaptureRig::framesLost() const {
  return lostOnTheWay() - lostBefore_ + writer_->droppedVideoFrames();
}

void CaptureRig::didGetProcessedFramebuffer(TavrelCamera&,
                                            const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer,
                                            const SampleTiming& timing) {
  const MediaTime time = timing.presentationTimeStamp;
  if (!isWriting_ || !time.isNumeric()) return;  // a snapshot has no time
  if (firstFrameTime_ < 0) firstFrameTime_ = time.seconds();
  if (frameHandler_ && !frameHandler_(time.seconds() - firstFrameTime_)) return;
  write(framebuffer, time);
  ++framesWritten_;
}

void CaptureRig::write(const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer, MediaTime time) {
  if (haveSameProportions(framebuffer->size(), movieSize_)) {
    deliver(*writer_, framebuffer, time);
    return;
  }
  if (croppedSize_ != framebuffer->size()) {
    croppedSize_ = framebuffer->size();
    crop_->setCropRegion(centredPart(croppedSize_, movieSize_));
  }
  deliver(*crop_, framebuffer, time);
}

void CaptureRig::didGetProcessedSampleBuffer(TavrelMicrophone&, const std::shared_ptr<SampleBuffer>& sample) {
  const double begin = firstFrameTime_;
  const MediaTime end = sample->presentationTimeStamp();
  if (!isWriting_ || begin < 0 || end.seconds() - begin > soundLimit_) return;
  // The microphone's stamp is the moment at which the whole buffer had been heard.
  SampleTiming timing = sample->timingEntries().front();
  timing.presentationTimeStamp = end - sample->duration();
  if (const auto placed = sample->copyWithNewTiming({timing})) writer_->processAudioBuffer(*placed);
}

}  // namespace tavrel::tool
