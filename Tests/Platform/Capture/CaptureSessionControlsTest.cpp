// What an application sets on a camera shows in its pictures, and stills are taken with it.
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CaptureSessionTestSupport.h"
#include "Platform/Capture/CaptureError.h"
#include "Platform/Imaging/ImageSource.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;
using CaptureSessionControlsTest = CaptureSessionTest;

TEST_F(CaptureSessionControlsTest, ChoosesFormatsByPresetAndKeepsWhatWasSetBeforeTheCommit) {
  const auto clock = useFastClock();
  CameraBench camera(device(Virtual::kBackCamera), "640x480");
  CaptureSession& session = *camera.session;
  const auto size = [&] { return camera.device->activeFormat()->dimensions; };
  EXPECT_EQ(size(), (CaptureVideoDimensions{640, 480}));
  EXPECT_TRUE(session.canSetSessionPreset("200x100"));
  for (const char* wrong : {"1x1", "640", "640x", "x480", "640x480x2", "99999x2", "", "huge"}) {
    EXPECT_FALSE(session.canSetSessionPreset(wrong)) << wrong;
  }
  session.setSessionPreset("huge");
  EXPECT_EQ(session.sessionPreset(), "640x480");
  session.startRunning();
  session.setSessionPreset("200x100");
  run(camera, *clock, 0.2);
  EXPECT_EQ(camera.frames->latest()->imageBuffer()->width(), 200U);
  EXPECT_EQ(camera.frames->latest()->imageBuffer()->height(), 100U);
  session.setSessionPreset(kCaptureSessionPresetLow);
  EXPECT_EQ(size(), (CaptureVideoDimensions{320, 240}));
  session.setSessionPreset(kCaptureSessionPresetPhoto);
  EXPECT_EQ(size(), (CaptureVideoDimensions{3840, 2160}));

  // A switch to the other camera: its frame rate is set before the commit, on the format that the preset chose.
  session.setSessionPreset("320x240");
  const auto other = device(Virtual::kFrontCamera);
  const auto otherInput = CaptureDeviceInput::create(other).value();
  session.beginConfiguration();
  session.removeInput(camera.input);
  EXPECT_EQ(camera.data->connectionWithMediaType(MediaType::video), nullptr);
  session.addInput(otherInput);
  ASSERT_TRUE(other->lockForConfiguration().has_value());
  other->setActiveVideoMinFrameDuration(MediaTime::make(1, 10));
  other->unlockForConfiguration();
  session.commitConfiguration();
  camera.queue->sync([] {});
  camera.frames->clear();
  run(camera, *clock, 1.05);
  EXPECT_NEAR(static_cast<double>(camera.frames->count()), 11, 1);
  EXPECT_EQ(camera.frames->latest()->imageBuffer()->width(), 320U);

  // A format that the program chose stays.
  ASSERT_TRUE(other->lockForConfiguration().has_value());
  other->setActiveFormat(other->formats()[1]);
  other->unlockForConfiguration();
  EXPECT_EQ(session.sessionPreset(), kCaptureSessionPresetInputPriority);
  run(camera, *clock, 0.3);
  EXPECT_EQ(camera.frames->latest()->imageBuffer()->width(), 352U);
}

TEST_F(CaptureSessionControlsTest, ControlsActOnThePicture) {
  const auto clock = useFastClock();
  CameraBench camera(device(Virtual::kBackCamera));
  camera.session->startRunning();
  run(camera, *clock, 0.2);
  const int plain = brightness(*camera.frames);

  camera.configure([](CaptureDevice& device) { device.setTorchMode(CaptureTorchMode::on); });
  run(camera, *clock, 0.2);
  EXPECT_GT(brightness(*camera.frames), plain + 20);
  EXPECT_EQ(camera.device->torchMode(), CaptureTorchMode::on);
  camera.configure([](CaptureDevice& device) {
    device.setTorchMode(CaptureTorchMode::off);
    device.setExposurePointOfInterest({0.5, 1});
  });
  run(camera, *clock, 0.2);
  EXPECT_EQ(brightness(*camera.frames), plain) << "a point alone changes nothing";
  camera.configure([](CaptureDevice& device) { device.setExposureMode(CaptureExposureMode::autoExpose); });
  run(camera, *clock, 0.2);
  EXPECT_GT(brightness(*camera.frames), plain + 20);
  camera.configure([](CaptureDevice& device) {
    device.setExposureMode(CaptureExposureMode::locked);
    device.setExposurePointOfInterest({0.5, 0});
    device.setExposureMode(CaptureExposureMode::locked);
  });
  run(camera, *clock, 0.2);
  EXPECT_GT(brightness(*camera.frames), plain + 20) << "locked keeps what there was";

  // Sharpness: the texture of the oval.
  const auto grain = [&] {
    const VirtualPicture picture(camera.frames->latest()->imageBuffer());
    int sum = 0;
    for (int x = 130; x < 190; ++x) sum += std::abs(picture.pixel(x, 130)[1] - picture.pixel(x + 1, 130)[1]);
    return sum;
  };
  const int sharp = grain();
  camera.configure([](CaptureDevice& device) {
    device.setFocusPointOfInterest({0, 0});
    device.setFocusMode(CaptureFocusMode::autoFocus);
  });
  run(camera, *clock, 0.2);
  EXPECT_LT(grain(), sharp / 2);

  camera.configure([](CaptureDevice& device) {
    device.setVideoZoomFactor(1e9);
    EXPECT_EQ(device.videoZoomFactor(), device.activeFormat()->videoMaxZoomFactor);
    device.setVideoZoomFactor(0);
    EXPECT_EQ(device.videoZoomFactor(), 1);
    device.setFocusPointOfInterest({-3, 7});
    EXPECT_EQ(device.focusPointOfInterest(), (Point{0, 1}));
  });

  // What was set survives a stop, also what is set while stopped.
  camera.session->stopRunning();
  camera.configure([](CaptureDevice& device) { device.setTorchMode(CaptureTorchMode::on); });
  camera.frames->clear();
  camera.session->startRunning();
  run(camera, *clock, 0.2);
  EXPECT_GT(brightness(*camera.frames), plain + 40);
  EXPECT_LT(grain(), sharp / 2);
}

