#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "Platform/Media/SampleBuffer.h"
#include "Support/VirtualFrames.h"
#include "TavrelCaptureTesting.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

constexpr std::int32_t kScale = CaptureClock::kTimescale;

TEST(VirtualMicrophone, KnowsItsNamesAndLimits) {
  const auto clock = std::make_shared<FastClock>();
  const VirtualMicrophone::Configuration usual{48000, AudioSampleType::float32, clock};
  EXPECT_TRUE(VirtualMicrophone::create("synthetic", usual).has_value());
  EXPECT_THAT(VirtualMicrophone::create("front", usual).error().description, HasSubstr("synthetic or file:PATH"));
  EXPECT_THAT(VirtualMicrophone::create("file:/missing.wav", usual).error().description, HasSubstr("/missing.wav"));
  EXPECT_THAT(VirtualMicrophone::create("synthetic", {7999, AudioSampleType::float32, clock}).error().description,
              HasSubstr("8000 to 192000"));
}

TEST(VirtualMicrophone, DeliversEverySampleAtItsExactTime) {
  for (const int rate : {48000, 44100}) {
    for (const auto type : {AudioSampleType::float32, AudioSampleType::int16}) {
      const auto clock = std::make_shared<FastClock>();
      const auto queue = DispatchQueue::create("test.microphone");
      const auto microphone = VirtualMicrophone::create("synthetic", {rate, type, clock}).value();
      const MediaTime start = clock->now();
      std::int64_t samples = 0;
      microphone->start(
          [&](const std::shared_ptr<SampleBuffer>& buffer) {
            EXPECT_EQ(buffer->numSamples(), VirtualMicrophone::kSamplesPerBuffer);
            const AudioFormat expected{static_cast<double>(rate), 1, type, true};
            EXPECT_EQ(buffer->format()->audioFormat, expected);
            EXPECT_EQ(buffer->presentationTimeStamp(),
                      start + MediaTime::make(samples, rate).convertedToTimescale(kScale));
            samples += buffer->numSamples();
          },
          queue);
      ASSERT_TRUE(clock->runFor(10));
      queue->sync([] {});
      microphone->stop();
      EXPECT_EQ(samples, rate * 10 / 256 * 256);
      EXPECT_EQ(microphone->droppedBuffers(), 0U);
    }
  }
}

TEST(VirtualMicrophone, KeepsRealTime) {
  const auto queue = DispatchQueue::create("test.microphone");
  const auto microphone = VirtualMicrophone::create("synthetic", {}).value();
  const auto& clock = CaptureClock::realTime();
  int early = 0;
  microphone->start(
      [&](const std::shared_ptr<SampleBuffer>& buffer) {
        if (clock->now() < buffer->presentationTimeStamp() + buffer->duration() - MediaTime::make(1, 1000)) ++early;
      },
      queue);
  std::this_thread::sleep_for(500ms);
  microphone->stop();
  EXPECT_EQ(early, 0);
  EXPECT_GE(microphone->deliveredBuffers() + microphone->droppedBuffers(), 88U);
  EXPECT_LE(microphone->deliveredBuffers(), 400U);
}

// The property that recordings are measured by: the flash's first frame and the beep's first sample have the same time.
TEST(VirtualMicrophone, BeepsWhenTheCameraFlashes) {
  const auto clock = std::make_shared<FastClock>();
  const auto queue = DispatchQueue::create("test.both");
  const auto camera = VirtualCamera::create("front", {64, 48, 30, clock}).value();
  const auto microphone = VirtualMicrophone::create("synthetic", {48000, AudioSampleType::float32, clock}).value();
  const MediaTime start = clock->now() + MediaTime::make(3, 10);
  std::vector<double> flashes;
  std::vector<float> sound;
  bool wasLit = false;
  MediaTime latestPicture = start;
  double furthestApart = 0;
  camera->start(
      [&](const std::shared_ptr<PixelBuffer>& buffer, MediaTime time) {
        const bool isLit = VirtualPicture(buffer).isFlash();
        if (isLit && !wasLit) flashes.push_back((time - start).seconds());
        wasLit = isLit;
        latestPicture = time;
      },
      queue, start);
  microphone->start(
      [&](const std::shared_ptr<SampleBuffer>& buffer) {
        const auto* samples = static_cast<const float*>(buffer->audioBufferList()->buffers().front().data);
        sound.insert(sound.end(), samples, samples + buffer->numSamples());
        const MediaTime end = buffer->presentationTimeStamp() + buffer->duration();
        furthestApart = std::max(furthestApart, std::abs((end - latestPicture).seconds()));
      },
      queue, start);
  ASSERT_TRUE(clock->runFor(6));
  queue->sync([] {});
  camera->stop();
  microphone->stop();
  const auto onsets = SyntheticSound::findBeepOnsets(sound, 48000);
  ASSERT_EQ(flashes.size(), 6U);
  ASSERT_EQ(onsets.size(), 6U);
  for (std::size_t i = 0; i < flashes.size(); ++i) {
    EXPECT_NEAR(flashes[i], static_cast<double>(i), 1e-6);
    EXPECT_NEAR(static_cast<double>(onsets[i]) / 48000, flashes[i], 0.001);
  }
  // In order on the common clock: sound never runs ahead of the picture by more than a frame, nor behind it.
  EXPECT_LT(furthestApart, 0.035);
}

}  // namespace
}  // namespace tavrel::test
