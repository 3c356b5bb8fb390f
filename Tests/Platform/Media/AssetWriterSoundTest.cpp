#include <gtest/gtest.h>

#include <numbers>

#include "Platform/Media/MovieMaker.h"
#include "Platform/Media/MovieProbe.h"

namespace tavrel::test {
namespace {

double tone(double t) { return 0.5 * std::sin(2 * std::numbers::pi * 440 * t); }

/// A writer with a single audio track.
struct SoundMaker {
  std::shared_ptr<AssetWriter> writer;
  std::shared_ptr<AssetWriterInput> audio;

  SoundMaker(const std::filesystem::path& path, std::optional<Dictionary> settings,
             const char* type = kFileTypeQuickTimeMovie, bool isLive = false) {
    writer = *AssetWriter::create(path, type);
    audio = AssetWriterInput::create(MediaType::audio, std::move(settings));
    audio->setExpectsMediaDataInRealTime(isLive);
    EXPECT_TRUE(writer->addInput(audio));
    EXPECT_TRUE(writer->startWriting());
    writer->startSessionAtSourceTime(MediaTime::zero());
  }
  bool add(const std::shared_ptr<SampleBuffer>& buffer) const {
    return audio->waitUntilReady(std::chrono::seconds(20)) && audio->append(buffer);
  }
};

TEST(AssetWriterSound, EveryLayoutAndRateKeepsLevelAndLength) {
  for (const double rate : {8000.0, 44100.0, 48000.0}) {
    for (const std::uint32_t channels : {1U, 2U}) {
      for (const auto type : {AudioSampleType::int16, AudioSampleType::float32}) {
        for (const bool isInterleaved : {true, false}) {
          const TemporaryFolder folder;
          const SoundMaker maker(folder / "sound.mov", aacSettings(48000, channels == 1 ? 2 : 1));
          const AudioFormat format{rate, channels, type, isInterleaved};
          const auto piece = static_cast<std::int64_t>(rate / 50);
          for (int i = 0; i < 50; ++i) {
            ASSERT_TRUE(
                maker.add(sound(format, piece, MediaTime::make(i * piece, static_cast<std::int32_t>(rate)), tone)));
          }
          ASSERT_TRUE(maker.writer->finishWriting());
          const auto probe = MovieProbe::open(folder / "sound.mov");
          ASSERT_TRUE(probe.audio);
          EXPECT_EQ(probe.audio->channels, channels == 1 ? 2 : 1);
          EXPECT_EQ(probe.audio->sampleRate, 48000);
          EXPECT_NEAR(probe.audio->seconds(), 1, 0.025);
          EXPECT_NEAR(probe.audio->level(0.1, 0.9), 0.3535, 0.015) << rate << " " << channels;
        }
      }
    }
  }
}

TEST(AssetWriterSound, ClickStandsWhereItWasRecorded) {
  for (const char* type : {kFileTypeQuickTimeMovie, kFileTypeMPEG4, kFileTypeMatroska}) {
    for (const double rate : {48000.0, 44100.0}) {  // as encoded, and resampled
      const TemporaryFolder folder;
      const SoundMaker maker(folder / "sound", aacSettings(48000), type);
      const auto piece = static_cast<std::int64_t>(rate / 100);
      for (int i = 0; i < 200; ++i) {
        ASSERT_TRUE(
            maker.add(sound({.sampleRate = rate}, piece, MediaTime::make(i * piece, static_cast<std::int32_t>(rate)),
                            [](double t) { return t >= 1.2345 && t < 1.24 ? 0.9 : 0; })));
      }
      ASSERT_TRUE(maker.writer->finishWriting());
      const auto click = MovieProbe::open(folder / "sound").audio->firstAbove(0.45F);
      ASSERT_TRUE(click);
      EXPECT_NEAR(*click, 1.2345, 0.0005) << type << " " << rate;
    }
  }
}

TEST(AssetWriterSound, OverlapsAreCutAndGapsFilled) {
  const TemporaryFolder folder;
  const SoundMaker maker(folder / "sound.mov", aacSettings());
  const auto add = [&](double start, double seconds, double level) {
    return maker.add(sound({}, std::llround(seconds * 48000), MediaTime::fromSeconds(start, 48000),
                           [&](double t) { return level * std::sin(2 * std::numbers::pi * 1000 * t); }));
  };
  ASSERT_TRUE(add(-0.25, 0.75, 0.8));  // begins before the session
  ASSERT_TRUE(add(0.3, 0.4, 0.2));     // its first 0.2 s overlap
  ASSERT_TRUE(add(0.35, 0.1, 0.9));    // overlaps completely
  ASSERT_TRUE(add(1.2, 0.3, 0.5));     // after a gap of 0.5 s
  ASSERT_TRUE(maker.writer->finishWriting());
  const auto probe = MovieProbe::open(folder / "sound.mov");
  EXPECT_LT(probe.audio->longestJoint, 0.001);
  EXPECT_NEAR(probe.audio->seconds(), 1.5, 0.025);
  const auto amplitude = [&](double from, double to) { return probe.audio->level(from, to) * std::sqrt(2.0); };
  EXPECT_NEAR(amplitude(0.05, 0.48), 0.8, 0.03);
  EXPECT_NEAR(amplitude(0.52, 0.68), 0.2, 0.02);
  EXPECT_LT(amplitude(0.73, 1.17), 0.01);
  EXPECT_NEAR(amplitude(1.22, 1.48), 0.5, 0.03);
}

TEST(AssetWriterSound, DriftIsAbsorbedWithoutAddingUp) {
  for (const double drift : {1.0005, 0.9995}) {
    const TemporaryFolder folder;
    const SoundMaker maker(folder / "sound.mov", aacSettings());
    // The hardware's clock runs 500 ppm off: after 30 s the sound would be 15 ms off. A click marks each second.
    for (int i = 0; i < 3000; ++i) {
      const double start = i * 0.01 * drift;
      const auto buffer = sound({}, 480, MediaTime::fromSeconds(start, 1'000'000), [&](double) { return 0.0; });
      auto* const samples = static_cast<float*>(buffer->audioBufferList()->buffers()[0].data);
      for (int k = 0; k < 480; ++k) {
        const double position = start + k / 48000.0 * drift;
        samples[k] = position - std::floor(position) < 0.004 ? 0.8F : static_cast<float>(0.2 * tone(position));
      }
      ASSERT_TRUE(maker.add(buffer));
    }
    ASSERT_TRUE(maker.writer->finishWriting());
    const auto probe = MovieProbe::open(folder / "sound.mov");
    for (int second = 1; second < 30; ++second) {
      EXPECT_NEAR(*probe.audio->firstAbove(0.45F, second - 0.5), second, 0.003) << drift;
    }
    // No silence was inserted anywhere.
    for (double t = 0.1; t < 29.8; t += 0.005) EXPECT_GT(probe.audio->level(t, t + 0.005), 0.03) << t;
  }
}

TEST(AssetWriterSound, LiveSoundThatIsHeldUpIsNoGap) {
  const TemporaryFolder folder;
  const SoundMaker maker(folder / "sound.mov", aacSettings(), kFileTypeQuickTimeMovie, true);
  // Stamped on arrival, 0 to 30 ms late. From 3.2 to 3.5 s there is none at all. A click marks each second.
  for (int i = 0; i < 700; ++i) {
    if (i >= 320 && i < 350) continue;
    const double start = i * 0.01;
    const double late = i == 0 ? 0.025 : i * 37 % 31 / 1000.0;
    const auto buffer = sound({}, 480, MediaTime::fromSeconds(start + late, 1'000'000), [&](double) { return 0.0; });
    auto* const samples = static_cast<float*>(buffer->audioBufferList()->buffers()[0].data);
    for (int k = 0; k < 480; ++k) {
      const double position = start + k / 48000.0;
      samples[k] = position - std::floor(position) < 0.004 ? 0.8F : static_cast<float>(0.2 * tone(position));
    }
    ASSERT_TRUE(maker.add(buffer));
  }
  ASSERT_TRUE(maker.writer->finishWriting());
  const auto probe = MovieProbe::open(folder / "sound.mov");
  for (const int second : {1, 2, 3, 5, 6}) {
    EXPECT_NEAR(*probe.audio->firstAbove(0.45F, second - 0.5), second, 0.006);
  }
  for (double t = 0.1; t < 3.1; t += 0.005) EXPECT_GT(probe.audio->level(t, t + 0.005), 0.03) << t;
  EXPECT_NEAR(probe.audio->seconds(), 7, 0.05);
}

TEST(AssetWriterSound, FormatMayChangeOnTheWay) {
  const TemporaryFolder folder;
  const SoundMaker maker(folder / "sound.mov", aacSettings());
  ASSERT_TRUE(maker.add(sound({.sampleRate = 44100, .channelCount = 2}, 44100, MediaTime::zero(), tone)));
  ASSERT_TRUE(maker.add(sound({.sampleRate = 16000, .channelCount = 1}, 16000, MediaTime::make(1, 1), tone)));
  ASSERT_TRUE(maker.writer->finishWriting());
  const auto probe = MovieProbe::open(folder / "sound.mov");
  EXPECT_NEAR(probe.audio->seconds(), 2, 0.025);
  for (double t = 0.1; t < 1.9; t += 0.02) EXPECT_NEAR(probe.audio->level(t, t + 0.02), 0.354, 0.05) << t;
}

TEST(AssetWriterSound, WithoutSettingsPCMIsStoredAsItComes) {
  for (const char* type : {kFileTypeQuickTimeMovie, kFileTypeMatroska}) {
    for (const auto sampleType : {AudioSampleType::int16, AudioSampleType::float32}) {
      const TemporaryFolder folder;
      const SoundMaker maker(folder / "sound", std::nullopt, type);
      const AudioFormat format{44100, 2, sampleType, sampleType == AudioSampleType::int16};
      for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(maker.add(sound(format, 882, MediaTime::make(i * 882, 44100), tone)));
      }
      ASSERT_TRUE(maker.writer->finishWriting()) << maker.writer->error()->description;
      const auto probe = MovieProbe::open(folder / "sound");
      ASSERT_TRUE(probe.audio);
      EXPECT_EQ(probe.audio->codec, sampleType == AudioSampleType::int16 ? "pcm_s16le" : "pcm_f32le");
      EXPECT_EQ(probe.audio->channels, 2);
      ASSERT_NEAR(probe.audio->seconds(), 2, 0.001) << type;
      for (std::size_t i = 0; i < 88200; i += 7) {
        ASSERT_NEAR(probe.audio->samples[i], tone(static_cast<double>(i) / 44100), 1e-4) << i;
      }
    }
  }
}

TEST(AssetWriterSound, WhatAFileCannotStoreIsAnErrorAndNoFile) {
  const auto packet = [](const char* codec) {
    auto format = std::make_shared<FormatDescription>();
    format->codecName = codec;
    format->audioFormat.channelCount = 2;
    SampleTiming timing;
    timing.presentationTimeStamp = MediaTime::zero();
    timing.duration = MediaTime::make(1024, 48000);
    return *SampleBuffer::createPacket(format, Data(400), timing, true);
  };
  const auto pcm = sound({}, 480, MediaTime::zero(), tone);
  const struct {
    const char* type;
    std::shared_ptr<SampleBuffer> sample;
    const char* error;
  } cases[] = {{kFileTypeMPEG4, pcm, "MP4 (MPEG-4 Part 14) cannot hold PCM as it is"},
               {kFileTypeWebM, pcm, "WebM cannot hold PCM as it is"},
               {kFileTypeWebM, packet("mp3"), "WebM cannot hold mp3 as it is"},
               {kFileTypeMPEG4, packet("truehd"), "MP4 (MPEG-4 Part 14) cannot hold truehd as it is"},
               {kFileTypeMPEG4, packet("wmav2"), "MP4 (MPEG-4 Part 14) cannot hold wmav2 as it is"},
               {kFileTypeQuickTimeMovie, packet("opus"), "QuickTime / MOV cannot hold opus as it is"},
               {kFileTypeQuickTimeMovie, packet("mp2"), "QuickTime / MOV cannot hold mp2 as it is"},
               {kFileTypeMatroska, packet("wmav2"), "Matroska cannot hold wmav2 as it is"}};
  for (const auto& each : cases) {
    const TemporaryFolder folder;
    const SoundMaker maker(folder / "sound", std::nullopt, each.type);
    EXPECT_FALSE(maker.audio->append(each.sample));
    EXPECT_FALSE(maker.writer->finishWriting());
    EXPECT_EQ(maker.writer->error().value().description,
              std::string(each.error) + ": give the input settings to encode it with");
    EXPECT_TRUE(std::filesystem::is_empty(folder / "")) << each.error;
  }
}

}  // namespace
}  // namespace tavrel::test
