#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <vector>

#include "Support/ScalingReference.h"

namespace tavrel {
namespace {

using test::Picture;
using test::Pixel;

/// Smooth colours with a hard edge, thin lines and noise.
Picture photograph(int width, int height) {
  return {width, height, [&](int x, int y) {
            const int noise = (x * 7919 + y * 104729) % 31 - 15;
            const int base = x > width / 3 ? 200 : 60;
            return Pixel{std::clamp(base + noise, 0, 255), std::clamp(y * 255 / height + noise, 0, 255),
                         x % 23 == 0 || y % 29 == 0 ? 250 : 30, 255};
          }};
}

using Plane = std::vector<std::array<double, 3>>;

/// Along rows, with the outermost pixels going on; the result lies on its side.
Plane blurredRows(const Plane& plane, int width, int height, double sigma) {
  const int reach = static_cast<int>(std::ceil(sigma * 6));
  std::vector<double> weights;
  double sum = 0;
  for (int i = -reach; i <= reach; ++i) sum += weights.emplace_back(std::exp(-i * i / (2 * sigma * sigma)));
  Plane result(plane.size());
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      auto& target = result[static_cast<std::size_t>(x * height + y)];
      for (int i = -reach; i <= reach; ++i) {
        const auto& source = plane[static_cast<std::size_t>(y * width + std::clamp(x + i, 0, width - 1))];
        const double weight = weights[static_cast<std::size_t>(i + reach)] / sum;
        for (std::size_t c = 0; c < 3; ++c) target[c] += source[c] * weight;
      }
    }
  }
  return result;
}

struct Difference {
  double worst = 0;
  double rms = 0;
};

Difference differenceFromGaussian(const Picture& source, const Picture& result, double sigma) {
  Plane plane;
  for (const Pixel& pixel : source.pixels) plane.push_back({double(pixel.r), double(pixel.g), double(pixel.b)});
  plane = blurredRows(plane, source.width, source.height, sigma);
  plane = blurredRows(plane, source.height, source.width, sigma);
  Difference difference;
  for (std::size_t i = 0; i < plane.size(); ++i) {
    const Pixel& pixel = result.pixels.at(i);
    const std::array<int, 3> found = {pixel.r, pixel.g, pixel.b};
    for (std::size_t c = 0; c < 3; ++c) {
      const double error = std::abs(plane[i][c] - found[c]);
      difference.worst = std::max(difference.worst, error);
      difference.rms += error * error / static_cast<double>(plane.size() * 3);
    }
  }
  difference.rms = std::sqrt(difference.rms);
  return difference;
}

TEST(SmoothBlurFilter, IsTheGaussianOfAnyWidth) {
  // Each pass rounds where there are 8 bits between passes.
  const bool isDeep = TavrelGPUImageContext::deepTextureOptions().has_value();
  const double largestRms = isDeep ? 0.8 : 1.2;
  const double largestError = isDeep ? 2.5 : 3;
  const auto filter = std::make_shared<TavrelGPUImageSmoothBlurFilter>();
  for (const auto& [width, height] : {std::pair(160, 90), std::pair(97, 131), std::pair(5, 300)}) {
    const Picture source = photograph(width, height);
    for (const double sigma : {0.3, 0.8, 2.0, 4.99, 5.01, 7.3, 19.0, 60.0, 500.0}) {
      filter->setSigma(sigma);
      const Difference difference = differenceFromGaussian(source, test::process(source, filter), sigma);
      EXPECT_LE(difference.rms, largestRms) << sigma << " " << width;
      EXPECT_LE(difference.worst, largestError) << sigma << " " << width;
    }
    filter->setSigma(0);
    EXPECT_EQ(test::largestDifference(test::process(source, filter), source), 0);
  }
  filter->setSigma(1e9);
  EXPECT_EQ(filter->sigma(), TavrelGPUImageSmoothBlurFilter::kLargestSigma);
  filter->setSigma(NAN);
  EXPECT_EQ(filter->sigma(), TavrelGPUImageSmoothBlurFilter::kLargestSigma);
}

TEST(SmoothBlurFilter, CutOffItIsTheCamerasBlur) {
  const auto gaussian = std::make_shared<TavrelGPUImageGaussianBlurFilter>();
  gaussian->setBlurRadiusInPixels(50);
  const auto smooth = std::make_shared<TavrelGPUImageSmoothBlurFilter>();
  smooth->setSigma(50);
  const Picture source = photograph(640, 360);
  const Picture expected = test::process(source, gaussian);
  EXPECT_GT(test::largestDifference(test::process(source, smooth), expected), 10);
  smooth->setReach(60);
  EXPECT_LE(test::largestDifference(test::process(source, smooth), expected), 2);
}

TEST(SmoothBlurFilter, TurnedInputsAreBlurredUpright) {
  const Picture source = photograph(90, 61);
  for (const double sigma : {1.5, 12.0}) {
    const auto filter = std::make_shared<TavrelGPUImageSmoothBlurFilter>();
    filter->setSigma(sigma);
    filter->setInputRotation(kTavrelGPUImageRotateRight, 0);
    const Picture result = test::process(source, filter);
    ASSERT_EQ(result.width, 61);
    const auto turn = std::make_shared<TavrelGPUImageRotationFilter>(kTavrelGPUImageRotateRight);
    EXPECT_LE(differenceFromGaussian(test::process(source, turn), result, sigma).rms, 0.6) << sigma;
  }
}

TEST(SmoothBlurFilter, ReducedInputsAreMeansOfAllPixels) {
  const Picture source = test::zonePlate(240, 160), reduced = test::scaled(source, 60, 40, test::triangle, false);
  const auto filter = std::make_shared<TavrelGPUImageSmoothBlurFilter>();
  filter->forceProcessingAtSize({60, 40});
  for (const double sigma : {0.5, 8.0}) {
    filter->setSigma(sigma);
    EXPECT_LE(differenceFromGaussian(reduced, test::process(source, filter), sigma).worst, 3) << sigma;
  }
}

TEST(SmoothBlurFilter, WideOnesCostAsNarrowOnes) {
  const Picture source = photograph(1280, 720);
  const auto picture = std::make_shared<TavrelGPUImagePicture>(test::imageOf(source));
  const auto filter = std::make_shared<TavrelGPUImageSmoothBlurFilter>();
  picture->addTarget(filter);
  const auto seconds = [&](double sigma) {
    filter->setSigma(sigma);
    double best = 1e9;
    for (int i = 0; i < 6; ++i) {
      TavrelRunSynchronouslyOnVideoProcessingQueue([] { glFinish(); });
      const auto begun = std::chrono::steady_clock::now();
      picture->processImage();
      TavrelRunSynchronouslyOnVideoProcessingQueue([] { glFinish(); });
      best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count());
    }
    return best;
  };
  const double narrow = seconds(4);
  const double wide = seconds(60);
  std::printf("%.1f ms at 4, %.1f ms at 60, %.1f ms at 500\n", narrow * 1e3, wide * 1e3, seconds(500) * 1e3);
  EXPECT_LE(wide, 2 * narrow);
}

}  // namespace
}  // namespace tavrel
