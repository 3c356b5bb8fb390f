#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "Platform/Capture/CaptureDevice.h"
#include "Support/CaptureTestSupport.h"
#include "Support/VirtualFrames.h"
#include "TavrelCaptureTesting.h"

namespace tavrel::test {
namespace {

constexpr std::int32_t kScale = CaptureClock::kTimescale;

class VirtualDeviceTest : public ::testing::Test {
 protected:
  void TearDown() override { VirtualCaptureSystem::shared().reset(); }

  static std::shared_ptr<CaptureDevice> device(std::string_view uniqueID) {
    return CaptureDevice::deviceWithUniqueID(uniqueID);
  }
  static std::shared_ptr<FastClock> useFastClock() {
    auto clock = std::make_shared<FastClock>();
    VirtualCaptureSystem::shared().setClock(clock);
    return clock;
  }
  static void setRate(const CameraBench& camera, MediaTime duration) {
    camera.configure([&](CaptureDevice& device) { device.setActiveVideoMinFrameDuration(duration); });
  }
  static void run(const CameraBench& camera, FastClock& clock, double seconds) {
    ASSERT_TRUE(clock.runFor(seconds));
    camera.queue->sync([] {});
  }
};

TEST_F(VirtualDeviceTest, FramesHaveTheirExactTimesAtEachRate) {
  for (const MediaTime duration : {MediaTime::make(1, 30), MediaTime::make(1001, 30000), MediaTime::make(1, 24)}) {
    const auto clock = useFastClock();
    CameraBench camera(device(VirtualCaptureSystem::kFrontCamera));
    setRate(camera, duration);
    std::vector<std::uint32_t> numbers;
    camera.frames->onFrame = [&](const auto& sample) {
      numbers.push_back(VirtualPicture(sample->imageBuffer()).counter().value());
    };
    camera.session->startRunning();
    run(camera, *clock, 20.01);
    camera.session->stopRunning();
    const auto times = camera.frames->times();
    ASSERT_GE(times.size(), static_cast<std::size_t>(20 / duration.seconds()));
    for (std::size_t i = 0; i < times.size(); ++i) {
      ASSERT_EQ(numbers[i], i);
      ASSERT_EQ(times[i].timescale, kScale);
      ASSERT_NEAR(static_cast<double>(times[i].value - times[0].value),
                  static_cast<double>(i) * duration.seconds() * kScale, 100);
    }
  }
}

TEST_F(VirtualDeviceTest, KeepsRealTimeAndCountsWhatItLeavesOut) {
  CameraBench camera(device(VirtualCaptureSystem::kBackCamera));
  std::atomic<int> early = 0;
  std::vector<std::uint32_t> numbers;
  camera.frames->onFrame = [&](const auto& sample) {
    if (CaptureClock::realTime()->now() < sample->presentationTimeStamp()) ++early;
    numbers.push_back(VirtualPicture(sample->imageBuffer()).counter().value());
  };
  camera.session->startRunning();
  ASSERT_TRUE(eventually([&] { return camera.frames->count() >= 10; }));
  camera.session->stopRunning();
  camera.queue->sync([] {});
  EXPECT_EQ(early, 0);
  const auto times = camera.frames->times();
  EXPECT_LE(numbers.back() + 1, camera.data->deliveredFrames() + camera.data->droppedFrames());
  for (std::size_t i = 0; i < times.size(); ++i) {
    EXPECT_NEAR(static_cast<double>(times[i].value - times[0].value), (numbers[i] - numbers[0]) / 30.0 * kScale, 2);
  }
}

TEST_F(VirtualDeviceTest, AnotherFrameRateLeavesTheFlashOnItsSecond) {
  const auto clock = useFastClock();
  CameraBench camera(device(VirtualCaptureSystem::kFrontCamera));
  camera.session->startRunning();
  run(camera, *clock, 0.55);  // the frame at 0.567 s of the scene is due next
  const std::size_t before = camera.frames->count();
  setRate(camera, MediaTime::make(1, 25));
  run(camera, *clock, 1);
  camera.session->stopRunning();
  const auto times = camera.frames->times();
  ASSERT_GE(times.size(), before + 25);
  const auto sceneTimeOf = [&](std::size_t frame) { return static_cast<double>(times[frame].value % kScale) / kScale; };
  EXPECT_NEAR(sceneTimeOf(before), 17 / 30.0, 1e-6);
  for (std::size_t i = before + 1; i < times.size(); ++i) {
    EXPECT_NEAR(sceneTimeOf(i) * 25, std::round(sceneTimeOf(i) * 25), 1e-4);
    EXPECT_NEAR((times[i] - times[before]).seconds(), 0.6 - 17 / 30.0 + 0.04 * static_cast<double>(i - before - 1),
                1e-6);
  }
}

TEST_F(VirtualDeviceTest, SoundIsDeliveredSampleForSample) {
  const auto clock = useFastClock();
  const auto session = CaptureSession::create();
  const auto output = CaptureAudioDataOutput::create();
  struct Listener : CaptureAudioDataOutputSampleBufferDelegate {
    MediaTime start;
    std::int64_t samples = 0;
    void didOutputSampleBuffer(CaptureAudioDataOutput&, const std::shared_ptr<SampleBuffer>& buffer,
                               const std::shared_ptr<CaptureConnection>&) override {
      EXPECT_EQ(buffer->format()->audioFormat, AudioFormat());
      EXPECT_EQ(buffer->presentationTimeStamp(), start + MediaTime::make(samples, 48000).convertedToTimescale(kScale));
      samples += buffer->numSamples();
    }
  };
  const auto listener = std::make_shared<Listener>();
  listener->start = clock->now();
  const auto queue = DispatchQueue::create("test.sound");
  output->setSampleBufferDelegate(listener, queue);
  session->addInput(CaptureDeviceInput::create(device(VirtualCaptureSystem::kMicrophone)).value());
  session->addOutput(output);
  session->startRunning();
  ASSERT_TRUE(clock->runFor(10));
  queue->sync([] {});
  session->stopRunning();
  EXPECT_EQ(listener->samples, 48000 * 10 / 256 * 256);
  EXPECT_EQ(output->droppedBuffers(), 0U);
}

}  // namespace
}  // namespace tavrel::test
