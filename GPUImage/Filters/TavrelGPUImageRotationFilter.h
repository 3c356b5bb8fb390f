#pragma once

#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// Rotates or mirrors the frame. The mode belongs to the filter, survives reconnection and is applied after the input
/// rotation. A forced size is that of the rotated frame.
class TAVREL_API TavrelGPUImageRotationFilter : public TavrelGPUImageFilter {
 public:
  explicit TavrelGPUImageRotationFilter(TavrelGPUImageRotationMode rotation = kTavrelGPUImageNoRotation);
  ~TavrelGPUImageRotationFilter() override;

  TavrelGPUImageRotationMode rotation() const;
  /// Takes effect at the next frame. An invalid mode stops the program. Any thread.
  void setRotation(TavrelGPUImageRotationMode rotation);

  Size rotatedSize(Size sizeToRotate, Index forIndex) const override;
  void setInputSize(Size newSize, Index atIndex) override;
  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
