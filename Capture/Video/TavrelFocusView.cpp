#include "Capture/Video/TavrelFocusView.h"

#include "Platform/UI/BasicAnimation.h"
#include "TavrelBase/Log/LogCall.h"

namespace tavrel {
namespace {

constexpr const char* kLogTag = "Tavrel-Vistrane-FocusView";
constexpr const char* kAnimationKey = "FocusViewAnimation";
constexpr double kDuration = 0.3;

}  // namespace

void TavrelCAAnimation::animationDidStop(const std::shared_ptr<Animation>& animation, bool finished) {
  if (delegate_) delegate_->animationDidStop(animation, finished);
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

TavrelFocusView::TavrelFocusView(const Rect& frame)
    : View(frame),
      focusViewAnimation_(std::make_shared<TavrelFocusViewAnimation>()),
      forwarder_(std::make_shared<TavrelCAAnimation>()) {
  setBackgroundColor(Color::clear());
  layer()->setBorderColor(Color::white());
  layer()->setBorderWidth(1);
  layer()->setCornerRadius(25);
  setHidden(true);
  forwarder_->setDelegate(this);
  focusViewAnimation_->setDelegate(forwarder_);
}

TavrelFocusView::~TavrelFocusView() {
  const std::lock_guard lock(monitor_);
  forwarder_->setDelegate(nullptr);
  focusViewAnimation_->setRemovedOnCompletion(true);
  focusViewAnimation_->setDelegate(nullptr);
  layer()->removeAllAnimations();
  TAVREL_LOG_DEBUG(kLogTag, "dealloc: {}", "TavrelFocusView");
}

void TavrelFocusView::show(Point point) {
  const std::lock_guard lock(monitor_);
  if (!animEnd_) return;
  animEnd_ = false;
  setHidden(false);
  setCenter(point);
  layer()->addAnimation(focusViewAnimation_, kAnimationKey);
}

void TavrelFocusView::animationDidStop(const std::shared_ptr<Animation>&, bool finished) {
  if (!finished) return;
  focusViewAnimation_->setRemovedOnCompletion(true);
  layer()->removeAllAnimations();
  setHidden(true);
  setAlpha(0);
  animEnd_ = true;
}

}  // namespace tavrel
