// The kernel's test driver for cameras (https://docs.kernel.org/admin-guide/media/vivid.html): video0 is a webcam,
// video1 a grabber with a digital input, video2 a webcam with planes in buffers of their own.
#include <fstream>
#include <set>

#include "KernelTestSupport.h"
#include "Platform/Capture/V4L2/Private/V4L2Driver.h"
#include "Platform/Capture/V4L2/Private/V4L2Formats.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;

constexpr const char* kWebcam = "/dev/video0";
constexpr const char* kGrabber = "/dev/video1";
constexpr const char* kPlanarWebcam = "/dev/video2";
constexpr double kRate = 10;

std::string nameOf(std::uint32_t pixelFormat) { return nameOfV4L2Format(pixelFormat); }

/// White, yellow, cyan, green, magenta, red, blue, black.
void expectBars(const SampleBuffer& sample, const V4L2KnownFormat& format = {}) {
  const bool isGray =
      format.layout == FrameLayout::gray8 || (format.layout == FrameLayout::packed && format.packed.isGray());
  // Of Y Cb Cr in four or five bits, a step is so much.
  const bool isCoarse = format.packed.isYCbCr && format.packed.channels[0].bits < 8;
  const double tolerance = isCoarse ? 40 : 6;
  const VirtualPicture picture(sample.imageBuffer());
  constexpr bool kColors[][3] = {{1, 1, 1}, {0, 1, 1}, {1, 1, 0}, {0, 1, 0},
                                 {1, 0, 1}, {0, 0, 1}, {1, 0, 0}, {0, 0, 0}};
  for (int bar = 0; bar < 8; ++bar) {
    const auto* pixel = picture.pixel(picture.width() * (2 * bar + 1) / 16, picture.height() * 3 / 4);
    const auto& [b, g, r] = kColors[bar];
    const double luma = 255 * (0.2126 * r + 0.7152 * g + 0.0722 * b);  // of BT.709, whatever else is said
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(pixel[i], isGray ? luma : kColors[bar][i] * 255, tolerance) << "bar " << bar << " component " << i;
    }
  }
}

/// A node by one of its modes alone.
struct OneMode {
  OneMode(const std::string& path, const V4L2Capabilities& whole, const V4L2Mode& mode, double rate = kRate) {
    V4L2Capabilities alone = whole;
    alone.modes = {mode};
    auto format = std::make_shared<CaptureDeviceFormat>();
    format->dimensions = mode.dimensions;
    CaptureDeviceDescription description;
    description.localizedName = whole.card;
    driver = std::make_unique<V4L2Driver>(V4L2SystemCalls::real(), path, description, alone);
    CaptureRun run;
    run.format = format;
    run.frameRate = rate;
    run.sink = sink;
    opened = driver->open(std::move(run));
  }
  ~OneMode() { driver->close(); }

  std::unique_ptr<V4L2Driver> driver;
  std::shared_ptr<KeepingSink> sink = std::make_shared<KeepingSink>();
  Expected<void> opened;
};

V4L2Capabilities probed(const std::string& path) {
  const V4L2SystemCalls calls = V4L2SystemCalls::real();
  const V4L2Descriptor node(calls, calls.open(path.c_str(), O_RDWR | O_CLOEXEC));
  if (!node.isOpen()) throw std::runtime_error("there is no " + path);
  auto found = probeV4L2(node);
  if (!found) throw std::runtime_error(path + " is no camera");
  return *found;
}

/// The smallest mode of that pixel format.
V4L2Mode modeOf(const V4L2Capabilities& node, std::uint32_t pixelFormat) {
  const auto found = std::ranges::find(node.modes, pixelFormat, &V4L2Mode::pixelFormat);
  if (found == node.modes.end()) throw std::runtime_error("it has no " + nameOf(pixelFormat));
  return *found;
}

