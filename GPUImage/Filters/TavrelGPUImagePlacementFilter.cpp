#include "GPUImage/Filters/TavrelGPUImagePlacementFilter.h"

namespace tavrel {

TavrelGPUImagePlacementFilter::TavrelGPUImagePlacementFilter() = default;

TavrelGPUImagePlacementFilter::~TavrelGPUImagePlacementFilter() = default;

void TavrelGPUImagePlacementFilter::setInputSize(Size newSize, Index atIndex) {
  TavrelGPUImageTransformFilter::setInputSize(newSize, atIndex);
  if (preventRendering() || !overrideInputSize()) return;
  setInputTextureSize(forcedMaximumSize());
  setupFilterForSize(sizeOfFBO());
}

}  // namespace tavrel
