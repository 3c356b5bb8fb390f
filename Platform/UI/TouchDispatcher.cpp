#include "Platform/UI/TouchDispatcher.h"

#include <cmath>
#include <map>
#include <utility>
#include <vector>

#include "Platform/UI/TapGestureRecognizer.h"
#include "Platform/UI/View.h"

namespace tavrel {
namespace {

constexpr double kLargestMovement = 10;

struct Began {
  Point point;
  std::weak_ptr<View> view;
  bool isTap = true;
};

}  // namespace

struct TouchDispatcher::Implementation {
  std::weak_ptr<View> root;
  std::map<Touch, Began> touches = {};
};

TouchDispatcher::TouchDispatcher(std::weak_ptr<View> root) : implementation_(new Implementation{std::move(root)}) {}

TouchDispatcher::~TouchDispatcher() = default;

void TouchDispatcher::touchBegan(Touch touch, Point point) {
  const auto root = implementation_->root.lock();
  if (!root) return;
  if (const auto view = root->hitTest(point)) implementation_->touches[touch] = {point, view};
}

void TouchDispatcher::touchMoved(Touch touch, Point point) {
  const auto began = implementation_->touches.find(touch);
  if (began == implementation_->touches.end()) return;
  const Point start = began->second.point;
  if (std::hypot(point.x - start.x, point.y - start.y) > kLargestMovement) began->second.isTap = false;
}

void TouchDispatcher::touchEnded(Touch touch, Point point, double time) {
  touchMoved(touch, point);
  const auto ended = implementation_->touches.extract(touch);
  if (ended.empty() || !ended.mapped().isTap) return;
  // Collected first: an action may change the tree.
  std::vector<std::shared_ptr<TapGestureRecognizer>> recognizers;
  const auto touched = ended.mapped().view.lock();
  for (const View* view = touched.get(); view; view = view->superview()) {
    recognizers.insert(recognizers.end(), view->gestureRecognizers().begin(), view->gestureRecognizers().end());
  }
  for (const auto& recognizer : recognizers) recognizer->receiveTap(point, time);
}

void TouchDispatcher::cancelAll() { implementation_->touches.clear(); }

}  // namespace tavrel
