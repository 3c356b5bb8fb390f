#include <gmock/gmock.h>

#include <algorithm>
#include <array>
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
                                                                  {"seconds", 60.0},
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

TEST_F(TranscodeCommandTest, EveryFileTypeTakesEverySound) {
  const struct {
    const char* coding;
    const char* source;
    std::array<const char*, 4> stored;  // in .mov, .mp4, .mkv and .webm
  } cases[] = {
      {"aac", "s.mkv", {"aac", "aac", "aac", "opus"}},
      {"libopus", "s.mkv", {"aac", "opus", "opus", "opus"}},
      {"libvorbis", "s.mkv", {"aac", "vorbis", "vorbis", "vorbis"}},
      {"flac", "s.mkv", {"aac", "aac", "flac", "opus"}},
      {"alac", "s.mov", {"alac", "alac", "alac", "opus"}},
      {"libmp3lame", "s.mkv", {"mp3", "mp3", "mp3", "opus"}},
      {"mp2", "s.mkv", {"aac", "mp3", "mp2", "opus"}},
      {"ac3", "s.mkv", {"ac3", "ac3", "ac3", "opus"}},
      {"eac3", "s.mkv", {"aac", "eac3", "eac3", "opus"}},
      {"wmav1", "s.asf", {"aac", "aac", "aac", "opus"}},
      {"wmav2", "s.asf", {"aac", "aac", "aac", "opus"}},
      {"pcm_s16le", "s.mkv", {"pcm_s16le", "aac", "pcm_s16le", "opus"}},
      {"pcm_s24le", "s.mkv", {"pcm_f32le", "aac", "pcm_f32le", "opus"}},
  };
  constexpr std::array kTypes{"mov", "mp4", "mkv", "webm"};
  for (const auto& each : cases) {
    test::makeMovie(file(each.source), std::string("-y -f lavfi -i testsrc2=s=64x48:r=25:d=1.5 -f lavfi -i "
                                                   "sine=440:r=48000:d=1.5 -ac 2 -c:v mpeg4 -c:a ") +
                                           each.coding + " -strict -2 OUT");
    for (std::size_t i = 0; i < kTypes.size(); ++i) {
      const std::string made = file((std::string("made.") + kTypes[i]).c_str());
      SCOPED_TRACE(std::string(each.coding) + " into ." + kTypes[i]);
      const CommandResult result = test::tavrel("transcode --force " + file(each.source) + " " + made);
      ASSERT_EQ(result.status, 0) << result.output;
      const auto said = test::probe("-select_streams a -show_entries stream=codec_name,channels -of csv=p=0 " + made);
      EXPECT_TRUE(said.at(0).starts_with(std::string(each.stored[i]) + ",2")) << said.at(0);
      const CommandResult heard = test::shell("ffmpeg -v error -i " + made + " -map a -f f32le - | wc -c");
      EXPECT_NEAR(std::stod(heard.output) / (48000 * 2 * 4), 1.5, 0.06) << heard.output;
      const std::string loudness = test::shell("ffmpeg -hide_banner -i " + made + " -af volumedetect -f null -").output;
      EXPECT_NE(loudness.find("mean_volume: -2"), std::string::npos) << loudness;  // a sine of an eighth: -21 dB
    }
  }
}

