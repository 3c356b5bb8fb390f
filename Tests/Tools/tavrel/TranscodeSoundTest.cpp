// What becomes of a movie's sound in each type of file.
#include <fmt/format.h>

#include <array>
#include <string>

#include "TranscodeTestSupport.h"

namespace tavrel::test {
namespace {

using TranscodeSoundTest = TranscodeCommandTest;

TEST_F(TranscodeSoundTest, SoundThatTheContainerCannotTakeIsEncodedAnew) {
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
      {"e.ts", "-c:v libx264 -bf 2 -c:a aac", "e.mp4", "copied"},
      {"f.mkv", "-c:v libx265 -x265-params log-level=none -c:a flac", "f.mp4", "encoded"},
      {"g.mov", "-c:v mjpeg -c:a libmp3lame", "g.mp4", "copied"},
  };
  for (const auto& each : cases) {
    ASSERT_NO_FATAL_FAILURE(makeFilm(each.input, "3", each.encoding));
    const CommandResult result = tavrel("transcode " + file(each.input) + " " + file(each.output));
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_NE(result.output.find(std::string("75 frames, sound ") + each.sound), std::string::npos) << result.output;
    SCOPED_TRACE(each.input);
    expectSameTimeline(each.input, each.output);
  }
}

TEST_F(TranscodeSoundTest, SoundThatChangesItsRateIsNotCopiedUnderOneOfThem) {
  makeMovie(file("joined.mkv"),
            "-f lavfi -i sine=d=1:r=44100 OUT.a.mp3 && ffmpeg -v error -y -f lavfi -i sine=d=1:r=48000 OUT.b.mp3 && "
            "cat OUT.a.mp3 OUT.b.mp3 > OUT.mp3 && "
            "ffmpeg -v error -y -f lavfi -i testsrc2=r=25:d=2 -i OUT.mp3 -c:a copy OUT");
  const CommandResult copied = tavrel("transcode " + file("joined.mkv") + " " + file("copied.mp4"));
  EXPECT_EQ(copied.status, 1);
  EXPECT_NE(copied.output.find("cannot be stored as it is: it changes its sampling rate"), std::string::npos)
      << copied.output;
  EXPECT_FALSE(std::filesystem::exists(file("copied.mp4")));
  const CommandResult encoded = tavrel("transcode --audio-bitrate 128k " + file("joined.mkv") + " " + file("anew.mp4"));
  EXPECT_EQ(encoded.status, 0) << encoded.output;
}

TEST_F(TranscodeSoundTest, EveryFileTypeTakesEverySound) {
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
    makeMovie(file(each.source), std::string("-y -f lavfi -i testsrc2=s=64x48:r=25:d=1.5 -f lavfi -i "
                                             "sine=440:r=48000:d=1.5 -ac 2 -c:v mpeg4 -c:a ") +
                                     each.coding + " -strict -2 OUT");
    for (std::size_t i = 0; i < kTypes.size(); ++i) {
      const std::string made = file((std::string("made.") + kTypes[i]).c_str());
      SCOPED_TRACE(std::string(each.coding) + " into ." + kTypes[i]);
      const CommandResult result = tavrel("transcode --force " + file(each.source) + " " + made);
      ASSERT_EQ(result.status, 0) << result.output;
      const auto said = probe("-select_streams a -show_entries stream=codec_name,channels -of csv=p=0 " + made);
      EXPECT_TRUE(said.at(0).starts_with(std::string(each.stored[i]) + ",2")) << said.at(0);
      const CommandResult heard = shell("ffmpeg -v error -i " + made + " -map a -f f32le - | wc -c");
      EXPECT_NEAR(std::stod(heard.output) / (48000 * 2 * 4), 1.5, 0.06) << heard.output;
      const std::string loudness = shell("ffmpeg -hide_banner -i " + made + " -af volumedetect -f null -").output;
      EXPECT_NE(loudness.find("mean_volume: -2"), std::string::npos) << loudness;  // a sine of an eighth: -21 dB
    }
  }
}

