#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <numbers>
#include <set>
#include <thread>

#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Media/MediaError.h"
#include "Support/ReaderMovies.h"

namespace tavrel::test {
namespace {

using Status = AssetReaderStatus;
using testing::DoubleNear;
using testing::ElementsAreArray;
using testing::Pointwise;

constexpr const char* kPattern = "-f lavfi -i testsrc2=size=160x120:rate=10:duration=2 ";

std::vector<double> tenths(int count) {
  std::vector<double> times;
  for (int i = 0; i < count; ++i) times.push_back(i / 10.0);
  return times;
}

double meanDifference(const std::vector<std::uint8_t>& left, const std::vector<std::uint8_t>& right) {
  EXPECT_EQ(left.size(), right.size());
  double sum = 0;
  for (std::size_t i = 0; i < std::min(left.size(), right.size()); ++i) sum += std::abs(left[i] - right[i]);
  return sum / static_cast<double>(left.size());
}

TEST(AssetReader, DeliversEveryFrameWithItsTimeInOrder) {
  const struct {
    const char* file;
    const char* encoding;
  } kMovies[] = {{"bframes.mp4", "-c:v libx264 -bf 3 -g 12"},
                 {"bframes.mov", "-c:v mpeg4 -bf 2"},
                 {"matroska.mkv", "-c:v libx264 -bf 3"},
                 {"fragments.mp4", "-c:v libx264 -bf 2 -movflags frag_keyframe+delay_moov -g 5"},
                 {"stream.ts", "-c:v libx264 -bf 3"},
                 {"old.avi", "-c:v mpeg4"},
                 {"raw.h264", "-c:v libx264 -bf 0 -r 10"}};
  for (const auto& movie : kMovies) {
    SCOPED_TRACE(movie.file);
    const ReaderFolder folder;
    ASSERT_NO_FATAL_FAILURE(makeMovie(folder / movie.file, std::string(kPattern) + movie.encoding + " OUT"));
    OpenedReader opened(folder / movie.file, MediaType::video);
    EXPECT_EQ(opened.reader->status(), Status::reading);
    const auto times = opened.readTimes();
    EXPECT_EQ(opened.reader->status(), Status::completed);
    EXPECT_FALSE(opened.reader->error().has_value());
    // Raw streams have no time stamps, only a rate that is guessed; their times need only rise.
    if (std::string(movie.file) == "raw.h264") {
      EXPECT_EQ(times.size(), 20U);
      EXPECT_TRUE(std::is_sorted(times.begin(), times.end(), std::less_equal<>()));
      continue;
    }
    EXPECT_THAT(times, Pointwise(DoubleNear(0.0006), tenths(20)));
    EXPECT_EQ(opened.output->copyNextSampleBuffer(), nullptr);
  }
}

TEST(AssetReader, StampsInTheTracksTimescaleWithDurations) {
  const ReaderFolder folder;
  ASSERT_NO_FATAL_FAILURE(makeMovie(folder / "a.mp4",
                                    "-f lavfi -i testsrc2=size=64x64:rate=30000/1001:duration=0.5 -c:v libx264 "
                                    "-video_track_timescale 30000 OUT"));
  OpenedReader opened(folder / "a.mp4", MediaType::video);
  const auto samples = opened.readAll();
  ASSERT_EQ(samples.size(), 15U);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    EXPECT_EQ(samples[i]->presentationTimeStamp().value, static_cast<std::int64_t>(i) * 1001);
    EXPECT_EQ(samples[i]->presentationTimeStamp().timescale, 30000);
    EXPECT_EQ(samples[i]->duration(), MediaTime::make(1001, 30000));
  }
}

TEST(AssetReader, KeepsVariableFrameTimes) {
  const ReaderFolder folder;
  ASSERT_NO_FATAL_FAILURE(makeMovie(
      folder / "a.mp4",
      std::string(kPattern) +
          "-vf \"settb=1/1000,setpts=N*N*10\" -vsync vfr -frames:v 8 -c:v libx264 -enc_time_base 1:1000 OUT"));
  OpenedReader opened(folder / "a.mp4", MediaType::video);
  std::vector<double> expected;
  for (int i = 0; i < 8; ++i) expected.push_back(i * i / 100.0);
  EXPECT_THAT(opened.readTimes(), Pointwise(DoubleNear(0.001), expected));
}

TEST(AssetReader, HonoursEditLists) {
  const ReaderFolder folder;
  const auto whole = folder / "whole.mp4";
  const auto cut = folder / "cut.mp4";
  ASSERT_NO_FATAL_FAILURE(makeMovie(whole, std::string(kPattern) + "-c:v libx264 -qp 10 -bf 2 -g 20 OUT"));
  // Cut in the middle of a group of pictures: the stored frames before the cut are needed, but not to be seen.
  ASSERT_NO_FATAL_FAILURE(makeMovieFrom(whole, cut, "-ss 0.7 -i IN -c copy OUT"));
  OpenedReader original(whole, MediaType::video);
  const auto all = original.readAll();
  ASSERT_EQ(all.size(), 20U);
  OpenedReader trimmed(cut, MediaType::video);
  const auto kept = trimmed.readAll();
  ASSERT_EQ(kept.size(), 13U);
  for (std::size_t i = 0; i < kept.size(); ++i) {
    EXPECT_NEAR(kept[i]->presentationTimeStamp().seconds(), static_cast<double>(i) / 10, 0.0006);
    EXPECT_EQ(pixelsOf(*kept[i]), pixelsOf(*all[i + 7])) << i;
  }
}

TEST(AssetReader, FollowsAChangeOfPictureSize) {
  const ReaderFolder folder;
  for (const char* size : {"160x120", "96x64"}) {
    ASSERT_NO_FATAL_FAILURE(makeMovie(folder / size, std::string("-f lavfi -i testsrc2=rate=10:duration=0.5:size=") +
                                                         size + " -c:v mpeg2video -f mpegts OUT"));
  }
  auto bytes = bytesOf(folder / "160x120");
  const auto second = bytesOf(folder / "96x64");
  bytes.insert(bytes.end(), second.begin(), second.end());
  writeBytes(folder / "both.ts", bytes);
  OpenedReader opened(folder / "both.ts", MediaType::video);
  std::set<std::size_t> widths;
  for (const auto& sample : opened.readAll()) widths.insert(sample->imageBuffer()->width());
  EXPECT_EQ(widths, (std::set<std::size_t>{96, 160}));
  EXPECT_EQ(opened.reader->status(), Status::completed);
}

TEST(AssetReader, ReusesItsPixelBuffers) {
  const ReaderFolder folder;
  ASSERT_NO_FATAL_FAILURE(makeMovie(folder / "a.mp4", std::string(kPattern) + "-c:v mpeg4 OUT"));
  OpenedReader opened(folder / "a.mp4", MediaType::video);
  std::set<const void*> addresses;
  int frames = 0;
  while (const auto sample = opened.output->copyNextSampleBuffer()) {
    sample->imageBuffer()->lockBaseAddress(PixelBufferLock::readOnly);
    addresses.insert(sample->imageBuffer()->baseAddress());
    sample->imageBuffer()->unlockBaseAddress(PixelBufferLock::readOnly);
    ++frames;
  }
  EXPECT_EQ(frames, 20);
  EXPECT_LE(addresses.size(), 2U);
}

TEST(AssetReader, GivesTheSamplesOfAWaveFile) {
  const ReaderFolder folder;
  ASSERT_NO_FATAL_FAILURE(makeMovie(folder / "a.wav",
                                    "-f lavfi -i \"aevalsrc=0.5*sin(2*PI*441*t)|0.25*cos(2*PI*441*t):s=44100:d=1.25\" "
                                    "-c:a pcm_s16le OUT"));
  OpenedReader opened(folder / "a.wav", MediaType::audio);
  const auto samples = opened.readAll();
  EXPECT_EQ(opened.reader->status(), Status::completed);
  std::int64_t at = 0;
  double worst = 0;
  for (const auto& sample : samples) {
    EXPECT_EQ(sample->presentationTimeStamp(), MediaTime::make(at, 44100));
    EXPECT_EQ(sample->format()->audioFormat, (AudioFormat{44100, 2, AudioSampleType::float32, true}));
    for (const float value : firstChannelOf(*sample)) {
      worst = std::max(
          worst, std::abs(value - 0.5 * std::sin(2 * std::numbers::pi * 441 * static_cast<double>(at++) / 44100)));
    }
  }
  EXPECT_EQ(at, 55125);
  EXPECT_LT(worst, 2.0 / 32768);
}

TEST(AssetReader, GivesCompressedSoundInStepAndWithoutGaps) {
  const struct {
    const char* file;
    const char* encoding;
  } kFiles[] = {{"a.m4a", "-c:a aac -b:a 128k"}, {"a.mkv", "-c:a libopus"}, {"a.flac", "-c:a flac"}};
  for (const auto& file : kFiles) {
    SCOPED_TRACE(file.encoding);
    const ReaderFolder folder;
    // Silence for half a second, then a tone: where it begins shows whether the encoder's delay was taken off.
    ASSERT_NO_FATAL_FAILURE(
        makeMovie(folder / file.file, std::string("-f lavfi -i \"aevalsrc=if(gte(t\\,0.5)\\,0.5*sin(2*PI*1000*t)\\,0)"
                                                  ":s=48000:d=1\" ") +
                                          file.encoding + " OUT"));
    OpenedReader opened(folder / file.file, MediaType::audio);
    std::vector<float> all;
    for (const auto& sample : opened.readAll()) {
      const auto first = sample->presentationTimeStamp().convertedToTimescale(48000).value;
      ASSERT_EQ(first, static_cast<std::int64_t>(all.size()));
      const auto channel = firstChannelOf(*sample);
      all.insert(all.end(), channel.begin(), channel.end());
    }
    EXPECT_NEAR(static_cast<double>(all.size()), 48000, 1200);
    std::size_t onset = 0;
    while (onset < all.size() && std::abs(all[onset]) < 0.2F) ++onset;
    EXPECT_NEAR(static_cast<double>(onset), 24000, 48 * 4);
  }
}

TEST(AssetReader, GivesSoundInTheRateAndChannelsAskedFor) {
  const ReaderFolder folder;
  const std::string tone = "-f lavfi -i sine=frequency=1000:duration=1:sample_rate=44100 -ac 2 ";
  for (const char* name : {"a.wav", "a.m4a"}) {
    SCOPED_TRACE(name);
    ASSERT_NO_FATAL_FAILURE(makeMovie(folder / name, tone + "OUT"));
    const auto asset = Asset::create(folder / name).value();
    const auto reader = AssetReader::create(asset).value();
    const Dictionary settings = {{kAudioSampleRateKey, std::int64_t{48000}},
                                 {kAudioNumberOfChannelsKey, std::int64_t{1}}};
    const auto output = std::make_shared<AssetReaderTrackOutput>(asset->tracks().front(), settings);
    reader->addOutput(output);
    ASSERT_TRUE(reader->startReading());
    std::vector<float> sound;
    while (const auto sample = output->copyNextSampleBuffer()) {
      EXPECT_EQ(sample->format()->audioFormat.channelCount, 1U);
      EXPECT_EQ(sample->presentationTimeStamp(), MediaTime::make(static_cast<std::int64_t>(sound.size()), 48000));
      const auto part = firstChannelOf(*sample);
      sound.insert(sound.end(), part.begin(), part.end());
    }
    // To the last frame: what the resampler holds comes out at the end.
    std::int64_t stored = 0;
    for (const auto& sample : OpenedReader(folder / name, MediaType::audio).readAll()) stored += sample->numSamples();
    EXPECT_NEAR(static_cast<double>(sound.size()), static_cast<double>(stored) * 48000 / 44100, 2);
    ASSERT_GE(sound.size(), 47998U);
    int crossings = 0;
    for (std::size_t i = 1; i < 47998; ++i) crossings += sound[i - 1] < 0 && sound[i] >= 0 ? 1 : 0;
    EXPECT_NEAR(crossings, 1000, 2);
  }
  const auto asset = Asset::create(folder / "a.wav").value();
  const auto reader = AssetReader::create(asset).value();
  const Dictionary settings = {{kAudioNumberOfChannelsKey, std::int64_t{0}}};
  reader->addOutput(std::make_shared<AssetReaderTrackOutput>(asset->tracks().front(), settings));
  EXPECT_FALSE(reader->startReading());
  EXPECT_TRUE(*reader->error() == MediaErrorCode::invalidSettings);
}

TEST(AssetReader, ReadsPicturesAndSoundOnTwoThreads) {
  const ReaderFolder folder;
  ASSERT_NO_FATAL_FAILURE(
      makeMovie(folder / "a.mp4",
                std::string(kPattern) + "-f lavfi -i sine=duration=2:sample_rate=48000 -c:v mpeg4 -c:a aac OUT"));
  const auto asset = Asset::create(folder / "a.mp4").value();
  const auto reader = AssetReader::create(asset).value();
  std::vector<std::shared_ptr<AssetReaderTrackOutput>> outputs;
  for (const auto& track : asset->tracks()) {
    outputs.push_back(std::make_shared<AssetReaderTrackOutput>(track));
    reader->addOutput(outputs.back());
  }
  ASSERT_TRUE(reader->startReading());
  std::atomic<std::int64_t> counts[2] = {};
  {
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < 2; ++i) {
      threads.emplace_back([&, i] {
        while (const auto sample = outputs[i]->copyNextSampleBuffer()) counts[i] += sample->numSamples();
      });
    }
  }
  EXPECT_EQ(reader->status(), Status::completed);
  EXPECT_EQ(counts[0], 20);
  EXPECT_NEAR(static_cast<double>(counts[1]), 96000, 1100);
}

