// Encoders that run on a device, and what becomes of a recording when it fails.
#include <gtest/gtest.h>

#include "Platform/Media/FakeDevice.h"
#include "Platform/Media/MovieMaker.h"
#include "Platform/Media/MovieProbe.h"

namespace tavrel::test {
namespace {

TEST(AssetWriterDevice, ARecordingGoesOnInSoftwareWhenTheDeviceFails) {
  constexpr int kPictures = 60;
  struct Case {
    FakeDevice::Behaviour behaviour;
    int fewest, most;  // pictures that the device takes
  };
  std::vector<Case> cases;
  for (FakeDevice::Behaviour device :
       {FakeDevice::Behaviour{}, FakeDevice::Behaviour::vaapi(), FakeDevice::Behaviour::v4l2()}) {
    for (const bool hasHeadersInPackets : {false, true}) {
      device.hasHeadersInPackets = hasHeadersInPackets;
      device.failsAt = 1e9;
      cases.push_back({device, kPictures - 1, kPictures});
      device.failsAt = 0.66;
      cases.push_back({device, 15, 25});
    }
    device.failsAt = 0;  // not even a trial
    cases.push_back({device, 0, 0});
  }
  const auto blue = solidPicture(320, 240, 255, 0, 0);
  for (const char* type : {kFileTypeQuickTimeMovie, kFileTypeMatroska}) {
    for (const auto& each : cases) {
      SCOPED_TRACE(testing::Message() << type << ", " << each.behaviour.encoder << " fails at "
                                      << each.behaviour.failsAt
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

TEST(AssetWriterDevice, OfSeveralNodesTheOneThatOpensOrIsNamedEncodes) {
  const std::vector<std::string> nodes{"/dev/dri/renderD128", "/dev/dri/renderD129"};
  const struct {
    const char* openNode;
    const char* encoder;
    const char* expected;  // nothing: the start fails
  } cases[] = {{"", "", "/dev/dri/renderD128"},
               {"/dev/dri/renderD129", "", "/dev/dri/renderD129"},
               {"", "h264_vaapi:/dev/dri/renderD129", "/dev/dri/renderD129"},
               {"/dev/dri/renderD128", "h264_vaapi:/dev/dri/renderD129", ""}};
  for (const auto& each : cases) {
    for (const bool isLowPower : {false, true}) {
      for (const bool hasCap : {false, true}) {
        SCOPED_TRACE(testing::Message() << each.openNode << " " << each.encoder << " " << isLowPower << hasCap);
        const TemporaryFolder folder;
        auto behaviour = FakeDevice::Behaviour::vaapi();
        behaviour.nodes = nodes;
        behaviour.openNode = each.openNode;
        behaviour.isLowPower = isLowPower;
        behaviour.hasCap = hasCap;
        const FakeDevice device(behaviour);
        Dictionary settings = h264Settings(320, 240);
        if (*each.encoder != '\0') settings.insert_or_assign(kVideoEncoderKey, std::string(each.encoder));
        const auto writer = *AssetWriter::create(folder / "movie.mp4", kFileTypeMPEG4);
        const auto input = AssetWriterInput::create(MediaType::video, settings);
        ASSERT_TRUE(writer->addInput(input));
        ASSERT_EQ(writer->startWriting(), *each.expected != '\0');
        EXPECT_EQ(device.node(), each.expected);
        if (*each.expected == '\0') continue;
        writer->startSessionAtSourceTime(MediaTime::zero());
        for (int i = 0; i < 3; ++i) {
          const SampleTiming timing{MediaTime::invalid(), MediaTime::make(i, 30), MediaTime::invalid()};
          ASSERT_TRUE(input->append(*SampleBuffer::createImage(solidPicture(320, 240, 255, 0, 0), timing)));
        }
        ASSERT_TRUE(writer->finishWriting());
        EXPECT_GE(device.pictures(), 2);
        const auto probe = MovieProbe::open(folder / "movie.mp4");
        ASSERT_TRUE(probe.video && probe.video->centers.size() == 3U) << probe.error;
        EXPECT_NEAR(probe.video->centers[0][1], 240, 4);
      }
    }
  }
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
