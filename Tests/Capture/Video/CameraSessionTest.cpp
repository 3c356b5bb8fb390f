#include <unistd.h>

#include <cmath>
#include <filesystem>

#include "CompilerCount.h"
#include "Platform/Foundation/Notifications.h"
#include "Support/CameraTestSupport.h"

namespace tavrel {
namespace {

using test::CameraTest;
using test::isUpright;
using test::Picture;
using test::Pixel;
using Bench = VirtualCaptureSystem;

constexpr auto kFront = CaptureDevicePosition::front;
constexpr auto kBack = CaptureDevicePosition::back;

TEST_F(CameraTest, StartsOnceAndStops) {
  make();
  EXPECT_FALSE(camera_->running());
  start();
  EXPECT_TRUE(camera_->running());
  std::atomic<int> answer = -1;
  camera_->startWithCompletion([&](bool isGranted) { answer = isGranted; });
  EXPECT_TRUE(runUntil([&] { return answer == 1; }));
  camera_->stop();
  EXPECT_FALSE(camera_->running());
  EXPECT_TRUE(framesStand());
  start();
  const auto timing = recorder_->timings().back();
  EXPECT_NEAR(timing.presentationTimeStamp.seconds(), CaptureClock::current()->nowSeconds(), 1);
  EXPECT_EQ(timing.presentationTimeStamp.timescale, 100'000'000);
  EXPECT_NEAR(timing.duration.seconds(), 1 / 30.0, 0.002);
  EXPECT_FALSE(timing.decodeTimeStamp.isValid());
}

TEST_F(CameraTest, RefusedAccessIsAnsweredAndMayBeAskedAgain) {
  make();
  Bench::shared().setAccessGranted(false);
  std::atomic<int> answer = -1;
  camera_->startWithCompletion([&](bool isGranted) { answer = isGranted; });
  ASSERT_TRUE(runUntil([&] { return answer == 0; }));
  EXPECT_FALSE(camera_->running());
  Bench::shared().setAccessGranted(true);
  start();
}

TEST_F(CameraTest, AnOutputThatIsRefusedIsSaidAndReturned) {
  for (const bool isStill : {false, true}) {
    const std::string text = isStill ? "still image output not available" : "data output not available";
    Bench::shared().setOutputRefusal([isStill](const CaptureOutput& output) {
      return (dynamic_cast<const CaptureStillImageOutput*>(&output) != nullptr) == isStill;
    });
    const auto camera = TavrelCamera::create(smallPictures());
    ASSERT_FALSE(camera.has_value());
    EXPECT_EQ(camera.error().description, text);
    EXPECT_EQ(camera.error().code, -4002);
    EXPECT_EQ(camera.error().domain, "com.TavrelBase.ErrorDomain");
    EXPECT_EQ(logged(text), 1U);
  }
}

TEST_F(CameraTest, InTheBackgroundFramesAreDropped) {
  makeAndStart();
  NotificationCenter::defaultCenter().post(kApplicationDidEnterBackgroundNotification);
  EXPECT_TRUE(framesStand());
  EXPECT_TRUE(camera_->running());
  NotificationCenter::defaultCenter().post(kApplicationWillEnterForegroundNotification);
  EXPECT_TRUE(nextFrame());
  // Nobody is told any more, on the camera's own wish.
  camera_->removeObservers();
  NotificationCenter::defaultCenter().post(kApplicationDidEnterBackgroundNotification);
  EXPECT_TRUE(nextFrame());
}

TEST_F(CameraTest, SwitchesThereAndBackWithoutBlur) {
  auto configuration = smallPictures();
  configuration.blurSwitch = false;
  makeAndStart(configuration);
  const auto front = recorder_->picture();
  camera_->switchCamera();
  EXPECT_EQ(camera_->devicePosition(), kBack);
  EXPECT_EQ(camera_->preferredDevicePosition(), kBack);
  ASSERT_TRUE(nextFrame());
  const auto back = recorder_->picture();
  EXPECT_GT(largestDifference(front, back), 60);
  EXPECT_TRUE(isUpright(back));
  camera_->switchCamera();
  EXPECT_EQ(camera_->devicePosition(), kFront);
  ASSERT_TRUE(nextFrame());
}

TEST_F(CameraTest, AnyNumberOfCamerasIsChosenByIdentity) {
  const auto path = std::filesystem::temp_directory_path() / ("tavrel-third-" + std::to_string(getpid()) + ".png");
  const Picture green(64, 48, [](int, int) { return Pixel{0, 255, 0, 255}; });
  ASSERT_TRUE(ImageDestination::write(test::imageOf(green), path).has_value());
  // It says of no side that it is there.
  const auto third = CaptureDevice::addFile(path, MediaType::video).value();
  auto configuration = smallPictures();
  configuration.blurSwitch = false;
  configuration.preferredDeviceID = third->uniqueID();
  makeAndStart(configuration);
  const auto isGreen = [this] {
    return recorder_->picture().at(160, 120).g > 200 && recorder_->picture().at(9, 9).r < 60;
  };
  EXPECT_EQ(camera_->deviceID(), third->uniqueID());
  EXPECT_EQ(camera_->devicePosition(), CaptureDevicePosition::unspecified);
  EXPECT_TRUE(isGreen());
  camera_->setPreferredDeviceID(std::string(Bench::kBackCamera));
  EXPECT_EQ(camera_->deviceID(), Bench::kBackCamera);
  ASSERT_TRUE(nextFrame());
  EXPECT_TRUE(isUpright(recorder_->picture()));
  camera_->setPreferredDeviceID("nobody's");
  EXPECT_EQ(camera_->deviceID(), Bench::kBackCamera) << "stays";
  camera_->setPreferredDeviceID(third->uniqueID());
  ASSERT_TRUE(nextFrame());
  EXPECT_TRUE(isGreen());
  camera_->switchCamera();
  EXPECT_EQ(camera_->deviceID(), Bench::kFrontCamera);
  ASSERT_TRUE(nextFrame());
  camera_->stop();
  Bench::shared().removeFiles();
  std::filesystem::remove(path);
}

TEST_F(CameraTest, ASwitchIsBlurredUntilAWhileAfterTheLastOne) {
  makeAndStart();
  const auto begun = std::chrono::steady_clock::now();
  camera_->switchCamera();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  // The last frame once more, blurred, and nothing live.
  const auto blurred = recorder_->picture();
  EXPECT_FALSE(isUpright(blurred));
  runFor(std::chrono::milliseconds(150));
  camera_->switchCamera();
  const auto frozen = recorder_->count();
  ASSERT_TRUE(runUntil([&] { return recorder_->count() > frozen; }));
  // Counted from the second switch.
  EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(450));
  ASSERT_TRUE(nextFrame());
  EXPECT_TRUE(isUpright(recorder_->picture()));
  EXPECT_EQ(camera_->devicePosition(), kFront);
}

// In a process of its own nothing has been blurred before; see test.cmake.
TEST_F(CameraTest, TheFirstSwitchCompilesNothing) {
  for (const Size size : {Size{320, 240}, Size{256, 256}}) {
    auto configuration = smallPictures();
    configuration.size = size;
    makeAndStart(configuration);
    if (test::functionsCompiled() == 0) GTEST_SKIP() << "the driver does not compile through LLVM's older interface";
    std::vector<int> compiled;
    const auto note = [&] { compiled.push_back(test::functionsCompiled()); };
    TavrelRunSynchronouslyOnVideoProcessingQueue(note);
    camera_->switchCamera();
    TavrelRunSynchronouslyOnVideoProcessingQueue(note);
    EXPECT_EQ(compiled[1] - compiled[0], 0) << size.width;
    camera_->stop();
  }
}

TEST_F(CameraTest, WishesThatChangeNothingOnlyAreKept) {
  makeAndStart();
  camera_->setPreferredDevicePosition(kFront);
  camera_->setPreferredDevicePosition(CaptureDevicePosition::unspecified);
  EXPECT_EQ(camera_->preferredDevicePosition(), CaptureDevicePosition::unspecified);
  EXPECT_EQ(camera_->devicePosition(), kFront);
  EXPECT_TRUE(nextFrame());
}

TEST_F(CameraTest, AMissingCameraFallsBackToTheOther) {
  Bench::shared().setPresent(Bench::kFrontCamera, false);
  makeAndStart();
  EXPECT_EQ(camera_->devicePosition(), kBack);
  EXPECT_EQ(camera_->preferredDevicePosition(), kFront);
  EXPECT_EQ(logged("front camera not available, using back camera"), 1U);
  camera_->switchCamera();
  EXPECT_EQ(logged("only one camera found"), 1U);
  EXPECT_EQ(camera_->devicePosition(), kBack);
}

TEST_F(CameraTest, WithoutAnyCameraTheSessionRunsEmpty) {
  Bench::shared().setInputError(Bench::kFrontCamera, makeError(CaptureErrorCode::deviceFailed, "the lens fell out"));
  Bench::shared().setInputError(Bench::kBackCamera, makeError(CaptureErrorCode::deviceFailed, "no eye"));
  make();
  EXPECT_EQ(logged("front camera not available: the lens fell out"), 1U);
  EXPECT_EQ(logged("back camera not available: no eye"), 1U);
  EXPECT_EQ(logged("no camera available"), 1U);
  std::atomic<int> answer = -1;
  camera_->startWithCompletion([&](bool isGranted) { answer = isGranted; });
  EXPECT_TRUE(runUntil([&] { return answer == 1; }));
  EXPECT_EQ(camera_->devicePosition(), CaptureDevicePosition::unspecified);
  EXPECT_TRUE(std::isinf(camera_->minFrameRate()));
  std::atomic<bool> isAnswered = false;
  camera_->snapshotWithCompletion([&](const auto& image, const auto& error) {
    EXPECT_EQ(image, nullptr);
    EXPECT_EQ(error->description, "snapshot not available");
    isAnswered = true;
  });
  EXPECT_TRUE(runUntil([&] { return isAnswered.load(); }));
}

TEST_F(CameraTest, FrameRatesInsideTheRangesAreSet) {
  makeAndStart();
  const auto ranges = camera_->videoSupportedFrameRateRanges();
  ASSERT_FALSE(ranges.empty());
  camera_->setPreferredMinFrameRate(10);
  camera_->setPreferredMaxFrameRate(20);
  EXPECT_NEAR(camera_->minFrameRate(), 10, 0.01);
  EXPECT_NEAR(camera_->maxFrameRate(), 20, 0.01);
  camera_->setPreferredMaxFrameRate(100'000);
  EXPECT_EQ(camera_->preferredMaxFrameRate(), 100'000);
  EXPECT_NEAR(camera_->maxFrameRate(), 20, 0.01);

  const auto front = device(Bench::kFrontCamera);
  Bench::shared().setLockError(Bench::kFrontCamera, makeError(CaptureErrorCode::busy, "busy"));
  camera_->setPreferredMaxFrameRate(15);
  camera_->setPreferredMinFrameRate(5);
  EXPECT_EQ(logged("setPreferredMaxFrameRate error when lockForConfiguration for: busy"), 1U);
  EXPECT_EQ(logged("setPreferredMinFrameRate error when lockForConfiguration for: busy"), 1U);
  // The wishes are carried out at the next start.
  Bench::shared().setLockError(Bench::kFrontCamera, std::nullopt);
  camera_->stop();
  start();
  EXPECT_NEAR(camera_->maxFrameRate(), 15, 0.1);
  EXPECT_NEAR(camera_->minFrameRate(), 5, 0.1);
}

TEST_F(CameraTest, TheOrientationTurnsThePicture) {
  auto configuration = smallPictures();
  configuration.size = {240, 320};
  configuration.preferredVideoOrientation = CaptureVideoOrientation::portrait;
  makeAndStart(configuration);
  EXPECT_EQ(camera_->videoOrientation(), CaptureVideoOrientation::portrait);
  auto picture = recorder_->picture();
  ASSERT_EQ(picture.width, 240);
  ASSERT_EQ(picture.height, 320);
  // Turned a quarter clockwise on its way; turned back it can be read.
  EXPECT_TRUE(isUpright({320, 240, [&](int x, int y) { return picture.at(239 - y, x); }}));
  camera_->setPreferredVideoOrientation(CaptureVideoOrientation::landscapeLeft);
  EXPECT_EQ(camera_->videoOrientation(), CaptureVideoOrientation::landscapeLeft);
}

TEST_F(CameraTest, AnotherPresetIsSetWhereTheSessionCan) {
  makeAndStart();
  EXPECT_EQ(camera_->sessionPreset(), "320x240");
  camera_->setPreferredSessionPreset("no such preset");
  EXPECT_EQ(camera_->sessionPreset(), "320x240");
  EXPECT_EQ(camera_->preferredSessionPreset(), "no such preset");
  camera_->setPreferredSessionPreset("640x480");
  EXPECT_EQ(camera_->sessionPreset(), "640x480");
  ASSERT_TRUE(nextFrame());
  EXPECT_EQ(recorder_->picture().width, 320);
}

TEST_F(CameraTest, ACameraThatIsLetGoOfStopsAndGoes) {
  makeAndStart();
  const std::weak_ptr<TavrelCamera> camera = camera_;
  camera_->startWithCompletion({});
  camera_.reset();
  EXPECT_TRUE(runUntil([&] { return camera.expired(); }));
  const std::size_t count = recorder_->count();
  runFor(std::chrono::milliseconds(150));
  EXPECT_EQ(recorder_->count(), count);
}

}  // namespace
}  // namespace tavrel
