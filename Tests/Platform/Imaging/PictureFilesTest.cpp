#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <fstream>

#include "Platform/Imaging/ImagingError.h"
#include "Support/GraphTestSupport.h"

namespace tavrel {
namespace {

using test::largestDifference;
using test::Picture;
using test::Pixel;

/// Four colours that tell every turn and mirror apart, in blocks of 8 so that JPEG keeps them.
Picture quarters() {
  return {32, 16, [](int x, int y) {
            if (y < 8) return x < 16 ? Pixel{200, 30, 30, 255} : Pixel{30, 200, 30, 255};
            return x < 16 ? Pixel{30, 30, 200, 255} : Pixel{220, 220, 220, 255};
          }};
}

Picture decoded(const Data& bytes) {
  const auto source = ImageSource::create(bytes);
  EXPECT_TRUE(source.has_value()) << (source ? "" : source.error().description);
  return test::pictureOf(*normalizedImage((*source)->imageAtIndex(0).value()));
}

class TemporaryFolder {
 public:
  TemporaryFolder() : path_(std::filesystem::temp_directory_path() / ("tavrel-imaging-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(path_);
  }
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }
  std::filesystem::path operator/(const char* name) const { return path_ / name; }
  bool isEmpty() const { return std::filesystem::is_empty(path_); }

