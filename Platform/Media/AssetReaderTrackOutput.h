#pragma once

#include <memory>

#include "Platform/Media/Asset.h"
#include "Platform/Media/AssetReaderOutput.h"

namespace tavrel {

/// Decodes one track, through libavcodec.
///
/// Pictures: each sample holds a BGRA pixel buffer, as stored (not turned), its presentation time and duration in the
/// track's timescale. The track's matrix and range are honoured; where it does not say, BT.601 up to 719 lines and
/// BT.709 above, limited range. Pixel buffers come from a pool. Sound: each sample holds interleaved 32-bit float PCM
/// in the track's rate and channels, with the time of its first frame. Samples outside the file's edit list, and those
/// before 0, are not delivered.
class TAVREL_API AssetReaderTrackOutput : public AssetReaderOutput {
 public:
  explicit AssetReaderTrackOutput(std::shared_ptr<const AssetTrack> track);
  ~AssetReaderTrackOutput() override;

  const std::shared_ptr<const AssetTrack>& track() const { return track_; }
  MediaType mediaType() const override { return track_->mediaType(); }
  std::shared_ptr<SampleBuffer> copyNextSampleBuffer() override;

 private:
  struct Implementation;
  Expected<void> prepare(const std::shared_ptr<AssetReader>& reader) override;

  std::shared_ptr<const AssetTrack> track_;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
