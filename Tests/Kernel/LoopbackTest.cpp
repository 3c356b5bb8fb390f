// A camera for other programs on a node of the module v4l2loopback, whose readers are programs that know nothing of us.
#include <fstream>

#include "KernelTestSupport.h"
#include "Platform/Capture/CameraFeed.h"
#include "Platform/Imaging/ImageDestination.h"
#include "Support/CapturePeers.h"
#include "Tools/tavrel/ProgramTestSupport.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;

constexpr int kWidth = 160;
constexpr int kHeight = 120;

/// Blocks of 20×20 in colours of their own; component 0 is blue.
int blocks(int x, int y, int component) {
  constexpr int kSteps[] = {173, 101, 37};
  return (x / 20 + 8 * (y / 20)) * kSteps[component] % 256;
}

std::shared_ptr<const PixelBufferSnapshot> blocksPicture() {
  const auto buffer = PixelBuffer::create(kWidth, kHeight, PixelFormat::bgra32).value();
  buffer->lockBaseAddress(PixelBufferLock::readWrite);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      auto* pixel = buffer->baseAddress() + static_cast<std::size_t>(y) * buffer->bytesPerRow() +
                    std::size_t{4} * static_cast<std::size_t>(x);
      for (int i = 0; i < 3; ++i) pixel[i] = static_cast<std::uint8_t>(blocks(x, y, i));
      pixel[3] = 255;
    }
  }
  buffer->unlockBaseAddress(PixelBufferLock::readWrite);
  return buffer->snapshot();
}

std::string fileNamed(const std::string& name) { return "/run/" + name; }

