#include <gtest/gtest.h>

#include <cstdlib>

#include "Support/ReaderMovies.h"

namespace tavrel::test {
namespace {

struct Layout {
  const char* name;
  const char* file;
  const char* size;
  const char* encoding;  // arguments that make the file out of the test pattern
  const char* meaning;   // the conversion that ffmpeg's own scaler is told to do
};

void PrintTo(const Layout& layout, std::ostream* stream) { *stream << layout.name; }

constexpr const char* kLimited601 = "in_color_matrix=bt601:in_range=limited";
constexpr const char* kLimited709 = "in_color_matrix=bt709:in_range=limited";
constexpr const char* kFull601 = "in_color_matrix=bt601:in_range=full";

const Layout kLayouts[] = {
    {"Mpeg4Untagged", "a.mp4", "322x242", "-c:v mpeg4 -q:v 2 -pix_fmt yuv420p", kLimited601},
    {"H264Limited709", "a.mp4", "320x240",
     "-vf scale=out_color_matrix=bt709 -c:v libx264 -qp 4 -pix_fmt yuv420p -colorspace bt709 -color_range tv",
     kLimited709},
    {"H264Full709", "a.mov", "320x240",
     "-vf scale=out_color_matrix=bt709:out_range=full -c:v libx264 -qp 4 -pix_fmt yuvj420p -colorspace bt709 "
     "-color_range pc",
     "in_color_matrix=bt709:in_range=full"},
    {"H264Full422", "a.mkv", "320x240",
     "-vf scale=out_range=full -c:v libx264 -qp 4 -pix_fmt yuvj422p -colorspace smpte170m -color_range pc", kFull601},
    {"H264In444", "a.mp4", "320x240", "-c:v libx264 -qp 4 -pix_fmt yuv444p -colorspace bt470bg", kLimited601},
    {"H264TenBit2020", "a.mp4", "320x240",
     "-vf scale=out_color_matrix=bt2020 -c:v libx264 -qp 4 -pix_fmt yuv420p10le -colorspace bt2020nc",
     "in_color_matrix=bt2020:in_range=limited"},
    {"ProRes422TenBit", "a.mov", "320x240", "-c:v prores_ks -pix_fmt yuv422p10le", kLimited601},
    {"Ffv1TenBit444", "a.mkv", "320x240", "-c:v ffv1 -pix_fmt yuv444p10le -colorspace smpte170m", kLimited601},
    {"Ffv1TwelveBit", "a.mkv", "320x240", "-c:v ffv1 -pix_fmt yuv420p12le -colorspace bt709", kLimited709},
    {"Hevc709", "a.mp4", "320x240",
     "-vf scale=out_color_matrix=bt709 -c:v libx265 -x265-params log-level=none:qp=4 -pix_fmt yuv420p -colorspace "
     "bt709",
     kLimited709},
    {"HevcTenBit422", "a.mkv", "320x240",
     "-c:v libx265 -x265-params log-level=none:qp=4 -pix_fmt yuv422p10le -colorspace smpte170m", kLimited601},
    {"Vp9", "a.webm", "322x242", "-c:v libvpx-vp9 -lossless 1 -pix_fmt yuv420p -colorspace smpte170m", kLimited601},
    {"Vp9In444", "a.webm", "320x240",
     "-vf scale=out_color_matrix=bt709 -c:v libvpx-vp9 -lossless 1 -pix_fmt yuv444p -colorspace bt709", kLimited709},
    {"MotionJpeg", "a.avi", "320x240", "-c:v mjpeg -q:v 2 -pix_fmt yuvj420p", kFull601},
    {"OddSize", "a.mkv", "321x239", "-c:v ffv1 -pix_fmt yuv420p", kLimited601},
    {"Ffv1In411", "a.mkv", "320x240", "-c:v ffv1 -pix_fmt yuv411p", kLimited601},
    {"Gray", "a.mkv", "320x240", "-c:v ffv1 -pix_fmt gray", "in_range=full"},
    {"GraySixteenBit", "a.mkv", "320x240", "-c:v ffv1 -pix_fmt gray16le", "in_range=full"},
    {"PlanarRgb", "a.mp4", "320x240", "-c:v libx264rgb -qp 4 -pix_fmt rgb24", ""},
    {"PngRgb", "a.mov", "320x240", "-c:v png -pix_fmt rgb24", ""},
    {"PngWithAlpha", "a.mov", "320x240", "-c:v png -pix_fmt rgba", ""},
    {"BottomUpRgb", "a.avi", "320x240", "-c:v rawvideo -pix_fmt bgr24 -vtag BI_RGB", ""},
    {"RawNv12", "a.nut", "320x240", "-c:v rawvideo -pix_fmt nv12", kLimited601},
    {"Palette", "a.avi", "320x240", "-c:v msvideo1 -pix_fmt rgb555le", ""},
    {"HighDefinitionUntagged", "a.mkv", "1280x720", "-c:v ffv1 -pix_fmt yuv420p", kLimited709},
    {"Below720Untagged", "a.mkv", "1280x718", "-c:v ffv1 -pix_fmt yuv420p", kLimited601},
};

class AssetReaderColor : public testing::TestWithParam<Layout> {};

// The reference is what the ffmpeg program makes of the same file when it is told the matrix and the range, with the
// accurate settings of its scaler. Three 255ths of mean error leave room for how chroma is interpolated, and for
// nothing else: a wrong matrix or range costs several times as much on this pattern.
TEST_P(AssetReaderColor, GivesTheColorsThatFfmpegGives) {
  const Layout& layout = GetParam();
  const ReaderFolder folder;
  const auto movie = folder / layout.file;
  const auto reference = folder / "reference.raw";
  ASSERT_NO_FATAL_FAILURE(makeMovie(movie, std::string("-f lavfi -i testsrc2=rate=10:duration=0.3:size=") +
                                               layout.size + " " + layout.encoding + " OUT"));
  const std::string meaning = layout.meaning;
  ASSERT_NO_FATAL_FAILURE(makeMovieFrom(movie, reference,
                                        "-i IN -vf scale=flags=bilinear+accurate_rnd+full_chroma_int" +
                                            (meaning.empty() ? "" : ":" + meaning) + " -f rawvideo -pix_fmt bgra OUT"));

  OpenedReader opened(movie, MediaType::video);
  const auto samples = opened.readAll();
  EXPECT_EQ(opened.reader->status(), AssetReaderStatus::completed);
  ASSERT_EQ(samples.size(), 3U);
  const auto expected = bytesOf(reference);
  std::vector<std::uint8_t> decoded;
  for (const auto& sample : samples) {
    const auto pixels = pixelsOf(*sample);
    decoded.insert(decoded.end(), pixels.begin(), pixels.end());
  }
  ASSERT_EQ(decoded.size(), expected.size());
  double sums[4] = {};
  for (std::size_t i = 0; i < decoded.size(); ++i) sums[i % 4] += std::abs(decoded[i] - expected[i]);
  for (int channel = 0; channel < 4; ++channel) {
    const double mean = sums[channel] / (static_cast<double>(decoded.size()) / 4);
    EXPECT_LE(mean, 3.0) << "component " << channel;
    RecordProperty("component" + std::to_string(channel), std::to_string(mean));
  }
}

INSTANTIATE_TEST_SUITE_P(Layouts, AssetReaderColor, testing::ValuesIn(kLayouts),
                         [](const auto& layout) { return std::string(layout.param.name); });

}  // namespace
}  // namespace tavrel::test
