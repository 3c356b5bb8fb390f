// The studio among devices that come and go, other programs, and the desktop.
#include <fstream>
#include <thread>

#include "StudioWindowFixture.h"
#include "Support/CapturePeers.h"

namespace tavrel::studio {
namespace {

class StudioDesktopTest : public StudioWindowTest {
 protected:
  /// A folder with a program that opens files for the desktop, and notes which.
  std::string desktop() const {
    const std::string folder = file("bin");
    std::filesystem::create_directory(folder);
    std::ofstream(folder + "/xdg-open") << "#!/bin/sh\necho \"$1\" >> " << file("opened") << "\n";
    std::filesystem::permissions(folder + "/xdg-open", std::filesystem::perms::owner_all);
    return "PATH=" + folder + ":" + std::getenv("PATH");
  }
  /// What was opened last.
  std::string opened(const std::string& ending) const {
    std::string last;
    for (int i = 0; i < 1000 && !last.ends_with(ending); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      std::ifstream stream(file("opened"));
      for (std::string line; std::getline(stream, line);) last = line;
    }
    return last;
  }
  /// A program that is a camera.
  std::unique_ptr<test::PeerProcess> startCamera(const std::string& name) const {
    return std::make_unique<test::PeerProcess>("TAVREL_CAPTURE=virtual exec " + std::string(TAVREL_PROGRAM) +
                                               " camera --size 640x360 --fps 10 --camera file:" + file("grey.png") +
                                               " --name " + name + " > /dev/null 2>&1");
  }
  /// Unfolds a list and chooses an entry.
  static bool choose(const RunningStudio& studio, const std::string& list, const std::string& entry) {
    return studio.click(list) && studio.click(list + "/" + entry) &&
           studio.becomes([&](const json& now) { return !now["widgets"].contains(list + "/" + entry); });
  }
  static bool says(const RunningStudio& studio, const std::string& words) {
    return studio.becomes(
        [&](const json& now) { return now["message"].get<std::string>().find(words) != std::string::npos; });
  }
};

TEST_F(StudioDesktopTest, CamerasArePluggedInAndOut) {
  test::PipeWireService service;
  ASSERT_TRUE(service.start()) << "no service: see service.log";
  const auto camera = startCamera("first");
  settings_.camera = "pipewire:first";
  const auto studio = start({}, {"TAVREL_CAPTURE=pipewire"});
  ASSERT_TRUE(studio->click("Camera"));
  ASSERT_TRUE(studio->shows("Camera/first"));

  // What is plugged in while the list is unfolded is in it.
  auto other = startCamera("second");
  ASSERT_TRUE(studio->click("Camera/second"));
  ASSERT_TRUE(studio->becomes([](const json& now) { return now["camera"] == "pipewire:second"; }));

  ASSERT_TRUE(RunningStudio::press("r"));
  ASSERT_TRUE(studio->becomes([](const json& now) { return now["recording"] == true && now["written"] >= 8; }));
  other->kill();
  ASSERT_TRUE(says(*studio, "The camera is lost"));
  other = startCamera("second");
  ASSERT_TRUE(says(*studio, "The camera is back"));
  const auto written = studio->state()["written"].get<int>();
  ASSERT_TRUE(studio->becomes([&](const json& now) { return now["written"] > written + 5; }));
  ASSERT_TRUE(RunningStudio::press("r"));
  ASSERT_TRUE(studio->becomes(
      [](const json& now) { return now["recording"] == false && !now["file"].get<std::string>().empty(); }));
  const auto frames =
      test::probe("-count_packets -select_streams v -show_entries stream=nb_read_packets -of csv=p=0 '" +
                  studio->state()["file"].get<std::string>() + "'");
  ASSERT_EQ(frames.size(), 1U);
  EXPECT_GT(std::stoi(frames[0]), written);

  // And the studio is a camera itself.
  ASSERT_TRUE(studio->click("Be a camera for other programs"));
  test::CommandResult reader;
  for (int i = 0; i < 20 && reader.status != 0; ++i) {  // until it is listed
    reader = test::shell(
        "timeout 20 gst-launch-1.0 -q pipewiresrc target-object='Tavrel Studio' num-buffers=5 ! videoconvert ! "
        "video/x-raw,format=GRAY8 ! filesink location=" +
        file("seen"));
  }
  ASSERT_EQ(reader.status, 0) << reader.output;
  EXPECT_EQ(std::filesystem::file_size(file("seen")), 5U * 640 * 360);
}

TEST_F(StudioDesktopTest, SettingsSayWhatIsRecordedAndTheDesktopOpensIt) {
  const auto studio = start({}, {desktop()});
  ASSERT_TRUE(studio->click("page/Settings"));
  ASSERT_TRUE(choose(*studio, "File", ".mkv") && choose(*studio, "Codec", "HEVC (smaller)"));
  const std::string movie = record(*studio);
  EXPECT_TRUE(movie.ends_with(".mkv")) << movie;
  EXPECT_EQ(test::probe("-select_streams v -show_entries stream=codec_name -of csv=p=0 '" + movie + "'"),
            std::vector<std::string>{"hevc"});
  ASSERT_TRUE(studio->click("Show in folder"));
  EXPECT_EQ(opened("movies"), file("movies"));

  ASSERT_TRUE(studio->click("page/Statistics") && studio->click("Record a trace"));
  ASSERT_TRUE(studio->shows("Stop and open the trace"));
  ASSERT_TRUE(studio->click("Stop and open the trace"));
  const std::string trace = opened(".json");
  EXPECT_TRUE(json::parse(std::ifstream(trace), nullptr, false).is_structured()) << trace;
}

TEST_F(StudioDesktopTest, ARingShowsWhereAClickFocuses) {
  const auto studio = start();
  const Point point = studio->onScreen(windowPoint(*studio, {200, 120}));
  const auto x = static_cast<int>(point.x);
  const auto y = static_cast<int>(point.y);
  const auto brightest = [&] {
    const Picture seen = screen_.screenshot();
    int most = 0;
    for (int side = 8; side < 60; ++side) most = std::max<int>(most, seen.at(x + side, y).g);
    return most;
  };
  ASSERT_TRUE(becomesOnScreen(*studio, {200, 120}, isGrey));
  EXPECT_LT(brightest(), 130);
  bool isSeen = false;
  // It is there for half a second.
  for (int i = 0; i < 20 && !isSeen; ++i) {
    ASSERT_TRUE(UIVirtualScreen::xdotool("mousemove " + std::to_string(x) + " " + std::to_string(y) + " click 1"));
    for (int look = 0; look < 5 && !isSeen; ++look) isSeen = brightest() > 200;
  }
  EXPECT_TRUE(isSeen);
}

}  // namespace
}  // namespace tavrel::studio
