// Which pictures come, when, and which way up.
#include <algorithm>
#include <cmath>
#include <set>
#include <vector>

#include "CaptureSessionTestSupport.h"
#include "Platform/Dispatch/DispatchSemaphore.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;
using CaptureSessionFramesTest = CaptureSessionTest;

/// Notes when the flashes begin. One that shows in the first picture counts unless `wasLit`.
void collectFlashes(FrameCollector& frames, std::vector<double>& flashes, bool wasLit) {
  frames.onFrame = [&flashes, wasLit](const auto& sample) mutable {
    const bool isLit = VirtualPicture(sample->imageBuffer()).isFlash();
    if (isLit && !wasLit) flashes.push_back(sample->presentationTimeStamp().seconds());
    wasLit = isLit;
  };
}

TEST_F(CaptureSessionFramesTest, DeliversEveryPictureInOrderAndReusesMemory) {
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

TEST_F(CaptureSessionFramesTest, DropsAndReportsLatePictures) {
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
TEST_F(CaptureSessionFramesTest, FlashesBeginWithAWholeSecondWheneverTheCameraStarted) {
  for (const double start : {1'700'000'000.0, 1'700'000'000.0117, 1'700'000'000.9, 1'700'000'000.99}) {
    const auto clock = std::make_shared<FastClock>(MediaTime::fromSeconds(start, CaptureClock::kTimescale));
    bench().setClock(clock);
    CameraBench camera(device(Virtual::kBackCamera));
    std::vector<double> flashes;
    collectFlashes(*camera.frames, flashes, true);
    camera.session->startRunning();
    run(camera, *clock, 2.5);
    camera.session->stopRunning();
    ASSERT_GE(flashes.size(), 2U) << start;
    for (const double flash : flashes) EXPECT_NEAR(flash, std::round(flash), 2e-6) << start;
  }
}

TEST_F(CaptureSessionFramesTest, FlashAndBeepMeetThoughTheDevicesStartApart) {
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
  collectFlashes(*camera.frames, flashes, false);
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

TEST_F(CaptureSessionFramesTest, TurnsPicturesForEachOrientationAndMirrorsThem) {
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

}  // namespace
}  // namespace tavrel::test
