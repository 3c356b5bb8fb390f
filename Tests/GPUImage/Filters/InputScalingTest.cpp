#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "Support/GraphTestSupport.h"

namespace tavrel {
namespace {

using test::Picture;
using test::Pixel;
using Colors = std::array<double, 4>;

/// Rings that become finer than any pixel of a reduced picture, and noise.
Picture zonePlate(int width, int height) {
  return {width, height, [&](int x, int y) {
            const double square = std::pow(x - width / 2.0, 2) + std::pow(y - height / 2.0, 2);
            const int noise = (x * 7919 + y * 104729) % 256;
            return Pixel{static_cast<int>(std::lround(127.5 + 127.5 * std::cos(square * 3.14159265 / width))), noise,
                         x * 255 / width, 255};
          }};
}

double triangle(double x) { return std::max(0.0, 1 - std::abs(x)); }
double bicubic(double x) {
  x = std::abs(x);
  return x < 1 ? (1.5 * x - 2.5) * x * x + 1 : x < 2 ? ((2.5 - 0.5 * x) * x - 4) * x + 2 : 0;
}
double lightOf(double value) { return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4); }
double sRGBOf(double light) {
  light = std::clamp(light, 0.0, 1.0);
  return light <= 0.0031308 ? light * 12.92 : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
}

/// In double precision: each pixel is the mean of those around its place, weighted by `kernel`.
Picture scaled(const Picture& source, int width, int height, double (*kernel)(double), bool inLight) {
  const auto weights = [&](int place, int length, int sourceLength) {
    const double factor = static_cast<double>(sourceLength) / length, reach = std::max(1.0, factor);
    std::vector<double> result(static_cast<std::size_t>(sourceLength));
    double sum = 0;
    for (int i = 0; i < sourceLength; ++i)
      sum += result[static_cast<std::size_t>(i)] = kernel((i + 0.5 - (place + 0.5) * factor) / reach);
    for (double& weight : result) weight /= sum;
    return result;
  };
  return {width, height, [&](int x, int y) {
            const auto across = weights(x, width, source.width), down = weights(y, height, source.height);
            Colors sum{};
            for (int j = 0; j < source.height; ++j) {
              if (down[static_cast<std::size_t>(j)] == 0) continue;
              for (int i = 0; i < source.width; ++i) {
                const double weight = across[static_cast<std::size_t>(i)] * down[static_cast<std::size_t>(j)];
                if (weight == 0) continue;
                const Pixel& pixel = source.at(i, j);
                const int values[] = {pixel.r, pixel.g, pixel.b};
                for (std::size_t c = 0; c < 3; ++c)
                  sum[c] += weight * (inLight ? lightOf(values[c] / 255.0) : values[c] / 255.0);
              }
            }
            const auto value = [&](std::size_t c) {
              return static_cast<int>(std::lround(255 * std::clamp(inLight ? sRGBOf(sum[c]) : sum[c], 0.0, 1.0)));
            };
            return Pixel{value(0), value(1), value(2), 255};
          }};
}

/// A filter that copies, of a given size.
std::shared_ptr<TavrelGPUImageFilter> copyOfSize(int width, int height) {
  auto filter = std::make_shared<TavrelGPUImageFilter>();
  filter->forceProcessingAtSize({static_cast<double>(width), static_cast<double>(height)});
  return filter;
}

/// Ends with the program's usual scaling.
class InputScalingTest : public testing::Test {
 protected:
  ~InputScalingTest() override { TavrelGPUImageContext::setScaling({}); }
};

TEST_F(InputScalingTest, ReducedPicturesAreMeansOfAllPixels) {
  const Picture source = zonePlate(240, 160);
  for (const int width : {150, 120, 90, 60, 24, 12}) {
    const int height = width * 2 / 3;
    const Picture expected = scaled(source, width, height, triangle, false);
    EXPECT_LE(test::largestDifference(test::process(source, copyOfSize(width, height)), expected), 2) << width;
    if (!TavrelGPUImageContext::deepTextureOptions()) continue;
    TavrelGPUImageContext::setScaling({.worksInLight = true});
    const Picture expectedLight = scaled(source, width, height, triangle, true);
    EXPECT_LE(test::largestDifference(test::process(source, copyOfSize(width, height)), expectedLight), 2) << width;
    TavrelGPUImageContext::setScaling({});
  }
}

TEST_F(InputScalingTest, PartsAndTurnsAreReducedAsWholes) {
  const Picture source = zonePlate(240, 160);
  const auto crop = std::make_shared<TavrelGPUImageCropFilter>(Rect{{0.25, 0.25}, {0.5, 0.5}});
  crop->forceProcessingAtSize({60, 40});
  const Picture part(120, 80, [&](int x, int y) { return source.at(x + 60, y + 40); });
  const Picture cropped = test::process(source, crop), expected = scaled(part, 60, 40, triangle, false);
  // At its edges the part goes on in the picture.
  for (int y = 2; y < 38; ++y) {
    for (int x = 2; x < 58; ++x) {
      EXPECT_NEAR(cropped.at(x, y).r, expected.at(x, y).r, 2) << x << " " << y;
      EXPECT_NEAR(cropped.at(x, y).g, expected.at(x, y).g, 2) << x << " " << y;
    }
  }
  const auto left = std::make_shared<TavrelGPUImageRotationFilter>(kTavrelGPUImageRotateLeft);
  left->forceProcessingAtSize({40, 60});
  const auto plain = std::make_shared<TavrelGPUImageRotationFilter>(kTavrelGPUImageRotateLeft);
  const Picture turned = test::process(source, plain);
  ASSERT_EQ(turned.width, 160);
  EXPECT_LE(test::largestDifference(test::process(source, left), scaled(turned, 40, 60, triangle, false)), 2);
}

TEST_F(InputScalingTest, MuchEnlargedPicturesMayBeBicubic) {
  const Picture source = zonePlate(30, 20);
  const Picture linear = scaled(source, 120, 80, triangle, false), cubic = scaled(source, 120, 80, bicubic, false);
  ASSERT_GT(test::largestDifference(linear, cubic), 20);
  EXPECT_LE(test::largestDifference(test::process(source, copyOfSize(120, 80)), linear), 2);
  TavrelGPUImageContext::setScaling({.enlargesByBicubic = true});
  EXPECT_LE(test::largestDifference(test::process(source, copyOfSize(120, 80)), cubic), 2);
  // A little larger stays linear.
  EXPECT_LE(test::largestDifference(test::process(source, copyOfSize(45, 30)), scaled(source, 45, 30, triangle, false)),
            2);
}

// What was made of a still is kept, its texture and that of the next may be the same.
TEST_F(InputScalingTest, StillsAreScaledAnewWhenTheyChange) {
  const Picture first = zonePlate(90, 60), second(90, 60, [&](int x, int y) { return first.at(89 - x, 59 - y); });
  const auto picture = std::make_shared<TavrelGPUImagePicture>(test::imageOf(first));
  const auto small = copyOfSize(30, 20);
  picture->addTarget(small);
  const auto shown = [&] {
    small->useNextFrameForImageCapture();
    picture->processImage();
    return test::pictureOf(*small->imageFromCurrentFramebuffer());
  };
  for (const Picture* source : {&first, &second, &first}) {
    picture->updateWithCGImage(test::imageOf(*source));
    for (int frame = 0; frame < 3; ++frame) {
      EXPECT_LE(test::largestDifference(shown(), scaled(*source, 30, 20, triangle, false)), 2) << frame;
    }
  }
  small->forceProcessingAtSize({45, 30});
  EXPECT_LE(test::largestDifference(shown(), scaled(first, 45, 30, triangle, false)), 2);
}

TEST_F(InputScalingTest, ManyFramesTakeTheSameTextures) {
  const auto picture = std::make_shared<TavrelGPUImagePicture>(test::imageOf(zonePlate(256, 160)));
  const auto small = copyOfSize(16, 10);
  const auto target = std::make_shared<test::RecordingTarget>();
  picture->addTarget(small);
  small->addTarget(target);
  const auto show = [&] {
    picture->processImage();
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] { target->events.clear(); });
  };
  show();
  const std::int64_t before = TavrelGPUImageFramebuffer::ownedCount();
  for (int i = 0; i < 20; ++i) show();
  EXPECT_EQ(TavrelGPUImageFramebuffer::ownedCount(), before);
  EXPECT_GT(before, 2);
}

}  // namespace
}  // namespace tavrel
