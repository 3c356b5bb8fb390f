#include <utility>

#include "Platform/Capture/Virtual/Private/VirtualDriver.h"
#include "Platform/Capture/Virtual/VirtualMicrophone.h"
#include "Platform/Media/AudioSession.h"

namespace tavrel {
namespace {

class VirtualMicrophoneDriver : public VirtualDriver {
 public:
  VirtualMicrophoneDriver(CaptureDeviceDescription description, VirtualSoundMaker makeSound)
      : VirtualDriver(std::move(description)), makeSound_(std::move(makeSound)) {}
  ~VirtualMicrophoneDriver() override { VirtualMicrophoneDriver::close(); }

  Expected<void> open(CaptureRun run) override {
    auto clock = begin(run.sink);
    if (!clock) return tl::unexpected(clock.error());
    auto started = start(std::move(run), *clock);
    if (!started) end();
    return started;
  }

  void close() override {
    std::shared_ptr<VirtualMicrophone> microphone;
    {
      const std::lock_guard lock(mutex_);
      microphone.swap(microphone_);
    }
    if (!microphone) return;
    microphone->stop();
    end();
  }

  void setFrameRate(double) override {}
  void apply(CaptureControl, const CaptureControls&) override {}

 private:
  Expected<void> start(CaptureRun run, const std::shared_ptr<CaptureClock>& clock) {
    const AudioFormat& format = run.format->audioFormat;
    const int sampleRate = static_cast<int>(format.sampleRate);
    auto sound = makeSound_(sampleRate);
    if (!sound) return tl::unexpected(sound.error());
    auto created = VirtualMicrophone::create(
        std::move(*sound), {.sampleRate = sampleRate, .sampleType = format.sampleType, .clock = clock});
    if (!created) return tl::unexpected(created.error());
    AudioSession::shared().setSampleRate(sampleRate);
    const std::lock_guard lock(mutex_);
    microphone_ = *created;
    const MediaTime start = clock->now();
    const bool isFile = description().uniqueID.starts_with("file:");
    microphone_->start(
        [this, sink = std::move(run.sink)](std::shared_ptr<SampleBuffer> sample) {
          if (!isStalled()) sink->didCapture(std::move(sample));
        },
        nullptr, start, isFile ? 0 : sceneTimeAt(start));
    return {};
  }

  const VirtualSoundMaker makeSound_;
  std::mutex mutex_;
  std::shared_ptr<VirtualMicrophone> microphone_;
};

}  // namespace

std::shared_ptr<VirtualDriver> makeVirtualMicrophoneDriver(CaptureDeviceDescription description,
                                                           VirtualSoundMaker makeSound) {
  auto format = std::make_shared<CaptureDeviceFormat>();
  format->mediaType = MediaType::audio;
  description.formats = {std::move(format)};
  return std::make_shared<VirtualMicrophoneDriver>(std::move(description), std::move(makeSound));
}

}  // namespace tavrel
