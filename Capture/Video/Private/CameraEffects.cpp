#include "Capture/Video/Private/CameraEffects.h"

#include <algorithm>

#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

std::shared_ptr<const CameraEffects::List> CameraEffects::shared() const {
  const std::lock_guard lock(mutex_);
  return captureEffects_;
}

void CameraEffects::set(List effects, const ChangeHandler& handler) {
  removetCaptureEffectsKVOs();
  auto observers = addCaptureEffectsKVOs(effects, handler);
  auto list = std::make_shared<const List>(std::move(effects));
  const std::lock_guard lock(mutex_);
  captureEffects_.swap(list);
  observers_.swap(observers);
}

std::vector<CameraEffects::Observer> CameraEffects::addCaptureEffectsKVOs(const List& effects,
                                                                          const ChangeHandler& handler) const {
  std::vector<Observer> observers;
  for (const auto& effect : effects) {
    effect->setWaitsForPictures(false);
    // The effect is owned for as long as it is observed.
    observers.emplace_back(
        effect, effect->addChangeObserver(
                    [handler, changed = effect.get()](std::string_view property) { handler(*changed, property); }));
  }
  return observers;
}

void CameraEffects::removetCaptureEffectsKVOs() {
  decltype(observers_) observers;
  {
    const std::lock_guard lock(mutex_);
    observers.swap(observers_);
  }
  for (const auto& [effect, token] : observers) effect->removeChangeObserver(token);
}

TavrelCaptureEffectNodes CameraEffects::makeNodes(Size frameSize) {
  TavrelCaptureEffectNodes all;
  NodesByEffect dictionary;
  const std::shared_ptr<const List> effects = shared();
  for (const auto& effect : *effects) {
    const TavrelCaptureEffectNodes nodes = effect->makeNodes(frameSize);
    for (const auto& filter : nodes.filters) {
      // An effect that is listed twice may hand out the same node twice; a node cannot follow itself.
      const bool isNew = std::find(all.filters.begin(), all.filters.end(), filter) == all.filters.end();
      if (isNew) all.filters.push_back(filter);
    }
    all.pictures.insert(all.pictures.end(), nodes.pictures.begin(), nodes.pictures.end());
    dictionary[reinterpret_cast<std::uint64_t>(effect.get())] = nodes;
  }
  const std::lock_guard lock(mutex_);
  effectsToFilterDictionary.swap(dictionary);
  return all;
}

bool CameraEffects::applyChange(TavrelCaptureEffect& effect, std::string_view property) const {
  TavrelCaptureEffectNodes nodes;
  {
    const std::lock_guard lock(mutex_);
    const auto made = effectsToFilterDictionary.find(reinterpret_cast<std::uint64_t>(&effect));
    if (made == effectsToFilterDictionary.end()) return false;
    nodes = made->second;
  }
  return effect.applyChange(property, nodes);
}

std::shared_ptr<PixelBuffer> CameraEffects::prepareFrame(std::shared_ptr<PixelBuffer> pixelBuffer,
                                                         const SampleTiming& sampleTimingInfo,
                                                         MediaTime frameTime) const {
  const std::shared_ptr<const List> effects = shared();
  for (const auto& effect : *effects) pixelBuffer = effect->prepareFrame(pixelBuffer, sampleTimingInfo, frameTime);
  return pixelBuffer;
}

}  // namespace tavrel
