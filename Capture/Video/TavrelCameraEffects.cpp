#include <array>
#include <tuple>
#include <utility>

#include "Capture/Video/TavrelCamera.h"
#include "Effects/TavrelCaptureEffectNodes.h"
#include "Effects/TavrelFaceBeautyCaptureEffect.h"
#include "Effects/TavrelFilterCaptureEffect.h"
#include "Effects/TavrelImageStickerCaptureEffect.h"
#include "Effects/TavrelLUTFilterCaptureEffect.h"
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
  std::vector<std::pair<std::shared_ptr<TavrelObject>, KeyValueObserving::ObserverToken>> added;
  const auto observe = [&](const std::shared_ptr<TavrelObject>& object, const char* key,
                           std::function<void(TavrelCamera&)> action) {
    added.emplace_back(
        object, object->addObserver(key, [weakThis = weak_from_this(), action = std::move(action)](std::string_view) {
          if (const auto camera = weakThis.lock()) action(*camera);
        }));
  };
  const auto rebuild = [](TavrelCamera& camera) { camera.refreshForNewCaptureEffects(); };
  for (const auto& effect : effects) {
    if (const auto sticker = std::dynamic_pointer_cast<TavrelImageStickerCaptureEffect>(effect)) {
      for (const char* key : {"image", "destRect", "rotation"}) observe(sticker, key, rebuild);
    } else if (const auto table = std::dynamic_pointer_cast<TavrelLUTFilterCaptureEffect>(effect)) {
      observe(table, "image", rebuild);
    } else if (const auto own = std::dynamic_pointer_cast<TavrelFilterCaptureEffect>(effect)) {
      observe(own, "filter", rebuild);
    } else if (const auto beauty = std::dynamic_pointer_cast<TavrelFaceBeautyCaptureEffect>(effect)) {
      using Setter = void (TavrelGPUImageBeautifyFilter::*)(double);
      using Getter = double (TavrelFaceBeautyCaptureEffect::*)() const;
      using Filter = TavrelGPUImageBeautifyFilter;
      using Effect = TavrelFaceBeautyCaptureEffect;
      const std::array<std::tuple<const char*, Getter, Setter>, 3> levels = {
          {{"beautyLevel", &Effect::beautyLevel, &Filter::setBeautyLevel},
           {"brightLevel", &Effect::brightLevel, &Filter::setBrightLevel},
           {"toneLevel", &Effect::toneLevel, &Filter::setToneLevel}}};
      for (const auto& [key, getter, setter] : levels) {
        // The camera owns the effect for as long as it observes it.
        observe(beauty, key, [effect = beauty.get(), getter = getter, setter = setter](TavrelCamera& camera) {
          if (const auto filter = camera.beautyFilterOf(*effect)) (*filter.*setter)((effect->*getter)());
        });
      }
    }
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
  for (const auto& [object, token] : observers) object->removeObserver(token);
}

std::shared_ptr<TavrelGPUImageBeautifyFilter> TavrelCamera::beautyFilterOf(
    const TavrelFaceBeautyCaptureEffect& effect) const {
  const std::lock_guard lock(propertyMutex_);
  const auto filter = effectsToFilterDictionary.find(reinterpret_cast<std::uint64_t>(&effect));
  return filter == effectsToFilterDictionary.end() ? nullptr : filter->second;
}

void TavrelCamera::refreshForNewCaptureEffects() {
  decltype(filters) newFilters;
  decltype(picturesNeedToBeProcessed) newPictures;
  BeautyFilters beautyFilters;
  for (const auto& effect : *read(captureEffects_)) {
    const TavrelCaptureEffectNodes nodes = TavrelMakeCaptureEffectNodes(*effect, size());
    if (nodes.filter) newFilters.push_back(nodes.filter);
    if (nodes.picture) newPictures.push_back(nodes.picture);
    if (const auto beauty = std::dynamic_pointer_cast<TavrelFaceBeautyCaptureEffect>(effect)) {
      beautyFilters[reinterpret_cast<std::uint64_t>(beauty.get())] =
          std::static_pointer_cast<TavrelGPUImageBeautifyFilter>(nodes.filter);
    }
  }
  write(effectsToFilterDictionary, std::move(beautyFilters));

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
