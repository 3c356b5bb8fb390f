// The kernel's driver for webcams (uvcvideo), on a webcam that the tests play.
#include "KernelTestSupport.h"
#include "UsbCamera.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;

class UsbCameraTest : public KernelTest {
 protected:
  void SetUp() override { use("v4l2"); }

  static void expectPicture(const FrameCollector& frames) {
    const VirtualPicture picture(frames.latest()->imageBuffer());
    ASSERT_EQ(picture.width(), UsbCamera::kWidth);
    ASSERT_EQ(picture.height(), UsbCamera::kHeight);
    for (const int y : {10, 60, 110}) {
      for (const bool isRed : {true, false}) {
        const auto* pixel = picture.pixel(isRed ? 40 : 120, y);
        EXPECT_NEAR(pixel[0], isRed ? 0 : 255, 6) << y;
        EXPECT_NEAR(pixel[1], 0, 6) << y;
        EXPECT_NEAR(pixel[2], isRed ? 255 : 0, 6) << y;
      }
    }
  }
  static void setRate(const CameraBench& bench, double rate) {
    bench.configure([&](CaptureDevice& device) {
      device.setActiveVideoMinFrameDuration(MediaTime::fromSeconds(1 / rate, 1000));
      device.setActiveVideoMaxFrameDuration(MediaTime::fromSeconds(1 / rate, 1000));
    });
  }
};

TEST_F(UsbCameraTest, ReadsBothFormats) {
  const UsbCamera played;
  const auto camera = awaited("PLAYED-1");
  EXPECT_THAT(camera->localizedName(), ::testing::HasSubstr("Played webcam"));
  for (const auto& [rate, format] :
       {std::pair(UsbCamera::kYuyvRate, "YUYV"), std::pair(UsbCamera::kJpegRate, "MJPG")}) {
    SCOPED_TRACE(format);
    CameraBench bench(camera, "160x120");
    setRate(bench, rate);
    bench.session->startRunning();
    ASSERT_TRUE(delivers(bench, 10)) << bench.session->runtimeError().value_or(Error()).description;
    const auto delivery = *camera->delivery();
    EXPECT_EQ(delivery.format, format);
    EXPECT_EQ(delivery.framesPerSecond, rate);
    EXPECT_TRUE(delivery.isStamped);
    expectPicture(*bench.frames);
    if (!HasFailure()) recordCamera({"V4L2, uvcvideo", format, delivery.memory, std::to_string(rate)});
  }
}

TEST_F(UsbCameraTest, SaysThatAStreamIsRefusedAndStartsItTheNextTime) {
  UsbCamera played;
  const auto camera = awaited("PLAYED-1");
  played.refuseStarts(true);
  CameraBench bench(camera, "160x120");
  const NotificationCounter recoveries(kCaptureSessionDidRecoverNotification, bench.session.get());
  bench.session->startRunning();
  ASSERT_TRUE(eventually([&] { return bench.session->runtimeError().has_value(); }));
  const std::string said = bench.session->runtimeError()->description;
  EXPECT_THAT(said, ::testing::HasSubstr("does not start"));
  EXPECT_GT(played.starts(), 0);
  bench.session->stopRunning();
  played.refuseStarts(false);
  bench.session->startRunning();
  ASSERT_TRUE(delivers(bench)) << bench.session->runtimeError().value_or(Error()).description;
  expectPicture(*bench.frames);
  recordCamera({"V4L2, uvcvideo", "YUYV", "mmap", "10", "the start is refused",
                "\"" + said + "\", and its picture the next time"});
}

TEST_F(UsbCameraTest, CountsDamagedPictures) {
  UsbCamera played;
  CameraBench bench(awaited("PLAYED-1"), "160x120");
  bench.session->startRunning();
  ASSERT_TRUE(delivers(bench));
  bench.frames->clear();
  played.damagePictures(5);
  // The driver leaves them out, and counts on.
  ASSERT_TRUE(eventually([&] { return bench.frames->drops().size() >= 5; }));
  ASSERT_TRUE(delivers(bench));
  EXPECT_FALSE(bench.session->runtimeError().has_value());
  expectPicture(*bench.frames);
  recordCamera({"V4L2, uvcvideo", "YUYV", "mmap", "10", "damaged pictures", "counted as lost, goes on"});
}

TEST_F(UsbCameraTest, IsTheSameCameraAfterItWasUnplugged) {
  auto played = std::make_unique<UsbCamera>();
  const auto camera = awaited("PLAYED-1");
  CameraBench bench(camera, "160x120");
  const NotificationCounter recoveries(kCaptureSessionDidRecoverNotification, bench.session.get());
  bench.session->startRunning();
  ASSERT_TRUE(delivers(bench));
  played = nullptr;
  ASSERT_TRUE(eventually([&] { return bench.session->runtimeError() && !camera->isConnected(); }));
  EXPECT_THAT(bench.session->runtimeError()->description, ::testing::HasSubstr("unplugged"));
  played = std::make_unique<UsbCamera>();
  ASSERT_TRUE(eventually([&] { return recoveries.count() > 0; }));
  EXPECT_EQ(awaited("PLAYED-1"), camera);
  ASSERT_TRUE(delivers(bench));
  expectPicture(*bench.frames);
  recordCamera({"V4L2, uvcvideo", "YUYV", "mmap", "10", "plugged out and in", "the same camera, goes on"});
}

TEST_F(UsbCameraTest, ZoomsFocusesAndLocksTheExposure) {
  const UsbCamera played;
  const auto camera = awaited("PLAYED-1");
  CameraBench bench(camera, "160x120");
  bench.session->startRunning();
  ASSERT_TRUE(delivers(bench));
  bench.configure([](CaptureDevice& device) {
    EXPECT_EQ(device.activeFormat()->videoMaxZoomFactor, 4);
    device.setVideoZoomFactor(2);
    device.setFocusMode(CaptureFocusMode::locked);
    device.setExposureMode(CaptureExposureMode::locked);
  });
  // By their selectors: zoom, automatic focus, automatic exposure, exposure.
  EXPECT_TRUE(eventually([&] { return played.control(0x0b) == 200; })) << played.control(0x0b);
  EXPECT_TRUE(eventually([&] { return played.control(8) == 0; })) << played.control(8);
  EXPECT_TRUE(eventually([&] { return played.control(2) == 1; })) << played.control(2);
  EXPECT_EQ(played.control(4), 157) << "as it was";
  if (!HasFailure()) recordCamera({"V4L2, uvcvideo", "YUYV", "mmap", "10", "none", "zoom, focus and exposure obey"});
}

}  // namespace
}  // namespace tavrel::test