TEST(AssetReader, StopsWhenCancelled) {
  const ReaderFolder folder;
  ASSERT_NO_FATAL_FAILURE(makeMovie(folder / "a.mp4", std::string(kPattern) + "-c:v mpeg4 OUT"));
  OpenedReader opened(folder / "a.mp4", MediaType::video);
  ASSERT_NE(opened.output->copyNextSampleBuffer(), nullptr);
  opened.reader->cancelReading();
  EXPECT_EQ(opened.output->copyNextSampleBuffer(), nullptr);
  EXPECT_EQ(opened.reader->status(), Status::cancelled);
  EXPECT_FALSE(opened.reader->startReading());
  EXPECT_EQ(opened.reader->status(), Status::cancelled);
}

TEST(AssetReader, NeedsAnOutputAndTheFile) {
  const ReaderFolder folder;
  ASSERT_NO_FATAL_FAILURE(makeMovie(folder / "a.mp4", std::string(kPattern) + "-c:v mpeg4 OUT"));
  const auto asset = Asset::create(folder / "a.mp4").value();
  const auto without = AssetReader::create(asset).value();
  EXPECT_EQ(without->status(), Status::unknown);
  EXPECT_FALSE(without->startReading());
  EXPECT_EQ(without->status(), Status::failed);

  const auto reader = AssetReader::create(asset).value();
  const auto output = std::make_shared<AssetReaderTrackOutput>(asset->tracks().at(0));
  reader->addOutput(output);
  EXPECT_EQ(output->copyNextSampleBuffer(), nullptr);
  std::filesystem::remove(folder / "a.mp4");
  EXPECT_FALSE(reader->startReading());
  EXPECT_EQ(reader->status(), Status::failed);
  EXPECT_THAT(reader->error().value().description, testing::HasSubstr("No such file"));
}

