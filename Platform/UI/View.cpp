#include "Platform/UI/View.h"

#include <algorithm>
#include <utility>

#include "Platform/Foundation/Finite.h"
#include "Platform/UI/Screen.h"
#include "Platform/UI/TapGestureRecognizer.h"

namespace tavrel {

View::View(const Rect& frame) : View(frame, std::make_shared<Layer>()) {}

View::View(const Rect& frame, std::shared_ptr<Layer> layer) : layer_(std::move(layer)) {
  layer_->setContentsScale(Screen::main().scale());
  setFrame(frame);
}

View::~View() {
  for (const auto& subview : subviews_) subview->superview_ = nullptr;
}

Rect View::frame() const {
  const Size size = bounds().size;
  return {{center().x - size.width / 2, center().y - size.height / 2}, size};
}

void View::setFrame(const Rect& frame) {
  setBounds({bounds().origin, frame.size});
  setCenter({frame.midX(), frame.midY()});
}

void View::setBounds(const Rect& bounds) {
  if (layer_->bounds().size != bounds.size) needsLayout_ = true;
  layer_->setBounds(bounds);
}

void View::setContentScaleFactor(double scale) {
  if (contentScaleFactor() == scale || !isFinite(scale)) return;
  layer_->setContentsScale(scale);
  contentScaleFactorDidChange();
}

void View::setContentScaleFactorOfTree(double scale) {
  setContentScaleFactor(scale);
  for (const auto& subview : subviews_) subview->setContentScaleFactorOfTree(scale);
}

void View::addSubview(const std::shared_ptr<View>& view) {
  view->removeFromSuperview();
  view->superview_ = this;
  subviews_.push_back(view);
  layer_->addSublayer(view->layer_);
  setNeedsLayout();
}

void View::removeFromSuperview() {
  if (!superview_) return;
  const std::shared_ptr<View> self = shared_from_this();
  std::erase(std::exchange(superview_, nullptr)->subviews_, self);
  layer_->removeFromSuperlayer();
}

void View::setFillsSuperview(bool fills) {
  fillsSuperview_ = fills;
  if (superview_) superview_->setNeedsLayout();
}

void View::setNeedsLayout() {
  needsLayout_ = true;
  layer_->setNeedsDisplay();
}

void View::layoutIfNeeded() {
  if (std::exchange(needsLayout_, false)) {
    for (const auto& subview : subviews_) {
      if (subview->fillsSuperview_) subview->setFrame(bounds());
    }
    layoutSubviews();
  }
  for (const auto& subview : std::vector(subviews_)) subview->layoutIfNeeded();
}

void View::addGestureRecognizer(const std::shared_ptr<TapGestureRecognizer>& recognizer) {
  if (const auto earlier = recognizer->view()) earlier->removeGestureRecognizer(recognizer);
  recognizer->view_ = weak_from_this();
  gestureRecognizers_.push_back(recognizer);
}

void View::removeGestureRecognizer(const std::shared_ptr<TapGestureRecognizer>& recognizer) {
  // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): may be a reference into the list
  const std::shared_ptr<TapGestureRecognizer> kept = recognizer;
  if (std::erase(gestureRecognizers_, kept) > 0) kept->view_.reset();
}

std::shared_ptr<View> View::hitTest(Point point) {
  constexpr double kInvisible = 0.01;
  if (isHidden() || alpha() < kInvisible || !isUserInteractionEnabled_) return nullptr;
  const Rect& own = bounds();
  const bool isInside = point.x >= own.minX() && point.x < own.maxX() && point.y >= own.minY() && point.y < own.maxY();
  if (!isInside) return nullptr;
  for (auto subview = subviews_.rbegin(); subview != subviews_.rend(); ++subview) {
    if (auto hit = (*subview)->hitTest((*subview)->convertPointFromSuperview(point))) return hit;
  }
  return shared_from_this();
}

Point View::convertPointFromRoot(Point point) const {
  return superview_ ? convertPointFromSuperview(superview_->convertPointFromRoot(point)) : point;
}

Point View::convertPointFromSuperview(Point point) const {
  const AffineTransform& t = transform();
  const double determinant = t.a * t.d - t.b * t.c;
  const double x = point.x - center().x - t.tx;
  const double y = point.y - center().y - t.ty;
  if (determinant == 0) return {bounds().midX(), bounds().midY()};
  return {(t.d * x - t.c * y) / determinant + bounds().midX(), (t.a * y - t.b * x) / determinant + bounds().midY()};
}

}  // namespace tavrel
