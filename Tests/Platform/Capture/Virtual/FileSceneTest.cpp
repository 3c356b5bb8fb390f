#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "Platform/Capture/CaptureError.h"
#include "Support/ReaderMovies.h"
#include "Support/VirtualFrames.h"
#include "TavrelCaptureTesting.h"

namespace tavrel::test {
namespace {

using testing::HasSubstr;
using Color = std::array<int, 3>;

std::shared_ptr<PixelBuffer> shown(VirtualScene& scene, double time, std::size_t width, std::size_t height,
                                   VirtualFrame frame = {}) {
  auto buffer = PixelBuffer::create(width, height, PixelFormat::bgra32).value();
  frame.sceneTime = time;
  const auto rendered = scene.render(*buffer, frame);
  EXPECT_TRUE(rendered.has_value()) << rendered.error().description;
  return buffer;
}

Color at(const std::shared_ptr<PixelBuffer>& buffer, int x, int y) {
  const VirtualPicture picture(buffer);
  const std::uint8_t* pixel = picture.pixel(x, y);
  return {pixel[2], pixel[1], pixel[0]};
}

testing::Matcher<const Color&> near(int red, int green, int blue) {
  const auto close = [](int value) { return testing::AllOf(testing::Ge(value - 12), testing::Le(value + 12)); };
  return testing::ElementsAre(close(red), close(green), close(blue));
}

/// A picture with a red, a green, a blue and a white quarter, from the top left by rows.
constexpr const char* kQuarters =
    "-f lavfi -i \"color=red:size=40x30,format=rgb24,drawbox=x=20:w=20:h=15:color=lime:t=fill,"
    "drawbox=y=15:w=20:h=15:color=blue:t=fill,drawbox=x=20:y=15:w=20:h=15:color=white:t=fill\" ";

TEST(FileScene, LoopsAMovieByItsOwnTimes) {
  const ReaderFolder folder;
  // Red for 0.5 s, green for 0.25 s, blue for 0.25 s.
  ASSERT_NO_FATAL_FAILURE(
      makeMovie(folder / "a.mkv",
                "-f lavfi -i color=red:size=64x48:rate=4:duration=0.5 -f lavfi -i "
                "color=lime:size=64x48:rate=4:duration=0.25 -f lavfi -i "
                "color=blue:size=64x48:rate=4:duration=0.25 -filter_complex concat=n=3 -c:v ffv1 OUT"));
  const auto scene = FileScene::create(folder / "a.mkv").value();
  const struct {
    double time;
    Color color;
  } kShown[] = {{0, {255, 0, 0}},    {0.4, {255, 0, 0}},  {0.6, {0, 255, 0}}, {0.8, {0, 0, 255}},
                {0.99, {0, 0, 255}}, {1.05, {255, 0, 0}}, {1.6, {0, 255, 0}}, {7.8, {0, 0, 255}},
                {8.1, {255, 0, 0}},  {0.6, {0, 255, 0}},  {0, {255, 0, 0}},   {1e6, {255, 0, 0}}};
  for (const auto& expected : kShown) {
    EXPECT_THAT(at(shown(*scene, expected.time, 32, 24), 16, 12),
                near(expected.color[0], expected.color[1], expected.color[2]))
        << expected.time;
  }
}

TEST(FileScene, FillsTheFrameFromTheCentre) {
  const ReaderFolder folder;
  for (const char* name : {"a.png", "a.mkv"}) {
    SCOPED_TRACE(name);
    ASSERT_NO_FATAL_FAILURE(makeMovie(folder / name, std::string(kQuarters) + "-frames:v 1 " +
                                                         (name[2] == 'm' ? "-c:v ffv1 -pix_fmt gbrp OUT" : "OUT")));
    const auto scene = FileScene::create(folder / name).value();
    const auto wide = shown(*scene, 0, 160, 40);
    EXPECT_THAT(at(wide, 4, 4), near(255, 0, 0));
    EXPECT_THAT(at(wide, 155, 4), near(0, 255, 0));
    EXPECT_THAT(at(wide, 4, 35), near(0, 0, 255));
    EXPECT_THAT(at(wide, 155, 35), near(255, 255, 255));
    const auto tall = shown(*scene, 0, 33, 121);
    EXPECT_THAT(at(tall, 2, 2), near(255, 0, 0));
    EXPECT_THAT(at(tall, 30, 118), near(255, 255, 255));
    VirtualFrame dark;
    dark.exposure = 0.5;
    EXPECT_THAT(at(shown(*scene, 0, 33, 121, dark), 2, 2), near(128, 0, 0));
    EXPECT_THAT(at(shown(*scene, 0, 33, 121), 2, 2), near(255, 0, 0));
  }
}

TEST(FileScene, TurnsAMovieUprightAsFfmpegDoes) {
  const ReaderFolder folder;
  ASSERT_NO_FATAL_FAILURE(makeMovie(folder / "a.mov", std::string(kQuarters) + "-frames:v 1 -c:v png OUT"));
  for (const char* degrees : {"90", "180", "270"}) {
    SCOPED_TRACE(degrees);
    ASSERT_NO_FATAL_FAILURE(makeMovieFrom(folder / "a.mov", folder / "turned.mov",
                                          std::string("-i IN -c copy -metadata:s:v:0 rotate=") + degrees + " OUT"));
    ASSERT_NO_FATAL_FAILURE(
        makeMovieFrom(folder / "turned.mov", folder / "upright.raw", "-i IN -f rawvideo -pix_fmt rgb24 OUT"));
    const auto upright = bytesOf(folder / "upright.raw");
    const bool swapped = std::string(degrees) != "180";
    const std::size_t width = swapped ? 30 : 40;
    const std::size_t height = swapped ? 40 : 30;
    ASSERT_EQ(upright.size(), width * height * 3);
    const auto scene = FileScene::create(folder / "turned.mov").value();
    const auto buffer = shown(*scene, 0, width, height);
    for (const auto& [x, y] : {std::pair<std::size_t, std::size_t>{3, 3}, {width - 3, 3}, {3, height - 3}}) {
      const std::uint8_t* expected = upright.data() + (y * width + x) * 3;
      EXPECT_THAT(at(buffer, static_cast<int>(x), static_cast<int>(y)), near(expected[0], expected[1], expected[2]));
    }
  }
}

/// An EXIF block that holds nothing but an orientation.
std::vector<std::uint8_t> withOrientation(std::vector<std::uint8_t> jpeg, std::uint8_t orientation) {
  const std::vector<std::uint8_t> block = {0xFF, 0xE1, 0, 34, 'E', 'x',         'i', 'f', 0, 0,    'M', 'M',
                                           0,    42,   0, 0,  0,   8,           0,   1,   1, 0x12, 0,   3,
                                           0,    0,    0, 1,  0,   orientation, 0,   0,   0, 0,    0,   0};
  jpeg.insert(jpeg.begin() + 2, block.begin(), block.end());
  return jpeg;
}

TEST(FileScene, TurnsAPictureUpright) {
  const ReaderFolder folder;
  ASSERT_NO_FATAL_FAILURE(
      makeMovie(folder / "a.jpg", std::string(kQuarters) + "-frames:v 1 -pix_fmt yuvj444p -q:v 1 OUT"));
  const auto jpeg = bytesOf(folder / "a.jpg");
  // The colours of the stored quarters 1 2 / 3 4 that the orientation puts at the top left and the top right.
  const Color red = {255, 0, 0};
  const Color green = {0, 255, 0};
  const Color blue = {0, 0, 255};
  const Color white = {255, 255, 255};
  const Color kTop[8][2] = {{red, green}, {green, red}, {white, blue},  {blue, white},
                            {red, blue},  {blue, red},  {white, green}, {green, white}};
  for (std::uint8_t orientation = 1; orientation <= 8; ++orientation) {
    SCOPED_TRACE(static_cast<int>(orientation));
    writeBytes(folder / "turned.jpg", withOrientation(jpeg, orientation));
    const auto scene = FileScene::create(folder / "turned.jpg").value();
    const int width = orientation < 5 ? 40 : 30;
    const auto buffer = shown(*scene, 0, static_cast<std::size_t>(width), static_cast<std::size_t>(70 - width));
    const auto& top = kTop[orientation - 1];
    EXPECT_THAT(at(buffer, 4, 4), near(top[0][0], top[0][1], top[0][2]));
    EXPECT_THAT(at(buffer, width - 5, 4), near(top[1][0], top[1][1], top[1][2]));
  }
}

TEST(FileScene, SaysWhatIsWrong) {
  const ReaderFolder folder;
  writeBytes(folder / "text.txt", {'t', 'e', 'x', 't'});
  ASSERT_NO_FATAL_FAILURE(makeMovie(folder / "sound.wav", "-f lavfi -i sine=duration=1 OUT"));
  const struct {
    const char* name;
    CaptureErrorCode code;
    const char* reason;
  } kWrong[] = {{"missing.mp4", CaptureErrorCode::noSuchFile, "there is no file"},
                {"text.txt", CaptureErrorCode::badScene, "neither a movie"},
                {"sound.wav", CaptureErrorCode::badScene, "no pictures"}};
  for (const auto& wrong : kWrong) {
    const auto scene = FileScene::create(folder / wrong.name);
    ASSERT_FALSE(scene.has_value()) << wrong.name;
    EXPECT_EQ(scene.error(), wrong.code);
    EXPECT_EQ(scene.error().domain, "capture");
    EXPECT_THAT(scene.error().description, HasSubstr(wrong.name));
    EXPECT_THAT(scene.error().description, HasSubstr(wrong.reason));
  }
}

}  // namespace
}  // namespace tavrel::test