 private:
  std::filesystem::path path_;
};

TEST(Pictures, StraightColoursLastThroughPngAndMultiplication) {
  Data pixels(256 * 256 * 4);  // B, G, R, A
  for (std::size_t i = 0; i < pixels.size(); i += 4) {
    const auto color = static_cast<std::uint8_t>(i / 4 % 256);
    pixels[i] = pixels[i + 1] = color;
    pixels[i + 2] = static_cast<std::uint8_t>(255 - color);
    pixels[i + 3] = static_cast<std::uint8_t>(i / 1024);
  }
  const auto straight = Image::create(256, 256, 8, 32, 1024, bitmapInfo(kBitmapByteOrder32Little, AlphaInfo::first),
                                      DataProvider::create(Data(pixels)));
  const Data png = ImageDestination::encode(straight, "image/png").value();
  const auto read = ImageSource::create(png).value()->decodedImage(0, {.keepsStraight = true}).value();
  EXPECT_EQ(read->bitmapInfo(), straight->bitmapInfo());
  EXPECT_EQ(read->dataProvider()->copyData(), pixels);

  const auto multiplied = deepPremultipliedImage(read);
  ASSERT_EQ(multiplied->bitmapInfo(), kBitmapPremultipliedRGBA16);
  const Data words = multiplied->dataProvider()->copyData();
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    std::uint16_t word = 0;
    std::memcpy(&word, words.data() + (i % 4 == 3 ? i : i / 4 * 4 + 2 - i % 4) * 2, sizeof word);
    const double factor = i % 4 == 3 ? 1 : pixels[i / 4 * 4 + 3] / 255.0;
    ASSERT_NEAR(word, 257.0 * pixels[i] * factor, 0.5001) << i;
  }
}

TEST(Pictures, PngKeepsColoursAndAlpha) {
  const Picture source = {3, 2, [](int x, int y) { return Pixel{x * 100, y * 200, 50, y == 0 ? 255 : 128}; }};
  const Data file = ImageDestination::encode(test::imageOf(source), "image/png").value();
  const auto image = ImageSource::create(file).value()->imageAtIndex(0).value();
  EXPECT_EQ(image->bitmapInfo(), kBitmapPremultipliedBGRA);
  const Picture result = test::pictureOf(*image);
  EXPECT_EQ(result.at(2, 0), (Pixel{200, 0, 50, 255}));
  EXPECT_EQ(result.at(1, 1), (Pixel{50, 100, 25, 128}));

  const Data opaque = ImageDestination::encode(image, "image/jpeg").value();
  EXPECT_EQ(ImageSource::create(opaque).value()->imageAtIndex(0).value()->bitmapInfo(), kBitmapOpaqueBGRX);
}

// The file's own orientation tag: written by hand behind the start of the image.
TEST(Pictures, JpegIsTurnedAsItsTagSays) {
  const Data plain = ImageDestination::encode(test::imageOf(quarters()), "image/jpeg", 1).value();
  EXPECT_LE(largestDifference(decoded(plain), quarters()), 3);
  for (std::uint8_t tag = 1; tag <= 8; ++tag) {
    const Data exif = {0xFF, 0xE1, 0,    34,   'E', 'x', 'i', 'f', 0, 0, 'M', 'M', 0, 42, 0, 0, 0, 8,
                       0,    1,    0x01, 0x12, 0,   3,   0,   0,   0, 1, 0,   tag, 0, 0,  0, 0, 0, 0};
    Data tagged = plain;
    tagged.insert(tagged.begin() + 2, exif.begin(), exif.end());
    const Picture result = decoded(tagged);
    const Picture source = quarters();
    const Picture expected = {tag < 5 ? 32 : 16, tag < 5 ? 16 : 32, [&](int x, int y) {
                                switch (tag) {
                                  case 2: return source.at(31 - x, y);
                                  case 3: return source.at(31 - x, 15 - y);
                                  case 4: return source.at(x, 15 - y);
                                  case 5: return source.at(y, x);
                                  case 6: return source.at(y, 15 - x);
                                  case 7: return source.at(31 - y, 15 - x);
                                  case 8: return source.at(31 - y, x);
                                  default: return source.at(x, y);
                                }
                              }};
    EXPECT_LE(largestDifference(result, expected), 3) << int{tag};
  }
}

TEST(Pictures, GifFramesAreComposed) {
  // 2 × 2 screen, colours black, red, green, blue. Frame 0: all red, kept. Frame 1: blue at (1, 1), restored to what
  // was before. Frame 2: green at (0, 0) with (1, 0) transparent, cleared. Frame 3: without a control block, blue at
  // (1, 0).
  const Data gif = {
      'G',  'I',  'F', '8',  '9',  'a', 2,    0,   2,   0,   0x91, 0,   0,  //
      0,    0,    0,   255,  0,    0,   0,    255, 0,   0,   0,    255,     //
      0x21, 0xFF, 11,  'N',  'E',  'T', 'S',  'C', 'A', 'P', 'E',  '2', '.',  '0',  3,    1,
      5,    0,    0,   0x21, 0xF9, 4,   0x04, 20,  0,   0,   0,                               //
      0x2C, 0,    0,   0,    0,    2,   0,    2,   0,   0,   2,    3,   0x4C, 0x98, 0x14, 0,  // 4, 1, 1, 4, 1, 1, 5
      0x21, 0xF9, 4,   0x0C, 1,    0,   0,    0,                                              //
      0x2C, 1,    0,   1,    0,    1,   0,    1,   0,   0,   2,    2,   0x5C, 0x01, 0,        // 4, 3, 5
      0x21, 0xF9, 4,   0x09, 0,    0,   0,    0,                                              //
      0x2C, 0,    0,   0,    0,    2,   0,    1,   0,   0,   2,    2,   0x14, 0x0A, 0,        // 4, 2, 0, 5
      0x2C, 1,    0,   0,    0,    1,   0,    1,   0,   0,   2,    2,   0x5C, 0x01, 0,    0x3B};
  const auto source = ImageSource::create(gif).value();
  ASSERT_EQ(source->count(), 4U);
  EXPECT_EQ(source->loopCount(), 5);
  EXPECT_EQ(source->properties(0).delayTime, 0.2);
  EXPECT_EQ(source->properties(1).unclampedDelayTime, 0.01);
  EXPECT_EQ(source->properties(1).delayTime, 0.1);
  EXPECT_EQ(source->properties(3).delayTime, std::nullopt);
  const Pixel red = {255, 0, 0, 255};
  const Pixel green = {0, 255, 0, 255};
  const Pixel blue = {0, 0, 255, 255};
  const Pixel clear = {0, 0, 0, 0};
  const std::vector<std::vector<Pixel>> expected = {
      {red, red, red, red}, {red, red, red, blue}, {green, red, red, red}, {clear, blue, red, red}};
  for (const std::size_t index : {0, 1, 2, 3, 1, 3, 0}) {  // any order
    EXPECT_EQ(test::pictureOf(*source->imageAtIndex(index).value()).pixels, expected[index]) << index;
  }
  EXPECT_FALSE(source->imageAtIndex(4).has_value());
}

TEST(Pictures, DamagedFilesAreRefusedWithoutHarm) {
  const auto image = test::imageOf(test::distinctPicture(20, 12));
  for (const char* type : {"image/png", "image/jpeg"}) {
    const Data whole = ImageDestination::encode(image, type).value();
    for (std::size_t length = 0; length < whole.size(); ++length) {
      const auto source = ImageSource::create(Data(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
      // The last bytes hold no pixels.
      if (!source || length + 24 >= whole.size()) continue;
      EXPECT_FALSE((*source)->imageAtIndex(0).has_value()) << type << length;
    }
  }
  EXPECT_EQ(ImageSource::create(Data{1, 2, 3}, "x").error().description,
            "x is not a PNG, JPEG, GIF, WebP, AVIF, TIFF or HEIC picture");
  // A header that promises 65280 × 65280 pixels.
  Data bomb = ImageDestination::encode(image, "image/jpeg").value();
  for (std::size_t i = 0; i + 9 < bomb.size(); ++i) {
    if (bomb[i] != 0xFF || bomb[i + 1] != 0xC0) continue;
    for (const std::size_t byte : {5, 6, 7, 8}) bomb[i + byte] = byte % 2 == 1 ? 0xFF : 0;
  }
  EXPECT_NE(ImageSource::create(bomb).error().description.find("too large: 65280x65280"), std::string::npos);
  EXPECT_TRUE(ImageSource::create(bomb).error() == ImagingErrorCode::pictureTooLarge);
  const auto missing = ImageSource::createWithFile("no such.png");
  EXPECT_EQ(missing.error().description, "cannot read no such.png: No such file or directory");
}

/// Refused, or of the size announced, at any cut.
void expectCutsDoNoHarm(const Data& whole) {
  for (std::size_t length = 0; length < whole.size(); length += 3) {
    const auto source = ImageSource::create(Data(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
    const auto image = source.and_then([](const auto& opened) { return opened->imageAtIndex(0); });
    if (!image) {
      EXPECT_FALSE(image.error().description.empty()) << length;
      continue;
    }
    EXPECT_EQ((*image)->width(), (*source)->properties(0).width) << length;
    EXPECT_EQ((*image)->height(), (*source)->properties(0).height) << length;
  }
}

#if TAVREL_WITH_TIFF
TEST(Pictures, TiffKeepsToItsLimits) {
  const Data whole = readFile(TAVREL_TESTS_FOLDER "/Fuzz/Picture/tiles16.tiff").value();
  const auto image = ImageSource::create(whole).value()->decodedImage(0, {.keepsDepth = true}).value();
  EXPECT_EQ(image->bitsPerComponent(), 16U);
  expectCutsDoNoHarm(whole);
  const auto changed = [&](std::uint16_t tag, std::uint16_t value) {
    Data bytes = whole;  // "II": its directory's entries have tag, type, count and value
    for (std::size_t i = 8; i + 12 <= bytes.size(); ++i) {
      if (bytes[i] == (tag & 255) && bytes[i + 1] == tag >> 8 && bytes[i + 2] == 3 && bytes[i + 4] == 1) {
        bytes[i + 8] = static_cast<std::uint8_t>(value);
        bytes[i + 9] = static_cast<std::uint8_t>(value >> 8);
        return ImageSource::create(bytes, "it");
      }
    }
    return ImageSource::create(Data{}, "no such tag");
  };
  EXPECT_TRUE(changed(257, 65535).has_value());  // high, but only 20 wide
  EXPECT_FALSE(changed(257, 65535).value()->imageAtIndex(0).has_value());
  EXPECT_FALSE(changed(257, 0).has_value());
  EXPECT_TRUE(changed(262, 8).error() == ImagingErrorCode::unknownFormat);  // Lab
  EXPECT_FALSE(changed(323, 65520).and_then([](const auto& source) { return source->imageAtIndex(0); }).has_value());

  // Numbers of 12 bits, and fractions of 16: red above, blue below.
  for (const char* const name : {"tiles12.tiff", "half.tiff"}) {
    const Data odd = readFile(std::string(TAVREL_TESTS_FOLDER "/Fuzz/Picture/") + name).value();
    const auto deep = ImageSource::create(odd).value()->decodedImage(0, {.keepsDepth = true}).value();
    ASSERT_EQ(deep->bitsPerPixel(), 64U) << name;
    const auto component = [&](std::size_t index) {
      std::uint16_t value = 0;
      std::memcpy(&value, deep->dataProvider()->bytes().data() + index * sizeof value, sizeof value);
      return value;
    };
    const std::size_t last = (deep->height() - 1) * deep->width() * 4;
    EXPECT_EQ(component(0), 65535) << name;
    EXPECT_EQ(component(last), 0) << name;
    EXPECT_EQ(component(last + 2), 65535) << name;
    expectCutsDoNoHarm(odd);
  }
  const Data coarse = readFile(TAVREL_TESTS_FOLDER "/Fuzz/Picture/four.tiff").value();
  EXPECT_TRUE(ImageSource::create(coarse).error() == ImagingErrorCode::unknownFormat);
}
#endif

#if TAVREL_WITH_HEIF
TEST(Pictures, HeicKeepsToItsLimits) {
  const Data whole = readFile(TAVREL_TESTS_FOLDER "/Fuzz/Picture/alpha.heic").value();
  const auto source = ImageSource::create(whole).value();
  EXPECT_STREQ(source->type(), "image/heic");
  EXPECT_EQ(source->imageAtIndex(0).value()->bitmapInfo(), kBitmapPremultipliedBGRA);
  EXPECT_FALSE(source->imageAtIndex(1).has_value());
  expectCutsDoNoHarm(whole);
  // 65280 × 65280 pixels, in the boxes of both of its pictures.
  Data bomb = whole;
  for (std::size_t i = 0; i + 16 <= bomb.size(); ++i) {
    if (std::string_view(reinterpret_cast<const char*>(bomb.data() + i), 4) != "ispe") continue;
    for (const std::size_t byte : {10, 14}) bomb[i + byte] = 0xFF;
  }
  EXPECT_FALSE(ImageSource::create(bomb).has_value());
}
#endif

TEST(Pictures, AFailedWriteLeavesNothing) {
  const TemporaryFolder folder;
  const auto image = test::imageOf(test::distinctPicture(64, 64));
  EXPECT_EQ(ImageDestination::write(image, folder / "a.bmp").error().description,
            (folder / "a.bmp").string() + ": a picture's name ends in .png, .jpg, .jpeg, .webp or .avif");
  EXPECT_EQ(ImageDestination::write(image, folder / "none" / "a.png").error().code, ENOENT);
  const pid_t child = fork();
  if (child == 0) {  // files may not grow beyond a few bytes: as good as a full disk
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {100, 100};
    setrlimit(RLIMIT_FSIZE, &limit);
    const auto written = ImageDestination::write(image, folder / "a.png");
    _exit(!written && written.error().code == EFBIG ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(folder.isEmpty());
  ASSERT_TRUE(ImageDestination::write(image, folder / "a.PNG").has_value());
  EXPECT_EQ(largestDifference(
                test::pictureOf(*ImageSource::createWithFile(folder / "a.PNG").value()->imageAtIndex(0).value()),
                test::distinctPicture(64, 64)),
            0);
}

}  // namespace
}  // namespace tavrel
