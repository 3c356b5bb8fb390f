#pragma once

#include <string_view>

#include "GPUImage/Filters/TavrelGPUImageTwoPassFilter.h"

namespace tavrel {

/// A two-pass filter for separable kernels: the first pass samples up and down the picture, the second one left and
/// right. Both programs find the step from one sample to the next, in texture coordinates, in the float uniforms
/// `texelWidthOffset` and `texelHeightOffset`.
class TAVREL_API TavrelGPUImageTwoPassTextureSamplingFilter : public TavrelGPUImageTwoPassFilter {
 public:
  TavrelGPUImageTwoPassTextureSamplingFilter(std::string_view firstStageVertexShaderString,
                                             std::string_view firstStageFragmentShaderString,
                                             std::string_view secondStageVertexShaderString,
                                             std::string_view secondStageFragmentShaderString);

  /// The step in texels; 1 by default.
  double verticalTexelSpacing() const { return verticalTexelSpacing_; }
  void setVerticalTexelSpacing(double newValue);
  double horizontalTexelSpacing() const { return horizontalTexelSpacing_; }
  void setHorizontalTexelSpacing(double newValue);

  void setupFilterForSize(Size filterFrameSize) override;
  void setUniformsForProgramAtIndex(std::size_t programIndex) override;

 protected:
  /// Looks the step uniforms up in the current programs. Video-processing queue.
  void findStepUniforms();
  /// The steps for a first pass that reads its input upright, or turned sideways.
  void setSteps(Size filterFrameSize, bool isInputSideways);

  double verticalTexelSpacing_ = 1;
  double horizontalTexelSpacing_ = 1;
  GLfloat verticalPassTexelWidthOffset = 0;
  GLfloat verticalPassTexelHeightOffset = 0;
  GLfloat horizontalPassTexelWidthOffset = 0;
  GLfloat horizontalPassTexelHeightOffset = 0;
  GLint verticalPassTexelWidthOffsetUniform = -1;
  GLint verticalPassTexelHeightOffsetUniform = -1;
  GLint horizontalPassTexelWidthOffsetUniform = -1;
  GLint horizontalPassTexelHeightOffsetUniform = -1;
};

}  // namespace tavrel
