#include "Capture/TavrelRecorder.h"

#include <fmt/format.h>

#include <cmath>
#include <mutex>
#include <utility>

#include "Capture/Audio/TavrelMicrophone.h"
#include "Capture/Private/FittedDestination.h"
#include "Capture/Private/RecordedDevices.h"
#include "Capture/Private/RecordedMovie.h"
#include "Capture/Video/TavrelCamera.h"
#include "Effects/TavrelCaptureEffectChain.h"
#include "GPUImage/Destinations/TavrelGPUImageCameraOutput.h"
#include "GPUImage/Destinations/TavrelGPUImageView.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "Platform/Capture/CaptureDevice.h"
#include "Platform/Capture/CaptureDeviceFormat.h"
#include "Platform/Capture/CaptureDeviceInput.h"
#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/CaptureSession.h"
#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Foundation/Finite.h"
#include "Platform/Foundation/NotificationCenter.h"
#include "Platform/Foundation/Notifications.h"
#include "Platform/Media/AudioSession.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {
namespace {

/// A quarter turn at the end of the chain needs a frame that lies on its side to begin with, large enough to fill the
/// movie's.
Size cameraSizeFor(Size movieSize, const TavrelCamera::CaptureEffects& effects) {
  if (!TavrelCaptureEffectChain(effects).turnsSideways()) return movieSize;
  return {movieSize.width, std::round(movieSize.width * movieSize.width / movieSize.height)};
}

TavrelRecorderConfiguration finite(TavrelRecorderConfiguration wanted) {
  const TavrelRecorderConfiguration defaults;
  if (!isFinite(wanted.size)) wanted.size = defaults.size;
  if (!isFinite(wanted.framesPerSecond)) wanted.framesPerSecond = defaults.framesPerSecond;
  if (!isFinite(wanted.audioOffset)) wanted.audioOffset = defaults.audioOffset;
  return wanted;
}

/// A camera for other programs, and the way there.
struct CameraOutputPath {
  explicit CameraOutputPath(std::shared_ptr<TavrelGPUImageCameraOutput> target)
      : output(std::move(target)), destination(output, output->maximumOutputSize()) {}

  const std::shared_ptr<TavrelGPUImageCameraOutput> output;
  FittedDestination destination;
};

}  // namespace

struct TavrelRecorder::Implementation : TavrelCameraDelegate,
                                        TavrelMicrophoneDelegate,
                                        std::enable_shared_from_this<Implementation> {
  using Kind = TavrelRecorderEvent::Kind;

  explicit Implementation(TavrelRecorderConfiguration wanted) : configuration(finite(std::move(wanted))) {}
  ~Implementation() override {
    for (const auto token : observers) NotificationCenter::defaultCenter().removeObserver(token);
  }

  Expected<void> openCamera();
  Expected<void> openMicrophone();
  void watch(const CaptureSession& session, Kind lost, Kind back);
  void startMicrophone(StartCompletion completion);
  void startCamera(StartCompletion completion);
  void report(TavrelRecorderEvent event);
  void setPaused(bool isPaused);
  /// The movie that was being written; nothing more goes into it once the video-processing queue has come this far.
  std::shared_ptr<RecordedMovie> takeMovie();

  void didGetProcessedFramebuffer(TavrelCamera& sender, const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer,
                                  const SampleTiming& timing) override;
  void didGetProcessedSampleBuffer(TavrelMicrophone& sender, const std::shared_ptr<SampleBuffer>& sample) override;

  template <typename Value>
  Value read(const Value& value) const {
    const std::lock_guard lock(mutex);
    return value;
  }

  const TavrelRecorderConfiguration configuration;
  std::shared_ptr<TavrelCamera> camera;
  std::shared_ptr<TavrelMicrophone> microphone;
  int soundChannelCount = 0;
  std::vector<NotificationCenter::ObserverToken> observers;

  std::mutex startMutex;
  mutable std::mutex mutex;  // guards what follows
  std::shared_ptr<RecordedMovie> movie;
  std::shared_ptr<CameraOutputPath> cameraOutput;
  EventHandler eventHandler;
  std::shared_ptr<const FrameHandler> frameHandler;
};