TEST_F(TranscodeCommandTest, EncodersDoWhatTheOptionsAsk) {
  ASSERT_NO_FATAL_FAILURE(makeFilm("in.mp4", "4", "-c:v libx264 -preset ultrafast -ac 2 -c:a aac"));
  const auto transcode = [&](const char* name, const std::string& options) {
    const CommandResult result = test::tavrel("transcode " + file("in.mp4") + " " + file(name) + " " + options);
    EXPECT_EQ(result.status, 0) << result.output;
  };
  const auto said = [&](const char* name, const char* stream, const char* entry) {
    const auto lines = test::probe(std::string("-select_streams ") + stream + " -show_entries stream=" + entry +
                                   " -of default=nw=1:nk=1 " + file(name));
    return lines.empty() ? std::string() : lines.front();
  };
  const struct {
    const char* name;
    const char* options;
    const char* pictures;
    const char* sound;
  } codings[] = {
      {"hevc.mp4", "--codec hevc", "hevc", "aac"},       {"av1.mkv", "--codec av1", "av1", "aac"},
      {"named.mov", "--encoder libx265", "hevc", "aac"}, {"vp9.webm", "", "vp9", "opus"},
      {"av1.webm", "--codec av1", "av1", "opus"},        {"vp9.mp4", "--codec vp9", "vp9", "aac"},
  };
  for (const auto& each : codings) {
    transcode(each.name, each.options);
    EXPECT_EQ(said(each.name, "v", "codec_name"), each.pictures) << each.name;
    EXPECT_EQ(said(each.name, "a", "codec_name"), each.sound) << each.name;
    EXPECT_EQ(said(each.name, "v", "avg_frame_rate"), "25/1") << each.name;
  }

  transcode("rate.mp4", "--bitrate 150k --keyframe 10 --audio-bitrate 32k --channels 1");
  EXPECT_NEAR(std::stod(said("rate.mp4", "v", "bit_rate")), 150e3, 40e3);
  EXPECT_EQ(said("rate.mp4", "a", "channels"), "1");
  EXPECT_LT(std::stod(said("rate.mp4", "a", "bit_rate")), 40e3);
  const auto keys =
      test::probe("-select_streams v -skip_frame nokey -show_entries frame=pts -of csv=p=0 " + file("rate.mp4"));
  EXPECT_GE(keys.size(), 10U);
  transcode("coarse.mkv", "--quality 0.1");
  transcode("fine.mkv", "--quality 0.9");
  EXPECT_LT(2 * std::filesystem::file_size(file("coarse.mkv")), std::filesystem::file_size(file("fine.mkv")));

  const CommandResult devices = test::tavrel("devices --json");
  std::vector<std::string> encoders;
  for (const auto& each : nlohmann::json::parse(devices.output)) {
    if (each["type"] == "encoder") encoders.push_back(each["id"]);
  }
  for (const std::string& encoder : encoders) transcode("each.mkv", "--force --encoder " + encoder);
  EXPECT_THAT(encoders, testing::IsSupersetOf({"libx264", "libx265", "libaom-av1", "libvpx-vp9"}));
}

TEST_F(TranscodeCommandTest, CopiedPicturesAreThoseOfTheOriginal) {
  ASSERT_NO_FATAL_FAILURE(makeFilm("flat.mp4", "4", "-c:v libx264 -preset ultrafast -bf 2 -g 50 -c:a aac"));
  ASSERT_NO_FATAL_FAILURE(
      test::makeMovieFrom(file("flat.mp4"), file("turned.mp4"), "-i IN -c copy -metadata:s:v rotate=90 OUT"));
  ASSERT_NO_FATAL_FAILURE(makeFilm("narrow.mkv", "2", "-c:v libvpx-vp9 -cpu-used 8 -aspect 2:1 -c:a libopus"));
  const auto pictures = [&](const char* name) {
    return test::shell("ffmpeg -v error -i " + file(name) + " -map v -f framemd5 - | grep -v '^#' | cut -d, -f6")
        .output;
  };
  const auto shape = [&](const char* name) {
    return test::probe(
        "-select_streams v -show_entries stream=sample_aspect_ratio:stream_side_data=rotation "
        "-of default=nw=1:nk=1 " +
        file(name));
  };
  const struct {
    const char* from;
    const char* to;
    const char* sound;
  } cases[] = {{"flat.mp4", "a.mov", "copied"},    {"flat.mp4", "a.mkv", "copied"},
               {"turned.mp4", "b.mp4", "copied"},  {"turned.mp4", "b.mkv", "copied"},
               {"narrow.mkv", "c.webm", "copied"}, {"narrow.mkv", "c.mp4", "copied"}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.to);
    const CommandResult result = test::tavrel("transcode --codec copy " + file(each.from) + " " + file(each.to));
    ASSERT_EQ(result.status, 0) << result.output;
    EXPECT_NE(result.output.find(std::string("sound ") + each.sound), std::string::npos) << result.output;
    EXPECT_EQ(pictures(each.from), pictures(each.to));
    EXPECT_EQ(shape(each.from), shape(each.to));
    expectSameTimeline(each.from, each.to);
  }
}

