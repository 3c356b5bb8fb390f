// What a movie has beside its pictures and its main sound: chapters, subtitles, a cover, other sounds, languages.
#include <gmock/gmock.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "TranscodeTestSupport.h"

namespace tavrel::test {
namespace {

class TranscodeContentsTest : public TranscodeCommandTest {
 protected:
  /// Four seconds with two sounds, three subtitles in two languages, two chapters and a cover.
  void makeRichFilm(const char* name, const std::string& subtitles) {
    const std::string make =
        "cd " + file("") +
        " && printf ';FFMETADATA1\\ntitle=Heron\\n[CHAPTER]\\nTIMEBASE=1/10\\nSTART=0\\nEND=15\\ntitle=Water\\n"
        "[CHAPTER]\\nTIMEBASE=1/10\\nSTART=15\\nEND=40\\ntitle=Reeds\\n' > c.txt"
        " && printf '1\\n00:00:00,500 --> 00:00:01,200\\nHello\\n\\n2\\n00:00:02,000 --> "
        "00:00:03,500\\n<i>Two</i>\\nlines"
        "\\n' > w.srt && ffmpeg -v error -y -f lavfi -i testsrc2=s=64x64 -frames:v 1 cover.png"
        " && ffmpeg -v error -y -f lavfi -i testsrc2=s=160x120:r=25:d=4 -f lavfi -i sine=300:d=4 -f lavfi -i "
        "sine=900:d=4"
        " -i c.txt -i w.srt -i w.srt -map 0 -map 1 -map 2 -map 4 -map 5 -map_metadata 3 -map_chapters 3"
        " -c:v libx264 -preset ultrafast -g 25 -bf 2 -c:a " +
        (std::string(name).ends_with(".mkv") ? "flac" : "aac") + " -c:s " + subtitles +
        " -metadata:s:a:0 language=fra -metadata:s:a:1 language=deu -metadata:s:s:0 language=eng"
        " -metadata:s:s:1 language=spa ";
    const bool isMatroska = std::string(name).ends_with(".mkv");
    const CommandResult made =
        isMatroska ? shell(make + "-attach cover.png -metadata:s:t mimetype=image/png " + name)
                   : shell(make +
                           "rich.mp4 && ffmpeg -v error -y -i rich.mp4 -i cover.png -map 0:v -map 0:a -map 0:s -map 1"
                           " -c copy -disposition:v:1 attached_pic " +
                           name);
    ASSERT_EQ(made.output, "");
    ASSERT_EQ(made.status, 0);
  }
  nlohmann::json described(const std::string& name) const {
    return nlohmann::json::parse(
        shell("ffprobe -v error -of json -show_streams -show_chapters " + file(name.c_str())).output);
  }
  std::vector<std::string> chapters(const nlohmann::json& film) const {
    std::vector<std::string> found;
    for (const auto& each : film["chapters"])
      found.push_back(each["start_time"].get<std::string>().substr(0, 5) + " " +
                      each["tags"]["title"].get<std::string>());
    return found;
  }
  std::vector<std::string> languages(const nlohmann::json& film, const char* kind) const {
    std::vector<std::string> found;
    for (const auto& each : film["streams"]) {
      if (each["codec_type"] == kind)
        found.push_back(each.value("tags", nlohmann::json::object()).value("language", ""));
    }
    return found;
  }
  /// As ffmpeg reads them.
  std::string texts(const std::string& name, int number) const {
    return shell("ffmpeg -v error -copyts -i " + file(name.c_str()) + " -map 0:s:" + std::to_string(number) +
                 " -f srt - | tr -d '\\r'")
        .output;
  }
  std::string cover(const std::string& name) const {
    return shell("ffmpeg -v error -i " + file(name.c_str()) + " -map 0:v:1 -c copy -f image2pipe - | md5sum").output;
  }
};

TEST_F(TranscodeContentsTest, IsCarriedOverWhereTheContainerTakesIt) {
  ASSERT_NO_FATAL_FAILURE(makeRichFilm("in.mkv", "srt"));
  ASSERT_NO_FATAL_FAILURE(makeRichFilm("in.mp4", "mov_text"));
  const struct {
    const char* from;
    const char* to;
    const char* options;
    const char* leftOut;
  } cases[] = {{"in.mkv", "a.mkv", "", ""},
               {"in.mkv", "b.mp4", "", ""},
               {"in.mkv", "c.mov", "--codec copy", "a cover"},
               {"in.mp4", "d.mp4", "--codec copy", ""},
               {"in.mp4", "e.mkv", "--mirror", ""},
               {"in.mp4", "f.mp4", "--mirror", ""},
               {"in.mkv", "g.webm", "", "a cover"}};
  for (const auto& each : cases) {
    SCOPED_TRACE(std::string(each.from) + " to " + each.to);
    const CommandResult result = tavrel("transcode --audio-track all " + std::string(each.options) + " " +
                                        file(each.from) + " " + file(each.to));
    ASSERT_EQ(result.status, 0) << result.output;
    const std::string said = std::string("not carried over from ") + file(each.from) + ": " + each.leftOut + "\n";
    EXPECT_EQ(result.output.find(said) != std::string::npos, *each.leftOut != 0) << result.output;
    EXPECT_EQ(result.output.find("not carried over") != std::string::npos, *each.leftOut != 0) << result.output;
    const auto made = described(each.to);
    EXPECT_THAT(chapters(made), ::testing::ElementsAre("0.000 Water", "1.500 Reeds"));
    EXPECT_THAT(languages(made, "audio"), ::testing::ElementsAre("fra", ::testing::AnyOf("deu", "ger")));
    EXPECT_THAT(languages(made, "subtitle"), ::testing::ElementsAre("eng", "spa"));
    for (const int number : {0, 1}) {
      const std::string heard = texts(each.to, number);
      EXPECT_EQ(heard, texts(each.from, number));
      EXPECT_THAT(heard, ::testing::HasSubstr("00:00:02,000 --> 00:00:03,500\n"));
    }
    if (!*each.leftOut) {
      EXPECT_EQ(cover(each.to), cover(each.from));
    }
    expectSameTimeline(each.from, each.to);
    // Each sound is its own: the pitches are 300 and 900 Hz.
    for (const int track : {0, 1}) {
      const std::string pitch = track == 0 ? "300" : "900";
      const CommandResult level =
          shell("ffmpeg -hide_banner -i " + file(each.to) + " -map 0:a:" + std::to_string(track) +
                " -af bandpass=f=" + pitch + ":w=20,volumedetect -f null - 2>&1 | grep -o 'mean_volume.*'");
      EXPECT_GT(std::stod(level.output.substr(level.output.find(':') + 1)), -24) << track;
    }
  }
}

TEST_F(TranscodeContentsTest, SubtitlesThatArePicturesStayInMatroska) {
  // Of Blu-ray: what is shown, its end, and two seconds later nothing, its end. Times are in 1/90000 s.
  const auto segment = [](int seconds, int kind, const std::string& bytes) {
    char head[64];
    std::snprintf(head, sizeof head, "5047%08x00000000%02x%04zx", seconds * 90000, kind, bytes.size() / 2);
    return head + bytes;
  };
  std::string film;
  for (const int second : {1, 3})
    film += segment(second, 0x16, second == 1 ? "00a000781000018000000000" : "00a000781000020000000000") +
            segment(second, 0x80, "");
  ASSERT_NO_FATAL_FAILURE(makeFilm("plain.mp4", "4", "-c:v libx264 -preset ultrafast -c:a aac"));
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i < film.size(); i += 2)
    bytes.push_back(static_cast<std::uint8_t>(std::stoi(film.substr(i, 2), nullptr, 16)));
  writeBytes(file("s.sup"), bytes);
  ASSERT_EQ(shell("cd " + file("") + " && ffmpeg -v error -i plain.mp4 -i s.sup -map 0 -map 1 -c copy in.mkv").output,
            "");
  const auto packets = [&](const char* name) {
    return probe("-select_streams s -show_entries packet=pts_time,size -of csv=p=0 " + file(name));
  };
  ASSERT_EQ(packets("in.mkv").size(), 2U);
  ASSERT_EQ(tavrel("transcode " + file("in.mkv") + " " + file("a.mkv")).status, 0);
  EXPECT_EQ(packets("a.mkv"), packets("in.mkv"));
  const CommandResult refused = tavrel("transcode " + file("in.mkv") + " " + file("a.mp4"));
  EXPECT_EQ(refused.status, 0);
  EXPECT_THAT(refused.output, ::testing::HasSubstr(": subtitles (hdmv_pgs_subtitle)\n"));
}

TEST_F(TranscodeContentsTest, OfAPartIsThatPart) {
  ASSERT_NO_FATAL_FAILURE(makeRichFilm("in.mkv", "srt"));
  for (const char* to : {"a.mkv", "a.mp4"}) {
    SCOPED_TRACE(to);
    const CommandResult result = tavrel("transcode --from 1 --to 3 " + file("in.mkv") + " " + file(to));
    ASSERT_EQ(result.status, 0) << result.output;
    EXPECT_THAT(chapters(described(to)), ::testing::ElementsAre("0.000 Water", "0.500 Reeds"));
    EXPECT_THAT(texts(to, 0), ::testing::AllOf(::testing::HasSubstr("00:00:00,000 --> 00:00:00,200\nHello"),
                                               ::testing::HasSubstr("00:00:01,000 --> 00:00:02,000\n")));
  }
}

TEST_F(TranscodeContentsTest, IsSaidToBeLeftOutOfFragments) {
  ASSERT_NO_FATAL_FAILURE(makeRichFilm("in.mkv", "srt"));
  const CommandResult result = tavrel("transcode --fragmented " + file("in.mkv") + " " + file("a.mp4"));
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output,
              ::testing::HasSubstr("not carried over from " + file("in.mkv") +
                                   ": subtitles (subrip), subtitles (subrip), another audio track, chapters, "
                                   "a cover\n"));
}

