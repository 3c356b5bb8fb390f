#include <gmock/gmock.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <fstream>
#include <thread>

#include "Support/CameraMatrix.h"
#include "Support/CapturePeers.h"
#include "Support/CaptureTestSupport.h"
#include "Support/GraphTestSupport.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;

constexpr int kWidth = 64;
constexpr int kHeight = 48;
constexpr std::size_t kFrameBytes = std::size_t{kWidth} * kHeight * 4;

/// Blocks of 16×16 in colours of their own, which depend on `number`.
Picture blocks(int number) {
  return {kWidth, kHeight, [number](int x, int y) {
            const int block = x / 16 + 4 * (y / 16) + 31 * number;
            return Pixel{block * 37 % 256, block * 101 % 256, block * 173 % 256};
          }};
}

/// The bytes that a program wrote so far.
std::string bytesIn(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

Pixel pixelAt(const std::string& bytes, std::size_t frame, int x, int y) {
  const std::size_t at = frame * kFrameBytes + (static_cast<std::size_t>(y) * kWidth + static_cast<std::size_t>(x)) * 4;
  const auto component = [&](std::size_t i) { return static_cast<std::uint8_t>(bytes.at(at + i)); };
  return {component(2), component(1), component(0)};
}

bool shows(const std::string& bytes, std::size_t frame, const Picture& picture) {
  if (bytes.size() < (frame + 1) * kFrameBytes) return false;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      if (!(pixelAt(bytes, frame, x, y) == picture.at(x, y))) return false;
    }
  }
  return true;
}

std::size_t framesIn(const std::filesystem::path& path) {
  std::error_code error;
  const auto size = std::filesystem::file_size(path, error);
  return error ? 0 : size / kFrameBytes;
}

/// A graph whose end is a camera of a PipeWire daemon of the test's own, read by GStreamer.
class CameraOutputTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(service_.start()) << "no service: see service.log"; }

  void makeOutput(double framesPerSecond = 30, Size size = {kWidth, kHeight}) {
    auto made = TavrelGPUImageCameraOutput::create({.name = "shown", .size = size, .framesPerSecond = framesPerSecond});
    ASSERT_TRUE(made.has_value()) << made.error().description;
    output_ = *made;
    source_->addTarget(output_);
  }
  void push(const Picture& picture) {
    source_->processCVPixelBuffer(pixelBufferOf(picture), MediaTime::fromSeconds(++frames_ / 30.0, 600), true);
  }
  /// Pushes the picture again and again until the condition holds.
  template <typename Condition>
  bool pushUntil(const Picture& picture, Condition isDone) {
    return eventually([&] {
      push(picture);
      return isDone();
    });
  }
  /// A program that reads the camera and writes BGRA frames, as it gets them, to a file named `name`.
  std::unique_ptr<PeerProcess> startReader(const std::string& name, const std::string& format = "BGRA",
                                           const std::string& options = "") const {
    return std::make_unique<PeerProcess>(
        "exec gst-launch-1.0 -q pipewiresrc target-object=shown " + options + " ! video/x-raw,format=" + format +
        " ! filesink buffer-mode=2 location=" + file(name).string() + " >" + file(name).string() + ".log 2>&1");
  }
  std::filesystem::path file(const std::string& name) const { return service_.folder() / name; }

  PipeWireService service_;
  std::shared_ptr<TavrelGPUImageCVPixelBufferInput> source_ = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  std::shared_ptr<TavrelGPUImageCameraOutput> output_;
  int frames_ = 0;
};

TEST_F(CameraOutputTest, GivesAnotherProgramTheSamePixels) {
  makeOutput();
  const Picture picture = distinctPicture(kWidth, kHeight);
  const auto reader = startReader("bgra");
  ASSERT_TRUE(pushUntil(picture, [&] { return framesIn(file("bgra")) >= 3; }));
  EXPECT_TRUE(shows(bytesIn(file("bgra")), 0, picture));
  EXPECT_TRUE(shows(bytesIn(file("bgra")), 2, picture));
  recordCamera({"to PipeWire, read by GStreamer", "BGRA", "memfd", "30", "none", "identical pixels"});
}

/// What the numbers of BT.601 in limited range mean.
Pixel fromYCbCr(int y, int cb, int cr) {
  const double luma = 255.0 / 219 * (y - 16);
  const double b = 255.0 / 224 * (cb - 128);
  const double r = 255.0 / 224 * (cr - 128);
  const auto component = [](double value) { return static_cast<int>(std::lround(std::clamp(value, 0.0, 255.0))); };
  return {component(luma + 1.402 * r), component(luma - 0.344136 * b - 0.714136 * r), component(luma + 1.772 * b)};
}

