#include "StudioWindowFixture.h"

#include <fstream>
#include <thread>

#include "DesktopClient.h"
#include "Support/CapturePeers.h"

namespace tavrel::studio {
namespace {

using test::DesktopClient;

/// The box of what is red.
Rect redBox(const Picture& picture) {
  Point least = {picture.width * 1.0, picture.height * 1.0};
  Point most;
  for (int y = 0; y < picture.height; ++y) {
    for (int x = 0; x < picture.width; ++x) {
      const Pixel pixel = picture.at(x, y);
      if (pixel.r < 180 || pixel.g > 90) continue;
      least = {std::min<double>(least.x, x), std::min<double>(least.y, y)};
      most = {std::max(most.x, x + 1.0), std::max(most.y, y + 1.0)};
    }
  }
  return {least, {most.x - least.x, most.y - least.y}};
}

TEST_F(StudioWindowTest, ASliderIsSeenInThePictureAndInTheRecording) {
  const auto studio = start();
  const Point middle = {320, 180};
  ASSERT_TRUE(becomesOnScreen(*studio, middle, isGrey));
  ASSERT_TRUE(studio->click("page/Effects") && studio->click("Add beauty") && studio->shows("Brightness##1"));
  const Rect track = studio->placeOf("Brightness##1");
  ASSERT_TRUE(studio->drag({track.midX(), track.midY()}, {track.maxX() - 8, track.midY()}));
  ASSERT_TRUE(studio->becomes([](const json& now) { return now["effects"][0]["levels"][1] > 0.9; }));
  const auto isBright = [](Pixel pixel) { return pixel.g > kGrey.g + 15; };
  ASSERT_TRUE(becomesOnScreen(*studio, middle, isBright));

  ASSERT_TRUE(UIVirtualScreen::xdotool("keydown b"));
  EXPECT_TRUE(becomesOnScreen(*studio, middle, isGrey)) << "before the effects, while the key is held";
  ASSERT_TRUE(UIVirtualScreen::xdotool("keyup b"));
  EXPECT_TRUE(becomesOnScreen(*studio, middle, isBright));

  EXPECT_TRUE(isBright(lastFrame(record(*studio)).at(320, 180)));
  // Measured: 0.6.
  EXPECT_LT(studio->state()["panelMilliseconds"], 6) << "of the main thread's time, each drawing";
}

TEST_F(StudioWindowTest, AStickerLandsInTheMovieWhereItWasDropped) {
  const auto studio = start({file("red.png")});
  ASSERT_TRUE(studio->becomes([](const json& now) { return now["effects"].size() == 1; }));
  const auto place = studio->state()["effects"][0]["place"];
  const Rect before = {{place[0], place[1]}, {place[2], place[3]}};
  const Point from = windowPoint(*studio, {before.midX() + 4, before.midY() - 3});
  const Point to = {std::floor(from.x) + 217.5, std::floor(from.y) + 96.5};
  ASSERT_TRUE(studio->drag(from, to));
  const double zoom = studio->state()["picture"][2].get<double>() / kFrame.width;
  const Point wanted = {before.origin.x + 217 / zoom, before.origin.y + 96 / zoom};
  ASSERT_TRUE(studio->becomes(
      [&](const json& now) { return std::abs(now["effects"][0]["place"][0].get<double>() - wanted.x) < 1; }));
  const Rect box = redBox(lastFrame(record(*studio)));
  EXPECT_NEAR(box.minX(), wanted.x, 2);
  EXPECT_NEAR(box.minY(), wanted.y, 2);
  EXPECT_NEAR(box.size.width, before.size.width, 2);
  EXPECT_NEAR(box.size.height, before.size.height, 2);

  // A corner makes it larger, about its centre.
  const Point corner = windowPoint(*studio, {wanted.x + before.size.width, wanted.y + before.size.height});
  ASSERT_TRUE(studio->drag(
      corner, windowPoint(*studio, {wanted.x + before.size.width * 1.5, wanted.y + before.size.height * 1.5})));
  EXPECT_TRUE(studio->becomes([&](const json& now) {
    return std::abs(now["effects"][0]["place"][2].get<double>() - before.size.width * 2) < 2;
  }));
  const Point handle = studio->placeOf("turning handle").origin;
  ASSERT_TRUE(studio->drag(
      handle, windowPoint(*studio, {wanted.x + before.size.width + 100, wanted.y + before.size.height / 2})));
  EXPECT_TRUE(studio->becomes(
      [&](const json& now) { return std::abs(now["effects"][0]["place"][4].get<double>() - M_PI / 2) < 0.05; }));
  ASSERT_TRUE(RunningStudio::press("Delete"));
  EXPECT_TRUE(studio->becomes([](const json& now) { return now["effects"].empty(); }));
}

TEST_F(StudioWindowTest, AFileIsDroppedWhereItIsLetGo) {
  const auto studio = start();
  DesktopClient desktop;
  const auto drop = [&](const char* name, Point target) {
    const Point place = studio->onScreen(windowPoint(*studio, target));
    return desktop.dropFile(RunningStudio::kTitle, file(name), static_cast<int>(place.x), static_cast<int>(place.y));
  };
  for (const Point target : {Point{160, 250}, Point{480, 90}}) {
    ASSERT_TRUE(drop("red.png", target));
    ASSERT_TRUE(studio->becomes([](const json& now) { return now["effects"].size() == 1; }));
    const Rect box = redBox(lastFrame(record(*studio)));
    EXPECT_NEAR(box.midX(), target.x, 2);
    EXPECT_NEAR(box.midY(), target.y, 2);
    ASSERT_TRUE(RunningStudio::press("Delete"));
    ASSERT_TRUE(studio->becomes([](const json& now) { return now["effects"].empty(); }));
  }
  std::ofstream(file("notes.txt")) << "no picture";
  ASSERT_TRUE(drop("notes.txt", {160, 250}));
  EXPECT_TRUE(studio->becomes([](const json& now) {
    return now["isFault"] == true && now["message"].get<std::string>().find("notes.txt") != std::string::npos;
  }));
  EXPECT_TRUE(studio->click("OK"));
  EXPECT_TRUE(studio->becomes([](const json& now) { return now["isFault"] == false; }));
}

TEST_F(StudioWindowTest, ButtonsAndKeysRecordAndClosingCompletesTheMovie) {
  auto studio = start();
  ASSERT_TRUE(studio->click("Record"));
  ASSERT_TRUE(studio->becomes([](const json& now) { return now["recording"] == true && now["written"] >= 4; }));
  ASSERT_TRUE(studio->click("Pause"));
  ASSERT_TRUE(studio->becomes([](const json& now) { return now["paused"] == true; }));
  ASSERT_TRUE(RunningStudio::press("p"));
  ASSERT_TRUE(studio->becomes([](const json& now) { return now["paused"] == false && now["recording"] == true; }));
  ASSERT_TRUE(studio->click("Still picture"));
  ASSERT_TRUE(studio->becomes([](const json& now) { return now["file"].get<std::string>().ends_with(".png"); }));
  const std::string still = studio->state()["file"];
  EXPECT_TRUE(isGrey(pictureOf(still).at(10, 10)));
  ASSERT_TRUE(RunningStudio::press("Tab"));
  ASSERT_TRUE(studio->becomes([](const json& now) { return !now["widgets"].contains("Still picture"); }));
  EXPECT_EQ(studio->state()["picture"], json({0.0, 0.0, 1280.0, 720.0})) << "the whole window";
  ASSERT_TRUE(DesktopClient().closeWindow(RunningStudio::kTitle));
  EXPECT_EQ(studio->exitStatus(), 0);
  const auto movie = std::filesystem::directory_iterator(file("movies"))->path().string();
  EXPECT_EQ(std::filesystem::path(movie).extension(), ".mov");
  const Pixel last = lastFrame(movie).at(600, 300);
  EXPECT_TRUE(isGrey(last)) << int{last.r} << ' ' << int{last.g} << ' ' << int{last.b};
  EXPECT_FALSE(Settings::load(file("tavrel-studio/settings.json"))->showsPanels);
}

TEST_F(StudioWindowTest, EverythingIsInReachInASmallWindowAndOnAFineDisplay) {
  settings_.windowSize = {800, 500};
  double usualHeight = 0;
  {
    const auto small = start();
    for (const char* name : {"page/Statistics", "page/Settings", "page/Effects", "Record", "Pause", "Still picture"}) {
      const Rect place = small->placeOf(name);
      EXPECT_TRUE(place.minX() >= 0 && place.maxX() <= 800 && place.maxY() <= 500) << name;
      EXPECT_GT(place.size.width, 20) << name;
    }
    EXPECT_GE(small->state()["picture"][2], 400);
    usualHeight = small->placeOf("Record").size.height;
  }
  settings_.windowSize = {1280, 800};
  const auto fine = start({}, {"GDK_SCALE=2"});
  const Rect button = fine->placeOf("Record");
  EXPECT_NEAR(button.size.height / usualHeight, 2, 0.1);
  EXPECT_LE(fine->placeOf("Still picture").maxX(), 1280);
  ASSERT_TRUE(fine->click("page/Statistics") && fine->shows("graph"));
}

TEST_F(StudioWindowTest, WithoutACameraADrawnOneIsShownAndSaid) {
  settings_.camera = "";
  settings_.microphone = "default";
  const auto studio = start({}, {"TAVREL_CAPTURE=auto", "XDG_RUNTIME_DIR=" + file("")});
  EXPECT_TRUE(studio->becomes([](const json& now) {
    return now["message"].get<std::string>().find("a drawn one is shown") != std::string::npos &&
           now["camera"].get<std::string>().starts_with("virtual:");
  }));
}

TEST_F(StudioWindowTest, RunsOnWayland) {
  // A compositor with a mouse, in a window of the virtual screen.
  const std::string folder = file("runtime");
  std::filesystem::create_directory(folder);
  std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
  const test::PeerProcess compositor("XDG_RUNTIME_DIR=" + folder +
                                     " weston --no-config --backend=x11-backend.so --use-pixman --socket=wayland-test"
                                     " --width=1380 --height=880 > /dev/null 2>&1");
  for (int i = 0; i < 1000 && !std::filesystem::exists(folder + "/wayland-test"); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ASSERT_TRUE(std::filesystem::exists(folder + "/wayland-test")) << "the compositor does not start (package weston)";
  const auto studio =
      start({}, {"DISPLAY=", "SDL_VIDEODRIVER=wayland", "WAYLAND_DISPLAY=wayland-test", "XDG_RUNTIME_DIR=" + folder});
  EXPECT_TRUE(studio->becomes([](const json& now) { return now["processed"] > 5 && now["widgets"].size() > 10; }));
  // Where the window lies is the compositor's secret; most of it is the camera's grey.
  bool isSeen = false;
  for (int i = 0; i < 100 && !isSeen; ++i) {
    const Picture seen = screen_.screenshot();
    int grey = 0;
    for (int y = 0; y < seen.height; y += 10) {
      for (int x = 0; x < seen.width; x += 10) grey += isGrey(seen.at(x, y)) ? 1 : 0;
    }
    isSeen = grey > 3000;
  }
  EXPECT_TRUE(isSeen);
}

TEST_F(StudioWindowTest, WhatKeepsTheWindowFromOpeningIsSaid) {
  const std::string program = TAVREL_STUDIO_PROGRAM;
  for (const char* environment :
       {"env -u DISPLAY -u WAYLAND_DISPLAY -u SDL_VIDEODRIVER", "env DISPLAY=:4711", "env TAVREL_DISPLAY=headless"}) {
    const auto result = test::shell(std::string(environment) + " HOME=" + file("") + " " + program);
    EXPECT_EQ(result.status, 1) << environment;
    EXPECT_TRUE(result.output.starts_with("tavrel-studio: there is no window: ")) << result.output;
  }
  EXPECT_EQ(test::shell(program + " --nonsense").status, 2);
  EXPECT_EQ(test::shell(program + " no-such-file.png").status, 2);
}

}  // namespace
}  // namespace tavrel::studio
