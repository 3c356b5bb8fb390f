#include "GPUImage/Filters/TavrelGPUImageSmoothBlurFilter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <string>
#include <utility>

#include "GPUImage/Filters/Private/FilterImplementation.h"
#include "GPUImage/Filters/Private/LightShaders.h"
#include "GPUImage/Filters/Private/PreciseProgram.h"
#include "GPUImage/Private/Properties.h"
#include "GPUImage/TavrelGLProgram.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "GPUImage/TavrelGPUImageFramebufferCache.h"
#include "Platform/Foundation/Finite.h"

namespace tavrel {
namespace {

/// Corners' texture coordinates: bottom-left, bottom-right, top-left, top-right.
using Coordinates = std::array<GLfloat, 8>;

/// The widest kernel, in pixels of the reduced frame.
constexpr double kLargestReducedSigma = 5;
constexpr std::size_t kMostPairs = 10;
/// Where a kernel ends, in sigmas.
constexpr double kReach = 3.2;

/// Sums pairs of pixels, each with one sample between them, on both sides.
constexpr const char* kKernelShader =
    "IN highp vec2 textureCoordinate; uniform highp sampler2D inputImageTexture; uniform highp vec2 direction; uniform "
    "highp vec2 pairs[10]; uniform highp float centre; uniform highp float count; void main() { highp vec4 sum = "
    "TEXTURE(inputImageTexture, textureCoordinate) * centre; LOOP(i, 10, count) { highp vec2 place = direction * "
    "pairs[i].x; sum += (TEXTURE(inputImageTexture, textureCoordinate + place) + "
    "TEXTURE(inputImageTexture, textureCoordinate - place)) * pairs[i].y; } OUTPUT = FINISHED(sum); }";
/// The mean of two by two samples, each at a pixel or in the middle of four.
constexpr const char* kMeanShader =
    "IN highp vec2 textureCoordinate; uniform highp sampler2D inputImageTexture; uniform highp vec2 right; uniform "
    "highp "
    "vec2 up; void main() { OUTPUT = FINISHED((TEXTURE(inputImageTexture, textureCoordinate + right + up) + "
    "TEXTURE(inputImageTexture, textureCoordinate + right - up) + TEXTURE(inputImageTexture, textureCoordinate - right "
    "+ up) + TEXTURE(inputImageTexture, textureCoordinate - right - up)) * 0.25); }";

/// A program whose result is finished so: `sRGBOf`, or "" to leave it as it is.
QuadProgram makeProgram(const char* shader, const std::string& finish = "") {
  return makePreciseProgram((finish.empty() ? "" : kLightFunctions) + ("\n#define FINISHED(color) " + finish) +
                            "(color)\n" + shader);
}

/// A stretch of a texture's columns or rows, as shares of it.
struct Stretch {
  double first = 0;
  double last = 1;
};

/// The corners of a part of what lies between `corners`.
Coordinates partOf(const GLfloat* corners, Stretch across, Stretch up) {
  Coordinates result{};
  for (std::size_t corner = 0; corner < 4; ++corner) {
    for (std::size_t i = 0; i < 2; ++i) {
      const double origin = corners[i];
      result[corner * 2 + i] =
          static_cast<GLfloat>(origin + (corners[2 + i] - origin) * (corner % 2 != 0 ? across.last : across.first) +
                               (corners[4 + i] - origin) * (corner / 2 != 0 ? up.last : up.first));
    }
  }
  return result;
}

struct Kernel {
  std::array<GLfloat, kMostPairs * 2> pairs{};  // distance and weight
  GLfloat centre = 1;
  std::size_t count = 0;
};

/// Of a normal distribution that ends at `edge` pixels from the middle.
Kernel kernelOf(double sigma, double edge) {
  Kernel kernel;
  const auto weight = [&](double distance) {
    return std::exp(-distance * distance / (2 * sigma * sigma)) * std::clamp(edge + 0.5 - distance, 0.0, 1.0);
  };
  const double end = std::min(sigma * kReach, edge + 0.5);
  const std::size_t reach = sigma > 0.05 ? static_cast<std::size_t>(std::ceil(end)) : 0;
  kernel.count = std::min((reach + 1) / 2, kMostPairs);
  double sum = 1;
  for (std::size_t i = 1; i <= kernel.count * 2; ++i) sum += 2 * weight(static_cast<double>(i));
  kernel.centre = static_cast<GLfloat>(1 / sum);
  for (std::size_t i = 0; i < kernel.count; ++i) {
    const double nearer = static_cast<double>(i) * 2 + 1;
    const double both = weight(nearer) + weight(nearer + 1);
    kernel.pairs[i * 2] = static_cast<GLfloat>(both > 0 ? nearer + weight(nearer + 1) / both : nearer);
    kernel.pairs[i * 2 + 1] = static_cast<GLfloat>(both / sum);
  }
  return kernel;
}

}  // namespace

struct TavrelGPUImageSmoothBlurFilter::Implementation {
  using Lease = TavrelGPUImageFramebufferLease;

