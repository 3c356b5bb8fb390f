#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include "Effects/TavrelCaptureEffect.h"

namespace tavrel {

/// The effects that a camera is asked for, watched for changes, and the nodes that were made of them. Any thread.
class CameraEffects {
 public:
  using List = std::vector<std::shared_ptr<TavrelCaptureEffect>>;
  /// Called on the thread that changes an effect of the list.
  using ChangeHandler = std::function<void(TavrelCaptureEffect& effect, std::string_view property)>;

  CameraEffects() = default;
  CameraEffects(const CameraEffects&) = delete;
  CameraEffects& operator=(const CameraEffects&) = delete;
  ~CameraEffects() { removetCaptureEffectsKVOs(); }

  List list() const { return *shared(); }
  /// Takes the list and watches it, and no longer the one before.
  void set(List effects, const ChangeHandler& handler);
  /// The nodes of all effects, in order.
  TavrelCaptureEffectNodes makeNodes(Size frameSize);
  /// Whether the nodes that were made last have taken the new value; of an effect that is listed twice, the later ones.
  bool applyChange(TavrelCaptureEffect& effect, std::string_view property) const;
  /// What the effects make of a frame; see `TavrelCaptureEffect::prepareFrame`.
  std::shared_ptr<PixelBuffer> prepareFrame(std::shared_ptr<PixelBuffer> pixelBuffer,
                                            const SampleTiming& sampleTimingInfo, MediaTime frameTime) const;

 private:
  using Observer = std::pair<std::shared_ptr<TavrelCaptureEffect>, TavrelCaptureEffect::ChangeObserverToken>;
  using NodesByEffect = std::map<std::uint64_t, TavrelCaptureEffectNodes>;

  std::shared_ptr<const List> shared() const;
  std::vector<Observer> addCaptureEffectsKVOs(const List& effects, const ChangeHandler& handler) const;
  void removetCaptureEffectsKVOs();

  mutable std::mutex mutex_;
  std::shared_ptr<const List> captureEffects_ = std::make_shared<const List>();
  std::vector<Observer> observers_;
  NodesByEffect effectsToFilterDictionary;  // by the effect's address
};

}  // namespace tavrel
