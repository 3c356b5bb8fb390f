#pragma once

#include <memory>

#include "GPUImage/Sources/TavrelGPUImageMovie.h"
#include "Platform/Media/AudioMix.h"
#include "Platform/Media/Composition.h"
#include "Platform/Media/VideoComposition.h"

namespace tavrel {

/// A movie source that plays an edited composition: a video composition puts its video tracks together, an audio mix
/// mixes its sound tracks. Either may be nullptr: then the tracks are put together as they are. Sound arrives as PCM.
class TAVREL_API TavrelGPUImageMovieComposition : public TavrelGPUImageMovie {
 public:
  TavrelGPUImageMovieComposition(const std::shared_ptr<Composition>& compositon,
                                 const std::shared_ptr<VideoComposition>& andVideoComposition,
                                 const std::shared_ptr<AudioMix>& andAudioMix);
  ~TavrelGPUImageMovieComposition() override;

  std::shared_ptr<Composition> compositon() const;
  void setCompositon(const std::shared_ptr<Composition>& newValue);
  std::shared_ptr<VideoComposition> videoComposition() const;
  /// A mutable one is set to the render scale 1 when processing starts.
  void setVideoComposition(const std::shared_ptr<VideoComposition>& newValue);
  std::shared_ptr<AudioMix> audioMix() const;
  void setAudioMix(const std::shared_ptr<AudioMix>& newValue);

 protected:
  std::shared_ptr<AssetReader> createAssetReader() override;

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
