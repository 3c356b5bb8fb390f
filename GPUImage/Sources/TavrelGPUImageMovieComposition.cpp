#include "GPUImage/Sources/TavrelGPUImageMovieComposition.h"

#include "GPUImage/Private/Properties.h"
#include "GPUImage/Private/SharedValue.h"
#include "Platform/Media/AssetReaderAudioMixOutput.h"
#include "Platform/Media/AssetReaderVideoCompositionOutput.h"

namespace tavrel {

struct TavrelGPUImageMovieComposition::Implementation {
  SharedValue<std::shared_ptr<Composition>> compositon;
  SharedValue<std::shared_ptr<VideoComposition>> videoComposition;
  SharedValue<std::shared_ptr<AudioMix>> audioMix;
};

TavrelGPUImageMovieComposition::TavrelGPUImageMovieComposition(
    const std::shared_ptr<Composition>& compositon, const std::shared_ptr<VideoComposition>& andVideoComposition,
    const std::shared_ptr<AudioMix>& andAudioMix)
    : TavrelGPUImageMovie(std::static_pointer_cast<Asset>(compositon)),
      implementation_(std::make_unique<Implementation>()) {
  setCompositon(compositon);
  setVideoComposition(andVideoComposition);
  setAudioMix(andAudioMix);
}

TavrelGPUImageMovieComposition::~TavrelGPUImageMovieComposition() = default;

std::shared_ptr<AssetReader> TavrelGPUImageMovieComposition::createAssetReader() {
  const auto edited = compositon();
  auto reader = AssetReader::create(edited);
  if (!reader) return nullptr;
  const auto videoTracks = edited->tracksWithMediaType(MediaType::video);
  if (!videoTracks.empty()) {
    const auto pictures = videoComposition();
    if (const auto changeable = std::dynamic_pointer_cast<MutableVideoComposition>(pictures)) {
      changeable->setRenderScale(1);
    }
    auto output = std::make_shared<AssetReaderVideoCompositionOutput>(videoTracks);
    output->setVideoComposition(pictures);
    output->setAlwaysCopiesSampleData(false);
    (*reader)->addOutput(std::move(output));
  }
  const auto audioTracks = edited->tracksWithMediaType(MediaType::audio);
  if (!audioTracks.empty() && audioEncodingTarget()) {
    auto output = std::make_shared<AssetReaderAudioMixOutput>(audioTracks);
    output->setAudioMix(audioMix());
    addAudioOutput(**reader, std::move(output));
  }
  return *reader;
}

TAVREL_SHARED_PROPERTY(TavrelGPUImageMovieComposition, std::shared_ptr<Composition>, compositon, setCompositon)
TAVREL_SHARED_PROPERTY(TavrelGPUImageMovieComposition, std::shared_ptr<VideoComposition>, videoComposition,
                       setVideoComposition)
TAVREL_SHARED_PROPERTY(TavrelGPUImageMovieComposition, std::shared_ptr<AudioMix>, audioMix, setAudioMix)

}  // namespace tavrel
