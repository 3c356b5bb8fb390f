#pragma once

#include <memory>

#include "Platform/UI/AnimationGroup.h"
#include "Platform/UI/View.h"

namespace tavrel {

/// Is told how the focus animation ends.
class TAVREL_API TavrelCAAnimationDelegate {
 public:
  virtual ~TavrelCAAnimationDelegate() = default;
  virtual void animationDidStop(const std::shared_ptr<Animation>& animation, bool finished) = 0;
};

/// Passes the end of an animation on to somebody whom the animation must not own: an animation owns its delegate.
class TAVREL_API TavrelCAAnimation : public AnimationDelegate {
 public:
  /// Not owned; whoever is set here takes itself back before it is destroyed. nullptr for nobody.
  TavrelCAAnimationDelegate* delegate() const { return delegate_; }
  void setDelegate(TavrelCAAnimationDelegate* delegate) { delegate_ = delegate; }

  void animationDidStop(const std::shared_ptr<Animation>& animation, bool finished) override;

 private:
  TavrelCAAnimationDelegate* delegate_ = nullptr;
};

/// Shrinks from 1.8 times the size to the size itself while fading out, in 0.3 s, and holds that end.
class TAVREL_API TavrelFocusViewAnimation : public AnimationGroup {
 public:
  TavrelFocusViewAnimation();
  ~TavrelFocusViewAnimation() override;
};

/// The ring that appears where somebody tapped to focus: white, one point wide, a circle when the view measures 50×50.
///
///     idle, hidden ──show──▶ animating, visible ──animation finished──▶ idle, hidden
///
/// Made by `std::make_shared`. Main thread; `show` and the destructor exclude each other.
class TAVREL_API TavrelFocusView : public View, public TavrelCAAnimationDelegate {
 public:
  explicit TavrelFocusView(const Rect& frame);
  ~TavrelFocusView() override;

  /// Shows the ring about `point` of the superview. While it is being shown the call is ignored.
  void show(Point point);
  /// True when no animation is running.
  bool animEnd() const;
  const std::shared_ptr<TavrelFocusViewAnimation>& focusViewAnimation() const;

  /// Hides the view when `finished`; an interrupted animation leaves it as it is.
  void animationDidStop(const std::shared_ptr<Animation>& animation, bool finished) override;

 private:
  struct Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