// Matroska has times in milliseconds, which are no whole number of samples.
TEST_F(TranscodeSoundTest, CopiedSoundIsTheSameToTheSample) {
  ASSERT_NO_FATAL_FAILURE(makeFilm("opus.webm", "2", "-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -c:a libopus"));
  ASSERT_NO_FATAL_FAILURE(makeFilm("aac.mkv", "2", "-c:v libx264 -preset ultrafast -c:a aac"));
  const auto sum = [&](const char* name) {
    return shell("ffmpeg -v error -i " + file(name) + " -map 0:a -af atrim=end_sample=80000 -f md5 -").output;
  };
  for (const char* made : {"a.mp4", "a.mkv", "a.webm"}) {
    ASSERT_EQ(tavrel("transcode --codec copy " + file("opus.webm") + " " + file(made)).status, 0);
    EXPECT_EQ(sum(made), sum("opus.webm")) << made;
  }
  ASSERT_EQ(tavrel("transcode --codec copy " + file("aac.mkv") + " " + file("b.mp4")).status, 0);
  const auto lengths = probe("-select_streams a -show_entries packet=duration -of csv=p=0 " + file("b.mp4"));
  for (std::size_t i = 0; i + 1 < lengths.size(); ++i) EXPECT_EQ(lengths[i].substr(0, 4), "1024") << i;
  EXPECT_GT(lengths.size(), 90U);
}

TEST_F(TranscodeSoundTest, SoundHasTheChannelsOfTheSourceOrThoseAskedFor) {
  makeMovie(file("in.mkv"),
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
    const CommandResult result = tavrel("transcode " + file("in.mkv") + " " + made + " " + each.options);
    ASSERT_EQ(result.status, 0) << result.output;
    const auto said =
        probe("-select_streams a -show_entries stream=codec_name,channels,channel_layout -of csv=p=0 " + made);
    EXPECT_EQ(said.at(0), each.said);
    if (std::string(each.said).find("5.1") == std::string::npos) continue;
    // Left, left behind and right behind, in decibels.
    const auto level = [&](int channel) {
      const auto heard =
          shell(fmt::format("ffmpeg -hide_banner -i {} -af 'pan=mono|c0=c{},volumedetect' -f null -", made, channel))
              .output;
      return std::stod(heard.substr(heard.find("mean_volume: ") + 13));
    };
    EXPECT_NEAR(level(0), -23, 1.5);
    EXPECT_LT(level(4), -50);
    EXPECT_NEAR(level(5), -17, 1.5);
  }
}

TEST_F(TranscodeSoundTest, SurroundIsMixedByWhereItsSpeakersAre) {
  // Three channels, of which most would take the last for a subwoofer's; four, of which most would take two for others.
  const struct {
    const char* channels;
    double left;
    double right;
  } cases[] = {{"0|0|0.2*sin(4000*t):c=3.0", -20, -20},
               {"0|0|0.2*sin(4000*t)|0:c=quad", -20, -90},
               {"0|0|0|0|0|0|0.2*sin(4000*t)|0:c=7.1", -20, -90}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.channels);
    makeMovie(file("in.mkv"), std::string("-y -f lavfi -i testsrc2=s=64x48:r=25:d=1 -f lavfi -i \"aevalsrc=") +
                                  each.channels + ":s=48000:d=1\" -c:v mpeg4 -c:a flac OUT");
    const CommandResult result = tavrel("transcode --force --channels 2 " + file("in.mkv") + " " + file("a.mp4"));
    ASSERT_EQ(result.status, 0) << result.output;
    const auto level = [&](int channel) {
      const std::string filter = "'pan=mono|c0=c" + std::to_string(channel) + ",volumedetect'";
      const auto heard = shell("ffmpeg -hide_banner -i " + file("a.mp4") + " -af " + filter + " -f null -").output;
      return std::stod(heard.substr(heard.find("mean_volume: ") + 13));
    };
    EXPECT_NEAR(level(0), each.left, 1.5);
    if (each.right > -50) {
      EXPECT_NEAR(level(1), each.right, 1.5);
    } else {
      EXPECT_LT(level(1), -50);
    }
  }
}

// Matroska says it of the last packet, MP4 by the packet's duration.
TEST_F(TranscodeSoundTest, CopiedOpusEndsWhereItEnded) {
  makeMovie(file("in.mkv"),
            "-f lavfi -i testsrc2=s=64x48:r=25:d=1 -f lavfi -i sine=440:r=48000:d=1.005 -c:v mpeg4 -c:a libopus OUT");
  const auto samples = [&](const std::string& name) {
    return std::stoi(shell("ffmpeg -v error -i " + name + " -map 0:a -ac 1 -f s16le - | wc -c").output) / 2;
  };
  const std::string copied = file("a.mkv");
  const CommandResult result = tavrel("transcode " + file("in.mkv") + " " + copied);
  ASSERT_EQ(result.status, 0) << result.output;
  EXPECT_NEAR(samples(copied), samples(file("in.mkv")), 1);
  ASSERT_EQ(tavrel("transcode " + file("in.mkv") + " " + file("b.mp4")).status, 0);
  EXPECT_NEAR(std::stod(probe("-select_streams a -show_entries stream=duration -of csv=p=0 " + file("b.mp4")).at(0)),
              1.005, 0.002);
}

}  // namespace
}  // namespace tavrel::test
