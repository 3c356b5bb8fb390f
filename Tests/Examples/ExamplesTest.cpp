#include <cmath>
#include <fstream>
#include <regex>

#include "Support/GraphTestSupport.h"
#include "TavrelCaptureTesting.h"
#include "Tools/tavrel/ProgramTestSupport.h"

namespace tavrel {
namespace {

using test::CommandResult;
using test::Picture;
using test::Pixel;

/// Runs an example on the virtual devices.
CommandResult example(const std::string& nameAndArguments) {
  return test::shell("env TAVREL_CAPTURE=virtual " TAVREL_EXAMPLES + nameAndArguments);
}

bool isNear(Pixel pixel, Pixel expected, int tolerance) {
  return std::abs(pixel.r - expected.r) <= tolerance && std::abs(pixel.g - expected.g) <= tolerance &&
         std::abs(pixel.b - expected.b) <= tolerance;
}

class ExamplesTest : public test::ProgramTest {
 protected:
  std::string write(const char* name, const Picture& picture) const {
    const auto written = ImageDestination::write(test::imageOf(picture), file(name));
    EXPECT_TRUE(written.has_value()) << name;
    return file(name);
  }
  Picture read(const std::string& name) const {
    const auto source = ImageSource::createWithFile(name);
    const auto image = source.and_then([](const auto& opened) { return opened->imageAtIndex(0); });
    if (!image) {
      ADD_FAILURE() << image.error().description;
      return {1, 1, [](int, int) { return Pixel{}; }};
    }
    return test::pictureOf(**image);
  }
};

TEST_F(ExamplesTest, RecordWithEffects) {
  const std::string sticker = write("sticker.png", {8, 8, [](int, int) { return Pixel{255, 0, 0, 255}; }});
  const CommandResult result = example("RecordWithEffects " + file("a.mov") + " 2 " + sticker);
  ASSERT_EQ(result.status, 0) << result.output;
  EXPECT_EQ(test::probe("-show_entries stream=codec_name,width -of csv=p=0 " + file("a.mov")),
            (std::vector<std::string>{"h264,640", "aac"}));
  const auto duration = test::probe("-show_entries format=duration -of csv=p=0 " + file("a.mov"));
  ASSERT_EQ(duration.size(), 1U);
  EXPECT_GT(std::stod(duration[0]), 0.5);
  ASSERT_EQ(test::shell("ffmpeg -v error -i " + file("a.mov") + " -frames:v 1 " + file("a.png")).status, 0);
  const Picture frame = read(file("a.png"));
  EXPECT_TRUE(isNear(frame.at(80, 80), {255, 0, 0, 255}, 12));
  EXPECT_FALSE(isNear(frame.at(160, 80), {255, 0, 0, 255}, 60));

  const CommandResult failed = example("RecordWithEffects " + file("none/a.mov") + " 1 " + sticker);
  EXPECT_EQ(failed.status, 1);
  EXPECT_NE(failed.output.find("No such file"), std::string::npos) << failed.output;

  // What the guide promises: not more than 20 lines between the arguments and the end.
  std::ifstream source(TAVREL_EXAMPLE_SOURCES "/RecordWithEffects.cpp");
  const std::string text{std::istreambuf_iterator<char>(source), {}};
  const auto begin = text.find("usage: ");
  ASSERT_NE(begin, std::string::npos);
  const std::string own = text.substr(text.find("\n\n", begin) + 2, text.rfind("\n\n") - text.find("\n\n", begin));
  EXPECT_GT(own.size(), 500U);
  EXPECT_LE(std::count(own.begin(), own.end(), '\n') - 1, 20) << own;
}

TEST_F(ExamplesTest, FilterPictures) {
  {
    std::ofstream table(file("negative.cube"));
    table << "LUT_3D_SIZE 2\n";
    for (int i = 0; i < 8; ++i) table << 1 - (i & 1) << ' ' << 1 - (i >> 1 & 1) << ' ' << 1 - (i >> 2 & 1) << '\n';
  }
  const Picture small = test::distinctPicture(9, 7);
  const Picture large = test::distinctPicture(40, 30);
  const CommandResult result =
      example("FilterPictures " + file("negative.cube") + " " + file("out") + " " + write("small.png", small) + " " +
              file("none.png") + " " + write("large.png", large));
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("none.png: "), std::string::npos) << result.output;
  EXPECT_NE(result.output.find("2 of 3 pictures filtered"), std::string::npos) << result.output;
  const auto negative = [](const Picture& picture) {
    return Picture(picture.width, picture.height, [&](int x, int y) {
      const Pixel pixel = picture.at(x, y);
      return Pixel{255 - pixel.r, 255 - pixel.g, 255 - pixel.b, pixel.a};
    });
  };
  EXPECT_LE(test::largestDifference(read(file("out/small.png")), negative(small)), 3);
  EXPECT_LE(test::largestDifference(read(file("out/large.png")), negative(large)), 3);
}

TEST_F(ExamplesTest, CustomFilter) {
  const std::string white = write("white.png", {101, 101, [](int, int) { return Pixel{255, 255, 255, 255}; }});
  const CommandResult result = example("CustomFilter " + white + " " + file("dark.png") + " 0.8");
  ASSERT_EQ(result.status, 0) << result.output;
  const Picture dark = read(file("dark.png"));
  for (const int offset : {0, 10, 35, 50}) {
    const double distance = std::sqrt(2) * offset / 101 / 0.7071;
    const int expected = static_cast<int>(std::lround(255 * (1 - 0.8 * distance * distance)));
    EXPECT_TRUE(isNear(dark.at(50 + offset, 50 - offset), {expected, expected, expected, 255}, 2)) << offset;
  }

  // What the guides promise about it.
  std::ifstream source(TAVREL_EXAMPLE_SOURCES "/CustomFilter.cpp");
  const std::string text{std::istreambuf_iterator<char>(source), {}};
  EXPECT_GT(text.size(), 500U);
  EXPECT_LT(std::count(text.begin(), text.end(), '\n'), 60);
  EXPECT_FALSE(std::regex_search(text, std::regex("\\bgl[A-Z]\\w*\\(")));
}

TEST_F(ExamplesTest, OwnEffect) {
  const Picture source(64, 48, [](int x, int y) { return Pixel{x, 100, 200 - y, 255}; });
  ASSERT_EQ(
      test::shell("ffmpeg -v error -f lavfi -i color=0x406080:size=640x480:rate=10:duration=0.5 -pix_fmt yuv420p " +
                  file("grey.mp4"))
          .status,
      0);
  const CommandResult result = example("OwnEffect " + write("a.png", source) + " " + file("b.png") + " " +
                                       file("grey.mp4") + " " + file("warm.mov") + " " + file("snapshot.png"));
  ASSERT_EQ(result.status, 0) << result.output;
  const Picture expected(64, 48, [&](int x, int y) {
    const Pixel pixel = source.at(x, y);
    return Pixel{pixel.r + 64, pixel.g, pixel.b - 64, 255};
  });
  EXPECT_LE(test::largestDifference(read(file("b.png")), expected), 2);

  EXPECT_EQ(test::probe("-count_frames -show_entries stream=nb_read_frames -of csv=p=0 " + file("warm.mov")),
            std::vector<std::string>{"5"});
  ASSERT_EQ(test::shell("ffmpeg -v error -i " + file("warm.mov") + " -frames:v 1 " + file("warm.png")).status, 0);
  const Pixel frame = read(file("warm.png")).at(320, 240);
  EXPECT_TRUE(isNear(frame, {0x80, 0x60, 0x40, 255}, 12)) << frame;

  // By the later, stronger setting the sky of the virtual scene has lost its blue.
  const Picture snapshot = read(file("snapshot.png"));
  const Pixel sky = snapshot.at(snapshot.width * 15 / 16, snapshot.height / 4);
  EXPECT_GT(sky.r, sky.b + 60) << sky;

  std::ifstream text(TAVREL_EXAMPLE_SOURCES "/OwnEffect.cpp");
  EXPECT_LT(std::count(std::istreambuf_iterator<char>(text), {}, '\n'), 60);
}

TEST_F(ExamplesTest, ExternalFilter) {
  const CommandResult result = example("ExternalFilter " + file("mosaic.png"));
  ASSERT_EQ(result.status, 0) << result.output;
  const Picture picture = read(file("mosaic.png"));
  ASSERT_EQ(picture.width, 320);
  const Pixel block = picture.at(160, 112);
  for (int y = 112; y < 128; ++y) {
    for (int x = 160; x < 176; ++x) EXPECT_EQ(picture.at(x, y), block) << x << ' ' << y;
  }
  // Outside of the middle the picture is as it was.
  const auto frame = test::pixelBufferOf(picture);
  frame->lockBaseAddress(PixelBufferLock::readOnly);
  EXPECT_TRUE(SyntheticScene::decodeFrameCounter(frame->baseAddress(), frame->bytesPerRow(), 320, 240).has_value());
  frame->unlockBaseAddress(PixelBufferLock::readOnly);
}

}  // namespace
}  // namespace tavrel
