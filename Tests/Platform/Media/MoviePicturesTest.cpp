#include "Platform/Media/MoviePictures.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

namespace tavrel {
namespace {

class MoviePicturesTest : public ::testing::Test {
 protected:
  MoviePicturesTest() { std::filesystem::create_directories(folder_); }
  ~MoviePicturesTest() override { std::filesystem::remove_all(folder_); }

  /// A movie of 20 pictures by FFmpeg: gray that grows lighter, half covered by an alpha of 128 where there is one.
  Data movie(const std::string& name, const std::string& encoder) const {
    const auto file = folder_ / name;
    const std::string command =
        "ffmpeg -v error -y -f lavfi -i \"color=black:s=64x48:r=20:d=1,format=yuva444p,geq=lum='16+N*10':cb=128:cr=128:"
        "a='if(lt(X,32),255,128)'\" " +
        encoder + " '" + file.string() + "'";
    EXPECT_EQ(std::system(command.c_str()), 0) << "needs ffmpeg";
    return readFile(file).value_or(Data{});
  }

  const std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() / ("tavrel-movie-pictures-" + std::to_string(getpid()));
};

struct Kind {
  const char* name;
  const char* encoder;
  bool hasAlpha;
};

TEST_F(MoviePicturesTest, AreThoseOfTheMovieInAnyOrder) {
  const Kind kinds[] = {
      {"a.webm", "-pix_fmt yuva420p -c:v libvpx-vp9 -lossless 1", true},
      {"b.webm", "-pix_fmt yuva420p -c:v libvpx -b:v 2M -auto-alt-ref 0", true},
      {"c.mov", "-pix_fmt argb -c:v qtrle", true},
      {"d.mp4", "-pix_fmt yuv420p -c:v libx264 -bf 3 -g 8", false},
  };
  for (const Kind& kind : kinds) {
    SCOPED_TRACE(kind.name);
    const auto pictures = createPictures(DataProvider::create(movie(kind.name, kind.encoder))).value();
    ASSERT_EQ(pictures->count(), 20U);
    EXPECT_EQ(pictures->loopCount(), 0);
    for (const std::size_t index : {0U, 1U, 2U, 19U, 7U, 8U, 3U, 18U, 19U, 0U, 12U}) {
      EXPECT_NEAR(pictures->properties(index).unclampedDelayTime.value_or(0), 0.05, 0.002);
      const auto image = pictures->imageAtIndex(index).value();
      const auto bytes = image->dataProvider()->bytes();
      ASSERT_EQ(bytes.size(), 64U * 48 * 4);
      const double gray = static_cast<double>(index) * 10 * 255 / 219;
      for (const auto& [x, alpha] : {std::pair(std::size_t{10}, 255), {std::size_t{54}, kind.hasAlpha ? 128 : 255}}) {
        const std::uint8_t* const pixel = bytes.data() + (24 * 64 + x) * 4;
        EXPECT_NEAR(pixel[3], alpha, 2) << index;
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(pixel[c], gray * alpha / 255, 4) << index << " at " << x;
      }
    }
    EXPECT_FALSE(pictures->imageAtIndex(20));
    pictures->giveUp();
    EXPECT_FALSE(pictures->imageAtIndex(5));
  }
}

TEST_F(MoviePicturesTest, SaysWhatIsNeitherPictureNorMovie) {
  EXPECT_EQ(createPictures(DataProvider::create(Data(300, 'x')), "notes.txt").error().description,
            "notes.txt is not a PNG, JPEG, GIF, WebP, AVIF, TIFF or HEIC picture, nor a movie that can be read");
  EXPECT_EQ(createPictures(DataProvider::create(Data{}), "a.gif").error().description, "a.gif is empty");
  const Data whole = movie("e.mp4", "-pix_fmt yuv420p -c:v libx264 -movflags +faststart");
  const Data part(whole.begin(), whole.end() - 40);
  const auto cut = createPictures(DataProvider::create(part));
  ASSERT_TRUE(cut) << "what is before the cut can be seen";
  EXPECT_TRUE((*cut)->imageAtIndex(0));
}

}  // namespace
}  // namespace tavrel