class VividTest : public KernelTest {
 protected:
  void SetUp() override {
    for (const char* path : {kWebcam, kGrabber, kPlanarWebcam}) {
      setNodeControl(path, "Test Pattern", 1);
      setNodeControl(path, "OSD Text Mode", 2);
    }
  }
};

/// Shows the bars in every format of a node that is known, and says which.
std::set<std::uint32_t> readEveryFormat(const char* path, const std::string& backend) {
  const V4L2Capabilities webcam = probed(path);
  std::set<std::uint32_t> read;
  for (const V4L2Mode& mode : webcam.modes) {
    if (!read.insert(mode.pixelFormat).second) continue;
    SCOPED_TRACE(nameOf(mode.pixelFormat));
    const OneMode camera(path, webcam, mode);
    EXPECT_TRUE(camera.opened.has_value()) << camera.opened.error().description;
    const bool isRead = camera.opened && eventually([&] { return camera.sink->count() >= 2; });
    EXPECT_TRUE(isRead) << camera.driver->delivery().value_or(CaptureDelivery()).loss;
    if (!isRead) continue;
    const auto delivery = *camera.driver->delivery();
    EXPECT_EQ(delivery.dimensions, mode.dimensions);
    EXPECT_EQ(delivery.framesPerSecond, kRate);
    expectBars(*camera.sink->latest(), *knownV4L2Format(mode.pixelFormat));
    recordCamera({backend, nameOf(mode.pixelFormat), delivery.memory, "10"});
  }
  return read;
}

TEST_F(VividTest, ReadsEveryFormatThatItHasInCommonWithCameras) {
  const auto read = readEveryFormat(kWebcam, "V4L2, vivid");
  for (const std::uint32_t format :
       {V4L2_PIX_FMT_YUYV,   V4L2_PIX_FMT_UYVY,   V4L2_PIX_FMT_YVYU,    V4L2_PIX_FMT_YUV420, V4L2_PIX_FMT_YVU420,
        V4L2_PIX_FMT_NV12,   V4L2_PIX_FMT_NV21,   V4L2_PIX_FMT_NV16,    V4L2_PIX_FMT_RGB24,  V4L2_PIX_FMT_BGR24,
        V4L2_PIX_FMT_ABGR32, V4L2_PIX_FMT_XBGR32, V4L2_PIX_FMT_GREY,    V4L2_PIX_FMT_VYUY,   V4L2_PIX_FMT_NV61,
        V4L2_PIX_FMT_NV24,   V4L2_PIX_FMT_NV42,   V4L2_PIX_FMT_YUV422P, V4L2_PIX_FMT_ARGB32, V4L2_PIX_FMT_BGRA32,
        V4L2_PIX_FMT_RGBA32, V4L2_PIX_FMT_RGB565, V4L2_PIX_FMT_RGB565X, V4L2_PIX_FMT_RGB555, V4L2_PIX_FMT_BGR666,
        V4L2_PIX_FMT_RGB332, V4L2_PIX_FMT_AYUV32, V4L2_PIX_FMT_YUV565,  V4L2_PIX_FMT_Y10,    V4L2_PIX_FMT_Y12,
        V4L2_PIX_FMT_Y16,    V4L2_PIX_FMT_Y16_BE}) {
    EXPECT_TRUE(read.contains(format)) << nameOf(format);
  }
}

TEST_F(VividTest, ReadsPlanesInBuffersOfTheirOwn) {
  const auto read = readEveryFormat(kPlanarWebcam, "V4L2, vivid, multi-planar");
  for (const std::uint32_t format :
       {V4L2_PIX_FMT_NV12M, V4L2_PIX_FMT_NV21M, V4L2_PIX_FMT_YUV420M, V4L2_PIX_FMT_YVU420M, V4L2_PIX_FMT_NV16M,
        V4L2_PIX_FMT_NV61M, V4L2_PIX_FMT_YUV422M, V4L2_PIX_FMT_YVU422M, V4L2_PIX_FMT_YUV444M, V4L2_PIX_FMT_YVU444M,
        V4L2_PIX_FMT_YUYV, V4L2_PIX_FMT_NV12}) {
    EXPECT_TRUE(read.contains(format)) << nameOf(format);
  }
}

