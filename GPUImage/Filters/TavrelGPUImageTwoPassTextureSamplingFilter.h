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
  ~TavrelGPUImageTwoPassTextureSamplingFilter() override;

  /// The step in texels; 1 by default.
  double verticalTexelSpacing() const;
  void setVerticalTexelSpacing(double newValue);
  double horizontalTexelSpacing() const;
  void setHorizontalTexelSpacing(double newValue);

  void setupFilterForSize(Size filterFrameSize) override;
  void setUniformsForProgramAtIndex(std::size_t programIndex) override;

 protected:
  /// Looks the step uniforms up in the current programs.
  void findStepUniforms();
  /// The steps for a first pass that reads its input upright, or turned sideways.
  void setSteps(Size filterFrameSize, bool isInputSideways);

 private:
  struct Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
