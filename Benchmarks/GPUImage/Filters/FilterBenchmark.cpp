// Each filter against the same draws with the same shaders in bare GL, in one process and on one thread.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

#include "Support/BareGL.h"
#include "Support/Comparison.h"
#include "Support/ResourceCount.h"

namespace tavrel::benchmarks {
namespace {

/// A filter, and its draws by hand: from each target into the next one.
struct Case {
  std::shared_ptr<TavrelGPUImageFilter> filter;
  std::vector<BarePass> passes;
  /// What the second input shows; none for filters with one input.
  std::shared_ptr<BareTexture> second;
  Size secondSize;
};

using Maker = Case (*)(int width, int height);

std::vector<std::uint32_t> noise(int width, int height, std::uint32_t opaque) {
  std::vector<std::uint32_t> pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
  std::uint32_t state = 1;
  for (std::uint32_t& pixel : pixels) pixel = ((state = state * 1664525 + 1013904223) >> 8) | opaque;
  return pixels;
}

Case passthrough(int, int) {
  return {std::make_shared<TavrelGPUImageFilter>(),
          {BarePass(kTavrelGPUImageVertexShaderString, kTavrelGPUImagePassthroughFragmentShaderString)},
          nullptr,
          {}};
}

template <std::size_t radius, int sigma>
Case blur(int width, int height) {
  using Blur = TavrelGPUImageGaussianBlurFilter;
  const auto pass = [](GLfloat dx, GLfloat dy) {
    BarePass made(Blur::vertexShaderForOptimizedBlurOfRadius(radius, sigma),
                  Blur::fragmentShaderForOptimizedBlurOfRadius(radius, sigma));
    made.setFloat("texelWidthOffset", dx);
    made.setFloat("texelHeightOffset", dy);
    return made;
  };
  auto filter = std::make_shared<Blur>();
  filter->setBlurRadiusInPixels(sigma);
  return {filter, {pass(0, 1 / static_cast<GLfloat>(height)), pass(1 / static_cast<GLfloat>(width), 0)}, nullptr, {}};
}

Case beautify(int width, int height) {
  BarePass pass(kTavrelGPUImageVertexShaderString, kDOTGPUImageBeautyFragmentShaderString);
  pass.setVector2("singleStepOffset", 2 / static_cast<GLfloat>(width), 2 / static_cast<GLfloat>(height));
  pass.setVector4("params", 0.7F, 0.85F, 0.25F, 0.25F);
  pass.setFloat("brightness", 0);
  return {std::make_shared<TavrelGPUImageBeautifyFilter>(), {pass}, nullptr, {}};
}

Case twoInputs(std::shared_ptr<TavrelGPUImageFilter> filter, const char* fragmentShader, const char* level, int width,
               int height) {
  BarePass pass(kTavrelGPUImageTwoInputTextureVertexShaderString, fragmentShader);
  pass.setFloat(level, 1);
  auto second = std::make_shared<BareTexture>(width, height, noise(width, height, 0).data());
  pass.setSecondTexture(*second);
  return {std::move(filter), {pass}, second, {static_cast<double>(width), static_cast<double>(height)}};
}

Case lookup(int, int) {
  return twoInputs(std::make_shared<TavrelGPUImageLookupFilter>(), kTavrelGPUImageLookupFragmentShaderString,
                   "intensity", 512, 512);
}

Case alphaBlend(int width, int height) {
  auto filter = std::make_shared<TavrelGPUImageAlphaBlendFilter>();
  filter->setMix(1);
  return twoInputs(std::move(filter), kTavrelGPUImageAlphaBlendFragmentShaderString, "mixturePercent", width, height);
}

class FilterComparison {
 public:
  FilterComparison(Maker make, int width, int height) : size_{static_cast<double>(width), static_cast<double>(height)} {
    bare_.use();
    case_ = std::make_unique<Case>(make(width, height));
    bare_.use();
    input_ = std::make_unique<BareTexture>(width, height, noise(width, height, 0xff000000).data());
    for (std::size_t i = 0; i < case_->passes.size(); ++i) targets_.emplace_back(width, height);
    glFinish();
    framebuffer_ = std::make_shared<TavrelGPUImageFramebuffer>(size_, input_->name());
    BareContext::useGraph();
    if (!case_->second) return;
    second_ = std::make_shared<TavrelGPUImageFramebuffer>(case_->secondSize, case_->second->name());
    deliver(second_, case_->secondSize, MediaTime::indefinite(), 1);
  }

