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
/// For each frame a producer gives the consumer the framebuffer and its size at the consumer's slot (`atIndex`), and
/// then says that the frame is ready. All on the video-processing queue.
class TAVREL_API TavrelGPUImageInput {
 public:
  virtual ~TavrelGPUImageInput() = default;

  /// The frame is there; `frameTime` is indefinite for frames without a time, such as still pictures.
  virtual void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) = 0;
  /// The consumer locks the framebuffer, which may be none, until it has drawn it.
  virtual void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer, Index atIndex) = 0;
  /// The slot that the next producer gets.
  virtual Index nextAvailableTextureIndex() const = 0;
  /// In pixels, before the consumer's rotation.
  virtual void setInputSize(Size newSize, Index atIndex) = 0;
  virtual void setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index atIndex) = 0;
  /// The largest size that the consumer has use for; zero for no limit.
  virtual Size maximumOutputSize() const = 0;
  /// No more frames will come.
  virtual void endProcessing() = 0;
  /// True when producers are not to send their per-frame updates here.
  virtual bool shouldIgnoreUpdatesToThisTarget() const = 0;
  virtual bool enabled() const = 0;
  virtual bool wantsMonochromeInput() const = 0;
  virtual void setCurrentlyReceivingMonochromeInput(bool newValue) = 0;
};

}  // namespace tavrel
