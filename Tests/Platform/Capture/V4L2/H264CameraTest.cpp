#include "Platform/Capture/CaptureDelivery.h"
#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Private/FrameConversion.h"
#include "Support/H264Pictures.h"
#include "Support/VirtualFrames.h"
#include "V4L2TestSupport.h"

namespace tavrel::test {
namespace {

using ::testing::HasSubstr;

constexpr int kWidth = 64;
constexpr int kHeight = 48;

TEST(H264DecodingTest, GivesEachPictureAtOnceAndNoneThatIsDamaged) {
  const H264Pictures stream(kWidth, kHeight, 10);
  FrameConverter converter;
  const auto picture = PixelBuffer::create(kWidth, kHeight, PixelFormat::bgra32).value();
  const auto decode = [&](const std::vector<std::uint8_t>& bytes, int width = kWidth) {
    return converter.convert({.layout = FrameLayout::h264,
                              .width = width,
                              .height = kHeight,
                              .bytes = bytes.data(),
                              .byteCount = bytes.size()},
                             *picture);
  };
  for (std::size_t number = 0; number < 10; ++number) {
    SCOPED_TRACE(number);
    const auto decoded = decode(stream.at(number));
    ASSERT_TRUE(decoded.has_value()) << decoded.error().description;
    for (const auto& [x, y] : {std::pair(0, 0), std::pair(kWidth - 1, kHeight - 1)}) {
      for (int i = 0; i < 3; ++i) EXPECT_NEAR(VirtualPicture(picture).pixel(x, y)[i], H264Pictures::grayOf(number), 4);
    }
  }
  // One joins in the middle: there is nothing to be seen before the next key picture.
  converter.forget();
  const auto early = decode(stream.at(3));
  ASSERT_FALSE(early.has_value());
  EXPECT_EQ(early.error(), CaptureErrorCode::damagedFrame);
  EXPECT_TRUE(decode(stream.at(5)).has_value());
  EXPECT_FALSE(decode(std::vector<std::uint8_t>(200, 0xA5)).has_value());
  EXPECT_TRUE(decode(stream.at(5)).has_value()) << "it goes on";
  EXPECT_FALSE(decode(stream.at(5), kWidth * 2).has_value()) << "another size";
}

using H264CameraTest = V4L2Test;

TEST_F(H264CameraTest, StreamsAndPrefersWhatIsCheaper) {
  const H264Pictures stream(kWidth, kHeight, 10);
  const auto node = addNode(0);
  node->formats = {{V4L2_PIX_FMT_H264, {{kWidth, kHeight}}, {30, 60}}, {V4L2_PIX_FMT_YUYV, {{kWidth, kHeight}}, {30}}};
  node->draw = [&](std::uint8_t* bytes, std::size_t capacity, std::uint32_t sequence) {
    const auto& picture = stream.at(sequence % 10);
    std::copy_n(picture.data(), std::min(capacity, picture.size()), bytes);
    return picture.size();
  };
  start();
  CameraBench camera(cameras().at(0), "64x48");
  camera.configure([](CaptureDevice& set) { set.setActiveVideoMinFrameDuration(MediaTime::make(1, 60)); });
  camera.session->startRunning();
  ASSERT_TRUE(eventually([&] { return camera.frames->count() > 10; }));
  EXPECT_EQ(camera.device->delivery()->format, "H264") << "the only one with that rate";
  EXPECT_EQ(camera.device->delivery()->loss, "");
  camera.configure([](CaptureDevice& set) { set.setActiveVideoMinFrameDuration(MediaTime::make(1, 30)); });
  EXPECT_TRUE(eventually([&] { return camera.device->delivery()->format == "YUYV"; }));
}

}  // namespace
}  // namespace tavrel::test
