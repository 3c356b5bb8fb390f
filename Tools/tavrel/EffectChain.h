#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// Effects one after the other: for a camera, which makes a chain of them itself, or to be connected behind a source.
class EffectChain {
 public:
  using Effects = std::vector<std::shared_ptr<TavrelCaptureEffect>>;

  explicit EffectChain(Effects effects) : effects_(std::move(effects)) {}

  const Effects& effects() const { return effects_; }
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
  Effects effects_;
};

}  // namespace tavrel::tool
