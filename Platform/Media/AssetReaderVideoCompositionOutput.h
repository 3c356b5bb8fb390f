#pragma once

#include <memory>
#include <vector>

#include "Platform/Media/Asset.h"
#include "Platform/Media/AssetReaderOutput.h"
#include "Platform/Media/VideoComposition.h"

namespace tavrel {

/// Reads several video tracks as one: a 'BGRA' picture each frame duration, from 0 to the end of the longest track, put
/// together on the CPU with linear sampling.
class TAVREL_API AssetReaderVideoCompositionOutput : public AssetReaderOutput {
 public:
  explicit AssetReaderVideoCompositionOutput(std::vector<std::shared_ptr<const AssetTrack>> videoTracks);

  MediaType mediaType() const override { return MediaType::video; }
  const std::shared_ptr<const VideoComposition>& videoComposition() const { return videoComposition_; }
  /// Before reading starts. Without one, that of `MutableVideoComposition::createWithPropertiesOfAsset` is used.
  /// Reading does not start with a render size or a frame duration that is not positive.
  void setVideoComposition(std::shared_ptr<const VideoComposition> newValue) {
    videoComposition_ = std::move(newValue);
  }

 private:
  Expected<std::unique_ptr<SampleReader>> open(const AssetReader& reader) override;

  const std::vector<std::shared_ptr<const AssetTrack>> tracks_;
  std::shared_ptr<const VideoComposition> videoComposition_;
};

}  // namespace tavrel
