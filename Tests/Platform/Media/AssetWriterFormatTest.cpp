#include <gtest/gtest.h>

#include <thread>

#include "Platform/Graphics/PixelBufferAttachments.h"
#include "Platform/Graphics/PixelBufferPool.h"
#include "Platform/Media/MovieMaker.h"
#include "Platform/Media/MovieProbe.h"

namespace tavrel::test {
namespace {

TEST(AssetWriterFormat, H264AndAACWithTags) {
  for (const char* type : {kFileTypeQuickTimeMovie, kFileTypeMPEG4, kFileTypeMatroska}) {
    for (const bool isRealTime : {true, false}) {
      const TemporaryFolder folder;
      const auto path = folder / "movie";
      const auto maker = MovieMaker::start(
          path,
          {.fileType = type, .width = 320, .height = 240, .isRealTime = isRealTime, .audioSettings = aacSettings()});
      const auto picture = solidPicture(320, 240, 255, 0, 0);
      for (int i = 0; i < 60; ++i) {
        ASSERT_TRUE(maker.addPicture(picture, MediaTime::make(i, 30)));
        ASSERT_TRUE(maker.addTone(1 / 30.0, MediaTime::make(i * 1600, 48000)));
      }
      ASSERT_TRUE(maker.writer->finishWriting()) << maker.writer->error()->description;
      EXPECT_EQ(maker.writer->status(), AssetWriterStatus::completed);

      const auto probe = MovieProbe::open(path);
      ASSERT_TRUE(probe.video && probe.audio) << type << probe.error;
      EXPECT_EQ(probe.video->codec, "h264");
      EXPECT_EQ(probe.video->pixelFormat, "yuv420p");
      EXPECT_EQ(probe.video->width, 320);
      EXPECT_EQ(probe.video->height, 240);
      EXPECT_EQ(probe.video->primaries, "bt709");
      EXPECT_EQ(probe.video->transfer, "bt709");
      EXPECT_EQ(probe.video->matrix, "smpte170m");
      EXPECT_EQ(probe.video->range, "tv");
      EXPECT_EQ(probe.audio->codec, "aac");
      EXPECT_EQ(probe.audio->channels, 1);
      EXPECT_EQ(probe.audio->sampleRate, 48000);
      EXPECT_NEAR(probe.duration, 2, 0.05) << type;
      EXPECT_EQ(probe.decodeErrors, 0);
      ASSERT_EQ(probe.video->times.size(), 60U) << type;
      for (std::size_t i = 0; i < 60; ++i) {
        const double unit = 1.0 / probe.video->timescale;
        EXPECT_NEAR(probe.video->seconds(i), static_cast<double>(i) / 30,
                    type == std::string(kFileTypeMatroska) ? 0.00051 : unit * 1e-3);
        // Pure blue by BT.601 in limited range.
        EXPECT_NEAR(probe.video->centers[i][0], 41, 2);
        EXPECT_NEAR(probe.video->centers[i][1], 240, 2);
        EXPECT_NEAR(probe.video->centers[i][2], 110, 2);
      }
      EXPECT_NEAR(probe.audio->seconds(), 2, 0.03);
      EXPECT_LT(probe.audio->longestJoint, 0.0015);
      EXPECT_NEAR(probe.audio->level(0.1, 1.9), 0.5 / std::sqrt(2.0), 0.01);
    }
  }
}

TEST(AssetWriterFormat, OddSizesAreRoundedUpWithTheEdgeRepeated) {
  const TemporaryFolder folder;
  const auto maker = MovieMaker::start(folder / "movie.mov", {.width = 63, .height = 47});
  EXPECT_EQ(maker.video->encodedSize(), (Size{64, 48}));
  const auto picture = solidPicture(63, 47, 255, 255, 255);
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(maker.addPicture(picture, MediaTime::make(i, 30)));
  ASSERT_TRUE(maker.writer->finishWriting());
  const auto probe = MovieProbe::open(folder / "movie.mov", true);
  EXPECT_EQ(probe.video->width, 64);
  EXPECT_EQ(probe.video->height, 48);
  for (const int luma : probe.video->luma.back()) ASSERT_NEAR(luma, 235, 2);

  const auto tiny = MovieMaker::start(folder / "tiny.mov", {.width = 1, .height = 1});
  ASSERT_TRUE(tiny.addPicture(solidPicture(1, 1, 0, 0, 0), MediaTime::zero()));
  EXPECT_TRUE(tiny.writer->finishWriting());
  EXPECT_EQ(MovieProbe::open(folder / "tiny.mov").video->width, 2);
}

TEST(AssetWriterFormat, ThePictureIsTakenAsItWasWhenAppended) {
  const TemporaryFolder folder;
  const auto maker = MovieMaker::start(folder / "movie.mov", {.width = 640, .height = 480, .isRealTime = false});
  EXPECT_FALSE(MovieMaker::create(folder / "other.mov", {}).adaptor->pixelBufferPool()) << "before writing starts";
  const auto pool = maker.adaptor->pixelBufferPool();
  ASSERT_TRUE(pool);
  EXPECT_EQ(pool->width(), 640U);
  EXPECT_EQ(pool->pixelFormat(), PixelFormat::bgra32);
  // One buffer, drawn again and again while earlier pictures still wait for the encoder.
  const auto buffer = *pool->createPixelBuffer();
  for (int i = 0; i < 40; ++i) {
    buffer->lockBaseAddress(PixelBufferLock::readWrite);
    std::fill_n(buffer->baseAddress(), buffer->bytesPerRow() * 480, static_cast<std::uint8_t>(i * 6));
    buffer->unlockBaseAddress(PixelBufferLock::readWrite);
    ASSERT_TRUE(maker.addPicture(buffer, MediaTime::make(i, 30)));
  }
  ASSERT_TRUE(maker.writer->finishWriting());
  const auto probe = MovieProbe::open(folder / "movie.mov");
  ASSERT_EQ(probe.video->centers.size(), 40U);
  for (int i = 0; i < 40; ++i) {
    EXPECT_NEAR(probe.video->centers[static_cast<std::size_t>(i)][0], 16 + i * 6 * 219 / 255.0, 2.5) << i;
  }
}

TEST(AssetWriterFormat, ColoursFollowTheAttachments) {
  const TemporaryFolder folder;
  const auto maker = MovieMaker::start(folder / "movie.mov", {});
  const auto picture = solidPicture(64, 48, 255, 0, 0);
  picture->setAttachment(std::string(kPixelBufferYCbCrMatrixKey), std::string(kYCbCrMatrixITU_R_709_2), true);
  picture->setAttachment(std::string(kPixelBufferTransferFunctionKey), std::string(kTransferFunctionSRGB), true);
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(maker.addPicture(picture, MediaTime::make(i, 30)));
  ASSERT_TRUE(maker.writer->finishWriting());
  const auto probe = MovieProbe::open(folder / "movie.mov");
  EXPECT_EQ(probe.video->matrix, "bt709");
  EXPECT_EQ(probe.video->transfer, "iec61966-2-1");
  EXPECT_EQ(probe.video->primaries, "bt709");
  // Pure blue by BT.709.
  EXPECT_NEAR(probe.video->centers[0][0], 32, 2);
  EXPECT_NEAR(probe.video->centers[0][1], 240, 2);
  EXPECT_NEAR(probe.video->centers[0][2], 118, 2);
}

TEST(AssetWriterFormat, OtherSizesAndLayoutsAreConverted) {
  const TemporaryFolder folder;
  const auto maker = MovieMaker::start(folder / "movie.mov", {});
  const auto planar = *PixelBuffer::create(64, 48, PixelFormat::biPlanar420VideoRange);
  planar->lockBaseAddress(PixelBufferLock::readWrite);
  std::fill_n(planar->baseAddressOfPlane(0), planar->bytesPerRowOfPlane(0) * 48, std::uint8_t{41});
  for (std::size_t i = 0; i < planar->bytesPerRowOfPlane(1) * 24; i += 2) {
    planar->baseAddressOfPlane(1)[i] = 240, planar->baseAddressOfPlane(1)[i + 1] = 110;
  }
  planar->unlockBaseAddress(PixelBufferLock::readWrite);
  ASSERT_TRUE(maker.addPicture(planar, MediaTime::make(0, 30)));
  ASSERT_TRUE(maker.addPicture(solidPicture(200, 100, 255, 0, 0), MediaTime::make(1, 30)));
  ASSERT_TRUE(maker.addPicture(solidPicture(64, 48, 255, 0, 0), MediaTime::make(2, 30)));
  ASSERT_TRUE(maker.writer->finishWriting());
  const auto probe = MovieProbe::open(folder / "movie.mov");
  ASSERT_EQ(probe.video->centers.size(), 3U);
  for (const auto& center : probe.video->centers) {
    EXPECT_NEAR(center[0], 41, 3);
    EXPECT_NEAR(center[1], 240, 3);
    EXPECT_NEAR(center[2], 110, 3);
  }
}

TEST(AssetWriterFormat, TransformAndMetadataReachTheHeader) {
  for (const char* type : {kFileTypeQuickTimeMovie, kFileTypeMPEG4}) {
    for (const bool hasOwnKey : {false, true}) {
      const TemporaryFolder folder;
      std::vector<MetadataItem> items{
          {kMetadataTitle, "A title – ü"}, {kMetadataCreationDate, "2024-05-17T09:30:00Z"}, {kMetadataComment, "hm"}};
      if (hasOwnKey) items.push_back({"com.example.take", "7"});
      if (type == std::string(kFileTypeQuickTimeMovie)) items.push_back({kMetadataLocation, "+48.8577+002.2950/"});
      const AffineTransform quarterTurn{0, 1, -1, 0, 48, 0};
      const auto maker = MovieMaker::start(folder / "movie", {.fileType = type, .prepare = [&](MovieMaker& m) {
                                                                m.video->setTransform(quarterTurn);
                                                                m.writer->setMetadata(items);
                                                              }});
      EXPECT_EQ(maker.video->transform(), quarterTurn);
      EXPECT_EQ(maker.writer->metadata(), items);
      maker.video->setTransform({});
      EXPECT_EQ(maker.video->transform(), quarterTurn) << "too late";
      ASSERT_TRUE(maker.addPicture(solidPicture(64, 48, 0, 0, 0), MediaTime::zero()));
      ASSERT_TRUE(maker.writer->finishWriting());
      const auto probe = MovieProbe::open(folder / "movie");
      ASSERT_TRUE(probe.video->displayMatrix);
      const std::array<std::int32_t, 9> expected{0, 65536, 0, -65536, 0, 0, 48 * 65536, 0, 1 << 30};
      EXPECT_EQ(*probe.video->displayMatrix, expected);
      for (const MetadataItem& item : items) {
        const auto found = probe.metadata.find(item.key);
        ASSERT_NE(found, probe.metadata.end()) << type << " " << item.key;
        EXPECT_EQ(found->second.substr(0, 10), item.value.substr(0, 10));
      }
    }
  }
}

TEST(AssetWriterFormat, HEVCBitRateAndKeyframes) {
  const TemporaryFolder folder;
  Dictionary hevc = h264Settings(128, 96);
  hevc[kVideoCodecKey] = std::string(kVideoCodecHEVC);
  Dictionary rated = h264Settings(320, 240);
  rated[kVideoAverageBitRateKey] = std::int64_t{400'000};
  rated[kVideoMaxKeyFrameIntervalKey] = std::int64_t{5};
  const auto record = [&](const char* name, const Dictionary& settings, std::size_t width, std::size_t height) {
    const auto writer = *AssetWriter::create(folder / name, kFileTypeMPEG4);
    writer->setIndexRoom(MediaTime::zero());
    const auto input = AssetWriterInput::create(MediaType::video, settings);
    EXPECT_TRUE(writer->addInput(input)) << writer->error()->description;
    EXPECT_TRUE(writer->startWriting()) << writer->error()->description;
    writer->startSessionAtSourceTime(MediaTime::zero());
    unsigned state = 1;
    for (int i = 0; i < 120; ++i) {
      const auto picture = solidPicture(width, height, 0, 0, 0);
      picture->lockBaseAddress(PixelBufferLock::readWrite);
      for (std::size_t k = 0; k < width * height * 4; ++k) {
        state = state * 1664525 + 1013904223;
        picture->baseAddress()[k] = static_cast<std::uint8_t>(state >> 24);
      }
      picture->unlockBaseAddress(PixelBufferLock::readWrite);
      EXPECT_TRUE(input->waitUntilReady(std::chrono::seconds(20)));
      const SampleTiming timing{MediaTime::invalid(), MediaTime::make(i, 60), MediaTime::invalid()};
      EXPECT_TRUE(input->append(*SampleBuffer::createImage(picture, timing)));
    }
    EXPECT_TRUE(writer->finishWriting());
    return MovieProbe::open(folder / name);
  };
  EXPECT_EQ(record("hevc.mp4", hevc, 128, 96).video->codec, "hevc");
  const auto probe = record("rated.mp4", rated, 320, 240);
  EXPECT_NEAR(probe.duration, 2, 0.01);
  ASSERT_EQ(probe.video->keyframes.size(), 120U);
  for (std::size_t i = 0; i < 120; i += 5) {
    const auto first = probe.video->keyframes.begin() + static_cast<std::ptrdiff_t>(i);
    EXPECT_TRUE(std::find(first, first + 5, true) != first + 5) << i;
  }
  // Two seconds of noise, at 60 frames a second, would take megabytes at constant quality.
  EXPECT_LT(std::filesystem::file_size(folder / "rated.mp4"), 400'000U);
}

TEST(AssetWriterFormat, PullModeIsCalledUntilFinished) {
  const TemporaryFolder folder;
  auto maker = MovieMaker::create(folder / "movie.mov", {.isRealTime = false, .audioSettings = aacSettings()});
  const auto videoQueue = DispatchQueue::create("test.video");
  const auto audioQueue = DispatchQueue::create("test.audio");
  const auto picture = solidPicture(64, 48, 30, 60, 90);
  // Asked for before writing starts; the first block starts the session.
  int frame = 0;
  maker.video->requestMediaDataWhenReady(videoQueue, [&] {
    while (maker.video->isReadyForMoreMediaData()) {
      if (frame == 0) maker.writer->startSessionAtSourceTime(MediaTime::zero());
      if (frame == 300) return maker.video->markAsFinished();
      EXPECT_TRUE(maker.adaptor->append(picture, MediaTime::make(frame, 30)));
      ++frame;
    }
  });
  int piece = 0;
  maker.audio->requestMediaDataWhenReady(audioQueue, [&] {
    while (maker.audio->isReadyForMoreMediaData()) {
      if (piece == 500) return maker.audio->markAsFinished();
      if (maker.audio->append(sound({}, 960, MediaTime::make(piece * 960, 48000), [](double) { return 0.1; }))) ++piece;
    }
  });
  EXPECT_EQ(frame, 0);
  ASSERT_TRUE(maker.writer->startWriting());
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  const auto isDone = [&] {
    return videoQueue->sync([&] { return frame == 300; }) && audioQueue->sync([&] { return piece == 500; });
  };
  while (!isDone() && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  ASSERT_TRUE(maker.writer->finishWriting());
  const auto probe = MovieProbe::open(folder / "movie.mov");
  EXPECT_EQ(probe.video->times.size(), 300U);
  EXPECT_NEAR(probe.audio->seconds(), 10, 0.03);
}

TEST(AssetWriterFormat, WaitingNeverTakesMoreThanAFewPictures) {
  const TemporaryFolder folder;
  const auto maker = MovieMaker::start(folder / "movie.mov", {.width = 1280, .height = 720});
  const auto picture = solidPicture(1280, 720, 1, 2, 3);
  int accepted = 0;
  const auto before = std::chrono::steady_clock::now();
  while (maker.adaptor->append(picture, MediaTime::make(accepted, 600))) ++accepted;
  EXPECT_FALSE(maker.video->isReadyForMoreMediaData());
  EXPECT_GE(accepted, 4);
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(2)) << "append does not wait";
  EXPECT_TRUE(maker.video->waitUntilReady(std::chrono::seconds(20)));
  ASSERT_TRUE(maker.writer->finishWriting());
  EXPECT_EQ(MovieProbe::open(folder / "movie.mov").video->times.size(), static_cast<std::size_t>(accepted));
}

TEST(AssetWriterFormat, CompressedPacketsAreStoredAsTheyCome) {
  // The packets of a finished movie, put into another one.
  const TemporaryFolder folder;
  const auto maker = MovieMaker::start(folder / "source.mov", {.audioSettings = aacSettings()});
  ASSERT_TRUE(maker.addPicture(solidPicture(64, 48, 0, 0, 0), MediaTime::zero()));
  ASSERT_TRUE(maker.addTone(1, MediaTime::zero()));
  ASSERT_TRUE(maker.writer->finishWriting());
  const auto packets = MovieProbe::packets(folder / "source.mov", MediaType::audio);
  ASSERT_GT(packets.size(), 40U);

  const auto writer = *AssetWriter::create(folder / "copy.mp4", kFileTypeMPEG4);
  const auto input = AssetWriterInput::create(MediaType::audio, std::nullopt);
  ASSERT_TRUE(writer->addInput(input));
  ASSERT_TRUE(writer->startWriting());
  writer->startSessionAtSourceTime(MediaTime::zero());
  for (const auto& packet : packets)
    ASSERT_TRUE(input->waitUntilReady(std::chrono::seconds(5)) && input->append(packet));
  ASSERT_TRUE(writer->finishWriting()) << writer->error()->description;
  const auto source = MovieProbe::open(folder / "source.mov");
  const auto copy = MovieProbe::open(folder / "copy.mp4");
  ASSERT_TRUE(copy.audio);
  EXPECT_EQ(copy.audio->samples, source.audio->samples);
}

}  // namespace
}  // namespace tavrel::test