  double sigma = 2;
  double reach = 0;
  explicit Implementation(const std::string& finish = "")
      : mean(makeProgram(kMeanShader, finish)), kernel(makeProgram(kKernelShader, finish)) {}

  QuadProgram mean;
  QuadProgram kernel;
  GLint right = mean.program()->uniformIndex("right");
  GLint up = mean.program()->uniformIndex("up");
  GLint direction = kernel.program()->uniformIndex("direction");
  GLint pairs = kernel.program()->uniformIndex("pairs");
  GLint centre = kernel.program()->uniformIndex("centre");
  GLint count = kernel.program()->uniformIndex("count");

  bool worksInLight = false;
  /// The same with a change of what is drawn; made when first needed.
  std::unique_ptr<Implementation> toLight, fromLight;

  static Lease fetch(Size size) {
    auto framebuffer = TavrelGPUImageContext::sharedFramebufferCache()->fetchFramebufferForSize(
        size, TavrelGPUImageContext::deepTextureOptions().value_or(TavrelGPUTextureOptions{}), false);
    framebuffer->activateFramebuffer();
    return Lease::adopt(std::move(framebuffer));
  }

  /// Draws `texture`, the mean of so many of its pixels a side (1, 2 or 4), into the framebuffer that is active.
  void drawMean(const QuadTexture& texture, int pixels, Size textureSize, const GLfloat* corners,
                const Coordinates& coordinates, const GLfloat* vertices) const {
    mean.use();
    const double distance = pixels == 1 ? 0 : pixels / 4.0;
    const auto step = [&](std::size_t corner, std::size_t i, double length) {
      return static_cast<GLfloat>((corners[corner * 2 + i] - corners[i]) * distance / length);
    };
    glUniform2f(right, step(1, 0, textureSize.width), step(1, 1, textureSize.width));
    glUniform2f(up, step(2, 0, textureSize.height), step(2, 1, textureSize.height));
    mean.setTexture(0, texture, 2, coordinates.data());
    mean.draw(vertices);
  }

