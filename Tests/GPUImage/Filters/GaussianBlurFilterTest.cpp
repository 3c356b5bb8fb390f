#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <set>

#include "Support/FilterReference.h"

namespace tavrel {
namespace {

using test::matches;
using test::Picture;
using test::ReferencePicture;
using test::Rgba;
using Blur = TavrelGPUImageGaussianBlurFilter;

std::vector<double> weightsOf(int radius, double sigma) {
  std::vector<double> weights;
  double total = 0;
  for (int i = -radius; i <= radius; ++i) {
    weights.push_back(std::exp(-i * i / (2 * sigma * sigma)));
    total += weights.back();
  }
  for (double& weight : weights) weight /= total;
  return weights;
}

/// The distance at which a normal distribution falls to 1/256, made even.
int radiusOf(double sigma) {
  int radius = 0;
  const auto density = [&](int x) {
    return std::exp(-x * x / (2 * sigma * sigma)) / (sigma * std::sqrt(2 * std::numbers::pi));
  };
  while (density(radius + 1) >= 1.0 / 256) ++radius;
  return radius + radius % 2;
}

ReferencePicture blurred(const ReferencePicture& picture, int radius, double sigma) {
  const std::vector<double> weights = weightsOf(radius, sigma);
  const auto along = [&](const ReferencePicture& source, int dx, int dy) {
    return ReferencePicture(source.width, source.height, [&](int x, int y) {
      Rgba sum{};
      for (int i = -radius; i <= radius; ++i) {
        const Rgba& color = source.clampedAt(x + i * dx, y + i * dy);
        for (std::size_t c = 0; c < 4; ++c) sum[c] += color[c] * weights[static_cast<std::size_t>(i + radius)];
      }
      return sum;
    });
  };
  return along(along(picture, 0, 1), 1, 0);
}

TEST(GaussianBlurFilter, BlursAsTheMathematicsSays) {
  const Picture source = test::noisePicture(37, 23, true);
  const ReferencePicture reference(source);
  EXPECT_TRUE(matches(process(source, std::make_shared<Blur>()), blurred(reference, 4, 2)));
  for (const int sigma : {1, 3, 7, 12, 25, 50}) {
    const auto filter = std::make_shared<Blur>();
    filter->setBlurRadiusInPixels(sigma);
    EXPECT_TRUE(matches(process(source, filter), blurred(reference, radiusOf(sigma), sigma))) << "sigma " << sigma;
  }
  const auto none = std::make_shared<Blur>();
  none->setBlurRadiusInPixels(0.4);
  EXPECT_EQ(none->blurRadiusInPixels(), 0);
  EXPECT_TRUE(matches(process(source, none), reference));
}

TEST(GaussianBlurFilter, TurnsInTheFirstPassOnly) {
  const Picture source = test::noisePicture(37, 23, true);
  for (std::uint64_t value = 0; value < 8; ++value) {
    const auto mode = static_cast<TavrelGPUImageRotationMode>(value);
    for (const std::size_t passes : {1U, 3U}) {
      const auto filter = std::make_shared<Blur>();
      filter->setBlurRadiusInPixels(3);
      filter->setBlurPasses(passes);
      filter->setInputRotation(mode, 0);
      ReferencePicture expected = ReferencePicture(source).turned(mode);
      for (std::size_t pass = 0; pass < passes; ++pass) expected = blurred(expected, 8, 3);
      EXPECT_TRUE(matches(process(source, filter), expected)) << "mode " << value << ", passes " << passes;
    }
  }
}

TEST(GaussianBlurFilter, EachPassOfAnImageReturnsItsFramebuffers) {
  const auto filter = std::make_shared<Blur>();
  filter->setBlurPasses(3);
  const Picture source = test::noisePicture(16, 16, false);
  process(source, filter);
  const auto before = TextureCache::statistics().texturesCreated;
  for (int i = 0; i < 5; ++i) EXPECT_EQ(process(source, filter).width, 16);
  EXPECT_EQ(TextureCache::statistics().texturesCreated, before);
}

TEST(GaussianBlurFilter, RadiusFollowsSigma) {
  const int expected[] = {4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 24};
  for (int sigma = 1; sigma <= 50; ++sigma) {
    if (sigma <= 12) {
      EXPECT_EQ(radiusOf(sigma), expected[sigma - 1]);
    }
    const auto filter = std::make_shared<Blur>();
    filter->setBlurRadiusInPixels(sigma == 2 ? 2.5 : sigma);
    const int stored = sigma == 2 ? 3 : sigma;
    EXPECT_EQ(filter->blurRadiusInPixels(), stored);
    // The program in use is the one of this kernel: the context keeps programs by their text.
    const auto radius = static_cast<std::size_t>(radiusOf(stored));
    const auto program = TavrelGPUImageContext::sharedImageProcessingContext()->programForVertexShaderString(
        Blur::vertexShaderForOptimizedBlurOfRadius(radius, stored),
        Blur::fragmentShaderForOptimizedBlurOfRadius(radius, stored));
    EXPECT_EQ(filter->program(), program) << "sigma " << sigma;
    EXPECT_EQ(filter->secondProgram(), program) << "sigma " << sigma;
  }
  const auto nothingLeft = std::make_shared<Blur>();
  nothingLeft->setBlurRadiusInPixels(500);
  EXPECT_EQ(process(test::noisePicture(4, 4, false), nothingLeft).width, 4);
}

TEST(GaussianBlurFilter, FractionsOfTheSizeTakeEffectOnce) {
  const auto filter = std::make_shared<Blur>();
  filter->setBlurRadiusAsFractionOfImageWidth(-0.1);
  filter->setInputSize({720, 1280}, 0);
  EXPECT_EQ(filter->blurRadiusInPixels(), 2);
  filter->setBlurRadiusAsFractionOfImageWidth(0.05);
  EXPECT_EQ(filter->blurRadiusInPixels(), 2);
  filter->setInputSize({720, 1280}, 0);
  EXPECT_EQ(filter->blurRadiusInPixels(), 36);
  filter->setInputSize({360, 640}, 0);
  EXPECT_EQ(filter->blurRadiusInPixels(), 36);
  filter->setBlurRadiusAsFractionOfImageHeight(0.01);
  EXPECT_EQ(filter->blurRadiusAsFractionOfImageWidth(), 0);
  filter->setInputSize({360, 640}, 0);
  EXPECT_EQ(filter->blurRadiusInPixels(), 6);
}

TEST(GaussianBlurFilter, GeneratesTheShadersOfAKernel) {
  EXPECT_EQ(Blur::vertexShaderForStandardBlurOfRadius(0, 2), kTavrelGPUImageVertexShaderString);
  EXPECT_EQ(Blur::fragmentShaderForOptimizedBlurOfRadius(0, 2), kTavrelGPUImagePassthroughFragmentShaderString);
  EXPECT_EQ(Blur::vertexShaderForOptimizedBlurOfRadius(4, 2),
            "     attribute vec4 position;\n     attribute vec4 inputTextureCoordinate;\n     \n"
            "     uniform float texelWidthOffset;\n     uniform float texelHeightOffset;\n     \n"
            "     varying vec2 blurCoordinates[5];\n     \n     void main()\n     {\n"
            "        gl_Position = position;\n        \n"
            "        vec2 singleStepOffset = vec2(texelWidthOffset, texelHeightOffset);\n"
            "blurCoordinates[0] = inputTextureCoordinate.xy;\n"
            "         blurCoordinates[1] = inputTextureCoordinate.xy + singleStepOffset * 1.407333;\n"
            "         blurCoordinates[2] = inputTextureCoordinate.xy - singleStepOffset * 1.407333;\n"
            "         blurCoordinates[3] = inputTextureCoordinate.xy + singleStepOffset * 3.294215;\n"
            "         blurCoordinates[4] = inputTextureCoordinate.xy - singleStepOffset * 3.294215;\n"
            "}\n");
  EXPECT_EQ(Blur::fragmentShaderForOptimizedBlurOfRadius(4, 2),
            "     uniform sampler2D inputImageTexture;\n     uniform highp float texelWidthOffset;\n"
            "     uniform highp float texelHeightOffset;\n     \n     varying highp vec2 blurCoordinates[5];\n     \n"
            "     void main()\n     {\n        lowp vec4 sum = vec4(0.0);\n"
            "sum += texture2D(inputImageTexture, blurCoordinates[0]) * 0.204164;\n"
            "sum += texture2D(inputImageTexture, blurCoordinates[1]) * 0.304005;\n"
            "sum += texture2D(inputImageTexture, blurCoordinates[2]) * 0.304005;\n"
            "sum += texture2D(inputImageTexture, blurCoordinates[3]) * 0.093913;\n"
            "sum += texture2D(inputImageTexture, blurCoordinates[4]) * 0.093913;\n"
            "        gl_FragColor = sum;\n     }\n");
  EXPECT_EQ(Blur::vertexShaderForStandardBlurOfRadius(1, 2),
            "      attribute vec4 position;\n      attribute vec4 inputTextureCoordinate;\n      \n"
            "      uniform float texelWidthOffset;\n      uniform float texelHeightOffset;\n      \n"
            "      varying vec2 blurCoordinates[3];\n      \n      void main()\n      {\n"
            "          gl_Position = position;\n          \n"
            "          vec2 singleStepOffset = vec2(texelWidthOffset, texelHeightOffset);\n"
            "blurCoordinates[0] = inputTextureCoordinate.xy - singleStepOffset * 1.000000;\n"
            "blurCoordinates[1] = inputTextureCoordinate.xy;\n"
            "blurCoordinates[2] = inputTextureCoordinate.xy + singleStepOffset * 1.000000;\n"
            "}\n");
  const std::string standard = Blur::fragmentShaderForStandardBlurOfRadius(4, 2);
  for (const char* weight : {"0.204164", "0.180174", "0.123832", "0.066282", "0.027631"}) {
    EXPECT_NE(standard.find(weight), std::string::npos) << weight;
  }
}

// Implementations may offer no more than 8 varying vectors of 4, room for 16 pairs.
TEST(GaussianBlurFilter, FitsWhereVaryingsAreScarce) {
  for (std::size_t radius = 2; radius <= 64; radius += 2) {
    const std::string shader = Blur::fragmentShaderForOptimizedBlurOfRadius(radius, 30);
    const std::size_t pairs = radius / 2;
    const std::size_t varyings = 1 + 2 * std::min<std::size_t>(pairs, 7);
    EXPECT_NE(shader.find("blurCoordinates[" + std::to_string(varyings) + "];"), std::string::npos) << radius;
    std::size_t computed = 0;
    for (std::size_t at = 0; (at = shader.find("blurCoordinates[0] +", at)) != std::string::npos; ++at) ++computed;
    EXPECT_EQ(computed, pairs > 7 ? pairs - 7 : 0) << radius;
  }
}

TEST(TwoPassFilter, KeepsTheUniformsOfBothPassesApart) {
  const char* const kScale =
      "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; uniform highp float scale; void "
      "main() { gl_FragColor = texture2D(inputImageTexture, textureCoordinate) * scale; }";
  const char* const kAdd =
      "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; uniform highp float added; void "
      "main() { gl_FragColor = texture2D(inputImageTexture, textureCoordinate) + vec4(added); }";
  const auto make = [&](float scale, float added) {
    auto filter = std::make_shared<TavrelGPUImageTwoPassFilter>(kScale, kAdd);
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      TavrelGPUImageContext::useImageProcessingContext();
      filter->setFloat(scale, filter->program()->uniformIndex("scale"), filter->program());
      filter->setFloat(added, filter->secondProgram()->uniformIndex("added"), filter->secondProgram());
    });
    return filter;
  };
  const auto first = make(0.5F, 0.2F);
  const auto second = make(0.25F, 0.4F);  // shares both programs
  const Picture source = test::noisePicture(9, 7, true);
  const ReferencePicture reference(source);
  const auto expected = [&](double scale, double added) {
    return ReferencePicture(9, 7, [&](int x, int y) {
      Rgba color = reference.clampedAt(x, y);
      for (double& component : color) component = component * scale + added;
      return color;
    });
  };
  EXPECT_TRUE(matches(process(source, first), expected(0.5, 0.2)));
  EXPECT_TRUE(matches(process(source, second), expected(0.25, 0.4)));
  EXPECT_TRUE(matches(process(source, first), expected(0.5, 0.2)));
}

