// Sound stands where it was heard, beside the pictures of that time, and goes on undisturbed.
#include <cmath>
#include <complex>
#include <cstdint>
#include <fstream>
#include <numbers>
#include <thread>

#include "RecorderFixture.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;
using RecorderSoundTest = TavrelRecorderTest;

constexpr int kToneRate = 48000;
constexpr double kTone = 440;

/// Ten seconds of a pure tone, as a WAV file of 16-bit samples.
void writeTone(const std::filesystem::path& file) {
  std::vector<std::int16_t> samples(std::size_t{kToneRate} * 10);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i] =
        static_cast<std::int16_t>(16000 * std::sin(2 * std::numbers::pi * kTone * static_cast<double>(i) / kToneRate));
  }
  const auto bytes = static_cast<std::uint32_t>(samples.size() * 2);
  std::ofstream stream(file, std::ios::binary);
  const auto put = [&](auto value) { stream.write(reinterpret_cast<const char*>(&value), sizeof(value)); };
  stream << "RIFF";
  put(bytes + 36);
  stream << "WAVEfmt ";
  put(std::uint32_t{16});
  put(std::uint16_t{1});  // PCM
  put(std::uint16_t{1});  // mono
  put(std::uint32_t{kToneRate});
  put(std::uint32_t{kToneRate} * 2);
  put(std::uint16_t{2});
  put(std::uint16_t{16});
  stream << "data";
  put(bytes);
  stream.write(reinterpret_cast<const char*>(samples.data()), bytes);
}

/// The tone in each 10 ms, as a vector that stands still while the tone goes on undisturbed.
std::vector<std::complex<double>> tonesOf(const std::vector<float>& sound) {
  constexpr std::size_t kWindow = kToneRate / 100;
  std::vector<std::complex<double>> tones;
  for (std::size_t first = 0; first + kWindow <= sound.size(); first += kWindow) {
    std::complex<double> sum;
    for (std::size_t i = first; i < first + kWindow; ++i) {
      sum +=
          std::polar(static_cast<double>(sound[i]), -2 * std::numbers::pi * kTone * static_cast<double>(i) / kToneRate);
    }
    tones.push_back(2.0 * sum / static_cast<double>(kWindow));
  }
  return tones;
}

TEST_F(RecorderSoundTest, FlashAndBeepStandTogetherAndEveryFrameIsAccountedFor) {
  ASSERT_NO_FATAL_FAILURE(startRecording());
  runFor(4500ms);
  const RecordingObservation seen = finish();
  ASSERT_EQ(seen.error, "");
  EXPECT_EQ(seen.frameTimes.size(), recording_.statistics.framesWritten);
  EXPECT_EQ(recording_.statistics.soundLostInWriter, 0U);
  const auto offsets = seen.offsets();
  ASSERT_GE(offsets.size(), 2U);
  for (const auto& offset : offsets) EXPECT_LE(std::abs(offset.seconds), 0.010) << "at " << offset.at;
  EXPECT_NEAR(static_cast<double>(seen.sound.size()) / seen.sampleRate, seen.frameTimes.back(), 0.5);
}

// A camera that is late by more than a beep, and sound that is moved besides.
TEST_F(RecorderSoundTest, WhatDevicesTellOfTheirLatencyIsCorrected) {
  VirtualCaptureSystem::shared().setLatency(VirtualCaptureSystem::kFrontCamera, 0.3);
  ASSERT_NO_FATAL_FAILURE(startRecording({.size = {320, 240}, .audioOffset = 0.1}));
  runFor(3500ms);
  recorder_->camera()->setBlurSwitch(false);
  // The other one is not late: its first frames are of the time of those that the first one still shows.
  recorder_->camera()->switchCamera();
  runFor(2000ms);
  const RecordingObservation seen = finish();
  ASSERT_EQ(seen.error, "");
  const auto offsets = seen.offsets();
  ASSERT_GE(offsets.size(), 3U);
  for (const auto& offset : offsets) EXPECT_NEAR(offset.seconds, 0.1, 0.010) << "at " << offset.at;
  for (std::size_t i = 1; i < seen.frameTimes.size(); ++i) EXPECT_GT(seen.frameTimes[i], seen.frameTimes[i - 1]);
  EXPECT_NEAR(static_cast<double>(seen.sound.size()) / seen.sampleRate, seen.frameTimes.back(), 0.5);
}

