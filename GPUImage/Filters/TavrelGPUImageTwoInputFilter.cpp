#include "GPUImage/Filters/TavrelGPUImageTwoInputFilter.h"

#include <utility>

#include "GPUImage/TavrelGPUImageContext.h"

namespace tavrel {

const char* const kTavrelGPUImageTwoInputTextureVertexShaderString =
    "attribute vec4 position; attribute vec4 inputTextureCoordinate; attribute vec4 inputTextureCoordinate2; "
    "varying vec2 textureCoordinate; varying vec2 textureCoordinate2; void main() { gl_Position = position; "
    "textureCoordinate = inputTextureCoordinate.xy; textureCoordinate2 = inputTextureCoordinate2.xy; }";

TavrelGPUImageTwoInputFilter::TavrelGPUImageTwoInputFilter(std::string_view fragmentShaderString)
    : TavrelGPUImageTwoInputFilter(kTavrelGPUImageTwoInputTextureVertexShaderString, fragmentShaderString) {}

TavrelGPUImageTwoInputFilter::TavrelGPUImageTwoInputFilter(std::string_view vertexShaderString,
                                                           std::string_view fragmentShaderString)
    : TavrelGPUImageFilter(vertexShaderString, fragmentShaderString,
                           {"position", "inputTextureCoordinate", "inputTextureCoordinate2"}) {
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    TavrelGPUImageContext::useImageProcessingContext();
    filterSecondTextureCoordinateAttribute = filterProgram->attributeIndex("inputTextureCoordinate2");
    filterInputTextureUniform2 = filterProgram->uniformIndex("inputImageTexture2");
    glEnableVertexAttribArray(filterSecondTextureCoordinateAttribute);
  });
}

Size TavrelGPUImageTwoInputFilter::rotatedSize(Size size, Index forIndex) const {
  const TavrelGPUImageRotationMode rotation = forIndex == 0 ? inputRotation() : inputRotation2;
  if (TavrelGPUImageRotationSwapsWidthAndHeight(rotation)) return {size.height, size.width};
  return size;
}

void TavrelGPUImageTwoInputFilter::setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer,
                                                       Index atIndex) {
  TavrelGPUImageFramebufferLease lease(std::move(newInputFramebuffer));
  if (atIndex == 0) {
    firstInputFramebuffer = std::move(lease);
    hasSetFirstTexture = true;
  } else {
    secondInputFramebuffer = std::move(lease);
  }
}

void TavrelGPUImageTwoInputFilter::setInputSize(Size newSize, Index atIndex) {
  if (atIndex != 0) return;
  TavrelGPUImageFilter::setInputSize(newSize, atIndex);
  if (isZero(newSize)) hasSetFirstTexture = false;
}

void TavrelGPUImageTwoInputFilter::setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index atIndex) {
  if (atIndex == 0) {
    TavrelGPUImageFilter::setInputRotation(newInputRotation, atIndex);
  } else {
    inputRotation2 = newInputRotation;
  }
}

void TavrelGPUImageTwoInputFilter::newFrameReadyAtTime(MediaTime frameTime, Index atIndex) {
  // An update that comes back around a loop ends here.
  if (hasReceivedFirstFrame && hasReceivedSecondFrame) return;

  bool isOppositeStill = false;
  if (atIndex == 0) {
    hasReceivedFirstFrame = true;
    firstFrameTime = frameTime;
    if (secondFrameCheckDisabled) hasReceivedSecondFrame = true;
    isOppositeStill = !frameTime.isIndefinite() && secondFrameTime.isIndefinite();
  } else {
    hasReceivedSecondFrame = true;
    secondFrameTime = frameTime;
    if (firstFrameCheckDisabled) hasReceivedFirstFrame = true;
    isOppositeStill = !frameTime.isIndefinite() && firstFrameTime.isIndefinite();
  }
  if (!(hasReceivedFirstFrame && hasReceivedSecondFrame) && !isOppositeStill) return;

  TavrelGPUImageFilter::newFrameReadyAtTime(firstFrameTime.isIndefinite() ? secondFrameTime : firstFrameTime, 0);
  hasReceivedFirstFrame = false;
  hasReceivedSecondFrame = false;
}

void TavrelGPUImageTwoInputFilter::bindInputs() {
  TavrelGPUImageFilter::bindInputs();
  bindTexture(secondInputFramebuffer, 3, filterInputTextureUniform2);
  setCorners(filterSecondTextureCoordinateAttribute, textureCoordinatesForRotation(inputRotation2));
}

// A picture that will not come again must not be drawn over before the next frame of the other input.
void TavrelGPUImageTwoInputFilter::unlockInputs() {
  if (!firstFrameTime.isIndefinite() && !firstFrameCheckDisabled) firstInputFramebuffer.release();
  if (!secondFrameTime.isIndefinite() && !secondFrameCheckDisabled) secondInputFramebuffer.release();
}

}  // namespace tavrel