Expected<void> TavrelRecorder::Implementation::openCamera() {
  const auto device = CaptureDevice::deviceNamed(configuration.camera, MediaType::video, CaptureDevicePosition::back);
  if (!device) return tl::unexpected(device.error());
  TavrelCameraConfiguration wanted;
  wanted.size = cameraSizeFor(configuration.size, configuration.effects);
  wanted.preferredSessionPreset = fmt::format("{:.0f}x{:.0f}", configuration.size.width, configuration.size.height);
  wanted.preferredDevicePosition = (*device)->position();
  wanted.preferredDeviceID = (*device)->uniqueID();
  wanted.preferredMinFrameRate = wanted.preferredMaxFrameRate = configuration.framesPerSecond;
  wanted.captureEffects = configuration.effects;
  auto made = TavrelCamera::create(wanted);
  if (!made) return tl::unexpected(made.error());
  camera = *made;
  if (camera->deviceID() != (*device)->uniqueID()) {
    const auto input = CaptureDeviceInput::create(*device);
    return failure(TavrelRecorderErrorCode::cameraUnavailable,
                   fmt::format("{} cannot be opened{}", (*device)->localizedName(),
                               input ? "" : ": " + input.error().description));
  }
  camera->setDelegate(weak_from_this());
  watch(*camera->session(), Kind::cameraLost, Kind::cameraBack);
  return {};
}

Expected<void> TavrelRecorder::Implementation::openMicrophone() {
  if (configuration.microphone.empty()) return {};
  const auto device = CaptureDevice::deviceNamed(configuration.microphone, MediaType::audio);
  const bool isAnyWelcome = configuration.microphone == TavrelRecorderConfiguration().microphone;
  if (!device && isAnyWelcome && device.error() == CaptureErrorCode::noSuchDevice) return {};
  if (!device) return tl::unexpected(device.error());
  auto made = TavrelMicrophone::create({.mute = false, .deviceID = (*device)->uniqueID()});
  if (!made) return tl::unexpected(made.error());
  microphone = *made;
  microphone->setDelegate(weak_from_this());
  const AudioFormat format = (*device)->activeFormat()->audioFormat;
  AudioSession::shared().setSampleRate(format.sampleRate);
  soundChannelCount = static_cast<int>(format.channelCount);
  watch(*microphone->captureSession(), Kind::microphoneLost, Kind::microphoneBack);
  return {};
}

void TavrelRecorder::Implementation::watch(const CaptureSession& session, Kind lost, Kind back) {
  const auto observe = [&](const char* name, Kind kind) {
    observers.push_back(NotificationCenter::defaultCenter().addObserver(
        name,
        [weakThis = weak_from_this(), kind](std::string_view, const void* object) {
          const auto self = weakThis.lock();
          if (self) self->report({kind, static_cast<const CaptureSession*>(object)->runtimeError()});
        },
        &session));
  };
  observe(kCaptureSessionRuntimeErrorNotification, lost);
  observe(kCaptureSessionDidRecoverNotification, back);
}

void TavrelRecorder::Implementation::report(TavrelRecorderEvent event) {
  DispatchQueue::main()->async([weakThis = weak_from_this(), event = std::move(event)] {
    const auto self = weakThis.lock();
    const EventHandler handler = self ? self->read(self->eventHandler) : nullptr;
    if (handler) handler(event);
  });
}

std::shared_ptr<RecordedMovie> TavrelRecorder::Implementation::takeMovie() {
  const std::lock_guard lock(mutex);
  return std::exchange(movie, nullptr);
}

void TavrelRecorder::Implementation::startMicrophone(StartCompletion completion) {
  if (!microphone) return completion(std::nullopt);
  microphone->startWithCompletion([completion = std::move(completion)](bool isGranted, std::optional<Error> error) {
    if (!isGranted) {
      error = makeError(TavrelRecorderErrorCode::microphoneRefused, "the system refuses access to the microphone");
    }
    completion(error);
  });
}

