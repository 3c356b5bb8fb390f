#include <gmock/gmock.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "TranscodeTestSupport.h"

namespace tavrel::test {
namespace {

TEST_F(TranscodeCommandTest, AMinuteKeepsEveryFrameAndItsSoundInPlace) {
  ASSERT_NO_FATAL_FAILURE(makeFilm("in.mp4", "60", "-c:v libx264 -preset ultrafast -bf 2 -g 100 -c:a aac"));
  const CommandResult result = tavrel("transcode --json " + file("in.mp4") + " " + file("out.mov"));
  EXPECT_EQ(nlohmann::json::parse(result.output), (nlohmann::json{{"output", file("out.mov")},
                                                                  {"width", 160},
                                                                  {"height", 120},
                                                                  {"seconds", 60.0},
                                                                  {"frames", 1500},
                                                                  {"sound", "copied"}}));
  EXPECT_EQ(result.status, 0);
  expectSameTimeline("in.mp4", "out.mov");
}

TEST_F(TranscodeCommandTest, EncodersDoWhatTheOptionsAsk) {
  ASSERT_NO_FATAL_FAILURE(makeFilm("in.mp4", "4", "-c:v libx264 -preset ultrafast -ac 2 -c:a aac"));
  ASSERT_NO_FATAL_FAILURE(makeFilm("short.mp4", "1", "-c:v libx264 -preset ultrafast -ac 2 -c:a aac"));
  const auto transcode = [&](const char* name, const std::string& options, const char* film = "short.mp4") {
    const CommandResult result = tavrel("transcode " + file(film) + " " + file(name) + " " + options);
    EXPECT_EQ(result.status, 0) << result.output;
  };
  const auto said = [&](const char* name, const char* stream, const char* entry) {
    const auto lines = probe(std::string("-select_streams ") + stream + " -show_entries stream=" + entry +
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

  transcode("rate.mp4", "--bitrate 150k --keyframe 10 --audio-bitrate 32k --channels 1", "in.mp4");
  EXPECT_NEAR(std::stod(said("rate.mp4", "v", "bit_rate")), 150e3, 40e3);
  EXPECT_EQ(said("rate.mp4", "a", "channels"), "1");
  EXPECT_LT(std::stod(said("rate.mp4", "a", "bit_rate")), 40e3);
  const auto keys =
      probe("-select_streams v -skip_frame nokey -show_entries frame=pts -of csv=p=0 " + file("rate.mp4"));
  EXPECT_GE(keys.size(), 10U);
  transcode("coarse.mkv", "--quality 0.1", "in.mp4");
  transcode("fine.mkv", "--quality 0.9", "in.mp4");
  EXPECT_LT(2 * std::filesystem::file_size(file("coarse.mkv")), std::filesystem::file_size(file("fine.mkv")));

  const CommandResult devices = tavrel("devices --json");
  std::vector<std::string> encoders;
  for (const auto& each : nlohmann::json::parse(devices.output)) {
    if (each["type"] == "encoder") encoders.push_back(each["id"]);
  }
  for (const std::string& encoder : encoders) transcode("each.mkv", "--force --encoder " + encoder);
  EXPECT_THAT(encoders, ::testing::IsSupersetOf({"libx264", "libx265", "libaom-av1", "libvpx-vp9"}));
}

TEST_F(TranscodeCommandTest, CopiedPicturesAreThoseOfTheOriginal) {
  ASSERT_NO_FATAL_FAILURE(makeFilm("flat.mp4", "4", "-c:v libx264 -preset ultrafast -bf 2 -g 50 -c:a aac"));
  ASSERT_NO_FATAL_FAILURE(
      makeMovieFrom(file("flat.mp4"), file("turned.mp4"), "-i IN -c copy -metadata:s:v rotate=90 OUT"));
  ASSERT_NO_FATAL_FAILURE(makeMovieFrom(file("flat.mp4"), file("flat.mkv"), "-i IN -c copy OUT"));
  ASSERT_NO_FATAL_FAILURE(makeFilm("narrow.mkv", "2", "-c:v libvpx-vp9 -cpu-used 8 -aspect 2:1 -c:a libopus"));
  const auto pictures = [&](const char* name) {
    return shell("ffmpeg -v error -i " + file(name) + " -map v -f framemd5 - | grep -v '^#' | cut -d, -f6").output;
  };
  const auto shape = [&](const char* name) {
    return probe(
        "-select_streams v -show_entries stream=sample_aspect_ratio:stream_side_data=rotation "
        "-of default=nw=1:nk=1 " +
        file(name));
  };
  const struct {
    const char* from;
    const char* to;
    const char* sound;
  } cases[] = {{"flat.mp4", "a.mov", "copied"},    {"flat.mp4", "a.mkv", "copied"},   {"flat.mkv", "d.mov", "copied"},
               {"flat.mkv", "d.mp4", "copied"},    {"turned.mp4", "b.mp4", "copied"}, {"turned.mp4", "b.mkv", "copied"},
               {"narrow.mkv", "c.webm", "copied"}, {"narrow.mkv", "c.mp4", "copied"}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.to);
    const CommandResult result = tavrel("transcode --codec copy " + file(each.from) + " " + file(each.to));
    ASSERT_EQ(result.status, 0) << result.output;
    EXPECT_NE(result.output.find(std::string("sound ") + each.sound), std::string::npos) << result.output;
    EXPECT_EQ(pictures(each.from), pictures(each.to));
    EXPECT_EQ(shape(each.from), shape(each.to));
    expectSameTimeline(each.from, each.to);
  }
  ASSERT_NO_FATAL_FAILURE(makeFilm("in.avi", "1", "-c:v mpeg4 -bf 2 -c:a libmp3lame"));
  EXPECT_EQ(tavrel("transcode --codec copy " + file("in.avi") + " " + file("e.mp4")).output,
            "tavrel: the pictures of " + file("in.avi") +
                " cannot be stored as they are: it does not say when they are shown\n");
  EXPECT_FALSE(std::filesystem::exists(file("e.mp4")));
  // The times of decoding of the later of two movies in one file are none.
  ASSERT_EQ(shell("cat " + file("flat.mkv") + " " + file("flat.mkv") + " > " + file("strung.mkv")).status, 0);
  EXPECT_EQ(tavrel("transcode --codec copy " + file("strung.mkv") + " " + file("e.mp4")).output,
            "tavrel: the pictures of " + file("strung.mkv") +
                " cannot be stored as they are: movies are strung together in it\n");
}

TEST_F(TranscodeCommandTest, CopiesMayBeginBetweenKeyframesAndStayFragmented) {
  ASSERT_NO_FATAL_FAILURE(makeFilm("whole.mp4", "4", "-c:v libx264 -preset ultrafast -bf 2 -g 100 -c:a aac"));
  ASSERT_NO_FATAL_FAILURE(makeMovieFrom(file("whole.mp4"), file("in.mp4"), "-ss 1.2 -i IN -c copy OUT"));
  for (const char* made : {"a.mov", "a.mp4"}) {
    const CommandResult result = tavrel("transcode --codec copy " + file("in.mp4") + " " + file(made));
    ASSERT_EQ(result.status, 0) << result.output;
    expectSameTimeline("in.mp4", made);
  }
  EXPECT_EQ(tavrel("transcode --codec copy " + file("in.mp4") + " " + file("a.mkv")).output,
            "tavrel: " + file("in.mp4") +
                " begins between two keyframes, which only .mov and .mp4 can say: leave out --codec copy\n");
  ASSERT_EQ(tavrel("transcode --codec copy --fragmented " + file("whole.mp4") + " " + file("b.mp4")).status, 0);
  expectSameTimeline("whole.mp4", "b.mp4");
  EXPECT_THAT(shell("grep -aoc moof " + file("b.mp4")).output, ::testing::Not("0\n"));
}

TEST_F(TranscodeCommandTest, TheIndexIsInFrontAndItsRoomNoLargerThanTheFilmNeeds) {
  ASSERT_NO_FATAL_FAILURE(makeFilm("in.mp4", "1", "-c:v libx264 -preset ultrafast -c:a aac"));
  for (const char* options : {"--codec copy ", "--mirror "}) {
    ASSERT_EQ(tavrel("transcode --force " + std::string(options) + file("in.mp4") + " " + file("a.mp4")).status, 0);
    EXPECT_LT(std::filesystem::file_size(file("a.mp4")), 200000U);
    const std::string boxes = shell("grep -aobE 'moov|mdat' " + file("a.mp4") + " | head -1").output;
    EXPECT_THAT(boxes, ::testing::HasSubstr(":moov")) << options;
  }
}

TEST_F(TranscodeCommandTest, PicturesAreReversedTurnedScaledAndSilencedAsAsked) {
  ASSERT_NO_FATAL_FAILURE(makeFilm("flat.mp4", "2", "-c:v libx264 -bf 2 -g 250 -c:a aac"));
  ASSERT_NO_FATAL_FAILURE(makeMovieFrom(file("flat.mp4"), file("in.mp4"), "-i IN -c copy -metadata:s:v rotate=90 OUT"));
  const CommandResult result = tavrel("transcode --json --reverse --no-audio --size 120x80 --scale fill " +
                                      file("in.mp4") + " " + file("out.mkv"));
  ASSERT_EQ(result.status, 0) << result.output;
  EXPECT_EQ(nlohmann::json::parse(result.output), (nlohmann::json{{"output", file("out.mkv")},
                                                                  {"width", 120},
                                                                  {"height", 80},
                                                                  {"seconds", 1.960},
                                                                  {"frames", 50},
                                                                  {"sound", "none"}}));
  EXPECT_EQ(Asset::create(file("out.mkv")).value()->tracks().size(), 1U);

  // The last frame as a player shows it, centre cut to the new proportions, against the first one that came out.
  ASSERT_EQ(shell("ffmpeg -v error -y -sseof -0.05 -i " + file("in.mp4") +
                  " -frames:v 1 -vf crop=120:80,format=bgra -f rawvideo " + file("expected.raw"))
                .status,
            0);
  OpenedReader reversed(file("out.mkv"), MediaType::video);
  const auto pixels = pixelsOf(*reversed.readAll().at(0));
  const auto expected = bytesOf(file("expected.raw"));
  ASSERT_EQ(pixels.size(), expected.size());
  double sum = 0;
  for (std::size_t i = 0; i < pixels.size(); ++i) sum += std::abs(pixels[i] - expected[i]);
  EXPECT_LT(sum / static_cast<double>(pixels.size()), 10);
}

TEST_F(TranscodeCommandTest, FailuresAreSaidInOneLineAndLeaveNothing) {
  ASSERT_NO_FATAL_FAILURE(makeFilm("in.mp4", "20", "-c:v libx264 -preset ultrafast -c:a aac"));
  makeMovie(file("sound.wav"), "-f lavfi -i sine=duration=1 OUT");
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
       "--codec copy leaves the pictures as they are: leave out effects, --size, --square, --reverse, --realtime, "
       "--from and --to"},
      {in + file("out.mp4") + " --codec mpeg2", 2, "--codec mpeg2: expected h264, hevc, av1, vp9 or copy"},
      {in + file("out.mp4") + " --bitrate fast", 2,
       "--bitrate fast: expected 1000 to 2000000000 bits a second, or as 800k or 2.5M"},
      {in + file("out.mp4") + " --quality 2", 2, "--quality 2: expected 0 to 1"},
      {in + file("out.mp4") + " --encoder libx264 --codec hevc", 1,
       "cannot write " + file("out.mp4") + ": VideoEncoder is \"libx264\", which does not make hevc"},
      {in + file("out.mp4") + " --size 3", 2, "--size 3: expected WIDTHxHEIGHT, each from 16 to 8192"},
  };
  for (const auto& each : cases) {
    const CommandResult result = tavrel("transcode " + each.arguments);
    EXPECT_EQ(result.status, each.status) << each.arguments;
    EXPECT_EQ(result.output, "tavrel: " + each.message + "\n");
  }
  EXPECT_EQ(tavrel("transcode " + in + file("none/out.mp4")).status, 1);

