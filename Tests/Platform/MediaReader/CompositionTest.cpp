#include "Platform/Media/Composition.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "Platform/Dispatch/RunLoop.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Media/AssetReaderAudioMixOutput.h"
#include "Platform/Media/AssetReaderVideoCompositionOutput.h"
#include "Platform/Media/DisplayLink.h"
#include "Platform/Media/PlayerItem.h"
#include "Support/ReaderMovies.h"

namespace tavrel::test {
namespace {

using testing::ElementsAre;

MediaTime tenths(std::int64_t count) { return MediaTime::make(count, 10); }

MediaTimeRange range(std::int64_t start, std::int64_t duration) { return {tenths(start), tenths(duration)}; }

std::vector<std::shared_ptr<SampleBuffer>> readAll(const std::shared_ptr<const Asset>& asset,
                                                   const std::shared_ptr<AssetReaderOutput>& output) {
  const auto reader = AssetReader::create(asset).value();
  reader->addOutput(output);
  EXPECT_TRUE(reader->startReading());
  std::vector<std::shared_ptr<SampleBuffer>> samples;
  while (auto sample = output->copyNextSampleBuffer()) samples.push_back(std::move(sample));
  EXPECT_EQ(reader->status(), AssetReaderStatus::completed);
  return samples;
}

/// B, G, R of one pixel.
std::vector<int> pixelAt(const SampleBuffer& sample, std::size_t x, std::size_t y) {
  const auto pixels = pixelsOf(sample);
  const std::size_t at = (y * sample.imageBuffer()->width() + x) * 4;
  return {pixels[at], pixels[at + 1], pixels[at + 2]};
}

class CompositionTest : public ::testing::Test {
 protected:
  /// Gray that is 10 × the frame's number plus 20, ten frames a second, without loss; with a constant sound.
  std::shared_ptr<Asset> gray(const char* name, int frames, const char* level = "10*N+20", const char* sound = "0.25") {
    const std::string seconds = std::to_string(frames / 10.0);
    makeMovie(folder_ / name, "-f lavfi -i \"color=black:size=32x24:rate=10:duration=" + seconds +
                                  ",format=rgb24,geq=r='" + level + "':g='" + level + "':b='" + level +
                                  "'\" -f lavfi -i \"aevalsrc=" + sound + ":s=8000:d=" + seconds +
                                  "\" -c:v png -c:a pcm_s16le OUT");
    return Asset::create(folder_ / name).value();
  }
  static std::shared_ptr<const AssetTrack> track(const Asset& asset, MediaType type) {
    return asset.tracksWithMediaType(type).at(0);
  }

