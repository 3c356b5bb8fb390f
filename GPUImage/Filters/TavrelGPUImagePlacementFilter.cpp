#include "GPUImage/Filters/TavrelGPUImagePlacementFilter.h"

namespace tavrel {

TavrelGPUImagePlacementFilter::TavrelGPUImagePlacementFilter() = default;

TavrelGPUImagePlacementFilter::~TavrelGPUImagePlacementFilter() = default;

Size TavrelGPUImagePlacementFilter::workingSize(Size inputSize) const {
  return overrideInputSize() ? forcedMaximumSize() : TavrelGPUImageTransformFilter::workingSize(inputSize);
}

}  // namespace tavrel
