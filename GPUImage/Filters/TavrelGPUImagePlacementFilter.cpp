#include "GPUImage/Filters/TavrelGPUImagePlacementFilter.h"

namespace tavrel {

// Where alpha is 0 so are the colours.
TavrelGPUImagePlacementFilter::TavrelGPUImagePlacementFilter()
    : TavrelGPUImageTransformFilter(
          "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; void main() { mediump vec4 color "
          "= texture2D(inputImageTexture, textureCoordinate); gl_FragColor = vec4(color.rgb / max(color.a, 0.001), "
          "color.a); }") {}

TavrelGPUImagePlacementFilter::~TavrelGPUImagePlacementFilter() = default;

Size TavrelGPUImagePlacementFilter::workingSize(Size inputSize) const {
  return overrideInputSize() ? forcedMaximumSize() : TavrelGPUImageTransformFilter::workingSize(inputSize);
}

}  // namespace tavrel
