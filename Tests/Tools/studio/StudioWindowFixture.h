#pragma once

#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Model/Layout.h"
#include "Model/Settings.h"
#include "RunningStudio.h"
#include "Tools/tavrel/ProgramTestSupport.h"

namespace tavrel::studio {

using nlohmann::json;
using test::Picture;
using test::Pixel;
using test::RunningStudio;
using test::UIVirtualScreen;

inline constexpr Size kFrame = {640, 360};
inline constexpr Pixel kGrey = {120, 120, 120, 255};

/// The studio as people use it: with mouse and keys, in a window under Xvfb.
class StudioWindowTest : public test::ProgramTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(screen_.failure(), "");
    write("grey.png", 640, 360, kGrey);
    write("red.png", 40, 30, {255, 0, 0, 255});
    settings_.size = kFrame;
    settings_.framesPerSecond = 10;
    settings_.camera = "file:" + file("grey.png");
    settings_.microphone = "";
    settings_.windowSize = {1280, 720};
    settings_.movieFolder = file("movies");
    settings_.stillFolder = file("stills");
  }
  void write(const char* name, int width, int height, Pixel colour) const {
    const Picture picture(width, height, [&](int, int) { return colour; });
    ASSERT_TRUE(ImageDestination::write(test::imageOf(picture), file(name)).has_value());
  }
  std::unique_ptr<RunningStudio> start(const std::vector<std::string>& arguments = {},
                                       const std::vector<std::string>& environment = {}) const {
    EXPECT_TRUE(settings_.save(file("tavrel-studio/settings.json")));
    return std::make_unique<RunningStudio>(file(""), arguments, environment);
  }

  /// Records some frames with the key, and returns the movie.
  static std::string record(const RunningStudio& studio) {
    const std::string before = studio.state()["file"];
    EXPECT_TRUE(RunningStudio::press("r"));
    EXPECT_TRUE(studio.becomes([](const json& now) { return now["recording"] == true && now["written"] >= 8; }));
    EXPECT_TRUE(RunningStudio::press("r"));
    EXPECT_TRUE(studio.becomes([&](const json& now) { return now["recording"] == false && now["file"] != before; }));
    return studio.state()["file"];
  }
  /// The last frame of a movie, by another program.
  Picture lastFrame(const std::string& movie) const {
    const auto result = test::shell("ffmpeg -v error -y -sseof -0.5 -i '" + movie +
                                    "' -update 1 -f rawvideo -pix_fmt rgba '" + file("last.rgba") + "'");
    const auto bytes = readFile(file("last.rgba"));
    const auto rowBytes = static_cast<std::size_t>(kFrame.width) * 4;
    const auto frameBytes = rowBytes * static_cast<std::size_t>(kFrame.height);
    if (!bytes || bytes->size() < frameBytes) {
      ADD_FAILURE() << "no frame of " << movie << ": " << result.output;
      return {};
    }
    const std::uint8_t* const last = bytes->data() + bytes->size() - frameBytes;
    return {static_cast<int>(kFrame.width), static_cast<int>(kFrame.height), [&](int x, int y) {
              const auto* p = last + static_cast<std::size_t>(y) * rowBytes + static_cast<std::size_t>(x) * 4;
              return Pixel{p[0], p[1], p[2], 255};
            }};
  }
  static Picture pictureOf(const std::string& file) {
    const auto image = ImageSource::createWithFile(file).value()->imageAtIndex(0).value();
    return {static_cast<int>(image->width()), static_cast<int>(image->height()), [&](int x, int y) {
              const auto* p = image->dataProvider()->bytes().data() +
                              static_cast<std::size_t>(y) * image->bytesPerRow() + static_cast<std::size_t>(x) * 4;
              return Pixel{p[2], p[1], p[0], 255};
            }};
  }
  /// A pixel of the screen where the window shows a place of the frame.
  Pixel shown(const RunningStudio& studio, Point place) const {
    const Point point = windowPoint(studio, place);
    const Point onScreen = studio.onScreen(point);
    return screen_.screenshot().at(static_cast<int>(onScreen.x), static_cast<int>(onScreen.y));
  }
  static Point windowPoint(const RunningStudio& studio, Point place) {
    const auto p = studio.state()["picture"];
    Layout layout;
    layout.picture = {{p[0], p[1]}, {p[2], p[3]}};
    return layout.toWindow(place, kFrame, false);
  }
  bool becomesOnScreen(const RunningStudio& studio, Point place, const std::function<bool(Pixel)>& isRight) const {
    for (int i = 0; i < 100; ++i) {
      if (isRight(shown(studio, place))) return true;
    }
    ADD_FAILURE() << "the picture shows " << int{shown(studio, place).g};
    return false;
  }

  Settings settings_;
  UIVirtualScreen screen_{1400, 900};
};

inline bool isGrey(Pixel pixel) { return std::abs(pixel.r - kGrey.r) < 4 && std::abs(pixel.g - kGrey.g) < 4; }

}  // namespace tavrel::studio
