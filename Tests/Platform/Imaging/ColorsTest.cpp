#include <gtest/gtest.h>

#include <cstring>

#include "Support/GraphTestSupport.h"

namespace tavrel {
namespace {

using test::largestDifference;
using test::Picture;
using test::Pixel;

/// Levels over the whole range, with the alpha given, as an image of 16 bits.
std::shared_ptr<Image> deepImage(std::uint16_t alpha) {
  constexpr std::size_t kWidth = 256;
  Data bytes(kWidth * 2 * 8);
  for (std::size_t i = 0; i < kWidth * 2; ++i) {
    const std::size_t level = i % kWidth * 257 + i / kWidth * 100;
    const auto component = [&](std::size_t value) { return static_cast<std::uint16_t>(value % 65536 * alpha / 65535); };
    const std::uint16_t pixel[] = {component(level), component(level + 5000), component(65535 - level), alpha};
    std::memcpy(bytes.data() + i * 8, pixel, 8);
  }
  return Image::create(kWidth, 2, 16, 64, kWidth * 8, kBitmapPremultipliedRGBA16, DataProvider::create(bytes));
}

/// 0: grey, 2: colours, 4: grey and alpha, 6: colours and alpha; and the bits of each component.
std::pair<int, int> formOf(const Data& png) { return {png.at(25), png.at(24)}; }

TEST(Colors, DepthIsKeptWhereItIsAskedFor) {
  for (const std::uint16_t alpha : {65535, 32768}) {
    const auto image = deepImage(alpha);
    const Data file = ImageDestination::encode(image, "image/png").value();
    EXPECT_EQ(formOf(file), std::pair(alpha == 65535 ? 2 : 6, 16));
    const auto source = ImageSource::create(file).value();
    EXPECT_EQ(source->properties(0).bitsPerComponent, 16U);
    const auto deep = source->decodedImage(0, {.keepsDepth = true}).value();
    ASSERT_EQ(deep->bitsPerPixel(), 64U);
    int largest = 0;
    for (std::size_t i = 0; i < 256 * 2 * 4; ++i) {
      std::uint16_t before = 0, after = 0;
      std::memcpy(&before, image->dataProvider()->bytes().data() + i * 2, 2);
      std::memcpy(&after, deep->dataProvider()->bytes().data() + i * 2, 2);
      largest = std::max(largest, std::abs(before - after));
    }
    EXPECT_LE(largest, alpha == 65535 ? 0 : 1);

    // Of 8 bits they are the nearest levels; without a word of colours 16 bits are no linear light.
    const Picture shallow = test::pictureOf(*source->imageAtIndex(0).value());
    const Picture expected(256, 2, [&](int x, int y) {
      const auto byte = [&](std::int64_t level) {
        return static_cast<int>((level % 65536 * alpha / 65535 + 128) / 257);
      };
      const int level = x * 257 + y * 100;
      return Pixel{byte(level), byte(level + 5000), byte((65535 - level + 65536) % 65536), (alpha + 128) / 257};
    });
    EXPECT_LE(largestDifference(shallow, expected), alpha == 65535 ? 0 : 1);
    const Data reduced = ImageDestination::encode(image, "image/png", ImageEncoding{.bitsPerComponent = 8}).value();
    EXPECT_EQ(formOf(reduced).second, 8);
  }
}

TEST(Colors, DeepImagesAreTurnedAsOthersAre) {
  const auto turned = [](ImageOrientation orientation) {
    const auto image = deepImage(65535)->withScaleAndOrientation(1, orientation);
    const Picture deep = test::pictureOf(
        *ImageSource::create(ImageDestination::encode(image, "image/png").value()).value()->imageAtIndex(0).value());
    const Data shallowFile =
        ImageDestination::encode(deepImage(65535), "image/png", ImageEncoding{.bitsPerComponent = 8}).value();
    const auto shallow =
        ImageSource::create(shallowFile).value()->imageAtIndex(0).value()->withScaleAndOrientation(1, orientation);
    return largestDifference(deep, test::pictureOf(*normalizedImage(shallow)));
  };
  for (int orientation = 0; orientation < 8; ++orientation) {
    EXPECT_LE(turned(static_cast<ImageOrientation>(orientation)), 1) << orientation;
  }
}

TEST(Colors, OpaquePicturesAreWrittenWithoutAlpha) {
  const auto form = [](int alpha) {
    const Picture picture(3, 200, [&](int x, int y) { return Pixel{x, y, 7, y == 199 && x == 2 ? alpha : 255}; });
    return formOf(ImageDestination::encode(test::imageOf(picture), "image/png").value()).first;
  };
  EXPECT_EQ(form(255), 2);
  EXPECT_EQ(form(254), 6);
}

/// A TIFF block with an orientation, a number that stands elsewhere, and a thumbnail at the end.
Data exifBlock(bool bigEndian, std::uint8_t orientation) {
  Data block;
  const auto add = [&](std::uint32_t value, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i)
      block.push_back(static_cast<std::uint8_t>(value >> 8 * (bigEndian ? size - 1 - i : i)));
  };
  const auto entry = [&](std::uint32_t tag, std::uint32_t type, std::uint32_t value) {
    add(tag, 2);
    add(type, 2);
    add(1, 4);
    add(value, type == 3 ? 2 : 4);
    if (type == 3) add(0, 2);
  };
  block.assign(2, bigEndian ? 'M' : 'I');
  add(42, 2);
  add(8, 4);
  add(2, 2);                      // at 8, two entries
  entry(0x0112, 3, orientation);  // at 10
  entry(0x8769, 4, 38);           // at 22
  add(56, 4);                     // at 34, the thumbnail's directory
  add(1, 2);                      // at 38
  entry(0xA002, 4, 999);          // at 40
  add(0, 4);                      // at 52
  add(2, 2);                      // at 56
  entry(0x0201, 4, 86);           // at 58
  entry(0x0202, 4, 4);            // at 70
  add(0, 4);                      // at 82
  add(0xCAFECAFE, 4);             // at 86
  return block;
}

TEST(Colors, MetadataIsCarriedAndSpeaksOfUprightPixels) {
  const auto image = test::imageOf(test::distinctPicture(20, 10));
  for (const char* type : {"image/png", "image/jpeg"}) {
    for (const bool isBig : {false, true}) {
      const ImageMetadata metadata = {.exif = exifBlock(isBig, 6), .xmp = {'<', '>'}};
      Data file = ImageDestination::encode(image, type, ImageEncoding{.metadata = metadata}).value();
      const ImageMetadata read = ImageSource::create(file).value()->metadata();
      EXPECT_EQ(read.xmp, metadata.xmp) << type;
      Data expected = exifBlock(isBig, 1);
      const std::size_t width = isBig ? 51 : 48;
      for (std::size_t i = 48; i < 52; ++i) expected[i] = i == width ? 20 : 0;
      for (std::size_t i = 34; i < 38; ++i) expected[i] = 0;
      expected.resize(86);
      EXPECT_EQ(read.exif, expected) << type << isBig;

      // The same tag, when it is read, turns the picture.
      const auto found = std::search(file.begin(), file.end(), expected.begin(), expected.begin() + 20);
      ASSERT_NE(found, file.end());
      if (std::string_view(type) == "image/jpeg") {
        found[isBig ? 19 : 18] = 6;
        const auto turned = ImageSource::create(file).value();
        EXPECT_EQ(turned->properties(0).orientation, ImageOrientation::right);
        EXPECT_EQ(normalizedImage(turned->imageAtIndex(0).value())->width(), 10U);
      }
    }
  }
}

TEST(Colors, DamagedMetadataDoesNoHarm) {
  const auto image = test::imageOf(test::distinctPicture(8, 8));
  const Data whole = exifBlock(true, 6);
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    ImageMetadata metadata = {.exif = Data(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length))};
    EXPECT_TRUE(ImageDestination::encode(image, "image/jpeg", ImageEncoding{.metadata = metadata}).has_value());
    metadata.exif = whole;
    for (std::size_t i = 4; i < whole.size() && length < 1; ++i) {
      metadata.exif[i] ^= 0xFF;
      EXPECT_TRUE(ImageDestination::encode(image, "image/png", ImageEncoding{.metadata = metadata}).has_value());
    }
  }
  EXPECT_TRUE(
      ImageDestination::encode(image, "image/png", ImageEncoding{.metadata = {.colorProfile = {1, 2, 3}}}).has_value());
}

}  // namespace
}  // namespace tavrel
