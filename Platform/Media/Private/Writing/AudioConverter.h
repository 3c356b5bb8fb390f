#pragma once

#include <cstdint>
#include <memory>

#include "Platform/Foundation/Error.h"
#include "Platform/Media/AudioBufferList.h"
#include "Platform/Media/AudioFormat.h"
#include "Platform/Media/Private/FFmpegHandles.h"

namespace tavrel {

/// PCM of one format to that of an encoder, through libswresample. One thread at a time.
class AudioConverter {
 public:
  /// Converted frames, valid until the next call.
  struct Output {
    std::uint8_t** planes = nullptr;
    int frames = 0;
  };

  static Expected<AudioConverter> create(const AudioFormat& from, const AVCodecContext& to);

  const AudioFormat& format() const { return from_; }
  /// Frames that went in and have not come out, at the encoder's rate.
  std::int64_t delay() const;
  /// Converts `frames` frames of `source` from number `first` on. With `stretch` it becomes a frame longer (1) or
  /// shorter (-1), spread evenly.
  Expected<Output> convert(const AudioBufferList& source, std::int64_t first, std::int64_t frames, int stretch);
  Expected<Output> convertSilence(std::int64_t frames);
  /// What is still inside.
  Expected<Output> drain();

 private:
  AudioConverter(const AudioFormat& from, const AVCodecContext& to);
  Expected<Output> run(const std::uint8_t** source, int frames);
  bool reserve(int frames);

  AudioFormat from_;
  int rate_;
  int channels_;
  AVSampleFormat sampleFormat_;
  Resampler resampler_;
  Frame output_;
  std::shared_ptr<AudioBufferList> silence_;
};

}  // namespace tavrel
