#include "GPUImage/Filters/TavrelGPUImageTwoPassTextureSamplingFilter.h"

#include "GPUImage/Private/Properties.h"
#include "GPUImage/TavrelGLProgram.h"
#include "Platform/Foundation/Finite.h"

namespace tavrel {

struct TavrelGPUImageTwoPassTextureSamplingFilter::Implementation {
  double verticalTexelSpacing = 1;
  double horizontalTexelSpacing = 1;
  GLfloat verticalPassTexelWidthOffset = 0;
  GLfloat verticalPassTexelHeightOffset = 0;
  GLfloat horizontalPassTexelWidthOffset = 0;
  GLfloat horizontalPassTexelHeightOffset = 0;
  GLint verticalPassTexelWidthOffsetUniform = -1;
  GLint verticalPassTexelHeightOffsetUniform = -1;
  GLint horizontalPassTexelWidthOffsetUniform = -1;
  GLint horizontalPassTexelHeightOffsetUniform = -1;
};

TavrelGPUImageTwoPassTextureSamplingFilter::TavrelGPUImageTwoPassTextureSamplingFilter(
    std::string_view firstStageVertexShaderString, std::string_view firstStageFragmentShaderString,
    std::string_view secondStageVertexShaderString, std::string_view secondStageFragmentShaderString)
    : TavrelGPUImageTwoPassFilter(firstStageVertexShaderString, firstStageFragmentShaderString,
                                  secondStageVertexShaderString, secondStageFragmentShaderString),
      implementation_(std::make_unique<Implementation>()) {
  findStepUniforms();
}

TavrelGPUImageTwoPassTextureSamplingFilter::~TavrelGPUImageTwoPassTextureSamplingFilter() = default;

void TavrelGPUImageTwoPassTextureSamplingFilter::findStepUniforms() {
  onVideoProcessingQueue([this] {
    TavrelGPUImageContext::useImageProcessingContext();
    Implementation& state = *implementation_;
    state.verticalPassTexelWidthOffsetUniform = program()->uniformIndex("texelWidthOffset");
    state.verticalPassTexelHeightOffsetUniform = program()->uniformIndex("texelHeightOffset");
    state.horizontalPassTexelWidthOffsetUniform = secondProgram()->uniformIndex("texelWidthOffset");
    state.horizontalPassTexelHeightOffsetUniform = secondProgram()->uniformIndex("texelHeightOffset");
  });
}

TAVREL_NODE_VALUE(TavrelGPUImageTwoPassTextureSamplingFilter, double, verticalTexelSpacing)

void TavrelGPUImageTwoPassTextureSamplingFilter::setVerticalTexelSpacing(double newValue) {
  if (!isFinite(newValue)) return;
  onVideoProcessingQueue([&] {
    implementation_->verticalTexelSpacing = newValue;
    setupFilterForSize(sizeOfFBO());
  });
}

TAVREL_NODE_VALUE(TavrelGPUImageTwoPassTextureSamplingFilter, double, horizontalTexelSpacing)

void TavrelGPUImageTwoPassTextureSamplingFilter::setHorizontalTexelSpacing(double newValue) {
  if (!isFinite(newValue)) return;
  onVideoProcessingQueue([&] {
    implementation_->horizontalTexelSpacing = newValue;
    setupFilterForSize(sizeOfFBO());
  });
}

void TavrelGPUImageTwoPassTextureSamplingFilter::setupFilterForSize(Size filterFrameSize) {
  onVideoProcessingQueue(
      [&] { setSteps(filterFrameSize, TavrelGPUImageRotationSwapsWidthAndHeight(inputRotation())); });
}

void TavrelGPUImageTwoPassTextureSamplingFilter::setSteps(Size filterFrameSize, bool isInputSideways) {
  Implementation& state = *implementation_;
  const auto vertical = static_cast<GLfloat>(state.verticalTexelSpacing / filterFrameSize.height);
  // The picture's height lies along the width of an input that is turned sideways.
  state.verticalPassTexelWidthOffset = isInputSideways ? vertical : 0;
  state.verticalPassTexelHeightOffset = isInputSideways ? 0 : vertical;
  state.horizontalPassTexelWidthOffset = static_cast<GLfloat>(state.horizontalTexelSpacing / filterFrameSize.width);
  state.horizontalPassTexelHeightOffset = 0;
}

void TavrelGPUImageTwoPassTextureSamplingFilter::setUniformsForProgramAtIndex(std::size_t programIndex) {
  TavrelGPUImageTwoPassFilter::setUniformsForProgramAtIndex(programIndex);
  const Implementation& state = *implementation_;
  if (programIndex == 0) {
    glUniform1f(state.verticalPassTexelWidthOffsetUniform, state.verticalPassTexelWidthOffset);
    glUniform1f(state.verticalPassTexelHeightOffsetUniform, state.verticalPassTexelHeightOffset);
  } else {
    glUniform1f(state.horizontalPassTexelWidthOffsetUniform, state.horizontalPassTexelWidthOffset);
    glUniform1f(state.horizontalPassTexelHeightOffsetUniform, state.horizontalPassTexelHeightOffset);
  }
}

}  // namespace tavrel