void TavrelRecorder::Implementation::startCamera(StartCompletion completion) {
  camera->startWithCompletion([completion = std::move(completion)](bool isGranted) {
    if (isGranted) return completion(std::nullopt);
    completion(makeError(TavrelRecorderErrorCode::cameraRefused, "the system refuses access to the camera"));
  });
}

void TavrelRecorder::Implementation::didGetProcessedFramebuffer(
    TavrelCamera& sender, const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer, const SampleTiming& timing) {
  const MediaTime time = timing.presentationTimeStamp;
  if (!time.isNumeric()) return;  // a snapshot has no time
  // Behind the movie's frame handler, which may pause both.
  const auto deliverToCameraOutput = [&] {
    const auto path = read(cameraOutput);
    if (path && path->output->enabled()) path->destination.deliver(framebuffer, time);
  };
  const auto current = read(movie);
  if (!current) return deliverToCameraOutput();
  const MediaTime place = current->placeOf(time, sender.captureTime(time));
  if (const auto handler = read(frameHandler)) (*handler)(current->secondsUntil(place));
  deliverToCameraOutput();
  current->append(framebuffer, place);
}

void TavrelRecorder::Implementation::didGetProcessedSampleBuffer(TavrelMicrophone& sender,
                                                                 const std::shared_ptr<SampleBuffer>& sample) {
  if (const auto current = read(movie)) current->append(sample, sender.captureTime());
}

Expected<std::shared_ptr<TavrelRecorder>> TavrelRecorder::create(const TavrelRecorderConfiguration& configuration) {
  auto implementation = std::make_shared<Implementation>(configuration);
  if (auto opened = implementation->openCamera(); !opened) return tl::unexpected(opened.error());
  if (auto opened = implementation->openMicrophone(); !opened) return tl::unexpected(opened.error());
  DispatchQueue::global()->async(&AssetWriter::prepare);
  return std::shared_ptr<TavrelRecorder>(new TavrelRecorder(std::move(implementation)));
}

TavrelRecorder::TavrelRecorder(std::shared_ptr<Implementation> implementation)
    : implementation_(std::move(implementation)) {}

TavrelRecorder::~TavrelRecorder() {
  stop();
  implementation_->takeMovie();
}

const std::shared_ptr<TavrelCamera>& TavrelRecorder::camera() const { return implementation_->camera; }

const std::shared_ptr<TavrelMicrophone>& TavrelRecorder::microphone() const { return implementation_->microphone; }

const std::shared_ptr<TavrelGPUImageView>& TavrelRecorder::previewView() const { return camera()->previewView(); }

void TavrelRecorder::setEffects(std::vector<std::shared_ptr<TavrelCaptureEffect>> effects) {
  const Size size = cameraSizeFor(implementation_->configuration.size, effects);
  camera()->setCaptureEffects(std::move(effects));
  if (camera()->size() != size) camera()->setSize(size);
}

void TavrelRecorder::startWithCompletion(StartCompletion completion) {
  const auto answer = [completion = std::move(completion)](const std::optional<Error>& error) {
    if (completion) DispatchQueue::main()->async([completion, error] { completion(error); });
  };
  // The sound first: a movie begins with its first frame.
  implementation_->startMicrophone([self = implementation_, answer](const std::optional<Error>& failed) {
    if (failed) return answer(failed);
    self->startCamera([self, answer](const std::optional<Error>& error) {
      if (error && self->microphone) self->microphone->stop();
      answer(error);
    });
  });
}

void TavrelRecorder::stop() {
  camera()->stop();
  if (microphone()) microphone()->stop();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
}

