#include <signal.h>

#include <cmath>
#include <thread>

#include "ProgramTestSupport.h"
#include "Support/CapturePeers.h"
#include "TavrelCaptureBase.h"

namespace tavrel {
namespace {

using namespace std::chrono_literals;
using test::CommandResult;

/// The program as a camera that GStreamer and the program itself read, all in their own processes.
class CameraOutputCommandTest : public test::ProgramTest {
 protected:
  void SetUp() override {
    ASSERT_TRUE(service_.start()) << "no service: see service.log";
    // Red left of green.
    ASSERT_EQ(test::shell("convert -size 32x48 xc:red xc:lime +append " + file("scene.png")).status, 0);
  }
  std::unique_ptr<test::PeerProcess> startProgram(const std::string& arguments) const {
    return std::make_unique<test::PeerProcess>("TAVREL_CAPTURE=virtual exec " + std::string(TAVREL_PROGRAM) + " " +
                                               arguments + " --camera file:" + file("scene.png") + " >" + file("said") +
                                               " 2>&1");
  }
  /// The picture in the middle of the camera's left and right half, as GStreamer gets it, once it is there.
  std::string colours(const std::string& camera) const {
    const std::string picture = file("seen.png");
    for (int i = 0; i < 20; ++i) {
      std::filesystem::remove(picture);
      const CommandResult read = test::shell("timeout 20 gst-launch-1.0 -q pipewiresrc target-object=" + camera +
                                             " num-buffers=3 ! video/x-raw,format=BGRA ! videoconvert ! pngenc "
                                             "snapshot=true ! filesink location=" +
                                             picture);
      if (read.status == 0 && std::filesystem::exists(picture)) break;
      std::this_thread::sleep_for(100ms);
    }
    return test::shell("convert " + picture + " -crop 1x1+8+24 -format '%[hex:u.p{0,0}] ' info: ; convert " + picture +
                       " -crop 1x1+56+24 -format '%[hex:u.p{0,0}]' info:")
        .output;
  }
  bool says(const std::string& text) const {
    for (int i = 0; i < 200; ++i, std::this_thread::sleep_for(100ms)) {
      if (test::shell("cat " + file("said")).output.find(text) != std::string::npos) return true;
    }
    return false;
  }

  test::PipeWireService service_;
};

TEST_F(CameraOutputCommandTest, IsACameraWithEffects) {
  const auto program = startProgram("camera --name Mirror --size 64x48 --mirror");
  ASSERT_TRUE(says("Ctrl-C ends it"));
  const std::string seen = colours("Mirror");
  EXPECT_EQ(seen.substr(0, 6) + seen.substr(seen.find(' '), 7), "00FF00 FF0000") << seen;
  // Our own reader, beside another one.
  const std::string movie = file("movie.mov");
  const CommandResult recorded =
      test::shell("TAVREL_CAPTURE=pipewire " + std::string(TAVREL_PROGRAM) + " record " + movie +
                  " --camera pipewire:Mirror --microphone none --size 64x48 --duration 2");
  ASSERT_EQ(recorded.status, 0) << recorded.output;
  EXPECT_GE(test::probe("-select_streams v -show_entries packet=pts_time -of csv=p=0 " + movie).size(), 10U);
}

TEST_F(CameraOutputCommandTest, RecordsAndIsACameraAtOnce) {
  const std::string movie = file("movie.mov");
  const auto program =
      startProgram("record " + movie + " --camera-output pipewire --camera-name Both --microphone none --size 64x48");
  while (!std::filesystem::exists(movie)) std::this_thread::sleep_for(50ms);
  const std::string seen = colours("Both");
  EXPECT_EQ(seen.substr(0, 6) + seen.substr(seen.find(' '), 7), "FF0000 00FF00") << seen;
  program->signal(SIGTERM);
  ASSERT_TRUE(says("frames"));
  EXPECT_GE(test::probe("-select_streams v -show_entries packet=pts_time -of csv=p=0 " + movie).size(), 10U);
}

TEST_F(CameraOutputCommandTest, SaysWhatIsWrong) {
  CommandResult result = test::tavrel("camera --to /dev/null");
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("/dev/null is no video node"), std::string::npos) << result.output;
  service_.stop();
  result = test::tavrel("camera");
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("no PipeWire service answers"), std::string::npos) << result.output;
  result = test::tavrel("record " + file("out.mov") + " --camera-output nowhere");
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("\"nowhere\": expected pipewire or a video node"), std::string::npos) << result.output;
  EXPECT_FALSE(std::filesystem::exists(file("out.mov")));
}

}  // namespace
}  // namespace tavrel
