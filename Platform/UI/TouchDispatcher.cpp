#include "Platform/UI/TouchDispatcher.h"

#include <cmath>
#include <vector>

#include "Platform/UI/TapGestureRecognizer.h"
#include "Platform/UI/View.h"

namespace tavrel {

constexpr double kLargestMovement = 10;

void TouchDispatcher::touchBegan(Touch touch, Point point) {
  const auto root = root_.lock();
  if (!root) return;
  if (const auto view = root->hitTest(point)) touches_[touch] = {point, view};
}

void TouchDispatcher::touchMoved(Touch touch, Point point) {
  const auto began = touches_.find(touch);
  if (began == touches_.end()) return;
  const Point start = began->second.point;
  if (std::hypot(point.x - start.x, point.y - start.y) > kLargestMovement) began->second.isTap = false;
}

void TouchDispatcher::touchEnded(Touch touch, Point point, double time) {
  touchMoved(touch, point);
  const auto ended = touches_.extract(touch);
  if (ended.empty() || !ended.mapped().isTap) return;
  // Collected first: an action may change the tree.
  std::vector<std::shared_ptr<TapGestureRecognizer>> recognizers;
  const auto touched = ended.mapped().view.lock();
  for (const View* view = touched.get(); view; view = view->superview()) {
    recognizers.insert(recognizers.end(), view->gestureRecognizers().begin(), view->gestureRecognizers().end());
  }
  for (const auto& recognizer : recognizers) recognizer->receiveTap(point, time);
}

}  // namespace tavrel
