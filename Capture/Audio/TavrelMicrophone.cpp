#include "Capture/Audio/TavrelMicrophone.h"

#include <atomic>
#include <cstring>
#include <mutex>
#include <utility>

#include "Platform/Capture/CaptureClock.h"
#include "Platform/Capture/CaptureDevice.h"
#include "Platform/Foundation/NotificationCenter.h"
#include "Platform/Foundation/Notifications.h"
#include "Platform/Media/AudioSession.h"
#include "Platform/Tracing/TraceNames.h"
#include "Platform/Tracing/TraceSpan.h"
#include "TavrelBase/Log/TavrelLogger.h"
#include "TavrelBase/Utils/TavrelUtils.h"

namespace tavrel {

constexpr const char* kTag = "TavrelMicrophone";

namespace {

tl::unexpected<Error> refusal(const char* description) {
  Error error = TavrelNewError(kTavrelErrorCode, description);
  TAVREL_LOG_ERROR(kTag, "{}", error.description);
  return tl::unexpected(std::move(error));
}

Expected<void> setupAudioSession() {
  return AudioSession::shared().setCategory(
      AudioSessionCategory::playAndRecord,
      kAudioSessionCategoryOptionDefaultToSpeaker | kAudioSessionCategoryOptionAllowBluetoothA2DP);
}

void mediaServicesWereReset() {
  if (const auto ready = setupAudioSession(); !ready) {
    TAVREL_LOG_ERROR(kTag, "mediaServicesWereReset, but setupAudioSession error: {}", ready.error().description);
  }
}

Expected<void> muteSampleBuffer(const SampleBuffer& sampleBuffer) {
  const auto list = sampleBuffer.audioBufferList();
  // The number that says that a buffer carries no such list.
  constexpr std::int32_t kInvalidBuffer = -12731;
  std::optional<Error> error;
  if (!TavrelCheckStatus(list ? 0 : kInvalidBuffer, "CMSampleBufferGetAudioBufferListWithRetainedBlockBuffer error",
                         &error)) {
    return tl::unexpected(std::move(*error));
  }
  for (const AudioBuffer& buffer : list->buffers()) std::memset(buffer.data, 0, buffer.byteSize);
  return {};
}

}  // namespace

struct TavrelMicrophone::Implementation {
  /// Unless somebody stops, who does not wait for a device that does not start; the session is as the last one wanted.
  void start() const {
    while (running) {
      session->startRunning();
      if (running) return;
      session->stopRunning();
    }
  }

