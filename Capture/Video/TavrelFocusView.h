#pragma once

#include <memory>

#include "Platform/Foundation/Pimpl.h"
#include "Platform/UI/AnimationGroup.h"
#include "Platform/UI/View.h"

namespace tavrel {

/// Told when the focus animation ends.
class TAVREL_API TavrelCAAnimationDelegate {
 public:
  virtual ~TavrelCAAnimationDelegate() = default;
  virtual void animationDidStop(const std::shared_ptr<Animation>& animation, bool finished) = 0;
};

/// Forwards the end of an animation to a delegate that the animation does not own.
class TAVREL_API TavrelCAAnimation : public AnimationDelegate {
 public:
  TavrelCAAnimation();
  ~TavrelCAAnimation() override;

  /// Not owned; must be reset before it is destroyed.
  TavrelCAAnimationDelegate* delegate() const;
  void setDelegate(TavrelCAAnimationDelegate* delegate);

  void animationDidStop(const std::shared_ptr<Animation>& animation, bool finished) override;

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

/// Shrinks from 1.8 times the size to the size while fading out, within 0.3 s, and stays at the end.
class TAVREL_API TavrelFocusViewAnimation : public AnimationGroup {
 public:
  TavrelFocusViewAnimation();
  ~TavrelFocusViewAnimation() override;
};

/// The focus ring shown where the preview was tapped: white, one point wide, circular at 50×50 points.
///
///     idle, hidden ──show──▶ animating, visible ──animation finished──▶ idle, hidden
///
/// Create with `std::make_shared`. Main thread; `show` and the destructor exclude each other.
class TAVREL_API TavrelFocusView : public View, public TavrelCAAnimationDelegate {
 public:
  explicit TavrelFocusView(const Rect& frame);
  ~TavrelFocusView() override;

  /// Shows the ring at `point` of the superview. Ignored while it is shown.
  void show(Point point);
  /// True if no animation is running.
  bool animEnd() const;
  const std::shared_ptr<TavrelFocusViewAnimation>& focusViewAnimation() const;

  /// Hides the view if `finished`.
  void animationDidStop(const std::shared_ptr<Animation>& animation, bool finished) override;

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