TEST_F(VividTest, ReadsColoursAsTheDriverSaysThatTheyAre) {
  const V4L2Capabilities webcam = probed(kWebcam);
  struct Case {
    int matrix;
    int range;
    const char* name;
  };
  // The entries of the driver's menus.
  constexpr Case kCases[] = {{1, 2, "YUYV, BT.601, limited range"},
                             {1, 1, "YUYV, BT.601, full range"},
                             {2, 2, "YUYV, BT.709, limited range"},
                             {2, 1, "YUYV, BT.709, full range"},
                             {4, 2, "YUYV, BT.2020, limited range"}};
  for (const Case& one : kCases) {
    SCOPED_TRACE(one.name);
    setNodeControl(kWebcam, "Y'CbCr Encoding", one.matrix);
    setNodeControl(kWebcam, "Quantization", one.range);
    const OneMode camera(kWebcam, webcam, modeOf(webcam, V4L2_PIX_FMT_YUYV));
    ASSERT_TRUE(camera.opened.has_value()) << camera.opened.error().description;
    ASSERT_TRUE(eventually([&] { return camera.sink->count() >= 2; }));
    expectBars(*camera.sink->latest());
    if (!HasFailure()) recordCamera({"V4L2, vivid", one.name, "mmap", "10"});
  }
  setNodeControl(kWebcam, "Y'CbCr Encoding", 0);
  setNodeControl(kWebcam, "Quantization", 0);
}

TEST_F(VividTest, HasTheRatesAndSizesThatTheDriverLists) {
  use("v4l2");
  const auto webcam = awaited("vivid-000");
  const auto smallest = webcam->formats().front();
  EXPECT_EQ(smallest->dimensions, (CaptureVideoDimensions{320, 180}));
  EXPECT_EQ(smallest->videoSupportedFrameRateRanges.front().minFrameRate, 1);
  EXPECT_EQ(smallest->videoSupportedFrameRateRanges.back().maxFrameRate, 60);
  for (const double rate : {2.0, 12.5, 25.0}) {
    const V4L2Capabilities whole = probed(kWebcam);
    const OneMode camera(kWebcam, whole, modeOf(whole, V4L2_PIX_FMT_NV12), rate);
    ASSERT_TRUE(camera.opened.has_value()) << camera.opened.error().description;
    ASSERT_TRUE(eventually([&] { return camera.sink->count() >= 2; }));
    EXPECT_EQ(camera.driver->delivery()->framesPerSecond, rate);
    if (!HasFailure()) recordCamera({"V4L2, vivid", "NV12, discrete sizes", "mmap", fmt::format("{:g}", rate)});
  }
  const auto grabber = awaited("vivid-001");
  std::vector<CaptureVideoDimensions> sizes;
  for (const auto& format : grabber->formats()) sizes.push_back(format->dimensions);
  EXPECT_THAT(sizes, ::testing::Contains(CaptureVideoDimensions{320, 240}));
  EXPECT_THAT(sizes, ::testing::Contains(CaptureVideoDimensions{640, 480}));
  CameraBench bench(grabber);
  bench.session->startRunning();
  ASSERT_TRUE(delivers(bench)) << bench.session->runtimeError().value_or(Error()).description;
  expectBars(*bench.frames->latest());
  const auto delivery = *grabber->delivery();
  // Its source chooses.
  EXPECT_EQ(delivery.dimensions, (CaptureVideoDimensions{1280, 720}));
  recordCamera({"V4L2, vivid", delivery.format + ", a digital source's size", delivery.memory,
                fmt::format("{:g}", delivery.framesPerSecond)});
}