  // An older file of that name stays when nobody agrees to lose it, and when the work is interrupted.
  writeBytes(file("out.mp4"), {1, 2, 3});
  const std::string transcode = "transcode " + in + file("out.mp4");
  EXPECT_EQ(tavrel(transcode).output, "tavrel: " + file("out.mp4") + " exists already: --force replaces it\n");
  const auto atTerminal = [&](const char* answer) {
    return shell(std::string("echo ") + answer + " | script -qec '" TAVREL_PROGRAM " " + transcode +
                 " --size 64x48' /dev/null");
  };
  const CommandResult refused = atTerminal("n");
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.output, ::testing::HasSubstr("replace it? [y/N] "));
  const CommandResult interrupted =
      shell("timeout --preserve-status -s INT 4 " TAVREL_PROGRAM " " + transcode + " --realtime --force");
  EXPECT_EQ(interrupted.status, 1);
  EXPECT_EQ(interrupted.output, "tavrel: interrupted\n");
  EXPECT_EQ(bytesOf(file("out.mp4")).size(), 3U);
  EXPECT_EQ(atTerminal("y").status, 0);
  EXPECT_GT(bytesOf(file("out.mp4")).size(), 3U);
  std::filesystem::remove(file("out.mp4"));
  std::filesystem::remove(file("in.mp4"));
  std::filesystem::remove(file("sound.wav"));
  EXPECT_TRUE(isEmpty());
}