  std::shared_ptr<CaptureSession> session;
  std::shared_ptr<CaptureConnection> connection;
  std::mutex delegateMutex;
  std::weak_ptr<TavrelMicrophoneDelegate> delegate;
  std::recursive_mutex deliveryMutex;  ///< while the delegate is called, which may stop
  MediaTime captureTime;               ///< of the buffer in delivery
  std::atomic<bool> running = false;
  std::atomic<bool> mute = false;
  NotificationCenter::ObserverToken observer = 0;
};

TavrelMicrophone::TavrelMicrophone(bool mute) : implementation_(std::make_unique<Implementation>()) { setMute(mute); }

Expected<std::shared_ptr<TavrelMicrophone>> TavrelMicrophone::create(
    const TavrelMicrophoneConfiguration& configuration) {
  const std::shared_ptr<TavrelMicrophone> microphone(new TavrelMicrophone(configuration.mute));
  microphone->addObservers();
  if (const auto ready = microphone->setupSession(configuration.deviceID); !ready) return tl::unexpected(ready.error());
  return microphone;
}

TavrelMicrophone::~TavrelMicrophone() {
  NotificationCenter::defaultCenter().removeObserver(implementation_->observer);
  if (implementation_->session) stop();
}

Expected<void> TavrelMicrophone::setupSession(const std::string& deviceID) {
  const auto session = implementation_->session = CaptureSession::create();
  const auto input =
      CaptureDeviceInput::create(deviceID.empty() ? CaptureDevice::defaultDeviceWithMediaType(MediaType::audio)
                                                  : CaptureDevice::deviceWithUniqueID(deviceID));
  if (!input) return tl::unexpected(input.error());
  if (!session->canAddInput(*input)) return refusal("audio input can not be added to session");
  session->addInput(*input);

  const auto output = CaptureAudioDataOutput::create();
  output->setSampleBufferDelegate(weak_from_this(), DispatchQueue::main());
  if (!session->canAddOutput(output)) return refusal("audio data output can not be added to session");
  session->addOutput(output);
  implementation_->connection = output->connectionWithMediaType(MediaType::audio);
  return {};
}

void TavrelMicrophone::addObservers() {
  implementation_->observer = NotificationCenter::defaultCenter().addObserver(
      kAudioSessionMediaServicesWereResetNotification, [weakThis = weak_from_this()](std::string_view, const void*) {
        if (!weakThis.expired()) mediaServicesWereReset();
      });
}

bool TavrelMicrophone::running() const { return implementation_->running; }

const std::shared_ptr<CaptureSession>& TavrelMicrophone::captureSession() const { return implementation_->session; }

bool TavrelMicrophone::mute() const { return implementation_->mute; }

void TavrelMicrophone::setMute(bool mute) { implementation_->mute = mute; }

std::shared_ptr<TavrelMicrophoneDelegate> TavrelMicrophone::delegate() const {
  const std::lock_guard lock(implementation_->delegateMutex);
  return implementation_->delegate.lock();
}

void TavrelMicrophone::setDelegate(std::weak_ptr<TavrelMicrophoneDelegate> delegate) {
  const std::lock_guard lock(implementation_->delegateMutex);
  implementation_->delegate = std::move(delegate);
}

MediaTime TavrelMicrophone::captureTime() const { return implementation_->captureTime; }

float TavrelMicrophone::averagePowerLevel() const {
  const auto channels = implementation_->connection->audioChannels();
  if (channels.empty()) return 0;
  float sum = 0;
  for (const auto& channel : channels) sum += channel->averagePowerLevel();
  return sum / static_cast<float>(channels.size());
}

void TavrelMicrophone::startWithCompletion(StartCompletion completion) {
  if (implementation_->running.exchange(true)) {
    if (completion) DispatchQueue::global()->async([completion = std::move(completion)] { completion(true, {}); });
    return;
  }
  CaptureDevice::requestAccess(MediaType::audio, [microphone = shared_from_this(), completion](bool isGranted) {
    DispatchQueue::global()->async([microphone, completion, isGranted] {
      std::optional<Error> error;
      Implementation& self = *microphone->implementation_;
      if (isGranted) self.start();
      if (isGranted && self.running) {
        if (const auto ready = setupAudioSession(); !ready) {
          error = ready.error();
          self.session->stopRunning();
        }
      }
      if (!isGranted || error) self.running = false;
      if (completion) completion(isGranted, error);
    });
  });
}

void TavrelMicrophone::stop() {
  implementation_->running = false;
  implementation_->session->stopRunning();
  const std::lock_guard delivery(implementation_->deliveryMutex);
}

void TavrelMicrophone::didOutputSampleBuffer(CaptureAudioDataOutput&, const std::shared_ptr<SampleBuffer>& sampleBuffer,
                                             const std::shared_ptr<CaptureConnection>&) {
  const std::lock_guard delivery(implementation_->deliveryMutex);
  if (!implementation_->running) return;
  const TraceSpan span(TraceNames::shared().microphone);
  if (Tracer::isOn()) Tracer::count(TraceNames::shared().soundsIn);
  // The clock that the camera's frame times come from.
  const SampleTiming timing = {sampleBuffer->timingEntries().front().duration, CaptureClock::current()->now(),
                               MediaTime::invalid()};
  const auto copy = sampleBuffer->copyWithNewTiming({timing});
  if (!copy) return;
  if (implementation_->mute) {
    if (const auto muted = muteSampleBuffer(**copy); !muted) {
      TAVREL_LOG_ERROR(kTag, "muteSampleBuffer error : {}", muted.error().description);
    }
  }
  implementation_->captureTime = sampleBuffer->presentationTimeStamp();
  if (const auto receiver = delegate()) receiver->didGetProcessedSampleBuffer(*this, *copy);
}

}  // namespace tavrel
