#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "GPUImage/Filters/FusionTestSupport.h"

namespace tavrel::test {
namespace {

class Chains : public ::testing::TestWithParam<int> {
 protected:
  int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(random_); }

  /// Some filter for frames of `size`, which becomes that of its output.
  Pair filterFor(Size& size) {
    switch (below(TavrelGPUImageColorTableFilter::isSupported() ? 9 : 8)) {
      case 0: {
        const Rect region = {{below(3) / size.width, below(3) / size.height},
                             {(size.width - 3) / size.width, (size.height - 4) / size.height}};
        size = {size.width - 3, size.height - 4};
        return make<TavrelGPUImageCropFilter>([](auto&) {}, region);
      }
      case 1: {
        const auto mode = static_cast<TavrelGPUImageRotationMode>(below(8));
        size = TavrelGPUImageRotatedSize(size, mode);
        return make<TavrelGPUImageRotationFilter>([](auto&) {}, mode);
      }
      case 2: {
        const double x = below(2) ? 1 : -1, y = below(2) ? 1 : -1;
        return make<TavrelGPUImageTransformFilter>(
            [=](auto& filter) { filter.setAffineTransform(AffineTransform::makeScale(x, y)); });
      }
      case 3:
        return withSecond(make<TavrelGPUImageLookupFilter>([](auto& filter) { filter.setIntensity(0.8); }), table());
      case 4: {
        const Rect place = {{static_cast<double>(below(20)), static_cast<double>(below(15))}, {12, 9}};
        return withSecond(make<TavrelGPUImageAlphaBlendFilter>([](auto& filter) { filter.setMix(1); }), sticker(), size,
                          place);
      }
      case 5:
        return make<TavrelGPUImageFilter>(
            [](auto& filter) { filter.setFloat(0.7F, "level"); },
            "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; uniform highp float level; "
            "const highp vec3 kTint = vec3(0.9, 1.0, 0.8); highp vec3 toned(highp vec3 c) { return c * kTint; } void "
            "main() { highp vec4 color = texture2D(inputImageTexture, textureCoordinate); gl_FragColor = "
            "vec4(toned(color.rgb) * mix(1.0, level, textureCoordinate.x), color.a); }");
      case 6: return make<TavrelGPUImageBeautifyFilter>([](auto& filter) { filter.setBrightLevel(0.6); });
      case 7: return make<TavrelGPUImageFilter>([](auto&) {});
      default:
        return make<TavrelGPUImageColorTableFilter>([](auto& filter) { filter.setIntensity(0.9); }, colorTable());
    }
  }

  std::mt19937 random_{static_cast<unsigned>(GetParam())};
};

TEST_P(Chains, AreTheSamePictureDrawnAtOnceOrOneByOne) {
  const Picture source = {61, 47, [](int x, int y) { return Pixel{4 * x, 5 * y, (3 * x + 2 * y) % 256, 255}; }};
  for (int repetition = 0; repetition < 6; ++repetition) {
    Size size = {static_cast<double>(source.width), static_cast<double>(source.height)};
    std::vector<Pair> chain;
    const int count = 2 + below(7);
    const bool endsBlurred = repetition % 2 != 0;
    for (int i = 0; i < count; ++i) {
      const bool isBlur = endsBlurred && i + 1 == count;
      chain.push_back(isBlur ? make<TavrelGPUImageGaussianBlurFilter>(
                                   [&](auto& filter) { filter.setBlurRadiusInPixels(1 + repetition); })
                             : filterFor(size));
      if (i == 0) continue;
      chain[chain.size() - 2].fused->addTarget(chain.back().fused, 0);
      chain[chain.size() - 2].alone->addTarget(chain.back().alone, 0);
    }
    const Picture fused = shown(source, chain.front().fused, chain.back().fused);
    const Picture alone = shown(source, chain.front().alone, chain.back().alone);
    ASSERT_EQ(alone.width, size.width);
    EXPECT_LE(largestDifference(fused, alone), 1) << "a chain of " << count;
  }
}

INSTANTIATE_TEST_SUITE_P(Random, Chains, ::testing::Range(0, 20));

}  // namespace
}  // namespace tavrel::test
