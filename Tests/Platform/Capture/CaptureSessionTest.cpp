#include "Platform/Capture/CaptureSession.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Dispatch/DispatchSemaphore.h"
#include "Platform/Foundation/Notifications.h"
#include "Platform/Imaging/ImageSource.h"
#include "Support/CaptureTestSupport.h"
#include "Support/VirtualFrames.h"
#include "TavrelCaptureTesting.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;
using Virtual = VirtualCaptureSystem;

class CaptureSessionTest : public ::testing::Test {
 protected:
  void SetUp() override { bench().reset(); }
  void TearDown() override {
    bench().reset();
    bench().removeFiles();
  }

  static Virtual& bench() { return Virtual::shared(); }
  static std::shared_ptr<CaptureDevice> device(std::string_view uniqueID) {
    return CaptureDevice::deviceWithUniqueID(uniqueID);
  }
  /// Time passes only when the test says so.
  std::shared_ptr<FastClock> useFastClock() {
    auto clock = std::make_shared<FastClock>();
    bench().setClock(clock);
    return clock;
  }
  static void run(const CameraBench& camera, FastClock& clock, double seconds) {
    ASSERT_TRUE(clock.runFor(seconds));
    // The last pictures are still on their way.
    camera.queue->sync([] {});
  }
  static int brightness(const FrameCollector& frames, int x = 4, int y = 120) {
    return VirtualPicture(frames.latest()->imageBuffer()).pixel(x, y)[1];
  }
};

TEST_F(CaptureSessionTest, DeliversEveryPictureInOrderAndReusesMemory) {
  const auto clock = useFastClock();
  CameraBench camera(device(Virtual::kBackCamera));
  std::set<const void*> memory;
  std::vector<std::uint32_t> numbers;
  camera.frames->onFrame = [&](const auto& sample) {
    const VirtualPicture picture(sample->imageBuffer());
    memory.insert(picture.pixel(0, 0));
    numbers.push_back(picture.counter().value());
  };
  const MediaTime start = clock->now();
  camera.session->startRunning();
  run(camera, *clock, 9.99);
  camera.session->stopRunning();
  ASSERT_EQ(numbers.size(), 300U);
  const auto times = camera.frames->times();
  for (std::uint32_t i = 0; i < 300; ++i) {
    ASSERT_EQ(numbers[i], i);
    ASSERT_NEAR((times[i] - start).seconds(), i / 30.0, 1e-7);
  }
  EXPECT_EQ(camera.frames->latest()->duration(), MediaTime::make(1, 30));
  EXPECT_EQ(camera.frames->connection(), camera.data->connectionWithMediaType(MediaType::video));
  EXPECT_TRUE(camera.frames->drops().empty());
  EXPECT_LE(memory.size(), 5U);
  EXPECT_FALSE(camera.session->runtimeError().has_value());
}

