#include "GPUImage/Filters/TavrelGPUImageGaussianBlurFilter.h"

#include <cmath>
#include <utility>

#include "GPUImage/Private/LinkedProgram.h"
#include "GPUImage/TavrelGPUImageContext.h"

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

TavrelGPUImageGaussianBlurFilter::TavrelGPUImageGaussianBlurFilter()
    : TavrelGPUImageGaussianBlurFilter(
          vertexShaderForOptimizedBlurOfRadius(4, 2.0), fragmentShaderForOptimizedBlurOfRadius(4, 2.0),
          vertexShaderForOptimizedBlurOfRadius(4, 2.0), fragmentShaderForOptimizedBlurOfRadius(4, 2.0)) {}

TavrelGPUImageGaussianBlurFilter::TavrelGPUImageGaussianBlurFilter(std::string_view firstStageVertexShaderString,
                                                                   std::string_view firstStageFragmentShaderString,
                                                                   std::string_view secondStageVertexShaderString,
                                                                   std::string_view secondStageFragmentShaderString)
    : TavrelGPUImageTwoPassTextureSamplingFilter(firstStageVertexShaderString, firstStageFragmentShaderString,
                                                 secondStageVertexShaderString, secondStageFragmentShaderString) {}

void TavrelGPUImageGaussianBlurFilter::setTexelSpacingMultiplier(double newValue) {
  texelSpacingMultiplier_ = newValue;
  verticalTexelSpacing_ = newValue;
  horizontalTexelSpacing_ = newValue;
  setupFilterForSize(sizeOfFBO());
}

void TavrelGPUImageGaussianBlurFilter::setBlurRadiusInPixels(double newValue) {
  const double sigma = std::round(newValue);
  if (sigma != blurRadiusInPixels_) {
    blurRadiusInPixels_ = sigma;
    const std::size_t radius = sampleRadius(sigma);
    switchToVertexShader(vertexShaderForOptimizedBlurOfRadius(radius, sigma),
                         fragmentShaderForOptimizedBlurOfRadius(radius, sigma));
  }
  shouldResizeBlurRadiusWithImageSize = false;
}

void TavrelGPUImageGaussianBlurFilter::setBlurRadiusAsFractionOfImageWidth(double newValue) {
  if (newValue < 0) return;
  shouldResizeBlurRadiusWithImageSize = newValue != blurRadiusAsFractionOfImageWidth_ && newValue > 0;
  blurRadiusAsFractionOfImageWidth_ = newValue;
  blurRadiusAsFractionOfImageHeight_ = 0;
}

void TavrelGPUImageGaussianBlurFilter::setBlurRadiusAsFractionOfImageHeight(double newValue) {
  if (newValue < 0) return;
  shouldResizeBlurRadiusWithImageSize = newValue != blurRadiusAsFractionOfImageHeight_ && newValue > 0;
  blurRadiusAsFractionOfImageHeight_ = newValue;
  blurRadiusAsFractionOfImageWidth_ = 0;
}

void TavrelGPUImageGaussianBlurFilter::setupFilterForSize(Size filterFrameSize) {
  TavrelGPUImageTwoPassTextureSamplingFilter::setupFilterForSize(filterFrameSize);
  if (!shouldResizeBlurRadiusWithImageSize) return;
  setBlurRadiusInPixels(blurRadiusAsFractionOfImageWidth_ > 0
                            ? filterFrameSize.width * blurRadiusAsFractionOfImageWidth_
                            : filterFrameSize.height * blurRadiusAsFractionOfImageHeight_);
}

void TavrelGPUImageGaussianBlurFilter::switchToVertexShader(const std::string& newVertexShader,
                                                            const std::string& fragmentShader) {
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    useFilterProgram(newVertexShader, fragmentShader);
    useSecondProgram(newVertexShader, fragmentShader);
    findStepUniforms();
    setupFilterForSize(sizeOfFBO());
    glFinish();
  });
}

void TavrelGPUImageGaussianBlurFilter::renderToTexture(const GLfloat* vertices, const GLfloat* textureCoordinates) {
  if (preventRendering()) {
    unlockInputs();
    return;
  }
  renderPasses(vertices, textureCoordinates);
  if (blurPasses_ > 1) {
    // The passes to come read the picture as the first one has left it: upright.
    setSteps(sizeOfFBO(), false);
    for (std::size_t pass = 1; pass < blurPasses_; ++pass) {
      firstInputFramebuffer = TavrelGPUImageFramebufferLease::adopt(std::move(secondOutputFramebuffer));
      renderPasses(vertices, textureCoordinatesForRotation(kTavrelGPUImageNoRotation));
    }
    setSteps(sizeOfFBO(), TavrelGPUImageRotationSwapsWidthAndHeight(inputRotation()));
  }
  captureOutput();
}

}  // namespace tavrel