TEST_F(CameraOutputTest, KeepsColoursInBothLayoutsOfVideoCalls) {
  makeOutput();
  const Picture picture = blocks(1);
  for (const char* layout : {"NV12", "YUY2"}) {
    SCOPED_TRACE(layout);
    const bool isNV12 = std::string(layout) == "NV12";
    const std::size_t frameBytes = std::size_t{kWidth} * kHeight * (isNV12 ? 3 : 4) / 2;
    auto reader = startReader(layout, layout);
    ASSERT_TRUE(pushUntil(picture, [&] { return bytesIn(file(layout)).size() >= 2 * frameBytes; }));
    reader->kill();
    ASSERT_TRUE(eventually([&] { return !output_->hasReaders(); }));
    const std::string bytes = bytesIn(file(layout));
    const auto number = [&](int at) { return static_cast<std::uint8_t>(bytes.at(static_cast<std::size_t>(at))); };
    for (int y = 8; y < kHeight; y += 16) {
      for (int x = 8; x < kWidth; x += 16) {
        const int chroma = isNV12 ? kWidth * kHeight + y / 2 * kWidth + x : 2 * (y * kWidth + x) + 1;
        const int luma = isNV12 ? y * kWidth + x : 2 * (y * kWidth + x);
        const Pixel seen = fromYCbCr(number(luma), number(chroma), number(chroma + (isNV12 ? 1 : 2)));
        const Pixel& shown = picture.at(x, y);
        EXPECT_NEAR(seen.r, shown.r, 3) << x << ", " << y;
        EXPECT_NEAR(seen.g, shown.g, 3) << x << ", " << y;
        EXPECT_NEAR(seen.b, shown.b, 3) << x << ", " << y;
      }
    }
    recordCamera({"to PipeWire, read by GStreamer", layout, "memfd", "30", "none", "colours within 3 of 255"});
  }
}

TEST_F(CameraOutputTest, DrawsOnlyForReaders) {
  makeOutput();
  std::atomic<int> told = 0;
  output_->setReadersHandler([&](bool hasReaders) { told += hasReaders ? 1 : 100; });
  for (int i = 0; i < 5; ++i) push(blocks(i));
  EXPECT_FALSE(output_->enabled());
  EXPECT_EQ(output_->sentFrames(), 0U);
  auto reader = startReader("seen");
  ASSERT_TRUE(pushUntil(blocks(7), [&] { return framesIn(file("seen")) >= 1; }));
  // Nothing of what came before it.
  EXPECT_TRUE(shows(bytesIn(file("seen")), 0, blocks(7)));
  EXPECT_TRUE(output_->enabled());
  EXPECT_TRUE(eventually([&] { return output_->readerCount() == 1; })) << output_->readerCount();
  auto second = startReader("second");
  EXPECT_TRUE(eventually([&] { return output_->readerCount() == 2; })) << output_->readerCount();
  second->kill();
  EXPECT_TRUE(eventually([&] { return output_->readerCount() == 1; })) << output_->readerCount();
  reader->kill();
  ASSERT_TRUE(eventually([&] { return !output_->hasReaders(); }));
  EXPECT_EQ(output_->readerCount(), 0);
  EXPECT_FALSE(output_->enabled());
  ASSERT_TRUE(eventually([&] {
    RunLoop::main().runFor(1ms);
    return told == 101;
  })) << "told "
      << told;
  reader = startReader("later");
  ASSERT_TRUE(pushUntil(blocks(8), [&] { return framesIn(file("later")) >= 1; }));
  EXPECT_TRUE(shows(bytesIn(file("later")), 0, blocks(8)));
  recordCamera({"to PipeWire, read by GStreamer", "BGRA", "memfd", "30", "no reader",
                "nothing is drawn; a new reader sees a new frame first"});
}

TEST_F(CameraOutputTest, HoldsTheLastPictureWhileTheSourceStallsAndWhilePaused) {
  makeOutput();
  const auto reader = startReader("held");
  ASSERT_TRUE(pushUntil(blocks(1), [&] { return framesIn(file("held")) >= 1; }));
  // Nothing is pushed any more, and frames go on coming.
  const std::size_t stalled = framesIn(file("held"));
  ASSERT_TRUE(eventually([&] { return framesIn(file("held")) >= stalled + 10; }));
  EXPECT_TRUE(shows(bytesIn(file("held")), stalled + 9, blocks(1)));
  // Paused, it shows the same, whatever comes.
  output_->setPaused(true);
  const std::size_t paused = framesIn(file("held"));
  ASSERT_TRUE(pushUntil(blocks(2), [&] { return framesIn(file("held")) >= paused + 10; }));
  EXPECT_TRUE(shows(bytesIn(file("held")), paused + 9, blocks(1)));
  output_->setPaused(false);
  ASSERT_TRUE(pushUntil(blocks(3), [&] {
    const std::string bytes = bytesIn(file("held"));
    return shows(bytes, bytes.size() / kFrameBytes - 1, blocks(3));
  }));
  recordCamera({"to PipeWire, read by GStreamer", "BGRA", "memfd", "30", "the source stalls; a pause",
                "the last picture, again and again"});
}

