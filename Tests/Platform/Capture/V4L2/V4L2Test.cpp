#include <gmock/gmock.h>
#include <linux/v4l2-controls.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Private/CaptureSystem.h"
#include "Platform/Capture/V4L2/Private/V4L2Backend.h"
#include "Platform/Foundation/Notifications.h"
#include "Support/CaptureFakeVideoNode.h"
#include "Support/CaptureTestSupport.h"
#include "Support/VirtualFrames.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// The library on nodes that this test plays, in a folder of its own.
class V4L2Test : public ::testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directories(folder_); }
  void TearDown() override {
    CaptureSystem::shared().restart();
    std::filesystem::remove_all(folder_);
    for (const auto& node : nodes_) {
      EXPECT_THAT(node->violations(), IsEmpty());
      EXPECT_EQ(node->openCount(), 0) << "a node was left open";
      EXPECT_EQ(node->mappedCount(), 0) << "memory was left mapped";
    }
  }

  std::filesystem::path pathOf(int number) const { return folder_ / ("video" + std::to_string(number)); }
  void createFile(int number) const { std::ofstream(pathOf(number)) << ""; }
  std::shared_ptr<FakeVideoNode> addNode(int number) {
    createFile(number);
    nodes_.push_back(std::make_shared<FakeVideoNode>(pathOf(number).string()));
    return nodes_.back();
  }
  void start() const {
    std::vector<std::unique_ptr<CaptureBackend>> backends;
    backends.push_back(std::make_unique<V4L2Backend>(FakeVideoNode::calls(nodes_), folder_));
    CaptureSystem::shared().restartWith(std::move(backends));
  }
  static std::vector<std::shared_ptr<CaptureDevice>> cameras() {
    return CaptureDevice::devicesWithMediaType(MediaType::video);
  }

  const std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() / ("tavrel-v4l2-" + std::to_string(getpid()));
  std::vector<std::shared_ptr<FakeVideoNode>> nodes_;
};

/// YUYV, limited range: luma is 16 + the frame's number, no colour.
std::size_t drawNumber(std::uint8_t* bytes, std::size_t capacity, std::uint32_t sequence) {
  for (std::size_t i = 0; i < capacity; i += 2) {
    bytes[i] = static_cast<std::uint8_t>(16 + sequence % 100);
    bytes[i + 1] = 128;
  }
  return capacity;
}

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
  EXPECT_FALSE(device->isFocusPointOfInterestSupported());
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

TEST_F(V4L2Test, SaysWhyACameraCannotBeOpened) {
  const auto node = addNode(0);
  start();
  const auto device = cameras().at(0);
  CameraBench camera(device, "64x48");
  const auto reason = [&](int openErrno, int formatErrno) {
    node->setBusy(openErrno, formatErrno);
    camera.session->startRunning();
    const auto error = camera.session->runtimeError();
    camera.session->stopRunning();
    return error ? error->description : std::string();
  };
  EXPECT_THAT(reason(EACCES, 0), HasSubstr("Permission denied"));
  const auto refused = CaptureDeviceInput::create(device);
  ASSERT_FALSE(refused.has_value());
  EXPECT_EQ(refused.error(), CaptureErrorCode::permissionDenied);
  EXPECT_EQ(reason(0, EBUSY), "Fake camera is used by another program");
  EXPECT_EQ(reason(0, 0), "");
}

TEST_F(V4L2Test, SurvivesUnpluggingStallsAndLastingErrorsAndFindsTheCameraAgain) {
  const auto node = addNode(0);
  node->draw = drawNumber;
  start();
  const auto device = cameras().at(0);
  CameraBench camera(device, "64x48");
  const NotificationCounter errors(kCaptureSessionRuntimeErrorNotification, camera.session.get());
  const NotificationCounter recoveries(kCaptureSessionDidRecoverNotification, camera.session.get());
  camera.session->startRunning();
  ASSERT_TRUE(eventually([&] { return camera.frames->count() > 2; }));

  node->unplug();
  ASSERT_TRUE(eventually([&] { return errors.count() == 1; }));
  std::filesystem::remove(pathOf(0));
  ASSERT_TRUE(eventually([&] { return !device->isConnected(); }));
  EXPECT_TRUE(cameras().empty());
  node->plugIn();
  createFile(0);
  ASSERT_TRUE(eventually([&] { return recoveries.count() == 1; }));
  EXPECT_EQ(cameras(), std::vector{device});

  node->failDequeues(100, EIO);
  ASSERT_TRUE(eventually([&] { return errors.count() == 2; }));
  ASSERT_TRUE(eventually([&] { return node->failDequeues(0, 0), recoveries.count() == 2; }));

  node->setStalled(true);
  ASSERT_TRUE(eventually([&] { return errors.count() == 3; }));
  node->setStalled(false);
  ASSERT_TRUE(eventually([&] { return recoveries.count() == 3; }));
  // Stopping does not wait for a camera that gives nothing.
  node->setStalled(true);
  const auto began = std::chrono::steady_clock::now();
  camera.session->stopRunning();
  EXPECT_LT(std::chrono::steady_clock::now() - began, 1s);
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
