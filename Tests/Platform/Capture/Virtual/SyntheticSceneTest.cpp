#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <vector>

#include "Support/ReaderMovies.h"
#include "Support/ThreadTime.h"
#include "Support/VirtualFrames.h"
#include "TavrelCaptureTesting.h"

namespace tavrel::test {
namespace {

using Position = SyntheticScene::Position;

std::shared_ptr<PixelBuffer> draw(VirtualScene& scene, int width, int height, const VirtualFrame& frame) {
  auto buffer =
      PixelBuffer::create(static_cast<std::size_t>(width), static_cast<std::size_t>(height), PixelFormat::bgra32)
          .value();
  EXPECT_TRUE(scene.render(*buffer, frame).has_value());
  return buffer;
}

VirtualFrame frameAt(std::uint32_t number, double frameRate = 30) {
  VirtualFrame frame;
  frame.frameNumber = number;
  frame.sceneTime = number / frameRate;
  frame.frameDuration = 1 / frameRate;
  return frame;
}

std::vector<std::uint8_t> bytesOf(const std::shared_ptr<PixelBuffer>& buffer) {
  const VirtualPicture picture(buffer);
  std::vector<std::uint8_t> bytes;
  for (int y = 0; y < picture.height(); ++y) {
    bytes.insert(bytes.end(), picture.pixel(0, y), picture.pixel(0, y) + picture.width() * 4);
  }
  return bytes;
}

/// Mean brightness of a block around the picture's centre, and how much neighbours differ in it.
struct Centre {
  double brightness = 0;
  double detail = 0;

