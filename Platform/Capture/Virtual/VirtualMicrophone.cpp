#include "Platform/Capture/Virtual/VirtualMicrophone.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Virtual/FileSound.h"
#include "Platform/Capture/Virtual/Private/PacedDelivery.h"
#include "Platform/Capture/Virtual/SyntheticSound.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {
namespace {

constexpr std::string_view kFilePrefix = "file:";
constexpr unsigned kBuffersInFlight = 64;
constexpr int kLowestRate = 8000;
constexpr int kHighestRate = 192000;

Expected<std::shared_ptr<VirtualSound>> soundNamed(std::string_view name, int sampleRate) {
  if (name == "synthetic") return std::make_shared<SyntheticSound>(sampleRate);
  if (name.starts_with(kFilePrefix)) return FileSound::create(name.substr(kFilePrefix.size()), sampleRate);
  return failure(CaptureErrorCode::noSuchDevice,
                 fmt::format("there is no virtual microphone named \"{}\"; choose synthetic or file:PATH", name));
}

Expected<void> checked(const VirtualMicrophone::Configuration& configuration) {
  if (!configuration.clock)
    return failure(CaptureErrorCode::invalidConfiguration, "a virtual microphone needs a clock");
  if (configuration.sampleRate >= kLowestRate && configuration.sampleRate <= kHighestRate) return {};
  return failure(CaptureErrorCode::invalidConfiguration,
                 fmt::format("a virtual microphone cannot have {} samples a second; choose {} to {}",
                             configuration.sampleRate, kLowestRate, kHighestRate));
}

}  // namespace

struct VirtualMicrophone::Implementation {
  Implementation(std::shared_ptr<VirtualSound> heard, Configuration used)
      : sound(std::move(heard)), configuration(std::move(used)) {
    format.sampleRate = configuration.sampleRate;
    format.sampleType = configuration.sampleType;
  }

  const std::shared_ptr<VirtualSound> sound;
  const Configuration configuration;
  AudioFormat format;
  bool failureWasLogged = false;  // on the device's thread
  PacedDelivery delivery;         // last: its thread uses the rest

  /// The time of the first sample of buffer `number`, which is also when the buffer before it is complete.
  MediaTime timeOf(MediaTime start, std::uint64_t number) const {
    const auto samples = static_cast<std::int64_t>(number) * kSamplesPerBuffer;
    return start + MediaTime::make(samples, configuration.sampleRate).convertedToTimescale(CaptureClock::kTimescale);
  }

  PacedDelivery::Delivery produce(std::uint64_t number, std::uint64_t sceneOffset, MediaTime time,
                                  const std::shared_ptr<Handler>& handler) {
    auto recorded = record(number * kSamplesPerBuffer + sceneOffset, time);
    if (!recorded) {
      if (!std::exchange(failureWasLogged, true)) {
        ConsoleLog::write("Virtual microphone: {}", recorded.error().description);
      }
      return nullptr;
    }
    return [handler, buffer = std::move(*recorded)] { (*handler)(buffer); };
  }

  Expected<std::shared_ptr<SampleBuffer>> record(std::uint64_t firstSample, MediaTime time) {
    std::array<float, kSamplesPerBuffer> samples{};
    const auto rendered = sound->render(samples, firstSample);
    if (!rendered) return tl::unexpected(rendered.error());
    auto list = AudioBufferList::create(format, kSamplesPerBuffer);
    if (!list) return failure(CaptureErrorCode::outOfMemory, "there is no memory left for sound");
    void* data = list->buffers().front().data;
    if (configuration.sampleType == AudioSampleType::float32) {
      std::copy(samples.begin(), samples.end(), static_cast<float*>(data));
    } else {
      std::transform(samples.begin(), samples.end(), static_cast<std::int16_t*>(data), [](float sample) {
        return static_cast<std::int16_t>(std::lround(std::clamp(sample, -1.0F, 1.0F) * 32767));
      });
    }
    return SampleBuffer::createAudio(format, std::move(list), kSamplesPerBuffer, time);
  }
};

Expected<std::shared_ptr<VirtualMicrophone>> VirtualMicrophone::create(std::string_view name,
                                                                       Configuration configuration) {
  const auto valid = checked(configuration);
  if (!valid) return tl::unexpected(valid.error());
  auto sound = soundNamed(name, configuration.sampleRate);
  if (!sound) return tl::unexpected(sound.error());
  return create(std::move(*sound), std::move(configuration));
}

Expected<std::shared_ptr<VirtualMicrophone>> VirtualMicrophone::create(std::shared_ptr<VirtualSound> sound,
                                                                       Configuration configuration) {
  const auto valid = checked(configuration);
  if (!valid) return tl::unexpected(valid.error());
  if (!sound) return failure(CaptureErrorCode::invalidConfiguration, "a virtual microphone needs a sound");
  return std::shared_ptr<VirtualMicrophone>(
      new VirtualMicrophone(std::make_unique<Implementation>(std::move(sound), std::move(configuration))));
}

VirtualMicrophone::VirtualMicrophone(std::unique_ptr<Implementation> implementation)
    : implementation_(std::move(implementation)) {}

VirtualMicrophone::~VirtualMicrophone() { stop(); }

const VirtualMicrophone::Configuration& VirtualMicrophone::configuration() const {
  return implementation_->configuration;
}

void VirtualMicrophone::start(Handler handler, std::shared_ptr<DispatchQueue> queue, MediaTime startTime,
                              double sceneStart) {
  if (isRunning()) return;
  Implementation& microphone = *implementation_;
  const MediaTime start = (startTime.isNumeric() ? startTime : microphone.configuration.clock->now())
                              .convertedToTimescale(CaptureClock::kTimescale);
  PacedDelivery::Plan plan;
  plan.threadName = "tavrel.vmic";
  plan.clock = microphone.configuration.clock;
  plan.queue = std::move(queue);
  plan.maximumInFlight = kBuffersInFlight;
  plan.patience = kBuffersInFlight;
  plan.dueTime = [&microphone, start](std::uint64_t number) { return microphone.timeOf(start, number + 1); };
  const auto offset =
      static_cast<std::uint64_t>(std::llround(std::fmax(0, sceneStart) * microphone.configuration.sampleRate));
  plan.produce = [&microphone, start, offset,
                  shared = std::make_shared<Handler>(std::move(handler))](std::uint64_t number) {
    return microphone.produce(number, offset, microphone.timeOf(start, number), shared);
  };
  microphone.delivery.start(std::move(plan));
}

void VirtualMicrophone::stop() { implementation_->delivery.stop(); }

bool VirtualMicrophone::isRunning() const { return implementation_->delivery.isRunning(); }

std::uint64_t VirtualMicrophone::deliveredBuffers() const { return implementation_->delivery.delivered(); }

std::uint64_t VirtualMicrophone::droppedBuffers() const { return implementation_->delivery.dropped(); }

}  // namespace tavrel
