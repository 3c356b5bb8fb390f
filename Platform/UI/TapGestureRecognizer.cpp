#include "Platform/UI/TapGestureRecognizer.h"

#include <cmath>

#include "Platform/UI/View.h"

namespace tavrel {

Point TapGestureRecognizer::locationInView(const View* view) const {
  return view ? view->convertPointFromRoot(lastPoint_) : lastPoint_;
}

void TapGestureRecognizer::receiveTap(Point point, double time) {
  if (!isEnabled_) return;
  constexpr double kLongestPause = 0.35;
  constexpr double kLargestDistance = 40;
  const bool continues = tapCount_ > 0 && time - lastTime_ <= kLongestPause &&
                         std::hypot(point.x - lastPoint_.x, point.y - lastPoint_.y) <= kLargestDistance;
  tapCount_ = continues ? tapCount_ + 1 : 1;
  lastTime_ = time;
  lastPoint_ = point;
  if (tapCount_ < numberOfTapsRequired_) return;
  tapCount_ = 0;
  if (action_) action_(*this);
}

}  // namespace tavrel
