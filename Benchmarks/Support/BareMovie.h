#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace tavrel::benchmarks {

/// A movie file written as one writes the loop by hand, with the movie writer's own settings.
class BareMovieWriter {
 public:
  BareMovieWriter(const std::filesystem::path& file, int width, int height, int timescale);
  BareMovieWriter(const BareMovieWriter&) = delete;
  BareMovieWriter& operator=(const BareMovieWriter&) = delete;
  /// Completes the file.
  ~BareMovieWriter();

  /// `time` in units of the timescale.
  void write(const std::uint8_t* bgra, std::int64_t time);

 private:
  void writePackets();

  const int width_;
  const int height_;
  AVFormatContext* format_ = nullptr;
  AVCodecContext* context_ = nullptr;
  AVStream* stream_ = nullptr;
  AVFrame* frame_ = nullptr;
  AVPacket* packet_ = nullptr;
};

/// Decodes the first video track of a file, as one writes the loop by hand; calls `action` with each picture of 4:2:0
/// and its time in the track's units.
void readBareMovie(const std::filesystem::path& file, const std::function<void(const AVFrame&)>& action);

}  // namespace tavrel::benchmarks
