#include "Platform/Media/Private/PcmConverter.h"
#include "Platform/Media/Private/FFmpegError.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

namespace tavrel {
namespace {

/// A sound's channel layout, or the usual one of its channel count where it has none.
struct ChannelLayout {
  AVChannelLayout layout{};

  explicit ChannelLayout(int channelCount) { av_channel_layout_default(&layout, channelCount); }
  explicit ChannelLayout(const AVChannelLayout& given) {
    if (given.order == AV_CHANNEL_ORDER_UNSPEC || av_channel_layout_copy(&layout, &given) < 0) {
      av_channel_layout_default(&layout, given.nb_channels);
    }
  }
  ChannelLayout(const ChannelLayout&) = delete;
  ChannelLayout& operator=(const ChannelLayout&) = delete;
  ~ChannelLayout() { av_channel_layout_uninit(&layout); }
};

}  // namespace

Expected<std::shared_ptr<SampleBuffer>> PcmConverter::convert(const AVFrame& sound, AVRational timeBase) {
  if (auto ready = prepareResampler(sound); !ready) return tl::unexpected(ready.error());
  // FFmpeg's parameter is not const, but it only reads.
  return resample(const_cast<const std::uint8_t**>(sound.extended_data), sound.nb_samples,
                  firstFrameOf(sound, timeBase));
}

Expected<std::shared_ptr<SampleBuffer>> PcmConverter::finish() {
  if (!resampler_ || !nextFrame_) return nullptr;
  return resample(nullptr, 0, *nextFrame_);
}

Expected<std::shared_ptr<SampleBuffer>> PcmConverter::resample(const std::uint8_t** sound, int frames,
                                                               std::int64_t first) {
  const int capacity = swr_get_out_samples(resampler_.get(), frames);
  if (capacity <= 0) return nullptr;
  auto list = AudioBufferList::create(format_, static_cast<std::size_t>(capacity));
  if (!list) return failure(MediaErrorCode::allocationFailed, "there is no memory left for sound");

  auto* bytes = static_cast<std::uint8_t*>(list->buffers().front().data);
  std::array<std::uint8_t*, 1> output = {bytes};
  const int count = swr_convert(resampler_.get(), output.data(), capacity, sound, frames);
  if (count < 0) {
    return tl::unexpected(ffmpegError(MediaErrorCode::conversionFailed, count, "sound cannot be converted"));
  }
  if (limiter_) limiter_->limit({static_cast<float*>(list->buffers().front().data), count * format_.channelCount});
  nextFrame_ = first + count;
  const std::int64_t early = std::clamp<std::int64_t>(-first, 0, count);
  if (early == count) return nullptr;
  const std::size_t frameBytes = format_.bytesPerFrame();
  if (early > 0) {
    std::memmove(bytes, bytes + static_cast<std::size_t>(early) * frameBytes,
                 static_cast<std::size_t>(count - early) * frameBytes);
  }
  return SampleBuffer::createAudio(format_, std::move(list), count - early,
                                   MediaTime::make(first + early, static_cast<std::int32_t>(format_.sampleRate)));
}

Expected<void> PcmConverter::prepareResampler(const AVFrame& sound) {
  const int channels = sound.ch_layout.nb_channels;
  if (resampler_ && sound.format == inputFormat_ && sound.sample_rate == inputRate_ && channels == inputChannels_) {
    return {};
  }
  ChannelLayout input(sound.ch_layout);
  const bool sameChannels = channels == static_cast<int>(format_.channelCount);
  ChannelLayout usual(static_cast<int>(format_.channelCount));
  SwrContext* context = nullptr;
  const AVSampleFormat stored = format_.sampleType == AudioSampleType::int16 ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_FLT;
  int result = swr_alloc_set_opts2(&context, sameChannels ? &input.layout : &usual.layout, stored,
                                   static_cast<int>(format_.sampleRate), &input.layout,
                                   static_cast<AVSampleFormat>(sound.format), sound.sample_rate, 0, nullptr);
  resampler_.reset(context);
  if (result >= 0 && channels == 1 && format_.channelCount == 2) {
    constexpr std::array<double, 2> kBothAsLoud{1, 1};
    result = swr_set_matrix(context, kBothAsLoud.data(), 1);
  }
  if (result >= 0) result = swr_init(resampler_.get());
  if (result < 0)
    return tl::unexpected(
        ffmpegError(MediaErrorCode::unsupportedFormat, result, "sound of this format cannot be converted"));
  const bool isMixed = channels > static_cast<int>(format_.channelCount);
  if (!isMixed || stored != AV_SAMPLE_FMT_FLT)
    limiter_.reset();
  else if (!limiter_)
    limiter_.emplace(format_.channelCount, format_.sampleRate);
  inputFormat_ = sound.format;
  inputRate_ = sound.sample_rate;
  inputChannels_ = channels;
  return {};
}

std::int64_t PcmConverter::firstFrameOf(const AVFrame& sound, AVRational timeBase) {
  const AVRational frames = {1, static_cast<int>(format_.sampleRate)};
  // What comes out next went in earlier, by what the resampler still holds.
  const std::int64_t stamped = av_rescale_q(sound.pts, timeBase, frames) - swr_get_delay(resampler_.get(), frames.den);
  // A coarse time base (milliseconds in Matroska) cannot say better than this where a buffer begins.
  const std::int64_t tolerance = 1 + 2 * av_rescale_q_rnd(1, timeBase, frames, AV_ROUND_UP);
  if (nextFrame_ && std::abs(stamped - *nextFrame_) <= tolerance) return *nextFrame_;
  return stamped;
}

}  // namespace tavrel
