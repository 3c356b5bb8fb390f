// How often a frame is drawn on its way into a movie.
#include <GLES2/gl2.h>
#include <dlfcn.h>

#include <atomic>

#include "MovieWriterTestSupport.h"
#include "Support/ReaderMovies.h"

namespace {

std::atomic<int> draws = 0;

}  // namespace

/// In place of GL's own, which it calls.
extern "C" __attribute__((visibility("default"))) void glDrawArrays(GLenum mode, GLint first, GLsizei count) {
  static const auto next = reinterpret_cast<decltype(&glDrawArrays)>(dlsym(RTLD_NEXT, "glDrawArrays"));
  ++draws;
  next(mode, first, count);
}

namespace tavrel::test {
namespace {

class MovieWriterDrawsTest : public MovieWriterTest {
 protected:
  /// Of each frame that a filter makes `size` large.
  int drawsOfAFrame(Size size) {
    createNotLive();
    const auto filter = std::make_shared<TavrelGPUImageRotationFilter>(kTavrelGPUImageFlipHorizontal);
    filter->forceProcessingAtSize(size);
    input_->removeTarget(writer_);
    input_->addTarget(filter);
    filter->addTarget(writer_);
    writer_->startRecording();
    sendFrame(MediaTime::make(0, 30));
    const int before = draws;
    constexpr int kFrames = 10;
    for (int i = 1; i <= kFrames; ++i) sendFrame(MediaTime::make(i, 30));
    const int drawn = draws - before;
    finish();
    EXPECT_EQ(drawn % kFrames, 0);
    return drawn / kFrames;
  }
};

TEST_F(MovieWriterDrawsTest, FramesOfTheMoviesSizeAreDrawnByTheGraphAlone) {
  // Without pixel buffers behind the frames, or where the writer's can be read in place, the writer draws, too.
  const bool isTaken = TavrelGPUImageContext::supportsFastTextureUpload() && !TextureCache::sharesMemory();
  EXPECT_EQ(drawsOfAFrame({kWidth, kHeight}), isTaken ? 1 : 2);
  EXPECT_EQ(drawsOfAFrame({kWidth + 8, kHeight + 8}), 2);
}

TEST_F(MovieWriterDrawsTest, AMoviesOwnPicturesAreNotDrawnAtAll) {
  const ReaderFolder folder;
  makeMovie(folder / "film.mkv",
            "-f lavfi -i \"color=0xA02828:s=64x48:r=25:d=0.4\" -vf "
            "scale=out_color_matrix=bt709,setparams=colorspace=bt709 -c:v libx264 -qp 5 OUT");
  create({{kTavrelEncodingLiveVideoKey, false}, {kVideoQualityKey, 1.0}});
  const auto movie = std::make_shared<TavrelGPUImageMovie>(Asset::create(folder / "film.mkv").value());
  movie->addTarget(writer_);
  writer_->startRecording();
  const int before = draws;
  movie->startProcessing();
  settle();
  EXPECT_EQ(draws - before, TavrelGPUImageContext::supportsFastTextureUpload() ? 0 : 10);
  finish();
  const auto frames = decodedFrames();
  ASSERT_EQ(frames.size(), 10U);
  const auto original = pixelsOf(*OpenedReader(folder / "film.mkv", MediaType::video).readAll().front());
  const Pixel colour = {original[2], original[1], original[0], 255};
  for (const DecodedFrame& frame : frames) EXPECT_LE(largestDifference(frame.picture, plain(colour)), 4);
}

}  // namespace
}  // namespace tavrel::test
