#include "GPUImage/Filters/TavrelGPUImageGaussianBlurFilter.h"

#include <cmath>

#include "GPUImage/Private/Properties.h"
#include "Platform/Foundation/Finite.h"

namespace tavrel {
namespace {

/// Where the weight of a normal distribution falls to 1/256, made even.
std::size_t sampleRadius(double sigma) {
  constexpr double kTwoPi = 6.283185307179586;
  constexpr double kSmallestWeight = 0.00390625;
  if (!(sigma >= 1)) return 0;
  const double square = -2.0 * sigma * sigma * std::log(kSmallestWeight * std::sqrt(kTwoPi * sigma * sigma));
  if (!(square > 0)) return 0;
  const auto radius = static_cast<std::size_t>(std::floor(std::sqrt(square)));
  return radius + radius % 2;
}

}  // namespace

struct TavrelGPUImageGaussianBlurFilter::Implementation {
  double texelSpacingMultiplier = 1;
  double blurRadiusInPixels = 2;
  double blurRadiusAsFractionOfImageWidth = 0;
  double blurRadiusAsFractionOfImageHeight = 0;
  std::size_t blurPasses = 0;
  bool shouldResizeBlurRadiusWithImageSize = false;

  /// Stores `newValue` in one of the two fractions, which replaces the other.
  void setFraction(double newValue, double& fraction, double& other) {
    shouldResizeBlurRadiusWithImageSize = newValue != fraction && newValue > 0;
    fraction = newValue;
    other = 0;
  }
};

TavrelGPUImageGaussianBlurFilter::TavrelGPUImageGaussianBlurFilter()
    : TavrelGPUImageGaussianBlurFilter(
          vertexShaderForOptimizedBlurOfRadius(4, 2.0), fragmentShaderForOptimizedBlurOfRadius(4, 2.0),
          vertexShaderForOptimizedBlurOfRadius(4, 2.0), fragmentShaderForOptimizedBlurOfRadius(4, 2.0)) {}

TavrelGPUImageGaussianBlurFilter::TavrelGPUImageGaussianBlurFilter(std::string_view firstStageVertexShaderString,
                                                                   std::string_view firstStageFragmentShaderString,
                                                                   std::string_view secondStageVertexShaderString,
                                                                   std::string_view secondStageFragmentShaderString)
    : TavrelGPUImageTwoPassTextureSamplingFilter(firstStageVertexShaderString, firstStageFragmentShaderString,
                                                 secondStageVertexShaderString, secondStageFragmentShaderString),
      implementation_(std::make_unique<Implementation>()) {}

TavrelGPUImageGaussianBlurFilter::~TavrelGPUImageGaussianBlurFilter() = default;

TAVREL_NODE_VALUE(TavrelGPUImageGaussianBlurFilter, double, texelSpacingMultiplier)

void TavrelGPUImageGaussianBlurFilter::setTexelSpacingMultiplier(double newValue) {
  if (!isFinite(newValue)) return;
  onVideoProcessingQueue([&] {
    implementation_->texelSpacingMultiplier = newValue;
    setVerticalTexelSpacing(newValue);
    setHorizontalTexelSpacing(newValue);
  });
}

TAVREL_NODE_VALUE(TavrelGPUImageGaussianBlurFilter, double, blurRadiusInPixels)

void TavrelGPUImageGaussianBlurFilter::setBlurRadiusInPixels(double newValue) {
  if (!isFinite(newValue)) return;
  onVideoProcessingQueue([&] {
    const double sigma = std::round(newValue);
    if (sigma != implementation_->blurRadiusInPixels) {
      implementation_->blurRadiusInPixels = sigma;
      const std::size_t radius = sampleRadius(sigma);
      switchToVertexShader(vertexShaderForOptimizedBlurOfRadius(radius, sigma),
                           fragmentShaderForOptimizedBlurOfRadius(radius, sigma));
    }
    implementation_->shouldResizeBlurRadiusWithImageSize = false;
  });
}

TAVREL_NODE_VALUE(TavrelGPUImageGaussianBlurFilter, double, blurRadiusAsFractionOfImageWidth)

void TavrelGPUImageGaussianBlurFilter::setBlurRadiusAsFractionOfImageWidth(double newValue) {
  if (!isFinite(newValue) || newValue < 0) return;
  onVideoProcessingQueue([&] {
    implementation_->setFraction(newValue, implementation_->blurRadiusAsFractionOfImageWidth,
                                 implementation_->blurRadiusAsFractionOfImageHeight);
  });
}

TAVREL_NODE_VALUE(TavrelGPUImageGaussianBlurFilter, double, blurRadiusAsFractionOfImageHeight)

void TavrelGPUImageGaussianBlurFilter::setBlurRadiusAsFractionOfImageHeight(double newValue) {
  if (!isFinite(newValue) || newValue < 0) return;
  onVideoProcessingQueue([&] {
    implementation_->setFraction(newValue, implementation_->blurRadiusAsFractionOfImageHeight,
                                 implementation_->blurRadiusAsFractionOfImageWidth);
  });
}

TAVREL_NODE_PROPERTY(TavrelGPUImageGaussianBlurFilter, std::size_t, blurPasses, setBlurPasses)

void TavrelGPUImageGaussianBlurFilter::setupFilterForSize(Size filterFrameSize) {
  onVideoProcessingQueue([&] {
    TavrelGPUImageTwoPassTextureSamplingFilter::setupFilterForSize(filterFrameSize);
    const Implementation& state = *implementation_;
    if (!state.shouldResizeBlurRadiusWithImageSize) return;
    setBlurRadiusInPixels(state.blurRadiusAsFractionOfImageWidth > 0
                              ? filterFrameSize.width * state.blurRadiusAsFractionOfImageWidth
                              : filterFrameSize.height * state.blurRadiusAsFractionOfImageHeight);
  });
}

void TavrelGPUImageGaussianBlurFilter::switchToVertexShader(const std::string& newVertexShader,
                                                            const std::string& fragmentShader) {
  useFilterProgram(newVertexShader, fragmentShader);
  useSecondProgram(newVertexShader, fragmentShader);
  findStepUniforms();
  setupFilterForSize(sizeOfFBO());
  glFinish();
}

void TavrelGPUImageGaussianBlurFilter::renderToTextureWithVertices(const GLfloat* vertices,
                                                                   const GLfloat* textureCoordinates) {
  TavrelGPUImageTwoPassTextureSamplingFilter::renderToTextureWithVertices(vertices, textureCoordinates);
  if (preventRendering() || implementation_->blurPasses <= 1) return;
  // The passes to come read the picture as the first one has left it: upright.
  setSteps(sizeOfFBO(), false);
  for (std::size_t pass = 1; pass < implementation_->blurPasses; ++pass) repeatPasses(vertices);
  setSteps(sizeOfFBO(), TavrelGPUImageRotationSwapsWidthAndHeight(inputRotation()));
}

}  // namespace tavrel
