#include "Platform/UI/AnimationGroup.h"

#include <algorithm>

namespace tavrel {

void AnimationGroup::applyProgress(double progress, double ownDuration, AnimatedValues& values) const {
  // At its very end the group shows the last moment of its members, not what comes after it.
  constexpr double kLastMoment = 1 - 1e-12;
  const double elapsed = std::min(progress, kLastMoment) * ownDuration;
  for (const auto& animation : animations_) animation->apply(elapsed, ownDuration, values);
}

}  // namespace tavrel
