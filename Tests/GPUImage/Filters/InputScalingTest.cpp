#include <gtest/gtest.h>

#include "Support/ScalingReference.h"

namespace tavrel {
namespace {

using test::bicubic;
using test::Picture;
using test::Pixel;
using test::scaled;
using test::triangle;
using test::zonePlate;

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
