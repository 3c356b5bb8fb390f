#include "Platform/Media/Private/Writing/AudioConverter.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

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

}  // namespace

bool AudioConverter::reserve(int frames) {
  if (output_ && frames <= output_->nb_samples) return true;
  output_.reset(av_frame_alloc());
  if (!output_) return false;
  output_->nb_samples = frames + frames / 2;
  output_->format = sampleFormat_;
  av_channel_layout_default(&output_->ch_layout, channels_);
  const bool isReserved = av_frame_get_buffer(output_.get(), 0) >= 0;
  if (!isReserved) output_.reset();
  return isReserved;
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
  // Two channels that become one must not be louder than each was. Surround is mixed as it is meant to be.
  if (result >= 0 && from.channelCount == 2) result = av_opt_set_double(context, "rematrix_maxval", 1, 0);
  if (result >= 0) result = swr_init(context);
  if (result < 0) {
    return tl::unexpected(ffmpegError(MediaErrorCode::unsupportedFormat, result,
                                      fmt::format("sound of {} frames a second in {} channels cannot be converted",
                                                  from.sampleRate, from.channelCount)));
  }
  converter.silence_ = AudioBufferList::create(from, kSilenceFrames);
  return converter;
}

std::int64_t AudioConverter::delay() const { return swr_get_delay(resampler_.get(), rate_); }

Expected<AudioConverter::Output> AudioConverter::run(const std::uint8_t** source, int frames) {
  const int room = swr_get_out_samples(resampler_.get(), frames);
  if (room < 0 || !reserve(std::max(room, 1))) {
    return tl::unexpected(ffmpegError(MediaErrorCode::conversionFailed, AVERROR(ENOMEM), "sound cannot be converted"));
  }
  const int converted = swr_convert(resampler_.get(), output_->extended_data, room, source, frames);
  if (converted < 0) {
    return tl::unexpected(ffmpegError(MediaErrorCode::conversionFailed, converted, "sound cannot be converted"));
  }
  return Output{output_->extended_data, converted};
}

Expected<AudioConverter::Output> AudioConverter::convert(const AudioBufferList& source, std::int64_t first,
                                                         std::int64_t frames, int stretch) {
  std::vector<const std::uint8_t*> pointers;
  const std::size_t offset = static_cast<std::size_t>(first) * from_.bytesPerSample() * from_.channelsPerBuffer();
  for (const AudioBuffer& buffer : source.buffers()) {
    pointers.push_back(static_cast<const std::uint8_t*>(buffer.data) + offset);
  }
  if (stretch != 0) {
    const auto length = static_cast<int>(std::lround(static_cast<double>(frames) * rate_ / from_.sampleRate));
    if (const int result = swr_set_compensation(resampler_.get(), stretch, std::max(length, 1)); result < 0) {
      return tl::unexpected(ffmpegError(MediaErrorCode::conversionFailed, result, "sound cannot be stretched"));
    }
  }
  return run(pointers.data(), static_cast<int>(frames));
}

Expected<AudioConverter::Output> AudioConverter::convertSilence(std::int64_t frames) {
  return convert(*silence_, 0, std::min(frames, kSilenceFrames), 0);
}

Expected<AudioConverter::Output> AudioConverter::drain() { return run(nullptr, 0); }

}  // namespace tavrel