TEST_F(CaptureSessionTest, DropsAndReportsLatePictures) {
  CameraBench camera(device(Virtual::kFrontCamera));
  DispatchSemaphore go(0);
  camera.frames->onFrame = [&](const auto&) { go.wait(30s); };
  for (const bool discards : {true, false}) {
    camera.data->setAlwaysDiscardsLateVideoFrames(discards);
    camera.frames->clear();
    const auto droppedBefore = camera.data->droppedFrames();
    camera.session->startRunning();
    // Many: on a busy machine the camera itself misses some, which is another reason.
    ASSERT_TRUE(eventually([&] { return camera.data->droppedFrames() >= droppedBefore + 30; }));
    const std::size_t underWay = discards ? 2 : 8;
    for (std::size_t i = 0; i < underWay; ++i) go.signal();
    ASSERT_TRUE(eventually([&] { return camera.frames->count() > underWay; }));
    for (int i = 0; i < 100; ++i) go.signal();
    camera.session->stopRunning();
    camera.queue->sync([] {});

    const auto times = camera.frames->times();
    const auto drops = camera.frames->drops();
    const auto dropTimes = camera.frames->dropTimes();
    const auto reason = discards ? CaptureDroppedFrameReason::frameWasLate : CaptureDroppedFrameReason::outOfBuffers;
    EXPECT_GE(std::count(drops.begin(), drops.end(), reason), 3);
    std::size_t missedBefore = 0;
    for (std::size_t i = 0; i < drops.size(); ++i) {
      if (drops[i] == reason) continue;
      EXPECT_EQ(drops[i], CaptureDroppedFrameReason::discontinuity);
      if (dropTimes[i] > times[0] && dropTimes[i] < times[underWay - 1]) ++missedBefore;
    }
    // What was under way when the delegate was busy came before the gap, without a hole of the output's making.
    EXPECT_NEAR((times[underWay - 1] - times[0]).seconds() * 30, static_cast<double>(underWay - 1 + missedBefore),
                1e-4);
    EXPECT_GT((times[underWay] - times[underWay - 1]).seconds(), 3.5 / 30);
    while (go.tryWait()) {
    }
  }
}

// A beep begins with a whole second; a flash can only if a frame does.
TEST_F(CaptureSessionTest, FlashesBeginWithAWholeSecondWheneverTheCameraStarted) {
  for (const double start : {1'700'000'000.0, 1'700'000'000.0117, 1'700'000'000.9, 1'700'000'000.99}) {
    const auto clock = std::make_shared<FastClock>(MediaTime::fromSeconds(start, CaptureClock::kTimescale));
    bench().setClock(clock);
    CameraBench camera(device(Virtual::kBackCamera));
    std::vector<double> flashes;
    bool wasLit = true;
    camera.frames->onFrame = [&](const auto& sample) {
      const bool isLit = VirtualPicture(sample->imageBuffer()).isFlash();
      if (isLit && !wasLit) flashes.push_back(sample->presentationTimeStamp().seconds());
      wasLit = isLit;
    };
    camera.session->startRunning();
    run(camera, *clock, 2.5);
    camera.session->stopRunning();
    ASSERT_GE(flashes.size(), 2U) << start;
    for (const double flash : flashes) EXPECT_NEAR(flash, std::round(flash), 2e-6) << start;
  }
}

TEST_F(CaptureSessionTest, TurnsPicturesForEachOrientationAndMirrorsThem) {
  const auto clock = useFastClock();
  CameraBench camera(device(Virtual::kFrontCamera));
  const auto connection = camera.data->connectionWithMediaType(MediaType::video);
  camera.session->startRunning();
  EXPECT_EQ(connection->videoOrientation(), CaptureVideoOrientation::landscapeRight);
  run(camera, *clock, 0.05);
  const auto upright = camera.frames->latest()->imageBuffer();
  const VirtualPicture sensor(upright);
  ASSERT_EQ(sensor.width(), 320);
  // The background does not move: a pixel off the middle, where only it is.
  const auto expectFrom = [&](CaptureVideoOrientation orientation, int sensorX, int sensorY, int x, int y) {
    connection->setVideoOrientation(orientation);
    run(camera, *clock, 0.2);
    const VirtualPicture turned(camera.frames->latest()->imageBuffer());
    const bool isPortrait =
        orientation == CaptureVideoOrientation::portrait || orientation == CaptureVideoOrientation::portraitUpsideDown;
    EXPECT_EQ(turned.width(), isPortrait ? 240 : 320);
    EXPECT_EQ(turned.height(), isPortrait ? 320 : 240);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(turned.pixel(x, y)[i], sensor.pixel(sensorX, sensorY)[i]) << i;
  };
  expectFrom(CaptureVideoOrientation::portrait, 10, 200, 239 - 200, 10);
  expectFrom(CaptureVideoOrientation::portraitUpsideDown, 10, 200, 200, 319 - 10);
  expectFrom(CaptureVideoOrientation::landscapeLeft, 10, 200, 309, 39);
  expectFrom(CaptureVideoOrientation::landscapeRight, 10, 200, 10, 200);
  connection->setVideoMirrored(true);  // ignored while it is automatic
  expectFrom(CaptureVideoOrientation::landscapeRight, 10, 200, 10, 200);
  connection->setAutomaticallyAdjustsVideoMirroring(false);
  connection->setVideoMirrored(true);
  expectFrom(CaptureVideoOrientation::landscapeRight, 10, 200, 309, 200);
  expectFrom(CaptureVideoOrientation::portrait, 10, 200, 200, 10);
}

