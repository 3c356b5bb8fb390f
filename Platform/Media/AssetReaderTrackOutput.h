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
/// Pictures: each sample holds a pixel buffer, as stored (not turned), its presentation time and duration in the
/// track's timescale. The track's matrix and range are honoured; where it does not say, BT.601 up to 719 lines and
/// BT.709 above, limited range. Pixel buffers come from a pool. Sound: each sample holds interleaved 32-bit float PCM
/// in the track's rate and channels, with the time of its first frame. Samples outside the file's edit list, and those
/// before 0, are not delivered.
class TAVREL_API AssetReaderTrackOutput : public AssetReaderOutput {
 public:
  /// Pictures as 'BGRA', sound as PCM.
  explicit AssetReaderTrackOutput(std::shared_ptr<const AssetTrack> track);
  /// Pictures in the `PixelFormat` under `kPixelBufferPixelFormatTypeKey` ('BGRA' when absent), sound as PCM with the
  /// frames a second under `kAudioSampleRateKey` and the channels under `kAudioNumberOfChannelsKey` (the track's when
  /// absent). Reading does not start with others than 1 to 768000 and 1 to 64. Without settings the samples come as
  /// they are stored: packets of the file's coding, or PCM where the file holds PCM (16 bits, or 32-bit float where it
  /// has more). Packets that a decoder needs but a player does not play have negative times and 0 as their output time.
  /// Tracks of compositions are decoded in any case.
  AssetReaderTrackOutput(std::shared_ptr<const AssetTrack> track, const std::optional<Dictionary>& outputSettings);

  const std::shared_ptr<const AssetTrack>& track() const { return track_; }
  MediaType mediaType() const override { return track_->mediaType(); }

 private:
  Expected<std::unique_ptr<SampleReader>> open(const AssetReader& reader) override;

  const std::shared_ptr<const AssetTrack> track_;
  const std::optional<Dictionary> settings_;
};

}  // namespace tavrel
