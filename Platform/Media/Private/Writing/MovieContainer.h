#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Media/MetadataItem.h"
#include "Platform/Media/Private/ColorVolume.h"
#include "Platform/Media/Private/FFmpegHandles.h"

namespace tavrel {

/// What a track's packets are.
struct TrackFormat {
  const AVCodecParameters* parameters = nullptr;
  AVRational timeBase{0, 1};
  AVRational frameRate{0, 1};   ///< of pictures, on average; 0 when it is not known
  std::int64_t decodeLead = 0;  ///< how long before the movie's time 0 the first sample may be decoded, in `timeBase`
  ColorVolume colorVolume{};
  bool isCopied = false;  ///< the packets were made elsewhere
};

/// What a file says about a track beside its format.
struct TrackDescription {
  AffineTransform transform;
  std::string languageCode;  ///< empty for none
};

/// What a file says about itself beside its tracks.
struct MovieContents {
  std::vector<MetadataItem> metadata;
  std::vector<Chapter> chapters;
  std::optional<Artwork> artwork;
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

  bool canHoldSubtitles(AVCodecID codec) const;
  /// The coding of texts in such files.
  AVCodecID usualSubtitles() const;
  bool canHoldArtwork(const Artwork& artwork, const std::vector<MetadataItem>& metadata) const;

  /// Whether packets of another movie can be stored; `hasHeader` if that says what a decoder has to know.
  bool canStore(AVCodecID codec, bool hasHeader) const;

  /// Whether the header can be written only when the track has a packet, which says what the sound is.
  bool needsPacketForHeader(AVCodecID codec) const;

  /// An empty file of this type, which is written to `output`. FFmpeg's error code when there is none.
  int open(AVIOContext* output, OutputFormat& context) const;
  /// Adds a track. nullptr when no memory is left.
  AVStream* addStream(AVFormatContext& context, const TrackFormat& format, const TrackDescription& description) const;
  /// These must be added before the header is written, but those of QuickTime and MP4 before the end.
  static void addChapters(AVFormatContext& context, const std::vector<Chapter>& chapters);
  /// A stream of its own, whose only packet in QuickTime and MP4 is the picture. nullptr when no memory is left.
  AVStream* addArtwork(AVFormatContext& context, const Artwork& artwork) const;
  /// What a file of this type says about itself beside `items`: the same by the names that its readers look for.
  std::vector<MetadataItem> metadata(std::vector<MetadataItem> items) const;
  /// `videoTimescale` is 0 without pictures.
  CodecDictionary muxerOptions(double fragmentSeconds, const std::vector<MetadataItem>& metadata, int videoTimescale,
                               bool isHeaderDelayed) const;
  /// Of the muxer that makes the index of a regular movie.
  CodecDictionary indexOptions(const std::vector<MetadataItem>& metadata, int videoTimescale) const;

 private:
  /// Whether some of these have no place but a table of keys.
  bool hasOwnKeys(const std::vector<MetadataItem>& metadata) const;
  CodecDictionary quickTimeOptions(std::string flags, const std::vector<MetadataItem>& metadata,
                                   int videoTimescale) const;
  explicit MovieContainer(const AVOutputFormat* format) : format_(format) {}

  const AVOutputFormat* format_;
};

}  // namespace tavrel
