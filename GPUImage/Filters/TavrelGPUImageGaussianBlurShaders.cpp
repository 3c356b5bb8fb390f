#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <vector>

#include "GPUImage/Filters/TavrelGPUImageGaussianBlurFilter.h"

// The generated texts, indentation included, are kept exactly as they are: programs are cached by their text.

namespace tavrel {
namespace {

/// How many of the optimised samples have a varying of their own; the places of the rest are computed in the fragment
/// shader.
constexpr std::size_t kMostVaryingPairs = 7;

/// The weights of the centre and of `radius` pixels to one side, and a 0 behind them for an odd radius.
std::vector<float> gaussianWeights(std::size_t radius, double sigma) {
  constexpr double kTwoPi = 6.283185307179586;
  std::vector<float> weights(radius + 2);
  float total = 0;
  for (std::size_t i = 0; i <= radius; ++i) {
    const auto distance = static_cast<double>(i);
    weights[i] = static_cast<float>(1.0 / std::sqrt(kTwoPi * sigma * sigma) *
                                    std::exp(-distance * distance / (2.0 * sigma * sigma)));
    total += i == 0 ? weights[i] : 2 * weights[i];
  }
  for (float& weight : weights) weight /= total;
  return weights;
}

/// Two neighbouring pixels, sampled at once between them.
struct SamplePair {
  float offset;
  float weight;
};

std::vector<SamplePair> samplePairs(const std::vector<float>& weights, std::size_t radius) {
  std::vector<SamplePair> pairs;
  for (std::size_t near = 1; near <= radius; near += 2) {
    const float weight = weights[near] + weights[near + 1];
    const float offset =
        (weights[near] * static_cast<float>(near) + weights[near + 1] * static_cast<float>(near + 1)) / weight;
    pairs.push_back({offset, weight});
  }
  return pairs;
}

}  // namespace

std::string TavrelGPUImageGaussianBlurFilter::vertexShaderForStandardBlurOfRadius(std::size_t blurRadius, double) {
  if (blurRadius == 0) return kTavrelGPUImageVertexShaderString;
  std::string shader;
  const auto out = std::back_inserter(shader);
  fmt::format_to(out,
                 "      attribute vec4 position;\n      attribute vec4 inputTextureCoordinate;\n      \n      "
                 "uniform float texelWidthOffset;\n      uniform float texelHeightOffset;\n      \n      "
                 "varying vec2 blurCoordinates[{}];\n      \n      void main()\n      {{\n          "
                 "gl_Position = position;\n          \n          "
                 "vec2 singleStepOffset = vec2(texelWidthOffset, texelHeightOffset);\n",
                 blurRadius * 2 + 1);
  for (std::size_t i = 0; i <= blurRadius * 2; ++i) {
    const double offset = static_cast<double>(i) - static_cast<double>(blurRadius);
    if (offset == 0) {
      fmt::format_to(out, "blurCoordinates[{}] = inputTextureCoordinate.xy;\n", i);
    } else {
      fmt::format_to(out, "blurCoordinates[{}] = inputTextureCoordinate.xy {} singleStepOffset * {:f};\n", i,
                     offset < 0 ? '-' : '+', std::abs(offset));
    }
  }
  return shader + "}\n";
}

std::string TavrelGPUImageGaussianBlurFilter::fragmentShaderForStandardBlurOfRadius(std::size_t blurRadius,
                                                                                    double sigma) {
  if (blurRadius == 0) return kTavrelGPUImagePassthroughFragmentShaderString;
  const std::vector<float> weights = gaussianWeights(blurRadius, sigma);
  std::string shader;
  const auto out = std::back_inserter(shader);
  fmt::format_to(out,
                 "     uniform sampler2D inputImageTexture;\n     \n     varying highp vec2 blurCoordinates[{}];\n     "
                 "\n     void main()\n     {{\n        lowp vec4 sum = vec4(0.0);\n",
                 blurRadius * 2 + 1);
  for (std::size_t i = 0; i <= blurRadius * 2; ++i) {
    fmt::format_to(out, "sum += texture2D(inputImageTexture, blurCoordinates[{}]) * {:f};\n", i,
                   weights[i < blurRadius ? blurRadius - i : i - blurRadius]);
  }
  return shader + "     gl_FragColor = sum;\n     }\n";
}

std::string TavrelGPUImageGaussianBlurFilter::vertexShaderForOptimizedBlurOfRadius(std::size_t blurRadius,
                                                                                   double sigma) {
  if (blurRadius == 0) return kTavrelGPUImageVertexShaderString;
  const std::vector<SamplePair> pairs = samplePairs(gaussianWeights(blurRadius, sigma), blurRadius);
  const std::size_t varyingPairs = std::min(pairs.size(), kMostVaryingPairs);
  std::string shader;
  const auto out = std::back_inserter(shader);
  fmt::format_to(out,
                 "     attribute vec4 position;\n     attribute vec4 inputTextureCoordinate;\n     \n     "
                 "uniform float texelWidthOffset;\n     uniform float texelHeightOffset;\n     \n     "
                 "varying vec2 blurCoordinates[{}];\n     \n     void main()\n     {{\n        "
                 "gl_Position = position;\n        \n        "
                 "vec2 singleStepOffset = vec2(texelWidthOffset, texelHeightOffset);\n",
                 1 + varyingPairs * 2);
  shader += "blurCoordinates[0] = inputTextureCoordinate.xy;\n";
  for (std::size_t i = 0; i < varyingPairs; ++i) {
    fmt::format_to(out,
                   "         blurCoordinates[{}] = inputTextureCoordinate.xy + singleStepOffset * {:f};\n"
                   "         blurCoordinates[{}] = inputTextureCoordinate.xy - singleStepOffset * {:f};\n",
                   i * 2 + 1, pairs[i].offset, i * 2 + 2, pairs[i].offset);
  }
  return shader + "}\n";
}

std::string TavrelGPUImageGaussianBlurFilter::fragmentShaderForOptimizedBlurOfRadius(std::size_t blurRadius,
                                                                                     double sigma) {
  if (blurRadius == 0) return kTavrelGPUImagePassthroughFragmentShaderString;
  const std::vector<float> weights = gaussianWeights(blurRadius, sigma);
  const std::vector<SamplePair> pairs = samplePairs(weights, blurRadius);
  const std::size_t varyingPairs = std::min(pairs.size(), kMostVaryingPairs);
  std::string shader;
  const auto out = std::back_inserter(shader);
  fmt::format_to(out,
                 "     uniform sampler2D inputImageTexture;\n     uniform highp float texelWidthOffset;\n     "
                 "uniform highp float texelHeightOffset;\n     \n     varying highp vec2 blurCoordinates[{}];\n     "
                 "\n     void main()\n     {{\n        lowp vec4 sum = vec4(0.0);\n",
                 1 + varyingPairs * 2);
  fmt::format_to(out, "sum += texture2D(inputImageTexture, blurCoordinates[0]) * {:f};\n", weights[0]);
  for (std::size_t i = 0; i < varyingPairs; ++i) {
    for (const std::size_t varying : {i * 2 + 1, i * 2 + 2}) {
      fmt::format_to(out, "sum += texture2D(inputImageTexture, blurCoordinates[{}]) * {:f};\n", varying,
                     pairs[i].weight);
    }
  }
  if (pairs.size() > varyingPairs) {
    shader += "highp vec2 singleStepOffset = vec2(texelWidthOffset, texelHeightOffset);\n";
  }
  for (std::size_t i = varyingPairs; i < pairs.size(); ++i) {
    for (const char sign : {'+', '-'}) {
      fmt::format_to(out,
                     "sum += texture2D(inputImageTexture, blurCoordinates[0] {} singleStepOffset * {:f}) * {:f};\n",
                     sign, pairs[i].offset, pairs[i].weight);
    }
  }
  return shader + "        gl_FragColor = sum;\n     }\n";
}

// Samplers of bytes weigh two pixels in steps of 1/256 and round: so do these, since filters behind may make much of a
// difference of 1/255.
std::string TavrelGPUImageGaussianBlurFilter::fragmentShaderOfSinglePixels(std::size_t blurRadius, double sigma) {
  const std::vector<float> weights = gaussianWeights(blurRadius, sigma);
  std::string shader = fmt::format(
      "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; uniform highp vec2 pixel; highp vec4 "
      "between(highp vec4 first, highp vec4 second, highp float weight) {{ return first + floor((second - first) * "
      "weight + 0.501) / 255.0; }} void main() {{ highp vec4 sum = texture2D(inputImageTexture, textureCoordinate) * "
      "{:f}; ",
      weights[0]);
  const auto add = [&](int first, double behind, float weight) {
    fmt::format_to(std::back_inserter(shader),
                   "sum += between(texture2D(inputImageTexture, textureCoordinate + pixel * {}.0), "
                   "texture2D(inputImageTexture, textureCoordinate + pixel * {}.0), {:.9f}) * {:f}; ",
                   first, first + 1, std::floor(behind * 256) * 255 / 256, weight);
  };
  // Behind which quads' samples lie a little; see `QuadProgram::shiftOf`.
  constexpr double kShift = 1.5 / 1024;
  int nearer = 1;
  for (const auto& [offset, weight] : samplePairs(weights, blurRadius)) {
    add(nearer, static_cast<double>(offset) + kShift - nearer, weight);
    add(-nearer - 1, nearer + 1 - static_cast<double>(offset) + kShift, weight);
    nearer += 2;
  }
  return shader + "gl_FragColor = sum; }";
}

}  // namespace tavrel
