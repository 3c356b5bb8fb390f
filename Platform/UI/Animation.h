#pragma once

#include <memory>

#include "Platform/Foundation/Export.h"
#include "Platform/UI/AnimatedValues.h"
#include "Platform/UI/TimingFunction.h"

namespace tavrel {

class Animation;

/// Is told how animations go. On the main thread.
class TAVREL_API AnimationDelegate {
 public:
  virtual ~AnimationDelegate() = default;
  virtual void animationDidStart(const std::shared_ptr<Animation>&) {}
  /// `finished` is false when the animation was removed from its layer before its end.
  virtual void animationDidStop(const std::shared_ptr<Animation>&, bool /*finished*/) {}
};

/// What an animation shows after its end, as long as it stays on its layer.
enum class AnimationFillMode {
  removed,   ///< the layer's own values
  forwards,  ///< its last values
};

/// A change of a layer's values over time, which shows on the screen and leaves the layer's own values alone. Made by
/// `std::make_shared`; main thread.
class TAVREL_API Animation {
 public:
  static constexpr double kDefaultDuration = 0.25;

  Animation() = default;
  Animation(const Animation&) = delete;
  Animation& operator=(const Animation&) = delete;
  virtual ~Animation() = default;

  /// In seconds. 0, as at creation, stands for the group's duration in a group and for `kDefaultDuration` alone.
  double duration() const { return duration_; }
  void setDuration(double duration) { duration_ = duration; }
  const TimingFunction& timingFunction() const { return timingFunction_; }
  void setTimingFunction(const TimingFunction& timingFunction) { timingFunction_ = timingFunction; }
  AnimationFillMode fillMode() const { return fillMode_; }
  void setFillMode(AnimationFillMode fillMode) { fillMode_ = fillMode; }
  /// Whether the layer lets go of it at its end; true at creation.
  bool isRemovedOnCompletion() const { return isRemovedOnCompletion_; }
  void setRemovedOnCompletion(bool isRemoved) { isRemovedOnCompletion_ = isRemoved; }
  /// Owned by the animation: a delegate that owns the animation in turn would keep both for ever.
  const std::shared_ptr<AnimationDelegate>& delegate() const { return delegate_; }
  void setDelegate(std::shared_ptr<AnimationDelegate> delegate) { delegate_ = std::move(delegate); }

  double durationWithin(double fallback) const { return duration_ > 0 ? duration_ : fallback; }
  /// Changes `values` to what they are `elapsed` seconds after the start. `fallbackDuration` is used where the
  /// animation has no duration of its own.
  void apply(double elapsed, double fallbackDuration, AnimatedValues& values) const;

 protected:
  /// `progress` in 0…1, the timing function applied; `ownDuration` in seconds.
  virtual void applyProgress(double progress, double ownDuration, AnimatedValues& values) const = 0;

 private:
  double duration_ = 0;
  TimingFunction timingFunction_ = TimingFunction::linear();
  AnimationFillMode fillMode_ = AnimationFillMode::removed;
  bool isRemovedOnCompletion_ = true;
  std::shared_ptr<AnimationDelegate> delegate_;
};

}  // namespace tavrel
