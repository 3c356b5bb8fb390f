#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "Platform/Foundation/Error.h"
#include "Platform/Media/AudioFormat.h"
#include "Platform/Media/Private/FFmpegHandles.h"
#include "Platform/Media/Private/PeakLimiter.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

/// Turns decoded sound into sample buffers of interleaved PCM in one format, on a time line without gaps where the
/// file's time stamps are merely coarse.
///
/// Channels are mixed down as loud as they are meant to be, so their peaks may leave full scale. Scaling all of it down
/// for these would make every film quiet, and encoders make noise of what is too loud: its peaks are limited. One
/// thread at a time.
class PcmConverter {
 public:
  /// `format` is interleaved.
  explicit PcmConverter(const AudioFormat& format) : format_(format) {}

  /// `sound.pts` is in units of `timeBase`. nullptr when all of it lies before time 0.
  Expected<std::shared_ptr<SampleBuffer>> convert(const AVFrame& sound, AVRational timeBase);
  /// What was still inside at the end; nullptr when that is nothing.
  Expected<std::shared_ptr<SampleBuffer>> finish();

 private:
  Expected<void> prepareResampler(const AVFrame& sound);
  Expected<std::shared_ptr<SampleBuffer>> resample(const std::uint8_t** sound, int frames, std::int64_t first);
  std::int64_t firstFrameOf(const AVFrame& sound, AVRational timeBase);

  AudioFormat format_;
  Resampler resampler_;
  std::optional<PeakLimiter> limiter_;
  int inputFormat_ = -1;
  int inputRate_ = 0;
  int inputChannels_ = 0;
  std::optional<std::int64_t> nextFrame_;
};

}  // namespace tavrel
