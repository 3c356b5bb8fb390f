#include "Platform/Capture/CaptureAudioDataOutput.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <utility>

#include "Platform/Capture/Private/CaptureSource.h"
#include "Platform/Capture/Private/DelegateHandover.h"

namespace tavrel {
namespace {

constexpr unsigned kWaitingAtMost = 256;
constexpr unsigned kWaitingWithoutRealTime = 16;

/// Sum of squares and greatest magnitude, of samples in -1 … 1.
struct Loudness {
  double squares = 0;
  double peak = 0;
};

template <typename Sample>
Loudness loudnessOf(const void* data, std::size_t first, std::size_t step, std::size_t count, double scale) {
  const auto* samples = static_cast<const Sample*>(data);
  Loudness loudness;
  for (std::size_t i = 0; i < count; ++i) {
    const double value = std::abs(static_cast<double>(samples[first + i * step])) * scale;
    loudness.squares += value * value;
    loudness.peak = std::max(loudness.peak, value);
  }
  return loudness;
}

float decibels(double amplitude) {
  if (!(amplitude > 0)) return CaptureAudioChannel::kSilence;
  return std::max(CaptureAudioChannel::kSilence, static_cast<float>(20 * std::log10(amplitude)));
}

using CaptureAudioChannels = std::vector<std::shared_ptr<CaptureAudioChannel>>;

void measure(const SampleBuffer& sample, const CaptureAudioChannels& channels) {
  const auto list = sample.audioBufferList();
  const auto count = static_cast<std::size_t>(sample.numSamples());
  if (!list || count == 0) return;
  const AudioFormat& format = sample.format()->audioFormat;
  for (std::size_t channel = 0; channel < channels.size(); ++channel) {
    const AudioBuffer& buffer = list->buffers()[format.isInterleaved ? 0 : channel];
    const std::size_t first = format.isInterleaved ? channel : 0;
    const std::size_t step = format.channelsPerBuffer();
    const Loudness loudness = format.sampleType == AudioSampleType::int16
                                  ? loudnessOf<std::int16_t>(buffer.data, first, step, count, 1.0 / 32768)
                                  : loudnessOf<float>(buffer.data, first, step, count, 1);
    channels[channel]->setLevels(decibels(std::sqrt(loudness.squares / static_cast<double>(count))),
                                 decibels(loudness.peak));
  }
}

}  // namespace

struct CaptureAudioDataOutput::Implementation : DelegateHandover<CaptureAudioDataOutputSampleBufferDelegate> {};

std::shared_ptr<CaptureAudioDataOutput> CaptureAudioDataOutput::create() {
  return std::shared_ptr<CaptureAudioDataOutput>(new CaptureAudioDataOutput);
}

CaptureAudioDataOutput::CaptureAudioDataOutput()
    : CaptureOutput(MediaType::audio), implementation_(std::make_unique<Implementation>()) {}

CaptureAudioDataOutput::~CaptureAudioDataOutput() = default;

void CaptureAudioDataOutput::setSampleBufferDelegate(std::weak_ptr<CaptureAudioDataOutputSampleBufferDelegate> delegate,
                                                     std::shared_ptr<DispatchQueue> queue) {
  implementation_->setDelegate(std::move(delegate), std::move(queue));
}

std::uint64_t CaptureAudioDataOutput::deliveredBuffers() const { return implementation_->delivered; }

std::uint64_t CaptureAudioDataOutput::droppedBuffers() const { return implementation_->dropped; }

void CaptureAudioDataOutput::deliver(const std::shared_ptr<SampleBuffer>& sample, CaptureSource& source) {
  Implementation& output = *implementation_;
  auto connection = connectionWithMediaType(MediaType::audio);
  if (!connection) return;
  const std::size_t channelCount = sample->format()->audioFormat.channelCount;
  auto channels = connection->audioChannels();
  if (channels.size() != channelCount) {
    connection->setAudioChannelCount(channelCount);
    channels = connection->audioChannels();
  }
  measure(*sample, channels);

  const bool isRealTime = source.isRealTime();
  CaptureHandover::Ticket ticket;
  const auto entry = output.handover->enter(isRealTime ? kWaitingAtMost : kWaitingWithoutRealTime, !isRealTime,
                                            source.cancellation(), ticket);
  if (entry == CaptureHandover::Entry::full) ++output.dropped;
  if (entry != CaptureHandover::Entry::granted) return;
  output.handover->send(std::move(ticket), [self = shared_from_this(), sample, connection = std::move(connection)] {
    ++self->implementation_->delivered;
    if (const auto delegate = self->implementation_->delegate())
      delegate->didOutputSampleBuffer(*self, sample, connection);
  });
}

void CaptureAudioDataOutput::deliverDrop(const SampleTiming&) { ++implementation_->dropped; }

void CaptureAudioDataOutput::deliveryEnded() { implementation_->handover->callOff(); }

}  // namespace tavrel
