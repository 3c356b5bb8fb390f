#include "Platform/Media/Private/Writing/AudioConverter.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libavutil/samplefmt.h>
}

#include "Platform/Media/Private/FFmpegError.h"
#include "Platform/Media/Private/FFmpegLog.h"

namespace tavrel {
namespace {

constexpr std::int64_t kSilenceFrames = 4096;

AVSampleFormat ffmpegFormat(const AudioFormat& format) {
  if (format.sampleType == AudioSampleType::int16) return format.isInterleaved ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_S16P;
  return format.isInterleaved ? AV_SAMPLE_FMT_FLT : AV_SAMPLE_FMT_FLTP;
}

AVChannelLayout defaultLayout(int channels) {
  AVChannelLayout layout{};
  av_channel_layout_default(&layout, channels);
  return layout;
}

/// One channel of `in` frames spread evenly over `out` frames, `step` samples apart.
template <typename Sample>
void stretch(const std::uint8_t* source, int in, std::uint8_t* target, int out, std::ptrdiff_t step) {
  const auto* const from = reinterpret_cast<const Sample*>(source);
  auto* const to = reinterpret_cast<Sample*>(target);
  const double scale = out > 1 ? static_cast<double>(in - 1) / (out - 1) : 0;
  for (int i = 0; i < out; ++i) {
    const double position = i * scale;
    const int left = std::min(static_cast<int>(position), in - 1);
    const int right = std::min(left + 1, in - 1);
    const double weight = position - left;
    const double value = from[left * step] * (1 - weight) + from[right * step] * weight;
    to[i * step] = static_cast<Sample>(std::is_integral_v<Sample> ? std::lround(value) : value);
  }
}

}  // namespace

AudioConverter::Planes::~Planes() {
  if (!planes_.empty()) av_freep(planes_.data());
}

bool AudioConverter::Planes::reserve(int frames, int channels, AVSampleFormat format) {
  if (frames <= capacity_) return true;
  if (!planes_.empty()) av_freep(planes_.data());
  planes_.assign(static_cast<std::size_t>(channels), nullptr);
  capacity_ = frames + frames / 2;
  if (av_samples_alloc(planes_.data(), nullptr, channels, capacity_, format, 0) >= 0) return true;
  planes_.clear();
  capacity_ = 0;
  return false;
}

AudioConverter::AudioConverter(const AudioFormat& from, const AVCodecContext& to)
    : from_(from), rate_(to.sample_rate), channels_(to.ch_layout.nb_channels), sampleFormat_(to.sample_fmt) {}

Expected<AudioConverter> AudioConverter::create(const AudioFormat& from, const AVCodecContext& to) {
  AudioConverter converter(from, to);
  AVChannelLayout source = defaultLayout(static_cast<int>(from.channelCount));
  SwrContext* context = nullptr;
  AVChannelLayout target = to.ch_layout;  // the call takes pointers that are not const
  int result = swr_alloc_set_opts2(&context, &target, to.sample_fmt, to.sample_rate, &source, ffmpegFormat(from),
                                   static_cast<int>(std::lround(from.sampleRate)), 0, nullptr);
  converter.resampler_.reset(context);
  if (result >= 0 && from.channelCount == 1 && to.ch_layout.nb_channels == 2) {
    constexpr std::array<double, 2> kBothAsLoud{1, 1};
    result = swr_set_matrix(context, kBothAsLoud.data(), 1);
  }
  // Channels that come together must not become louder than each was.
  if (result >= 0) result = av_opt_set_double(context, "rematrix_maxval", 1, 0);
  if (result >= 0) result = swr_init(context);
  if (result < 0) {
    return tl::unexpected(ffmpegError(MediaErrorCode::unsupportedFormat, result,
                                      fmt::format("sound of {} frames a second in {} channels cannot be converted",
                                                  from.sampleRate, from.channelCount)));
  }
  converter.silence_ = AudioBufferList::create(from, kSilenceFrames);
  return converter;
}

std::int64_t AudioConverter::delay() const {
  return swr_get_delay(resampler_.get(), rate_);
}

Expected<AudioConverter::Output> AudioConverter::run(const std::uint8_t** source, int frames) {
  const int room = swr_get_out_samples(resampler_.get(), frames);
  if (room < 0 || !output_.reserve(std::max(room, 1), channels_, sampleFormat_)) {
    return tl::unexpected(ffmpegError(MediaErrorCode::conversionFailed, AVERROR(ENOMEM), "sound cannot be converted"));
  }
  const int converted = swr_convert(resampler_.get(), output_.data(), room, source, frames);
  if (converted < 0)
    return tl::unexpected(ffmpegError(MediaErrorCode::conversionFailed, converted, "sound cannot be converted"));
  return Output{output_.data(), converted};
}

Expected<AudioConverter::Output> AudioConverter::convert(const AudioBufferList& source, std::int64_t first,
                                                         std::int64_t frames, int stretchBy) {
  std::vector<const std::uint8_t*> pointers;
  const std::size_t offset = static_cast<std::size_t>(first) * from_.bytesPerSample() * from_.channelsPerBuffer();
  for (const AudioBuffer& buffer : source.buffers()) {
    pointers.push_back(static_cast<const std::uint8_t*>(buffer.data) + offset);
  }
  auto converted = run(pointers.data(), static_cast<int>(frames));
  if (!converted || stretchBy == 0 || converted->frames < 2) return converted;
  return stretched(*converted, stretchBy);
}

AudioConverter::Output AudioConverter::stretched(const Output& converted, int by) {
  const int frames = converted.frames + by;
  if (!stretchedOutput_.reserve(frames, channels_, sampleFormat_)) return converted;
  const bool isPlanar = av_sample_fmt_is_planar(sampleFormat_) != 0;
  const bool isFloat = av_get_packed_sample_fmt(sampleFormat_) == AV_SAMPLE_FMT_FLT;
  for (int channel = 0; channel < channels_; ++channel) {
    const int plane = isPlanar ? channel : 0;
    const std::ptrdiff_t offset = isPlanar ? 0 : std::ptrdiff_t{channel} * av_get_bytes_per_sample(sampleFormat_);
    const auto function = isFloat ? stretch<float> : stretch<std::int16_t>;
    function(converted.planes[plane] + offset, converted.frames, stretchedOutput_.data()[plane] + offset, frames,
             isPlanar ? 1 : channels_);
  }
  return {stretchedOutput_.data(), frames};
}

Expected<AudioConverter::Output> AudioConverter::convertSilence(std::int64_t frames) {
  return convert(*silence_, 0, std::min(frames, kSilenceFrames), 0);
}

Expected<AudioConverter::Output> AudioConverter::drain() {
  return run(nullptr, 0);
}

}  // namespace tavrel
