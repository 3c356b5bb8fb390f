#pragma once

#include <memory>
#include <optional>

#include "Platform/Foundation/Dictionary.h"
#include "Platform/Media/Asset.h"
#include "Platform/Media/AssetReaderOutput.h"
#include "Platform/Media/MediaSettings.h"

namespace tavrel {

/// Reads one track of a file or of a composition, through libavcodec.
///
/// Each video sample holds a pixel buffer from a pool, not rotated, with presentation time and duration in the track's
/// timescale. The track's colour matrix and range are honoured; defaults are limited range and BT.601 below 720 lines,
/// BT.709 from there on. Interlaced pictures are deinterlaced, unless `kVideoFieldModeKey` keeps their fields. High
/// dynamic range (PQ, HLG) is tone-mapped to BT.709, by Hable's curve with white at 100 cd/m², but for frames of ten
/// bits; 'BGRA' frames of other primaries (BT.601, BT.2020) are converted to BT.709's, while 4:2:0 frames keep their
/// colours, which their attachments name. Each audio sample holds interleaved 32-bit float PCM in the track's rate and
/// channels, with the time of its first frame. Samples outside the edit list or before 0 are not delivered.
class TAVREL_API AssetReaderTrackOutput : public AssetReaderOutput {
 public:
  /// Frames as 'BGRA', audio as PCM.
  explicit AssetReaderTrackOutput(std::shared_ptr<const AssetTrack> track);
  /// Frames in the `PixelFormat` under `kPixelBufferPixelFormatTypeKey` (default 'BGRA'); audio as PCM of
  /// `kAudioSampleRateKey`, 1 to 768000 Hz, and `kAudioNumberOfChannelsKey`, 1 to 64 (defaults: the track's). Reading
  /// fails to start with other values. Without settings samples are delivered as stored: compressed packets, or PCM if
  /// the file holds PCM (16-bit, or 32-bit float if deeper). Packets that are decoded but not played have negative
  /// times and an output time of 0. Tracks of compositions are always decoded; subtitles never are, and reading them
  /// with settings fails to start.
  AssetReaderTrackOutput(std::shared_ptr<const AssetTrack> track, const std::optional<Dictionary>& outputSettings);

  const std::shared_ptr<const AssetTrack>& track() const { return track_; }
  MediaType mediaType() const override { return track_->mediaType(); }

 private:
  Expected<std::unique_ptr<SampleReader>> open(const AssetReader& reader) override;

  const std::shared_ptr<const AssetTrack> track_;
  const std::optional<Dictionary> settings_;
};

}  // namespace tavrel
