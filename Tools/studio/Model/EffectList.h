#pragma once

#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "Model/StudioEffect.h"

namespace tavrel::studio {

/// The effects in the order in which they act. Main thread.
class EffectList {
 public:
  using Effects = std::vector<std::shared_ptr<StudioEffect>>;

  /// Called when the camera needs another chain: after what adds, removes, moves or switches an effect.
  void setChangeHandler(std::function<void()> handler) { changed_ = std::move(handler); }
  const Effects& all() const { return all_; }
  /// Those that are switched on.
  TavrelCaptureEffectChain::Effects captureEffects() const;
  /// Those of them that have a place.
  Effects placedEffects() const;

  void add(std::shared_ptr<StudioEffect> effect);
  void remove(std::size_t index);
  /// Takes an effect to another place in the list.
  void move(std::size_t from, std::size_t to);
  void setOn(std::size_t index, bool isOn);

  /// The size of the frames for which stickers are placed. A change takes them along.
  void setFrameSize(Size size);
  Size frameSize() const { return frameSize_; }

  /// For the settings file.
  nlohmann::json json() const;
  /// Adds what `json` wrote, and calls `fault` for each effect that cannot be had any more, with the reason.
  void restore(const nlohmann::json& json, const std::function<void(const std::string&)>& fault);

 private:
  void didChange() const {
    if (changed_) changed_();
  }

  Effects all_;
  Size frameSize_ = {1280, 720};
  std::function<void()> changed_;
};

}  // namespace tavrel::studio
