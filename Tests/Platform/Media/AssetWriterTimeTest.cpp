#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "Platform/Media/MovieMaker.h"
#include "Platform/Media/MovieProbe.h"

namespace tavrel::test {
namespace {

TEST(AssetWriterTime, FrameTimesAreExactInEveryTimescale) {
  struct Case {
    std::int32_t source;  // timescale of the times handed in
    std::int64_t step;    // of each frame, in it
    std::int32_t asked;   // of the track, 0: automatic
    std::int32_t expected;
  };
  constexpr Case kCases[] = {{600, 20, 0, 600},
                             {1000, 33, 0, 1000},
                             {90000, 3003, 0, 90000},
                             {30000, 1001, 0, 30000},
                             {24, 1, 0, 600},
                             {1'000'000, 16'667, 0, 1'000'000},
                             {100'000'000, 3'333'337, 0, 1'000'000},
                             {600, 20, 90000, 90000}};
  for (const Case& c : kCases) {
    const TemporaryFolder folder;
    // The session starts at a time far from zero, in another timescale.
    const MediaTime start = MediaTime::make(7 * c.source, c.source);
    const auto maker = MovieMaker::start(folder / "movie.mov",
                                         {.prepare = [&](MovieMaker& m) { m.video->setMediaTimeScale(c.asked); }},
                                         MediaTime::make(7, 1));
    const auto picture = solidPicture(64, 48, 9, 9, 9);
    std::vector<MediaTime> times;
    for (int i = 0; i < 75; ++i) {
      // Uneven, as a camera's times are.
      const MediaTime time = start + MediaTime::make(i * c.step + (i % 3 == 1 ? c.step / 3 : 0), c.source);
      ASSERT_TRUE(maker.addPicture(picture, time));
      times.push_back(time);
    }
    ASSERT_TRUE(maker.writer->finishWriting());
    const auto probe = MovieProbe::open(folder / "movie.mov");
    ASSERT_EQ(probe.video->times.size(), times.size());
    EXPECT_EQ(probe.video->timescale, c.expected);
    for (std::size_t i = 0; i < times.size(); ++i) {
      const MediaTime movieTime = times[i] - MediaTime::make(7, 1);
      EXPECT_EQ(probe.video->times[i], movieTime.convertedToTimescale(c.expected).value) << c.source << " frame " << i;
    }
    // The last frame lasts as long as the one before.
    const auto& durations = probe.video->packetDurations;
    EXPECT_EQ(durations.back(), durations[durations.size() - 2]);
  }
}

TEST(AssetWriterTime, RefusesTimesThatDoNotIncreaseAndGoesOn) {
  const TemporaryFolder folder;
  const auto maker = MovieMaker::start(folder / "movie.mov", {});
  const auto picture = solidPicture(64, 48, 9, 9, 9);
  EXPECT_TRUE(maker.addPicture(picture, MediaTime::make(10, 600)));
  EXPECT_FALSE(maker.addPicture(picture, MediaTime::make(10, 600)));
  EXPECT_FALSE(maker.addPicture(picture, MediaTime::make(5, 600)));
  EXPECT_FALSE(maker.addPicture(picture, MediaTime::indefinite()));
  EXPECT_FALSE(maker.addPicture(picture, MediaTime::invalid()));
  EXPECT_FALSE(maker.addPicture(picture, MediaTime::positiveInfinity()));
  EXPECT_TRUE(maker.addPicture(picture, MediaTime::make(-100, 600))) << "before the session: left out";
  EXPECT_TRUE(maker.addPicture(picture, MediaTime::make(30, 600)));
  EXPECT_TRUE(maker.writer->finishWriting());
  const auto probe = MovieProbe::open(folder / "movie.mov");
  EXPECT_EQ(probe.video->times, (std::vector<std::int64_t>{10, 30}));
}

// As where recordings overlap that were strung together.
TEST(AssetWriterTime, LaterPicturesAreTakenThoughTheTimescaleIsTooCoarse) {
  const TemporaryFolder folder;
  const auto maker = MovieMaker::start(folder / "movie.mov", {});
  const auto picture = solidPicture(64, 48, 9, 9, 9);
  EXPECT_TRUE(maker.addPicture(picture, MediaTime::make(10, 600)));
  EXPECT_TRUE(maker.addPicture(picture, MediaTime::make(1501, 90000)));
  EXPECT_TRUE(maker.addPicture(picture, MediaTime::make(1502, 90000)));
  EXPECT_FALSE(maker.addPicture(picture, MediaTime::make(1502, 90000)));
  EXPECT_TRUE(maker.addPicture(picture, MediaTime::make(50, 600)));
  EXPECT_TRUE(maker.writer->finishWriting());
  EXPECT_EQ(MovieProbe::open(folder / "movie.mov").video->times, (std::vector<std::int64_t>{10, 11, 12, 50}));
}

TEST(AssetWriterTime, PicturesStoredBehindLaterOnesBeginInTime) {
  for (const bool staysFragmented : {false, true}) {
    for (const bool isRealTime : {false, true}) {
      for (const char* type : {kFileTypeQuickTimeMovie, kFileTypeMPEG4, kFileTypeMatroska}) {
        SCOPED_TRACE(testing::Message() << type << ", fragmented " << staysFragmented << ", live " << isRealTime);
        const TemporaryFolder folder;
        const auto maker = MovieMaker::start(
            folder / "movie", {.fileType = type,
                               .isRealTime = isRealTime,
                               .audioSettings = aacSettings(),
                               .prepare = [&](MovieMaker& made) { made.writer->setStaysFragmented(staysFragmented); }});
        // Unequal distances, the first of them long.
        std::vector<double> times;
        for (int i = 0; i < 60; ++i) {
          const MediaTime time = MediaTime::make(i == 0 ? 0 : 60 + i * 20 + i % 3 * 5, 600);
          times.push_back(time.seconds());
          const auto shade = static_cast<std::uint8_t>(i * 4);
          ASSERT_TRUE(maker.addPicture(solidPicture(64, 48, shade, shade, shade), time));
          ASSERT_TRUE(maker.addTone(1 / 30.0, MediaTime::make(i * 1600, 48000)));
        }
        ASSERT_TRUE(maker.writer->finishWriting()) << maker.writer->error()->description;
        const auto probe = MovieProbe::open(folder / "movie");
        ASSERT_TRUE(probe.video) << probe.error;
        EXPECT_GT(probe.video->reordering, 0);
        EXPECT_EQ(probe.decodeErrors, 0);
        ASSERT_EQ(probe.video->times.size(), times.size());
        for (std::size_t i = 0; i < times.size(); ++i) {
          ASSERT_NEAR(probe.video->seconds(i), times[i], 0.00051) << i;
          ASSERT_NEAR(probe.video->centers[i][0], 16 + static_cast<double>(i) * 4 * 219 / 255, 4) << i;
        }
      }
    }
  }
}

TEST(AssetWriterTime, AMovieOfOnePictureLastsAsLongAsItsRateSays) {
  for (const char* type : {kFileTypeQuickTimeMovie, kFileTypeMPEG4, kFileTypeMatroska, kFileTypeWebM}) {
    for (const bool staysFragmented : {false, true}) {
      const TemporaryFolder folder;
      Dictionary settings = h264Settings(64, 48);
      settings[kVideoCodecKey] = AssetWriter::usualVideoCodec(type);
      settings[kVideoExpectedFrameRateKey] = 10.0;
      const auto writer = *AssetWriter::create(folder / "movie", type);
      writer->setStaysFragmented(staysFragmented);
      const auto input = AssetWriterInput::create(MediaType::video, settings);
      ASSERT_TRUE(writer->addInput(input) && writer->startWriting());
      writer->startSessionAtSourceTime(MediaTime::zero());
      const SampleTiming timing{MediaTime::invalid(), MediaTime::make(0, 600), MediaTime::invalid()};
      ASSERT_TRUE(input->append(*SampleBuffer::createImage(solidPicture(64, 48, 9, 9, 9), timing)));
      ASSERT_TRUE(writer->finishWriting());
      EXPECT_NEAR(MovieProbe::open(folder / "movie").duration, 0.1, 0.0015) << type << staysFragmented;
    }
  }
}

TEST(AssetWriterTime, ALongPauseInTheTimesIsKept) {
  const TemporaryFolder folder;
  const auto maker = MovieMaker::start(folder / "movie.mov", {.isRealTime = false});
  const auto picture = solidPicture(64, 48, 9, 9, 9);
  // Longer than one sample of the container can last, at a million units a second.
  const std::vector<std::int64_t> times{0, 33'333, 66'666, 4'000'000'000, 4'000'033'333};
  for (const auto time : times) ASSERT_TRUE(maker.addPicture(picture, MediaTime::make(time, 1'000'000)));
  ASSERT_TRUE(maker.writer->finishWriting());
  EXPECT_EQ(MovieProbe::open(folder / "movie.mov").video->times, times);
}

TEST(AssetWriterTime, LateTracksStandWhereTheirTimesSay) {
  for (const char* type : {kFileTypeQuickTimeMovie, kFileTypeMatroska}) {
    const TemporaryFolder folder;
    const auto maker = MovieMaker::start(folder / "movie", {.fileType = type, .audioSettings = aacSettings()});
    const auto picture = solidPicture(64, 48, 9, 9, 9);
    // Sound alone for so long that the header is written without a picture.
    ASSERT_TRUE(maker.addTone(0.5, MediaTime::zero()));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    ASSERT_TRUE(maker.addTone(0.5, MediaTime::make(1, 2)));
    for (int i = 0; i < 30; ++i) ASSERT_TRUE(maker.addPicture(picture, MediaTime::make(6000 + i * 1001, 30000)));
    ASSERT_TRUE(maker.writer->finishWriting());
    const auto probe = MovieProbe::open(folder / "movie");
    ASSERT_TRUE(probe.video && probe.audio);
    ASSERT_EQ(probe.video->times.size(), 30U);
    for (std::size_t i = 0; i < 30; ++i)
      EXPECT_NEAR(probe.video->seconds(i), 0.2 + static_cast<double>(i) * 1001 / 30000, 0.00051);
    EXPECT_NEAR(probe.audio->seconds(), 1, 0.03);
  }
}

TEST(AssetWriterTime, SilentTrackHoldsNothingUp) {
  const TemporaryFolder folder;
  const auto maker = MovieMaker::start(folder / "movie.mov", {.audioSettings = aacSettings()});
  const auto picture = solidPicture(64, 48, 9, 9, 9);
  for (int i = 0; i < 60; ++i) {
    ASSERT_TRUE(maker.addPicture(picture, MediaTime::make(i, 30)));
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_GT(maker.writer->writtenUntil().seconds(), 0.5);
  // Sound that begins late is preceded by silence.
  ASSERT_TRUE(maker.addTone(0.5, MediaTime::make(3, 2)));
  ASSERT_TRUE(maker.writer->finishWriting());
  const auto probe = MovieProbe::open(folder / "movie.mov");
  EXPECT_EQ(probe.video->times.size(), 60U);
  EXPECT_NEAR(*probe.audio->firstAbove(0.2F), 1.5, 0.005);
  EXPECT_LT(probe.audio->level(0, 1.45), 0.01);
  EXPECT_LT(probe.audio->longestJoint, 0.001);
}

TEST(AssetWriterTime, PauseLeavesNoGapInEitherTrack) {
  const TemporaryFolder folder;
  const auto maker = MovieMaker::start(folder / "movie.mov", {.audioSettings = aacSettings()}, MediaTime::make(100, 1));
  const auto picture = solidPicture(64, 48, 9, 9, 9);
  // What a source delivers with a pause of 2 s at 101 s, less the measured gap.
  for (int i = 0; i < 60; ++i) {
    ASSERT_TRUE(maker.addPicture(picture, MediaTime::make(100, 1) + MediaTime::make(i, 30)));
    // The gap was measured on the video; the sound comes back 3 ms off.
    const MediaTime offset = i < 30 ? MediaTime::zero() : MediaTime::make(3, 1000);
    ASSERT_TRUE(maker.addTone(1 / 30.0, MediaTime::make(100, 1) + MediaTime::make(i * 1600, 48000) + offset));
    if (i == 29) std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  }
  ASSERT_TRUE(maker.writer->finishWriting());
  const auto probe = MovieProbe::open(folder / "movie.mov");
  ASSERT_EQ(probe.video->times.size(), 60U);
  for (std::size_t i = 1; i < 60; ++i)
    EXPECT_NEAR(probe.video->seconds(i) - probe.video->seconds(i - 1), 1 / 30.0, 1e-9);
  EXPECT_NEAR(probe.audio->seconds(), 2, 0.03);
  EXPECT_LT(probe.audio->longestJoint, 0.001);
  for (double t = 0.1; t < 1.9; t += 0.05) EXPECT_NEAR(probe.audio->level(t, t + 0.05), 0.354, 0.02) << t;
}

TEST(AssetWriterTime, FlashAndBeepStayTogether) {
  const TemporaryFolder folder;
  const auto maker = MovieMaker::start(folder / "movie.mov", {.audioSettings = aacSettings(44100)});
  const auto black = solidPicture(64, 48, 0, 0, 0);
  const auto white = solidPicture(64, 48, 255, 255, 255);
  const AudioFormat format{
      .sampleRate = 44100, .channelCount = 2, .sampleType = AudioSampleType::int16, .isInterleaved = true};
  for (int i = 0; i < 150; ++i) {
    ASSERT_TRUE(maker.addPicture(i % 30 < 3 ? white : black, MediaTime::make(i, 30)));
    ASSERT_TRUE(maker.addSound(sound(format, 1470, MediaTime::make(i * 1470, 44100),
                                     [](double t) { return t - std::floor(t) < 0.1 ? 0.8 * std::sin(6283 * t) : 0; })));
  }
  ASSERT_TRUE(maker.writer->finishWriting());
  const auto probe = MovieProbe::open(folder / "movie.mov");
  int flashes = 0;
  for (std::size_t i = 1; i < probe.video->times.size(); ++i) {
    if (probe.video->centers[i][0] < 128 || probe.video->centers[i - 1][0] >= 128) continue;
    const double flash = probe.video->seconds(i);
    const auto beep = probe.audio->firstAbove(0.3F, flash - 0.3);
    ASSERT_TRUE(beep);
    EXPECT_NEAR(*beep, flash, 0.002);
    ++flashes;
  }
  EXPECT_EQ(flashes, 4);
}

}  // namespace
}  // namespace tavrel::test
