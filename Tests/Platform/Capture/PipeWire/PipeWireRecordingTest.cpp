// What the program makes of cameras that do what they should not: a movie, or a line that says why not.
#include <gmock/gmock.h>

#include <cstdlib>
#include <thread>

#include "PipeWireFixture.h"
#include "PipeWireProducer.h"
#include "Support/CameraMatrix.h"
#include "Tools/tavrel/ProgramTestSupport.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;
using Kind = PipeWireProducer::Kind;
using ::testing::HasSubstr;

void paintGray(std::uint8_t* bytes, int, int height, std::size_t stride) {
  std::fill_n(bytes, stride * static_cast<std::size_t>(height), 120);
}

std::int64_t monotonicNow() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

class PipeWireRecordingTest : public PipeWireServiceTest {
 protected:
  /// So many seconds of the camera, at 64x48.
  CommandResult record(const std::string& name, int seconds) const {
    return tavrel("record " + file(name) + " --camera pipewire:" + name +
                  " --microphone none --size 64x48 --duration " + std::to_string(seconds));
  }
  std::string file(const std::string& name) const { return (service_.folder() / (name + ".mp4")).string(); }
  /// The times of a movie's pictures, in seconds.
  std::vector<double> timesIn(const std::string& name) const {
    std::vector<double> times;
    for (const auto& line : probe("-select_streams v -show_entries frame=pts_time -of csv=p=0 " + file(name))) {
      if (!line.empty()) times.push_back(std::strtod(line.c_str(), nullptr));
    }
    return times;
  }
  void SetUp() override {
    PipeWireServiceTest::SetUp();
    setenv("TAVREL_CAPTURE", "pipewire", 1);
  }
};

TEST_F(PipeWireRecordingTest, RecordsCamerasWithFaultsOrSaysWhyNot) {
  struct Case {
    Kind kind;
    const char* fault;
    const char* said = "";  ///< nothing: there is a movie
  };
  const auto spoiled = [](const char* name, decltype(Kind::spoil) spoil) {
    return Kind{.name = name, .paint = paintGray, .spoil = std::move(spoil)};
  };
  const std::int64_t start = monotonicNow() - 300'000'000;
  const int seconds = 2 * patienceFactor();
  const std::vector<Case> cases = {
      {spoiled("standing", [=](auto&, spa_meta_header& header, auto) { header.pts = start; }),
       "stamps that stand still, recorded"},
      {spoiled("jumping", [](auto&, spa_meta_header& header,
                             std::uint32_t n) { header.pts = monotonicNow() - (n % 2 == 0 ? 5'000'000'000 : 0); }),
       "stamps that jump to and fro, recorded"},
      {spoiled("late",
               [](auto&, auto&, std::uint32_t n) {
                 if (n == 0) std::this_thread::sleep_for(2500ms);
               }),
       "pictures that begin after 2.5 s, recorded"},
      {{.name = "dot", .width = 1, .height = 1, .paint = paintGray}, "pictures of 1x1, recorded"},
      {{.name = "fast", .framesPerSecond = 240, .paint = paintGray}, "240 pictures a second, recorded"},
      {spoiled("empty", [](spa_buffer& buffer, auto&, auto) { buffer.datas[0].chunk->size = 0; }),
       "nothing but empty buffers, recorded", "a buffer came empty"},
      {spoiled("lying", [](spa_buffer& buffer, auto&, auto) { buffer.datas[0].chunk->size = 32 * 24 * 4; }),
       "pictures smaller than their format, recorded", "a picture is cut short: 3072 bytes of 12288"},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.kind.name);
    const PipeWireProducer producer(one.kind);
    const auto began = std::chrono::steady_clock::now();
    const CommandResult recorded = record(one.kind.name, seconds);
    EXPECT_LT(std::chrono::steady_clock::now() - began, 40s);
    const bool isFailure = *one.said != 0;
    EXPECT_EQ(recorded.status, isFailure ? 1 : 0) << recorded.output;
    EXPECT_THAT(recorded.output, HasSubstr(one.said));
    EXPECT_EQ(std::filesystem::exists(file(one.kind.name)), !isFailure);
    if (!isFailure) {
      const auto times = timesIn(one.kind.name);
      // A busy machine loses many; none of a clock's faults may leave but one.
      ASSERT_GE(times.size(), 3U) << recorded.output;
      for (std::size_t i = 1; i < times.size(); ++i) EXPECT_GT(times[i], times[i - 1]);
      EXPECT_NEAR(times.back() - times.front(), seconds, 0.4 * seconds);
    }
    if (!HasFailure()) {
      recordCamera({"PipeWire, played", "BGRx", "MemFd", std::to_string(one.kind.framesPerSecond), one.fault,
                    isFailure ? std::string("exit status 1, \"") + one.said + "\", no file" : "a movie"});
    }
  }
}

TEST_F(PipeWireRecordingTest, GoesOnWhenTheCameraChangesOrPauses) {
  PipeWireProducer changing({.name = "changing", .paint = paintGray});
  CommandResult recorded;
  std::jthread program([&] { recorded = record("changing", 3); });
  std::this_thread::sleep_for(2s);
  changing.change(SPA_VIDEO_FORMAT_BGRx, 96, 32);
  program.join();
  EXPECT_EQ(recorded.status, 0) << recorded.output;
  EXPECT_NEAR(timesIn("changing").back(), 3, 0.5) << recorded.output;
  EXPECT_EQ(probe("-select_streams v -show_entries stream=width,height -of csv=p=0 " + file("changing")),
            std::vector<std::string>{"64,48"});
  if (!HasFailure()) {
    recordCamera({"PipeWire, played", "BGRx", "MemFd", "30", "another size while it is recorded", "a movie"});
  }
  PipeWireProducer pausing({.name = "pausing", .paint = paintGray});
  program = std::jthread([&] { recorded = record("pausing", 14); });
  std::this_thread::sleep_for(3s);
  pausing.pause(true);
  std::this_thread::sleep_for(10s);
  pausing.pause(false);
  program.join();
  EXPECT_EQ(recorded.status, 0) << recorded.output;
  EXPECT_THAT(recorded.output, HasSubstr("pausing has delivered no picture for 4 seconds"));
  EXPECT_GT(timesIn("pausing").back(), 12) << recorded.output;
  if (!HasFailure()) {
    recordCamera({"PipeWire, played", "BGRx", "MemFd", "30", "a pause of 10 seconds, recorded", "a movie, and said"});
  }
}

}  // namespace
}  // namespace tavrel::test
