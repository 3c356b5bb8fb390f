#include <cmath>
#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Virtual/Private/VirtualDriver.h"
#include "Platform/Capture/Virtual/VirtualSound.h"
#include "Platform/Media/AudioSession.h"

namespace tavrel {
namespace {

constexpr int kSamplesPerBuffer = 256;
/// Sound of more than a quarter of a second may wait before a buffer is lost.
constexpr unsigned kPatience = 64;

class VirtualMicrophoneDriver : public VirtualDriver {
 public:
  VirtualMicrophoneDriver(CaptureDeviceDescription description, VirtualSoundMaker makeSound)
      : VirtualDriver(std::move(description), "tavrel.vmic", kPatience), makeSound_(std::move(makeSound)) {}
  ~VirtualMicrophoneDriver() override { close(); }

  void setFrameRate(double) override {}
  void apply(CaptureControl, const CaptureControls&) override {}

 private:
  Expected<void> prepare(const CaptureRun& run, const MediaTime& now) override {
    format_ = run.format->audioFormat;
    auto sound = makeSound_(static_cast<int>(format_.sampleRate));
    if (!sound) return tl::unexpected(sound.error());
    sound_ = std::move(*sound);
    AudioSession::shared().setSampleRate(format_.sampleRate);
    start_ = now;
    const bool isFile = description().uniqueID.starts_with("file:");
    firstSample_ = isFile ? 0 : static_cast<std::uint64_t>(std::llround(sceneTimeAt(now) * format_.sampleRate));
    return {};
  }

  /// Of the first sample of buffer `number`, which is also when the buffer before it is complete.
  MediaTime timeOf(std::uint64_t number) const {
    const auto samples = static_cast<std::int64_t>(number) * kSamplesPerBuffer;
    return start_ + MediaTime::make(samples, static_cast<std::int32_t>(format_.sampleRate))
                        .convertedToTimescale(CaptureClock::kTimescale);
  }
  MediaTime dueTime(std::uint64_t number) const override { return timeOf(number + 1); }

  Expected<std::shared_ptr<SampleBuffer>> sample(std::uint64_t number) override {
    auto list = AudioBufferList::create(format_, kSamplesPerBuffer);
    if (!list) return failure(CaptureErrorCode::outOfMemory, "there is no memory left for sound");
    const std::span samples(static_cast<float*>(list->buffers().front().data),
                            std::size_t{kSamplesPerBuffer} * format_.channelCount);
    const auto heard = sound_->render(samples, firstSample_ + number * kSamplesPerBuffer);
    if (!heard) return tl::unexpected(heard.error());
    return SampleBuffer::createAudio(format_, std::move(list), kSamplesPerBuffer, timeOf(number));
  }

  const VirtualSoundMaker makeSound_;
  std::shared_ptr<VirtualSound> sound_;
  AudioFormat format_;
  MediaTime start_;
  std::uint64_t firstSample_ = 0;
};

}  // namespace

std::shared_ptr<VirtualDriver> makeVirtualMicrophoneDriver(CaptureDeviceDescription description,
                                                           VirtualSoundMaker makeSound, int channelCount) {
  auto format = std::make_shared<CaptureDeviceFormat>();
  format->mediaType = MediaType::audio;
  format->audioFormat.channelCount = static_cast<std::uint32_t>(channelCount);
  description.formats = {std::move(format)};
  return std::make_shared<VirtualMicrophoneDriver>(std::move(description), std::move(makeSound));
}

}  // namespace tavrel