// AVI says how large its pictures are, MP4 leaves that to them.
TEST_F(TranscodeCommandTest, CopiesThatNothingCouldReadAreRefused) {
  makeMovie(file("in.avi"), "-f lavfi -i testsrc2=s=64x48:r=25:d=0.4 -c:v mpeg4 -bf 0 OUT");
  auto bytes = bytesOf(file("in.avi"));
  const std::vector<std::uint8_t> header = {0, 0, 1, 0x20};
  for (auto at = bytes.begin(); (at = std::search(at, bytes.end(), header.begin(), header.end())) != bytes.end();)
    at[3] = 0xB2;
  writeBytes(file("in.avi"), bytes);
  for (const char* made : {"a.mp4", "a.mov"}) {
    const CommandResult result = tavrel("transcode --codec copy " + file("in.avi") + " " + file(made));
    EXPECT_EQ(result.status, 1) << result.output;
    EXPECT_EQ(result.output, "tavrel: cannot write " + file(made) +
                                 ": its pictures cannot be read again as they were stored: encode them anew\n");
    EXPECT_FALSE(std::filesystem::exists(file(made)));
  }
}

TEST_F(TranscodeCommandTest, ItsOwnInputAndWhatALinkLeadsToAreReplaced) {
  ASSERT_NO_FATAL_FAILURE(makeFilm("in.mp4", "2", "-c:v libx264 -preset ultrafast -c:a aac"));
  std::filesystem::create_symlink("behind.mp4", file("link.mp4"));
  const std::string transcode = "transcode --force " + file("in.mp4") + " ";
  ASSERT_EQ(tavrel(transcode + file("link.mp4")).status, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(file("link.mp4")));
  ASSERT_EQ(tavrel(transcode + file("in.mp4")).status, 0);
  expectSameTimeline("in.mp4", "behind.mp4");
  EXPECT_EQ(frameTimes("in.mp4").size(), 50U);
}

