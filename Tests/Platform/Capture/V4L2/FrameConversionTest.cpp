#include <gtest/gtest.h>

#include <vector>

#include "Platform/Capture/Private/FrameConversion.h"
#include "Platform/Capture/V4L2/Private/V4L2Formats.h"
#include "Platform/Imaging/ImageDestination.h"
#include "Support/CameraLayouts.h"
#include "Support/VirtualFrames.h"

namespace tavrel::test {
namespace {

constexpr int kWidth = 18;
constexpr int kHeight = 6;

TEST(FrameConversion, HasTheColoursOfEveryLayoutMatrixAndRange) {
  for (const CameraLayout& layout : cameraLayouts()) {
    if (layout.v4l2 == 0) continue;
    std::vector<std::uint32_t> formats = layout.otherV4l2;
    formats.push_back(layout.v4l2);
    for (const std::uint32_t format : formats) {
      const V4L2KnownFormat* known = knownV4L2Format(format);
      ASSERT_NE(known, nullptr) << nameOfV4L2Format(format);
      EXPECT_EQ(faultOfConversion(layout, {.layout = known->layout, .packed = known->packed}), "")
          << nameOfV4L2Format(format);
    }
  }
}

TEST(FrameConversion, ReadsRowsFromTheBottomUp) {
  FrameConverter converter;
  const auto picture = PixelBuffer::create(kWidth, kHeight, PixelFormat::bgra32).value();
  for (const CameraLayout& layout : cameraLayouts()) {
    const V4L2KnownFormat* known = knownV4L2Format(layout.v4l2);
    if (!known) continue;
    const LayoutPicture drawn(layout, kWidth, kHeight, FrameMatrix::bt601, FrameRange::unsaid);
    const auto bytes = drawn.block();
    ASSERT_TRUE(converter
                    .convert({.layout = known->layout,
                              .packed = known->packed,
                              .isBottomUp = true,
                              .width = kWidth,
                              .height = kHeight,
                              .bytes = bytes.data(),
                              .byteCount = bytes.size(),
                              .bytesPerRow = drawn.planes()[0].bytesPerRow},
                             *picture)
                    .has_value());
    const VirtualPicture seen(picture);
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_NEAR(seen.pixel(0, 0)[i], drawn.colorAt(0, kHeight - 1).at(i), 2) << layout.name;
      EXPECT_NEAR(seen.pixel(kWidth - 1, kHeight - 1)[i], drawn.colorAt(kWidth - 1, 0).at(i), 2) << layout.name;
    }
  }
}

TEST(FrameConversion, RefusesCutFramesAndDamagedJpegs) {
  FrameConverter converter;
  const auto picture = PixelBuffer::create(kWidth, kHeight, PixelFormat::bgra32).value();
  for (const CameraLayout& layout : cameraLayouts()) {
    const V4L2KnownFormat* known = knownV4L2Format(layout.v4l2);
    if (!known) continue;
    const LayoutPicture drawn(layout, kWidth, kHeight, FrameMatrix::bt601, FrameRange::unsaid, 8);
    const auto bytes = drawn.block();
    RawFrame frame = {.layout = known->layout,
                      .packed = known->packed,
                      .width = kWidth,
                      .height = kHeight,
                      .bytes = bytes.data(),
                      .bytesPerRow = drawn.planes()[0].bytesPerRow};
    frame.byteCount = FrameConverter::leastByteCount(frame);
    EXPECT_LE(frame.byteCount, bytes.size());
    EXPECT_TRUE(converter.convert(frame, *picture).has_value());
    --frame.byteCount;
    EXPECT_FALSE(converter.convert(frame, *picture).has_value());
  }

  std::vector<std::uint8_t> pixels(kWidth * kHeight * 4, 90);
  const auto image = Image::create(kWidth, kHeight, 8, 32, kWidth * 4, kBitmapOpaqueBGRX, DataProvider::create(pixels));
  Data jpeg = ImageDestination::encode(image, "image/jpeg").value();
  RawFrame frame;
  frame.layout = FrameLayout::mjpeg;
  frame.width = kWidth;
  frame.height = kHeight;
  const auto decodes = [&](const Data& bytes) {
    frame.bytes = bytes.data();
    frame.byteCount = bytes.size();
    return converter.convert(frame, *picture).has_value();
  };
  EXPECT_TRUE(decodes(jpeg));
  EXPECT_NEAR(VirtualPicture(picture).pixel(3, 3)[1], 90, 2);
  Data padded = jpeg;
  padded.resize(padded.size() + 100, 0);
  EXPECT_TRUE(decodes(padded)) << "cameras fill up their packets";
  EXPECT_FALSE(decodes(Data(jpeg.begin(), jpeg.begin() + static_cast<std::ptrdiff_t>(jpeg.size() - 12))));
  EXPECT_FALSE(decodes(Data(100, 0)));
  frame.width = kWidth - 2;
  EXPECT_FALSE(decodes(jpeg)) << "another size";
}

}  // namespace
}  // namespace tavrel::test
