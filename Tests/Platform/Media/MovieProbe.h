#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Media/SampleBuffer.h"

namespace tavrel::test {

struct ProbedVideo {
  std::string codec, pixelFormat, primaries, transfer, matrix, range;
  int width = 0, height = 0;
  int reordering = 0;  ///< how many pictures one may be stored behind
  std::int32_t timescale = 0;
  std::vector<std::int64_t> times;              ///< of the decoded frames, in 1/timescale s
  std::vector<std::array<int, 3>> centers;      ///< Y, Cb, Cr in the middle of each frame
  std::vector<std::vector<std::uint8_t>> luma;  ///< the Y plane of each frame, packed
  std::vector<std::int64_t> packetDurations;
  std::vector<bool> keyframes;  ///< of the packets
  std::optional<std::array<std::int32_t, 9>> displayMatrix;
  double seconds(std::size_t frame) const { return static_cast<double>(times[frame]) / timescale; }
};

struct ProbedAudio {
  std::string codec;
  int sampleRate = 0, channels = 0;
  std::vector<float> samples;  ///< of the first channel, as placed on the time line from 0 on
  double longestJoint = 0;     ///< largest gap or overlap between decoded frames, seconds
  double seconds() const { return static_cast<double>(samples.size()) / sampleRate; }
  /// The first sample from `from` s on whose magnitude reaches `level`, in seconds.
  std::optional<double> firstAbove(float level, double from = 0) const;
  /// Root mean square of [from, to) seconds.
  double level(double from, double to) const;
};

/// A movie file, decoded completely with libav, for tests to look at.
struct MovieProbe {
  std::string error;  ///< empty when the file opens
  std::optional<ProbedVideo> video;
  std::optional<ProbedAudio> audio;
  std::map<std::string, std::string> metadata;
  double duration = 0;
  int decodeErrors = 0;

  /// The packets of the file's first track of this kind.
  static std::vector<std::shared_ptr<SampleBuffer>> packets(const std::filesystem::path& path, MediaType mediaType);
  static MovieProbe open(const std::filesystem::path& path, bool keepLuma = false);
};

}  // namespace tavrel::test
