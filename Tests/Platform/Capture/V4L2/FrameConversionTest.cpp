#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <vector>

#include "Platform/Capture/Private/FrameConversion.h"
#include "Platform/Imaging/ImageDestination.h"
#include "Support/VirtualFrames.h"

namespace tavrel::test {
namespace {

constexpr int kWidth = 18;  // no multiple of a vector's length, with rows of padding
constexpr int kHeight = 6;
using Rgb = std::array<double, 3>;

struct Coefficients {
  double red;
  double blue;
};

Coefficients coefficientsOf(FrameMatrix matrix) {
  switch (matrix) {
    case FrameMatrix::bt709: return {0.2126, 0.0722};
    case FrameMatrix::bt2020: return {0.2627, 0.0593};
    default: return {0.299, 0.114};
  }
}

/// Y, Cb, Cr of a colour, by the definition.
std::array<std::uint8_t, 3> encode(const Rgb& color, FrameMatrix matrix, bool isFullRange) {
  const auto [kr, kb] = coefficientsOf(matrix);
  const double y = kr * color[0] + (1 - kr - kb) * color[1] + kb * color[2];
  const double cb = (color[2] - y) / (2 * (1 - kb));
  const double cr = (color[0] - y) / (2 * (1 - kr));
  const double lumaScale = isFullRange ? 1 : 219.0 / 255;
  const double chromaScale = isFullRange ? 1 : 224.0 / 255;
  const auto byte = [](double value) { return static_cast<std::uint8_t>(std::clamp(std::lround(value), 0L, 255L)); };
  return {byte(y * lumaScale + (isFullRange ? 0 : 16)), byte(cb * chromaScale + 128), byte(cr * chromaScale + 128)};
}

/// A frame of one colour, rows padded.
std::vector<std::uint8_t> plain(FrameLayout layout, const std::array<std::uint8_t, 3>& color, RawFrame& frame) {
  const auto [y, u, v] = color;
  std::vector<std::uint8_t> bytes;
  const auto row = [&](std::vector<std::uint8_t> pattern, int count, std::size_t stride) {
    const std::size_t end = bytes.size() + stride;
    for (int i = 0; i < count; ++i) bytes.insert(bytes.end(), pattern.begin(), pattern.end());
    bytes.resize(end, 77);
  };
  const bool isPacked = layout == FrameLayout::yuyv || layout == FrameLayout::uyvy;
  frame.bytesPerRow = isPacked ? kWidth * 2 + 8 : kWidth + 6;
  for (int i = 0; i < kHeight; ++i) {
    if (layout == FrameLayout::yuyv) row({y, u, y, v}, kWidth / 2, frame.bytesPerRow);
    if (layout == FrameLayout::uyvy) row({u, y, v, y}, kWidth / 2, frame.bytesPerRow);
    if (!isPacked) row({y}, kWidth, frame.bytesPerRow);
  }
  for (int i = 0; layout == FrameLayout::nv12 && i < kHeight / 2; ++i) row({u, v}, kWidth / 2, frame.bytesPerRow);
  for (const std::uint8_t chroma : {u, v}) {
    for (int i = 0; layout == FrameLayout::i420 && i < kHeight / 2; ++i) {
      row({chroma}, kWidth / 2, frame.bytesPerRow / 2);
    }
  }
  frame.layout = layout;
  frame.width = kWidth;
  frame.height = kHeight;
  frame.bytes = bytes.data();
  frame.byteCount = bytes.size();
  return bytes;
}

TEST(FrameConversion, FollowsMatrixAndRangeInEveryLayout) {
  FrameConverter converter;
  const auto picture = PixelBuffer::create(kWidth, kHeight, PixelFormat::bgra32).value();
  for (const auto layout : {FrameLayout::yuyv, FrameLayout::uyvy, FrameLayout::nv12, FrameLayout::i420}) {
    for (const auto matrix : {FrameMatrix::bt601, FrameMatrix::bt709, FrameMatrix::bt2020}) {
      for (const bool isFullRange : {false, true}) {
        // No strong blue: libyuv's fixed-point factor for it ends at 2.0, a little short of BT.709's.
        for (const Rgb& color : {Rgb{200, 40, 60}, Rgb{20, 180, 90}, Rgb{50, 60, 100}, Rgb{255, 255, 255}}) {
          RawFrame frame;
          frame.matrix = matrix;
          frame.isFullRange = isFullRange;
          const auto bytes = plain(layout, encode(color, matrix, isFullRange), frame);
          ASSERT_TRUE(converter.convert(frame, *picture).has_value());
          const VirtualPicture seen(picture);
          for (const auto& [x, y] : {std::pair(0, 0), std::pair(kWidth - 1, kHeight - 1)}) {
            for (int i = 0; i < 3; ++i) {
              ASSERT_NEAR(seen.pixel(x, y)[2 - i], color[static_cast<std::size_t>(i)], 4)
                  << static_cast<int>(layout) << " " << static_cast<int>(matrix) << " " << isFullRange;
            }
            ASSERT_EQ(seen.pixel(x, y)[3], 255);
          }
        }
      }
    }
  }
}

TEST(FrameConversion, RefusesCutFramesAndDamagedJpegs) {
  FrameConverter converter;
  const auto picture = PixelBuffer::create(kWidth, kHeight, PixelFormat::bgra32).value();
  for (const auto layout : {FrameLayout::yuyv, FrameLayout::nv12, FrameLayout::i420}) {
    RawFrame frame;
    const auto bytes = plain(layout, {100, 128, 128}, frame);
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
