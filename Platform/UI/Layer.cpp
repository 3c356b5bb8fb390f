#include "Platform/UI/Layer.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <utility>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/UI/Animation.h"

namespace tavrel {

Layer::~Layer() {
  for (const auto& sublayer : sublayers_) sublayer->superlayer_ = nullptr;
}

void Layer::setBounds(const Rect& bounds) {
  if (bounds_ == bounds || !isFinite(bounds)) return;
  bounds_ = bounds;
  contentsSizeDidChange();
  setNeedsDisplay();
}

void Layer::setContentsScale(double scale) {
  if (contentsScale_ == scale || !isFinite(scale)) return;
  contentsScale_ = scale;
  contentsSizeDidChange();
  setNeedsDisplay();
}

void Layer::addSublayer(std::shared_ptr<Layer> layer) {
  layer->removeFromSuperlayer();
  layer->superlayer_ = this;
  sublayers_.push_back(std::move(layer));
  setNeedsDisplay();
}

void Layer::removeFromSuperlayer() {
  if (!superlayer_) return;
  Layer* const superlayer = std::exchange(superlayer_, nullptr);
  const std::shared_ptr<Layer> self = shared_from_this();
  std::erase(superlayer->sublayers_, self);
  superlayer->setNeedsDisplay();
}

void Layer::addAnimation(const std::shared_ptr<Animation>& animation, std::string key) {
  static std::uint64_t lastNumber = 0;
  removeAnimation(key);
  const double duration = animation->durationWithin(Animation::kDefaultDuration);
  animations_.push_back({++lastNumber, std::move(key), animation, currentTime(), duration, false});
  setNeedsDisplay();
  if (const auto delegate = animation->delegate()) delegate->animationDidStart(animation);
  DispatchQueue::main()->asyncAfter(std::chrono::nanoseconds(static_cast<std::int64_t>(duration * 1e9)),
                                    [weak = weak_from_this(), number = lastNumber] {
                                      if (const auto self = weak.lock()) self->finishAnimation(number);
                                    });
}

void Layer::finishAnimation(std::uint64_t number) {
  const auto running = std::find_if(animations_.begin(), animations_.end(),
                                    [&](const RunningAnimation& entry) { return entry.number == number; });
  if (running == animations_.end()) return;
  running->hasEnded = true;
  const std::shared_ptr<Animation> animation = running->animation;
  if (animation->isRemovedOnCompletion()) animations_.erase(running);
  setNeedsDisplay();
  if (const auto delegate = animation->delegate()) delegate->animationDidStop(animation, true);
}

std::shared_ptr<Animation> Layer::animation(std::string_view key) const {
  const auto running = std::find_if(animations_.begin(), animations_.end(),
                                    [&](const RunningAnimation& entry) { return entry.key == key; });
  return running == animations_.end() ? nullptr : running->animation;
}

void Layer::removeAnimation(std::string_view key) {
  const auto kept = std::stable_partition(animations_.begin(), animations_.end(),
                                          [&](const RunningAnimation& entry) { return entry.key != key; });
  std::vector<RunningAnimation> removed(std::make_move_iterator(kept), std::make_move_iterator(animations_.end()));
  animations_.erase(kept, animations_.end());
  stopUnfinished(removed);
}

void Layer::removeAllAnimations() { stopUnfinished(std::exchange(animations_, {})); }

void Layer::stopUnfinished(const std::vector<RunningAnimation>& stopped) {
  if (stopped.empty()) return;
  setNeedsDisplay();
  for (const RunningAnimation& entry : stopped) {
    if (entry.hasEnded) continue;
    if (const auto delegate = entry.animation->delegate()) delegate->animationDidStop(entry.animation, false);
  }
}

bool Layer::isAnimating() const {
  return std::any_of(animations_.begin(), animations_.end(), [](const auto& entry) { return !entry.hasEnded; }) ||
         std::any_of(sublayers_.begin(), sublayers_.end(),
                     [](const auto& sublayer) { return sublayer->isAnimating(); });
}

double Layer::currentTime() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

AnimatedValues Layer::valuesAt(double time) const {
  AnimatedValues values;
  values.opacity = opacity_;
  values.positionX = position_.x;
  values.positionY = position_.y;
  values.cornerRadius = cornerRadius_;
  values.borderWidth = borderWidth_;
  values.setTransform(transform_);
  for (const RunningAnimation& entry : animations_) entry.animation->apply(time - entry.start, entry.duration, values);
  return values;
}

void Layer::setNeedsDisplay() {
  Layer* root = this;
  while (root->superlayer_) root = root->superlayer_;
  root->needsDisplay_ = true;
}

bool Layer::takeNeedsDisplay() { return std::exchange(needsDisplay_, false); }

}  // namespace tavrel