TEST(AssetReader, ReadsACutOffFileAsFarAsItGoes) {
  const ReaderFolder folder;
  ASSERT_NO_FATAL_FAILURE(
      makeMovie(folder / "whole.mp4", std::string(kPattern) + "-c:v libx264 -g 5 -movflags faststart OUT"));
  OpenedReader original(folder / "whole.mp4", MediaType::video);
  const auto all = original.readAll();
  ASSERT_EQ(all.size(), 20U);
  auto bytes = bytesOf(folder / "whole.mp4");
  bytes.resize(bytes.size() * 6 / 10);
  writeBytes(folder / "cut.mp4", bytes);
  OpenedReader opened(folder / "cut.mp4", MediaType::video);
  const auto kept = opened.readAll();
  EXPECT_GE(kept.size(), 5U);
  EXPECT_LT(kept.size(), 20U);
  EXPECT_EQ(opened.reader->status(), Status::completed);
  EXPECT_LT(meanDifference(pixelsOf(*kept.front()), pixelsOf(*all.front())), 1);
}

TEST(AssetReader, SurvivesDamagedFiles) {
  const ReaderFolder folder;
  for (const char* encoding : {"-c:v libx264 -g 5", "-c:v mpeg4", "-c:v mjpeg"}) {
    const auto movie = folder / "whole.mov";
    ASSERT_NO_FATAL_FAILURE(
        makeMovie(movie, std::string(kPattern) + "-f lavfi -i sine=duration=2 -c:a aac " + encoding + " OUT"));
    const auto whole = bytesOf(movie);
    for (std::uint32_t round = 0; round < 24; ++round) {
      auto bytes = whole;
      std::uint32_t random = round * 2654435761U + 1;
      const unsigned hits = round % 3 == 0 ? 4 : round % 3 == 1 ? 60 : 800;
      for (unsigned i = 0; i < hits; ++i) {
        random = random * 1664525U + 1013904223U;
        bytes[random % bytes.size()] = static_cast<std::uint8_t>(random >> 24);
      }
      writeBytes(folder / "damaged.mov", bytes);
      const auto asset = Asset::create(folder / "damaged.mov");
      if (!asset) continue;
      for (const auto& track : (*asset)->tracks()) {
        const auto reader = AssetReader::create(*asset).value();
        const auto output = std::make_shared<AssetReaderTrackOutput>(track);
        reader->addOutput(output);
        MediaTime last = MediaTime::negativeInfinity();
        std::size_t samples = 0;
        if (reader->startReading()) {
          while (const auto sample = output->copyNextSampleBuffer()) {
            EXPECT_TRUE(track->mediaType() == MediaType::audio || sample->presentationTimeStamp() > last);
            last = sample->presentationTimeStamp();
            ASSERT_LT(++samples, 100000U);
          }
        }
        const auto status = reader->status();
        EXPECT_TRUE(status == Status::completed || status == Status::failed);
        EXPECT_EQ(status == Status::failed, reader->error().has_value());
      }
    }
  }
}

}  // namespace
}  // namespace tavrel::test
