#include "GPUImage/Sources/TavrelGPUImageMovieComposition.h"

#include "Platform/Media/AssetReaderAudioMixOutput.h"
#include "Platform/Media/AssetReaderVideoCompositionOutput.h"

namespace tavrel {

TavrelGPUImageMovieComposition::TavrelGPUImageMovieComposition(
    const std::shared_ptr<Composition>& compositon, const std::shared_ptr<VideoComposition>& andVideoComposition,
    const std::shared_ptr<AudioMix>& andAudioMix)
    : TavrelGPUImageMovie(std::static_pointer_cast<Asset>(compositon)),
      compositon_(compositon),
      videoComposition_(andVideoComposition),
      audioMix_(andAudioMix) {}

std::shared_ptr<AssetReader> TavrelGPUImageMovieComposition::createAssetReader() {
  auto reader = AssetReader::create(compositon_);
  if (!reader) return nullptr;
  const auto videoTracks = compositon_->tracksWithMediaType(MediaType::video);
  if (!videoTracks.empty()) {
    if (const auto changeable = std::dynamic_pointer_cast<MutableVideoComposition>(videoComposition_)) {
      changeable->setRenderScale(1);
    }
    auto output = std::make_shared<AssetReaderVideoCompositionOutput>(videoTracks);
    output->setVideoComposition(videoComposition_);
    output->setAlwaysCopiesSampleData(false);
    (*reader)->addOutput(std::move(output));
  }
  const auto audioTracks = compositon_->tracksWithMediaType(MediaType::audio);
  if (!audioTracks.empty() && audioEncodingTarget()) {
    auto output = std::make_shared<AssetReaderAudioMixOutput>(audioTracks);
    output->setAudioMix(audioMix_);
    addAudioOutput(**reader, std::move(output));
  }
  return *reader;
}

}  // namespace tavrel
