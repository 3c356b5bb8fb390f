#pragma once

#include "GPUImage/Filters/TavrelGPUImageCropFilter.h"

namespace tavrel {

/// A crop filter that keeps the proportions of what it cuts out when a size is forced on it, also at the end of the
/// chain, where a plain one takes those of its input. Sizes are whole pixels, however the region was rounded.
class CameraCropFilter : public TavrelGPUImageCropFilter {
 public:
  CameraCropFilter();
  ~CameraCropFilter() override;

  Size outputSizeFor(Size inputSize) const override;
  void setInputSize(Size newSize, Index atIndex) override;
};

}  // namespace tavrel
