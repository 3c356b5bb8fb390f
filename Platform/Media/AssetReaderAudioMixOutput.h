#pragma once

#include <memory>
#include <vector>

#include "Platform/Media/Asset.h"
#include "Platform/Media/AssetReaderOutput.h"
#include "Platform/Media/AudioMix.h"

namespace tavrel {

/// Mixes several audio tracks into one: interleaved 32-bit float PCM, with the first track's sample rate and the
/// largest channel count, from 0 to the end of the longest track without gaps. The sum is not clipped.
class TAVREL_API AssetReaderAudioMixOutput : public AssetReaderOutput {
 public:
  explicit AssetReaderAudioMixOutput(std::vector<std::shared_ptr<const AssetTrack>> audioTracks);

  MediaType mediaType() const override { return MediaType::audio; }
  const std::shared_ptr<const AudioMix>& audioMix() const { return audioMix_; }
  /// Set before reading starts. Without a mix all tracks have volume 1.
  void setAudioMix(std::shared_ptr<const AudioMix> newValue) { audioMix_ = std::move(newValue); }

 private:
  Expected<std::unique_ptr<SampleReader>> open(const AssetReader& reader) override;

  const std::vector<std::shared_ptr<const AssetTrack>> tracks_;
  std::shared_ptr<const AudioMix> audioMix_;
};

}  // namespace tavrel
