#pragma once

#include <optional>

#include "Platform/Media/Private/PcmConverter.h"
#include "Platform/Media/Private/Reading/SampleReader.h"
#include "Platform/Media/Private/Reading/TrackDecoder.h"

namespace tavrel {

/// The sound of a file's track as PCM, cut exactly at the ends of a range.
class SoundTrackReader final : public SampleReader {
 public:
  static Expected<std::unique_ptr<SampleReader>> open(const std::filesystem::path& path, const AssetTrack& track,
                                                      const AudioFormat& format);

  Expected<std::shared_ptr<SampleBuffer>> next(const GoOn& goOn) override;
  Expected<void> seek(const MediaTimeRange& range, bool withShownAtStart) override;

 private:
  SoundTrackReader(std::unique_ptr<TrackDecoder> decoder, const AudioFormat& format)
      : decoder_(std::move(decoder)), format_(format), pcm_(format) {}

  const std::unique_ptr<TrackDecoder> decoder_;
  const AudioFormat format_;
  PcmConverter pcm_;
  const AVFrame* first_ = nullptr;  // decoded while seeking, and not given
  MediaTimeRange range_ = MediaTimeRange::everything();
};

/// The part of a PCM buffer that lies in `range`, stamped with its own time; nullptr when there is none.
Expected<std::shared_ptr<SampleBuffer>> cutToRange(const std::shared_ptr<SampleBuffer>& sound,
                                                   const MediaTimeRange& range);

}  // namespace tavrel