TEST_F(VividTest, LivesThroughTheFaultsThatTheDriverInjects) {
  const V4L2Capabilities webcam = probed(kWebcam);
  const V4L2Mode mode = modeOf(webcam, V4L2_PIX_FMT_NV12);
  const struct {
    const char* control;
    const char* said;
  } refusals[] = {{"Inject VIDIOC_REQBUFS Error", "gives no buffers"},
                  {"Inject VIDIOC_QBUF Error", "takes no buffer"},
                  {"Inject VIDIOC_STREAMON Error", "does not start"}};
  for (const auto& [control, said] : refusals) {
    SCOPED_TRACE(control);
    setNodeControl(kWebcam, control);
    const OneMode refused(kWebcam, webcam, mode);
    ASSERT_FALSE(refused.opened.has_value());
    EXPECT_THAT(refused.opened.error().description, ::testing::HasSubstr(said));
    const OneMode again(kWebcam, webcam, mode);
    ASSERT_TRUE(again.opened.has_value()) << again.opened.error().description;
    ASSERT_TRUE(eventually([&] { return again.sink->count() >= 2; }));
    recordCamera({"V4L2, vivid", nameOf(mode.pixelFormat), "mmap", "10", control,
                  std::string("\"") + said + "\", and its picture the next time"});
  }
  OneMode camera(kWebcam, webcam, mode);
  ASSERT_TRUE(eventually([&] { return camera.sink->count() >= 2; }));
  setNodeControl(kWebcam, "Inject V4L2_BUF_FLAG_ERROR");
  ASSERT_TRUE(eventually([&] { return camera.sink->drops > 0; }));
  const int before = camera.sink->count();
  ASSERT_TRUE(eventually([&] { return camera.sink->count() >= before + 2; }));
  recordCamera({"V4L2, vivid", nameOf(mode.pixelFormat), "mmap", "10", "a damaged buffer", "counted as lost, goes on"});
  setNodeControl(kWebcam, "Percentage of Dropped Buffers", 50);
  const int lost = camera.sink->drops;
  ASSERT_TRUE(eventually([&] { return camera.sink->drops >= lost + 5; }));
  setNodeControl(kWebcam, "Percentage of Dropped Buffers", 0);
  EXPECT_FALSE(camera.sink->error().has_value());
  recordCamera({"V4L2, vivid", nameOf(mode.pixelFormat), "mmap", "10", "half of the buffers lost", "counted, goes on"});
  setNodeControl(kWebcam, "Inject Fatal Streaming Error");
  ASSERT_TRUE(eventually([&] { return camera.sink->error().has_value(); }));
  EXPECT_THAT(camera.sink->error()->description, ::testing::HasSubstr("Input/output error"));
  recordCamera({"V4L2, vivid", nameOf(mode.pixelFormat), "mmap", "10", "the stream breaks", "said"});
}

TEST_F(VividTest, GoesOnAfterItWasPluggedOutAndIn) {
  use("v4l2");
  const auto camera = awaited("vivid-000");
  CameraBench bench(camera);
  const NotificationCounter recoveries(kCaptureSessionDidRecoverNotification, bench.session.get());
  bench.session->startRunning();
  ASSERT_TRUE(delivers(bench));
  const auto plug = [](const char* action) {
    std::ofstream(std::string("/sys/bus/platform/drivers/vivid/") + action) << "vivid.0" << std::flush;
  };
  plug("unbind");
  ASSERT_TRUE(eventually([&] { return bench.session->runtimeError() && !camera->isConnected(); }));
  EXPECT_TRUE(bench.session->isRunning());
  plug("bind");
  ASSERT_TRUE(eventually([&] { return recoveries.count() > 0; }));
  EXPECT_EQ(awaited("vivid-000"), camera);
  ASSERT_TRUE(delivers(bench));
  recordCamera(
      {"V4L2, vivid", camera->delivery()->format, "mmap", "30", "plugged out and in", "the same camera, goes on"});
}

}  // namespace
}  // namespace tavrel::test
