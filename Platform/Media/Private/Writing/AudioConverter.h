#pragma once

#include <cstdint>
#include <vector>

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
  /// Converts `frames` frames of `source` from number `first` on. `stretch` makes it one frame more (1) or less (-1).
  Expected<Output> convert(const AudioBufferList& source, std::int64_t first, std::int64_t frames, int stretch);
  Expected<Output> convertSilence(std::int64_t frames);
  /// What is still inside.
  Expected<Output> drain();

 private:
  /// A buffer of one pointer for each plane.
  class Planes {
   public:
    Planes() = default;
    Planes(Planes&& other) noexcept : planes_(std::exchange(other.planes_, {})), capacity_(other.capacity_) {}
    Planes& operator=(Planes&& other) noexcept {
      std::swap(planes_, other.planes_);
      std::swap(capacity_, other.capacity_);
      return *this;
    }
    ~Planes();
    bool reserve(int frames, int channels, AVSampleFormat format);
    std::uint8_t** data() { return planes_.data(); }

   private:
    std::vector<std::uint8_t*> planes_;
    int capacity_ = 0;
  };

  AudioConverter(const AudioFormat& from, const AVCodecContext& to);
  Expected<Output> run(const std::uint8_t** source, int frames);
  Output stretched(const Output& converted, int by);

  AudioFormat from_;
  int rate_;
  int channels_;
  AVSampleFormat sampleFormat_;
  Resampler resampler_;
  Planes output_;
  Planes stretchedOutput_;
  std::shared_ptr<AudioBufferList> silence_;
};

}  // namespace tavrel
