// Nodes with memory for each plane, with several inputs, with digital sources, and with regions of interest.
#include <linux/v4l2-controls.h>

#include <array>
#include <chrono>

#include "Platform/Capture/CaptureDelivery.h"
#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/V4L2/Private/V4L2Probe.h"
#include "Platform/Foundation/Notifications.h"
#include "Support/VirtualFrames.h"
#include "V4L2TestSupport.h"

namespace tavrel::test {
namespace {

using V4L2SourcesTest = V4L2Test;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST_F(V4L2SourcesTest, ReadsNodesWithMemoryForEachPlane) {
  struct Kind {
    std::uint32_t pixelFormat;
    const char* name;
  };
  constexpr Kind kKinds[] = {{V4L2_PIX_FMT_NV12M, "NM12"}, {V4L2_PIX_FMT_YUV420M, "YM12"}, {V4L2_PIX_FMT_YUYV, "YUYV"}};
  for (int number = 0; const Kind& kind : kKinds) {
    const auto node = addNode(number++);
    node->card = kind.name;
    node->deviceCaps = V4L2_CAP_VIDEO_CAPTURE_MPLANE | V4L2_CAP_STREAMING;
    node->formats = {{kind.pixelFormat, {{64, 48}}, {30, 15}}};
    node->padding = 32;
    // Red in BT.601: Y 81, Cb 90, Cr 240.
    node->draw = [isPacked = kind.pixelFormat == V4L2_PIX_FMT_YUYV](std::uint8_t* bytes, std::size_t capacity, auto) {
      constexpr std::array<std::uint8_t, 4> kPacked = {81, 90, 81, 240};
      for (std::size_t i = 0; i < capacity; ++i) bytes[i] = isPacked ? kPacked.at(i % 4) : 81;
      return capacity;
    };
    node->drawPlane = [isPaired = kind.pixelFormat == V4L2_PIX_FMT_NV12M](std::size_t plane, std::uint8_t* bytes,
                                                                          std::size_t capacity) {
      for (std::size_t i = 0; i < capacity; ++i) bytes[i] = (isPaired ? i % 2 == 0 : plane == 1) ? 90 : 240;
      return capacity;
    };
  }
  start();
  ASSERT_EQ(cameras().size(), 3U);
  for (const auto& device : cameras()) {
    SCOPED_TRACE(device->localizedName());
    CameraBench camera(device, "64x48");
    camera.session->startRunning();
    ASSERT_FALSE(camera.session->runtimeError().has_value()) << camera.session->runtimeError()->description;
    ASSERT_TRUE(eventually([&] { return camera.frames->count() > 2; }));
    camera.configure([](CaptureDevice& set) { set.setActiveVideoMinFrameDuration(MediaTime::make(1, 15)); });
    ASSERT_TRUE(eventually([&] { return device->delivery()->framesPerSecond == 15; }));
    EXPECT_EQ(device->delivery()->format, device->localizedName());
    const VirtualPicture picture(camera.frames->latest()->imageBuffer());
    for (const auto& [x, y] : {std::pair(0, 0), std::pair(63, 47)}) {
      EXPECT_NEAR(picture.pixel(x, y)[2], 254, 3);
      EXPECT_NEAR(picture.pixel(x, y)[1], 0, 3);
      EXPECT_NEAR(picture.pixel(x, y)[0], 0, 3);
    }
  }
}

TEST_F(V4L2SourcesTest, TurnsToTheInputThatReceivesSomethingAndFollowsADigitalSource) {
  const auto node = addNode(0);
  node->inputs = {{"TV", false}, {"HDMI 1", false, std::pair(64U, 48U)}, {"HDMI 2", true, std::pair(128U, 96U), 50}};
  node->draw = drawNumber;
  start();
  EXPECT_EQ(node->chosenInput(), 0) << "who looks changes nothing";
  const auto device = cameras().at(0);
  CameraBench camera(device, "64x48");
  camera.session->startRunning();
  ASSERT_FALSE(camera.session->runtimeError().has_value()) << camera.session->runtimeError()->description;
  EXPECT_EQ(node->chosenInput(), 2);
  ASSERT_TRUE(eventually([&] { return camera.frames->count() > 2; }));
  EXPECT_EQ(camera.frames->latest()->imageBuffer()->width(), 128U) << "the source's size, whatever was wished for";
  EXPECT_EQ(device->delivery()->framesPerSecond, 50);

  node->setSource(2, true, {160, 120});
  ASSERT_TRUE(eventually([&] { return camera.frames->latest()->imageBuffer()->height() == 120; }));
  EXPECT_EQ(device->delivery()->dimensions, (CaptureVideoDimensions{160, 120}));
  EXPECT_FALSE(camera.session->runtimeError().has_value());

  const NotificationCounter recoveries(kCaptureSessionDidRecoverNotification, camera.session.get());
  node->setSource(2, false, {160, 120});
  ASSERT_TRUE(eventually([&] { return camera.session->runtimeError().has_value(); }));
  EXPECT_EQ(*camera.session->runtimeError(), CaptureErrorCode::deviceSilent);
  EXPECT_THAT(camera.session->runtimeError()->description, HasSubstr("gets no signal (HDMI 2, TV, HDMI 1)"));
  node->setSource(1, true, {64, 48});
  ASSERT_TRUE(eventually([&] { return recoveries.count() == 1; }));
  EXPECT_EQ(node->chosenInput(), 1) << "another one receives something now";
}

TEST_F(V4L2SourcesTest, OpensOnlyTheNodesThatHaveChanged) {
  const auto first = addNode(0);
  const auto second = addNode(1);
  second->card = "Second";
  const auto denied = addNode(2);
  denied->card = "Third";
  denied->setBusy(EACCES, 0);
  start();
  ASSERT_EQ(cameras().size(), 2U);
  const int before = first->openings();
  std::filesystem::remove(pathOf(1));
  ASSERT_TRUE(eventually([] { return cameras().size() == 1; }));
  createFile(1);
  ASSERT_TRUE(eventually([] { return cameras().size() == 2; }));
  denied->setBusy(0, 0);
  std::filesystem::permissions(pathOf(2), std::filesystem::perms::owner_all);
  ASSERT_TRUE(eventually([] { return cameras().size() == 3; }));
  EXPECT_EQ(first->openings(), before);
}

TEST_F(V4L2SourcesTest, LooksAtPointsOfInterestByRegionsElseByFocusingAnew) {
  const auto regional = addNode(0);
  regional->hasRegion = true;
  regional->region = {0, 0, 1000, 500};
  regional->controls[kV4L2RegionUsesControl] = {0, 0x0F, 0};
  regional->controls[V4L2_CID_FOCUS_AUTO] = {0, 1, 1};
  const auto plain = addNode(1);
  plain->card = "Plain";
  plain->controls[V4L2_CID_FOCUS_AUTO] = {0, 1, 1};
  const auto fixed = addNode(2);
  fixed->card = "Fixed";
  start();
  const auto tap = [](const std::shared_ptr<CaptureDevice>& device, bool isExposed) {
    CameraBench camera(device, "64x48");
    camera.session->startRunning();
    camera.configure([&](CaptureDevice& set) {
      set.setFocusPointOfInterest({0.75, 0.5});
      set.setFocusMode(CaptureFocusMode::continuousAutoFocus);
      if (isExposed) set.setExposurePointOfInterest({0.05, 0.5});
      set.setExposureMode(CaptureExposureMode::continuousAutoExposure);
    });
  };
  EXPECT_TRUE(cameras().at(0)->isExposurePointOfInterestSupported());
  tap(cameras().at(0), false);
  EXPECT_EQ(regional->chosenRegion().left, 650);
  EXPECT_EQ(regional->chosenRegion().top, 200);
  EXPECT_EQ(regional->chosenRegion().width, 200U);
  EXPECT_EQ(regional->controlValue(kV4L2RegionUsesControl), kV4L2RegionForFocus);
  EXPECT_TRUE(cameras().at(1)->isFocusPointOfInterestSupported());
  EXPECT_FALSE(cameras().at(1)->isExposurePointOfInterestSupported());
  tap(cameras().at(1), true);
  EXPECT_THAT(plain->valuesOf(V4L2_CID_FOCUS_AUTO), ElementsAre(1, 0, 1)) << "on, then anew";
  EXPECT_FALSE(cameras().at(2)->isFocusPointOfInterestSupported());
}

}  // namespace
}  // namespace tavrel::test
