#include "GPUImage/Filters/TavrelGPUImageCropFilter.h"

#include "Platform/Foundation/FatalAssertion.h"

namespace tavrel {
namespace {

bool isInUnitRange(double value) {
  return value >= 0 && value <= 1;
}

// Where each texture coordinate of a corner comes from: an edge of the region, mirrored (1 - edge) or not.
enum Edge { x0, x1, y0, y1, mirroredX0, mirroredX1 };

// (s, t) of the four corners for each rotation mode.
constexpr Edge kCorners[8][8] = {
    {x0, y0, x1, y0, x0, y1, x1, y1},                                  // no rotation
    {y1, mirroredX1, y1, mirroredX0, y0, mirroredX1, y0, mirroredX0},  // rotate left
    {y0, mirroredX0, y0, mirroredX1, y1, mirroredX0, y1, mirroredX1},  // rotate right
    {x0, y1, x1, y1, x0, y0, x1, y0},                                  // flip vertical
    {x1, y0, x0, y0, x1, y1, x0, y1},                                  // flip horizontal
    {y0, mirroredX1, y0, mirroredX0, y1, mirroredX1, y1, mirroredX0},  // rotate right, flip vertical
    {y1, mirroredX0, y1, mirroredX1, y0, mirroredX0, y0, mirroredX1},  // rotate right, flip horizontal
    {x1, y1, x0, y1, x1, y0, x0, y0},                                  // rotate 180
};

}  // namespace

const char* const kTavrelGPUImageCropFragmentShaderString =
    "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; void main() { gl_FragColor = "
    "texture2D(inputImageTexture, textureCoordinate); }";

TavrelGPUImageCropFilter::TavrelGPUImageCropFilter() : TavrelGPUImageCropFilter(Rect{{0, 0}, {1, 1}}) {}

TavrelGPUImageCropFilter::TavrelGPUImageCropFilter(const Rect& cropRegion)
    : TavrelGPUImageFilter(kTavrelGPUImageCropFragmentShaderString) {
  setCropRegion(cropRegion);
}

void TavrelGPUImageCropFilter::setCropRegion(const Rect& newValue) {
  if (!isInUnitRange(newValue.origin.x) || !isInUnitRange(newValue.origin.y) || !isInUnitRange(newValue.size.width) ||
      !isInUnitRange(newValue.size.height)) {
    fatalAssertion(
        "newValue.origin.x >= 0 && newValue.origin.x <= 1 && newValue.origin.y >= 0 && newValue.origin.y <= 1 && "
        "newValue.size.width >= 0 && newValue.size.width <= 1 && newValue.size.height >= 0 && newValue.size.height <= "
        "1");
  }
  cropRegion_ = newValue;
  calculateCropTextureCoordinates();
}

void TavrelGPUImageCropFilter::calculateCropTextureCoordinates() {
  if (inputRotation_ > kTavrelGPUImageRotate180) return;
  const GLfloat edges[] = {
      static_cast<GLfloat>(cropRegion_.minX()),     static_cast<GLfloat>(cropRegion_.maxX()),
      static_cast<GLfloat>(cropRegion_.minY()),     static_cast<GLfloat>(cropRegion_.maxY()),
      static_cast<GLfloat>(1 - cropRegion_.minX()), static_cast<GLfloat>(1 - cropRegion_.maxX()),
  };
  for (std::size_t i = 0; i < cropTextureCoordinates_.size(); ++i) {
    cropTextureCoordinates_[i] = edges[kCorners[inputRotation_][i]];
  }
}

void TavrelGPUImageCropFilter::setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index atIndex) {
  TavrelGPUImageFilter::setInputRotation(newInputRotation, atIndex);
  calculateCropTextureCoordinates();
}

Size TavrelGPUImageCropFilter::outputSizeFor(Size inputSize) const {
  const Size rotated = rotatedSize(inputSize, 0);
  return {rotated.width * cropRegion_.size.width, rotated.height * cropRegion_.size.height};
}

void TavrelGPUImageCropFilter::setInputSize(Size newSize, Index) {
  if (preventRendering()) return;
  setInputTextureSize(overrideInputSize() ? inputSizeUnderOverride(newSize) : outputSizeFor(newSize));
  setupFilterForSize(sizeOfFBO());
}

void TavrelGPUImageCropFilter::newFrameReadyAtTime(MediaTime frameTime, Index) {
  renderToTexture(fullFrameVertices(), cropTextureCoordinates_.data());
  informTargetsAboutNewFrameAtTime(frameTime);
}

}  // namespace tavrel
