#include "Platform/UI/BasicAnimation.h"

#include <utility>

#include "Platform/Foundation/FatalAssertion.h"

namespace tavrel {

BasicAnimation::BasicAnimation(std::string keyPath) : keyPath_(std::move(keyPath)) {
  if (!AnimatedValues::hasKeyPath(keyPath_)) {
    fatalAssertion("A layer has no key path \"{}\" that could be animated.", keyPath_);
  }
}

void BasicAnimation::applyProgress(double progress, double, AnimatedValues& values) const {
  const double own = values.value(keyPath_);
  const double from = fromValue ? *fromValue : toValue && byValue ? *toValue - *byValue : own;
  const double to = toValue ? *toValue : byValue ? from + *byValue : own;
  values.setValue(from + (to - from) * progress, keyPath_);
}

}  // namespace tavrel
