#include "Platform/Media/SampleBuffer.h"

#include <fmt/format.h>

#include <cmath>
#include <utility>

#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Media/MediaError.h"

namespace tavrel {
namespace {

constexpr double kHighestSampleRate = 768000;
constexpr std::uint32_t kMostChannels = 64;

MediaTime sampleDuration(double sampleRate) {
  if (sampleRate == std::floor(sampleRate)) return MediaTime::make(1, static_cast<std::int32_t>(sampleRate));
  return MediaTime::fromSeconds(1 / sampleRate, 1'000'000'000);
}

bool isUsable(const AudioFormat& format) {
  return format.sampleRate >= 1 && format.sampleRate <= kHighestSampleRate && format.channelCount >= 1 &&
         format.channelCount <= kMostChannels;
}

bool holds(const AudioBufferList& list, const AudioFormat& format, std::int64_t frameCount) {
  if (list.buffers().size() != format.bufferCount()) return false;
  const std::size_t needed =
      static_cast<std::size_t>(frameCount) * format.bytesPerSample() * format.channelsPerBuffer();
  for (const AudioBuffer& buffer : list.buffers()) {
    if (buffer.byteSize < needed || (needed > 0 && !buffer.data)) return false;
  }
  return true;
}

}  // namespace

SampleBuffer::SampleBuffer(std::shared_ptr<const FormatDescription> format, std::int64_t sampleCount,
                           std::vector<SampleTiming> timing)
    : format_(std::move(format)), sampleCount_(sampleCount), timing_(std::move(timing)) {}

Expected<std::shared_ptr<SampleBuffer>> SampleBuffer::createAudio(const AudioFormat& format,
                                                                  std::shared_ptr<AudioBufferList> data,
                                                                  std::int64_t frameCount,
                                                                  MediaTime presentationTimeStamp) {
  if (!isUsable(format)) {
    return failure(MediaErrorCode::invalidArgument,
                   fmt::format("PCM of {} frames a second and {} channels is not supported: 1 to {} and 1 to {} are",
                               format.sampleRate, format.channelCount, kHighestSampleRate, kMostChannels));
  }
  if (!presentationTimeStamp.isNumeric())
    return failure(MediaErrorCode::invalidArgument, "a sample buffer needs a numeric time");
  if (!data || frameCount < 0 || !holds(*data, format, frameCount)) {
    return failure(MediaErrorCode::invalidArgument,
                   fmt::format("the buffers do not hold {} frames of this PCM format", frameCount));
  }
  auto description = std::make_shared<FormatDescription>();
  description->mediaType = MediaType::audio;
  description->audioFormat = format;
  const SampleTiming timing{sampleDuration(format.sampleRate), presentationTimeStamp, MediaTime::invalid()};
  std::shared_ptr<SampleBuffer> buffer(new SampleBuffer(std::move(description), frameCount, {timing}));
  buffer->audio_ = std::move(data);
  return buffer;
}

Expected<std::shared_ptr<SampleBuffer>> SampleBuffer::createPacket(std::shared_ptr<const FormatDescription> format,
                                                                   Data bytes, const SampleTiming& timing,
                                                                   bool isKeyframe) {
  if (!format || !format->isCompressed())
    return failure(MediaErrorCode::invalidArgument, "a packet needs a format that names its codec");
  if (bytes.empty()) return failure(MediaErrorCode::invalidArgument, "a packet needs at least one byte");
  std::shared_ptr<SampleBuffer> buffer(new SampleBuffer(std::move(format), 1, {timing}));
  buffer->packet_ = std::make_shared<const Data>(std::move(bytes));
  buffer->isKeyframe_ = isKeyframe;
  return buffer;
}

Expected<std::shared_ptr<SampleBuffer>> SampleBuffer::createImage(std::shared_ptr<PixelBuffer> image,
                                                                  const SampleTiming& timing) {
  if (!image) return failure(MediaErrorCode::invalidArgument, "an image sample needs a pixel buffer");
  auto description = std::make_shared<FormatDescription>();
  description->mediaType = MediaType::video;
  description->videoSize = {static_cast<double>(image->width()), static_cast<double>(image->height())};
  std::shared_ptr<SampleBuffer> buffer(new SampleBuffer(std::move(description), 1, {timing}));
  buffer->image_ = std::move(image);
  return buffer;
}

std::shared_ptr<SampleBuffer> SampleBuffer::createImage(Size size, ImageMaker maker, const SampleTiming& timing) {
  auto description = std::make_shared<FormatDescription>();
  description->mediaType = MediaType::video;
  description->videoSize = size;
  std::shared_ptr<SampleBuffer> buffer(new SampleBuffer(std::move(description), 1, {timing}));
  buffer->imageMaker_ = std::move(maker);
  return buffer;
}

MediaTime SampleBuffer::presentationTimeStamp() const { return timing_.front().presentationTimeStamp; }

MediaTime SampleBuffer::outputPresentationTimeStamp() const {
  const std::lock_guard lock(mutex_);
  return outputTime_.value_or(presentationTimeStamp());
}

void SampleBuffer::setOutputPresentationTimeStamp(MediaTime time) {
  const std::lock_guard lock(mutex_);
  outputTime_ = time;
}

MediaTime SampleBuffer::duration() const {
  if (timing_.size() == 1) {
    const MediaTime one = timing_.front().duration;
    return one.isNumeric() ? MediaTime::make(one.value * sampleCount_, one.timescale) : one;
  }
  MediaTime sum = MediaTime::zero();
  for (const SampleTiming& entry : timing_) sum = sum + entry.duration;
  return sum;
}

Expected<std::shared_ptr<SampleBuffer>> SampleBuffer::copyWithNewTiming(std::vector<SampleTiming> entries) const {
  if (entries.size() != 1 && static_cast<std::int64_t>(entries.size()) != sampleCount_) {
    return failure(
        MediaErrorCode::invalidArgument,
        fmt::format("{} timing entries for {} samples: give one, or one for each", entries.size(), sampleCount_));
  }
  const std::lock_guard lock(mutex_);
  if (!isValid_) return failure(MediaErrorCode::invalidatedSample, "the sample buffer has been invalidated");
  std::shared_ptr<SampleBuffer> copy(new SampleBuffer(format_, sampleCount_, std::move(entries)));
  copy->isKeyframe_ = isKeyframe_;
  copy->audio_ = audio_;
  copy->packet_ = packet_;
  copy->image_ = image_;
  copy->imageMaker_ = imageMaker_;
  return copy;
}

void SampleBuffer::invalidate() {
  // Let go outside the lock: the last holder of an image returns it to its pool.
  std::shared_ptr<AudioBufferList> audio;
  std::shared_ptr<const Data> packet;
  std::shared_ptr<PixelBuffer> image;
  ImageMaker imageMaker;
  const std::lock_guard lock(mutex_);
  isValid_ = false;
  imageMaker.swap(imageMaker_);
  audio.swap(audio_);
  packet.swap(packet_);
  image.swap(image_);
}

bool SampleBuffer::isValid() const {
  const std::lock_guard lock(mutex_);
  return isValid_;
}

std::shared_ptr<AudioBufferList> SampleBuffer::audioBufferList() const {
  const std::lock_guard lock(mutex_);
  return audio_;
}

std::shared_ptr<const Data> SampleBuffer::packetData() const {
  const std::lock_guard lock(mutex_);
  return packet_;
}

std::shared_ptr<PixelBuffer> SampleBuffer::imageBuffer() const {
  const std::lock_guard lock(mutex_);
  if (const ImageMaker maker = std::exchange(imageMaker_, nullptr)) image_ = maker();
  return image_;
}

}  // namespace tavrel
