#pragma once

#include <atomic>

#include "GPUImage/Filters/TavrelGPUImageFilter.h"

namespace tavrel {

/// Turns or mirrors the frame. The mode is the filter's own and stays when the filter is connected anew; it comes on
/// top of the rotation that a connection asks for. A size forced on it is that of the turned frame.
class TAVREL_API TavrelGPUImageRotationFilter : public TavrelGPUImageFilter {
 public:
  explicit TavrelGPUImageRotationFilter(TavrelGPUImageRotationMode rotation = kTavrelGPUImageNoRotation);
  ~TavrelGPUImageRotationFilter() override;

  TavrelGPUImageRotationMode rotation() const { return rotation_; }
  /// Applies from the next frame on; a value that is no mode stops the program. Any thread.
  void setRotation(TavrelGPUImageRotationMode rotation);

  Size rotatedSize(Size sizeToRotate, Index forIndex) const override;
  void setInputSize(Size newSize, Index atIndex) override;
  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;

 private:
  std::atomic<TavrelGPUImageRotationMode> rotation_;
};

}  // namespace tavrel
