#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <fstream>

#include "ProgramTestSupport.h"

namespace tavrel {
namespace {

using test::CommandResult;

class TranscodedPicturesTest : public test::ProgramTest {
 protected:
  /// A second of moving pictures that ffmpeg makes with these options.
  void makeFilm(const char* name, const std::string& options) const {
    const CommandResult made =
        test::shell("ffmpeg -v error -y -f lavfi -i testsrc2=s=320x240:r=50:d=1 " + options + " " + file(name));
    ASSERT_EQ(made.status, 0) << made.output;
  }
  std::vector<std::string> described(const std::string& what, const char* name) const {
    return test::probe("-select_streams v -show_entries stream=" + what + " -of csv=p=0 " + file(name));
  }
  /// What the first picture, or the file, says of a film of high dynamic range.
  std::string brightness(const char* name, const std::string& where) const {
    const auto said = test::probe("-select_streams v -of default=nw=1 " + where + " " + file(name));
    std::string numbers;
    for (const std::string key :
         {"green_x=", "white_point_y=", "max_luminance=", "min_luminance=", "max_content=", "max_average="}) {
      const auto line = std::find_if(said.begin(), said.end(), [&](const auto& each) { return each.starts_with(key); });
      double number = 0;
      double parts = 1;
      if (line != said.end()) std::sscanf(line->c_str() + key.size(), "%lf/%lf", &number, &parts);
      numbers += fmt::format("{}{:g}", numbers.empty() ? "" : " ", number / parts);
    }
    return numbers;
  }
  /// The ratio of signal to noise, in dB, between two films, each through ffmpeg's filters.
  double likeness(const char* original, const std::string& filters, const char* made,
                  const std::string& filtersOfMade = "format=yuv420p") const {
    const CommandResult result =
        test::shell("ffmpeg -i " + file(original) + " -i " + file(made) + " -lavfi '[0:v]" + filters + "[a];[1:v]" +
                    filtersOfMade + "[b];[a][b]psnr' -f null - 2>&1 | grep -o 'average:[0-9.]*' | cut -d: -f2");
    return std::stod("0" + result.output);
  }
};

TEST_F(TranscodedPicturesTest, AreWhatTheDecoderGaveWhereNothingIsDoneToThem) {
  const struct {
    const char* tags;
    const char* to;
  } cases[] = {{"", "a.mov"},
               {"", "a.webm"},
               {"-color_primaries bt709 -color_trc bt709 -colorspace bt709", "b.mp4"},
               {"-color_primaries smpte170m -color_trc smpte170m -colorspace smpte170m", "c.mkv"},
               {"-color_primaries bt2020 -color_trc bt2020-10 -colorspace bt2020nc", "d.mp4"}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.to);
    makeFilm("in.mp4", std::string("-pix_fmt yuv420p -c:v libx264 -qp 12 ") + each.tags);
    const CommandResult result = test::tavrel("transcode --quality 1 " + file("in.mp4") + " " + file(each.to));
    ASSERT_EQ(result.status, 0) << result.output;
    const char* const kTags = "color_space,color_transfer,color_primaries";
    EXPECT_EQ(described(kTags, each.to), described(kTags, "in.mp4"));
    EXPECT_GT(likeness("in.mp4", "null", each.to), 40);
  }
}

TEST_F(TranscodedPicturesTest, AreNotDrawnWithoutEffects) {
  makeFilm("in.mp4", "-pix_fmt yuv420p -c:v libx264 -qp 12");
  const std::string withoutGL = "__EGL_VENDOR_LIBRARY_FILENAMES=/dev/null " TAVREL_PROGRAM " transcode --size 160x120 ";
  const CommandResult plain = test::shell(withoutGL + file("in.mp4") + " " + file("a.mp4"));
  EXPECT_EQ(plain.status, 0) << plain.output;
  const CommandResult drawn = test::shell(withoutGL + "--mirror " + file("in.mp4") + " " + file("b.mp4"));
  EXPECT_EQ(drawn.status, 1) << "there is GL, so that this test shows nothing: " << drawn.output;
}

TEST_F(TranscodedPicturesTest, OfHighDynamicRangeAreToneMapped) {
  makeFilm("in.mp4",
           "-vf format=gbrp,zscale=matrixin=gbr:rangein=full:transferin=bt709:primariesin=bt709:transfer=smpte2084:"
           "primaries=bt2020:matrix=bt2020nc:range=limited:npl=203,format=yuv420p10le -c:v libx264 -qp 4 "
           "-color_primaries bt2020 -color_trc smpte2084 -colorspace bt2020nc");
  const CommandResult result = test::tavrel("transcode --quality 1 " + file("in.mp4") + " " + file("out.mp4"));
  ASSERT_EQ(result.status, 0) << result.output;
  EXPECT_EQ(described("color_space,color_transfer,color_primaries", "out.mp4"),
            std::vector<std::string>{"bt709,bt709,bt709"});
  EXPECT_GT(likeness("in.mp4",
                     "zscale=transfer=linear:npl=100,format=gbrpf32le,zscale=primaries=bt709,"
                     "tonemap=hable:desat=0,zscale=transfer=bt709:matrix=bt709:range=limited,format=yuv420p",
                     "out.mp4"),
            40);
}

TEST_F(TranscodedPicturesTest, OfFieldsAreDeinterlacedEachOnce) {
  makeFilm("in.mpg", "-vf tinterlace=interleave_top,setfield=tff -c:v mpeg2video -flags +ildct+ilme -q:v 2 -r 25");
  const CommandResult result = test::tavrel("transcode --quality 1 " + file("in.mpg") + " " + file("out.mp4"));
  ASSERT_EQ(result.status, 0) << result.output;
  EXPECT_EQ(described("field_order,nb_frames", "out.mp4"), std::vector<std::string>{"progressive,25"});
  EXPECT_GT(likeness("in.mpg", "setpts=PTS-STARTPTS,bwdif=send_frame", "out.mp4"), 38);
  EXPECT_LT(likeness("in.mpg", "setpts=PTS-STARTPTS", "out.mp4"), 36) << "the fields are seen to differ";
}

TEST_F(TranscodedPicturesTest, OfHighDynamicRangeAreKeptOnDemand) {
  const std::string display = "G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,50)";
  const std::string tags = "-color_primaries bt2020 -color_trc smpte2084 -colorspace bt2020nc ";
  makeFilm("pq.mkv",
           "-pix_fmt yuv420p10le -c:v libx265 -x265-params log-level=none:qp=8:hdr10=1:colorprim=bt2020:"
           "transfer=smpte2084:colormatrix=bt2020nc:max-cll=1000,400:master-display='" +
               display + "' " + tags);
  makeFilm("hlg.mkv",
           "-pix_fmt yuv420p10le -c:v libx264 -qp 8 -color_primaries bt2020 -color_trc arib-std-b67 "
           "-colorspace bt2020nc");
  const struct {
    const char* from;
    const char* to;
    const char* options;
    const char* codec;
    const char* transfer;
  } cases[] = {{"pq.mkv", "a.mp4", "", "hevc", "smpte2084"},
               {"pq.mkv", "b.mkv", "", "hevc", "smpte2084"},
               {"pq.mkv", "c.webm", "", "vp9", "smpte2084"},
               {"hlg.mkv", "d.mov", "", "hevc", "arib-std-b67"},
               {"b.mkv", "e.mp4", "--codec copy", "hevc", "smpte2084"}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.to);
    const bool isCopy = *each.options != 0;
    const CommandResult result = test::tavrel(std::string("transcode --hdr keep ") + (isCopy ? "" : "--quality 1 ") +
                                              each.options + " " + file(each.from) + " " + file(each.to));
    ASSERT_EQ(result.status, 0) << result.output;
    EXPECT_THAT(described("codec_name,pix_fmt,color_space,color_transfer,color_primaries", each.to).at(0),
                ::testing::StartsWith(std::string(each.codec) + ",yuv420p10le,bt2020nc," + each.transfer + ",bt2020"));
    if (!isCopy) {
      EXPECT_GT(likeness(each.from, "format=yuv420p10le", each.to, "format=yuv420p10le"), 40);
    }
    const std::string told =
        std::string(each.transfer) == "smpte2084" ? "0.265 0.329 1000 0.005 1000 400" : "0 0 0 0 0 0";
    EXPECT_EQ(brightness(each.to, "-show_streams"), told) << "in the container";
    if (each.codec[0] == 'h') {
      EXPECT_EQ(brightness(each.to, "-read_intervals %+#1 -show_frames"), told) << "in the stream";
    }
  }

