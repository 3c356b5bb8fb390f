#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "Effects/TavrelCaptureEffect.h"

namespace tavrel {

class TavrelGPUImageOutput;

/// Effects one after the other, for frames of any source: a picture, a movie, pixel buffers of one's own. (A camera is
/// given the effects themselves, and makes a chain that follows their changes.)
///
/// One thread at a time, but for `prepareFrame`.
class TAVREL_API TavrelCaptureEffectChain {
 public:
  using Effects = std::vector<std::shared_ptr<TavrelCaptureEffect>>;

  explicit TavrelCaptureEffectChain(Effects effects);

  /// In the order in which they are applied.
  const Effects& effects() const { return effects_; }
  bool isEmpty() const { return effects_.empty(); }
  /// The size that a frame of `frameSize` has behind the chain, in pixels.
  Size sizeAfter(Size frameSize) const;
  /// Whether what was the width becomes the height.
  bool turnsSideways() const;
  /// Makes the effects' nodes, connects them behind `source`, whose frames have `frameSize`, and lets the pictures in.
  /// Returns the last node: `source` when the effects have none. What the effects say later does not show. The chain
  /// keeps the nodes, so it must live as long as frames come. Frames wait for the pictures that are due with them;
  /// sources that cannot wait say so to the effects afterwards. Not on the video-processing queue.
  std::shared_ptr<TavrelGPUImageOutput> connect(const std::shared_ptr<TavrelGPUImageOutput>& source, Size frameSize);
  struct Part;
  /// For frames too large to be worked on as a whole: how the part `output` of the frame behind the chain, in whole
  /// pixels from the top left, is made of a part of a frame of `frameSize`. None when an effect works on whole frames
  /// only.
  std::optional<Part> part(const Rect& output, Size frameSize) const;
  /// Has each effect prepare the next frame; see `TavrelCaptureEffect::prepareFrame`.
  std::shared_ptr<PixelBuffer> prepareFrame(std::shared_ptr<PixelBuffer> pixelBuffer,
                                            const SampleTiming& sampleTimingInfo, MediaTime frameTime) const;

 private:
  Effects effects_;
  std::vector<TavrelCaptureEffectNodes> nodes_;
};

/// A part of what a chain does; its pixels are those of the whole.
struct TavrelCaptureEffectChain::Part {
  /// For pictures that are `input` of the frame.
  TavrelCaptureEffectChain chain;
  Rect input;
  /// Which part of the frame behind the chain it gives: what was asked for, and sometimes more around it.
  Rect output;
};

}  // namespace tavrel