Expected<void> TavrelRecorder::startWriting(const std::filesystem::path& file, const TavrelRecordingOptions& options) {
  const std::lock_guard starting(implementation_->startMutex);
  if (isWriting()) {
    return failure(TavrelRecorderErrorCode::alreadyWriting, "a movie is being written: finish it first");
  }
  auto movie = RecordedMovie::create(
      file, implementation_->configuration, options, implementation_->soundChannelCount, camera()->statistics(),
      [camera = camera()->session(), sound = microphone() ? microphone()->captureSession() : nullptr] {
        return isStamped(*camera) && (!sound || isStamped(*sound));
      },
      [weak = std::weak_ptr(implementation_)](TavrelRecorderEvent event) {
        if (const auto self = weak.lock()) self->report(std::move(event));
      });
  if (!movie) return tl::unexpected(movie.error());
  const std::lock_guard lock(implementation_->mutex);
  implementation_->movie = std::move(*movie);
  return {};
}

void TavrelRecorder::finishWritingWithCompletion(FinishCompletion completion) {
  const auto answer = [completion = std::move(completion)](Expected<TavrelRecording> recording) {
    if (completion)
      DispatchQueue::main()->async([completion, recording = std::move(recording)] { completion(recording); });
  };
  const auto movie = implementation_->takeMovie();
  if (!movie) return answer(failure(TavrelRecorderErrorCode::notWriting, "no movie is being written"));
  // Behind the frame that is on its way into it; and not on that queue, which must not wait for the writer's.
  TavrelRunAsynchronouslyOnVideoProcessingQueue(
      [movie, answer, losses = camera()->statistics(), session = camera()->session()] {
        DispatchQueue::global()->async([movie, answer, losses, session] {
          movie->finish(losses, [answer, session](TavrelRecording recording) {
            answer(withPictures(std::move(recording), *session));
          });
        });
      });
}

void TavrelRecorder::cancelWriting() {
  const auto movie = implementation_->takeMovie();
  if (!movie) return;
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  movie->cancel();
}

bool TavrelRecorder::isWriting() const { return implementation_->read(implementation_->movie) != nullptr; }

void TavrelRecorder::setCameraOutput(std::shared_ptr<TavrelGPUImageCameraOutput> output) {
  auto path = output ? std::make_shared<CameraOutputPath>(std::move(output)) : nullptr;
  const std::lock_guard lock(implementation_->mutex);
  implementation_->cameraOutput.swap(path);
}

void TavrelRecorder::pause() { implementation_->setPaused(true); }

void TavrelRecorder::resume() { implementation_->setPaused(false); }

void TavrelRecorder::Implementation::setPaused(bool isPaused) {
  if (const auto current = read(movie)) current->setPaused(isPaused);
  if (const auto path = read(cameraOutput)) path->output->setPaused(isPaused);
}

bool TavrelRecorder::isPaused() const {
  const auto movie = implementation_->read(implementation_->movie);
  const auto path = implementation_->read(implementation_->cameraOutput);
  return movie ? movie->isPaused() : path && path->output->isPaused();
}

void TavrelRecorder::snapshotWithCompletion(SnapshotCompletion completion) {
  camera()->snapshotWithCompletion(
      [completion = std::move(completion)](std::shared_ptr<Image> image, std::optional<Error> error) {
        DispatchQueue::main()->async(
            [completion, image = std::move(image), error = std::move(error)] { completion(image, error); });
      });
}

TavrelRecordingStatistics TavrelRecorder::statistics() const {
  const auto movie = implementation_->read(implementation_->movie);
  return movie ? movie->statistics(camera()->statistics()) : TavrelRecordingStatistics();
}

void TavrelRecorder::setEventHandler(EventHandler handler) {
  const std::lock_guard lock(implementation_->mutex);
  implementation_->eventHandler = std::move(handler);
}

void TavrelRecorder::setFrameHandler(FrameHandler handler) {
  const std::lock_guard lock(implementation_->mutex);
  implementation_->frameHandler = handler ? std::make_shared<const FrameHandler>(std::move(handler)) : nullptr;
}

}  // namespace tavrel
