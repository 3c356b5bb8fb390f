#pragma once

#include <memory>

#include "GPUImage/Sources/TavrelGPUImageMovie.h"
#include "Platform/Media/AudioMix.h"
#include "Platform/Media/Composition.h"
#include "Platform/Media/VideoComposition.h"

namespace tavrel {

/// A movie source that plays an edited composition: its video tracks put together by a video composition, its sound
/// tracks mixed by an audio mix. Either may be nullptr: then the tracks are put together as they are. Sound arrives as
/// PCM.
class TAVREL_API TavrelGPUImageMovieComposition : public TavrelGPUImageMovie {
 public:
  TavrelGPUImageMovieComposition(const std::shared_ptr<Composition>& compositon,
                                 const std::shared_ptr<VideoComposition>& andVideoComposition,
                                 const std::shared_ptr<AudioMix>& andAudioMix);

  const std::shared_ptr<Composition>& compositon() const { return compositon_; }
  void setCompositon(const std::shared_ptr<Composition>& newValue) { compositon_ = newValue; }
  /// A mutable one is set to the render scale 1 when processing starts.
  const std::shared_ptr<VideoComposition>& videoComposition() const { return videoComposition_; }
  void setVideoComposition(const std::shared_ptr<VideoComposition>& newValue) { videoComposition_ = newValue; }
  const std::shared_ptr<AudioMix>& audioMix() const { return audioMix_; }
  void setAudioMix(const std::shared_ptr<AudioMix>& newValue) { audioMix_ = newValue; }

 protected:
  std::shared_ptr<AssetReader> createAssetReader() override;

 private:
  std::shared_ptr<Composition> compositon_;
  std::shared_ptr<VideoComposition> videoComposition_;
  std::shared_ptr<AudioMix> audioMix_;
};

}  // namespace tavrel
