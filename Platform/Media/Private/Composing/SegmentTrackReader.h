#pragma once

#include <vector>

#include "Platform/Media/Private/Reading/SampleReader.h"

namespace tavrel {

/// A composition's track: the samples of its segments' tracks, moved and stretched onto the composition's time line.
/// Nothing is delivered for empty segments. Sound that is stretched changes its pitch as a tape does.
class SegmentTrackReader final : public SampleReader {
 public:
  SegmentTrackReader(const AssetTrack& track, const SampleForm& form);

  Expected<std::shared_ptr<SampleBuffer>> next(const GoOn& goOn) override;
  Expected<void> seek(const MediaTimeRange& range, bool withShownAtStart) override;

 private:
  Expected<void> openSegment();
  MediaTime placed(MediaTime sourceTime) const;
  Expected<std::shared_ptr<SampleBuffer>> placedPicture(const std::shared_ptr<SampleBuffer>& picture) const;
  Expected<std::shared_ptr<SampleBuffer>> placedSound(const std::shared_ptr<SampleBuffer>& sound) const;
  const AssetTrackSegment& segment() const { return segments_[index_]; }
  double stretch() const;

  const std::vector<AssetTrackSegment> segments_;
  const MediaType mediaType_;
  SampleForm form_;
  MediaTimeRange range_ = MediaTimeRange::everything();
  bool wantsShownAtStart_ = false;
  std::size_t index_ = 0;
  std::unique_ptr<SampleReader> reader_;  // of the current segment
  std::size_t readerIndex_ = 0;
};

}  // namespace tavrel
