#pragma once

#include "GPUImage/Filters/TavrelGPUImageTransformFilter.h"

namespace tavrel {

/// A transform filter that lays its input out on a frame of a given size: after `forceProcessingAtSize` the output has
/// exactly that size, whatever the proportions of the input, which fills the whole frame before it is transformed.
/// Stickers are placed by it, with the transform of `TavrelGetTransform`. What they leave free is transparent.
class TAVREL_API TavrelGPUImagePlacementFilter : public TavrelGPUImageTransformFilter {
 public:
  TavrelGPUImagePlacementFilter();
  ~TavrelGPUImagePlacementFilter() override;

 protected:
  Size workingSize(Size inputSize) const override;
};

}  // namespace tavrel
