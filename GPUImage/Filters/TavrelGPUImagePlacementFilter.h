#pragma once

#include "GPUImage/Filters/TavrelGPUImageTransformFilter.h"

namespace tavrel {

/// A transform filter that lays its input out on a frame of a given size: after `forceProcessingAtSize` the output has
/// exactly that size, whatever the proportions of the input, which fills the whole frame before it is transformed.
/// Stickers are placed by it, with the transform of `TavrelGetTransform`. What they leave free is transparent.
///
/// Colours are multiplied by alpha in the input, so that at the edges the ones under no cover do not show, and are not
/// in the output, as an alpha blend filter wants them.
class TAVREL_API TavrelGPUImagePlacementFilter : public TavrelGPUImageTransformFilter {
 public:
  TavrelGPUImagePlacementFilter();
  ~TavrelGPUImagePlacementFilter() override;

 protected:
  Size workingSize(Size inputSize) const override;
};

}  // namespace tavrel