TEST_F(TranscodeCommandTest, CopiesMayBeginBetweenKeyframesAndStayFragmented) {
  ASSERT_NO_FATAL_FAILURE(makeFilm("whole.mp4", "4", "-c:v libx264 -preset ultrafast -bf 2 -g 100 -c:a aac"));
  ASSERT_NO_FATAL_FAILURE(test::makeMovieFrom(file("whole.mp4"), file("in.mp4"), "-ss 1.2 -i IN -c copy OUT"));
  for (const char* made : {"a.mov", "a.mp4"}) {
    const CommandResult result = test::tavrel("transcode --codec copy " + file("in.mp4") + " " + file(made));
    ASSERT_EQ(result.status, 0) << result.output;
    expectSameTimeline("in.mp4", made);
  }
  EXPECT_EQ(test::tavrel("transcode --codec copy " + file("in.mp4") + " " + file("a.mkv")).output,
            "tavrel: " + file("in.mp4") +
                " begins between two keyframes, which only .mov and .mp4 can say: leave out --codec copy\n");
  ASSERT_EQ(test::tavrel("transcode --codec copy --fragmented " + file("whole.mp4") + " " + file("b.mp4")).status, 0);
  expectSameTimeline("whole.mp4", "b.mp4");
  EXPECT_THAT(test::shell("grep -aoc moof " + file("b.mp4")).output, testing::Not("0\n"));
}

TEST_F(TranscodeCommandTest, SoundHasTheChannelsOfTheSourceOrThoseAskedFor) {
  test::makeMovie(
      file("in.mkv"),
      "-f lavfi -i testsrc2=s=64x48:r=25:d=1 -f lavfi -i \"aevalsrc=0.1*sin(2000*t)|0|0|0|0|0.2*sin(4000*t):"
      "c=5.1:s=48000:d=1\" -c:v mpeg4 -c:a flac OUT");
  const struct {
    const char* made;
    const char* options;
    const char* said;
  } cases[] = {{"a.mp4", "", "aac,6,5.1"},
               {"b.webm", "", "opus,6,5.1"},
               {"c.mp4", "--channels 2", "aac,2,stereo"},
               {"d.mp4", "--channels 6 --audio-bitrate 256k", "aac,6,5.1"}};
  for (const auto& each : cases) {
    const std::string made = file(each.made);
    const CommandResult result = test::tavrel("transcode " + file("in.mkv") + " " + made + " " + each.options);
    ASSERT_EQ(result.status, 0) << result.output;
    const auto said =
        test::probe("-select_streams a -show_entries stream=codec_name,channels,channel_layout -of csv=p=0 " + made);
    EXPECT_EQ(said.at(0), each.said);
    if (std::string(each.said).find("5.1") == std::string::npos) continue;
    // Left, left behind and right behind, in decibels.
    const auto level = [&](int channel) {
      const std::string filter = "'pan=mono|c0=c" + std::to_string(channel) + ",volumedetect'";
      const auto heard = test::shell("ffmpeg -hide_banner -i " + made + " -af " + filter + " -f null -").output;
      return std::stod(heard.substr(heard.find("mean_volume: ") + 13));
    };
    EXPECT_NEAR(level(0), -23, 1.5);
    EXPECT_LT(level(4), -50);
    EXPECT_NEAR(level(5), -17, 1.5);
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
      {in + file("out.avi"), 2, file("out.avi") + ": a movie's name ends in .mov, .mp4, .mkv or .webm"},
      {in + file("out.webm") + " --codec copy", 1,
       file("out.webm") + " cannot hold h264 as it is: leave out --codec copy, or choose another file type"},
      {in + file("out.webm") + " --codec hevc", 1, "cannot write " + file("out.webm") + ": WebM cannot hold hevc"},
      {in + file("out.mp4") + " --codec copy --mirror", 2,
       "--codec copy leaves the pictures as they are: leave out effects, --size, --reverse and --realtime"},
      {in + file("out.mp4") + " --codec mpeg2", 2, "--codec mpeg2: expected h264, hevc, av1, vp9 or copy"},
      {in + file("out.mp4") + " --bitrate fast", 2,
       "--bitrate fast: expected 1000 to 2000000000 bits a second, or as 800k or 2.5M"},
      {in + file("out.mp4") + " --quality 2", 2, "--quality 2: expected 0 to 1"},
      {in + file("out.mp4") + " --encoder libx264 --codec hevc", 1,
       "cannot write " + file("out.mp4") + ": VideoEncoder is \"libx264\", which does not make hevc"},
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
