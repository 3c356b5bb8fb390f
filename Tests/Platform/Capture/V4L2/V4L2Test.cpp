#include <linux/v4l2-controls.h>

#include "Platform/Capture/CaptureDelivery.h"
#include "Platform/Foundation/Notifications.h"
#include "Platform/Imaging/ImageDestination.h"
#include "Support/VirtualFrames.h"
#include "V4L2TestSupport.h"

namespace tavrel::test {
namespace {

using ::testing::ElementsAre;

TEST_F(V4L2Test, EnumeratesCamerasWithFormatsIdentityPositionAndRotation) {
  const auto front = addNode(2);
  front->serial = "046d:0825:ABCD";
  front->formats = {{V4L2_PIX_FMT_YUYV, {{64, 48}, {128, 96}}, {15, 5}}, {V4L2_PIX_FMT_MJPEG, {{128, 96}}, {30, 60}}};
  front->controls[V4L2_CID_CAMERA_ORIENTATION] = {0, 2, V4L2_CAMERA_ORIENTATION_FRONT, {0, 1, 2}};
  front->controls[V4L2_CID_ZOOM_ABSOLUTE] = {100, 400, 100};
  const auto back = addNode(10);
  back->card = "Rear";
  back->controls[V4L2_CID_CAMERA_ORIENTATION] = {0, 2, V4L2_CAMERA_ORIENTATION_BACK, {0, 1, 2}};
  const auto twin = addNode(11);
  twin->card = "Rear";
  const auto metadata = addNode(3);
  metadata->deviceCaps = V4L2_CAP_META_CAPTURE | V4L2_CAP_STREAMING;
  const auto unreadable = addNode(4);
  unreadable->formats = {{V4L2_PIX_FMT_SBGGR10, {{64, 48}}, {30}}};
  const auto forbidden = addNode(5);
  forbidden->setBusy(EACCES, 0);
  std::ofstream(folder_ / "videofoo") << "";
  start();

  const auto found = cameras();
  ASSERT_EQ(found.size(), 3U);
  EXPECT_EQ(found[0]->uniqueID(), "v4l2:046d:0825:ABCD:Fake camera");
  EXPECT_EQ(found[0]->localizedName(), "Fake camera");
  EXPECT_EQ(found[0]->position(), CaptureDevicePosition::front);
  EXPECT_EQ(found[1]->uniqueID(), "v4l2:usb-0000:00:14.0-1:Rear");
  EXPECT_EQ(found[1]->position(), CaptureDevicePosition::back);
  EXPECT_EQ(found[2]->uniqueID(), "v4l2:usb-0000:00:14.0-1:Rear#2");
  const auto formats = found[0]->formats();
  ASSERT_EQ(formats.size(), 2U);
  EXPECT_EQ(formats[1]->dimensions, (CaptureVideoDimensions{128, 96}));
  std::vector<double> rates;
  for (const auto& range : formats[1]->videoSupportedFrameRateRanges) rates.push_back(range.maxFrameRate);
  EXPECT_THAT(rates, ElementsAre(5, 15, 30, 60));
  EXPECT_DOUBLE_EQ(formats[1]->videoMaxZoomFactor, 4);
  EXPECT_EQ(CaptureDevice::authorizationStatus(MediaType::audio), CaptureAuthorizationStatus::notDetermined);
  CaptureDevice::requestAccess(MediaType::video, [](bool) {});
  EXPECT_TRUE(eventually(
      [] { return CaptureDevice::authorizationStatus(MediaType::video) == CaptureAuthorizationStatus::denied; }));
}

TEST_F(V4L2Test, StreamsEveryFrameWithItsTimeAndReportsTheDamagedAndMissingOnes) {
  const auto node = addNode(0);
  node->draw = drawNumber;
  node->padding = 32;
  start();
  CameraBench camera(cameras().at(0), "64x48");
  std::vector<int> luma;
  camera.frames->onFrame = [&](const auto& sample) {
    luma.push_back(VirtualPicture(sample->imageBuffer()).pixel(63, 47)[1]);
  };
  camera.session->startRunning();
  ASSERT_FALSE(camera.session->runtimeError().has_value()) << camera.session->runtimeError()->description;
  ASSERT_TRUE(eventually([&] { return camera.frames->count() >= 5; }));
  node->damageNextFrame();
  ASSERT_TRUE(eventually([&] { return camera.data->droppedFrames() >= 1; }));
  node->skipFrames(2);
  ASSERT_TRUE(eventually([&] { return camera.data->droppedFrames() >= 3; }));
  node->failDequeues(2, EIO);
  ASSERT_TRUE(eventually([&] { return camera.data->droppedFrames() >= 5; }));
  const std::size_t before = camera.frames->count();
  ASSERT_TRUE(eventually([&] { return camera.frames->count() > before + 2; }));
  camera.session->stopRunning();
  camera.queue->sync([] {});
  EXPECT_FALSE(node->isStreaming());
  EXPECT_FALSE(camera.session->runtimeError().has_value());
  for (const auto reason : camera.frames->drops()) EXPECT_EQ(reason, CaptureDroppedFrameReason::discontinuity);
  const auto times = camera.frames->times();
  for (std::size_t i = 1; i < times.size(); ++i) {
    // The times are the driver's own: whole frame durations apart, each picture that of its time.
    const double frames = (times[i] - times[i - 1]).seconds() * 30;
    EXPECT_NEAR(frames, std::round(frames), 0.02);
    EXPECT_NEAR(luma[i] - luma[i - 1], frames * 255 / 219, 1.1);
  }
  EXPECT_LT(std::abs((CaptureClock::realTime()->now() - times.back()).seconds()), 3);
  const auto delivery = camera.device->delivery();
  ASSERT_TRUE(delivery.has_value());
  EXPECT_TRUE(delivery->isStamped);
  EXPECT_EQ(delivery->description(),
            "YUYV 64x48, 30 frames a second, mmap buffers; the driver calls a picture damaged");
}

TEST_F(V4L2Test, ConvertsWithTheRangeAndMatrixThatTheDriverReports) {
  const auto node = addNode(0);
  node->quantization = V4L2_QUANTIZATION_FULL_RANGE;
  node->encoding = V4L2_YCBCR_ENC_709;
  node->draw = [](std::uint8_t* bytes, std::size_t capacity, std::uint32_t) {
    for (std::size_t i = 0; i < capacity; i += 4) {
      bytes[i] = bytes[i + 2] = 54;  // pure red in BT.709, full range
      bytes[i + 1] = 99;
      bytes[i + 3] = 255;
    }
    return capacity;
  };
  start();
  CameraBench camera(cameras().at(0), "64x48");
  camera.session->startRunning();
  ASSERT_TRUE(eventually([&] { return camera.frames->count() > 0; }));
  camera.session->stopRunning();
  const VirtualPicture picture(camera.frames->latest()->imageBuffer());
  EXPECT_NEAR(picture.pixel(5, 5)[2], 254, 3);
  EXPECT_NEAR(picture.pixel(5, 5)[1], 0, 3);
  EXPECT_NEAR(picture.pixel(5, 5)[0], 0, 3);
}

TEST_F(V4L2Test, DrivesControlsAndRates) {
  const auto node = addNode(0);
  node->draw = drawNumber;
  node->controls[V4L2_CID_FOCUS_AUTO] = {0, 1, 0};
  node->controls[V4L2_CID_AUTO_FOCUS_START] = {0, 1, 0, {}, true};
  node->controls[V4L2_CID_EXPOSURE_AUTO] = {0, 3, 1, {1, 3}};  // no "auto" entry: like most webcams
  node->controls[V4L2_CID_ZOOM_ABSOLUTE] = {100, 500, 100};
  node->controls[V4L2_CID_FLASH_LED_MODE] = {0, 2, 0, {0, 2}};
  start();
  const auto device = cameras().at(0);
  CameraBench camera(device, "64x48");
  EXPECT_FALSE(device->isExposureModeSupported(CaptureExposureMode::autoExpose));
  EXPECT_TRUE(device->isFocusModeSupported(CaptureFocusMode::autoFocus));
  camera.configure([](CaptureDevice& set) { set.setTorchMode(CaptureTorchMode::on); });
  camera.session->startRunning();
  EXPECT_EQ(node->controlValue(V4L2_CID_FLASH_LED_MODE), V4L2_FLASH_LED_MODE_TORCH) << "set before it was opened";
  EXPECT_EQ(node->controlValue(V4L2_CID_FOCUS_AUTO), 1);
  EXPECT_EQ(node->controlValue(V4L2_CID_EXPOSURE_AUTO), V4L2_EXPOSURE_APERTURE_PRIORITY);
  camera.configure([](CaptureDevice& set) {
    set.setVideoZoomFactor(3);
    set.setFocusMode(CaptureFocusMode::autoFocus);
    set.setExposureMode(CaptureExposureMode::locked);
    set.setTorchMode(CaptureTorchMode::off);
    set.setActiveVideoMinFrameDuration(MediaTime::fromSeconds(1 / 15.0, 1000));
  });
  EXPECT_EQ(node->controlValue(V4L2_CID_ZOOM_ABSOLUTE), 300);
  EXPECT_EQ(node->controlValue(V4L2_CID_FOCUS_AUTO), 0);
  EXPECT_EQ(node->controlValue(V4L2_CID_AUTO_FOCUS_START), 1);
  EXPECT_EQ(node->controlValue(V4L2_CID_EXPOSURE_AUTO), V4L2_EXPOSURE_MANUAL);
  EXPECT_EQ(node->controlValue(V4L2_CID_FLASH_LED_MODE), V4L2_FLASH_LED_MODE_NONE);
  EXPECT_TRUE(eventually([&] { return node->frameRate() == 15; }));
  ASSERT_TRUE(eventually([&] { return node->starts() == 2; }));
  camera.queue->sync([&] { camera.frames->clear(); });
  ASSERT_TRUE(eventually([&] { return camera.frames->count() > 2; }));
  EXPECT_EQ(camera.frames->latest()->duration(), MediaTime::make(1, 15));
}

TEST_F(V4L2Test, TakesJpegWhereTheBusHasNoRoomAndLocksTheExposureThatThereIs) {
  const auto node = addNode(0);
  node->formats = {{V4L2_PIX_FMT_YUYV, {{64, 48}}, {30, 15}}, {V4L2_PIX_FMT_MJPEG, {{64, 48}}, {30, 15}}};
  node->isBusFull = true;
  const std::vector<std::uint8_t> pixels(std::size_t{64} * 48 * 4, 90);
  const auto image = Image::create(64, 48, 8, 32, 64 * 4, kBitmapOpaqueBGRX, DataProvider::create(pixels));
  const Data jpeg = ImageDestination::encode(image, "image/jpeg").value();
  node->draw = [&](std::uint8_t* bytes, std::size_t, std::uint32_t) {
    std::copy(jpeg.begin(), jpeg.end(), bytes);
    return jpeg.size();
  };
  node->controls[V4L2_CID_EXPOSURE_AUTO] = {0, 3, 3, {1, 3}};
  node->controls[V4L2_CID_EXPOSURE_ABSOLUTE] = {1, 5000, 157};
  node->manualExposure = 2000;
  start();
  CameraBench camera(cameras().at(0), "64x48");
  camera.session->startRunning();
  ASSERT_FALSE(camera.session->runtimeError().has_value()) << camera.session->runtimeError()->description;
  ASSERT_TRUE(eventually([&] { return camera.frames->count() > 2; }));
  EXPECT_NEAR(VirtualPicture(camera.frames->latest()->imageBuffer()).pixel(3, 3)[1], 90, 2);
  EXPECT_EQ(camera.device->delivery()->format, "MJPG");
  // Another rate stays with it.
  camera.configure([](CaptureDevice& set) { set.setActiveVideoMinFrameDuration(MediaTime::make(1, 15)); });
  ASSERT_TRUE(eventually([&] { return camera.device->delivery()->framesPerSecond == 15; }));
  EXPECT_EQ(camera.device->delivery()->format, "MJPG");
  camera.configure([](CaptureDevice& set) { set.setExposureMode(CaptureExposureMode::locked); });
  EXPECT_EQ(node->controlValue(V4L2_CID_EXPOSURE_AUTO), V4L2_EXPOSURE_MANUAL);
  EXPECT_EQ(node->controlValue(V4L2_CID_EXPOSURE_ABSOLUTE), 157);
  EXPECT_FALSE(camera.session->runtimeError().has_value());
}

TEST_F(V4L2Test, TakesThePixelFormatThatHasTheRateAndTheSmallestSizeThatCoversTheWish) {
  const auto node = addNode(0);
  node->formats = {{V4L2_PIX_FMT_YUYV, {{64, 48}, {128, 96}}, {30}}, {V4L2_PIX_FMT_MJPEG, {{128, 96}}, {60}}};
  start();
  const auto device = cameras().at(0);
  // 64×48 is nearer, and would have to be enlarged.
  CameraBench camera(device, "100x70");
  EXPECT_EQ(device->activeFormat()->dimensions, (CaptureVideoDimensions{128, 96}));
  camera.session->startRunning();
  ASSERT_TRUE(eventually([&] { return camera.frames->count() > 2; }));
  EXPECT_EQ(node->frameRate(), 30);
  // While it runs, as a camera's wishes come.
  camera.configure([](CaptureDevice& set) { set.setActiveVideoMinFrameDuration(MediaTime::make(1, 60)); });
  EXPECT_TRUE(eventually([&] { return node->frameRate() == 60; }));
  camera.configure([](CaptureDevice& set) { set.setActiveVideoMinFrameDuration(MediaTime::make(1, 30)); });
  ASSERT_TRUE(eventually([&] { return node->starts() == 3; }));
  camera.queue->sync([&] { camera.frames->clear(); });
  EXPECT_TRUE(eventually([&] { return camera.frames->count() > 2; })) << "back in the first format";
  EXPECT_FALSE(camera.session->runtimeError().has_value());
}

TEST_F(V4L2Test, TurnsPicturesOfSensorsThatAreMountedSideways) {
  // 270 degrees counter-clockwise, the usual way in a telephone: a quarter clockwise in portrait.
  const auto node = addNode(0);
  node->controls[V4L2_CID_CAMERA_SENSOR_ROTATION] = {0, 360, 270};
  const auto inverted = addNode(1);
  inverted->card = "Upside down";
  inverted->controls[V4L2_CID_CAMERA_SENSOR_ROTATION] = {0, 360, 180};
  for (const auto& each : nodes_) {
    each->draw = [](std::uint8_t* bytes, std::size_t capacity, std::uint32_t) {
      for (std::size_t i = 0; i < capacity; i += 2) {
        bytes[i] = i % 128 < 64 ? 235 : 16;  // the left half is white
        bytes[i + 1] = 128;
      }
      return capacity;
    };
  }
  start();
  const auto pictureOf = [](const std::shared_ptr<CaptureDevice>& device, CaptureVideoOrientation orientation) {
    CameraBench camera(device, "64x48");
    camera.data->connectionWithMediaType(MediaType::video)->setVideoOrientation(orientation);
    camera.session->startRunning();
    EXPECT_TRUE(eventually([&] { return camera.frames->count() > 0; }));
    camera.session->stopRunning();
    return camera.frames->latest()->imageBuffer();
  };
  const VirtualPicture landscape(pictureOf(cameras().at(0), CaptureVideoOrientation::landscapeRight));
  EXPECT_GT(landscape.pixel(5, 24)[1], 200);
  const VirtualPicture portrait(pictureOf(cameras().at(0), CaptureVideoOrientation::portrait));
  EXPECT_EQ(portrait.height(), 64);
  EXPECT_GT(portrait.pixel(24, 5)[1], 200) << "left has become top";
  const VirtualPicture turned(pictureOf(cameras().at(1), CaptureVideoOrientation::landscapeRight));
  EXPECT_LT(turned.pixel(5, 24)[1], 40) << "upright again";
}

}  // namespace
}  // namespace tavrel::test
