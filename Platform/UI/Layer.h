#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Finite.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/UI/AnimatedValues.h"
#include "Platform/UI/Color.h"

namespace tavrel {

class Animation;

/// A rectangle on the screen. Drawn from back to front: background, contents, sublayers in order, border.
///
/// Lengths are in points, with the origin at the top left. The corner radius applies to background and border; contents
/// and sublayers are not clipped. Opacity multiplies down the tree. Create with `std::make_shared`; main thread.
class TAVREL_API Layer : public std::enable_shared_from_this<Layer> {
 public:
  Layer() = default;
  Layer(const Layer&) = delete;
  Layer& operator=(const Layer&) = delete;
  virtual ~Layer();

  /// The coordinate system of the sublayers' positions.
  const Rect& bounds() const { return bounds_; }
  void setBounds(const Rect& bounds);
  /// Of the centre, in the superlayer's coordinates.
  Point position() const { return position_; }
  void setPosition(Point position) { set(position_, position); }
  /// Applied about the centre.
  const AffineTransform& transform() const { return transform_; }
  void setTransform(const AffineTransform& transform) { set(transform_, transform); }
  double opacity() const { return opacity_; }
  void setOpacity(double opacity) { set(opacity_, opacity); }
  bool isHidden() const { return isHidden_; }
  void setHidden(bool isHidden) { set(isHidden_, isHidden); }
  /// True to ignore the alpha of the contents.
  bool isOpaque() const { return isOpaque_; }
  void setOpaque(bool isOpaque) { set(isOpaque_, isOpaque); }
  const Color& backgroundColor() const { return backgroundColor_; }
  void setBackgroundColor(const Color& color) { set(backgroundColor_, color); }
  const Color& borderColor() const { return borderColor_; }
  void setBorderColor(const Color& color) { set(borderColor_, color); }
  /// The border is drawn inwards from the edge.
  double borderWidth() const { return borderWidth_; }
  void setBorderWidth(double width) { set(borderWidth_, width); }
  double cornerRadius() const { return cornerRadius_; }
  void setCornerRadius(double radius) { set(cornerRadius_, radius); }
  /// Pixels per point of the contents; 1 by default.
  double contentsScale() const { return contentsScale_; }
  void setContentsScale(double scale);

  const std::vector<std::shared_ptr<Layer>>& sublayers() const { return sublayers_; }
  Layer* superlayer() const { return superlayer_; }
  /// Adds it in front of the others.
  void addSublayer(std::shared_ptr<Layer> layer);
  void removeFromSuperlayer();

  /// Starts `animation`, replacing one under the same key. It ends only while the main queue runs.
  void addAnimation(const std::shared_ptr<Animation>& animation, std::string key);
  /// nullptr if there is none.
  std::shared_ptr<Animation> animation(std::string_view key) const;
  /// A running animation stops unfinished.
  void removeAnimation(std::string_view key);
  void removeAllAnimations();
  /// True while an animation runs in this layer or below it.
  bool isAnimating() const;

  /// The clock of animations, in seconds.
  static double currentTime();
  /// The layer's values with its animations applied at `time`.
  AnimatedValues valuesAt(double time) const;

  /// Requests that the tree be composited again.
  void setNeedsDisplay();
  /// For the tree's root: whether compositing was requested since the last call.
  bool takeNeedsDisplay();

 protected:
  /// Called after `bounds` or `contentsScale` changed.
  virtual void contentsSizeDidChange() {}

 private:
  struct RunningAnimation {
    std::uint64_t number;
    std::string key;
    std::shared_ptr<Animation> animation;
    double start;
    double duration;
    bool hasEnded;
  };

  template <typename Value>
  void set(Value& member, const Value& value) {
    if (member == value || !isFinite(value)) return;
    member = value;
    setNeedsDisplay();
  }
  void finishAnimation(std::uint64_t number);
  void stopUnfinished(const std::vector<RunningAnimation>& stopped);

  Rect bounds_;
  Point position_;
  AffineTransform transform_;
  double opacity_ = 1;
  bool isHidden_ = false;
  bool isOpaque_ = false;
  Color backgroundColor_ = Color::clear();
  Color borderColor_ = Color::black();
  double borderWidth_ = 0;
  double cornerRadius_ = 0;
  double contentsScale_ = 1;
  Layer* superlayer_ = nullptr;
  std::vector<std::shared_ptr<Layer>> sublayers_;
  std::vector<RunningAnimation> animations_;  // in the order in which they were added
  bool needsDisplay_ = true;
};

}  // namespace tavrel
