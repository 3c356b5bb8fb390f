#include <cmath>
#include <future>

#include "Platform/Foundation/Notifications.h"
#include "Support/CameraTestSupport.h"

namespace tavrel {
namespace {

using Bench = VirtualCaptureSystem;

/// Keeps the sound that a microphone hands out.
class SoundRecorder : public TavrelMicrophoneDelegate {
 public:
  void didGetProcessedSampleBuffer(TavrelMicrophone&, const std::shared_ptr<SampleBuffer>& sampleBuffer) override {
    EXPECT_TRUE(RunLoop::isMainThread());
    const AudioBuffer& buffer = sampleBuffer->audioBufferList()->buffers().front();
    for (std::size_t i = 0; i < buffer.byteSize; ++i) {
      isSilent = isSilent && static_cast<const std::uint8_t*>(buffer.data)[i] == 0;
    }
    latest = sampleBuffer;
    frames += sampleBuffer->numSamples();
  }

  bool isSilent = true;
  std::int64_t frames = 0;
  std::shared_ptr<SampleBuffer> latest;
};

class MicrophoneTest : public test::CaptureClassTest {
 protected:
  ~MicrophoneTest() override {
    if (microphone_) microphone_->stop();
  }
  void make(bool mute) {
    auto made = TavrelMicrophone::create({.mute = mute, .deviceID = ""});
    ASSERT_TRUE(made.has_value()) << made.error().description;
    microphone_ = *made;
    microphone_->setDelegate(recorder_);
  }
  /// 1 or 0 for the answer's access, and the error's text.
  std::pair<int, std::string> start() {
    std::atomic<int> answer = -1;
    std::string text;
    microphone_->startWithCompletion([&](bool isGranted, const std::optional<Error>& error) {
      if (error) text = error->description;
      answer = isGranted;
    });
    EXPECT_TRUE(runUntil([&] { return answer >= 0; }));
    return {answer, text};
  }
  /// Sound for a second and more: with the beep at its start.
  bool hearASecond() {
    const std::int64_t before = recorder_->frames;
    return runUntil([&] { return recorder_->frames > before + 60'000; });
  }

  const std::shared_ptr<SoundRecorder> recorder_ = std::make_shared<SoundRecorder>();
  std::shared_ptr<TavrelMicrophone> microphone_;
};

TEST_F(MicrophoneTest, SoundComesOnTheCamerasClock) {
  make(false);
  EXPECT_EQ(microphone_->averagePowerLevel(), 0);
  EXPECT_EQ(start(), (std::pair<int, std::string>{1, ""}));
  EXPECT_TRUE(microphone_->running());
  EXPECT_EQ(start().first, 1);
  ASSERT_TRUE(hearASecond());
  EXPECT_FALSE(recorder_->isSilent);
  const SampleTiming timing = recorder_->latest->timingEntries().front();
  EXPECT_NEAR(timing.presentationTimeStamp.seconds(), CaptureClock::current()->nowSeconds(), 1);
  EXPECT_EQ(timing.presentationTimeStamp.timescale, 100'000'000);
  EXPECT_NEAR(timing.duration.seconds(), 1 / 48000.0, 1e-6);
  EXPECT_LT(microphone_->averagePowerLevel(), 0);
  EXPECT_EQ(AudioSession::shared().category(), AudioSessionCategory::playAndRecord);
  EXPECT_EQ(AudioSession::shared().categoryOptions(), 0x28U);
  microphone_->stop();
  EXPECT_FALSE(microphone_->running());
}

TEST_F(MicrophoneTest, NoSoundComesAfterTheStop) {
  make(false);
  for (int round = 0; round < 20; ++round) {
    start();
    const std::int64_t before = recorder_->frames;
    ASSERT_TRUE(runUntil([&] { return recorder_->frames > before + 512; }));
    auto stopping = std::async(std::launch::async, [&] {
      microphone_->stop();
      return recorder_->frames;
    });
    ASSERT_TRUE(runUntil([&] { return stopping.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    runFor(std::chrono::milliseconds(10));
    EXPECT_EQ(recorder_->frames, stopping.get());
  }
}

TEST_F(MicrophoneTest, MutedSoundKeepsComing) {
  make(true);
  start();
  ASSERT_TRUE(hearASecond());
  EXPECT_TRUE(recorder_->isSilent);
  microphone_->setMute(false);
  ASSERT_TRUE(hearASecond());
  EXPECT_FALSE(recorder_->isSilent);
}

TEST_F(MicrophoneTest, WhatFailsIsSaid) {
  Bench::shared().setInputRefusal([](const CaptureDevice&) { return true; });
  const auto refusedInput = TavrelMicrophone::create({});
  ASSERT_FALSE(refusedInput.has_value());
  EXPECT_EQ(refusedInput.error().description, "audio input can not be added to session");
  EXPECT_EQ(refusedInput.error().code, -4002);
  EXPECT_EQ(logged("audio input can not be added to session"), 1U);
  Bench::shared().setInputRefusal({});
  Bench::shared().setOutputRefusal([](const CaptureOutput&) { return true; });
  const auto refusedOutput = TavrelMicrophone::create({});
  ASSERT_FALSE(refusedOutput.has_value());
  EXPECT_EQ(refusedOutput.error().description, "audio data output can not be added to session");
  Bench::shared().setOutputRefusal({});
  Bench::shared().setInputError(Bench::kMicrophone, Error{"capture", 5, "unplugged"});
  EXPECT_EQ(TavrelMicrophone::create({}).error().description, "unplugged");
  Bench::shared().setInputError(Bench::kMicrophone, std::nullopt);

  make(false);
  Bench::shared().setAccessGranted(false);
  EXPECT_EQ(start(), (std::pair<int, std::string>{0, ""}));
  EXPECT_FALSE(microphone_->running());
  Bench::shared().setAccessGranted(true);
  Bench::shared().setAudioCategoryError(Error{"media", 7, "no loudspeaker"});
  EXPECT_EQ(start(), (std::pair<int, std::string>{1, "no loudspeaker"}));
  EXPECT_FALSE(microphone_->running());
  NotificationCenter::defaultCenter().post(kAudioSessionMediaServicesWereResetNotification);
  EXPECT_EQ(logged("mediaServicesWereReset, but setupAudioSession error: no loudspeaker"), 1U);
}

}  // namespace
}  // namespace tavrel
