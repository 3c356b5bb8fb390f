#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "Platform/Media/Private/FFmpegHandles.h"
#include "Platform/Media/Private/Writing/TrackEncoder.h"

namespace tavrel {

/// Subtitles to a track of the file: as they are stored where the file takes their coding, and texts else as the coding
/// of texts that it takes.
class SubtitleTrackEncoder final : public TrackEncoder {
 public:
  explicit SubtitleTrackEncoder(std::shared_ptr<const FormatDescription> format) : format_(std::move(format)) {}

  /// Whether a file of this type takes such subtitles.
  static bool canStore(const MovieContainer& container, const FormatDescription& format);

  Expected<void> check(const MovieFile& file) const override;
  Expected<void> open(TrackOutput output, bool isRealTime) override;
  Expected<void> encode(const TrackSample& sample) override;
  Expected<void> finish() override { return {}; }

 private:
  Expected<void> openConverter(AVCodecID target);
  /// Nothing for a sample without a text.
  Expected<std::optional<Data>> converted(const TrackSample& sample);

  const std::shared_ptr<const FormatDescription> format_;
  TrackOutput output_;
  CodecContext decoder_;
  CodecContext encoder_;
  std::vector<std::uint8_t> text_;
};

}  // namespace tavrel
