#include "GPUImage/Filters/TavrelGPUImageTwoPassTextureSamplingFilter.h"

#include "GPUImage/TavrelGPUImageContext.h"

namespace tavrel {

TavrelGPUImageTwoPassTextureSamplingFilter::TavrelGPUImageTwoPassTextureSamplingFilter(
    std::string_view firstStageVertexShaderString, std::string_view firstStageFragmentShaderString,
    std::string_view secondStageVertexShaderString, std::string_view secondStageFragmentShaderString)
    : TavrelGPUImageTwoPassFilter(firstStageVertexShaderString, firstStageFragmentShaderString,
                                  secondStageVertexShaderString, secondStageFragmentShaderString) {
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    TavrelGPUImageContext::useImageProcessingContext();
    findStepUniforms();
  });
}

void TavrelGPUImageTwoPassTextureSamplingFilter::findStepUniforms() {
  verticalPassTexelWidthOffsetUniform = filterProgram->uniformIndex("texelWidthOffset");
  verticalPassTexelHeightOffsetUniform = filterProgram->uniformIndex("texelHeightOffset");
  horizontalPassTexelWidthOffsetUniform = secondFilterProgram->uniformIndex("texelWidthOffset");
  horizontalPassTexelHeightOffsetUniform = secondFilterProgram->uniformIndex("texelHeightOffset");
}

void TavrelGPUImageTwoPassTextureSamplingFilter::setVerticalTexelSpacing(double newValue) {
  verticalTexelSpacing_ = newValue;
  setupFilterForSize(sizeOfFBO());
}

void TavrelGPUImageTwoPassTextureSamplingFilter::setHorizontalTexelSpacing(double newValue) {
  horizontalTexelSpacing_ = newValue;
  setupFilterForSize(sizeOfFBO());
}

void TavrelGPUImageTwoPassTextureSamplingFilter::setupFilterForSize(Size filterFrameSize) {
  TavrelRunSynchronouslyOnVideoProcessingQueue(
      [&] { setSteps(filterFrameSize, TavrelGPUImageRotationSwapsWidthAndHeight(inputRotation())); });
}

void TavrelGPUImageTwoPassTextureSamplingFilter::setSteps(Size filterFrameSize, bool isInputSideways) {
  const auto vertical = static_cast<GLfloat>(verticalTexelSpacing_ / filterFrameSize.height);
  // The picture's height lies along the width of an input that is turned sideways.
  verticalPassTexelWidthOffset = isInputSideways ? vertical : 0;
  verticalPassTexelHeightOffset = isInputSideways ? 0 : vertical;
  horizontalPassTexelWidthOffset = static_cast<GLfloat>(horizontalTexelSpacing_ / filterFrameSize.width);
  horizontalPassTexelHeightOffset = 0;
}

void TavrelGPUImageTwoPassTextureSamplingFilter::setUniformsForProgramAtIndex(std::size_t programIndex) {
  TavrelGPUImageTwoPassFilter::setUniformsForProgramAtIndex(programIndex);
  if (programIndex == 0) {
    glUniform1f(verticalPassTexelWidthOffsetUniform, verticalPassTexelWidthOffset);
    glUniform1f(verticalPassTexelHeightOffsetUniform, verticalPassTexelHeightOffset);
  } else {
    glUniform1f(horizontalPassTexelWidthOffsetUniform, horizontalPassTexelWidthOffset);
    glUniform1f(horizontalPassTexelHeightOffsetUniform, horizontalPassTexelHeightOffset);
  }
}

}  // namespace tavrel