  explicit Centre(const std::shared_ptr<PixelBuffer>& buffer) {
    const VirtualPicture picture(buffer);
    const int size = picture.height() / 8;
    for (int y = -size; y < size; ++y) {
      for (int x = -size; x < size; ++x) {
        const std::uint8_t* pixel = picture.pixel(picture.width() / 2 + x, picture.height() / 2 + y);
        brightness += pixel[1] / (4.0 * size * size);
        detail += std::abs(pixel[1] - pixel[5]) / (4.0 * size * size);
      }
    }
  }
};

TEST(SyntheticScene, TheFirstFrameOfAPreparedSceneCostsAsMuchAsTheOthers) {
  // Sizes that nobody has drawn yet.
  SyntheticScene prepared(Position::front), unprepared(Position::front);
  prepared.prepare(402, 298);
  std::shared_ptr<PixelBuffer> first, second;
  const double cost = costOf([&] { first = draw(prepared, 402, 298, frameAt(0)); });
  EXPECT_LT(cost * 2, costOf([&] { draw(unprepared, 398, 302, frameAt(0)); }));
  second = draw(unprepared, 402, 298, frameAt(0));
  EXPECT_EQ(bytesOf(first), bytesOf(second));
}

TEST(SyntheticScene, ShowsItsFrameNumberAtAnySize) {
  SyntheticScene scene(Position::front);
  const int kSizes[][2] = {{16, 16},   {17, 19},   {33, 16},   {64, 48},    {127, 255},  {128, 96},   {255, 33},
                           {256, 144}, {640, 480}, {641, 479}, {1280, 720}, {720, 1280}, {1920, 1080}};
  for (const auto& size : kSizes) {
    for (const std::uint32_t number : {0U, 1U, 2U, 12345U, 0xFFFFFFU, 0xAAAAAAU}) {
      const VirtualPicture picture(draw(scene, size[0], size[1], frameAt(number)));
      ASSERT_EQ(picture.counter(), number) << size[0] << "x" << size[1];
    }
  }
}

TEST(SyntheticScene, FindsNoNumberWhereThereIsNone) {
  for (const int level : {0, 128, 255}) {
    const std::vector<std::uint8_t> plain(std::size_t{320} * 240 * 4, static_cast<std::uint8_t>(level));
    EXPECT_FALSE(SyntheticScene::decodeFrameCounter(plain.data(), 320 * 4, 320, 240).has_value());
  }
  SyntheticScene scene(Position::back);
  auto bytes = bytesOf(draw(scene, 320, 240, frameAt(77)));
  // Upside down.
  std::reverse(bytes.begin(), bytes.end());
  EXPECT_FALSE(SyntheticScene::decodeFrameCounter(bytes.data(), 320 * 4, 320, 240).has_value());
}

TEST(SyntheticScene, IsTheSameOnEveryRunAndMoves) {
  SyntheticScene one(Position::front);
  SyntheticScene other(Position::front);
  SyntheticScene back(Position::back);
  const auto frame = frameAt(45);
  draw(one, 320, 240, frameAt(3));
  EXPECT_EQ(bytesOf(draw(one, 320, 240, frame)), bytesOf(draw(other, 320, 240, frame)));
  EXPECT_NE(bytesOf(draw(one, 320, 240, frame)), bytesOf(draw(back, 320, 240, frame)));
  VirtualFrame later = frame;
  later.sceneTime += 0.03;
  EXPECT_NE(bytesOf(draw(one, 320, 240, frame)), bytesOf(draw(one, 320, 240, later)));
}

TEST(SyntheticScene, FlashesAtEverySecondForATenth) {
  SyntheticScene scene(Position::front);
  for (const double rate : {5.0, 10.0, 15.0, 24.0, 30000.0 / 1001, 30.0, 60.0}) {
    for (std::uint32_t number = 0; number < static_cast<std::uint32_t>(rate * 6); ++number) {
      const double second = std::round(number / rate);
      // Frames from the one nearest to a second on, for a tenth of a second.
      const double sinceNearest = std::round((number - std::round(second * rate)));
      const double frames = std::max(1.0, std::round(0.1 * rate));
      const bool expected = sinceNearest >= 0 && sinceNearest < frames;
      const VirtualPicture picture(draw(scene, 64, 48, frameAt(number, rate)));
      // At rates where a tenth is no whole number of frames, the last one may go either way.
      if (sinceNearest == frames || sinceNearest == frames - 1) continue;
      ASSERT_EQ(picture.isFlash(), expected) << "frame " << number << " at " << rate;
    }
    ASSERT_TRUE(VirtualPicture(draw(scene, 64, 48, frameAt(0, rate))).isFlash()) << rate;
  }
}

TEST(SyntheticScene, ShowsTheControlsAndKeepsItsMarks) {
  SyntheticScene scene(Position::back);
  const VirtualFrame plain = frameAt(90);
  const Centre normal(draw(scene, 640, 480, plain));
  VirtualFrame frame = plain;
  frame.torchLevel = 1;
  EXPECT_GT(Centre(draw(scene, 640, 480, frame)).brightness, normal.brightness + 30);
  EXPECT_EQ(VirtualPicture(draw(scene, 640, 480, frame)).counter(), 90U);
  frame = plain;
  frame.exposure = 0.5;
  EXPECT_NEAR(Centre(draw(scene, 640, 480, frame)).brightness, normal.brightness / 2, 2);
  EXPECT_TRUE(VirtualPicture(draw(scene, 640, 480, frame)).isFlash());
  frame = plain;
  frame.focus = 0;
  EXPECT_LT(Centre(draw(scene, 640, 480, frame)).detail, normal.detail / 4);
  EXPECT_EQ(VirtualPicture(draw(scene, 640, 480, frame)).counter(), 90U);
  // At 1/6 of the width from the centre there is background, until it is zoomed out of the picture.
  const auto blue = [&](const VirtualFrame& shown) {
    return VirtualPicture(draw(scene, 640, 480, shown)).pixel(440, 240)[2];
  };
  frame = plain;
  frame.zoom = 3;
  EXPECT_GT(blue(frame), blue(plain) + 60);
  // Back to normal: nothing of the controls stays.
  EXPECT_EQ(Centre(draw(scene, 640, 480, plain)).brightness, normal.brightness);
}

TEST(SyntheticScene, ShowsWhatFiltersWorkOn) {
  for (const Position position : {Position::front, Position::back}) {
    SyntheticScene scene(position);
    // Before the ball comes by.
    const VirtualPicture picture(draw(scene, 1280, 720, frameAt(0)));
    const auto at = [&](int x, int y) { return picture.pixel(x, y); };
    const auto isSkin = [&](int x, int y) {
      return at(x, y)[2] > 170 && at(x, y)[2] > at(x, y)[1] && at(x, y)[1] > at(x, y)[0];
    };
    int skin = 0, spots = 0;
    for (int y = 180; y < 600; ++y) {
      for (int x = 520; x < 760; ++x) {
        if (!isSkin(x, y)) continue;
        ++skin;
        if (at(x, y)[1] < at(x - 12, y)[1] - 25 && at(x, y)[1] < at(x + 12, y)[1] - 25) ++spots;
      }
    }
    EXPECT_GT(skin, 40000);
    EXPECT_GT(spots, 200);
    for (const int pupil : {580, 700}) EXPECT_LT(at(pupil, 325)[1], 60) << pupil;
    for (const int hair : {480, 800}) EXPECT_LT(at(hair, 360)[1], 90) << hair;
    // The poster's lines.
    int changes = 0;
    for (int x = 940; x < 1060; ++x) changes += (at(x, 285)[1] > 140) != (at(x + 1, 285)[1] > 140);
    EXPECT_GE(changes, 18);
  }
}

TEST(SyntheticScene, DrawsWhatDoesNotMoveOnce) {
  using Clock = std::chrono::steady_clock;
  SyntheticScene scene(Position::front);
  const auto cost = [&](std::uint32_t number) {
    auto buffer = PixelBuffer::create(642, 482, PixelFormat::bgra32).value();
    const auto start = Clock::now();
    EXPECT_TRUE(scene.render(*buffer, frameAt(number)).has_value());
    return Clock::now() - start;
  };
  const auto first = cost(0);
  auto least = cost(1);
  for (std::uint32_t i = 2; i < 60; ++i) least = std::min(least, cost(i));
  EXPECT_LT(least, first / 10);
}

TEST(SyntheticScene, CanBeReadAfterLossyCoding) {
  const ReaderFolder folder;
  SyntheticScene scene(Position::front);
  std::vector<std::uint8_t> raw;
  for (std::uint32_t i = 0; i < 40; ++i) {
    const auto bytes = bytesOf(draw(scene, 320, 240, frameAt(5000 + i)));
    raw.insert(raw.end(), bytes.begin(), bytes.end());
  }
  writeBytes(folder / "frames.raw", raw);
  ASSERT_NO_FATAL_FAILURE(
      makeMovieFrom(folder / "frames.raw", folder / "a.mp4",
                    "-f rawvideo -pix_fmt bgra -s 320x240 -r 30 -i IN -c:v libx264 -pix_fmt yuv420p "
                    "-crf 35 OUT"));
  OpenedReader opened(folder / "a.mp4", MediaType::video);
  std::uint32_t expected = 5000;
  for (const auto& sample : opened.readAll()) {
    const VirtualPicture picture(sample->imageBuffer());
    EXPECT_EQ(picture.counter(), expected);
    EXPECT_EQ(picture.isFlash(), VirtualPicture(draw(scene, 320, 240, frameAt(expected))).isFlash());
    ++expected;
  }
  EXPECT_EQ(expected, 5040U);
}

}  // namespace
}  // namespace tavrel::test