TEST_F(TranscodeContentsTest, OfSeveralTracksTheMainOnesAreTakenAndTheOthersNamed) {
  makeMovie(
      file("in.mov"),
      "-f lavfi -i testsrc2=s=64x48:r=25:d=1 -f lavfi -i testsrc2=s=160x120:r=25:d=1 -f lavfi -i sine=300:d=1 "
      "-f lavfi -i sine=900:d=1 -f lavfi -i sine=1900:d=1 -map 0 -map 1 -map 2 -map 3 -map 4 -c:v libx264 -c:a aac "
      "-disposition:v:0 0 -disposition:v:1 default -timecode 01:00:00:00 OUT");
  const struct {
    const char* options;
    const char* leftOut;
  } cases[] = {{"", "a timecode, a timecode, another video track, 2 other audio tracks"},
               {"--audio-track 2", "a timecode, a timecode, another video track"},
               {"--no-audio", "a timecode, a timecode, another video track"}};
  for (const auto& each : cases) {
    const CommandResult result =
        tavrel("transcode --force " + std::string(each.options) + " " + file("in.mov") + " " + file("a.mp4"));
    ASSERT_EQ(result.status, 0) << result.output;
    EXPECT_THAT(result.output,
                ::testing::HasSubstr("not carried over from " + file("in.mov") + ": " + each.leftOut + "\n"));
    EXPECT_THAT(result.output, ::testing::HasSubstr("160x120, "));
  }
}

}  // namespace
}  // namespace tavrel::test
