#pragma once

#include <memory>
#include <vector>

#include "Platform/Media/Asset.h"
#include "Platform/Media/AssetReaderOutput.h"
#include "Platform/Media/VideoComposition.h"

namespace tavrel {

/// Composes several video tracks into one: a 'BGRA' frame per frame duration, from 0 to the end of the longest track,
/// drawn on the CPU with linear sampling.
class TAVREL_API AssetReaderVideoCompositionOutput : public AssetReaderOutput {
 public:
  explicit AssetReaderVideoCompositionOutput(std::vector<std::shared_ptr<const AssetTrack>> videoTracks);

  MediaType mediaType() const override { return MediaType::video; }
  const std::shared_ptr<const VideoComposition>& videoComposition() const { return videoComposition_; }
  /// Set before reading starts; by default the result of `MutableVideoComposition::createWithPropertiesOfAsset`.
  /// Reading fails to start if the render size or frame duration is not positive.
  void setVideoComposition(std::shared_ptr<const VideoComposition> newValue) {
    videoComposition_ = std::move(newValue);
  }

 private:
  Expected<std::unique_ptr<SampleReader>> open(const AssetReader& reader) override;

  const std::vector<std::shared_ptr<const AssetTrack>> tracks_;
  std::shared_ptr<const VideoComposition> videoComposition_;
};

}  // namespace tavrel
