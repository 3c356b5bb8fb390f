#pragma once

#include <string>

#include "GPUImage/Filters/TavrelGPUImageTwoPassTextureSamplingFilter.h"

namespace tavrel {

/// Blurs with a Gaussian kernel, first up and down, then left and right. The shaders are text, generated for the kernel
/// and compiled when the radius changes; programs are kept by the context, so that going back to a radius is cheap.
///
/// Weights are those of the normal distribution, cut off where they fall below 1/256 and scaled to a sum of 1. The
/// optimised shaders take two neighbouring pixels with one linearly filtered sample.
class TAVREL_API TavrelGPUImageGaussianBlurFilter : public TavrelGPUImageTwoPassTextureSamplingFilter {
 public:
  /// With the kernel of radius 4 and sigma 2, which stays until another radius than 2 is set.
  TavrelGPUImageGaussianBlurFilter();
  TavrelGPUImageGaussianBlurFilter(std::string_view firstStageVertexShaderString,
                                   std::string_view firstStageFragmentShaderString,
                                   std::string_view secondStageVertexShaderString,
                                   std::string_view secondStageFragmentShaderString);
  ~TavrelGPUImageGaussianBlurFilter() override;

  /// The distance of the samples in texels, 1 by default. More blurs wider, and coarser.
  double texelSpacingMultiplier() const;
  void setTexelSpacingMultiplier(double newValue);
  /// The kernel's sigma, rounded to whole pixels; 2 by default. 0 does not blur. The kernel grows with it up to 62,
  /// where the cut at 1/256 begins to narrow it again; from 103 on nothing is left of it.
  double blurRadiusInPixels() const;
  void setBlurRadiusInPixels(double newValue);
  /// The sigma as a part of the picture's width, or height; the later one counts. It is taken from the next size that
  /// the filter is set up for, once. Negative values are ignored.
  double blurRadiusAsFractionOfImageWidth() const;
  void setBlurRadiusAsFractionOfImageWidth(double newValue);
  double blurRadiusAsFractionOfImageHeight() const;
  void setBlurRadiusAsFractionOfImageHeight(double newValue);
  /// Number of passes; 0 counts as 1.
  std::size_t blurPasses() const;
  void setBlurPasses(std::size_t newValue);

  void setupFilterForSize(Size filterFrameSize) override;

  /// The shaders of a kernel, `blurRadius` pixels to each side. Radius 0 gives the shaders that copy.
  static std::string vertexShaderForStandardBlurOfRadius(std::size_t blurRadius, double sigma);
  static std::string fragmentShaderForStandardBlurOfRadius(std::size_t blurRadius, double sigma);
  static std::string vertexShaderForOptimizedBlurOfRadius(std::size_t blurRadius, double sigma);
  static std::string fragmentShaderForOptimizedBlurOfRadius(std::size_t blurRadius, double sigma);

 protected:
  void renderToTextureWithVertices(const GLfloat* vertices, const GLfloat* textureCoordinates) override;

 private:
  void switchToVertexShader(const std::string& newVertexShader, const std::string& fragmentShader);

  struct Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
