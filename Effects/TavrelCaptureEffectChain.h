#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "Effects/TavrelCaptureEffect.h"

namespace tavrel {

class TavrelGPUImageOutput;

/// A sequence of effects for any source: a picture, a movie, pixel buffers. (A camera takes the effects themselves and
/// builds a chain that follows their changes.)
///
/// One thread at a time, except `prepareFrame`.
class TAVREL_API TavrelCaptureEffectChain {
 public:
  using Effects = std::vector<std::shared_ptr<TavrelCaptureEffect>>;

  explicit TavrelCaptureEffectChain(Effects effects);
  TavrelCaptureEffectChain(TavrelCaptureEffectChain&& other) noexcept;
  TavrelCaptureEffectChain& operator=(TavrelCaptureEffectChain&& other) noexcept;
  ~TavrelCaptureEffectChain();

  /// In order of application.
  const Effects& effects() const;
  /// The size in pixels of a frame of `frameSize` after the chain.
  Size sizeAfter(Size frameSize) const;
  /// Whether width and height are exchanged.
  bool turnsSideways() const;
  /// Creates the effects' nodes, connects them to `source`, whose frames have `frameSize`, and processes their
  /// pictures. Returns the last node, or `source` if there is none. Later changes of the effects have no effect. The
  /// chain owns the nodes and must live as long as frames are processed. Frames wait for the pictures due with them;
  /// for a source that cannot wait, call the effects' `setWaitsForPictures(false)` afterwards. Do not call it on the
  /// video-processing queue.
  std::shared_ptr<TavrelGPUImageOutput> connect(const std::shared_ptr<TavrelGPUImageOutput>& source, Size frameSize);
  struct Part;
  /// For frames too large to process at once: how to produce the part `output` of the result, in whole pixels from the
  /// top left, from a part of a frame of `frameSize`. Nothing if an effect needs whole frames.
  std::optional<Part> part(const Rect& output, Size frameSize) const;
  /// Calls `TavrelCaptureEffect::prepareFrame` of each effect.
  std::shared_ptr<PixelBuffer> prepareFrame(std::shared_ptr<PixelBuffer> pixelBuffer,
                                            const SampleTiming& sampleTimingInfo, MediaTime frameTime) const;

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

/// Produces a part of a chain's result, with identical pixels.
struct TavrelCaptureEffectChain::Part {
  /// Takes frames that are the part `input`.
  TavrelCaptureEffectChain chain;
  Rect input;
  /// The part of the result that it produces: the requested one, possibly with a margin.
  Rect output;
};

}  // namespace tavrel
