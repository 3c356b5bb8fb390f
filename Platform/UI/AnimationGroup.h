#pragma once

#include <memory>
#include <vector>

#include "Platform/UI/Animation.h"

namespace tavrel {

/// Animations that run together. One longer than the group is cut off.
class TAVREL_API AnimationGroup : public Animation {
 public:
  const std::vector<std::shared_ptr<Animation>>& animations() const { return animations_; }
  void setAnimations(std::vector<std::shared_ptr<Animation>> animations) { animations_ = std::move(animations); }

 protected:
  void applyProgress(double progress, double ownDuration, AnimatedValues& values) const override;

 private:
  std::vector<std::shared_ptr<Animation>> animations_;
};

}  // namespace tavrel
