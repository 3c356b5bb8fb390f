#include "Model/Settings.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "Model/Folders.h"
#include "Tools/tavrel/ProgramTestSupport.h"

namespace tavrel::studio {
namespace {

class SettingsTest : public test::ProgramTest {
 protected:
  void write(const std::string& text) const { std::ofstream(file("settings.json")) << text; }
  Settings loaded() const { return Settings::load(file("settings.json")).value(); }
};

TEST_F(SettingsTest, ComeBackAsTheyWereSaved) {
  Settings settings;
  settings.camera = "usb:one";
  settings.microphone = "";
  settings.size = {640, 360};
  settings.framesPerSecond = 24;
  settings.codec = kVideoCodecVP9;
  settings.container = ".webm";
  settings.quality = 0.5;
  settings.movieFolder = "/films";
  settings.mirrors = true;
  settings.showsPanels = false;
  settings.effects = {{"frame", {640, 360}}, {"list", nlohmann::json::array()}};
  const std::filesystem::path path = file("a/folder/that/is/new/settings.json");
  ASSERT_TRUE(settings.save(path));
  const Settings again = Settings::load(path).value();
  EXPECT_EQ(again.camera, "usb:one");
  EXPECT_EQ(again.microphone, "");
  EXPECT_EQ(again.size, (Size{640, 360}));
  EXPECT_EQ(again.framesPerSecond, 24);
  EXPECT_EQ(again.codec, kVideoCodecVP9);
  EXPECT_EQ(again.container, ".webm");
  EXPECT_EQ(again.quality, 0.5);
  EXPECT_EQ(again.movies(), "/films");
  EXPECT_TRUE(again.mirrors);
  EXPECT_FALSE(again.showsPanels);
  EXPECT_EQ(again.effects, settings.effects);
}

TEST_F(SettingsTest, SenselessValuesAreReplacedAndADamagedFileIsSaid) {
  EXPECT_EQ(loaded().size, Settings().size) << "without a file";
  write(
      R"({"width": -3, "height": 480, "quality": "good", "framesPerSecond": 1e9, "movieFolder": "here", "camera": 7})");
  EXPECT_EQ(loaded().size, (Size{1280, 480}));
  EXPECT_EQ(loaded().quality, Settings().quality);
  EXPECT_EQ(loaded().framesPerSecond, Settings().framesPerSecond);
  EXPECT_TRUE(loaded().movieFolder.empty()) << "a folder that depends on where the program was started";
  EXPECT_EQ(loaded().camera, "");
  for (const char* text : {"", "{", "[1, 2]", "\xFF\xFE"}) {
    write(text);
    const auto damaged = Settings::load(file("settings.json"));
    ASSERT_FALSE(damaged) << text;
    EXPECT_NE(damaged.error().description.find("settings.json"), std::string::npos);
  }
  EXPECT_FALSE(Settings().save("/proc/nowhere/settings.json"));
}

TEST_F(SettingsTest, FoldersAreThoseOfTheDesktop) {
  const auto old = std::string(std::getenv("HOME") ? std::getenv("HOME") : "");
  setenv("HOME", "/home/somebody", 1);
  setenv("XDG_CONFIG_HOME", file("").c_str(), 1);
  EXPECT_EQ(settingsFolder(), file("tavrel-studio"));
  EXPECT_EQ(userFolder("VIDEOS"), "/home/somebody/Videos");
  std::ofstream(file("user-dirs.dirs")) << "# made by the desktop\nXDG_PICTURES_DIR=\"$HOME/Bilder\"\n"
                                           "XDG_VIDEOS_DIR=\"/films\"\n";
  EXPECT_EQ(userFolder("VIDEOS"), "/films");
  EXPECT_EQ(userFolder("PICTURES"), "/home/somebody/Bilder");
  EXPECT_EQ(Settings().movies(), "/films");
  EXPECT_EQ(shortName("/home/somebody/Bilder/a.png"), "~/Bilder/a.png");
  unsetenv("XDG_CONFIG_HOME");
  setenv("HOME", old.c_str(), 1);
}

TEST_F(SettingsTest, NewFilesAreNamedByDateAndNeverTaken) {
  const std::time_t now = std::time(nullptr);
  const auto first = newFile(file(""), ".mov", now);
  const auto second = newFile(file(""), ".mov", now);
  EXPECT_NE(first, second) << "the first need not be written yet";
  char date[32] = {};
  std::strftime(date, sizeof(date), "%Y-%m-%d %H-%M-%S", std::localtime(&now));
  EXPECT_EQ(first.filename(), std::string(date) + ".mov");
  EXPECT_EQ(second.filename(), std::string(date) + " (2).mov");
}

}  // namespace
}  // namespace tavrel::studio
