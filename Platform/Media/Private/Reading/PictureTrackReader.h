#pragma once

#include <deque>

#include "Platform/Media/Private/Reading/PictureMaker.h"
#include "Platform/Media/Private/Reading/SampleReader.h"
#include "Platform/Media/Private/Reading/TrackDecoder.h"

namespace tavrel {

/// The pictures of a file's track.
///
/// For random access it keeps the decoded pictures that it came by, up to a bound of memory, and makes pixel buffers
/// only of those that are asked for: reading backwards picture by picture then decodes each group of pictures once, as
/// far as the group fits the bound.
class PictureTrackReader final : public SampleReader {
 public:
  static Expected<std::unique_ptr<SampleReader>> open(const std::filesystem::path& path, const AssetTrack& track,
                                                      const SampleForm& form);

  Expected<std::shared_ptr<SampleBuffer>> next(const GoOn& goOn) override;
  Expected<void> seek(const MediaTimeRange& range, bool withShownAtStart) override;

 private:
  PictureTrackReader(std::unique_ptr<TrackDecoder> decoder, const SampleForm& form);

  /// The next picture in the range, of those at hand or decoded; it stays valid until the next call.
  Expected<const AVFrame*> nextPicture(const GoOn& goOn);
  Expected<const AVFrame*> nextInOrder(const GoOn& goOn);
  Expected<void> goBefore(std::int64_t time);
  bool canGoOn(std::int64_t time) const;
  void keep(const AVFrame& picture);
  void forget();
  Expected<std::shared_ptr<SampleBuffer>> sampleOf(const AVFrame& picture);

  const std::unique_ptr<TrackDecoder> decoder_;
  const std::shared_ptr<PictureMaker> maker_;
  const bool isRandomAccess_;

  std::int64_t start_;
  std::int64_t end_;
  std::optional<MediaTime> lastTime_;
  bool wantsShownAtStart_ = false;
  Frame shownAtStart_;
  Frame pending_;  // decoded, but behind what is delivered first

  std::deque<Frame> kept_;  // in order of presentation, without a gap
  std::size_t cursor_ = 0;  // of the next one to deliver
  std::size_t keptBytes_ = 0;
  bool beginsAtStart_ = true;  // nothing comes before the first kept picture
  bool isAtEnd_ = false;
};

}  // namespace tavrel
