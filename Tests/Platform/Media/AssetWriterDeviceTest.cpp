// Encoders that run on a device, and what becomes of a recording when it fails.
#include <gtest/gtest.h>

#include "Platform/Media/FakeDevice.h"
#include "Platform/Media/MovieMaker.h"
#include "Platform/Media/MovieProbe.h"

namespace tavrel::test {
namespace {

TEST(AssetWriterDevice, ARecordingGoesOnInSoftwareWhenTheDeviceFails) {
  constexpr int kPictures = 60;
  const struct {
    FakeDevice::Behaviour behaviour;
    int fewest, most;  // pictures that the device takes
  } cases[] = {
      {{}, kPictures - 1, kPictures}, {{.hasHeadersInPackets = true}, kPictures - 1, kPictures},
      {{.failsAt = 0.66}, 15, 25},    {{.failsAt = 0.66, .hasHeadersInPackets = true}, 15, 25},
      {{.failsAt = 0}, 0, 0},  // not even a trial
  };
  const auto blue = solidPicture(320, 240, 255, 0, 0);
  for (const char* type : {kFileTypeQuickTimeMovie, kFileTypeMatroska}) {
    for (const auto& each : cases) {
      SCOPED_TRACE(testing::Message() << type << ", fails at " << each.behaviour.failsAt
                                      << ", headers in packets: " << each.behaviour.hasHeadersInPackets);
      const TemporaryFolder folder;
      const FakeDevice device(each.behaviour);
      const auto maker = MovieMaker::start(folder / "movie", {.fileType = type, .width = 320, .height = 240});
      for (int i = 0; i < kPictures; ++i) ASSERT_TRUE(maker.addPicture(blue, MediaTime::make(i, 30)));
      ASSERT_TRUE(maker.writer->finishWriting()) << maker.writer->error()->description;
      EXPECT_GE(device.pictures(), each.fewest);
      EXPECT_LE(device.pictures(), each.most);
      EXPECT_EQ(device.hasSeenColors(), each.most > 0);

      const auto probe = MovieProbe::open(folder / "movie");
      ASSERT_TRUE(probe.video) << probe.error;
      EXPECT_EQ(probe.decodeErrors, 0);
      ASSERT_EQ(probe.video->times.size(), static_cast<std::size_t>(kPictures));
      for (std::size_t i = 0; i < kPictures; ++i) {
        EXPECT_NEAR(probe.video->seconds(i), static_cast<double>(i) / 30, 0.00051);
        EXPECT_NEAR(probe.video->centers[i][1], 240, 4) << i;
      }
    }
  }
}

TEST(AssetWriterDevice, AnEncoderThatIsNamedAndFailsItsTrialIsAnError) {
  const TemporaryFolder folder;
  const FakeDevice device({.failsAt = 0});
  Dictionary settings = h264Settings(320, 240);
  settings.insert_or_assign(kVideoEncoderKey, std::string("h264_nvenc"));
  const auto writer = *AssetWriter::create(folder / "movie.mov", kFileTypeQuickTimeMovie);
  ASSERT_TRUE(writer->addInput(AssetWriterInput::create(MediaType::video, settings)));
  EXPECT_FALSE(writer->startWriting());
  EXPECT_EQ(writer->error().value().description, "the video encoder h264_nvenc opens and does not encode");
  for (const VideoEncoderInfo& each : AssetWriter::videoEncoders()) EXPECT_NE(each.name, "h264_nvenc");
}

TEST(AssetWriterDevice, ADeviceThatEncodesIsListedFirst) {
  const FakeDevice device({});
  const auto encoders = AssetWriter::videoEncoders();
  ASSERT_GE(encoders.size(), 2U);
  EXPECT_EQ(encoders[0].name, "h264_nvenc");
  EXPECT_TRUE(encoders[0].isHardware);
  EXPECT_EQ(encoders[1].name, "libx264");
  EXPECT_FALSE(encoders[1].isHardware);
}

}  // namespace
}  // namespace tavrel::test