  // Bars and scaling, too, with ten bits.
  const CommandResult scaled =
      test::tavrel("transcode --hdr keep --quality 1 --size 320x180 " + file("pq.mkv") + " " + file("s.mp4"));
  ASSERT_EQ(scaled.status, 0) << scaled.output;
  EXPECT_GT(likeness("pq.mkv", "scale=240:180:flags=bicubic,pad=320:180:40:0,format=yuv420p10le", "s.mp4",
                     "format=yuv420p10le"),
            38);

  const std::string transcode = "transcode --hdr keep " + file("pq.mkv") + " " + file("n.mp4");
  EXPECT_EQ(test::tavrel(transcode + " --codec h264").output,
            "tavrel: --hdr keep needs 10 bits: choose hevc, av1 or vp9 with --codec, not h264\n");
  EXPECT_EQ(test::tavrel(transcode + " --mirror").output,
            "tavrel: --hdr keep leaves the pictures as they are: leave out effects, --reverse, --realtime and turns\n");
}

TEST_F(TranscodedPicturesTest, OfFieldsKeepThemOnDemand) {
  const struct {
    const char* film;
    const char* options;
    const char* order;
  } cases[] = {{"a.mpg", "-vf tinterlace=interleave_top,setfield=tff -c:v mpeg2video -r 25 -q:v 2", "tt"},
               {"b.mkv", "-vf tinterlace=interleave_bottom,setfield=bff -c:v ffv1 -pix_fmt yuv422p -r 25", "bb"}};
  for (const auto& each : cases) {
    for (const char* to : {"out.mp4", "out.mkv"}) {
      SCOPED_TRACE(std::string(each.film) + " to " + to);
      makeFilm(each.film, std::string(each.options) + " -flags +ildct+ilme");
      const CommandResult result =
          test::tavrel("transcode --force --interlaced keep --quality 1 " + file(each.film) + " " + file(to));
      ASSERT_EQ(result.status, 0) << result.output;
      EXPECT_EQ(described("field_order", to).at(0).substr(0, 2), each.order);
      EXPECT_GT(likeness(each.film, "setpts=PTS-STARTPTS,scale=interl=1,format=yuv420p", to), 37);
      const std::string frames =
          test::shell("ffprobe -v error -show_frames " + file(to) + " | grep _field_first= | sort | uniq -c").output;
      EXPECT_THAT(frames,
                  ::testing::HasSubstr(std::string("25 top_field_first=") + (each.order[0] == 't' ? "1" : "0")));
    }
  }
  const std::string transcode = "transcode --interlaced keep " + file("a.mpg") + " ";
  EXPECT_EQ(test::tavrel(transcode + file("n.webm")).output,
            "tavrel: --interlaced keep needs h264, the only one that stores fields\n");
  EXPECT_EQ(test::tavrel(transcode + file("n.mp4") + " --size 64x64").output,
            "tavrel: --interlaced keep keeps the size: leave out --size\n");
}

