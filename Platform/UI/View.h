#pragma once

#include <memory>
#include <vector>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/UI/Color.h"
#include "Platform/UI/Layer.h"

namespace tavrel {

class TapGestureRecognizer;

/// A piece of a user interface: a layer, subviews, and recognisers for touches. Made by `std::make_shared`.
///
/// Lengths are points with the origin at the top left. Views belong to the main thread; the last owner may let go of a
/// view that has no superview on any thread.
class TAVREL_API View : public std::enable_shared_from_this<View> {
 public:
  /// `frame` in the superview's coordinates.
  explicit View(const Rect& frame = {});
  View(const View&) = delete;
  View& operator=(const View&) = delete;
  virtual ~View();

  const std::shared_ptr<Layer>& layer() const { return layer_; }

  /// Where the view lies in its superview while its transform is the identity.
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
  /// Pixels for each point of what the view draws; the main screen's scale at creation.
  double contentScaleFactor() const { return layer_->contentsScale(); }
  void setContentScaleFactor(double scale);
  /// The same for this view and all below it.
  void setContentScaleFactorOfTree(double scale);

  View* superview() const { return superview_; }
  const std::vector<std::shared_ptr<View>>& subviews() const { return subviews_; }
  /// In front of the others.
  void addSubview(const std::shared_ptr<View>& view);
  void removeFromSuperview();
  /// Whether the view takes its superview's bounds as its frame at each layout of the superview.
  bool fillsSuperview() const { return fillsSuperview_; }
  void setFillsSuperview(bool fills);

  /// Asks for `layoutSubviews` before the tree is shown next. A change of size asks by itself.
  void setNeedsLayout();
  /// Carries out what was asked for, in this view and all below it.
  void layoutIfNeeded();
  /// Called when the view's size changed or a layout was asked for; subclasses place their subviews.
  virtual void layoutSubviews() {}

  bool isUserInteractionEnabled() const { return isUserInteractionEnabled_; }
  void setUserInteractionEnabled(bool isEnabled) { isUserInteractionEnabled_ = isEnabled; }
  void addGestureRecognizer(const std::shared_ptr<TapGestureRecognizer>& recognizer);
  void removeGestureRecognizer(const std::shared_ptr<TapGestureRecognizer>& recognizer);
  const std::vector<std::shared_ptr<TapGestureRecognizer>>& gestureRecognizers() const { return gestureRecognizers_; }
  /// The frontmost view at `point` (in this view's coordinates) that is visible and takes touches; nullptr outside.
  std::shared_ptr<View> hitTest(Point point);
  /// A point of the tree's root in this view's coordinates.
  Point convertPointFromRoot(Point point) const;

 protected:
  /// A view with a layer of another class.
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