TEST_F(TranscodeCommandTest, ProgressIsALineASecondOrOneLineOfTheTerminal) {
  ASSERT_NO_FATAL_FAILURE(makeFilm("in.mp4", "2", "-c:v libx264 -preset ultrafast -c:a aac"));
  const std::string transcode = "transcode --realtime --force " + file("in.mp4") + " " + file("out.mp4");
  std::istringstream lines(tavrel(transcode + " --progress").output);
  double share = -1;
  int count = 0;
  for (std::string line; std::getline(lines, line) && line.starts_with('{'); ++count) {
    const auto said = nlohmann::json::parse(line);
    EXPECT_GE(said["progress"], share);
    share = said["progress"];
    EXPECT_LE(share, 1);
    EXPECT_LE(said["seconds"], 2);
  }
  EXPECT_GE(count, 2);
  EXPECT_EQ(tavrel(transcode).output.find('%'), std::string::npos) << "in a pipe";
  const std::string shown =
      shell("script -qec 'stty cols 30; " TAVREL_PROGRAM " " + transcode + "' /dev/null | tr '\\r' '\\n'").output;
  EXPECT_NE(shown.find("% "), std::string::npos);
  std::istringstream rows(shown);
  for (std::string row; std::getline(rows, row) && row.find("frames") == std::string::npos;)
    EXPECT_LT(row.substr(0, row.find('\x1b')).size(), 30U) << row;
}

TEST_F(TranscodeCommandTest, RealTimeTakesAsLongAsTheMovie) {
  ASSERT_NO_FATAL_FAILURE(makeFilm("in.mp4", "2", "-c:v libx264 -preset ultrafast -c:a aac"));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(tavrel("transcode --realtime " + file("in.mp4") + " " + file("out.mp4")).status, 0);
  EXPECT_GT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1900));
  expectSameTimeline("in.mp4", "out.mp4");
}

}  // namespace
}  // namespace tavrel::test
