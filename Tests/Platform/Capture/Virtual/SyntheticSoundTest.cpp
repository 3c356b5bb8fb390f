#include <gtest/gtest.h>

#include <cmath>

#include "Platform/Capture/CaptureError.h"
#include "Support/ReaderMovies.h"
#include "TavrelCaptureTesting.h"

namespace tavrel::test {
namespace {

/// One channel of it.
std::vector<float> heard(VirtualSound& sound, std::size_t count, std::size_t block, std::uint64_t first = 0,
                         std::size_t channel = 0) {
  const auto channels = static_cast<std::size_t>(sound.channelCount());
  std::vector<float> samples(count * channels);
  for (std::size_t at = 0; at < count; at += block) {
    const auto part = std::span(samples).subspan(at * channels, std::min(block, count - at) * channels);
    EXPECT_TRUE(sound.render(part, first + at).has_value());
  }
  for (std::size_t i = 0; i < count; ++i) samples[i] = samples[i * channels + channel];
  samples.resize(count);
  return samples;
}

TEST(SyntheticSound, BeepsAtEverySecond) {
  for (const int rate : {8000, 44100, 48000}) {
    SyntheticSound sound(rate);
    const auto samples = heard(sound, static_cast<std::size_t>(rate) * 3 + 2000, 1024);
    const auto onsets = SyntheticSound::findBeepOnsets(samples, rate);
    ASSERT_EQ(onsets.size(), 4U) << rate;
    for (std::size_t i = 0; i < onsets.size(); ++i) {
      EXPECT_NEAR(static_cast<double>(onsets[i]), static_cast<double>(i) * rate, rate / 1000.0) << rate;
    }
    // Quiet between the beeps, and never silent.
    double loudest = 0;
    for (int i = rate / 10; i < rate; ++i)
      loudest = std::max<double>(loudest, std::abs(samples[static_cast<std::size_t>(i)]));
    EXPECT_LT(loudest, 0.05);
    EXPECT_GT(loudest, 0.005);
  }
}

TEST(SyntheticSound, DoesNotDependOnHowItIsCut) {
  SyntheticSound one(48000);
  SyntheticSound other(48000);
  EXPECT_EQ(heard(one, 60000, 1024), heard(other, 60000, 777));
  const auto all = heard(one, 60000, 60000);
  EXPECT_EQ(heard(other, 1000, 1000, 59000), std::vector<float>(all.end() - 1000, all.end()));
}

TEST(SyntheticSound, BeepsAreFoundAfterLossyCodingAndNotInNoise) {
  const ReaderFolder folder;
  ASSERT_NO_FATAL_FAILURE(makeMovie(folder / "noise.wav", "-f lavfi -i anoisesrc=amplitude=0.5:duration=3:seed=1 OUT"));
  auto noise = FileSound::create(folder / "noise.wav", 48000).value();
  EXPECT_TRUE(SyntheticSound::findBeepOnsets(heard(*noise, 48000, 1024), 48000).size() < 2 * 48000 / 480);
  EXPECT_TRUE(SyntheticSound::findBeepOnsets(std::vector<float>(48000), 48000).empty());
  EXPECT_TRUE(SyntheticSound::findBeepOnsets({}, 48000).empty());
}

TEST(FileSound, LoopsAFileInTheRateAskedFor) {
  const ReaderFolder folder;
  // 0.4 s: 0.1 s of 1 kHz, then silence, in stereo at another rate, on the right turned over.
  ASSERT_NO_FATAL_FAILURE(
      makeMovie(folder / "a.wav",
                "-f lavfi -i \"aevalsrc=if(lt(t\\,0.1)\\,0.5*sin(2*PI*1000*t)\\,0)|if(lt(t\\,0.1)\\,"
                "-0.5*sin(2*PI*1000*t)\\,0):s=44100:d=0.4\" OUT"));
  auto sound = FileSound::create(folder / "a.wav", 48000).value();
  ASSERT_EQ(sound->channelCount(), 2);
  const auto samples = heard(*sound, 96000, 1024);
  const auto right = heard(*sound, 96000, 1024, 0, 1);
  for (std::size_t i = 0; i < samples.size(); ++i) ASSERT_NEAR(samples[i], -right[i], 1e-4) << i;
  const auto onsets = SyntheticSound::findBeepOnsets(samples, 48000);
  ASSERT_EQ(onsets.size(), 5U);
  for (std::size_t i = 0; i < onsets.size(); ++i) {
    EXPECT_NEAR(static_cast<double>(onsets[i]), static_cast<double>(i) * 19200, 96);
  }
  // From the start again, and on from a later place.
  EXPECT_EQ(heard(*sound, 1024, 1024), std::vector<float>(samples.begin(), samples.begin() + 1024));
  EXPECT_EQ(heard(*sound, 1024, 1024, 50000), std::vector<float>(samples.begin() + 50000, samples.begin() + 51024));
}

TEST(FileSound, SaysWhatIsWrong) {
  const ReaderFolder folder;
  writeBytes(folder / "text.wav", {'t', 'e', 'x', 't'});
  ASSERT_NO_FATAL_FAILURE(
      makeMovie(folder / "mute.mp4", "-f lavfi -i testsrc2=size=64x64:duration=0.3 -c:v mpeg4 OUT"));
  ASSERT_NO_FATAL_FAILURE(makeMovie(folder / "empty.wav", "-f lavfi -i sine=duration=1 -t 0 OUT"));
  for (const char* name : {"missing.wav", "text.wav", "mute.mp4", "empty.wav"}) {
    const auto sound = FileSound::create(folder / name, 48000);
    ASSERT_FALSE(sound.has_value()) << name;
    const bool isMissing = std::string_view(name) == "missing.wav";
    EXPECT_EQ(sound.error(), isMissing ? CaptureErrorCode::noSuchFile : CaptureErrorCode::badSound) << name;
    EXPECT_EQ(sound.error().domain, "capture");
    EXPECT_NE(sound.error().description.find(name), std::string::npos) << sound.error().description;
  }
}

}  // namespace
}  // namespace tavrel::test
