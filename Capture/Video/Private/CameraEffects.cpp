#include "Capture/Video/Private/CameraEffects.h"

#include <algorithm>
#include <utility>

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

std::shared_ptr<const CameraEffects::Made> CameraEffects::makeNodes(Size frameSize) {
  Made made = {.effects = shared(), .nodes = {}, .effectsToFilterDictionary = {}};
  TavrelCaptureEffectNodes& all = made.nodes;
  for (const auto& effect : *made.effects) {
    const TavrelCaptureEffectNodes nodes = effect->makeNodes(frameSize);
    for (const auto& filter : nodes.filters) {
      // An effect that is listed twice may hand out the same node twice; a node cannot follow itself.
      const bool isNew = std::find(all.filters.begin(), all.filters.end(), filter) == all.filters.end();
      if (isNew) all.filters.push_back(filter);
    }
    all.pictures.insert(all.pictures.end(), nodes.pictures.begin(), nodes.pictures.end());
    made.effectsToFilterDictionary[reinterpret_cast<std::uint64_t>(effect.get())] = nodes;
  }
  auto shared = std::make_shared<const Made>(std::move(made));
  const std::lock_guard lock(mutex_);
  return made_ = std::move(shared);
}

std::shared_ptr<const CameraEffects::Made> CameraEffects::use(std::shared_ptr<const Made> made) {
  const std::lock_guard lock(mutex_);
  return std::exchange(used_, std::move(made));
}

bool CameraEffects::applyChange(TavrelCaptureEffect& effect, std::string_view property) const {
  const auto [made, used] = [this] {
    const std::lock_guard lock(mutex_);
    return std::pair(made_, used_);
  }();
  const auto apply = [&](const Made& to) {
    const auto nodes = to.effectsToFilterDictionary.find(reinterpret_cast<std::uint64_t>(&effect));
    return nodes != to.effectsToFilterDictionary.end() && effect.applyChange(property, nodes->second);
  };
  if (used != made) apply(*used);
  return apply(*made);
}

std::shared_ptr<PixelBuffer> CameraEffects::prepareFrame(std::shared_ptr<PixelBuffer> pixelBuffer,
                                                         const SampleTiming& sampleTimingInfo,
                                                         MediaTime frameTime) const {
  const auto used = [this] {
    const std::lock_guard lock(mutex_);
    return used_;
  }();
  for (const auto& effect : *used->effects)
    pixelBuffer = effect->prepareFrame(pixelBuffer, sampleTimingInfo, frameTime);
  return pixelBuffer;
}

}  // namespace tavrel
