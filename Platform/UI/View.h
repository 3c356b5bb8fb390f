#pragma once

#include <memory>
#include <vector>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/UI/Color.h"
#include "Platform/UI/Layer.h"

namespace tavrel {

class TapGestureRecognizer;

/// A node of the user interface: a layer, subviews and tap recognisers. Create with `std::make_shared`.
///
/// Lengths are in points, with the origin at the top left. Main thread; but a view without a superview may be destroyed
/// on any thread.
class TAVREL_API View : public std::enable_shared_from_this<View> {
 public:
  /// `frame` in the superview's coordinates.
  explicit View(const Rect& frame = {});
  View(const View&) = delete;
  View& operator=(const View&) = delete;
  virtual ~View();

  const std::shared_ptr<Layer>& layer() const { return layer_; }

  /// In the superview's coordinates, ignoring the transform.
  Rect frame() const;
  void setFrame(const Rect& frame);
  const Rect& bounds() const { return layer_->bounds(); }
  void setBounds(const Rect& bounds);
  Point center() const { return layer_->position(); }
  void setCenter(Point center) { layer_->setPosition(center); }
  const AffineTransform& transform() const { return layer_->transform(); }
  void setTransform(const AffineTransform& transform) { layer_->setTransform(transform); }
  double alpha() const { return layer_->opacity(); }
  void setAlpha(double alpha) { layer_->setOpacity(alpha); }
  bool isHidden() const { return layer_->isHidden(); }
  void setHidden(bool isHidden) { layer_->setHidden(isHidden); }
  bool isOpaque() const { return layer_->isOpaque(); }
  void setOpaque(bool isOpaque) { layer_->setOpaque(isOpaque); }
  const Color& backgroundColor() const { return layer_->backgroundColor(); }
  void setBackgroundColor(const Color& color) { layer_->setBackgroundColor(color); }
  /// Pixels per point of what the view draws; initially the main screen's scale.
  double contentScaleFactor() const { return layer_->contentsScale(); }
  void setContentScaleFactor(double scale);
  /// Sets the scale of this view and all below it.
  void setContentScaleFactorOfTree(double scale);

  View* superview() const { return superview_; }
  const std::vector<std::shared_ptr<View>>& subviews() const { return subviews_; }
  /// Adds it in front of the others.
  void addSubview(const std::shared_ptr<View>& view);
  void removeFromSuperview();
  /// Whether each layout of the superview sets this view's frame to the superview's bounds.
  bool fillsSuperview() const { return fillsSuperview_; }
  void setFillsSuperview(bool fills);

  /// Requests `layoutSubviews` before the tree is next shown. A change of size does so too.
  void setNeedsLayout();
  /// Performs requested layouts in this view and all below it.
  void layoutIfNeeded();
  /// Override to place subviews. Called after the size changed or a layout was requested.
  virtual void layoutSubviews() {}

  bool isUserInteractionEnabled() const { return isUserInteractionEnabled_; }
  void setUserInteractionEnabled(bool isEnabled) { isUserInteractionEnabled_ = isEnabled; }
  void addGestureRecognizer(const std::shared_ptr<TapGestureRecognizer>& recognizer);
  void removeGestureRecognizer(const std::shared_ptr<TapGestureRecognizer>& recognizer);
  const std::vector<std::shared_ptr<TapGestureRecognizer>>& gestureRecognizers() const { return gestureRecognizers_; }
  /// The frontmost view at `point` (in this view's coordinates) that is visible and enabled for interaction; nullptr if
  /// there is none.
  std::shared_ptr<View> hitTest(Point point);
  /// Converts a point from the coordinates of the tree's root to this view's.
  Point convertPointFromRoot(Point point) const;

 protected:
  /// For subclasses with their own class of layer.
  View(const Rect& frame, std::shared_ptr<Layer> layer);
  /// Called after `contentScaleFactor` changed.
  virtual void contentScaleFactorDidChange() {}

 private:
  Point convertPointFromSuperview(Point point) const;

  const std::shared_ptr<Layer> layer_;
  View* superview_ = nullptr;
  std::vector<std::shared_ptr<View>> subviews_;
  std::vector<std::shared_ptr<TapGestureRecognizer>> gestureRecognizers_;
  bool fillsSuperview_ = false;
  bool needsLayout_ = true;
  bool isUserInteractionEnabled_ = true;
};

}  // namespace tavrel
