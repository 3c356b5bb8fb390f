#include <cmath>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "ProgramTestSupport.h"
#include "Support/UIVirtualScreen.h"

namespace tavrel {
namespace {

using namespace std::chrono_literals;
using test::CommandResult;
using test::Picture;
using test::Pixel;
using test::UIVirtualScreen;

constexpr int kLeft = 50;
constexpr int kTop = 40;

/// A program that runs beside the test.
class RunningPreview {
 public:
  /// In `folder`, if it is not empty.
  explicit RunningPreview(std::vector<std::string> arguments, const std::string& folder = "") {
    process_ = fork();
    if (process_ != 0) return;
    if (!folder.empty() && chdir(folder.c_str()) != 0) _exit(127);
    std::vector<char*> all = {const_cast<char*>("tavrel")};
    for (std::string& argument : arguments) all.push_back(argument.data());
    all.push_back(nullptr);
    execv(TAVREL_PROGRAM, all.data());
    _exit(127);
  }
  RunningPreview(const RunningPreview&) = delete;
  RunningPreview& operator=(const RunningPreview&) = delete;
  ~RunningPreview() {
    if (process_ <= 0) return;
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  /// How it ended; -1 when it has not after ten seconds.
  int exitStatus() {
    int status = 0;
    for (int i = 0; i < 200; ++i) {
      if (waitpid(process_, &status, WNOHANG) == process_) {
        process_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      }
      std::this_thread::sleep_for(50ms);
    }
    return -1;
  }
  void terminate() const { kill(process_, SIGTERM); }

 private:
  pid_t process_ = -1;
};

class PreviewCommandTest : public test::ProgramTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(screen_.failure(), "");
    const Picture scene(640, 480, [](int x, int y) {
      if (y >= 240) return Pixel{0, 0, x < 320 ? 255 : 128, 255};
      return x < 320 ? Pixel{200, 0, 0, 255} : Pixel{0, 100, 0, 255};
    });
    ASSERT_TRUE(ImageDestination::write(test::imageOf(scene), file("scene.png")).has_value());
  }

  /// Waits for the window and puts it where the test looks.
  bool placeWindow() const {
    return UIVirtualScreen::xdotool("search --sync --onlyvisible --name 'tavrel preview' windowmove " +
                                    std::to_string(kLeft) + " " + std::to_string(kTop) + " windowfocus --sync");
  }
  /// Looks at the screen until it is right, for some seconds.
  bool becomes(const std::function<bool(const Picture&)>& isRight) const {
    for (int i = 0; i < 100; ++i) {
      if (isRight(screen_.screenshot())) return true;
      std::this_thread::sleep_for(20ms);
    }
    return false;
  }

