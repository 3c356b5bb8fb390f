#include "GPUImage/Filters/TavrelGPUImageGaussianBlurFilter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "GPUImage/Filters/Private/FilterImplementation.h"
#include "GPUImage/Private/FramebufferContents.h"
#include "GPUImage/Private/PixelSampler.h"
#include "GPUImage/Private/Properties.h"
#include "GPUImage/Private/Rehearsal.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "GPUImage/TavrelGPUImageFramebufferCache.h"
#include "Platform/Foundation/Finite.h"

namespace tavrel {
namespace {

/// The widest kernel that is drawn pixel by pixel: beyond it, programs take long to compile.
constexpr std::size_t kLargestPixelRadius = 24;

/// A pass that is drawn pixel by pixel, from places that are `step` apart in its input.
struct PixelPass {
  std::array<GLfloat, 2> step{};
  std::shared_ptr<const UniformSetters> uniforms;

  void setStep(std::array<GLfloat, 2> newStep) {
    if (uniforms && newStep == step) return;
    step = newStep;
    uniforms = std::make_shared<UniformSetters>(
        UniformSetters{{0, [newStep](GLint location) { glUniform2fv(location, 1, newStep.data()); }}});
  }
};

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
  std::size_t radius = 0;  // of the kernel in use; 0 if it does not blur or is an application's own
  std::shared_ptr<const ShaderStage> pixelStage;
  std::array<PixelPass, 2> pixelPasses;

  void setKernel(std::size_t newRadius, const std::string& pixelShader) {
    radius = newRadius;
    pixelStage = radius > 0 && radius <= kLargestPixelRadius ? ShaderStage::of(pixelShader) : nullptr;
  }

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
          vertexShaderForOptimizedBlurOfRadius(4, 2.0), fragmentShaderForOptimizedBlurOfRadius(4, 2.0)) {
  allowFusion();
  onVideoProcessingQueue([this] { implementation_->setKernel(4, fragmentShaderOfSinglePixels(4, 2.0)); });
}

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
      implementation_->setKernel(radius, fragmentShaderOfSinglePixels(radius, sigma));
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

// Only at the end of a chain: it differs by 1/255 here and there from what linear sampling gives, of which filters
// behind may make more.
bool TavrelGPUImageGaussianBlurFilter::drawsSinglePixels(const GLfloat* vertices,
                                                         const GLfloat* textureCoordinates) const {
  const auto& state = filter();
  const auto& input = state.firstInputFramebuffer.get();
  const auto isFilter = [](const auto& target) { return dynamic_cast<TavrelGPUImageFilter*>(target.get()) != nullptr; };
  return implementation_->pixelStage && std::ranges::none_of(targets(), isFilter) && PendingDrawing::isOn() &&
         PixelSampler::isCheap() && state.fusion.knows(*this) && hasOwnUniforms() && vertices == fullFrameVertices() &&
         verticalTexelSpacing() == 1 && horizontalTexelSpacing() == 1 && !TavrelGPUImageContext::worksDeep() &&
         outputTextureOptions() == TavrelGPUTextureOptions{} && input && !input->textureOptions().isDeep() &&
         PendingDrawing::endsAtEdges(*input) &&
         PendingDrawing::meetsPixels(PendingDrawing::mapOf(textureCoordinates), sizeOfFBO(), input->size());
}

void TavrelGPUImageGaussianBlurFilter::drawSinglePixels(const GLfloat* textureCoordinates) {
  static const auto& locations = *new auto(std::make_shared<const std::vector<GLint>>(1, 0));
  Implementation& state = *implementation_;
  const Size size = sizeOfFBO();
  TavrelGPUImageFramebufferLease source = std::move(filter().firstInputFramebuffer);
  FramebufferContents::draw(*source.get());
  const auto draw = [&](PixelPass& pass, const AffineTransform& map, double x, double y) {
    pass.setStep({static_cast<GLfloat>(x), static_cast<GLfloat>(y)});
    PendingDrawing drawing{std::move(source)};
    drawing.turn(map, size);
    drawing.add({.shader = state.pixelStage, .uniforms = pass.uniforms, .locations = locations, .place = map});
    source = TavrelGPUImageFramebufferLease::adopt(
        TavrelGPUImageContext::sharedFramebufferCache()->fetchFramebufferForSize(size, {}, false));
    FramebufferContents::defer(*source.get(), std::move(drawing));
  };
  AffineTransform map = PendingDrawing::mapOf(textureCoordinates);
  for (std::size_t pass = 0; pass < std::max<std::size_t>(state.blurPasses, 1); ++pass) {
    draw(state.pixelPasses[0], map, map.c / size.height, map.d / size.height);
    FramebufferContents::draw(*source.get());
    map = {};
    draw(state.pixelPasses[1], map, 1 / size.width, 0);
    if (pass + 1 < state.blurPasses) FramebufferContents::draw(*source.get());
  }
  setFinalFramebuffer(source.detach());
}

void TavrelGPUImageGaussianBlurFilter::renderToTextureWithVertices(const GLfloat* vertices,
                                                                   const GLfloat* textureCoordinates) {
  if (!preventRendering() && drawsSinglePixels(vertices, textureCoordinates)) {
    if (!Rehearsal::current()) return drawSinglePixels(textureCoordinates);
    // What will be behind it is not known yet.
    TavrelGPUImageFramebufferLease input(filter().firstInputFramebuffer.get());
    drawSinglePixels(textureCoordinates);
    const auto drawn = TavrelGPUImageFramebufferLease::adopt(framebufferForOutput());
    FramebufferContents::draw(*drawn.get());
    removeOutputFramebuffer();
    filter().firstInputFramebuffer = std::move(input);
  }
  TavrelGPUImageTwoPassTextureSamplingFilter::renderToTextureWithVertices(vertices, textureCoordinates);
  if (preventRendering() || implementation_->blurPasses <= 1) return;
  // The passes to come read the picture as the first one has left it: upright.
  setSteps(sizeOfFBO(), false);
  for (std::size_t pass = 1; pass < implementation_->blurPasses; ++pass) repeatPasses(vertices);
  setSteps(sizeOfFBO(), TavrelGPUImageRotationSwapsWidthAndHeight(inputRotation()));
}

}  // namespace tavrel
