#include "Platform/UI/Compositor.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "Support/GraphTestSupport.h"

namespace tavrel::test {
namespace {

Picture compose(View& root, const Compositor::Options& options = {}) {
  Compositor compositor;
  const auto image = compositor.imageOf(root, options);
  if (!image) ADD_FAILURE() << image.error().description;
  return image ? pictureOf(**image) : Picture();
}

/// What the area of every pixel is covered by, found by sampling `isInside` on a grid of 16×16 in each.
Picture supersampled(int width, int height, double scale, const std::function<bool(Point)>& isInside) {
  constexpr int kGrid = 16;
  return {width, height, [&](int x, int y) {
            int hits = 0;
            for (int i = 0; i < kGrid * kGrid; ++i) {
              hits += isInside({(x + (i % kGrid + 0.5) / kGrid) / scale, (y + (i / kGrid + 0.5) / kGrid) / scale});
            }
            const int level = (hits * 255 + kGrid * kGrid / 2) / (kGrid * kGrid);
            return Pixel{level, level, level, level};
          }};
}

double sumOfAlpha(const Picture& picture) {
  double sum = 0;
  for (const Pixel& pixel : picture.pixels) sum += pixel.a / 255.0;
  return sum;
}

TEST(Compositor, putsLayersOnWholePixelsExactly) {
  View root(Rect{{300, 400}, {12, 8}});  // its place in the world does not matter
  root.setBackgroundColor({0, 0, 1, 1});
  const auto child = std::make_shared<View>(Rect{{2, 1}, {6, 5}});
  child->setBackgroundColor({1, 0, 0, 1});
  child->layer()->setBorderColor({0, 1, 0, 1});
  child->layer()->setBorderWidth(1);
  root.addSubview(child);
  const auto above = std::make_shared<View>(Rect{{1, 1}, {9, 2}});  // over the red, under the border
  above->setBackgroundColor({1, 1, 1, 0.5});
  child->addSubview(above);

  for (const int scale : {1, 2, 3}) {
    const Picture expected(12 * scale, 8 * scale, [&](int px, int py) {
      const int x = px / scale;
      const int y = py / scale;
      const bool isChild = x >= 2 && x < 8 && y >= 1 && y < 6;
      const bool isBorder = isChild && (x == 2 || x == 7 || y == 1 || y == 5);
      const bool isAbove = x >= 3 && x < 12 && y >= 2 && y < 4;
      if (isBorder) return Pixel{0, 255, 0, 255};
      if (isAbove) return isChild ? Pixel{255, 128, 128, 255} : Pixel{128, 128, 255, 255};
      return isChild ? Pixel{255, 0, 0, 255} : Pixel{0, 0, 255, 255};
    });
    EXPECT_LE(largestDifference(compose(root, {.scale = scale}), expected), 1) << scale;
  }
}

TEST(Compositor, multipliesOpacityAndSkipsWhatIsHidden) {
  View root(Rect{{0, 0}, {4, 1}});
  const auto parent = std::make_shared<View>(Rect{{0, 0}, {4, 1}});
  parent->setAlpha(0.5);
  root.addSubview(parent);
  for (int x = 0; x < 4; ++x) {
    const auto view = std::make_shared<View>(Rect{{static_cast<double>(x), 0}, {1, 1}});
    view->setBackgroundColor(Color::white());
    if (x == 1) view->setAlpha(0.5);
    if (x == 2) view->setHidden(true);
    if (x == 3) view->setBackgroundColor({1, 0, 0, 0.4});
    parent->addSubview(view);
  }
  const Picture picture = compose(root);
  const Pixel expected[] = {{128, 128, 128, 128}, {64, 64, 64, 64}, {0, 0, 0, 0}, {51, 0, 0, 51}};
  for (int x = 0; x < 4; ++x) {
    const Picture one(1, 1, [&](int, int) { return picture.at(x, 0); });
    EXPECT_LE(largestDifference(one, Picture(1, 1, [&](int, int) { return expected[x]; })), 1) << picture.at(x, 0);
  }
  const Picture onGray = compose(root, {.background = {0.5, 0.5, 0.5, 1}});
  EXPECT_NEAR(onGray.at(0, 0).r, 191, 1);
  EXPECT_EQ(onGray.at(0, 0).a, 255);
}

TEST(Compositor, drawsARingOfOnePixelAtRadius25) {
  View root(Rect{{0, 0}, {60, 60}});
  const auto ring = std::make_shared<View>(Rect{{5, 5}, {50, 50}});
  ring->layer()->setBorderColor(Color::white());
  ring->layer()->setBorderWidth(1);
  ring->layer()->setCornerRadius(25);
  root.addSubview(ring);
  for (const double scale : {1.0, 2.0}) {
    const int size = static_cast<int>(60 * scale);
    const Picture expected = supersampled(size, size, scale, [](Point point) {
      const double distance = std::hypot(point.x - 30, point.y - 30);
      return distance <= 25 && distance >= 24;
    });
    const Picture picture = compose(root, {.scale = scale});
    // A linear ramp across the edge stands for the exact area: off by a tenth at most where edges run diagonally.
    EXPECT_LE(largestDifference(picture, expected), 26) << scale;
    const double area = std::numbers::pi * (25 * 25 - 24 * 24) * scale * scale;
    EXPECT_NEAR(sumOfAlpha(picture), area, area * 0.02);
    EXPECT_EQ(picture.at(size / 2, size / 2).a, 0) << "hollow";
  }
}

TEST(Compositor, carriesOutTransformsAboutTheCentre) {
  View root(Rect{{0, 0}, {64, 48}});
  const auto view = std::make_shared<View>(Rect{{20, 14}, {24, 20}});
  view->setBackgroundColor(Color::white());
  view->layer()->setCornerRadius(6);
  root.addSubview(view);
  const AffineTransform transform = AffineTransform::makeScale(1.5, 1.5).rotatedBy(std::numbers::pi / 5);
  view->setTransform(transform);
  const Picture expected = supersampled(64, 48, 1, [](Point point) {
    const AffineTransform back = AffineTransform::makeRotation(-std::numbers::pi / 5)
                                     .concatenating(AffineTransform::makeScale(1 / 1.5, 1 / 1.5));
    const Point local = back.apply({point.x - 32, point.y - 24});
    const double dx = std::max(std::abs(local.x) - (12 - 6), 0.0);
    const double dy = std::max(std::abs(local.y) - (10 - 6), 0.0);
    return std::hypot(dx, dy) <= 6;
  });
  const Picture picture = compose(root);
  EXPECT_LE(largestDifference(picture, expected), 32);
  EXPECT_NEAR(sumOfAlpha(picture), sumOfAlpha(expected), sumOfAlpha(expected) * 0.005);
}

TEST(Compositor, showsAnimationsAtTheAskedTime) {
  const auto root = std::make_shared<View>(Rect{{0, 0}, {20, 20}});
  const auto view = std::make_shared<View>(Rect{{8, 8}, {4, 4}});
  view->setBackgroundColor(Color::white());
  root->addSubview(view);
  auto grow = std::make_shared<BasicAnimation>("transform.scale");
  grow->fromValue = 1;
  grow->toValue = 4;
  grow->setDuration(100);
  view->layer()->addAnimation(grow, "grow");
  const double start = Layer::currentTime();
  EXPECT_NEAR(sumOfAlpha(compose(*root, {.time = start})), 16, 0.5);
  EXPECT_NEAR(sumOfAlpha(compose(*root, {.time = start + 100.0 / 3})), 64, 1);
  EXPECT_NEAR(sumOfAlpha(compose(*root, {.time = start + 200})), 16, 0.01) << "over";
}

TEST(Compositor, saysWhySizesAreNoPictures) {
  Compositor compositor;
  View empty(Rect{{0, 0}, {0, 10}});
  const auto none = compositor.imageOf(empty);
  ASSERT_FALSE(none);
  EXPECT_NE(none.error().description.find("0×10 pixels"), std::string::npos) << none.error().description;
  View huge(Rect{{0, 0}, {100000, 10}});
  EXPECT_FALSE(compositor.imageOf(huge));
  View small(Rect{{0, 0}, {3, 2}});
  EXPECT_TRUE(compositor.imageOf(small)) << "usable afterwards";
}

}  // namespace
}  // namespace tavrel::test