  void drawKernel(const QuadTexture& texture, const Kernel& of, std::array<double, 2> step,
                  const Coordinates& coordinates, const GLfloat* vertices) const {
    kernel.use();
    glUniform2f(direction, static_cast<GLfloat>(step[0]), static_cast<GLfloat>(step[1]));
    glUniform2fv(pairs, kMostPairs, of.pairs.data());
    glUniform1f(centre, of.centre);
    glUniform1f(count, static_cast<GLfloat>(of.count));
    kernel.setTexture(0, texture, 2, coordinates.data());
    kernel.draw(vertices);
  }
};

TavrelGPUImageSmoothBlurFilter::TavrelGPUImageSmoothBlurFilter()
    : implementation_(onVideoProcessingQueue([] {
        TavrelGPUImageContext::useImageProcessingContext();
        return std::make_unique<Implementation>();
      })) {}

TavrelGPUImageSmoothBlurFilter::~TavrelGPUImageSmoothBlurFilter() = default;

TAVREL_NODE_VALUE(TavrelGPUImageSmoothBlurFilter, double, sigma)

void TavrelGPUImageSmoothBlurFilter::setSigma(double newValue) {
  if (!isFinite(newValue)) return;
  onVideoProcessingQueue([&] { implementation_->sigma = std::clamp(newValue, 0.0, kLargestSigma); });
}

TAVREL_NODE_VALUE(TavrelGPUImageSmoothBlurFilter, double, reach)

void TavrelGPUImageSmoothBlurFilter::setReach(double newValue) {
  if (!isFinite(newValue)) return;
  onVideoProcessingQueue([&] { implementation_->reach = std::max(newValue, 0.0); });
}

TAVREL_NODE_VALUE(TavrelGPUImageSmoothBlurFilter, bool, worksInLight)

void TavrelGPUImageSmoothBlurFilter::setWorksInLight(bool newValue) {
  onVideoProcessingQueue([&] {
    Implementation& state = *implementation_;
    state.worksInLight = newValue && TavrelGPUImageContext::deepTextureOptions();
    if (!state.worksInLight || state.fromLight) return;
    TavrelGPUImageContext::useImageProcessingContext();
    state.fromLight = std::make_unique<Implementation>("sRGBOf");
    state.toLight = std::make_unique<Implementation>("lightOf");
  });
}

int TavrelGPUImageSmoothBlurFilter::reductionFor(double sigma) {
  int reduction = 1;
  while (sigma / reduction > kLargestReducedSigma) reduction *= 2;
  return reduction;
}

void TavrelGPUImageSmoothBlurFilter::renderToTextureWithVertices(const GLfloat* vertices,
                                                                 const GLfloat* textureCoordinates) {
  if (preventRendering()) return unlockInputs();
  const Implementation& state = *implementation_;
  const Size whole = sizeOfFBO();
  int reduction = reductionFor(state.sigma);
  // A kernel that is cut off has an edge, which is not to be lost.
  while (state.reach > 0 && reduction > 1 && state.reach * 2 / reduction < kMostPairs * 2) reduction /= 2;
  const GLfloat* const upright = textureCoordinatesForRotation(kTavrelGPUImageNoRotation);

  scaleInputs(vertices, textureCoordinates);
  const InputScaling::Scaled* const scaled = filter().scaledInput;
  const auto& input = scaled ? scaled->framebuffer : filter().firstInputFramebuffer;
  Implementation::Lease reduced;
  Size size = whole;
  const auto texture = [&] {
    return reduced ? QuadTexture(reduced.get().get()) : TavrelGPUImageFilter::Implementation::textureOf(input);
  };
  const GLfloat* corners = scaled ? scaled->corners.data() : textureCoordinates;
  if (state.worksInLight) {
    reduced = Implementation::fetch(whole);
    state.toLight->drawMean(TavrelGPUImageFilter::Implementation::textureOf(input), 1, size, corners,
                            partOf(corners, {}, {}), vertices);
    corners = upright;
  }
  const Implementation& last = state.worksInLight ? *state.fromLight : state;
  // Reduced frames have a pixel more on each side, which lies outside: beyond it the frame goes on with its edges.
  int margin = 0;
  for (int done = 1; done < reduction;) {
    // Samplers round means of bytes up; so the first ones are made of single pixels.
    const int pixels = done > 1 && reduction / done >= 4 ? 4 : 2;
    const Size smaller = {std::ceil(whole.width / (done * pixels)) + 2, std::ceil(whole.height / (done * pixels)) + 2};
    auto next = Implementation::fetch(smaller);
    const auto stretch = [&](double reducedLength, double length) {
      return Stretch{(margin - pixels) / length, (margin + (reducedLength - 1) * pixels) / length};
    };
    state.drawMean(texture(), pixels, size, corners,
                   partOf(corners, stretch(smaller.width, size.width), stretch(smaller.height, size.height)), vertices);
    reduced = std::move(next);
    size = smaller;
    corners = upright;
    margin = 1;
    done *= pixels;
  }

  // Means of pixels and the enlargement, which is linear, have variances of their own.
  const double square = static_cast<double>(reduction) * reduction;
  const double others = reduction == 1 ? 0 : (square - 1) / 12 + (square - 1) / 6;
  const Kernel kernel = kernelOf(std::sqrt(std::max(0.0, state.sigma * state.sigma - others)) / reduction,
                                 state.reach > 0 ? (state.reach + 0.5) / reduction : kLargestSigma * kReach);
  const auto along = [&](std::size_t corner, double length) {
    return std::array{(corners[corner * 2] - corners[0]) / length, (corners[corner * 2 + 1] - corners[1]) / length};
  };
  auto vertical = Implementation::fetch(size);
  state.drawKernel(texture(), kernel, along(2, size.height), partOf(corners, {}, {}), vertices);
  corners = upright;
  filter().scaling.letGo();
  unlockInputs();
  Implementation::Lease both;
  if (reduction > 1) {
    both = Implementation::fetch(size);
  } else {
    setOutputFramebuffer(fetchFramebuffer());
  }
  const Implementation& second = reduction > 1 ? state : last;
  second.drawKernel(QuadTexture(vertical.get().get()), kernel, along(1, size.width), partOf(corners, {}, {}), vertices);
  if (reduction == 1) return;
  setOutputFramebuffer(fetchFramebuffer());
  const auto inside = [&](double length, double reducedLength) {
    return Stretch{1 / reducedLength, (1 + length / reduction) / reducedLength};
  };
  last.drawMean(QuadTexture(both.get().get()), 1, size, corners,
                partOf(corners, inside(whole.width, size.width), inside(whole.height, size.height)), vertices);
}

}  // namespace tavrel
