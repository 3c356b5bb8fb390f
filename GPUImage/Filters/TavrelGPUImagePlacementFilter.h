#pragma once

#include "GPUImage/Filters/TavrelGPUImageTransformFilter.h"

namespace tavrel {

/// A transform filter that places its input on a frame of a given size, such as a sticker with the transform of
/// `TavrelGetTransform`. After `forceProcessingAtSize` the output has exactly that size; the input, whatever its
/// proportions, fills it before the transform. The rest is transparent.
///
/// The input is premultiplied, so that colours of transparent pixels do not bleed into edges, best with 16 bits, from
/// which straight colours can be had without a loss; the output is straight, as an alpha blend filter expects, of 8
/// bits.
class TAVREL_API TavrelGPUImagePlacementFilter : public TavrelGPUImageTransformFilter {
 public:
  TavrelGPUImagePlacementFilter();
  ~TavrelGPUImagePlacementFilter() override;

 protected:
  Size workingSize(Size inputSize) const override;
  void renderToTextureWithVertices(const GLfloat* vertices, const GLfloat* textureCoordinates) override;
};

}  // namespace tavrel
