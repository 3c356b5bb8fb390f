#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>

#include "Support/GraphTestSupport.h"

namespace tavrel {
namespace {

using test::largestDifference;
using test::Picture;
using test::Pixel;

struct Color {
  double red, green, blue;
};

Color curved(const Color& c) { return {c.red * c.red, 0.1 + 0.8 * c.green, c.blue * (1 - 0.5 * c.red)}; }

int byteOf(double component) { return static_cast<int>(std::lround(std::clamp(component, 0.0, 1.0) * 255)); }

Pixel pixelOf(const Color& color) { return {byteOf(color.red), byteOf(color.green), byteOf(color.blue), 255}; }

/// The 512×512 picture of a function of the colour.
Picture tiles(const std::function<Color(const Color&)>& function) {
  return {512, 512, [&](int x, int y) {
            return pixelOf(function({x % 64 / 63.0, y % 64 / 63.0, (y / 64 * 8 + x / 64) / 63.0}));
          }};
}

/// A HALD picture of `level`, or the rows of a ".cube" file of the same lattice.
Color latticeColor(int index, int steps) {
  const double last = steps - 1;
  return {index % steps / last, index / steps % steps / last, index / (steps * steps) / last};
}

Picture hald(int level, Color (*function)(const Color&)) {
  const int side = level * level * level;
  return {side, side, [&](int x, int y) { return pixelOf(function(latticeColor(y * side + x, level * level))); }};
}

std::string cube(int steps, Color (*function)(const Color&)) {
  std::string text = "# made by hand\r\nTITLE \"0.5 0.5 0.5\"\r\nLUT_3D_SIZE " + std::to_string(steps) + "\r\n\r\n";
  for (int i = 0; i < steps * steps * steps; ++i) {
    const Color color = function(latticeColor(i, steps));
    text += std::to_string(color.red) + " " + std::to_string(color.green) + "\t" + std::to_string(color.blue) + "\r\n";
  }
  return text;
}

Picture fromCube(const std::string& text) {
  const auto image = TavrelLookupImageFromCube(text);
  if (!image) {
    ADD_FAILURE() << image.error().description;
    return {};
  }
  return test::pictureOf(**image);
}

TEST(LookupTable, ACubeAndItsHaldFormGiveTheSameTable) {
  const Picture lattice = fromCube(cube(16, curved));
  const auto image = TavrelLookupImageFromHald(*test::imageOf(hald(4, curved)));
  ASSERT_TRUE(image.has_value());
  EXPECT_LE(largestDifference(test::pictureOf(**image), lattice), 2);
  // Between 16 steps a parabola is met within a step of 8 bits.
  EXPECT_LE(largestDifference(lattice, tiles(curved)), 2);
  EXPECT_LE(largestDifference(fromCube(cube(33, curved)), tiles(curved)), 1);
  EXPECT_LE(largestDifference(fromCube(cube(64, curved)), tiles(curved)), 1);
}

TEST(LookupTable, CurvesAndDomains) {
  const Picture inverted = fromCube("LUT_1D_SIZE 3\n1 1 0\n.5 0.5 5e-1\n0 +0 1\n");
  EXPECT_LE(largestDifference(inverted, tiles([](const Color& c) {
                                return Color{1 - c.red, 1 - c.green, c.blue};
                              })),
            1);
  // Half of the red curve lies below 0, blue stops at a half, and results beyond 1 are cut off.
  const Picture domain = fromCube("DOMAIN_MIN -1 0 0\nDOMAIN_MAX 1 1 0.5\nLUT_1D_SIZE 2\n0 0 0\n1 2 1\n");
  EXPECT_LE(largestDifference(domain, tiles([](const Color& c) {
                                return Color{0.5 + 0.5 * c.red, 2 * c.green, 2 * c.blue};
                              })),
            1);
  const Picture range = fromCube("LUT_1D_SIZE 2\nLUT_1D_INPUT_RANGE 0.25 0.75\n0 0 0\n1 1 1\n");
  const auto between = [](double value) { return std::clamp(2 * value - 0.5, 0.0, 1.0); };
  EXPECT_LE(largestDifference(range, tiles([&](const Color& c) {
                                return Color{between(c.red), between(c.green), between(c.blue)};
                              })),
            1);
  EXPECT_EQ(fromCube("\xef\xbb\xbfLUT_1D_SIZE 2\n0 0 0\n1 1 1").width, 512);
}

TEST(LookupTable, BrokenTextsAreAnsweredWithLineAndFault) {
  std::string short3d = "LUT_3D_SIZE 2\n";
  for (int i = 0; i < 7; ++i) short3d += "0 0 0\n";
  const std::pair<std::string, std::string> cases[] = {
      {"", "line 1: the file has no LUT_1D_SIZE or LUT_3D_SIZE"},
      {"TITLE \"x\"\n\n", "line 2: the file has no LUT_1D_SIZE or LUT_3D_SIZE"},
      {short3d, "line 8: the file ends after 7 of 8 rows of colours"},
      {short3d + "0 0 0\n0 0 0\n", "line 10: there are more rows of colours than the 8 that the size asks for"},
      {"0 0 0\n", "line 1: colours come before LUT_1D_SIZE or LUT_3D_SIZE"},
      {"LUT_1D_SIZE 2\n0 nan 0\n1 1 1\n", "line 2: \"nan\" is not a number"},
      {"LUT_1D_SIZE 2\n0 inf 0\n1 1 1\n", "line 2: \"inf\" is not a number"},
      {"LUT_1D_SIZE 2\n0 1e99 0\n1 1 1\n", "line 2: \"1e99\" is not a number"},
      {"LUT_1D_SIZE 2\n0 0\n1 1 1\n", "line 2: 1 of 3 numbers are missing"},
      {"LUT_1D_SIZE 2\n0 0 0 0\n1 1 1\n", "line 2: \"0\" follows 3 numbers"},
      {"LUT_1D_SIZE 1\n0 0 0\n", "line 1: the size is \"1\"; it must be a whole number from 2 to 65536"},
      {"LUT_3D_SIZE 257\n", "line 1: the size is \"257\"; it must be a whole number from 2 to 256"},
      {"LUT_3D_SIZE -2\n", "line 1: the size is \"-2\"; it must be a whole number from 2 to 256"},
      {"LUT_1D_SIZE 2\nLUT_1D_SIZE 2\n",
       "line 2: the size of the table is given twice; one 1D and one 3D table can be read"},
      {"LUT_1D_SIZE 2\nLUT_3D_SIZE 2\n0 0 0\n1 1 1\n0 0 0\n", "line 5: the file ends after 3 of 10 rows of colours"},
      {"LUT_1D_SIZE 2\nDOMAIN_MIN 1 1 1\n0 0 0\n",
       "line 3: the domain runs from 1 to 1; the second must be the larger"},
      {"LUT_1D_SIZE 2\n0 0 0\n1 1 1\nLUT_1D_INPUT_RANGE 1 1\n",
       "line 4: LUT_1D_INPUT_RANGE comes after the colours; it must come first"},
      {"LUT_1D_SIZE 2\nDOMAIN_MIN 0 0\n", "line 2: 1 of 3 numbers are missing"},
      {"{\"json\": [1, 2, 3, 4, 5, 6]}",
       "line 1: \"{\"json\": [1, 2, 3, 4, 5,…\" is neither a keyword of this format nor a "
       "number"},
  };
  for (const auto& [text, message] : cases) {
    const auto image = TavrelLookupImageFromCube(text);
    ASSERT_FALSE(image.has_value()) << text;
    EXPECT_EQ(image.error().description, message);
  }
}

TEST(LookupTable, MegabytesOfJunkAreRefusedAtOnce) {
  std::string junk(10 << 20, 'x');
  for (std::size_t i = 0; i < junk.size(); i += 3) junk[i] = static_cast<char>('!' + i % 90);
  const auto begun = std::chrono::steady_clock::now();
  const auto image = TavrelLookupImageFromCube(junk);
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(2));
  ASSERT_FALSE(image.has_value());
  EXPECT_TRUE(image.error().description.starts_with("line 1: ")) << image.error().description;
  EXPECT_LT(image.error().description.size(), 200U);
}

class LookupFileTest : public ::testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directory(folder_); }
  void TearDown() override { std::filesystem::remove_all(folder_); }
  std::filesystem::path write(const char* name, const Picture& picture) const {
    EXPECT_TRUE(ImageDestination::write(test::imageOf(picture), folder_ / name).has_value());
    return folder_ / name;
  }
  std::filesystem::path write(const char* name, const std::string& bytes) const {
    std::ofstream(folder_ / name, std::ios::binary) << bytes;
    return folder_ / name;
  }

  const std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() / ("tavrel-lookup-" + std::to_string(::getpid()));
};

