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
  using NodesByEffect = std::map<std::uint64_t, TavrelCaptureEffectNodes>;
  /// A list as it was, and what became of it.
  struct Made {
    std::shared_ptr<const List> effects = std::make_shared<const List>();
    TavrelCaptureEffectNodes nodes;           // of all effects, in order
    NodesByEffect effectsToFilterDictionary;  // by the effect's address
  };
  /// Called on the thread that changes an effect of the list.
  using ChangeHandler = std::function<void(TavrelCaptureEffect& effect, std::string_view property)>;

  CameraEffects() = default;
  CameraEffects(const CameraEffects&) = delete;
  CameraEffects& operator=(const CameraEffects&) = delete;
  ~CameraEffects() { removetCaptureEffectsKVOs(); }

  List list() const { return *shared(); }
  /// Takes the list and watches it, and no longer the one before.
  void set(List effects, const ChangeHandler& handler);
  /// Makes nodes of the list.
  std::shared_ptr<const Made> makeNodes(Size frameSize);
  /// From now on frames pass these effects; returns the earlier ones.
  std::shared_ptr<const Made> use(std::shared_ptr<const Made> made);
  /// Whether the nodes that were made last have taken the new value; of an effect that is listed twice, the later ones.
  /// Those in use take it, too.
  bool applyChange(TavrelCaptureEffect& effect, std::string_view property) const;
  /// What the effects in use make of a frame; see `TavrelCaptureEffect::prepareFrame`.
  std::shared_ptr<PixelBuffer> prepareFrame(std::shared_ptr<PixelBuffer> pixelBuffer,
                                            const SampleTiming& sampleTimingInfo, MediaTime frameTime) const;

 private:
  using Observer = std::pair<std::shared_ptr<TavrelCaptureEffect>, TavrelCaptureEffect::ChangeObserverToken>;

  std::shared_ptr<const List> shared() const;
  std::vector<Observer> addCaptureEffectsKVOs(const List& effects, const ChangeHandler& handler) const;
  void removetCaptureEffectsKVOs();

  mutable std::mutex mutex_;
  std::shared_ptr<const List> captureEffects_ = std::make_shared<const List>();
  std::vector<Observer> observers_;
  std::shared_ptr<const Made> made_ = std::make_shared<const Made>();
  std::shared_ptr<const Made> used_ = made_;
};

}  // namespace tavrel
