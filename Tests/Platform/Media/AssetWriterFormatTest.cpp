#include <gtest/gtest.h>

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
          path, {.fileType = type, .width = 320, .height = 240, .isRealTime = isRealTime, .audioSettings = aacSettings()});
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
        EXPECT_NEAR(probe.video->seconds(i), static_cast<double>(i) / 30, type == std::string(kFileTypeMatroska) ? 0.00051 : unit * 1e-3);
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

}  // namespace
}  // namespace tavrel::test
