// Nodes with memory for each plane, with several inputs, with digital sources, and with regions of interest.
#include <linux/v4l2-controls.h>

#include <array>
#include <chrono>

#include "Platform/Capture/CaptureDelivery.h"
#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/V4L2/Private/V4L2Formats.h"
#include "Platform/Capture/V4L2/Private/V4L2Probe.h"
#include "Platform/Foundation/Notifications.h"
#include "Support/CameraLayouts.h"
#include "Support/CameraMatrix.h"
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

TEST_F(V4L2SourcesTest, ReadsEveryLayoutAndRangeWithPaddedRows) {
  struct Case {
    const CameraLayout* layout;
    std::uint32_t format;
    FrameRange range;
    std::shared_ptr<LayoutPicture> drawn = nullptr;
  };
  std::vector<Case> cases;
  for (const CameraLayout& layout : cameraLayouts()) {
    std::vector<std::uint32_t> formats = layout.otherV4l2;
    if (layout.v4l2 != 0) formats.push_back(layout.v4l2);
    for (const std::uint32_t format : formats) cases.push_back({&layout, format, FrameRange::unsaid});
    const bool isOfColors = layout.v4l2 == V4L2_PIX_FMT_RGB24 || layout.v4l2 == V4L2_PIX_FMT_GREY;
    if (isOfColors) cases.push_back({&layout, layout.v4l2, FrameRange::limited});
  }
  for (int number = 0; Case & one : cases) {
    one.drawn = std::make_shared<LayoutPicture>(*one.layout, 66, 46, FrameMatrix::bt709, one.range, 16);
    const auto node = addNode(number++);
    node->card = nameOfV4L2Format(one.format);
    node->formats = {{one.format, {{66, 46}}, {60}}};
    node->encoding = V4L2_YCBCR_ENC_709;
    if (one.range == FrameRange::limited) node->quantization = V4L2_QUANTIZATION_LIM_RANGE;
    const auto& planes = one.drawn->planes();
    std::uint32_t whole = 0;
    for (const auto& plane : planes) {
      const auto size = static_cast<std::uint32_t>(plane.bytes.size());
      node->planeShapes.push_back({static_cast<std::uint32_t>(plane.bytesPerRow), size});
      whole += size;
    }
    const bool hasPlanes = isMultiPlanar(one.format);
    if (hasPlanes) {
      node->deviceCaps = V4L2_CAP_VIDEO_CAPTURE_MPLANE | V4L2_CAP_STREAMING;
    } else {
      node->planeShapes = {{node->planeShapes[0].bytesPerRow, whole}};
    }
    node->draw = [drawn = one.drawn, hasPlanes](std::uint8_t* bytes, std::size_t, auto) {
      const auto all = hasPlanes ? drawn->planes()[0].bytes : drawn->block();
      std::ranges::copy(all, bytes);
      return all.size();
    };
    node->drawPlane = [drawn = one.drawn](std::size_t plane, std::uint8_t* bytes, std::size_t capacity) {
      std::ranges::copy(drawn->planes().at(plane).bytes, bytes);
      return capacity;
    };
  }
  start();
  const auto devices = cameras();
  ASSERT_EQ(devices.size(), cases.size());
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const Case& one = cases[i];
    SCOPED_TRACE(devices[i]->localizedName() + (one.range == FrameRange::limited ? ", limited" : ""));
    CameraBench camera(devices[i], "66x46");
    camera.session->startRunning();
    ASSERT_FALSE(camera.session->runtimeError().has_value()) << camera.session->runtimeError()->description;
    ASSERT_TRUE(eventually([&] { return camera.frames->count() > 0; })) << devices[i]->delivery()->description();
    EXPECT_EQ(one.drawn->differenceOf(camera.frames->latest()->imageBuffer()), "");
    EXPECT_EQ(devices[i]->delivery()->format, devices[i]->localizedName());
    if (HasFailure()) continue;
    recordCamera({"V4L2, played",
                  nameOfV4L2Format(one.format) + (one.range == FrameRange::limited ? ", limited range" : ""), "mmap",
                  "60", "padded rows"});
  }
}

TEST_F(V4L2SourcesTest, OpensAnySizeOfARange) {
  const auto node = addNode(0);
  node->steps = v4l2_frmsize_stepwise{32, 1008, 16, 24, 1008, 8};
  const auto device = (start(), cameras().at(0));
  CameraBench camera(device, "100x70");
  EXPECT_EQ(device->activeFormat()->dimensions, (CaptureVideoDimensions{112, 72})) << "the smallest that covers it";
  camera.session->startRunning();
  ASSERT_TRUE(eventually([&] { return camera.frames->count() > 2; }))
      << camera.session->runtimeError().value_or(Error()).description;
  EXPECT_EQ(camera.device->delivery()->dimensions, (CaptureVideoDimensions{112, 72}));
  EXPECT_EQ(camera.frames->latest()->imageBuffer()->width(), 112U);
  EXPECT_EQ(device->formats().back()->dimensions, (CaptureVideoDimensions{112, 72}));
  recordCamera({"V4L2, played", "YUYV, stepwise sizes", "mmap", "30", "none", "the smallest that covers the wish"});
}

TEST_F(V4L2SourcesTest, SaysWhichPicturesItCannotRead) {
  const auto raw = addNode(0);
  raw->card = "Raw sensor";
  raw->formats = {{V4L2_PIX_FMT_SBGGR10, {{64, 48}}, {30}}, {V4L2_PIX_FMT_HSV24, {{64, 48}}, {30}}};
  start(CaptureSystem::Synthetic::withoutRealOnes);
  const auto none = CaptureDevice::deviceNamed("front", MediaType::video);
  ASSERT_FALSE(none.has_value());
  EXPECT_EQ(none.error(), CaptureErrorCode::unsupportedFormat);
  EXPECT_EQ(none.error().description,
            "Raw sensor has only pictures that cannot be read (BG10, HSV3); Y Cb Cr, RGB, gray, MJPEG and H.264 can");
  recordCamera({"V4L2, played", "BG10, HSV3", "-", "-", "no format that is read", "said, with their names"});
  // Beside a camera that can be read it is nothing to speak of.
  addNode(1);
  start(CaptureSystem::Synthetic::withoutRealOnes);
  EXPECT_TRUE(CaptureDevice::deviceNamed("front", MediaType::video).has_value());
}

}  // namespace
}  // namespace tavrel::test
