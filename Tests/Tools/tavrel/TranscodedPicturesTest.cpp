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
