#include <fstream>
#include <nlohmann/json.hpp>
#include <numbers>

#include "ProgramTestSupport.h"
#include "Support/EffectsComposite.h"
#include "Support/EffectsGif.h"
#include "Support/FilterReference.h"
#include "Support/GraphTestSupport.h"

namespace tavrel {
namespace {

using test::CommandResult;
using test::largestDifference;
using test::Picture;

class FilterCommandTest : public test::ProgramTest {
 protected:
  Picture source_ = test::distinctPicture(12, 8);

  void SetUp() override { ASSERT_TRUE(ImageDestination::write(test::imageOf(source_), file("in.png")).has_value()); }
  Picture output(const char* name) const {
    return test::pictureOf(*ImageSource::createWithFile(file(name)).value()->imageAtIndex(0).value());
  }
};

TEST_F(FilterCommandTest, EffectsAreAppliedInTheOrderGiven) {
  const std::string files = file("in.png") + " " + file("out.png");
  ASSERT_EQ(test::tavrel("filter " + files).status, 0);
  EXPECT_EQ(largestDifference(output("out.png"), source_), 0);

  // The left half, mirrored; and the left half of the mirrored picture.
  ASSERT_EQ(test::tavrel("filter " + files + " --crop 0,0,0.5,1 --mirror").status, 0);
  EXPECT_EQ(largestDifference(output("out.png"), {6, 8, [&](int x, int y) { return source_.at(5 - x, y); }}), 0);
  ASSERT_EQ(test::tavrel("filter " + files + " --mirror --crop 0,0,0.5,1").status, 0);
  EXPECT_EQ(largestDifference(output("out.png"), {6, 8, [&](int x, int y) { return source_.at(11 - x, y); }}), 0);
  // Repeated effects keep their own values: right, then left, is where it was.
  ASSERT_EQ(test::tavrel("filter " + files + " --rotate 2 --crop 0,0,1,1 --rotate 1").status, 0);
  EXPECT_EQ(largestDifference(output("out.png"), source_), 0);
}

TEST_F(FilterCommandTest, GraphicsAreOpenedForEffectsOnly) {
  const std::string command = "TAVREL_GPU=no-such " + std::string(TAVREL_PROGRAM) + " filter " + file("in.png") + " ";
  EXPECT_EQ(test::shell(command + file("out.png")).status, 0);
  EXPECT_EQ(test::shell(command + file("other.png") + " --mirror").status, 1);
}

TEST_F(FilterCommandTest, StickersTablesAndLevels) {
  const std::string files = file("in.png") + " " + file("out.png");
  const Picture sticker = test::distinctPicture(4, 2);
  ASSERT_TRUE(ImageDestination::write(test::imageOf(sticker), file("sticker.png")).has_value());
  // Pixels count at the place in the chain: behind the mirror and the crop.
  ASSERT_EQ(test::tavrel("filter " + files + " --mirror --crop 0,0,0.5,1 --sticker " + file("sticker.png") + "@1,5,4,2")
                .status,
            0);
  const Picture expected(6, 8, [&](int x, int y) {
    const bool isInside = x >= 1 && x < 5 && y >= 5 && y < 7;
    return isInside ? sticker.at(x - 1, y - 5) : source_.at(11 - x, y);
  });
  EXPECT_LE(largestDifference(output("out.png"), expected), 1);
  // A quarter turn clockwise.
  ASSERT_EQ(test::tavrel("filter " + files + " --sticker " + file("sticker.png") + "@4,3,4,2,90").status, 0);
  EXPECT_LE(largestDifference(output("out.png"), {12, 8,
                                                  [&](int x, int y) {
                                                    const bool isInside = x >= 5 && x < 7 && y >= 2 && y < 6;
                                                    return isInside ? sticker.at(y - 2, 6 - x) : source_.at(x, y);
                                                  }}),
            1);

  std::FILE* const table = std::fopen(file("negative.cube").c_str(), "w");
  std::fputs("LUT_1D_SIZE 2\n1 1 1\n0 0 0\n", table);
  std::fclose(table);
  ASSERT_EQ(test::tavrel("filter " + files + " --lut " + file("negative.cube")).status, 0);
  EXPECT_LE(largestDifference(output("out.png"), {12, 8,
                                                  [&](int x, int y) {
                                                    const test::Pixel& p = source_.at(x, y);
                                                    return test::Pixel{255 - p.r, 255 - p.g, 255 - p.b, p.a};
                                                  }}),
            1);
  const auto brightness = [&](const std::string& effects) {
    EXPECT_EQ(test::tavrel("filter " + files + " " + effects).status, 0) << effects;
    int sum = 0;
    const Picture picture = output("out.png");
    for (const auto& pixel : picture.pixels) sum += pixel.r + pixel.g + pixel.b;
    return sum / static_cast<int>(picture.pixels.size() * 3);
  };
  EXPECT_GT(brightness("--beauty 0.5,0.9"), brightness("--beauty 0.5,0.5") + 30);
  EXPECT_NE(brightness("--beauty 0.5,0.5,1"), brightness("--beauty 0.5,0.5,0"));
  ASSERT_EQ(test::tavrel("filter " + files + " --blur 30").status, 0);
  const Picture blurred = output("out.png");
  EXPECT_LT(largestDifference(blurred, {12, 8, [&](int, int) { return blurred.at(6, 4); }}), 40);
}

TEST_F(FilterCommandTest, ThePictureStandsAsItWentIn) {
  // A JPEG that is stored lying on its side.
  ASSERT_TRUE(ImageDestination::write(test::imageOf({16, 32,
                                                     [](int, int y) {
                                                       return test::Pixel{y < 16 ? 250 : 20, 40, 40, 255};
                                                     }}),
                                      file("upright.jpg"), 1)
                  .has_value());
  Data bytes = readFile(file("upright.jpg")).value();
  const Data turnedRight = {0xFF, 0xE1, 0,    34,   'E', 'x', 'i', 'f', 0, 0, 'M', 'M', 0, 42, 0, 0, 0, 8,
                            0,    1,    0x01, 0x12, 0,   3,   0,   0,   0, 1, 0,   6,   0, 0,  0, 0, 0, 0};
  bytes.insert(bytes.begin() + 2, turnedRight.begin(), turnedRight.end());
  std::FILE* const target = std::fopen(file("lying.jpg").c_str(), "wb");
  std::fwrite(bytes.data(), 1, bytes.size(), target);
  std::fclose(target);
  const CommandResult result = test::tavrel("filter --json " + file("lying.jpg") + " " + file("out.png"));
  EXPECT_EQ(nlohmann::json::parse(result.output),
            (nlohmann::json{{"output", file("out.png")}, {"width", 32}, {"height", 16}}));
  EXPECT_GT(output("out.png").at(28, 8).r, 230);
  EXPECT_LT(output("out.png").at(4, 8).r, 40);
}

TEST_F(FilterCommandTest, StickersAreLaidOnWhereAsked) {
  const Picture frame = {96, 64, [](int x, int y) { return test::Pixel{x * 2, y * 3, 90, 255}; }};
  ASSERT_TRUE(ImageDestination::write(test::imageOf(frame), file("frame.png")).has_value());
  const std::string files = file("frame.png") + " " + file("out.png");

  // Half covering everywhere, so that colours multiplied by alpha twice, or not at all, show.
  const Picture still = {40, 24, [](int x, int y) {
                           return test::Pixel{x < 20 ? 240 : 20, y < 12 ? 220 : 40, 250, x < 10 ? 255 : 128};
                         }};
  ASSERT_TRUE(ImageDestination::write(test::imageOf(still), file("still.png")).has_value());
  ASSERT_EQ(test::tavrel("filter " + files + " --sticker " + file("still.png") + "@12,8,60,36,30").status, 0);
  EXPECT_TRUE(isComposite(output("out.png"), frame, still, {{12, 8}, {60, 36}}, std::numbers::pi / 6));

  // The first picture of an animation; what is given last lies on top.
  const auto rows = [](char color) { return std::vector(16, std::string(16, color)); };
  const Data gif = test::makeGif(16, 16, {{.rows = rows('g')}, {.rows = rows('r')}});
  std::ofstream(file("a.gif"), std::ios::binary).write(reinterpret_cast<const char*>(gif.data()), std::ssize(gif));
  const Picture green = {16, 16, [](int, int) { return test::Pixel{0, 255, 0, 255}; }};
  const std::string sticker = " --sticker " + file("still.png") + "@20,10,40,24";
  const std::string animation = " --gif " + file("a.gif") + "@10,5,64,48,-20";
  const double turned = -std::numbers::pi / 9;
  ASSERT_EQ(test::tavrel("filter " + files + animation).status, 0);
  EXPECT_TRUE(isComposite(output("out.png"), frame, green, {{10, 5}, {64, 48}}, turned));
  ASSERT_EQ(test::tavrel("filter " + files + sticker + animation).status, 0);
  EXPECT_EQ(output("out.png").at(30, 20), (test::Pixel{0, 255, 0, 255}));
  ASSERT_EQ(test::tavrel("filter " + files + animation + sticker).status, 0);
  EXPECT_GT(output("out.png").at(23, 13).r, 230);
  EXPECT_EQ(output("out.png").at(18, 22), (test::Pixel{0, 255, 0, 255}));
}

TEST_F(FilterCommandTest, SizesAreWholePixelsAndAsLargeAsTheyCome) {
  struct Case {
    int width, height;
    const char* effects;
    int expectedWidth, expectedHeight;
  };
  for (const Case& each : {Case{64, 48, "--crop 0,0,0.001,1", 1, 48},
                           {64, 48, "--crop 0.5,0.2,0.337,0.01", 22, 1},
                           {20000, 1, "", 20000, 1},
                           {1, 70000, "--rotate 1", 70000, 1},
                           {16385, 2, "--crop 0,0,0.9999,0.1 --mirror", 16383, 1}}) {
    const Picture picture(each.width, each.height, [](int x, int y) {
      return test::Pixel{x % 256, (x / 256 + y) % 256, y / 256, 255};
    });
    ASSERT_TRUE(ImageDestination::write(test::imageOf(picture), file("odd.png")).has_value());
    const CommandResult result = test::tavrel("filter " + file("odd.png") + " " + file("out.png") + " " + each.effects);
    ASSERT_EQ(result.status, 0) << each.effects << ": " << result.output;
    const Picture filtered = output("out.png");
    EXPECT_EQ(filtered.width, each.expectedWidth) << each.effects;
    EXPECT_EQ(filtered.height, each.expectedHeight) << each.effects;
    if (each.width == 20000) {
      EXPECT_EQ(largestDifference(filtered, picture), 0);
    }
    if (each.width == 1) {
      EXPECT_EQ(filtered.at(12345, 0), picture.at(0, 12345));
    }
  }
}

TEST_F(FilterCommandTest, PartsHaveThePixelsOfTheWhole) {
  const Picture picture = test::noisePicture(731, 542, true);
  ASSERT_TRUE(ImageDestination::write(test::imageOf(picture), file("large.png")).has_value());
  ASSERT_TRUE(ImageDestination::write(test::imageOf(test::noisePicture(90, 70, true)), file("s.png")).has_value());
  std::ofstream(file("t.cube")) << "LUT_3D_SIZE 2\n0 0 0\n0 1 0\n1 0 0\n.9 .8 .1\n0 0 1\n.3 1 1\n1 0 .7\n1 1 1\n";
  struct Effects {
    std::string options;
    int most;
  };
  // What blurs or stretches differs: the sampler's weights have eight bits, whose last one follows the rounding of
  // coordinates, and those are shares of the part's size.
  const Effects cases[] = {
      {"--lut " + file("t.cube"), 0},
      {"--beauty 0.8,0.6", 0},
      {"--rotate 6 --rotate 3", 0},
      {"--rotate 5 --lut " + file("t.cube") + " --mirror --beauty 0.4 --crop 0,0,0.5,1", 0},
      {"--blur 40", 1},
      {"--crop 0.0123,0.1,0.81,0.77", 0},
      {"--rotate 1 --crop 0.3,0,0.7,0.9", 0},
      {"--sticker " + file("s.png") + "@200,200,90,70 --lut " + file("t.cube"), 0},
      {"--sticker " + file("s.png") + "@200,180,160,150,25", 1},
      {"--rotate 2 --sticker " + file("s.png") + "@100,50,400,600 --rotate 5", 1},
      {"--crop 0.2,0.1,0.8,0.8 --blur 9 --rotate 7 --lut " + file("t.cube") + " --mirror --beauty 0.4", 2},
  };
  for (const Effects& each : cases) {
    const std::string command = "filter " + file("large.png") + " " + file("out.png") + " " + each.options;
    ASSERT_EQ(test::tavrel(command).status, 0) << each.options;
    const Picture whole = output("out.png");
    const CommandResult inParts = test::tavrel(command + " --memory 4");
    ASSERT_EQ(inParts.status, 0) << each.options << inParts.output;
    EXPECT_LE(largestDifference(output("out.png"), whole), each.most) << each.options;
  }
}

TEST_F(FilterCommandTest, NothingRemainsOfAPictureWhoseWriterIsKilled) {
  const std::string command = "exec " TAVREL_PROGRAM " filter " + file("noise.png") + " " + file("out.png");
  ASSERT_TRUE(ImageDestination::write(test::imageOf(test::noisePicture(320, 240, false)), file("noise.png")));
  // A signal that nobody handles comes in the middle of the file.
  const CommandResult killed = test::shell("sh -c 'ulimit -f 50; " + command + "'; kill -l $?");
  EXPECT_NE(killed.output.find("XFSZ"), std::string::npos) << killed.output;
  EXPECT_EQ(test::shell("ls " + file("")).output, "in.png\nnoise.png\n");
  EXPECT_EQ(test::shell(command).status, 0);
}

TEST_F(FilterCommandTest, BadInputIsSaidInOneLineAndLeavesNothing) {
  struct Case {
    std::string arguments;
    int status;
    std::string message;
  };
  const std::string in = file("in.png");
  const std::string out = file("out.png");
  const Case cases[] = {
      {file("none.png") + " " + out, 1, "cannot read " + file("none.png") + ": No such file or directory"},
      {"/etc/passwd " + out, 1, "/etc/passwd is not a PNG, JPEG, GIF, WebP, AVIF, TIFF or HEIC picture"},
      {in + " " + file("none/out.png"), 1, "cannot write " + file("none/out.png") + ": No such file or directory"},
      {in + " " + file("out.bmp"), 1, file("out.bmp") + ": a picture's name ends in .png, .jpg, .jpeg, .webp or .avif"},
      {in + " " + out + " --crop 0,0,0.5", 2, "--crop 0,0,0.5: expected X,Y,W,H, each from 0 to 1"},
      {in + " " + out + " --crop 0.6,0,0.5,1", 2, "--crop 0.6,0,0.5,1: the rectangle reaches beyond the picture"},
      {in + " " + out + " --crop 0,0,0,1", 2, "--crop 0,0,0,1: the rectangle is empty"},
      {in + " " + out + " --beauty 2", 2, "--beauty 2: 2 is not from 0 to 1"},
      {in + " " + out + " --beauty 0.1,", 2, "--beauty 0.1,: expected B, B,BRIGHT or B,BRIGHT,TONE"},
      {in + " " + out + " --blur 501", 2, "--blur 501: expected a radius from 0 to 500 pixels"},
      {in + " " + out + " --sticker a.png", 2,
       "--sticker a.png: expected FILE@X,Y,W,H or FILE@X,Y,W,H,DEGREES, in pixels"},
      {in + " " + out + " --sticker none.png@1,2,3,4", 1, "cannot read none.png: No such file or directory"},
      {in + " " + out + " --lut " + in, 1,
       in +
           ": a picture of 12x8 is no lookup table; it must be 512x512 (8 by 8 tiles) or a HALD picture, a square with "
           "a side of 8, 27, 64, 125 … pixels"},
      {in + " " + out + " --gif a.gif@1,2,0,4", 2, "--gif a.gif@1,2,0,4: width and height must be more than 0"},
      {in + " " + out + " --gif none.gif@1,2,3,4", 1, "cannot read none.gif: No such file or directory"},
      {in + " " + out + " --gif " + in + "@1,2,3,4", 1, in + " is no animation; --sticker takes still pictures"},
      {in + " " + out + " --rotate 8", 2, "--rotate 8: the mode is a whole number from 0 to 7"},
  };
  for (const Case& each : cases) {
    const CommandResult result = test::tavrel("filter " + each.arguments);
    EXPECT_EQ(result.status, each.status) << each.arguments;
    EXPECT_EQ(result.output, "tavrel: " + each.message + "\n") << each.arguments;
  }
  EXPECT_EQ(test::tavrel("filter " + in).status, 2);
  const std::pair<std::string, const char*> broken[] = {
      {"", " is empty"},
      {"no picture\n", " is not a PNG, JPEG, GIF, WebP, AVIF, TIFF or HEIC picture, nor a movie that can be read"},
      {"GIF89a", " is damaged: it is cut off"},
      {std::string("GIF89a\x08\0\x08\0\0\0\0;", 14), " is damaged: it has no frame that can be read"},
      {std::string("RIFF\x10\0\0\0WEBPVP8X\x0a\0\0\0", 20), " is damaged: it is no WebP"},
  };
  for (const auto& [bytes, reason] : broken) {
    const std::string gif = file("broken.gif");
    std::ofstream(gif, std::ios::binary) << bytes;
    for (const std::string& command : {"filter " + in + " " + out, "record " + file("out.mov") + " --duration 1"}) {
      const CommandResult result = test::tavrel(command + " --gif " + gif + "@1,2,3,4");
      EXPECT_EQ(result.status, 1) << command << reason;
      EXPECT_EQ(result.output, "tavrel: " + gif + reason + "\n") << command;
    }
  }
  EXPECT_FALSE(std::filesystem::exists(file("out.mov")));
  EXPECT_EQ(test::tavrel("").status, 2);
  EXPECT_FALSE(std::filesystem::exists(out));
}

}  // namespace
}  // namespace tavrel