  UIVirtualScreen screen_{740, 560};
};

bool isNear(const Pixel& left, const Pixel& right) {
  return std::abs(left.r - right.r) <= 2 && std::abs(left.g - right.g) <= 2 && std::abs(left.b - right.b) <= 2;
}

TEST_F(PreviewCommandTest, ShowsTheCameraThroughEffectsAndTheRingOnAClick) {
  RunningPreview preview({"preview", "--camera", "file:" + file("scene.png"), "--mirror"});
  ASSERT_TRUE(placeWindow());
  const auto at = [](const Picture& picture, int x, int y) { return picture.at(kLeft + x, kTop + y); };
  EXPECT_TRUE(becomes([&](const Picture& picture) {
    return isNear(at(picture, 20, 20), {0, 100, 0, 255}) && isNear(at(picture, 620, 20), {200, 0, 0, 255}) &&
           isNear(at(picture, 20, 460), {0, 0, 128, 255}) && isNear(at(picture, 620, 460), {0, 0, 255, 255});
  })) << "the mirrored scene";

  // Green is seen in the red quarter only where the ring is: within 45 pixels of the click, never within 23.
  bool isRingSeen = false;
  for (int attempt = 0; attempt < 20 && !isRingSeen; ++attempt) {
    ASSERT_TRUE(UIVirtualScreen::xdotool("mousemove " + std::to_string(kLeft + 500) + " " + std::to_string(kTop + 100) +
                                         " click 1"));
    const Picture picture = screen_.screenshot();
    int lit = 0;
    for (int y = 0; y < 240; ++y) {
      // The camera loses its focus for a moment, which smears the quarter's edge.
      for (int x = 350; x < 640; ++x) {
        if (at(picture, x, y).g < 20) continue;
        const double distance = std::hypot(x - 500, y - 100);
        ++lit;
        EXPECT_TRUE(distance > 23 && distance < 47) << x << ' ' << y;
      }
    }
    isRingSeen = lit > 60;
    std::this_thread::sleep_for(350ms);
  }
  EXPECT_TRUE(isRingSeen);

  ASSERT_TRUE(UIVirtualScreen::xdotool("key q"));
  EXPECT_EQ(preview.exitStatus(), 0);
}

TEST_F(PreviewCommandTest, ALineTellsTheKeysAndARecordingAndCanBeHidden) {
  const auto at = [](const Picture& picture, int x, int y) { return picture.at(kLeft + x, kTop + y); };
  // In a corner of the line, which is dark over what is blue.
  const auto isLineSeen = [&](const Picture& picture) { return at(picture, 32, 455).b < 130; };
  const auto isLineHidden = [&](const Picture& picture) { return isNear(at(picture, 32, 455), {0, 0, 255, 255}); };
  const auto isMarkSeen = [&](const Picture& picture) {
    int red = 0;
    for (int x = 28; x < 612; ++x) red += at(picture, x, 463).r > 150 && at(picture, x, 463).g < 80 ? 1 : 0;
    return red > 8;
  };
  {
    RunningPreview preview({"preview", "--camera", "file:" + file("scene.png"), "--fps", "10"}, file(""));
    ASSERT_TRUE(placeWindow());
    EXPECT_TRUE(becomes(isLineSeen));
    EXPECT_FALSE(isMarkSeen(screen_.screenshot()));
    ASSERT_TRUE(UIVirtualScreen::xdotool("key h"));
    EXPECT_TRUE(becomes(isLineHidden));
    ASSERT_TRUE(UIVirtualScreen::xdotool("key h key r"));
    EXPECT_TRUE(becomes(isMarkSeen));
    ASSERT_TRUE(UIVirtualScreen::xdotool("key q"));
    EXPECT_EQ(preview.exitStatus(), 0);
  }
  RunningPreview plain({"preview", "--no-hints", "--camera", "file:" + file("scene.png")});
  ASSERT_TRUE(placeWindow());
  EXPECT_TRUE(becomes(isLineHidden));
}

TEST_F(PreviewCommandTest, EndsCleanlyWhenItIsAskedTo) {
  RunningPreview preview({"preview", "--camera", "back", "--rotate=1"});
  ASSERT_TRUE(placeWindow());
  // As large as asked for, also when the picture is turned.
  const CommandResult geometry = test::shell("xdotool search --name 'tavrel preview' getwindowgeometry --shell");
  EXPECT_NE(geometry.output.find("WIDTH=640\nHEIGHT=480\n"), std::string::npos) << geometry.output;
  preview.terminate();
  EXPECT_EQ(preview.exitStatus(), 0);
}

TEST_F(PreviewCommandTest, ARecordingThroughAFilterIsShownToo) {
  const CommandResult result = test::tavrel(
      "record " + file("movie.mov") + " --preview --blur 2 --microphone none --size 320x240 --fps 10 --duration 1");
  EXPECT_EQ(result.status, 0) << result.output;
}

TEST_F(PreviewCommandTest, ARecordingGoesOnWhenItsWindowIsPutAway) {
  const std::string movie = file("movie.mov");
  RunningPreview recording({"record", movie, "--preview", "--microphone", "none", "--size", "320x240", "--fps", "10"});
  ASSERT_TRUE(UIVirtualScreen::xdotool("search --sync --onlyvisible --name 'tavrel record'"));
  for (int i = 0; i < 1000 && !std::filesystem::exists(movie); ++i) std::this_thread::sleep_for(20ms);
  ASSERT_TRUE(UIVirtualScreen::xdotool("search --name 'tavrel record' windowunmap"));
  const auto away = std::chrono::steady_clock::now();
  std::this_thread::sleep_for(4s);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - away).count();
  recording.terminate();
  EXPECT_EQ(recording.exitStatus(), 0);
  const auto times = test::probe("-select_streams v -show_entries packet=pts_time -of csv=p=0 " + movie);
  ASSERT_FALSE(times.empty());
  EXPECT_GT(std::stod(times.back()), seconds - 1) << "as long as the window was away, and longer";
}

TEST_F(PreviewCommandTest, SaysInOneLineThatThereIsNoWindow) {
  const std::string said = "tavrel: a window is asked for and none can be had: ";
  for (const char* environment :
       {"env -u DISPLAY -u WAYLAND_DISPLAY -u SDL_VIDEODRIVER", "env DISPLAY=:4711", "env TAVREL_DISPLAY=headless"}) {
    const CommandResult result = test::shell(std::string(environment) + " " + TAVREL_PROGRAM + " preview --mirror");
    EXPECT_EQ(result.status, 1) << environment;
    EXPECT_EQ(result.output.rfind(said, 0), 0U) << result.output;
    EXPECT_EQ(result.output.find('\n'), result.output.size() - 1) << result.output;
  }
  EXPECT_EQ(test::shell(std::string("env -u DISPLAY ") + TAVREL_PROGRAM + " preview --crop 1").status, 2);
  EXPECT_EQ(test::tavrel("preview --camera side").output.find("tavrel: "), 0U);
}

}  // namespace
}  // namespace tavrel
