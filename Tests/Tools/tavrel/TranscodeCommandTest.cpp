#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <thread>

#include "Platform/Media/AssetReader.h"
#include "Platform/Media/AssetReaderTrackOutput.h"
#include "ProgramTestSupport.h"
#include "Support/ReaderMovies.h"

namespace tavrel {
namespace {

using test::CommandResult;

class TranscodeCommandTest : public test::ProgramTest {
 protected:
  /// A film whose sound clicks once a second.
  void makeFilm(const char* name, const std::string& seconds, const std::string& encoding) {
    test::makeMovie(file(name),
                    "-f lavfi -i testsrc2=size=160x120:rate=25:duration=" + seconds +
                        " -f lavfi -i \"aevalsrc='if(lt(mod(t+0.7,1),0.01),0.8*sin(2*PI*1000*t),0)':s=48000:d=" +
                        seconds + "\" " + encoding + " OUT");
  }
  std::vector<double> frameTimes(const char* name) const {
    return test::OpenedReader(file(name), MediaType::video).readTimes();
  }
  /// When the clicks begin.
  std::vector<double> clicks(const char* name) const {
    std::vector<double> found;
    double quietSince = -1;
    for (const auto& sample : test::OpenedReader(file(name), MediaType::audio).readAll()) {
      const auto sound = test::firstChannelOf(*sample);
      for (std::size_t i = 0; i < sound.size(); ++i) {
        const double time = sample->presentationTimeStamp().seconds() +
                            static_cast<double>(i) / sample->format()->audioFormat.sampleRate;
        if (std::abs(sound[i]) < 0.3F) continue;
        if (found.empty() || time - quietSince > 0.5) found.push_back(time);
        quietSince = time;
      }
    }
    return found;
  }
  void expectSameTimeline(const char* original, const char* made) const {
    const auto before = frameTimes(original);
    const auto after = frameTimes(made);
    ASSERT_EQ(before.size(), after.size());
    // A file whose first sample comes after 0 may be moved there.
    const double moved = after[0] - before[0];
    EXPECT_NEAR(moved, 0, 0.01);
    for (std::size_t i = 0; i < before.size(); ++i) EXPECT_NEAR(before[i] + moved, after[i], 0.0011) << i;
    const auto was = clicks(original);
    const auto is = clicks(made);
    ASSERT_EQ(was.size(), is.size());
    for (std::size_t i = 0; i < was.size(); ++i) EXPECT_NEAR(was[i] + moved, is[i], 0.005) << i;
  }
};

TEST_F(TranscodeCommandTest, AMinuteKeepsEveryFrameAndItsSoundInPlace) {
  ASSERT_NO_FATAL_FAILURE(makeFilm("in.mp4", "60", "-c:v libx264 -preset ultrafast -bf 2 -g 100 -c:a aac"));
  const CommandResult result = test::tavrel("transcode --json " + file("in.mp4") + " " + file("out.mov"));
  EXPECT_EQ(nlohmann::json::parse(result.output), (nlohmann::json{{"output", file("out.mov")},
                                                                  {"width", 160},
                                                                  {"height", 120},
                                                                  {"seconds", 59.960},
                                                                  {"frames", 1500},
                                                                  {"sound", "copied"}}));
  EXPECT_EQ(result.status, 0);
  expectSameTimeline("in.mp4", "out.mov");
}

TEST_F(TranscodeCommandTest, SoundThatTheContainerCannotTakeIsEncodedAnew) {
  const struct {
    const char* input;
    const char* encoding;
    const char* output;
    const char* sound;
  } cases[] = {
      {"a.webm", "-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -c:a libopus", "a.mov", "encoded"},
      {"b.webm", "-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -c:a libopus", "b.mkv", "copied"},
      {"h.webm", "-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -c:a libopus", "h.mp4", "copied"},
      {"c.avi", "-c:v mpeg4 -bf 2 -c:a pcm_s16le", "c.mp4", "encoded"},
      {"d.avi", "-c:v mpeg4 -bf 2 -c:a pcm_s16le", "d.mov", "copied"},
      {"e.ts", "-c:v libx264 -bf 2 -c:a aac", "e.mp4", "encoded"},
      {"f.mkv", "-c:v libx265 -x265-params log-level=none -c:a flac", "f.mp4", "encoded"},
      {"g.mov", "-c:v mjpeg -c:a libmp3lame", "g.mp4", "copied"},
  };
  for (const auto& each : cases) {
    ASSERT_NO_FATAL_FAILURE(makeFilm(each.input, "3", each.encoding));
    const CommandResult result = test::tavrel("transcode " + file(each.input) + " " + file(each.output));
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_NE(result.output.find(std::string("75 frames, sound ") + each.sound), std::string::npos) << result.output;
    SCOPED_TRACE(each.input);
    expectSameTimeline(each.input, each.output);
  }
}

TEST_F(TranscodeCommandTest, PicturesAreReversedTurnedScaledAndSilencedAsAsked) {
  ASSERT_NO_FATAL_FAILURE(makeFilm("flat.mp4", "2", "-c:v libx264 -bf 2 -g 250 -c:a aac"));
  ASSERT_NO_FATAL_FAILURE(
      test::makeMovieFrom(file("flat.mp4"), file("in.mp4"), "-i IN -c copy -metadata:s:v rotate=90 OUT"));
  const CommandResult result =
      test::tavrel("transcode --json --reverse --no-audio --size 120x80 " + file("in.mp4") + " " + file("out.mkv"));
  ASSERT_EQ(result.status, 0) << result.output;
  EXPECT_EQ(nlohmann::json::parse(result.output), (nlohmann::json{{"output", file("out.mkv")},
                                                                  {"width", 120},
                                                                  {"height", 80},
                                                                  {"seconds", 1.960},
                                                                  {"frames", 50},
                                                                  {"sound", "none"}}));
  EXPECT_EQ(Asset::create(file("out.mkv")).value()->tracks().size(), 1U);

  // The last frame as a player shows it, centre cut to the new proportions, against the first one that came out.
  ASSERT_EQ(test::shell("ffmpeg -v error -y -sseof -0.05 -i " + file("in.mp4") +
                        " -frames:v 1 -vf crop=120:80,format=bgra -f rawvideo " + file("expected.raw"))
                .status,
            0);
  test::OpenedReader reversed(file("out.mkv"), MediaType::video);
  const auto pixels = test::pixelsOf(*reversed.readAll().at(0));
  const auto expected = test::bytesOf(file("expected.raw"));
  ASSERT_EQ(pixels.size(), expected.size());
  double sum = 0;
  for (std::size_t i = 0; i < pixels.size(); ++i) sum += std::abs(pixels[i] - expected[i]);
  EXPECT_LT(sum / static_cast<double>(pixels.size()), 10);
}

TEST_F(TranscodeCommandTest, FailuresAreSaidInOneLineAndLeaveNothing) {
  ASSERT_NO_FATAL_FAILURE(makeFilm("in.mp4", "20", "-c:v libx264 -preset ultrafast -c:a aac"));
  test::makeMovie(file("sound.wav"), "-f lavfi -i sine=duration=1 OUT");
  const std::string in = file("in.mp4") + " ";
  const struct {
    std::string arguments;
    int status;
    std::string message;
  } cases[] = {
      {file("none.mp4") + " " + file("out.mp4"), 1,
       file("none.mp4") + " is not a movie that can be read: No such file or directory"},
      {"/etc/passwd " + file("out.mp4"), 1,
       "/etc/passwd is not a movie that can be read: Invalid data found when "
       "processing input"},
      {file("sound.wav") + " " + file("out.mp4"), 1, file("sound.wav") + " has no pictures, only sound"},
      {in + file("out.webm"), 2, file("out.webm") + ": a movie's name ends in .mov, .mp4 or .mkv"},
      {in + file("out.mp4") + " --size 3", 2, "--size 3: expected WIDTHxHEIGHT, each from 16 to 8192"},
  };
  for (const auto& each : cases) {
    const CommandResult result = test::tavrel("transcode " + each.arguments);
    EXPECT_EQ(result.status, each.status) << each.arguments;
    EXPECT_EQ(result.output, "tavrel: " + each.message + "\n");
  }
  EXPECT_EQ(test::tavrel("transcode " + in + file("none/out.mp4")).status, 1);

  // An older file of that name stays when nobody agrees to lose it, and when the work is interrupted.
  test::writeBytes(file("out.mp4"), {1, 2, 3});
  const std::string transcode = "transcode " + in + file("out.mp4");
  EXPECT_EQ(test::tavrel(transcode).output, "tavrel: " + file("out.mp4") + " exists already: --force replaces it\n");
  const auto atTerminal = [&](const char* answer) {
    return test::shell(std::string("echo ") + answer + " | script -qec '" TAVREL_PROGRAM " " + transcode +
                       " --size 64x48' /dev/null");
  };
  const CommandResult refused = atTerminal("n");
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.output, ::testing::HasSubstr("replace it? [y/N] "));
  const CommandResult interrupted =
      test::shell("timeout --preserve-status -s INT 1 " TAVREL_PROGRAM " " + transcode + " --realtime --force");
  EXPECT_EQ(interrupted.status, 1);
  EXPECT_EQ(interrupted.output, "tavrel: interrupted\n");
  EXPECT_EQ(test::bytesOf(file("out.mp4")).size(), 3U);
  EXPECT_EQ(atTerminal("y").status, 0);
  EXPECT_GT(test::bytesOf(file("out.mp4")).size(), 3U);
  std::filesystem::remove(file("out.mp4"));
  std::filesystem::remove(file("in.mp4"));
  std::filesystem::remove(file("sound.wav"));
  EXPECT_TRUE(isEmpty());
}

TEST_F(TranscodeCommandTest, RealTimeTakesAsLongAsTheMovie) {
  ASSERT_NO_FATAL_FAILURE(makeFilm("in.mp4", "2", "-c:v libx264 -preset ultrafast -c:a aac"));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(test::tavrel("transcode --realtime " + file("in.mp4") + " " + file("out.mp4")).status, 0);
  EXPECT_GT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1900));
  expectSameTimeline("in.mp4", "out.mp4");
}

}  // namespace
}  // namespace tavrel
