#include "GPUImage/Filters/Private/FilterImplementation.h"
#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "Platform/Foundation/Finite.h"

namespace tavrel {
namespace {

// (s, t) at bottom-left, bottom-right, top-left, top-right; one row for each rotation mode.
constexpr GLfloat kTextureCoordinates[8][8] = {
    {0, 0, 1, 0, 0, 1, 1, 1},  // no rotation
    {1, 0, 1, 1, 0, 0, 0, 1},  // rotate left
    {0, 1, 0, 0, 1, 1, 1, 0},  // rotate right
    {0, 1, 1, 1, 0, 0, 1, 0},  // flip vertical
    {1, 0, 0, 0, 1, 1, 0, 1},  // flip horizontal
    {0, 0, 0, 1, 1, 0, 1, 1},  // rotate right, flip vertical
    {1, 1, 1, 0, 0, 1, 0, 0},  // rotate right, flip horizontal
    {1, 1, 0, 1, 1, 0, 0, 0},  // rotate 180
};

constexpr GLfloat kFullFrameVertices[8] = {-1, -1, 1, -1, -1, 1, 1, 1};

}  // namespace

const GLfloat* TavrelGPUImageFilter::textureCoordinatesForRotation(TavrelGPUImageRotationMode rotationMode) {
  return rotationMode <= kTavrelGPUImageRotate180 ? kTextureCoordinates[rotationMode] : nullptr;
}

const GLfloat* TavrelGPUImageFilter::fullFrameVertices() { return kFullFrameVertices; }

Point TavrelGPUImageFilter::rotatedPoint(Point point, TavrelGPUImageRotationMode forRotation) {
  const auto [x, y] = point;
  switch (forRotation) {
    case kTavrelGPUImageNoRotation: return {x, y};
    case kTavrelGPUImageRotateLeft: return {1 - y, x};
    case kTavrelGPUImageRotateRight: return {y, 1 - x};
    case kTavrelGPUImageFlipVertical: return {x, 1 - y};
    case kTavrelGPUImageFlipHorizontal: return {1 - x, y};
    case kTavrelGPUImageRotateRightFlipVertical: return {y, x};
    case kTavrelGPUImageRotateRightFlipHorizontal: return {1 - y, 1 - x};
    case kTavrelGPUImageRotate180: return {1 - x, 1 - y};
  }
  return {};
}

Size TavrelGPUImageFilter::rotatedSize(Size size, Index) const {
  return TavrelGPUImageRotatedSize(size, inputRotation());
}

Size TavrelGPUImageFilter::outputFrameSize() const { return inputTextureSize(); }

// Only the widths are compared.
Size TavrelGPUImageFilter::sizeOfFBO() const {
  return onVideoProcessingQueue([this] {
    const Size maximum = maximumOutputSize();
    const Size input = inputTextureSize();
    return isZero(maximum) || input.width < maximum.width ? input : maximum;
  });
}

Size TavrelGPUImageFilter::workingSize(Size inputSize) const {
  return overrideInputSize() ? inputSizeUnderOverride(inputSize) : outputSizeFor(inputSize);
}

Size TavrelGPUImageFilter::inputSizeUnderOverride(Size size) const {
  const Size maximum = forcedMaximumSize();
  return isZero(maximum) ? inputTextureSize() : rectWithAspectRatioInsideRect(size, {{0, 0}, maximum}).size;
}

void TavrelGPUImageFilter::forceProcessingAtSize(Size frameSize) {
  if (!isFinite(frameSize) || frameSize.width < 0 || frameSize.height < 0) return;
  onVideoProcessingQueue([&] {
    frameSize = TavrelGPUImageContext::sizeThatFitsWithinATextureForSize(frameSize);
    if (isZero(frameSize)) return setForcedMaximumSize(forcedMaximumSize(), false);
    setForcedMaximumSize(frameSize, true);
    setInputTextureSize(frameSize);
  });
}

void TavrelGPUImageFilter::forceProcessingAtSizeRespectingAspectRatio(Size frameSize) {
  if (!isFinite(frameSize) || frameSize.width < 0 || frameSize.height < 0) return;
  onVideoProcessingQueue([&] {
    frameSize = TavrelGPUImageContext::sizeThatFitsWithinATextureForSize(frameSize);
    setForcedMaximumSize(frameSize, !isZero(frameSize));
    if (isZero(frameSize)) setInputTextureSize({});
  });
}

}  // namespace tavrel
