#include <array>
#include <utility>

#include "Capture/Video/TavrelCamera.h"
#include "Effects/TavrelAnimatedStickerCaptureEffect.h"
#include "Effects/TavrelFaceBeautyCaptureEffect.h"
#include "Effects/TavrelFilterCaptureEffect.h"
#include "Effects/TavrelImageStickerCaptureEffect.h"
#include "Effects/TavrelLUTFilterCaptureEffect.h"
#include "GPUImage/Filters/TavrelGPUImageAlphaBlendFilter.h"
#include "GPUImage/Filters/TavrelGPUImageGaussianBlurFilter.h"
#include "GPUImage/Filters/TavrelGPUImageLookupFilter.h"
#include "GPUImage/Filters/TavrelGPUImagePlacementFilter.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "TavrelBase/Utils/TavrelUtils.h"

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
  EffectNodes nodes;
  for (const auto& effect : *read(captureEffects_)) appendNodes(nodes, effect);
  write(effectsToFilterDictionary, std::move(nodes.effectsToFilterDictionary));

  const std::lock_guard lock(cameraOutputLock);
  takeChainApart();
  filters.swap(nodes.filters);
  picturesNeedToBeProcessed.swap(nodes.pictures);
  rebuildPipeline();
}

void TavrelCamera::appendNodes(EffectNodes& nodes, const std::shared_ptr<TavrelCaptureEffect>& effect) const {
  const auto addPicture = [&](const std::shared_ptr<Image>& image) {
    nodes.pictures.push_back(std::make_shared<TavrelGPUImagePicture>(image, false, true));
    return nodes.pictures.back();
  };
  if (const auto sticker = std::dynamic_pointer_cast<TavrelImageStickerCaptureEffect>(effect)) {
    const auto& image = sticker->image();
    if (!image) return;
    const Rect rectangle =
        sticker->destRect() == Rect()
            ? Rect{{0, 0}, {static_cast<double>(image->width()), static_cast<double>(image->height())}}
            : sticker->destRect();
    const auto placement = std::make_shared<TavrelGPUImagePlacementFilter>();
    placement->setAffineTransform(TavrelGetTransform(rectangle, size(), static_cast<float>(sticker->rotation())));
    placement->forceProcessingAtSize(size());
    const auto blend = std::make_shared<TavrelGPUImageAlphaBlendFilter>();
    blend->setMix(1);
    addPicture(image)->addTarget(placement);
    placement->addTarget(blend, 1);
    nodes.filters.push_back(blend);
  } else if (const auto table = std::dynamic_pointer_cast<TavrelLUTFilterCaptureEffect>(effect)) {
    if (!table->image()) return;
    const auto lookup = std::make_shared<TavrelGPUImageLookupFilter>();
    addPicture(table->image())->addTarget(lookup, 1);
    nodes.filters.push_back(lookup);
  } else if (const auto beauty = std::dynamic_pointer_cast<TavrelFaceBeautyCaptureEffect>(effect)) {
    const auto filter = std::make_shared<TavrelGPUImageBeautifyFilter>();
    filter->setToneLevel(beauty->toneLevel());
    filter->setBrightLevel(beauty->brightLevel());
    filter->setBeautyLevel(beauty->beautyLevel());
    nodes.filters.push_back(filter);
    nodes.effectsToFilterDictionary[reinterpret_cast<std::uint64_t>(beauty.get())] = filter;
  } else if (const auto animation = std::dynamic_pointer_cast<TavrelAnimatedStickerCaptureEffect>(effect)) {
    animation->setVideoSize(size());
    nodes.filters.push_back(animation->filter());
    nodes.pictures.push_back(animation->picture());
  } else if (const auto own = std::dynamic_pointer_cast<TavrelFilterCaptureEffect>(effect)) {
    if (own->filter()) nodes.filters.push_back(own->filter());
  }
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