TEST(TwoPassFilter, OnlyTheFirstPassHasTheBackgroundColor) {
  // Draws nothing at all, so that what each pass is cleared to can be seen.
  const char* const kNothing = "void main() { discard; }";
  const Picture source = test::noisePicture(4, 4, false);
  const auto firstEmpty =
      std::make_shared<TavrelGPUImageTwoPassFilter>(kNothing, kTavrelGPUImagePassthroughFragmentShaderString);
  firstEmpty->setBackgroundColor(1, 0, 0, 0);
  EXPECT_EQ(process(source, firstEmpty).at(1, 1), (test::Pixel{255, 0, 0, 0}));
  const auto secondEmpty =
      std::make_shared<TavrelGPUImageTwoPassFilter>(kTavrelGPUImagePassthroughFragmentShaderString, kNothing);
  secondEmpty->setBackgroundColor(1, 0, 0, 0);
  EXPECT_EQ(process(source, secondEmpty).at(1, 1), (test::Pixel{0, 0, 0, 255}));
}

TEST(TwoPassFilterDeathTest, ASecondProgramThatDoesNotLinkStopsTheProgram) {
  EXPECT_DEATH(TavrelGPUImageTwoPassFilter(kTavrelGPUImagePassthroughFragmentShaderString, "void main() { nonsense }"),
               "Filter shader link failed");
}

}  // namespace
}  // namespace tavrel
