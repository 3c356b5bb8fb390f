#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "Platform/Dispatch/DispatchSemaphore.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Support/ReaderMovies.h"

namespace tavrel::test {
namespace {

using Status = AssetReaderStatus;
using testing::HasSubstr;

struct RandomReader {
  std::shared_ptr<AssetReader> reader;
  std::shared_ptr<AssetReaderTrackOutput> output;

  RandomReader(const std::filesystem::path& file, MediaType mediaType) {
    const auto asset = Asset::create(file).value();
    reader = AssetReader::create(asset).value();
    output = std::make_shared<AssetReaderTrackOutput>(asset->tracksWithMediaType(mediaType).at(0));
    output->setSupportsRandomAccess(true);
    reader->addOutput(output);
    EXPECT_TRUE(reader->startReading());
  }
  std::vector<std::shared_ptr<SampleBuffer>> drain() const {
    std::vector<std::shared_ptr<SampleBuffer>> samples;
    while (auto sample = output->copyNextSampleBuffer()) samples.push_back(std::move(sample));
    return samples;
  }
  std::vector<std::shared_ptr<SampleBuffer>> read(double start, double duration) const {
    output->resetForReadingTimeRanges(
        {{MediaTime::fromSeconds(start, 10000), MediaTime::fromSeconds(duration, 10000)}});
    return drain();
  }
};

struct Movie {
  const char* name;
  const char* file;
  const char* encoding;
};

void PrintTo(const Movie& movie, std::ostream* stream) { *stream << movie.name; }

const Movie kMovies[] = {
    {"H264LongGroups", "a.mp4", "-c:v libx264 -bf 3 -g 40"},
    {"H264OpenGroups", "a.mkv", "-c:v libx264 -bf 3 -g 10 -x264-params open-gop=1"},
    {"H264InTransportStream", "a.ts", "-c:v libx264 -bf 2 -g 12"},
    {"HevcOpenGroups", "a.mov", "-c:v libx265 -x265-params log-level=none:keyint=10:open-gop=1:bframes=3"},
    {"Vp9", "a.webm", "-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -g 12"},
    {"Mpeg4WithoutPresentationTimes", "a.avi", "-c:v mpeg4 -q:v 3 -bf 2 -g 12"},
    {"Mpeg4", "a.mp4", "-c:v mpeg4 -q:v 3 -bf 2 -g 12"},
    {"MotionJpeg", "a.mov", "-c:v mjpeg -q:v 3"},
    {"VariableRate", "a.mp4", "-vf select='lt(mod(n\\,5)\\,3)' -vsync vfr -c:v libx264 -bf 2 -g 15"},
    {"EditList", "a.mp4", "-c:v libx264 -bf 3 -g 20 -output_ts_offset 0.4"},
};

class RandomAccess : public testing::TestWithParam<Movie> {};

// Each picture read on its own, from the last to the first and then across the movie, is the one that reading in order
// gives at that time.
TEST_P(RandomAccess, GivesThePicturesThatReadingInOrderGives) {
  const ReaderFolder folder;
  const auto file = folder / GetParam().file;
  ASSERT_NO_FATAL_FAILURE(makeMovie(
      file, std::string("-f lavfi -i testsrc2=size=160x120:rate=10:duration=6 ") + GetParam().encoding + " OUT"));
  OpenedReader ordered(file, MediaType::video);
  const auto expected = ordered.readAll();
  ASSERT_GE(expected.size(), 36U);

  const RandomReader random(file, MediaType::video);
  ASSERT_EQ(random.drain().size(), expected.size());
  EXPECT_EQ(random.reader->status(), Status::reading);
  const auto expectPicture = [&](std::size_t index) {
    const double time = expected[index]->presentationTimeStamp().seconds();
    const auto found = random.read(std::max(0.0, time - 0.001), 0.002);
    ASSERT_EQ(found.size(), 1U) << index;
    EXPECT_EQ(found[0]->presentationTimeStamp(), expected[index]->presentationTimeStamp());
    EXPECT_EQ(pixelsOf(*found[0]), pixelsOf(*expected[index])) << index;
  };
  for (std::size_t i = expected.size(); i-- > 0;) expectPicture(i);
  for (std::size_t i = 0; i < expected.size(); i += 5) expectPicture(i * 7 % expected.size());

  random.output->markConfigurationAsFinal();
  EXPECT_EQ(random.reader->status(), Status::completed);
  EXPECT_EQ(random.output->copyNextSampleBuffer(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Movies, RandomAccess, testing::ValuesIn(kMovies),
                         [](const auto& movie) { return std::string(movie.param.name); });

TEST(AssetReaderRandomAccess, ReadsRangesInTheOrderGivenAndOnlyOnceDrained) {
  const ReaderFolder folder;
  ASSERT_NO_FATAL_FAILURE(
      makeMovie(folder / "a.mp4", "-f lavfi -i testsrc2=size=64x48:rate=10:duration=4 -c:v libx264 -g 15 OUT"));
  const RandomReader random(folder / "a.mp4", MediaType::video);
  EXPECT_DEATH(random.read(1, 1), "can be reset only once it was read to its end");
  random.drain();
  const auto time = [](int tenths) { return MediaTime::make(tenths, 10); };
  random.output->resetForReadingTimeRanges({{time(30), time(3)}, {time(5), time(2)}, {time(100), time(1)}});
  std::vector<double> times;
  for (const auto& sample : random.drain()) times.push_back(std::round(sample->presentationTimeStamp().seconds() * 10));
  EXPECT_THAT(times, testing::ElementsAre(30, 31, 32, 5, 6));
  random.output->markConfigurationAsFinal();
  EXPECT_EQ(random.reader->status(), Status::completed);
  random.output->resetForReadingTimeRanges({{time(0), time(1)}});
  EXPECT_EQ(random.output->copyNextSampleBuffer(), nullptr);

  OpenedReader ordinary(folder / "a.mp4", MediaType::video);
  ordinary.readAll();
  EXPECT_EQ(ordinary.reader->status(), Status::completed);
  EXPECT_DEATH(ordinary.output->resetForReadingTimeRanges({}), "without random access cannot be reset");
}

TEST(AssetReaderRandomAccess, CutsSoundAtTheEndsOfARange) {
  const ReaderFolder folder;
  ASSERT_NO_FATAL_FAILURE(makeMovie(
      folder / "a.m4a", "-f lavfi -i sine=frequency=300:duration=4:sample_rate=48000 -c:a aac -b:a 128k OUT"));
  OpenedReader ordered(folder / "a.m4a", MediaType::audio);
  std::vector<float> whole;
  for (const auto& sample : ordered.readAll()) {
    const auto part = firstChannelOf(*sample);
    whole.insert(whole.end(), part.begin(), part.end());
  }
  const RandomReader random(folder / "a.m4a", MediaType::audio);
  random.drain();
  for (const double start : {2.5, 0.0, 1.0001}) {
    const auto first = static_cast<std::size_t>(std::lround(start * 48000));
    std::vector<float> part;
    for (const auto& sample : random.read(start, 0.3)) {
      EXPECT_EQ(sample->presentationTimeStamp(),
                MediaTime::make(static_cast<std::int64_t>(first + part.size()), 48000));
      const auto piece = firstChannelOf(*sample);
      part.insert(part.end(), piece.begin(), piece.end());
    }
    ASSERT_EQ(part.size(), 14400U);
    float largest = 0;
    for (std::size_t i = 0; i < part.size(); ++i) largest = std::max(largest, std::abs(part[i] - whole[first + i]));
    EXPECT_LT(largest, 1e-3F) << start;
  }
}

TEST(AssetReader, GivesStoredSamplesWithoutSettings) {
  const ReaderFolder folder;
  const struct {
    const char* file;
    const char* encoding;
    const char* codec;
  } kFiles[] = {{"a.mp4", "-c:a aac", "aac"}, {"a.mkv", "-c:a libopus", "opus"}, {"a.avi", "-c:a libmp3lame", "mp3"}};
  for (const auto& each : kFiles) {
    const auto file = folder / each.file;
    ASSERT_NO_FATAL_FAILURE(
        makeMovie(file, std::string("-f lavfi -i testsrc2=size=64x48:rate=10:duration=2 -f lavfi -i "
                                    "sine=duration=2:sample_rate=48000 -c:v mpeg4 ") +
                            each.encoding + " OUT"));
    const auto asset = Asset::create(file).value();
    const auto track = asset->tracksWithMediaType(MediaType::audio).at(0);
    EXPECT_EQ(track->storedFormat()->codecName, each.codec);
    const auto reader = AssetReader::create(asset).value();
    const auto output = std::make_shared<AssetReaderTrackOutput>(track, std::nullopt);
    reader->addOutput(output);
    ASSERT_TRUE(reader->startReading());
    double end = 0;
    while (const auto sample = output->copyNextSampleBuffer()) {
      ASSERT_NE(sample->packetData(), nullptr);
      EXPECT_EQ(sample->format()->codecName, each.codec);
      EXPECT_GE(sample->outputPresentationTimeStamp(), MediaTime::zero());
      end = (sample->presentationTimeStamp() + sample->duration()).seconds();
    }
    EXPECT_NEAR(end, 2, 0.1) << each.file;
    EXPECT_EQ(reader->status(), Status::completed);
  }
  // What is PCM in the file is PCM for the reader too.
  ASSERT_NO_FATAL_FAILURE(
      makeMovie(folder / "a.wav", "-f lavfi -i sine=duration=1:sample_rate=8000 -c:a pcm_s16le OUT"));
  const auto asset = Asset::create(folder / "a.wav").value();
  const auto reader = AssetReader::create(asset).value();
  const auto output = std::make_shared<AssetReaderTrackOutput>(asset->tracks().at(0), std::nullopt);
  reader->addOutput(output);
  ASSERT_TRUE(reader->startReading());
  const auto sample = output->copyNextSampleBuffer();
  EXPECT_EQ(sample->format()->audioFormat.sampleType, AudioSampleType::int16);
  EXPECT_NE(sample->audioBufferList(), nullptr);
}

// Every hundredth of a file in turn is cut off, or has a byte of it flipped.
TEST(AssetReader, SurvivesCutsAndFlipsEverywhere) {
  const ReaderFolder folder;
  for (const char* name : {"a.mp4", "a.mkv", "a.avi"}) {
    const auto movie = folder / name;
    ASSERT_NO_FATAL_FAILURE(makeMovie(
        movie,
        "-f lavfi -i testsrc2=size=64x48:rate=10:duration=2 -f lavfi -i sine=duration=2 -c:v mpeg4 -bf 2 -g 8 "
        "-c:a mp2 OUT"));
    const auto whole = bytesOf(movie);
    for (int step = 0; step < 200; ++step) {
      auto bytes = whole;
      const std::size_t place = bytes.size() * static_cast<std::size_t>(step / 2) / 100;
      if (step % 2 == 0) {
        bytes.resize(place);
      } else {
        bytes[place] ^= 0xFF;
      }
      writeBytes(folder / "damaged", bytes);
      const auto asset = Asset::create(folder / "damaged", {.prefersPreciseDurationAndTiming = true});
      if (!asset) continue;
      for (const auto& track : (*asset)->tracks()) {
        const auto reader = AssetReader::create(*asset).value();
        const auto output = std::make_shared<AssetReaderTrackOutput>(track);
        output->setSupportsRandomAccess(true);
        reader->addOutput(output);
        if (!reader->startReading()) continue;
        std::vector<MediaTime> times;
        while (const auto sample = output->copyNextSampleBuffer()) times.push_back(sample->presentationTimeStamp());
        for (std::size_t i = times.size(); i > 0; i = i > 8 ? i - 8 : 0) {
          output->resetForReadingTimeRanges({{times[i - 1], MediaTime::make(1, 1000)}});
          while (output->copyNextSampleBuffer()) {
          }
        }
        output->markConfigurationAsFinal();
        EXPECT_NE(reader->status(), Status::reading) << name << step;
      }
    }
  }
}

TEST(Asset, LoadsItsTracksAsynchronously) {
  const ReaderFolder folder;
  ASSERT_NO_FATAL_FAILURE(makeMovie(folder / "a.h264", "-f lavfi -i testsrc2=size=64x48:rate=25:duration=2 OUT"));
  const auto load = [](const std::shared_ptr<Asset>& asset) {
    DispatchSemaphore loaded(0);
    asset->loadTracksAsynchronously([&] { loaded.signal(); });
    loaded.wait();
  };
  // A raw stream does not say how long it is.
  const auto asset = Asset::createUnloaded(folder / "a.h264", {.prefersPreciseDurationAndTiming = true});
  EXPECT_EQ(asset->statusOfTracks(), Asset::ValueStatus::unknown);
  load(asset);
  EXPECT_EQ(asset->statusOfTracks(), Asset::ValueStatus::loaded);
  EXPECT_EQ(asset->tracks().size(), 1U);
  EXPECT_NEAR(asset->duration().seconds(), 2, 0.1);

  const auto missing = Asset::createUnloaded(folder / "none.mp4");
  load(missing);
  EXPECT_EQ(missing->statusOfTracks(), Asset::ValueStatus::failed);
  EXPECT_THAT(missing->error().value().description, HasSubstr("No such file"));
  EXPECT_TRUE(missing->tracks().empty());
}

}  // namespace
}  // namespace tavrel::test
