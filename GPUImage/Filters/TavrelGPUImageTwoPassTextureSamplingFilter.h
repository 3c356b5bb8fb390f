#pragma once

#include <string_view>

#include "GPUImage/Filters/TavrelGPUImageTwoPassFilter.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// A two-pass filter for separable kernels: the first pass samples vertically, the second horizontally. The float
/// uniforms `texelWidthOffset` and `texelHeightOffset` are the step between samples in texture coordinates.
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
  /// Looks up the step uniforms in the current programs.
  void findStepUniforms();
  /// Sets the steps, for a first pass whose input is upright or rotated sideways.
  void setSteps(Size filterFrameSize, bool isInputSideways);

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
