#pragma once

#include <chrono>
#include <cmath>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Media/AssetWriter.h"
#include "Platform/Media/AssetWriterInputPixelBufferAdaptor.h"

namespace tavrel::test {

/// A folder that goes with the test.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

Dictionary h264Settings(std::int64_t width, std::int64_t height);
Dictionary aacSettings(double sampleRate = 48000, std::int64_t channels = 1);

/// A BGRA picture of one colour.
std::shared_ptr<PixelBuffer> solidPicture(std::size_t width, std::size_t height, std::uint8_t blue, std::uint8_t green,
                                          std::uint8_t red);

/// Sound whose sample at time t (seconds from `epoch`) is `signal(t)`; frames `first` to `first + count`.
std::shared_ptr<SampleBuffer> sound(const AudioFormat& format, std::int64_t count, MediaTime time,
                                    const std::function<double(double)>& signal);

/// A writer with a video and, if asked for, an audio track, in the codings that are usual in the type.
struct MovieMaker {
  std::shared_ptr<AssetWriter> writer;
  std::shared_ptr<AssetWriterInput> video;
  std::shared_ptr<AssetWriterInputPixelBufferAdaptor> adaptor;
  std::shared_ptr<AssetWriterInput> audio;

  struct Options {
    const char* fileType = kFileTypeQuickTimeMovie;
    std::int64_t width = 64;
    std::int64_t height = 48;
    bool isRealTime = true;
    std::optional<Dictionary> audioSettings = {};
    std::function<void(MovieMaker&)> prepare = {};  // before writing starts
  };

  /// Not started; `prepare` may change it.
  static MovieMaker create(const std::filesystem::path& path, const Options& options);
  /// Created and started, with the session at `start`.
  static MovieMaker start(const std::filesystem::path& path, const Options& options,
                          MediaTime start = MediaTime::zero());

  /// Waits until the track takes it.
  bool addPicture(const std::shared_ptr<PixelBuffer>& picture, MediaTime time) const;
  bool addSound(const std::shared_ptr<SampleBuffer>& buffer) const;
  /// `count` frames of 10 ms, the first at `time`.
  bool addTone(double seconds, MediaTime time, double frequency = 440, const AudioFormat& format = {}) const;
};

}  // namespace tavrel::test
