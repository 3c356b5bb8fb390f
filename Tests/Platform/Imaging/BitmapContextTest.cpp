#include <gtest/gtest.h>

#include <algorithm>

#include "Support/GraphTestSupport.h"

namespace tavrel {
namespace {

using test::largestDifference;
using test::Picture;

TEST(Image, ProvidersAreReleasedOnceAndTooShortOnesRefused) {
  static int released = 0;
  const std::uint8_t bytes[16] = {};
  {
    auto provider = DataProvider::create(
        nullptr, bytes, sizeof bytes, [](void*, const void*, std::size_t size) { released += static_cast<int>(size); });
    EXPECT_EQ(Image::create(2, 3, 8, 32, 8, kBitmapOpaqueBGRX, provider), nullptr);
    const auto image = Image::create(2, 2, 8, 32, 8, kBitmapOpaqueBGRX, provider);
    ASSERT_NE(image, nullptr);
    const auto turned = image->withScaleAndOrientation(2, ImageOrientation::left);
    EXPECT_EQ(turned->dataProvider(), provider);
    provider.reset();
    EXPECT_EQ(released, 0);
  }
  EXPECT_EQ(released, 16);
  EXPECT_NE(Image::create(0, 0, 8, 32, 0, kBitmapOpaqueBGRX, DataProvider::create(Data{})), nullptr);
}

TEST(Image, OrientationsAreCarriedOutOnThePixels) {
  const Picture source = test::distinctPicture(5, 3);
  const int w = 5;
  const int h = 3;
  const auto turned = [&](ImageOrientation orientation) {
    return test::pictureOf(*normalizedImage(test::imageOf(source)->withScaleAndOrientation(1, orientation)));
  };
  EXPECT_EQ(largestDifference(turned(ImageOrientation::down),
                              {w, h, [&](int x, int y) { return source.at(w - 1 - x, h - 1 - y); }}),
            0);
  EXPECT_EQ(
      largestDifference(turned(ImageOrientation::right), {h, w, [&](int x, int y) { return source.at(y, h - 1 - x); }}),
      0);
  EXPECT_EQ(
      largestDifference(turned(ImageOrientation::left), {h, w, [&](int x, int y) { return source.at(w - 1 - y, x); }}),
      0);
  EXPECT_EQ(largestDifference(turned(ImageOrientation::upMirrored),
                              {w, h, [&](int x, int y) { return source.at(w - 1 - x, y); }}),
            0);
  EXPECT_EQ(largestDifference(turned(ImageOrientation::downMirrored),
                              {w, h, [&](int x, int y) { return source.at(x, h - 1 - y); }}),
            0);
  EXPECT_EQ(
      largestDifference(turned(ImageOrientation::leftMirrored), {h, w, [&](int x, int y) { return source.at(y, x); }}),
      0);
  EXPECT_EQ(largestDifference(turned(ImageOrientation::rightMirrored),
                              {h, w, [&](int x, int y) { return source.at(w - 1 - y, h - 1 - x); }}),
            0);
}

TEST(BitmapContext, ConvertsLayoutsScalesAndBlends) {
  Data canvas(4 * 2 * 4, 0);
  const auto context = BitmapContext::create(canvas.data(), 4, 2, 8, 16, kBitmapPremultipliedBGRA);
  EXPECT_EQ(BitmapContext::create(canvas.data(), 4, 2, 8, 12, kBitmapPremultipliedBGRA), nullptr);
  const auto gray = Image::create(1, 1, 8, 8, 1, 0, DataProvider::create(Data{77}));
  context->drawImage(*gray, {{0, 0}, {4, 2}});
  EXPECT_EQ(canvas, (Data{77, 77, 77, 255, 77, 77, 77, 255, 77, 77, 77, 255, 77, 77, 77, 255,  //
                          77, 77, 77, 255, 77, 77, 77, 255, 77, 77, 77, 255, 77, 77, 77, 255}));
  // Half-covering straight red (R, G, B, A in memory) over gray, partly outside.
  const auto red = Image::create(2, 1, 8, 32, 8, bitmapInfo(kBitmapByteOrderDefault, AlphaInfo::last),
                                 DataProvider::create(Data{255, 0, 0, 128, 255, 0, 0, 128}));
  context->drawImage(*red, {{3, 1}, {2, 1}});
  EXPECT_EQ((Data{canvas.end() - 8, canvas.end()}), (Data{77, 77, 77, 255, 38, 38, 166, 255}));
  const auto rgb = Image::create(1, 1, 8, 24, 3, 0, DataProvider::create(Data{1, 2, 3}));
  context->drawImage(*rgb, {{0, 0}, {1, 1}});
  EXPECT_EQ((Data{canvas.begin(), canvas.begin() + 4}), (Data{3, 2, 1, 255}));
}

TEST(BitmapContext, WhatIsReducedIsTheMeanOfItsArea) {
  constexpr int kWidth = 60, kHeight = 40;
  const Data pixels = [] {
    Data bytes;
    for (int i = 0; i < kWidth * kHeight; ++i) {
      const int x = i % kWidth, y = i / kWidth;
      for (const int level : {(x + y) % 2 * 255, x % 3 == 0 ? 240 : 10, y * 6, 255}) {
        bytes.push_back(static_cast<std::uint8_t>(level));
      }
    }
    return bytes;
  }();
  const auto image = Image::create(kWidth, kHeight, 8, 32, kWidth * 4, kBitmapOpaqueBGRX, DataProvider::create(pixels));
  // How much of the source's pixel `k` lies in the target's pixel `i`.
  const auto share = [](int i, int k, double factor) {
    return std::max(0.0, std::min(k + 1.0, (i + 1) * factor) - std::max<double>(k, i * factor));
  };
  for (const auto& [width, height] : {std::pair(30, 20), std::pair(20, 40), std::pair(24, 16), std::pair(11, 7)}) {
    const double across = double(kWidth) / width, down = double(kHeight) / height;
    Data drawn(static_cast<std::size_t>(width * height) * 4);
    BitmapContext::create(drawn.data(), static_cast<std::size_t>(width), static_cast<std::size_t>(height), 8,
                          static_cast<std::size_t>(width) * 4, kBitmapPremultipliedBGRA)
        ->drawImage(*image, {{0, 0}, {double(width), double(height)}});
    for (int i = 0; i < width * height * 4; ++i) {
      double mean = 0;
      for (int k = 0; k < kWidth * kHeight; ++k) {
        const double area = share(i / 4 % width, k % kWidth, across) * share(i / 4 / width, k / kWidth, down);
        mean += area * pixels[static_cast<std::size_t>(k * 4 + i % 4)] / (across * down);
      }
      ASSERT_NEAR(drawn[static_cast<std::size_t>(i)], mean, 0.6) << width << " " << i;
    }
  }
}

}  // namespace
}  // namespace tavrel
