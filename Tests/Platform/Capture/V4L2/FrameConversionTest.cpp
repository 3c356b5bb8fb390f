#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <map>
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
  // Of two pixels: the first plane, then that of Cb and Cr together, or two of them.
  using Bytes = std::vector<std::uint8_t>;
  struct Pattern {
    Bytes luma;
    Bytes chroma = {};
    int chromaRows = kHeight / 2;
    Bytes second = {};
  };
  const std::map<FrameLayout, Pattern> patterns = {{FrameLayout::yuyv, {{y, u, y, v}}},
                                                   {FrameLayout::uyvy, {{u, y, v, y}}},
                                                   {FrameLayout::yvyu, {{y, v, y, u}}},
                                                   {FrameLayout::nv12, {{y, y}, {u, v}}},
                                                   {FrameLayout::nv21, {{y, y}, {v, u}}},
                                                   {FrameLayout::nv16, {{y, y}, {u, v}, kHeight}},
                                                   {FrameLayout::p010, {{0, y, 0, y}, {0, u, 0, v}}},
                                                   {FrameLayout::i420, {{y, y}, {u}, kHeight / 2, {v}}},
                                                   {FrameLayout::yv12, {{y, y}, {v}, kHeight / 2, {u}}},
                                                   {FrameLayout::gray8, {{y, y}}}};
  const Pattern& pattern = patterns.at(layout);
  frame.bytesPerRow = kWidth / 2 * pattern.luma.size() + 8;
  const std::size_t chromaStride = pattern.second.empty() ? frame.bytesPerRow : frame.bytesPerRow / 2;
  for (int i = 0; i < kHeight; ++i) row(pattern.luma, kWidth / 2, frame.bytesPerRow);
  for (const Bytes& chroma : {pattern.chroma, pattern.second}) {
    for (int i = 0; !chroma.empty() && i < pattern.chromaRows; ++i) row(chroma, kWidth / 2, chromaStride);
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
  for (const auto layout :
       {FrameLayout::yuyv, FrameLayout::uyvy, FrameLayout::yvyu, FrameLayout::nv12, FrameLayout::nv21,
        FrameLayout::nv16, FrameLayout::p010, FrameLayout::i420, FrameLayout::yv12}) {
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

TEST(FrameConversion, ReadsColoursAndGrayAndPlanesInBlocksOfTheirOwn) {
  FrameConverter converter;
  const auto picture = PixelBuffer::create(kWidth, kHeight, PixelFormat::bgra32).value();
  const auto last = [&] {
    const VirtualPicture seen(picture);
    const auto pixel = seen.pixel(kWidth - 1, kHeight - 1);
    return std::array<int, 4>{pixel[0], pixel[1], pixel[2], pixel[3]};
  };
  for (const auto layout : {FrameLayout::bgr24, FrameLayout::rgb24}) {
    std::vector<std::uint8_t> bytes;
    for (int i = 0; i < kWidth * kHeight; ++i) bytes.insert(bytes.end(), {10, 120, 250});
    RawFrame frame = {.layout = layout,
                      .width = kWidth,
                      .height = kHeight,
                      .bytes = bytes.data(),
                      .byteCount = bytes.size(),
                      .bytesPerRow = kWidth * 3};
    ASSERT_TRUE(converter.convert(frame, *picture).has_value());
    const bool isBlueFirst = layout == FrameLayout::bgr24;
    EXPECT_EQ(last(), (std::array<int, 4>{isBlueFirst ? 10 : 250, 120, isBlueFirst ? 250 : 10, 255}));
  }
  RawFrame gray;
  const auto grayBytes = plain(FrameLayout::gray8, {126, 0, 0}, gray);
  ASSERT_TRUE(converter.convert(gray, *picture).has_value());
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(last().at(static_cast<std::size_t>(i)), 128, 1);

  // The same picture from one block and from three.
  RawFrame whole;
  const auto bytes = plain(FrameLayout::i420, encode({200, 40, 60}, FrameMatrix::bt601, false), whole);
  ASSERT_TRUE(converter.convert(whole, *picture).has_value());
  const auto expected = last();
  const std::size_t lumaSize = whole.bytesPerRow * kHeight;
  const std::size_t chromaSize = whole.bytesPerRow / 2 * (kHeight / 2);
  const std::vector<std::uint8_t> luma(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(lumaSize));
  std::vector<std::uint8_t> blue(chromaSize, bytes[lumaSize]);
  const std::vector<std::uint8_t> red(chromaSize, bytes[lumaSize + chromaSize]);
  RawFrame parts = whole;
  parts.bytes = luma.data();
  parts.byteCount = luma.size();
  // One of them does not say its stride.
  parts.chroma = {{{blue.data(), blue.size(), 0}, {red.data(), red.size(), whole.bytesPerRow / 2}}};
  ASSERT_TRUE(converter.convert(parts, *picture).has_value());
  EXPECT_EQ(last(), expected);
  parts.chroma[1].byteCount = kWidth / 2;
  EXPECT_FALSE(converter.convert(parts, *picture).has_value());
}

TEST(FrameConversion, RefusesCutFramesAndDamagedJpegs) {
  FrameConverter converter;
  const auto picture = PixelBuffer::create(kWidth, kHeight, PixelFormat::bgra32).value();
  for (const auto layout :
       {FrameLayout::yuyv, FrameLayout::nv12, FrameLayout::nv16, FrameLayout::i420, FrameLayout::p010}) {
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
