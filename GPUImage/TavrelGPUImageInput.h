#pragma once

#include <memory>

#include "GPUImage/TavrelGPUImageRotationMode.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Media/MediaTime.h"

namespace tavrel {

class TavrelGPUImageFramebuffer;

/// A consumer of frames: a filter, the preview view, the movie writer.
///
/// For each frame a producer sets the framebuffer and its size at the consumer's slot (`atIndex`), then announces the
/// frame. Derive from this class and implement these two; by default a consumer has one slot, takes any size and
/// ignores rotations. Video-processing queue.
class TAVREL_API TavrelGPUImageInput {
 public:
  virtual ~TavrelGPUImageInput() = default;

  /// The frame is ready. `frameTime` is indefinite for frames without a time, such as still pictures.
  virtual void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) = 0;
  /// The consumer locks the framebuffer, which may be nullptr, until it has drawn it.
  virtual void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer, Index atIndex) = 0;
  /// The slot for the next producer.
  virtual Index nextAvailableTextureIndex() const { return 0; }
  /// In pixels, before the input rotation. Ignored unless finite.
  virtual void setInputSize(Size /*newSize*/, Index /*atIndex*/) {}
  virtual void setInputRotation(TavrelGPUImageRotationMode /*newInputRotation*/, Index /*atIndex*/) {}
  /// The largest useful size; zero for no limit.
  virtual Size maximumOutputSize() const { return {}; }
  /// No more frames follow.
  virtual void endProcessing() {}
  /// True if producers shall not send per-frame updates here.
  virtual bool shouldIgnoreUpdatesToThisTarget() const { return false; }
  virtual bool enabled() const { return true; }
  virtual bool wantsMonochromeInput() const { return false; }
  virtual void setCurrentlyReceivingMonochromeInput(bool /*newValue*/) {}
};

}  // namespace tavrel