TEST_F(CaptureSessionTest, ChoosesFormatsByPresetAndKeepsWhatWasSetBeforeTheCommit) {
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

TEST_F(CaptureSessionTest, ControlsActOnThePicture) {
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

TEST_F(CaptureSessionTest, FrameDurationsMoveIntoTheRangesAndTakeEffect) {
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

TEST_F(CaptureSessionTest, TakesStillsInOrderWithTheFlash) {
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

TEST_F(CaptureSessionTest, FlashAndBeepMeetThoughTheDevicesStartApart) {
  const auto clock = useFastClock();
  CameraBench camera(device(Virtual::kBackCamera));
  const auto microphone = CaptureSession::create();
  const auto sound = CaptureAudioDataOutput::create();
  const auto samples = std::make_shared<SoundCollector>();
  const auto queue = DispatchQueue::create("test.sound");
  sound->setSampleBufferDelegate(samples, queue);
  microphone->addInput(CaptureDeviceInput::create(CaptureDevice::defaultDeviceWithMediaType(MediaType::audio)).value());
  microphone->addOutput(sound);
  std::vector<double> flashes;
  bool wasLit = false;
  camera.frames->onFrame = [&](const auto& sample) {
    const bool isLit = VirtualPicture(sample->imageBuffer()).isFlash();
    if (isLit && !std::exchange(wasLit, isLit)) flashes.push_back(sample->presentationTimeStamp().seconds());
    wasLit = isLit;
  };
  camera.session->startRunning();
  ASSERT_TRUE(clock->runFor(0.4321));
  microphone->startRunning();
  run(camera, *clock, 5);
  camera.session->stopRunning();
  microphone->stopRunning();
  queue->sync([] {});
  std::vector<double> beeps;
  for (const std::size_t onset : SyntheticSound::findBeepOnsets(samples->samples(), 48000)) {
    beeps.push_back(samples->start().seconds() + static_cast<double>(onset) / 48000);
  }
  ASSERT_GE(beeps.size(), 4U);
  for (const double beep : beeps) {
    const bool isMet = std::any_of(flashes.begin(), flashes.end(),
                                   [&](double flash) { return std::abs(flash - beep) < 1.0 / 60 + 0.002; });
    EXPECT_TRUE(isMet) << beep;
  }
  const auto channels = sound->connectionWithMediaType(MediaType::audio)->audioChannels();
  ASSERT_EQ(channels.size(), 1U);
  EXPECT_LT(channels[0]->averagePowerLevel(), -30);  // the quiet tone between beeps
  EXPECT_GT(channels[0]->averagePowerLevel(), -60);
  EXPECT_GE(channels[0]->peakHoldLevel(), channels[0]->averagePowerLevel());
}

TEST_F(CaptureSessionTest, GoesOnWhenItsCameraIsUnpluggedFailsOrFreezes) {
  CameraBench camera(device(Virtual::kBackCamera));
  const NotificationCounter errors(kCaptureSessionRuntimeErrorNotification, camera.session.get());
  const NotificationCounter recoveries(kCaptureSessionDidRecoverNotification, camera.session.get());
  const NotificationCounter gone(kCaptureDeviceWasDisconnectedNotification, camera.device.get());
  const NotificationCounter back(kCaptureDeviceWasConnectedNotification, camera.device.get());
  const auto delivers = [&] {
    camera.queue->sync([&] { camera.frames->clear(); });
    return eventually([&] { return camera.frames->count() > 2; });
  };
  camera.configure([](CaptureDevice& device) { device.setTorchMode(CaptureTorchMode::on); });
  camera.session->startRunning();
  ASSERT_TRUE(delivers());
  const int lit = brightness(*camera.frames);

  bench().setConnected(Virtual::kBackCamera, false);
  ASSERT_TRUE(eventually([&] { return errors.count() == 1 && gone.count() == 1; }));
  EXPECT_THAT(camera.session->runtimeError()->description, ::testing::HasSubstr("unplugged"));
  EXPECT_EQ(*camera.session->runtimeError(), CaptureErrorCode::unplugged);
  EXPECT_TRUE(camera.session->isRunning());
  EXPECT_FALSE(camera.device->isConnected());
  EXPECT_FALSE(camera.device->lockForConfiguration().has_value());
  EXPECT_FALSE(CaptureDeviceInput::create(camera.device).has_value());
  EXPECT_EQ(CaptureDevice::devicesWithMediaType(MediaType::video).size(), 1U);
  bench().setConnected(Virtual::kBackCamera, true);
  ASSERT_TRUE(eventually([&] { return recoveries.count() == 1 && back.count() == 1; }));
  EXPECT_EQ(device(Virtual::kBackCamera), camera.device) << "the same object under the same identity";
  ASSERT_TRUE(delivers());
  EXPECT_NEAR(brightness(*camera.frames), lit, 3) << "settings are applied again";
  EXPECT_FALSE(camera.session->runtimeError().has_value());

  bench().setOpenError(Virtual::kBackCamera, makeError(CaptureErrorCode::busy, "the device is busy"));
  bench().failDevice(Virtual::kBackCamera, makeError(CaptureErrorCode::deviceFailed, "input/output error"));
  ASSERT_TRUE(eventually([&] { return errors.count() == 2; }));
  ASSERT_TRUE(eventually([&] { return camera.session->runtimeError()->description == "the device is busy"; }));
  bench().setOpenError(Virtual::kBackCamera, std::nullopt);
  ASSERT_TRUE(eventually([&] { return recoveries.count() == 2; }));

  bench().setStalled(Virtual::kBackCamera, true);
  ASSERT_TRUE(eventually([&] { return errors.count() == 3; }));
  EXPECT_THAT(camera.session->runtimeError()->description, ::testing::HasSubstr("no picture for 4 seconds"));
  EXPECT_EQ(*camera.session->runtimeError(), CaptureErrorCode::deviceSilent);
  bench().setStalled(Virtual::kBackCamera, false);
  ASSERT_TRUE(eventually([&] { return recoveries.count() == 3; }));
  EXPECT_EQ(errors.count(), 3);
}

TEST_F(CaptureSessionTest, StartsWithWhatCannotBeOpenedAndSaysSo) {
  bench().setOpenError(Virtual::kFrontCamera, makeError(CaptureErrorCode::busy, "the device is busy"));
  CameraBench camera(device(Virtual::kFrontCamera));
  camera.session->startRunning();
  EXPECT_TRUE(camera.session->isRunning());
  EXPECT_EQ(camera.session->runtimeError()->description, "the device is busy");
  camera.session->stopRunning();
  bench().setOpenError(Virtual::kFrontCamera, std::nullopt);
  camera.session->startRunning();
  EXPECT_FALSE(camera.session->runtimeError().has_value());
  CameraBench second(device(Virtual::kFrontCamera));
  second.session->startRunning();
  EXPECT_THAT(second.session->runtimeError()->description, ::testing::HasSubstr("another session"));
  EXPECT_EQ(*second.session->runtimeError(), CaptureErrorCode::busy);
  // Without an input it runs, too.
  const auto empty = CaptureSession::create();
  empty->addOutput(CaptureVideoDataOutput::create());
  empty->startRunning();
  EXPECT_TRUE(empty->isRunning());
}

TEST_F(CaptureSessionTest, StopsAndLetsGoOfEverythingWithItsLastOwner) {
  auto session = CaptureSession::create();
  auto output = CaptureVideoDataOutput::create();
  const std::weak_ptr<CaptureVideoDataOutput> held = output;
  const auto input = CaptureDeviceInput::create(device(Virtual::kBackCamera)).value();
  session->addOutput(std::move(output));
  session->addInput(input);
  session->startRunning();
  ASSERT_FALSE(session->runtimeError().has_value());
  session = nullptr;
  EXPECT_TRUE(eventually([&] { return held.expired(); }));
  CameraBench next(input->device());
  next.session->startRunning();
  EXPECT_FALSE(next.session->runtimeError().has_value()) << "the camera is free again";
}

TEST_F(CaptureSessionTest, ChangesAndStopsFromDelegatesAndOtherThreads) {
  CameraBench camera(device(Virtual::kBackCamera));
  const auto back = camera.input;
  const auto front = CaptureDeviceInput::create(device(Virtual::kFrontCamera)).value();
  std::atomic<int> stops = 0;
  camera.frames->onFrame = [&](const auto&) {
    if (camera.frames->count() % 5 != 0) return;
    camera.session->stopRunning();
    ++stops;
    camera.session->startRunning();
  };
  camera.session->startRunning();
  auto current = back;
  for (int i = 0; i < 20; ++i) {
    camera.session->beginConfiguration();
    camera.session->removeInput(current);
    current = current == back ? front : back;
    camera.session->addInput(current);
    camera.session->commitConfiguration();
    std::this_thread::sleep_for(20ms);
  }
  EXPECT_TRUE(eventually([&] { return stops > 1; }));
  camera.queue->sync([&] { camera.frames->onFrame = nullptr; });
  camera.session->stopRunning();
  camera.queue->sync([&] { camera.frames->clear(); });
  std::this_thread::sleep_for(80ms);
  EXPECT_EQ(camera.frames->count(), 0U);
}

TEST_F(CaptureSessionTest, RefusesWhatItIsToldToRefuse) {
  CameraBench camera(device(Virtual::kBackCamera));
  const auto front = CaptureDeviceInput::create(device(Virtual::kFrontCamera)).value();
  EXPECT_FALSE(camera.session->canAddInput(front)) << "there is a camera already";
  EXPECT_FALSE(camera.session->canAddInput(nullptr));
  EXPECT_FALSE(CaptureSession::create()->canAddOutput(camera.data)) << "it belongs to another session";
  camera.session->removeInput(camera.input);
  EXPECT_TRUE(camera.session->canAddInput(front));
  bench().setInputRefusal(
      [](const CaptureDevice& device) { return device.position() == CaptureDevicePosition::front; });
  EXPECT_FALSE(camera.session->canAddInput(front));
  EXPECT_TRUE(camera.session->canAddInput(camera.input));
  bench().setOutputRefusal(
      [](const CaptureOutput& output) { return dynamic_cast<const CaptureStillImageOutput*>(&output) != nullptr; });
  EXPECT_FALSE(camera.session->canAddOutput(CaptureStillImageOutput::create()));
  EXPECT_TRUE(camera.session->canAddOutput(CaptureVideoDataOutput::create()));
  EXPECT_DEATH(camera.session->addInput(front), "addInput was called with an input that canAddInput refuses");
  EXPECT_DEATH(camera.session->commitConfiguration(), "without beginConfiguration");
  camera.session->removeOutput(camera.data);
  EXPECT_EQ(camera.data->connectionWithMediaType(MediaType::video), nullptr);
  EXPECT_TRUE(CaptureSession::create()->canAddOutput(camera.data));
}

}  // namespace
}  // namespace tavrel::test
