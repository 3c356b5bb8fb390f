#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// One effect: the filter that the frames go through, and what feeds its second input, if it has one.
struct Effect {
  std::shared_ptr<TavrelGPUImageFilter> filter;
  std::shared_ptr<TavrelGPUImagePicture> picture = nullptr;
  /// Where the picture does not simply fill the second input: places it on frames of this size.
  std::function<void(Size frameSize)> place = {};
  /// What changes the picture as time goes on.
  std::shared_ptr<TavrelAnimatedStickerCaptureEffect> animation = nullptr;
};

/// Effects one after the other.
class EffectChain {
 public:
  explicit EffectChain(std::vector<Effect> effects) : effects_(std::move(effects)) {}

  bool isEmpty() const { return effects_.empty(); }
  /// The size that a frame of `size` has behind the chain.
  Size sizeAfter(Size size) const;
  /// Whether an odd number of quarter turns is made.
  bool turnsSideways() const;
  /// Connects the chain behind `source`, whose frames have `size`, and lets the pictures in; the last node.
  std::shared_ptr<TavrelGPUImageOutput> connect(const std::shared_ptr<TavrelGPUImageOutput>& source, Size size) const;
  /// Brings the animations to the time of the next frame, in seconds; they start with the first one.
  void advanceTo(double seconds) const;

 private:
  std::vector<Effect> effects_;
};

}  // namespace tavrel::tool
