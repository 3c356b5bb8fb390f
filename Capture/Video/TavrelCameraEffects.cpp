#include <utility>

#include "Capture/Video/TavrelCamera.h"
#include "GPUImage/Filters/TavrelGPUImageGaussianBlurFilter.h"
#include "GPUImage/TavrelGPUImageContext.h"

namespace tavrel {

constexpr double kSwitchBlurRadius = 50;

TavrelCamera::CaptureEffects TavrelCamera::captureEffects() const {
  return *read(captureEffects_);
}

void TavrelCamera::setCaptureEffects(CaptureEffects captureEffects) {
  removetCaptureEffectsKVOs();
  addCaptureEffectsKVOs(captureEffects);
  write(captureEffects_, std::make_shared<const CaptureEffects>(std::move(captureEffects)));
  refreshForNewCaptureEffects();
}

void TavrelCamera::addCaptureEffectsKVOs(const CaptureEffects& effects) {
  std::vector<EffectObserver> added;
  for (const auto& effect : effects) {
    // The camera owns the effect for as long as it observes it.
    added.emplace_back(effect, effect->addChangeObserver(
                                   [weakThis = weak_from_this(), changed = effect.get()](std::string_view property) {
                                     if (const auto camera = weakThis.lock())
                                       camera->captureEffectDidChange(*changed, property);
                                   }));
  }
  const std::lock_guard lock(propertyMutex_);
  effectObservers_ = std::move(added);
}

void TavrelCamera::removetCaptureEffectsKVOs() {
  decltype(effectObservers_) observers;
  {
    const std::lock_guard lock(propertyMutex_);
    observers.swap(effectObservers_);
  }
  for (const auto& [effect, token] : observers) effect->removeChangeObserver(token);
}

void TavrelCamera::captureEffectDidChange(TavrelCaptureEffect& effect, std::string_view property) {
  const auto dictionary = read(effectsToFilterDictionary);
  const auto nodes = dictionary.find(reinterpret_cast<std::uint64_t>(&effect));
  if (nodes == dictionary.end() || !effect.applyChange(property, nodes->second)) refreshForNewCaptureEffects();
}

void TavrelCamera::refreshForNewCaptureEffects() {
  decltype(filters) newFilters;
  decltype(picturesNeedToBeProcessed) newPictures;
  decltype(effectsToFilterDictionary) dictionary;
  for (const auto& effect : *read(captureEffects_)) {
    const TavrelCaptureEffectNodes nodes = effect->makeNodes(size());
    newFilters.insert(newFilters.end(), nodes.filters.begin(), nodes.filters.end());
    newPictures.insert(newPictures.end(), nodes.pictures.begin(), nodes.pictures.end());
    dictionary[reinterpret_cast<std::uint64_t>(effect.get())] = nodes;
  }
  write(effectsToFilterDictionary, std::move(dictionary));

  const std::lock_guard lock(cameraOutputLock);
  takeChainApart();
  filters.swap(newFilters);
  picturesNeedToBeProcessed.swap(newPictures);
  rebuildPipeline();
}

void TavrelCamera::refreshGPUImagePipeline() {
  const std::lock_guard lock(cameraOutputLock);
  rebuildPipeline();
}

void TavrelCamera::takeChainApart() {
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    const auto takeApart = [](TavrelGPUImageOutput& node) {
      node.removeAllTargets();
      node.setFrameProcessingCompletionBlock({});
      node.forceProcessingAtSize({});
    };
    takeApart(*pixelBufferInput);
    takeApart(*cropFilter);
    for (const auto& filter : filters) takeApart(*filter);
    if (blurFilter_) takeApart(*blurFilter_);
    takeApart(*mirroredFilter);
  });
}

void TavrelCamera::rebuildPipeline() {
  const bool mirrorsPreview = mirrorPreview();
  const bool mirrorsEncoded = mirrorEncoded();
  // In one go, so that no frame sees half of a chain.
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    takeChainApart();
    std::shared_ptr<TavrelGPUImageOutput> last = pixelBufferInput;
    const auto append = [&](const std::shared_ptr<TavrelGPUImageFilter>& filter) {
      last->addTarget(filter, 0);
      last = filter;
    };
    append(cropFilter);
    for (const auto& filter : filters) append(filter);
    blurFilter_ = nullptr;
    if (shouldBlur) {
      blurFilter_ = std::make_shared<TavrelGPUImageGaussianBlurFilter>();
      blurFilter_->setBlurRadiusInPixels(kSwitchBlurRadius);
      append(blurFilter_);
    }
    if (mirrorsPreview || mirrorsEncoded) last->addTarget(mirroredFilter);
    const auto branchEnd = [&](bool isMirrored) -> std::shared_ptr<TavrelGPUImageOutput> {
      if (isMirrored) return mirroredFilter;
      return last;
    };
    branchEnd(mirrorsPreview)->addTarget(previewView_);
    branchEnd(mirrorsPreview)->forceProcessingAtSize(size());
    branchEnd(mirrorsEncoded)->forceProcessingAtSize(size());
    branchEnd(mirrorsEncoded)
        ->setFrameProcessingCompletionBlock(
            [weakThis = weak_from_this()](TavrelGPUImageOutput& output, MediaTime frameTime) {
              if (const auto camera = weakThis.lock()) camera->completeFrame(output, frameTime);
            });
  });
}

}  // namespace tavrel
