#pragma once

#include <memory>
#include <vector>

#include "Platform/Media/Asset.h"
#include "Platform/Media/AssetReaderOutput.h"
#include "Platform/Media/AudioMix.h"

namespace tavrel {

/// Reads several sound tracks as one: interleaved 32-bit float PCM in the first track's rate and the most channels that
/// any of them has, without a gap from 0 to the end of the longest. The sum is not limited.
class TAVREL_API AssetReaderAudioMixOutput : public AssetReaderOutput {
 public:
  explicit AssetReaderAudioMixOutput(std::vector<std::shared_ptr<const AssetTrack>> audioTracks);

  MediaType mediaType() const override { return MediaType::audio; }
  const std::shared_ptr<const AudioMix>& audioMix() const { return audioMix_; }
  /// Before reading starts. Without one, all tracks are as loud as they are.
  void setAudioMix(std::shared_ptr<const AudioMix> newValue) { audioMix_ = std::move(newValue); }

 private:
  Expected<std::unique_ptr<SampleReader>> open(const AssetReader& reader) override;

  const std::vector<std::shared_ptr<const AssetTrack>> tracks_;
  std::shared_ptr<const AudioMix> audioMix_;
};

}  // namespace tavrel
