#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string_view>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Media/MediaType.h"
#include "Platform/Media/MetadataItem.h"
#include "Platform/Media/Private/FFmpegHandles.h"
#include "Platform/Media/Private/Writing/MovieContainer.h"
#include "Platform/Media/Private/Writing/MovieFileOutput.h"
#include "Platform/Media/Private/Writing/MovieIndex.h"
#include "Platform/Media/Private/Writing/RegularMovie.h"

namespace tavrel {

/// A movie file as libavformat writes it: a header, then fragments (QuickTime, MP4) or clusters (Matroska), in the end
/// an index. One thread at a time.
class MovieMuxer {
 public:
  struct Options {
    double fragmentSeconds = 1;
    bool staysFragmented = false;
    double indexRoom = 0;  ///< in front, for a recording of so many seconds
    MovieContents contents;
  };
  struct Stream {
    MediaType mediaType;
    TrackDescription description;
    CodecParameters parameters;
    AVRational timeBase{0, 1};
    AVRational frameRate{0, 1};
    std::int64_t decodeLead = 0;
    ColorVolume colorVolume{};
  };

  MovieMuxer(std::unique_ptr<MovieFileOutput> output, MovieContainer container);

  const MovieContainer& container() const { return container_; }
  MovieFileOutput& output() { return *output_; }

  /// Subtitles are the last of the streams.
  Expected<void> writeHeader(Options options, const std::vector<const Stream*>& streams);
  /// The packet's times are in the stream's own time base.
  Expected<void> write(std::size_t stream, Packet packet);
  /// The stream's next packet comes after a pause that no duration can tell.
  void skipTo(std::size_t stream, std::int64_t dts);
  /// Whether every track has had what the header must say; nothing can be flushed before.
  bool canFlush() const { return tracksWithoutHeader_.empty(); }
  /// Completes a fragment of what was written since the last one, and hands it to the kernel.
  Expected<void> flush();
  /// Completes the file. No packets follow.
  Expected<void> finish();
  void close() { context_.reset(); }

  /// Whether sound only prepares the decoder: it comes before the movie's time 0.
  static bool isPriming(MediaType mediaType, const AVPacket& packet) {
    return mediaType == MediaType::audio && packet.pts < 0;
  }

 private:
  Expected<void> checked(int result, const char* what) const;
  Expected<void> addStreams(AVFormatContext& context, const std::vector<const Stream*>& streams) const;
  Expected<void> addArtwork(AVFormatContext& context) const;
  /// Tells the readers of fragments what was added to the times.
  Expected<void> writeEditLists();
  Expected<void> flattenTracks();
  Expected<void> beginIndex(const std::vector<const Stream*>& streams, int videoTimescale);
  /// When the header is in the file.
  Expected<void> completeHeader();
  Expected<void> writePriming(const AVPacket& packet);
  /// Puts bytes into the file beside its fragments, in a box of their own.
  Expected<void> writeData(std::span<const std::uint8_t> bytes);
  void setInterleaving(bool isOn);

  std::unique_ptr<MovieFileOutput> output_;
  const MovieContainer container_;
  Options options_;
  OutputFormat context_;
  struct Timing {
    MediaType mediaType;
    AVRational timeBase;  // of the packets that come
    std::int64_t lead;    // in the muxer's time base: what fragments have added to all times
    std::int64_t lastDecodeTime;
  };

  std::vector<Timing> timings_;  // by stream
  AVRational subtitleTimeBase_{1, 1};
  std::set<std::size_t> tracksWithoutHeader_;  // until they have a packet
  bool isHeaderDelayed_ = false;
  std::size_t headSize_ = 0;         // of a file whose tracks must be flattened
  std::optional<MovieIndex> index_;  // of a movie that becomes regular
  std::optional<RegularMovie> regular_;
};

}  // namespace tavrel