// Sound is stamped when the main thread takes it, and applications keep that busy.
TEST_F(RecorderSoundTest, ABusyMainThreadIsNotHeard) {
  const auto tone = folder_ / "tone.wav";
  writeTone(tone);
  const auto device = CaptureDevice::addFile(tone, MediaType::audio);
  ASSERT_TRUE(device.has_value()) << device.error().description;
  ASSERT_NO_FATAL_FAILURE(startRecording({.microphone = (*device)->uniqueID(), .size = {320, 240}}));
  runFor(300ms);
  for (const auto pause : {4ms, 8ms, 15ms, 30ms, 60ms, 120ms, 200ms}) {
    std::this_thread::sleep_for(pause);
    runFor(300ms);
  }
  const RecordingObservation seen = finish();
  VirtualCaptureSystem::shared().removeFiles();
  ASSERT_EQ(seen.error, "");
  EXPECT_EQ(recording_.statistics.soundLostInWriter, 0U);
  const auto tones = tonesOf(seen.sound);
  ASSERT_GT(tones.size(), 250U);
  // Where the sound begins it is placed by its first buffer, whose time may be late.
  std::string heard;
  for (std::size_t i = 20; i + 10 < tones.size(); ++i) {
    const bool isUndisturbed = std::abs(tones[i]) > 0.4 && std::abs(std::arg(tones[i] / tones[i - 1])) < 0.4;
    if (!isUndisturbed) heard += std::to_string(i * 10) + " ms ";
  }
  EXPECT_EQ(heard, "");
}

// Without real time nothing is late: what is left is what the recorder makes of the stamps.
TEST_F(RecorderSoundTest, SoundStandsWhereItWasHeard) {
  const auto clock = std::make_shared<FastClock>();
  VirtualCaptureSystem::shared().setClock(clock);
  ASSERT_NO_FATAL_FAILURE(make());
  ASSERT_NO_FATAL_FAILURE(startWriting("movie.mov", {.settings = {{kTavrelEncodingLiveVideoKey, false}}}));
  ASSERT_TRUE(startDevices(*recorder_));
  // Time stands still at each instant at which a frame or a buffer of sound is due, until it has been stamped.
  const MediaTime start = clock->now();
  const auto passTo = [&](std::int64_t count, std::int64_t perSecond) {
    const std::int64_t ticks = count * CaptureClock::kTimescale / perSecond + 1;
    const bool isThere = clock->runUntil(start + MediaTime::make(ticks, CaptureClock::kTimescale));
    RunLoop::main().drain();
    return isThere;
  };
  constexpr std::int64_t kSamples = 256;  // of a buffer of the virtual microphone
  std::int64_t buffers = 1;
  for (std::int64_t frame = 1; frame < 90; ++frame) {
    for (; buffers * kSamples * 30 < frame * 48000; ++buffers) ASSERT_TRUE(passTo(buffers * kSamples, 48000));
    ASSERT_TRUE(passTo(frame, 30));
    ASSERT_TRUE(
        runUntil([&] { return recorder_->camera()->statistics().delivered > static_cast<std::uint64_t>(frame); }));
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  }
  const RecordingObservation seen = finish();
  ASSERT_EQ(seen.error, "");
  const auto offsets = seen.offsets();
  ASSERT_GE(offsets.size(), 2U);
  for (const auto& offset : offsets) EXPECT_LE(std::abs(offset.seconds), 0.002) << "at " << offset.at;
}

}  // namespace
}  // namespace tavrel::test
