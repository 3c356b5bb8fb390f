#pragma once

#include <memory>

#include "GPUImage/Sources/TavrelGPUImageMovie.h"
#include "Platform/Foundation/Pimpl.h"
#include "Platform/Media/AudioMix.h"
#include "Platform/Media/Composition.h"
#include "Platform/Media/VideoComposition.h"

namespace tavrel {

/// A movie source that plays a composition: a video composition combines its video tracks, an audio mix its audio
/// tracks. Either may be nullptr for the defaults. Audio arrives as PCM.
class TAVREL_API TavrelGPUImageMovieComposition : public TavrelGPUImageMovie {
 public:
  TavrelGPUImageMovieComposition(const std::shared_ptr<Composition>& compositon,
                                 const std::shared_ptr<VideoComposition>& andVideoComposition,
                                 const std::shared_ptr<AudioMix>& andAudioMix);
  ~TavrelGPUImageMovieComposition() override;

  std::shared_ptr<Composition> compositon() const;
  void setCompositon(const std::shared_ptr<Composition>& newValue);
  std::shared_ptr<VideoComposition> videoComposition() const;
  /// The render scale of a mutable one is set to 1 when processing starts.
  void setVideoComposition(const std::shared_ptr<VideoComposition>& newValue);
  std::shared_ptr<AudioMix> audioMix() const;
  void setAudioMix(const std::shared_ptr<AudioMix>& newValue);

 protected:
  std::shared_ptr<AssetReader> createAssetReader() override;

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
