// Zoom of cameras that have none of their own.
#include <algorithm>
#include <cmath>

#include "Support/CameraTestSupport.h"

namespace tavrel {
namespace {

using test::CameraTest;
using test::Picture;
using test::Pixel;
using Bench = VirtualCaptureSystem;

/// Keys' kernel with a = -1/2, by its definition.
double kernel(double distance) {
  const double x = std::abs(distance);
  if (x < 1) return 1.5 * x * x * x - 2.5 * x * x + 1;
  return x < 2 ? -0.5 * x * x * x + 2.5 * x * x - 4 * x + 2 : 0;
}

double enlarged(const Picture& picture, int x, int y, double factor, int Pixel::*component) {
  const auto placeOf = [&](int at, int size) { return (0.5 + ((at + 0.5) / size - 0.5) / factor) * size - 0.5; };
  const double px = placeOf(x, picture.width), py = placeOf(y, picture.height);
  double sum = 0;
  for (int row = static_cast<int>(std::floor(py)) - 1; row <= std::floor(py) + 2; ++row) {
    for (int column = static_cast<int>(std::floor(px)) - 1; column <= std::floor(px) + 2; ++column) {
      const Pixel& pixel = picture.at(std::clamp(column, 0, picture.width - 1), std::clamp(row, 0, picture.height - 1));
      sum += pixel.*component * kernel(px - column) * kernel(py - row);
    }
  }
  return std::clamp(sum, 0.0, 255.0);
}

/// The part of the components that are as in the enlarged picture, within 3 of 255. Some things in the scene move.
double likeness(const Picture& picture, const Picture& source, double factor) {
  std::size_t same = 0;
  for (int y = 0; y < picture.height; ++y) {
    for (int x = 0; x < picture.width; ++x) {
      for (const auto component : {&Pixel::r, &Pixel::g, &Pixel::b}) {
        same += std::abs(picture.at(x, y).*component - enlarged(source, x, y, factor, component)) <= 3 ? 1 : 0;
      }
    }
  }
  return static_cast<double>(same) / static_cast<double>(picture.pixels.size() * 3);
}

TEST_F(CameraTest, TheChainEnlargesWhatADeviceWithoutZoomSees) {
  Bench::Support support;
  support.zoom = false;
  Bench::shared().setSupport(Bench::kFrontCamera, support);
  auto configuration = smallPictures();
  configuration.preferredVideoOrientation = CaptureVideoOrientation::landscapeRight;
  makeAndStart(configuration);
  const Picture whole = recorder_->picture();
  const auto isEnlarged = [&](double factor) { return likeness(recorder_->picture(), whole, factor) > 0.9; };
  ASSERT_TRUE(isEnlarged(1));
  for (const double factor : {2.0, 1.25, 4.0}) {
    SCOPED_TRACE(factor);
    camera_->setPreferredVideoZoomFactor(factor);
    EXPECT_EQ(camera_->videoZoomFactor(), factor);
    ASSERT_TRUE(runUntil([&] { return isEnlarged(factor); })) << likeness(recorder_->picture(), whole, factor);
    EXPECT_EQ(recorder_->picture().width, 320);
  }
  // What is seen at the edge lies further in for the device.
  const Point seen = camera_->covertPreviewPointToFocusPoint({0, 1});
  EXPECT_DOUBLE_EQ(std::abs(seen.x - 0.5), 0.125);
  EXPECT_DOUBLE_EQ(std::abs(seen.y - 0.5), 0.125);
  std::atomic<bool> isTaken = false;
  Picture still;
  camera_->snapshotWithCompletion([&](const std::shared_ptr<Image>& image, const std::optional<Error>&) {
    if (image) still = test::pictureOf(*image);
    isTaken = true;
  });
  ASSERT_TRUE(runUntil([&] { return isTaken.load(); }));
  ASSERT_EQ(still.width, 320);
  EXPECT_GT(likeness(still, recorder_->picture(), 1), 0.5) << "the still is enlarged, too; JPEG lies between";
  camera_->setPreferredVideoZoomFactor(1);
  ASSERT_TRUE(runUntil([&] { return isEnlarged(1); }));
}

}  // namespace
}  // namespace tavrel
