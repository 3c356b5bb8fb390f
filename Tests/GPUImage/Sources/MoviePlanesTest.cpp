// Pictures that go up in planes look like those that the processor turned into RGB.
#include <algorithm>
#include <cstdlib>

#include "MovieTestSupport.h"

namespace tavrel::test {
namespace {

class PlanesMovie : public TavrelGPUImageMovie {
 public:
  PlanesMovie(const std::filesystem::path& file, bool allowsPlanes)
      : TavrelGPUImageMovie(Asset::create(file).value()), allowsPlanes_(allowsPlanes) {}

 protected:
  std::shared_ptr<AssetReader> createAssetReader() override {
    auto reader = AssetReader::create(asset()).value();
    reader->addOutput(
        std::make_shared<AssetReaderTrackOutput>(asset()->tracksWithMediaType(MediaType::video).front(),
                                                 Dictionary{{kVideoAllowsPlanesKey, std::int64_t{allowsPlanes_}}}));
    return reader;
  }

 private:
  const bool allowsPlanes_;
};

class PlaneCounter : public TavrelGPUImageMovieDelegate {
 public:
  std::shared_ptr<PixelBuffer> didOutputPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                    MediaTime) override {
    planes = static_cast<int>(pixelBuffer->planeCount());
    return pixelBuffer;
  }
  int planes = 0;
};

/// Keeps all bytes of every frame.
class FrameKeeper : public RecordingTarget {
 public:
  void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer, Index) override {
    if (!framebuffer) return;
    const auto width = static_cast<GLsizei>(framebuffer->size().width);
    const auto height = static_cast<GLsizei>(framebuffer->size().height);
    const std::size_t start = bytes.size();
    bytes.resize(start + static_cast<std::size_t>(width * height * 4));
    GLuint name = 0;
    glGenFramebuffers(1, &name);
    glBindFramebuffer(GL_FRAMEBUFFER, name);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, framebuffer->texture(), 0);
    glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, &bytes[start]);
    glDeleteFramebuffers(1, &name);
  }
  void newFrameReadyAtTime(MediaTime, Index) override {}

  std::vector<std::uint8_t> bytes;
};

class MoviePlanesTest : public ::testing::Test {
 protected:
  struct Shown {
    std::vector<std::uint8_t> bytes;
    int planes = 0;
  };
  Shown show(bool allowsPlanes, bool isMirrored) const {
    const auto movie = std::make_shared<PlanesMovie>(folder_ / "film.mkv", allowsPlanes);
    const auto counter = std::make_shared<PlaneCounter>();
    const auto keeper = std::make_shared<FrameKeeper>();
    const auto mirror = std::make_shared<TavrelGPUImageRotationFilter>(kTavrelGPUImageFlipHorizontal);
    movie->setDelegate(counter);
    movie->addTarget(isMirrored ? std::static_pointer_cast<TavrelGPUImageInput>(mirror) : keeper);
    mirror->addTarget(keeper);
    movie->startProcessing();
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
    return {keeper->bytes, counter->planes};
  }

  ReaderFolder folder_;
};

TEST_F(MoviePlanesTest, LookLikePicturesThatTheProcessorConverted) {
  const struct {
    const char* format;
    const char* matrix;
    const char* range;
    const char* size;
    int planes;
  } cases[] = {{"yuv420p", "smpte170m", "tv", "64x48", 2}, {"yuv420p", "bt470bg", "pc", "64x48", 2},
               {"yuv420p", "bt709", "tv", "64x48", 2},     {"yuv420p", "bt709", "pc", "63x47", 2},
               {"yuv420p", "bt2020nc", "tv", "64x48", 2},  {"yuv420p", "unknown", "tv", "62x45", 2},
               {"yuv422p", "bt709", "tv", "64x48", 1},     {"yuv420p10le", "bt709", "tv", "64x48", 1},
               {"yuv444p", "smpte170m", "tv", "64x48", 1}, {"yuv420p", "ycgco", "tv", "64x48", 1}};
  for (const auto& each : cases) {
    SCOPED_TRACE(std::string(each.format) + " " + each.matrix + " " + each.range + " " + each.size);
    makeMovie(folder_ / "film.mkv",
              std::string("-y -f lavfi -i testsrc2=s=") + each.size + ":r=25:d=0.12 -vf format=" + each.format +
                  ",setparams=colorspace=" + each.matrix + ":range=" + each.range + " -c:v ffv1 OUT");
    for (const bool isMirrored : {false, true}) {
      const Shown wanted = show(false, isMirrored);
      const Shown shown = show(true, isMirrored);
      EXPECT_EQ(wanted.planes, 1);
      EXPECT_EQ(shown.planes, each.planes);
      ASSERT_FALSE(wanted.bytes.empty());
      ASSERT_EQ(shown.bytes.size(), wanted.bytes.size());
      int largest = 0;
      double sum = 0;
      for (std::size_t i = 0; i < wanted.bytes.size(); ++i) {
        const int difference = std::abs(wanted.bytes[i] - shown.bytes[i]);
        largest = std::max(largest, difference);
        sum += difference;
      }
      // libyuv counts in 1/64.
      EXPECT_LE(largest, 3);
      EXPECT_LE(sum / static_cast<double>(wanted.bytes.size()), 0.7);
    }
  }
}

}  // namespace
}  // namespace tavrel::test