std::vector<std::uint8_t> bytesIn(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// By how much a component of the blocks is wrong in any of the pictures in `bytes`, which are three.
int worstIn(const std::vector<std::uint8_t>& bytes) {
  EXPECT_EQ(bytes.size(), std::size_t{3} * kWidth * kHeight * 4);
  int worst = bytes.size() == std::size_t{3} * kWidth * kHeight * 4 ? 0 : 255;
  for (int frame = 0; frame < 3 && worst < 255; ++frame) {
    for (int y = 10; y < kHeight; y += 20) {
      for (int x = 10; x < kWidth; x += 20) {
        const std::size_t at = ((static_cast<std::size_t>(frame) * kHeight + static_cast<std::size_t>(y)) * kWidth +
                                static_cast<std::size_t>(x)) *
                               4;
        for (int i = 0; i < 3; ++i) {
          worst = std::max(worst, std::abs(bytes[at + static_cast<std::size_t>(i)] - blocks(x, y, i)));
        }
      }
    }
  }
  return worst;
}

/// What ffmpeg reads of a node's next three pictures, as BGRA.
std::vector<std::uint8_t> readByFfmpeg(const std::string& node, const std::string& file) {
  const CommandResult read =
      shell("ffmpeg -v error -y -f v4l2 -analyzeduration 0 -i " + node +
            " -frames:v 3 -sws_flags accurate_rnd+full_chroma_int+full_chroma_inp -f rawvideo -pix_fmt bgra " + file);
  EXPECT_EQ(read.status, 0) << read.output;
  return bytesIn(file);
}

class LoopbackTest : public KernelTest {};

TEST_F(LoopbackTest, ShowsFfmpegThePictureInEveryLayout) {
  struct Case {
    CameraFeedFormat format;
    const char* name;
    int tolerance;
  };
  constexpr Case kCases[] = {
      {CameraFeedFormat::bgra, "bgra", 0}, {CameraFeedFormat::nv12, "nv12", 3}, {CameraFeedFormat::yuy2, "yuyv422", 3}};
  int number = 10;
  for (const Case& one : kCases) {
    SCOPED_TRACE(one.name);
    const std::string node = "/dev/video" + std::to_string(number++);
    const auto feed = CameraFeed::create(
        node, {.name = "feed", .width = kWidth, .height = kHeight, .framesPerSecond = 10, .formats = {one.format}}, {});
    ASSERT_TRUE(feed.has_value()) << feed.error().description;
    (*feed)->show(blocksPicture());
    ASSERT_TRUE(eventually([&] { return (*feed)->counts().repeated >= 1; }));
    EXPECT_LE(worstIn(readByFfmpeg(node, fileNamed(one.name))), one.tolerance);
    if (!HasFailure())
      recordCamera({"to v4l2loopback, read by ffmpeg", one.name, "write", "10", "none",
                    one.tolerance == 0 ? "identical pixels" : "colours within 3 of 255"});
  }
}

TEST_F(LoopbackTest, IsHeldUpByNoReader) {
  const auto feed = CameraFeed::create("/dev/video10",
                                       {.name = "feed", .width = kWidth, .height = kHeight, .framesPerSecond = 10}, {});
  ASSERT_TRUE(feed.has_value()) << feed.error().description;
  (*feed)->show(blocksPicture());
  ASSERT_TRUE(eventually([&] { return (*feed)->counts().repeated >= 1; }));
  const PeerProcess reader("exec ffmpeg -v error -y -f v4l2 -analyzeduration 0 -i /dev/video10 -f rawvideo " +
                           fileNamed("stalled"));
  ASSERT_TRUE(eventually([&] { return bytesIn(fileNamed("stalled")).size() >= std::size_t{2} * kWidth * kHeight; }));
  reader.signal(SIGSTOP);
  const auto before = (*feed)->counts().repeated;
  EXPECT_TRUE(eventually([&] { return (*feed)->counts().repeated >= before + 20; }));
  reader.signal(SIGCONT);
  const auto size = bytesIn(fileNamed("stalled")).size();
  EXPECT_TRUE(
      eventually([&] { return bytesIn(fileNamed("stalled")).size() >= size + std::size_t{2} * kWidth * kHeight; }));
  if (!HasFailure())
    recordCamera({"to v4l2loopback, read by ffmpeg", "yuyv422", "write", "10", "the reader stops for a while",
                  "goes on, and it reads again"});
}

TEST_F(LoopbackTest, ShowsFfmpegWhatTheProgramMakesOfACamera) {
  const std::string picture = fileNamed("blocks.png");
  std::vector<std::uint8_t> pixels;
  for (int i = 0; i < kWidth * kHeight * 4; ++i) {
    // Mirrored by the program.
    const int x = kWidth - 1 - i / 4 % kWidth;
    pixels.push_back(i % 4 == 3 ? 255 : static_cast<std::uint8_t>(blocks(x, i / 4 / kWidth, i % 4)));
  }
  const auto image =
      Image::create(kWidth, kHeight, 8, 32, std::size_t{kWidth} * 4, kBitmapOpaqueBGRX, DataProvider::create(pixels));
  const Data png = ImageDestination::encode(image, "image/png").value();
  std::ofstream(picture, std::ios::binary).write(reinterpret_cast<const char*>(png.data()), std::ssize(png));
  const PeerProcess program("exec " TAVREL_PROGRAM " camera --camera file:" + picture +
                            " --to /dev/video13 --size 160x120 --fps 10 --mirror 2>" + fileNamed("said"));
  ASSERT_TRUE(eventually([] {
    const auto said = bytesIn(fileNamed("said"));
    return std::string(said.begin(), said.end()).find("a camera for other programs") != std::string::npos;
  }));
  // The first pictures take the program seconds here.
  ASSERT_TRUE(eventually(
      [] { return shell("timeout 60 ffmpeg -v error -y -f v4l2 -i /dev/video13 -frames:v 1 -f null -").status == 0; }));
  EXPECT_LE(worstIn(readByFfmpeg("/dev/video13", fileNamed("program"))), 3);
  if (!HasFailure()) {
    recordCamera({"tavrel camera to v4l2loopback, read by ffmpeg", "yuyv422", "write", "10", "none",
                  "mirrored, colours within 3 of 255"});
  }
}

}  // namespace
}  // namespace tavrel::test
