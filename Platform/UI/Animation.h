#pragma once

#include <memory>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Finite.h"
#include "Platform/UI/AnimatedValues.h"
#include "Platform/UI/TimingFunction.h"

namespace tavrel {

class Animation;

/// Told when animations start and stop, on the main thread.
class TAVREL_API AnimationDelegate {
 public:
  virtual ~AnimationDelegate() = default;
  virtual void animationDidStart(const std::shared_ptr<Animation>&) {}
  /// `finished` is false if the animation was removed from its layer before its end.
  virtual void animationDidStop(const std::shared_ptr<Animation>&, bool /*finished*/) {}
};

/// What an animation shows after its end, while it is still on its layer.
enum class AnimationFillMode {
  removed,   ///< the layer's own values
  forwards,  ///< its last values
};

/// Changes what a layer shows over time, but not the layer's own values. Create with `std::make_shared`; main thread.
class TAVREL_API Animation {
 public:
  static constexpr double kDefaultDuration = 0.25;

  Animation() = default;
  Animation(const Animation&) = delete;
  Animation& operator=(const Animation&) = delete;
  virtual ~Animation() = default;

  /// In seconds. 0, the default, means the group's duration within a group, else `kDefaultDuration`.
  double duration() const { return duration_; }
  void setDuration(double duration) {
    if (isFinite(duration)) duration_ = duration;
  }
  const TimingFunction& timingFunction() const { return timingFunction_; }
  void setTimingFunction(const TimingFunction& timingFunction) { timingFunction_ = timingFunction; }
  AnimationFillMode fillMode() const { return fillMode_; }
  void setFillMode(AnimationFillMode fillMode) { fillMode_ = fillMode; }
  /// Whether the layer removes the animation at its end; true by default.
  bool isRemovedOnCompletion() const { return isRemovedOnCompletion_; }
  void setRemovedOnCompletion(bool isRemoved) { isRemovedOnCompletion_ = isRemoved; }
  /// Owned by the animation; a delegate that owns the animation in turn leaks both.
  const std::shared_ptr<AnimationDelegate>& delegate() const { return delegate_; }
  void setDelegate(std::shared_ptr<AnimationDelegate> delegate) { delegate_ = std::move(delegate); }

  double durationWithin(double fallback) const { return duration_ > 0 ? duration_ : fallback; }
  /// Sets `values` to those `elapsed` seconds after the start. `fallbackDuration` replaces a duration of 0.
  void apply(double elapsed, double fallbackDuration, AnimatedValues& values) const;

 protected:
  /// `progress` in 0…1, after the timing function; `ownDuration` in seconds.
  virtual void applyProgress(double progress, double ownDuration, AnimatedValues& values) const = 0;

 private:
  double duration_ = 0;
  TimingFunction timingFunction_ = TimingFunction::linear();
  AnimationFillMode fillMode_ = AnimationFillMode::removed;
  bool isRemovedOnCompletion_ = true;
  std::shared_ptr<AnimationDelegate> delegate_;
};

}  // namespace tavrel