  ReaderFolder folder_;
};

TEST_F(CompositionTest, PiecesPlayWhereTheyWereInserted) {
  const auto source = gray("a.mov", 10);
  const auto pictures = track(*source, MediaType::video);
  const auto composition = MutableComposition::create();
  const auto edited = composition->addMutableTrack(MediaType::video);
  ASSERT_TRUE(edited->insertTimeRange(range(5, 3), pictures, tenths(0)).has_value());  // 5 6 7
  ASSERT_TRUE(edited->insertTimeRange(range(0, 2), pictures, tenths(1)).has_value());  // 5 0 1 6 7
  edited->insertEmptyTimeRange(range(3, 2));                                           // 5 0 1 - - 6 7
  edited->removeTimeRange(range(1, 1));                                                // 5 1 - - 6 7
  edited->scaleTimeRange(range(4, 2), tenths(4));                                      // 5 1 - - 6 . 7 .
  EXPECT_EQ(composition->duration(), tenths(8));
  EXPECT_FALSE(edited->insertTimeRange(range(0, 1), track(*source, MediaType::audio), tenths(0)).has_value());
  EXPECT_FALSE(edited->insertTimeRange(range(0, 0), pictures, tenths(0)).has_value());
  EXPECT_FALSE(edited->insertTimeRange(range(0, 1), pictures, MediaTime::indefinite()).has_value());

  const auto samples =
      readAll(composition, std::make_shared<AssetReaderTrackOutput>(track(*composition, MediaType::video)));
  std::vector<int> levels;
  std::vector<double> times;
  for (const auto& sample : samples) {
    levels.push_back(pixelAt(*sample, 16, 12)[0]);
    times.push_back(std::round(sample->presentationTimeStamp().seconds() * 1000));
  }
  EXPECT_THAT(levels, ElementsAre(70, 30, 80, 90));
  EXPECT_THAT(times, ElementsAre(0, 100, 400, 600));

  // A piece that begins inside a picture shows it from there on.
  const auto inside = composition->addMutableTrack(MediaType::video);
  ASSERT_TRUE(inside->insertTimeRange({MediaTime::make(25, 100), tenths(1)}, pictures, tenths(0)).has_value());
  const auto shown = readAll(composition, std::make_shared<AssetReaderTrackOutput>(inside->snapshot()));
  ASSERT_EQ(shown.size(), 2U);
  EXPECT_EQ(pixelAt(*shown[0], 0, 0)[0], 40);
  EXPECT_EQ(shown[0]->presentationTimeStamp(), MediaTime::zero());
  EXPECT_NEAR(shown[1]->presentationTimeStamp().seconds(), 0.05, 1e-6);
}

TEST_F(CompositionTest, LayersFollowTheirRampsOverTheBackground) {
  const auto front = gray("front.mov", 10, "200");
  const auto back = gray("back.mov", 10, "100");
  const auto composition = MutableComposition::create();
  std::vector<int> trackIDs;
  for (const auto& source : {front, back}) {
    const auto edited = composition->addMutableTrack(MediaType::video);
    ASSERT_TRUE(edited->insertTimeRange(range(0, 10), track(*source, MediaType::video), tenths(0)).has_value());
    trackIDs.push_back(edited->trackID());
  }
  const auto video = MutableVideoComposition::create();
  video->setRenderSize({64, 48});
  video->setFrameDuration(tenths(2));
  VideoCompositionInstruction instruction;
  instruction.timeRange = range(0, 8);
  instruction.backgroundColor = {1, 0, 0, 1};
  VideoCompositionLayerInstruction fading(trackIDs[0]);
  fading.setOpacityRamp(1, 0, range(2, 4));
  VideoCompositionLayerInstruction moving(trackIDs[1]);
  moving.setTransformRamp(AffineTransform::makeTranslation(0, 0), AffineTransform::makeTranslation(32, 24),
                          range(0, 4));
  moving.setTransform(AffineTransform::makeScale(2, 2), tenths(6));
  instruction.layerInstructions = {fading, moving};
  video->setInstructions({instruction});
  const auto output =
      std::make_shared<AssetReaderVideoCompositionOutput>(composition->tracksWithMediaType(MediaType::video));
  output->setVideoComposition(video);
  const auto samples = readAll(composition, output);
  ASSERT_EQ(samples.size(), 5U);
  for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(samples[i]->presentationTimeStamp(), tenths(static_cast<int>(i) * 2));
  const std::vector<int> red = {0, 0, 255};
  const auto plain = [](int level) { return std::vector<int>{level, level, level}; };
  EXPECT_EQ(pixelAt(*samples[0], 4, 4), plain(200));
  EXPECT_EQ(pixelAt(*samples[0], 40, 30), red);
  EXPECT_EQ(pixelAt(*samples[1], 40, 30), plain(100));  // half the way, (16, 12) to (48, 36)
  EXPECT_EQ(pixelAt(*samples[1], 50, 30), red);
  EXPECT_EQ(pixelAt(*samples[2], 4, 4), (std::vector<int>{100, 100, 228}));  // half of the front over red
  EXPECT_EQ(pixelAt(*samples[2], 60, 44), plain(100));
  EXPECT_EQ(pixelAt(*samples[3], 4, 4), plain(100));
  EXPECT_EQ(pixelAt(*samples[3], 62, 46), plain(100));  // twice as large
  EXPECT_EQ(pixelAt(*samples[4], 4, 4), plain(0));      // no instruction
}

TEST_F(CompositionTest, LayersThatAreReducedAreMeansOfAllPixels) {
  // Rings that are finer than a pixel of the result.
  makeMovie(folder_ / "rings.mov",
            "-f lavfi -i \"color=black:size=240x160:rate=10:duration=0.1,format=rgb24,"
            "geq=r='127.5+127.5*cos(((X-120)^2+(Y-80)^2)*PI/240)':g='r(X,Y)':b='r(X,Y)'\" -c:v png OUT");
  const auto source = Asset::create(folder_ / "rings.mov").value();
  const auto whole = readAll(source, std::make_shared<AssetReaderTrackOutput>(track(*source, MediaType::video)));
  const auto video = MutableVideoComposition::create();
  video->setRenderSize({60, 80});
  video->setFrameDuration(tenths(1));
  VideoCompositionInstruction instruction;
  instruction.timeRange = range(0, 1);
  VideoCompositionLayerInstruction layer(track(*source, MediaType::video)->trackID());
  layer.setTransform({0.25, 0, 0, 0.5, 0, 0}, tenths(0));
  instruction.layerInstructions = {layer};
  video->setInstructions({instruction});
  const auto output =
      std::make_shared<AssetReaderVideoCompositionOutput>(source->tracksWithMediaType(MediaType::video));
  output->setVideoComposition(video);
  const auto reduced = readAll(source, output);
  ASSERT_EQ(reduced.size(), 1U);
  for (std::size_t y = 0; y < 80; y += 3) {
    for (std::size_t x = 0; x < 60; x += 3) {
      double mean = 0;
      for (std::size_t i = 0; i < 8; ++i) mean += pixelAt(*whole.at(0), x * 4 + i % 4, y * 2 + i / 4)[2] / 8.0;
      EXPECT_NEAR(pixelAt(*reduced[0], x, y)[2], mean, 2) << x << " " << y;
    }
  }
}

TEST_F(CompositionTest, VolumesFollowTheirRampsAndTracksAddUp) {
  const auto first = gray("a.mov", 10, "0", "0.25");
  const auto second = gray("b.mov", 20, "0", "0.5");
  const auto composition = MutableComposition::create();
  const auto one = composition->addMutableTrack(MediaType::audio);
  const auto two = composition->addMutableTrack(MediaType::audio);
  ASSERT_TRUE(one->insertTimeRange(range(0, 10), track(*first, MediaType::audio), tenths(5)).has_value());
  ASSERT_TRUE(two->insertTimeRange(range(0, 20), track(*second, MediaType::audio), tenths(0)).has_value());
  AudioMixInputParameters fading(two->trackID());
  fading.setVolumeRamp(1, 0, range(5, 10));
  const auto output = std::make_shared<AssetReaderAudioMixOutput>(composition->tracksWithMediaType(MediaType::audio));
  output->setAudioMix(std::make_shared<AudioMix>(std::vector{fading}));
  std::vector<float> mix;
  for (const auto& sample : readAll(composition, output)) {
    EXPECT_EQ(sample->presentationTimeStamp(), MediaTime::make(static_cast<std::int64_t>(mix.size()), 8000));
    const auto part = firstChannelOf(*sample);
    mix.insert(mix.end(), part.begin(), part.end());
  }
  ASSERT_EQ(mix.size(), 16000U);
  EXPECT_NEAR(mix[3990], 0.5, 1e-3);
  EXPECT_NEAR(mix[4010], 0.75, 1e-3);
  EXPECT_NEAR(mix[8000], 0.5, 1e-3);  // half of the fading one
  EXPECT_NEAR(mix[11990], 0.25, 1e-3);
  EXPECT_NEAR(mix[12010], 0, 1e-3);
}

TEST_F(CompositionTest, SlowedSoundLastsLongerWithoutSeams) {
  ASSERT_NO_FATAL_FAILURE(
      makeMovie(folder_ / "a.wav", "-f lavfi -i sine=frequency=200:duration=1:sample_rate=8000 -c:a pcm_s16le OUT"));
  const auto source = Asset::create(folder_ / "a.wav").value();
  const auto composition = MutableComposition::create();
  ASSERT_TRUE(composition->insertTimeRange(range(0, 10), *source, tenths(0)).has_value());
  composition->scaleTimeRange(range(0, 10), tenths(15));
  std::vector<float> sound;
  for (const auto& sample :
       readAll(composition, std::make_shared<AssetReaderTrackOutput>(track(*composition, MediaType::audio)))) {
    const auto first = sample->presentationTimeStamp().convertedToTimescale(8000).value;
    EXPECT_EQ(first, static_cast<std::int64_t>(sound.size()));
    const auto part = firstChannelOf(*sample);
    sound.insert(sound.end(), part.begin(), part.end());
  }
  ASSERT_NEAR(static_cast<double>(sound.size()), 12000, 1);
  int crossings = 0;
  float largestStep = 0;
  for (std::size_t i = 1; i < sound.size(); ++i) {
    crossings += sound[i - 1] < 0 && sound[i] >= 0 ? 1 : 0;
    largestStep = std::max(largestStep, std::abs(sound[i] - sound[i - 1]));
  }
  EXPECT_NEAR(crossings, 200, 2);
  EXPECT_LT(largestStep, 0.125F * 2 * 3.15F * 200 / 1.5F / 8000 * 1.6F);
}

TEST_F(CompositionTest, APlayerItemFollowsTheHostsClock) {
  const auto source = gray("a.mov", 20);
  PlayerItem item(source);
  const auto output = PlayerItemVideoOutput::create({});
  item.addOutput(output);
  const auto waitForPicture = [&](MediaTime time) {
    for (int i = 0; i < 500 && !output->hasNewPixelBufferForItemTime(time); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const auto picture = output->copyPixelBufferForItemTime(time);
    if (!picture) return -1;
    picture->lockBaseAddress(PixelBufferLock::readOnly);
    const int level = picture->baseAddress()[0];
    picture->unlockBaseAddress(PixelBufferLock::readOnly);
    return level;
  };
  EXPECT_EQ(waitForPicture(MediaTime::zero()), 20);
  EXPECT_FALSE(output->hasNewPixelBufferForItemTime(MediaTime::zero()));
  item.seek(tenths(12));
  EXPECT_EQ(item.currentTime(), tenths(12));
  EXPECT_EQ(waitForPicture(MediaTime::make(1250, 1000)), 140);
  const double now = DisplayLink::hostTime();
  item.setRate(2);
  EXPECT_NEAR(item.itemTimeForHostTime(now + 0.1).seconds(), 1.4, 0.05);
  EXPECT_EQ(item.itemTimeForHostTime(now + 9), item.duration());
}

TEST(DisplayLink, CallsAtTheDisplaysRateWhileNotPaused) {
  DisplayLink::setDisplayRate(100);
  int calls = 0;
  const auto link = DisplayLink::create([&](DisplayLink& sender) {
    ++calls;
    EXPECT_NEAR(sender.timestamp(), DisplayLink::hostTime(), 0.05);
    EXPECT_DOUBLE_EQ(sender.duration(), 0.01);
  });
  link->addToMainRunLoop();
  DisplayLink::setDisplayRate(60);
  RunLoop::main().runFor(std::chrono::milliseconds(300));
  EXPECT_GE(calls, 10);
  EXPECT_LE(calls, 31);
  link->setPaused(true);
  calls = 0;
  RunLoop::main().runFor(std::chrono::milliseconds(50));
  EXPECT_EQ(calls, 0);
  link->setPaused(false);
  RunLoop::main().runFor(std::chrono::milliseconds(50));
  EXPECT_GE(calls, 1);
  link->invalidate();
  calls = 0;
  RunLoop::main().runFor(std::chrono::milliseconds(50));
  EXPECT_EQ(calls, 0);
}

}  // namespace
}  // namespace tavrel::test