TEST_F(LookupFileTest, TellsTheFormByTheContents) {
  const Picture expected = tiles(curved);
  // Level 8 has the size of the filter's own layout.
  for (const auto& file :
       {write("tiles.png", expected), write("hald8.png", hald(8, curved)), write("curve.txt", cube(64, curved))}) {
    const auto image = TavrelLookupImageFromFile(file);
    ASSERT_TRUE(image.has_value()) << image.error().description;
    EXPECT_LE(largestDifference(test::pictureOf(**image), expected), 1) << file;
  }
}

TEST_F(LookupFileTest, OtherKindsOfTextKeepTheirOwnResolution) {
  if (!TavrelGPUImageColorTableFilter::isSupported()) GTEST_SKIP() << "the driver has no floating-point textures";
  // Three levels, of which the middle one of red is black; blue grows fastest in the one, red in the other.
  std::string mesh = "# made\n0 512 1023\n", cineSpace = "CSPLUTV100\n3D\n\n";
  for (int i = 0; i < 3; ++i) cineSpace += "2\n0 1\n0 1\n";
  cineSpace += "3 3 3\n";
  for (int i = 0; i < 27; ++i) {
    const int slow = i / 9, fast = i % 3, middle = i / 3 % 3;
    mesh += std::to_string(slow == 1 ? 0 : slow * 511 + slow / 2) + " " + std::to_string(middle * 1023 / 2) + " " +
            std::to_string(fast * 1023 / 2) + "\n";
    cineSpace += std::to_string(fast == 1 ? 0 : fast / 2.0) + " " + std::to_string(middle / 2.0) + " " +
                 std::to_string(slow / 2.0) + "\n";
  }
  const Picture frame(64, 64, [](int x, int y) { return Pixel{x * 4, y * 4, (x + y) * 2, 255}; });
  for (const auto& file : {write("a.3dl", mesh), write("a.csp", cineSpace)}) {
    const auto lookup = TavrelLookupTableFromFile(file);
    ASSERT_TRUE(lookup.has_value()) << lookup.error().description;
    const auto filter = std::make_shared<TavrelGPUImageColorTableFilter>(lookup->table);
    EXPECT_LE(largestDifference(test::process(frame, filter), {64, 64,
                                                               [&](int x, int y) {
                                                                 Pixel pixel = frame.at(x, y);
                                                                 pixel.r = std::max(0, pixel.r * 2 - 255);
                                                                 return pixel;
                                                               }}),
              1)
        << file;
    filter->setIntensity(0);
    EXPECT_EQ(largestDifference(test::process(frame, filter), frame), 0);
  }
  const auto fault = [&](const char* name, const std::string& text) {
    return TavrelLookupTableFromFile(write(name, text)).error().description.substr((folder_ / name).string().size());
  };
  EXPECT_EQ(fault("b.3dl", "0 512 1023 1 2\n1 2\n"), ": line 2: 1 of 3 numbers are missing");
  EXPECT_EQ(fault("c.3dl", "0 341 682 1023\n1 2 3\n"), ": line 2: the file ends after 1 of 64 rows");
  EXPECT_EQ(fault("b.csp", "CSPLUTV100\n2D\n"), ": line 2: \"2D\" is neither 1D nor 3D");
  EXPECT_EQ(fault("c.csp", "CSPLUTV100\n1D\n2\n1 0\n0 1\n"), ": line 5: the inputs of a curve do not grow");
}

TEST_F(LookupFileTest, NamesTheFileThatCannotBeUsed) {
  const auto picture = write("photo.png", test::distinctPicture(64, 48));
  const auto text = write("broken.cube", "LUT_3D_SIZE x\n");
  const auto binary = write("noise.bin", std::string("\0\1\2\3", 4));
  const auto message = [](const std::filesystem::path& file) {
    const auto image = TavrelLookupImageFromFile(file);
    return image ? std::string("read") : image.error().description;
  };
  EXPECT_EQ(message(picture), picture.string() +
                                  ": a picture of 64x48 is no lookup table; it must be 512x512 (8 by 8 tiles) or a "
                                  "HALD picture, a square with a side of 8, 27, 64, 125 … pixels");
  EXPECT_EQ(message(text), text.string() + ": line 1: the size is \"x\"; it must be a whole number from 2 to 256");
  EXPECT_NE(message(binary).find("noise.bin"), std::string::npos);
  EXPECT_EQ(message(folder_ / "none.cube"),
            "cannot read " + (folder_ / "none.cube").string() + ": No such file or directory");
}

}  // namespace
}  // namespace tavrel
