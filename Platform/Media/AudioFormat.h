#pragma once

#include <cstddef>
#include <cstdint>

namespace tavrel {

/// Storage of one sample, in native byte order.
enum class AudioSampleType { int16, float32 };

/// A linear PCM format. A frame is one sample of every channel.
struct AudioFormat {
  double sampleRate = 48000;  ///< frames per second
  std::uint32_t channelCount = 1;
  AudioSampleType sampleType = AudioSampleType::float32;
  bool isInterleaved = true;  ///< all channels in one buffer; else one buffer per channel

  friend bool operator==(const AudioFormat&, const AudioFormat&) = default;

  std::size_t bytesPerSample() const { return sampleType == AudioSampleType::int16 ? 2 : 4; }
  std::size_t bytesPerFrame() const { return bytesPerSample() * channelCount; }
  std::uint32_t bufferCount() const { return isInterleaved ? 1 : channelCount; }
  std::uint32_t channelsPerBuffer() const { return isInterleaved ? channelCount : 1; }
};

}  // namespace tavrel