TEST_F(CaptureSessionControlsTest, FrameDurationsMoveIntoTheRangesAndTakeEffect) {
  const auto clock = useFastClock();
  CameraBench camera(device(Virtual::kBackCamera));
  camera.session->startRunning();
  const auto rateWith = [&](MediaTime duration) {
    camera.configure([&](CaptureDevice& device) { device.setActiveVideoMinFrameDuration(duration); });
    EXPECT_TRUE(clock->runFor(1.1));  // the frame that was due next is out
    camera.queue->sync([] {});
    camera.frames->clear();
    run(camera, *clock, 2);
    return static_cast<double>(camera.frames->count()) / 2;
  };
  EXPECT_NEAR(rateWith(MediaTime::fromSeconds(1 / 15.0, 1000)), 15, 0.51);
  EXPECT_NEAR(rateWith(MediaTime::fromSeconds(1 / 60.0, 1000)), 60, 0.51);  // 17/1000 means 60
  EXPECT_NEAR(rateWith(MediaTime::make(1, 80)), 60, 0.51);                  // between two ranges
  EXPECT_EQ(camera.device->activeVideoMinFrameDuration(), MediaTime::make(1, 60));
  EXPECT_NEAR(rateWith(MediaTime::make(1, 110)), 120, 0.51);
  EXPECT_NEAR(rateWith(MediaTime::make(100, 1)), 1, 0.51);
  EXPECT_NEAR(rateWith(MediaTime::invalid()), 30, 0.51);
}

TEST_F(CaptureSessionControlsTest, TakesStillsInOrderWithTheFlash) {
  CameraBench camera(device(Virtual::kBackCamera));
  camera.configure([](CaptureDevice& device) { device.setFlashMode(CaptureFlashMode::on); });
  const auto connection = camera.still->connectionWithMediaType(MediaType::video);
  connection->setVideoOrientation(CaptureVideoOrientation::portrait);
  std::mutex mutex;
  std::vector<int> order;
  std::vector<std::shared_ptr<SampleBuffer>> pictures;
  std::vector<std::string> errors;
  const auto take = [&](int number) {
    camera.still->captureStillImageAsynchronously(connection, [&, number](auto result) {
      const std::lock_guard lock(mutex);
      order.push_back(number);
      if (result) {
        pictures.push_back(*result);
      } else {
        errors.push_back(result.error().description);
      }
    });
  };
  const auto answered = [&](std::size_t count) {
    return eventually([&] {
      const std::lock_guard lock(mutex);
      return order.size() == count;
    });
  };
  take(0);
  ASSERT_TRUE(answered(1));
  EXPECT_THAT(errors[0], ::testing::HasSubstr("does not run"));

  camera.session->startRunning();
  ASSERT_TRUE(eventually([&] { return camera.frames->count() > 2; }));
  const int plain = brightness(*camera.frames);
  take(1);
  take(2);
  ASSERT_TRUE(answered(3));
  EXPECT_EQ(order, (std::vector{0, 1, 2}));
  ASSERT_EQ(pictures.size(), 2U);
  ASSERT_EQ(pictures[0]->imageBuffer()->width(), 240U);
  EXPECT_GT(VirtualPicture(pictures[0]->imageBuffer()).pixel(239 - 120, 4)[1], plain + 20) << "lit";
  camera.queue->sync([&] { camera.frames->clear(); });
  ASSERT_TRUE(eventually([&] { return camera.frames->count() > 4; }));
  EXPECT_NEAR(brightness(*camera.frames), plain, 3) << "the lamp is out again";

  const Data jpeg = CaptureStillImageOutput::jpegStillImageRepresentation(pictures[0]).value();
  const auto source = ImageSource::create(jpeg).value();
  EXPECT_STREQ(source->type(), "image/jpeg");
  EXPECT_EQ(source->properties(0).height, 320U);
  EXPECT_FALSE(CaptureStillImageOutput::jpegStillImageRepresentation(nullptr).has_value());

  bench().setStillImageError(makeError(CaptureErrorCode::deviceFailed, "the shutter is stuck"));
  take(3);
  ASSERT_TRUE(answered(4));
  EXPECT_EQ(errors.back(), "the shutter is stuck");
  bench().setStillImageError(std::nullopt);
  bench().setStalled(Virtual::kBackCamera, true);
  std::this_thread::sleep_for(100ms);
  take(4);
  camera.session->stopRunning();
  ASSERT_TRUE(answered(5));
  EXPECT_THAT(errors.back(), ::testing::HasSubstr("stopped"));
}

}  // namespace
}  // namespace tavrel::test
