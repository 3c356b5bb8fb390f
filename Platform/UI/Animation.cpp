#include "Platform/UI/Animation.h"

namespace tavrel {

void Animation::apply(double elapsed, double fallbackDuration, AnimatedValues& values) const {
  if (elapsed < 0) return;
  const double ownDuration = durationWithin(fallbackDuration);
  if (elapsed >= ownDuration && fillMode_ == AnimationFillMode::removed) return;
  const double time = ownDuration > 0 ? elapsed / ownDuration : 1;
  applyProgress(timingFunction_.progressAt(time), ownDuration, values);
}

}  // namespace tavrel
