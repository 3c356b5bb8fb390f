#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Media/MetadataItem.h"
#include "Platform/Media/Private/FFmpegHandles.h"

namespace tavrel {

/// What a track's packets are.
struct TrackFormat {
  const AVCodecParameters* parameters = nullptr;
  AVRational timeBase{0, 1};
  AVRational frameRate{0, 1};   ///< of pictures, on average; 0 when it is not known
  std::int64_t decodeLead = 0;  ///< how long before the movie's time 0 the first sample may be decoded, in `timeBase`
};

/// What a file says about a track beside its format.
struct TrackDescription {
  AffineTransform transform;
  std::string languageCode;  ///< empty for none
};

/// A type of movie file: what it can hold, and how libavformat is asked to write it. Immutable.
class MovieContainer {
 public:
  /// Fails for a type that is not one of `AssetWriter`'s.
  static Expected<MovieContainer> find(std::string_view fileType);

  std::string name() const { return format_->long_name; }
  /// QuickTime and MP4, which have fragments and edit lists; else Matroska or WebM.
  bool isQuickTimeFamily() const {
    return format_->name == std::string_view("mov") || format_->name == std::string_view("mp4");
  }
  bool canHold(AVCodecID codec) const { return avformat_query_codec(format_, codec, FF_COMPLIANCE_NORMAL) == 1; }

  /// Whether packets of another movie can be stored; `hasHeader` if that says what a decoder has to know.
  bool canStore(AVCodecID codec, bool hasHeader) const;

  /// Whether the header can be written only when the track has a packet, which says what the sound is.
  bool needsPacketForHeader(AVCodecID codec) const;

  /// An empty file of this type, which is written to `output`. FFmpeg's error code when there is none.
  int open(AVIOContext* output, OutputFormat& context) const;
  /// Adds a track. nullptr when no memory is left.
  AVStream* addStream(AVFormatContext& context, const TrackFormat& format, const TrackDescription& description) const;
  /// What a file of this type says about itself beside `items`: the same by the names that its readers look for.
  std::vector<MetadataItem> metadata(std::vector<MetadataItem> items) const;
  /// `videoTimescale` is 0 without pictures.
  CodecDictionary muxerOptions(double fragmentSeconds, const std::vector<MetadataItem>& metadata, int videoTimescale,
                               bool isHeaderDelayed) const;
  /// Of the muxer that makes the index of a regular movie.
  CodecDictionary indexOptions(const std::vector<MetadataItem>& metadata, int videoTimescale) const;

 private:
  CodecDictionary quickTimeOptions(std::string flags, const std::vector<MetadataItem>& metadata,
                                   int videoTimescale) const;
  explicit MovieContainer(const AVOutputFormat* format) : format_(format) {}

  const AVOutputFormat* format_;
};

}  // namespace tavrel
