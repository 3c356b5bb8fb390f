// Sound beside the pictures or alone, and the pauses that are cut out of both.
#include <numeric>

#include "MovieWriterTestSupport.h"

namespace tavrel::test {
namespace {

using MovieWriterSoundTest = MovieWriterTest;

TEST_F(MovieWriterSoundTest, PausesAreCutOutOfBothTracks) {
  createNotLive();
  writer_->setHasAudioTrack(true);
  writer_->startRecording();
  // 21.3 ms of sound and a frame each 1/25 s, from an arbitrary start; the first sample after each pause is a frame.
  const MediaTime start = MediaTime::make(1'000'000'000'000, 100'000'000);
  std::int64_t soundSample = 0;
  const auto sendUntil = [&](int firstFrame, int lastFrame) {
    for (int i = firstFrame; i < lastFrame; ++i) {
      sendFrame(start + MediaTime::make(i, 25));
      for (; soundSample < std::int64_t{i + 1} * kRate / 25; soundSample += 1024) {
        sendSound(start + MediaTime::make(soundSample, kRate));
      }
    }
  };
  sendUntil(0, 25);
  for (const int pauseStart : {25, 100}) {
    writer_->setPaused(true);
    writer_->setPaused(true);
    sendUntil(pauseStart, pauseStart + 50);  // 2 s, discarded
    writer_->setPaused(false);
    sendUntil(pauseStart + 50, pauseStart + 75);
  }
  finish();

  const std::vector<double> seconds = frameSeconds();
  ASSERT_GE(seconds.size(), 72U);
  for (std::size_t i = 1; i < seconds.size(); ++i) EXPECT_NEAR(seconds[i] - seconds[i - 1], 0.04, 0.001) << i;
  const auto [length, largestStep] = soundLengthAndLargestStep();
  EXPECT_NEAR(length, seconds.back() + 0.04, 0.06);
  EXPECT_LT(largestStep, 0.001);
}

TEST_F(MovieWriterSoundTest, APauseIsMeasuredOnTheRawFirstSample) {
  createNotLive();
  writer_->startRecording();
  sendFrame(MediaTime::make(10, 10));
  writer_->setPaused(true);
  sendFrame(MediaTime::make(20, 10));
  writer_->setPaused(false);
  sendFrame(MediaTime::make(30, 10));  // measures the gap of 2 s and lands on the last frame's time: left out
  sendFrame(MediaTime::make(31, 10));
  writer_->setPaused(true);
  writer_->setPaused(false);
  sendFrame(MediaTime::make(51, 10));
  sendFrame(MediaTime::make(52, 10));
  finish();
  EXPECT_THAT(frameSeconds(), ::testing::ElementsAre(::testing::DoubleNear(0, 1e-3), ::testing::DoubleNear(0.1, 2e-3),
                                                     ::testing::DoubleNear(0.2, 2e-3)));
}

TEST_F(MovieWriterSoundTest, TheCallbackSeesAndChangesSound) {
  createNotLive();
  writer_->setHasAudioTrack(true);
  int calls = 0;
  writer_->setAudioProcessingCallback([&](void** samples, Index count) {
    EXPECT_EQ(count, 1024);
    auto* const values = static_cast<float*>(*samples);
    for (Index i = 0; i < count; ++i) values[i] = (i / 24) % 2 ? 0.5F : -0.5F;
    ++calls;
  });
  writer_->startRecording();
  for (int i = 0; i < 20; ++i) {
    sendFrame(MediaTime::make(i * 1024, kRate));
    sendSound(MediaTime::make(i * 1024, kRate));
  }
  finish();
  EXPECT_EQ(calls, 20);
  double energy = 0;
  forEachSample(MediaType::audio, [&](SampleBuffer& sample) {
    const auto list = sample.audioBufferList();
    const auto* const values = static_cast<const float*>(list->buffers()[0].data);
    energy = std::inner_product(values, values + sample.numSamples(), values, energy);
  });
  EXPECT_GT(energy / (20 * 1024), 0.1);
}

TEST_F(MovieWriterSoundTest, WithoutAVideoTrackSoundAloneIsRecorded) {
  create({{kTavrelHasVideoTrackKey, false}, {kTavrelEncodingLiveVideoKey, false}});
  EXPECT_EQ(writer_->transform(), AffineTransform::zero());
  writer_->setHasAudioTrack(true);
  writer_->startRecording();
  for (int i = 0; i < 50; ++i) sendSound(MediaTime::make(i * 1024, kRate), 1024, 0.5F);
  EXPECT_NEAR(writer_->duration().seconds(), 49 * 1024.0 / kRate, 1e-6);
  finish();
  EXPECT_NEAR(soundLengthAndLargestStep().first, 50 * 1024.0 / kRate, 0.03);
}

}  // namespace
}  // namespace tavrel::test
