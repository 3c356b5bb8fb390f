#include "GPUImage/Filters/TavrelGPUImagePlacementFilter.h"

#include "GPUImage/Filters/Private/FilterImplementation.h"

namespace tavrel {

// Where alpha is 0 so are the colours.
TavrelGPUImagePlacementFilter::TavrelGPUImagePlacementFilter()
    : TavrelGPUImageTransformFilter(
          "varying highp vec2 textureCoordinate; uniform highp sampler2D inputImageTexture; void main() { highp vec4 "
          "color = texture2D(inputImageTexture, textureCoordinate); gl_FragColor = vec4(color.rgb / max(color.a, "
          "0.001), "
          "color.a); }") {}

TavrelGPUImagePlacementFilter::~TavrelGPUImagePlacementFilter() = default;

Size TavrelGPUImagePlacementFilter::workingSize(Size inputSize) const {
  return overrideInputSize() ? forcedMaximumSize() : TavrelGPUImageTransformFilter::workingSize(inputSize);
}

// Each frame of the other picture reads the output, which costs less with 8 bits.
void TavrelGPUImagePlacementFilter::renderToTextureWithVertices(const GLfloat* vertices,
                                                                const GLfloat* textureCoordinates) {
  filter().isInputDeep = false;
  TavrelGPUImageTransformFilter::renderToTextureWithVertices(vertices, textureCoordinates);
}

}  // namespace tavrel