TEST_F(CameraOutputTest, ServesSeveralReadersAndIsHeldUpByNone) {
  makeOutput();
  auto stopping = startReader("stopping");
  ASSERT_TRUE(pushUntil(blocks(1), [&] { return framesIn(file("stopping")) >= 3; }));
  const auto other = startReader("other");
  ASSERT_TRUE(pushUntil(blocks(1), [&] { return framesIn(file("other")) >= 3; }));
  stopping->signal(SIGSTOP);
  const std::size_t before = framesIn(file("other"));
  ASSERT_TRUE(pushUntil(blocks(2), [&] { return framesIn(file("other")) >= before + 30; }));
  EXPECT_TRUE(shows(bytesIn(file("other")), before + 29, blocks(2)));
  stopping->signal(SIGCONT);
  const std::size_t stopped = framesIn(file("stopping"));
  EXPECT_TRUE(pushUntil(blocks(3), [&] { return framesIn(file("stopping")) >= stopped + 3; }));
  recordCamera({"to PipeWire, read by GStreamer", "BGRA", "memfd", "30", "one of two readers stops for a while",
                "the other misses nothing of it"});
}

TEST_F(CameraOutputTest, HandsAFrameOnWithinItsInterval) {
  // So slow that no machine is too slow for the claim.
  constexpr double kInterval = 0.5;
  makeOutput(1 / kInterval);
  const auto reader = startReader("quick");
  // At that pace from the first one on, which a reader may miss that is not ready yet.
  ASSERT_TRUE(pushUntil(blocks(0), [&] {
    std::this_thread::sleep_for(std::chrono::duration<double>(kInterval));
    return framesIn(file("quick")) >= 1;
  }));
  std::vector<double> latencies;
  for (int number = 1; number <= 7; ++number) {
    const auto begin = std::chrono::steady_clock::now();
    push(blocks(number));
    ASSERT_TRUE(eventually([&] {
      const std::string bytes = bytesIn(file("quick"));
      return !bytes.empty() && shows(bytes, bytes.size() / kFrameBytes - 1, blocks(number));
    }));
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
    latencies.push_back(passed.count());
    std::this_thread::sleep_until(begin + std::chrono::duration<double>(kInterval));
  }
  std::sort(latencies.begin(), latencies.end());
  RecordProperty("median_latency_ms", std::to_string(latencies[3] * 1000));
  std::printf("median latency %.1f ms, with the reader's file\n", latencies[3] * 1000);
  EXPECT_LT(latencies[3], kInterval);
  recordCamera(
      {"to PipeWire, read by GStreamer", "BGRA", "memfd", "2", "none", "out within a frame of coming in (median)"});
}

TEST_F(CameraOutputTest, ComesBackWithTheDaemonAndSaysWhatIsWrong) {
  makeOutput();
  std::atomic<int> failures = 0;
  output_->setFailureHandler([&](const Error& error) {
    ++failures;
    EXPECT_THAT(error.description, HasSubstr("PipeWire"));
  });
  auto reader = startReader("before");
  ASSERT_TRUE(pushUntil(blocks(1), [&] { return framesIn(file("before")) >= 1; }));
  service_.stop();
  ASSERT_TRUE(eventually([&] {
    RunLoop::main().runFor(1ms);
    return failures == 1;
  }));
  EXPECT_FALSE(output_->enabled());
  const auto refused = TavrelGPUImageCameraOutput::create({});
  ASSERT_FALSE(refused.has_value());
  EXPECT_THAT(refused.error().description, HasSubstr("no PipeWire service"));
  ASSERT_TRUE(service_.start());
  // A reader ends when its camera is not there yet.
  ASSERT_TRUE(eventually([&] {
    reader = startReader("after");
    for (int i = 0; i < 100 && framesIn(file("after")) == 0; ++i) {
      push(blocks(2));
      std::this_thread::sleep_for(20ms);
    }
    return framesIn(file("after")) >= 1;
  }));
  EXPECT_TRUE(shows(bytesIn(file("after")), 0, blocks(2)));
  recordCamera({"to PipeWire, read by GStreamer", "BGRA", "memfd", "30", "the service ends and begins again",
                "said, and a camera again"});
}

TEST(CameraOutputConfigurationTest, RefusesWhatCannotBeShown) {
  using Configuration = TavrelGPUImageCameraOutput::Configuration;
  const std::pair<Configuration, const char*> wrong[] = {
      {{.size = {63, 48}}, "63x48: expected even sides"},
      {{.size = {std::nan(""), 48}}, "expected even sides"},
      {{.framesPerSecond = 0}, "0 frames a second: expected 1 to 240"},
      {{.framesPerSecond = std::nan("")}, "expected 1 to 240"},
      {{.name = ""}, "needs a name"},
      {{.destination = "screen"}, "\"screen\": expected pipewire or a video node"},
      {{.destination = "/dev/null"}, "/dev/null is no video node"},
      {{.destination = "/nonexistent/video9"}, "cannot open /nonexistent/video9"},
      {{.layouts = "nv12,rgb"}, "no layout \"rgb\": expected nv12, yuy2 or bgra"}};
  for (const auto& [configuration, text] : wrong) {
    const auto refused = TavrelGPUImageCameraOutput::create(configuration);
    ASSERT_FALSE(refused.has_value()) << text;
    EXPECT_THAT(refused.error().description, HasSubstr(text));
  }
}

}  // namespace
}  // namespace tavrel::test
