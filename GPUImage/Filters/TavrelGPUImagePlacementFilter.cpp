#include "GPUImage/Filters/TavrelGPUImagePlacementFilter.h"

#include <algorithm>
#include <utility>

#include "GPUImage/Filters/Private/FilterImplementation.h"
#include "GPUImage/Private/FramebufferContents.h"
#include "GPUImage/Private/Rehearsal.h"

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
  auto& state = filter();
  state.isInputDeep = false;
  const auto& input = state.firstInputFramebuffer.get();
  const bool isKnown = PendingDrawing::isOn() && input && state.fusion.hasOwnUniforms();
  StillDrawing::Cause cause = {.still = isKnown ? input->stillNumber() : 0,
                               .size = sizeOfFBO(),
                               .textureCoordinates = textureCoordinates,
                               .uniforms = state.fusion.uniforms(),
                               .background = {state.backgroundColorRed, state.backgroundColorGreen,
                                              state.backgroundColorBlue, state.backgroundColorAlpha},
                               .scaling = TavrelGPUImageContext::scaling()};
  std::copy_n(vertices, cause.vertices.size(), cause.vertices.begin());
  if (!preventRendering() && state.still.framebuffer && cause == state.still.cause) {
    setOutputFramebuffer(TavrelGPUImageFramebufferLease(state.still.framebuffer.get()).detach());
    return unlockInputs();
  }
  TavrelGPUImageTransformFilter::renderToTextureWithVertices(vertices, textureCoordinates);
  const auto drawn = framebufferForOutput();
  if (preventRendering() || !drawn) return;
  if (cause.background == std::array<GLfloat, 4>{}) FramebufferContents::setVisibleArea(*drawn, drawnArea(vertices));
  if (Rehearsal::isNoting()) return;
  TavrelGPUImageFramebufferLease kept(cause.still != 0 ? drawn : nullptr);
  state.still = {std::move(cause), std::move(kept)};
}

}  // namespace tavrel