// A table that leaves a tenth, and one that makes ten times as much of it: of 8 bits 26 levels would be left.
TEST_F(TranscodedPicturesTest, KeepTheirLevelsBetweenEffectsOfSixteenBits) {
  std::ofstream(file("dark.cube")) << "LUT_1D_SIZE 2\n0 0 0\n0.1 0.1 0.1\n";
  std::ofstream(file("bright.cube")) << "LUT_1D_SIZE 2\nDOMAIN_MIN 0 0 0\nDOMAIN_MAX 0.1 0.1 0.1\n0 0 0\n1 1 1\n";
  const CommandResult made = test::shell(
      "ffmpeg -v error -y -f lavfi -i "
      "gradients=s=320x240:r=5:d=1:c0=0x203050:c1=0xf0c090:n=2:x0=0:y0=0:x1=319:y1=239:speed=0.00001 "
      "-c:v ffv1 -pix_fmt bgr0 " +
      file("in.mkv"));
  ASSERT_EQ(made.status, 0) << made.output;
  // What a dither leaves is the mean of small areas.
  const std::string means = "scale=40:30:flags=area,format=yuv420p";
  const auto likenessWith = [&](const std::string& environment, const std::string& bits) {
    const CommandResult result =
        test::shell(environment + TAVREL_PROGRAM " transcode --force --quality 1 --precision " + bits + " --lut " +
                    file("dark.cube") + " --lut " + file("bright.cube") + " " + file("in.mkv") + " " + file("out.mp4"));
    EXPECT_EQ(result.status, 0) << result.output;
    return likeness("in.mkv", means, "out.mp4", means);
  };
  const double coarse = likenessWith("", "8");
  EXPECT_GT(likenessWith("", "16"), coarse + 4);
  EXPECT_GT(likenessWith("TAVREL_FAST_TEXTURE_UPLOAD=0 ", "16"), coarse + 4);
}

}  // namespace
}  // namespace tavrel
