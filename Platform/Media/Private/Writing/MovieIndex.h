#pragma once

#include <cstdint>
#include <deque>
#include <span>
#include <vector>

#include "Platform/Media/Private/FFmpegHandles.h"
#include "Platform/Media/Private/Writing/MovieContainer.h"

namespace tavrel {

/// The tables of a movie that is regular once it is finished, gathered while its fragments are written. One thread at a
/// time.
class MovieIndex {
 public:
  explicit MovieIndex(const MovieContainer& container);
  MovieIndex(const MovieIndex&) = delete;
  MovieIndex& operator=(const MovieIndex&) = delete;
  ~MovieIndex();

  /// The muxer to be given the movie's tracks and metadata; nullptr when there is no memory.
  AVFormatContext* context() { return context_.get(); }
  void begin(CodecDictionary options);

  /// A packet of the fragment that is being made, in its stream's time base.
  void add(const AVPacket& packet);
  /// The fragment is in the file; its description, a `moof` box, begins at `start`.
  void place(std::span<const std::uint8_t> description, std::int64_t start);
  /// A packet that is in the file already, from `start` on; none of its stream waits for `place`.
  void addPlaced(const AVPacket& packet, std::int64_t start);
  /// A packet, in units of `timeBase`, of subtitles: their data come last.
  void addLast(std::size_t stream, Packet packet, AVRational timeBase);

  struct Tables {
    std::vector<std::uint8_t> data;  ///< samples that the file lacks
    std::vector<std::uint8_t> moov;  ///< the movie's box; empty when it cannot say what is in the file
  };
  /// `dataStart` is where in the file `data` will begin.
  Tables finish(const MovieContents& contents, std::int64_t dataStart);

 private:
  static int write(void* opaque, std::uint8_t* bytes, int size);
  static std::int64_t seek(void* opaque, std::int64_t offset, int whence);
  bool addCover(const Artwork& artwork);
  void setSubtitleCodec(AVCodecID codec);
  void placeTrack(std::span<const std::uint8_t> boxes, std::int64_t start);
  void placeRun(std::span<const std::uint8_t> run, std::size_t stream, std::int64_t start);

  AVIOContext* sink_ = nullptr;
  std::int64_t position_ = 0;
  std::int64_t keptFrom_;  // the position from which on bytes are kept
  std::vector<std::uint8_t> kept_;
  std::deque<Packet> last_;
  OutputFormat context_;
  bool isUsable_ = false;
  std::vector<std::deque<Packet>> fragment_;  // by stream
  std::vector<std::int64_t> lastTimes_;       // by stream, of decoding
};

}  // namespace tavrel
