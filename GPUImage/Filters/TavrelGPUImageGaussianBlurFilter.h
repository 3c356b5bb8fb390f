#pragma once

#include <string>

#include "GPUImage/Filters/TavrelGPUImageTwoPassTextureSamplingFilter.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// Blurs with a Gaussian kernel, first vertically, then horizontally. Shaders are generated and compiled when the
/// radius changes; the context caches the programs.
///
/// Weights follow the normal distribution, are cut off below 1/256 and normalised to a sum of 1. The optimised shaders
/// fetch two neighbouring pixels with one linearly filtered sample.
class TAVREL_API TavrelGPUImageGaussianBlurFilter : public TavrelGPUImageTwoPassTextureSamplingFilter {
 public:
  /// Starts with a kernel of radius 4 and sigma 2, which stays until `blurRadiusInPixels` is set to a value other than
  /// 2.
  TavrelGPUImageGaussianBlurFilter();
  TavrelGPUImageGaussianBlurFilter(std::string_view firstStageVertexShaderString,
                                   std::string_view firstStageFragmentShaderString,
                                   std::string_view secondStageVertexShaderString,
                                   std::string_view secondStageFragmentShaderString);
  ~TavrelGPUImageGaussianBlurFilter() override;

  /// Distance of the samples in texels; 1 by default. Larger values blur wider and coarser.
  double texelSpacingMultiplier() const;
  void setTexelSpacingMultiplier(double newValue);
  /// The kernel's sigma, rounded to whole pixels; 2 by default. 0 does not blur. Above 62 the cut at 1/256 narrows the
  /// kernel again; from 103 on it does not blur.
  double blurRadiusInPixels() const;
  void setBlurRadiusInPixels(double newValue);
  /// The sigma as a fraction of the frame's width or height, whichever was set last. Converted to pixels once, at the
  /// next size change. Negative values are ignored.
  double blurRadiusAsFractionOfImageWidth() const;
  void setBlurRadiusAsFractionOfImageWidth(double newValue);
  double blurRadiusAsFractionOfImageHeight() const;
  void setBlurRadiusAsFractionOfImageHeight(double newValue);
  /// Number of passes; 0 counts as 1.
  std::size_t blurPasses() const;
  void setBlurPasses(std::size_t newValue);

  void setupFilterForSize(Size filterFrameSize) override;

  /// The shaders of a kernel of `blurRadius` pixels to each side. Radius 0 gives the copying shaders.
  static std::string vertexShaderForStandardBlurOfRadius(std::size_t blurRadius, double sigma);
  static std::string fragmentShaderForStandardBlurOfRadius(std::size_t blurRadius, double sigma);
  static std::string vertexShaderForOptimizedBlurOfRadius(std::size_t blurRadius, double sigma);
  static std::string fragmentShaderForOptimizedBlurOfRadius(std::size_t blurRadius, double sigma);

 protected:
  void renderToTextureWithVertices(const GLfloat* vertices, const GLfloat* textureCoordinates) override;

 private:
  /// One pass that samples pixel by pixel, at distances of the uniform "pixel".
  static std::string fragmentShaderOfSinglePixels(std::size_t blurRadius, double sigma);
  bool drawsSinglePixels(const GLfloat* vertices, const GLfloat* textureCoordinates) const;
  void drawSinglePixels(const GLfloat* textureCoordinates);
  void switchToVertexShader(const std::string& newVertexShader, const std::string& fragmentShader);

  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
