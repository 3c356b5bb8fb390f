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
/// frame. Video-processing queue.
class TAVREL_API TavrelGPUImageInput {
 public:
  virtual ~TavrelGPUImageInput() = default;

  /// The frame is ready. `frameTime` is indefinite for frames without a time, such as still pictures.
  virtual void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) = 0;
  /// The consumer locks the framebuffer, which may be nullptr, until it has drawn it.
  virtual void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer, Index atIndex) = 0;
  /// The slot for the next producer.
  virtual Index nextAvailableTextureIndex() const = 0;
  /// In pixels, before the input rotation. Ignored unless finite.
  virtual void setInputSize(Size newSize, Index atIndex) = 0;
  virtual void setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index atIndex) = 0;
  /// The largest useful size; zero for no limit.
  virtual Size maximumOutputSize() const = 0;
  /// No more frames follow.
  virtual void endProcessing() = 0;
  /// True if producers shall not send per-frame updates here.
  virtual bool shouldIgnoreUpdatesToThisTarget() const = 0;
  virtual bool enabled() const = 0;
  virtual bool wantsMonochromeInput() const = 0;
  virtual void setCurrentlyReceivingMonochromeInput(bool newValue) = 0;
};

}  // namespace tavrel
