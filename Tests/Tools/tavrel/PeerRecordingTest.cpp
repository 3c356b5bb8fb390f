#include <chrono>
#include <thread>

#include "ProgramTestSupport.h"
#include "Support/CapturePeers.h"
#include "TavrelCaptureBase.h"

namespace tavrel {
namespace {

using namespace std::chrono_literals;
using test::CommandResult;

constexpr const char* kCaps = "format=BGRA,width=320,height=240,framerate=30/1";

/// The program beside a real service, with a camera and a microphone that other programs play.
class PeerRecordingTest : public test::ProgramTest {
 protected:
  void SetUp() override {
    ASSERT_TRUE(service_.start()) << "no service: see service.log";
    ASSERT_TRUE(test::runCommand("pactl load-module module-null-sink sink_name=hall rate=48000"));
    ASSERT_TRUE(test::runCommand("pactl load-module module-remap-source master=hall.monitor source_name=desk"));
    ASSERT_EQ(test::shell("ffmpeg -v error -f lavfi -i sine=frequency=440:duration=60 " + file("tone.wav")).status, 0);
    camera_ = service_.startCamera("cam", kCaps);
    player_ = std::make_unique<test::PeerProcess>("exec paplay --device=hall " + file("tone.wav"));
    ASSERT_TRUE(isListed("pipewire:cam") && isListed("pipewire:desk"));
  }
  static CommandResult withService(const std::string& arguments) {
    return test::shell("TAVREL_CAPTURE=pipewire " + std::string(TAVREL_PROGRAM) + " " + arguments);
  }
  /// Waits until `tavrel devices` shows it.
  static bool isListed(const std::string& identity) {
    for (int i = 0; i < 40; ++i) {
      if (withService("devices --json").output.find("\"" + identity + "\"") != std::string::npos) return true;
      std::this_thread::sleep_for(250ms);
    }
    return false;
  }
  /// The movie's frame at that time.
  std::shared_ptr<Image> frameAt(const std::string& movie, const char* seconds) const {
    const std::string picture = file("frame.png");
    EXPECT_EQ(test::shell(std::string("ffmpeg -v error -y -ss ") + seconds + " -i " + movie + " -frames:v 1 " + picture)
                  .status,
              0);
    return ImageSource::createWithFile(picture).value()->imageAtIndex(0).value();
  }
  /// The mean loudness, in decibels of full scale.
  static double loudness(const std::string& movie) {
    const std::string said = test::shell("ffmpeg -hide_banner -i " + movie + " -af volumedetect -f null -").output;
    const auto at = said.find("mean_volume: ");
    return at == std::string::npos ? -200 : std::stod(said.substr(at + 13));
  }
  static double length(const std::string& movie, const char* stream) {
    const auto times =
        test::probe(std::string("-select_streams ") + stream + " -show_entries packet=pts_time -of csv=p=0 " + movie);
    return times.empty() ? 0 : std::stod(times.back());
  }

  test::PipeWireService service_;
  std::unique_ptr<test::PeerProcess> camera_;
  std::unique_ptr<test::PeerProcess> player_;
};

TEST_F(PeerRecordingTest, RecordsPictureAndSoundOfOtherPrograms) {
  const std::string movie = file("movie.mov");
  const CommandResult result =
      withService("record " + movie + " --camera pipewire:cam --microphone pipewire:desk --size 320x240 --duration 3");
  ASSERT_EQ(result.status, 0) << result.output;
  EXPECT_GT(length(movie, "v"), 1.5);
  EXPECT_GT(length(movie, "a"), 1.5);
  EXPECT_GT(loudness(movie), -30);
  EXPECT_EQ(test::probe("-select_streams a -show_entries stream=channels -of csv=p=0 " + movie),
            std::vector<std::string>{"2"});
  // Colour bars: the second is yellow, the last one blue.
  const auto picture = frameAt(movie, "1");
  const auto bytes = picture->dataProvider()->bytes();
  const auto pixel = [&](std::size_t x) { return &bytes[60 * picture->bytesPerRow() + x * 4]; };  // B, G, R
  EXPECT_LT(pixel(68)[0], 60);
  EXPECT_GT(pixel(68)[1], 190);
  EXPECT_GT(pixel(68)[2], 190);
  EXPECT_GT(pixel(297)[0], 190);
  EXPECT_LT(pixel(297)[1], 60);
}

TEST_F(PeerRecordingTest, GoesOnWithSoundWhenTheCameraGoesAndTakesItBack) {
  const std::string movie = file("movie.mov");
  // How long a camera takes to come and go is the other program's and the service's to say.
  std::string said;
  bool isBack = false;
  std::chrono::duration<double> recorded{};
  std::jthread trouble([&] {
    const auto says = [&](const char* text) {
      for (int i = 0; i < 600; ++i, std::this_thread::sleep_for(100ms)) {
        said = test::shell("cat " + file("said")).output;
        if (said.find(text) != std::string::npos) return true;
      }
      return false;
    };
    while (!std::filesystem::exists(movie)) std::this_thread::sleep_for(100ms);
    const auto start = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(1500ms);
    camera_->kill();
    if (says("what else there is goes on\n")) {
      camera_ = service_.startCamera("cam", kCaps);
      isBack = says("the camera is back\n");
      std::this_thread::sleep_for(3s);
    }
    recorded = std::chrono::steady_clock::now() - start;
    test::shell("kill -TERM $(cat " + file("pid") + ")");
  });
  const CommandResult result =
      withService("record " + movie + " --camera pipewire:cam --microphone pipewire:desk --size 320x240 2> " +
                  file("said") + " & echo $! > " + file("pid") + "; wait $!");
  trouble.join();
  ASSERT_EQ(result.status, 0) << said;
  ASSERT_TRUE(isBack) << said;
  EXPECT_GT(length(movie, "a"), recorded.count() - 0.5) << "the sound went on all the while";
  EXPECT_NEAR(length(movie, "v"), length(movie, "a"), 2) << "frames came again";
  EXPECT_GT(loudness(movie), -30);
  // In the file's own time base: in one of whole frames, frames that came close together would share a time.
  EXPECT_EQ(
      test::shell("ffmpeg -v error -xerror -i " + movie + " -fps_mode passthrough -enc_time_base -1 -f null -").output,
      "");
}

}  // namespace
}  // namespace tavrel