  void drawBare() {
    bare_.use();
    const BareTexture* input = input_.get();
    for (std::size_t i = 0; i < targets_.size(); ++i) {
      case_->passes[i].draw(*input, targets_[i]);
      input = &targets_[i].texture();
    }
    glFinish();
  }

  void drawGraph() {
    BareContext::useGraph();
    deliver(framebuffer_, size_, MediaTime::make(++frame_, 30), 0);
    glFinish();
  }

  /// The colour in the middle of what was drawn last.
  std::array<std::uint8_t, 4> centerPixel() const {
    std::array<std::uint8_t, 4> pixel{};
    glReadPixels(static_cast<GLint>(size_.width) / 2, static_cast<GLint>(size_.height) / 2, 1, 1, GL_RGBA,
                 GL_UNSIGNED_BYTE, pixel.data());
    return pixel;
  }

 private:
  void deliver(const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer, Size size, MediaTime time, Index slot) {
    case_->filter->setInputFramebuffer(framebuffer, slot);
    case_->filter->setInputSize(size, slot);
    case_->filter->newFrameReadyAtTime(time, slot);
  }

  Size size_;
  BareContext bare_;
  std::unique_ptr<Case> case_;
  std::unique_ptr<BareTexture> input_;
  std::vector<BareTarget> targets_;
  std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer_;
  std::shared_ptr<TavrelGPUImageFramebuffer> second_;
  std::int64_t frame_ = 0;
};

/// But for rounding: the graph samples a little behind where the coordinates say (QuadProgram.cpp).
bool isSame(const std::array<std::uint8_t, 4>& own, const std::array<std::uint8_t, 4>& limit) {
  return own[3] != 0 && std::ranges::equal(own, limit, [](int a, int b) { return std::abs(a - b) <= 1; });
}

void filter(benchmark::State& state, Maker make) {
  for (auto iteration : state) {
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      FilterComparison filter(make, static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
      filter.drawBare();
      const auto limit = filter.centerPixel();
      filter.drawGraph();
      require(isSame(filter.centerPixel(), limit), "drawing the same by hand and by the graph");

      report(state, compare(
                        21, 8, [&] { filter.drawBare(); }, [&] { filter.drawGraph(); }));
      const ResourceCount before = ResourceCount::now();
      for (int i = 0; i < 50; ++i) filter.drawGraph();
      state.counters["gl_objects"] = static_cast<double>((ResourceCount::now() - before).glObjects);
    });
  }
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Args({1280, 720})
      ->Args({1920, 1080})
      ->ArgNames({"width", "height"})
      ->Iterations(1)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
}

BENCHMARK_CAPTURE(filter, passthrough, &passthrough)->Apply(sizes);
BENCHMARK_CAPTURE(filter, blurSigma2, &blur<4, 2>)->Apply(sizes);
BENCHMARK_CAPTURE(filter, blurSigma12, &blur<24, 12>)->Apply(sizes);
BENCHMARK_CAPTURE(filter, beautify, &beautify)->Apply(sizes);
BENCHMARK_CAPTURE(filter, lookup, &lookup)->Apply(sizes);
BENCHMARK_CAPTURE(filter, alphaBlend, &alphaBlend)->Apply(sizes);

}  // namespace
}  // namespace tavrel::benchmarks

BENCHMARK_MAIN();
