#include "Capture/Video/TavrelFocusView.h"

#include <mutex>

#include "Platform/UI/BasicAnimation.h"
#include "TavrelBase/Log/LogCall.h"

namespace tavrel {
namespace {

constexpr const char* kLogTag = "Tavrel-Vistrane-FocusView";
constexpr const char* kAnimationKey = "FocusViewAnimation";
constexpr double kDuration = 0.3;

}  // namespace

struct TavrelCAAnimation::Implementation {
  TavrelCAAnimationDelegate* delegate = nullptr;
};

TavrelCAAnimation::TavrelCAAnimation() : implementation_(std::make_unique<Implementation>()) {}
TavrelCAAnimation::~TavrelCAAnimation() = default;

TavrelCAAnimationDelegate* TavrelCAAnimation::delegate() const { return implementation_->delegate; }
void TavrelCAAnimation::setDelegate(TavrelCAAnimationDelegate* delegate) { implementation_->delegate = delegate; }

void TavrelCAAnimation::animationDidStop(const std::shared_ptr<Animation>& animation, bool finished) {
  if (delegate()) delegate()->animationDidStop(animation, finished);
}

TavrelFocusViewAnimation::TavrelFocusViewAnimation() {
  auto shrink = std::make_shared<BasicAnimation>("transform.scale");
  shrink->fromValue = 1.8;
  shrink->byValue = 0.8;
  shrink->toValue = 1;
  shrink->setTimingFunction(TimingFunction::easeOut());
  auto fade = std::make_shared<BasicAnimation>("opacity");
  fade->fromValue = 1;
  fade->toValue = 0;
  setAnimations({shrink, fade});
  setDuration(kDuration);
  setRemovedOnCompletion(false);
  setFillMode(AnimationFillMode::forwards);
}

TavrelFocusViewAnimation::~TavrelFocusViewAnimation() {
  TAVREL_LOG_DEBUG(kLogTag, "dealloc: {}", "TavrelFocusViewAnimation");
}

struct TavrelFocusView::Implementation {
  std::recursive_mutex monitor;
  bool animEnd = true;
  const std::shared_ptr<TavrelFocusViewAnimation> focusViewAnimation = std::make_shared<TavrelFocusViewAnimation>();
  const std::shared_ptr<TavrelCAAnimation> forwarder = std::make_shared<TavrelCAAnimation>();
};

TavrelFocusView::TavrelFocusView(const Rect& frame) : View(frame), implementation_(std::make_unique<Implementation>()) {
  setBackgroundColor(Color::clear());
  layer()->setBorderColor(Color::white());
  layer()->setBorderWidth(1);
  layer()->setCornerRadius(25);
  setHidden(true);
  implementation_->forwarder->setDelegate(this);
  implementation_->focusViewAnimation->setDelegate(implementation_->forwarder);
}

TavrelFocusView::~TavrelFocusView() {
  const std::lock_guard lock(implementation_->monitor);
  implementation_->forwarder->setDelegate(nullptr);
  implementation_->focusViewAnimation->setRemovedOnCompletion(true);
  implementation_->focusViewAnimation->setDelegate(nullptr);
  layer()->removeAllAnimations();
  TAVREL_LOG_DEBUG(kLogTag, "dealloc: {}", "TavrelFocusView");
}

bool TavrelFocusView::animEnd() const { return implementation_->animEnd; }

const std::shared_ptr<TavrelFocusViewAnimation>& TavrelFocusView::focusViewAnimation() const {
  return implementation_->focusViewAnimation;
}

void TavrelFocusView::show(Point point) {
  const std::lock_guard lock(implementation_->monitor);
  if (!implementation_->animEnd) return;
  implementation_->animEnd = false;
  setHidden(false);
  setCenter(point);
  layer()->addAnimation(implementation_->focusViewAnimation, kAnimationKey);
}

void TavrelFocusView::animationDidStop(const std::shared_ptr<Animation>&, bool finished) {
  if (!finished) return;
  implementation_->focusViewAnimation->setRemovedOnCompletion(true);
  layer()->removeAllAnimations();
  setHidden(true);
  setAlpha(0);
  implementation_->animEnd = true;
}

}  // namespace tavrel
