// Cameras whose buffers, metadata and controls are unlike those of other programs at hand.
#include <gmock/gmock.h>
#include <linux/v4l2-controls.h>
#include <spa/param/props.h>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "PipeWireFixture.h"
#include "PipeWireProducer.h"
#include "Platform/Capture/CaptureDelivery.h"
#include "Platform/Capture/PipeWire/Private/PipeWireBackend.h"
#include "Support/H264Pictures.h"
#include "Support/VirtualFrames.h"

namespace tavrel::test {
namespace {

using Kind = PipeWireProducer::Kind;
using ::testing::ElementsAre;
using ::testing::IsSupersetOf;
using Pixel = std::array<int, 3>;

constexpr std::int64_t kLinear = 0;
constexpr std::int64_t kTiled = 0x0100000000000001;  // of some device
constexpr Pixel kRed = {0, 0, 255}, kGreen = {0, 255, 0}, kBlue = {255, 0, 0}, kWhite = {255, 255, 255};

/// BGRx: red and green above, blue and white below.
std::size_t drawQuarters(std::size_t, std::uint8_t* bytes, std::size_t stride, std::uint32_t) {
  for (std::size_t y = 0; y < 48; ++y) {
    for (std::size_t x = 0; x < 64; ++x) {
      const Pixel& color = y < 24 ? (x < 32 ? kRed : kGreen) : (x < 32 ? kBlue : kWhite);
      for (std::size_t i = 0; i < 3; ++i) bytes[y * stride + x * 4 + i] = static_cast<std::uint8_t>(color.at(i));
    }
  }
  return stride * 47 + 64 * 4;
}

/// NV12: red in BT.601.
std::size_t drawRed(std::size_t plane, std::uint8_t* bytes, std::size_t stride, std::uint32_t) {
  const std::size_t rows = plane == 0 ? 48 : 24;
  for (std::size_t i = 0; i < stride * rows; ++i) bytes[i] = plane == 0 ? 81 : i % stride % 2 == 0 ? 90 : 240;
  return stride * rows;
}

class PipeWireBuffersTest : public PipeWireServiceTest {
 protected:
  /// A picture of the producer's; `delivery` is filled with what is said of it.
  static std::shared_ptr<PixelBuffer> pictureOf(const PipeWireProducer::Kind& kind, CaptureDelivery* delivery = nullptr,
                                                std::optional<std::int64_t>* modifier = nullptr) {
    PipeWireProducer producer(kind);
    CameraBench bench(awaited("pipewire:" + kind.name), "64x48");
    bench.session->startRunning();
    const bool hasCome = eventually([&] { return bench.frames->count() >= 3; });
    if (!hasCome) {
      const auto delivered = bench.device->delivery();
      throw std::runtime_error(kind.name + ": " + bench.session->runtimeError().value_or(Error()).description +
                               (delivered ? delivered->description() : ""));
    }
    bench.session->stopRunning();
    if (delivery) *delivery = *bench.device->delivery();
    if (modifier) *modifier = producer.modifier();
    return bench.frames->latest()->imageBuffer();
  }
  static Pixel pixelAt(const std::shared_ptr<PixelBuffer>& buffer, int x, int y) {
    const VirtualPicture picture(buffer);
    const auto pixel = picture.pixel(x, y);
    return {pixel[0], pixel[1], pixel[2]};
  }
};

TEST_F(PipeWireBuffersTest, ReadsEveryKindOfMemoryThatTheCPUCanRead) {
  connect();
  struct Case {
    Kind kind;
    const char* memory;
    std::optional<std::int64_t> modifier;
  };
  const std::vector<Case> cases = {
      {{.name = "file", .padding = 12, .offset = 64}, "MemFd", {}},
      {{.name = "unsaid", .saysStride = false}, "MemFd", {}},
      {{.name = "device", .isDmaBuf = true, .padding = 64}, "DmaBuf", {}},
      {{.name = "linear", .modifiers = {kTiled, kLinear}, .isPlain = false}, "DmaBuf", kLinear},
      {{.name = "either", .modifiers = {kTiled, kLinear}}, "MemFd", {}},
      {{.name = "tiled", .modifiers = {kTiled}}, "MemFd", {}},
  };
  for (Case each : cases) {
    SCOPED_TRACE(each.kind.name);
    each.kind.draw = drawQuarters;
    CaptureDelivery delivery;
    std::optional<std::int64_t> modifier;
    const auto picture = pictureOf(each.kind, &delivery, &modifier);
    EXPECT_EQ(delivery.memory, each.memory);
    EXPECT_EQ(modifier, each.modifier);
    EXPECT_EQ(pixelAt(picture, 0, 0), kRed);
    EXPECT_EQ(pixelAt(picture, 63, 23), kGreen);
    EXPECT_EQ(pixelAt(picture, 63, 47), kWhite);
  }
  for (const bool isDmaBuf : {false, true}) {
    const Kind planes = {.name = isDmaBuf ? "planes-of-device" : "planes",
                         .format = SPA_VIDEO_FORMAT_NV12,
                         .isDmaBuf = isDmaBuf,
                         .padding = 16,
                         .offset = 32,
                         .draw = drawRed};
    const Pixel pixel = pixelAt(pictureOf(planes), 63, 47);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(pixel.at(i), kRed.at(i), 3) << planes.name;
  }
  // What only a device can read is no camera of ours.
  const PipeWireProducer unreadable(
      {.name = "unreadable", .modifiers = {kTiled}, .isPlain = false, .draw = drawQuarters});
  const PipeWireProducer readable({.name = "readable", .draw = drawQuarters});
  awaited("pipewire:readable");
  EXPECT_EQ(CaptureDevice::deviceWithUniqueID("pipewire:unreadable"), nullptr);
}

TEST_F(PipeWireBuffersTest, ShowsThePartThatCountsTheRightWayUp) {
  connect();
  const spa_region part = {{20, 11}, {40, 26}};
  const auto cut = pictureOf({.name = "cut", .crop = part, .draw = drawQuarters});
  ASSERT_EQ(cut->width(), 40U);
  ASSERT_EQ(cut->height(), 26U);
  EXPECT_EQ(pixelAt(cut, 11, 12), kRed);
  EXPECT_EQ(pixelAt(cut, 12, 12), kGreen);
  EXPECT_EQ(pixelAt(cut, 11, 13), kBlue);
  EXPECT_EQ(pixelAt(cut, 12, 13), kWhite);
  const auto outside = pictureOf({.name = "outside", .crop = spa_region{{40, 0}, {40, 26}}, .draw = drawQuarters});
  EXPECT_EQ(outside->width(), 64U) << "no part of this picture";

  struct Case {
    std::uint32_t transform;
    Pixel topLeft;
    Pixel topRight;
  };
  // What was done to the buffer is undone: after a quarter counter-clockwise, its right edge was the top… of which the
  // left corner was below.
  const Case cases[] = {
      {SPA_META_TRANSFORMATION_90, kBlue, kRed},           {SPA_META_TRANSFORMATION_180, kWhite, kBlue},
      {SPA_META_TRANSFORMATION_270, kGreen, kWhite},       {SPA_META_TRANSFORMATION_Flipped, kGreen, kRed},
      {SPA_META_TRANSFORMATION_Flipped90, kRed, kBlue},    {SPA_META_TRANSFORMATION_Flipped180, kBlue, kWhite},
      {SPA_META_TRANSFORMATION_Flipped270, kWhite, kGreen}};
  for (const Case& each : cases) {
    SCOPED_TRACE(each.transform);
    const auto turned = pictureOf(
        {.name = "turned" + std::to_string(each.transform), .transform = each.transform, .draw = drawQuarters});
    ASSERT_EQ(turned->width(), each.transform % 2 == 1 ? 48U : 64U);
    EXPECT_EQ(pixelAt(turned, 2, 2), each.topLeft);
    EXPECT_EQ(pixelAt(turned, static_cast<int>(turned->width()) - 3, 2), each.topRight);
  }
}

TEST_F(PipeWireBuffersTest, DecodesH264) {
  connect();
  const H264Pictures stream(64, 48, 10);
  CaptureDelivery delivery;
  const auto picture = pictureOf({.name = "encoded",
                                  .isH264 = true,
                                  .draw =
                                      [&](std::size_t, std::uint8_t* bytes, std::size_t, std::uint32_t sequence) {
                                        const auto& one = stream.at(sequence % 10);
                                        std::copy(one.begin(), one.end(), bytes);
                                        return one.size();
                                      }},
                                 &delivery);
  EXPECT_EQ(delivery.format, "h264");
  const Pixel pixel = pixelAt(picture, 40, 40);
  int nearest = 255;
  for (std::size_t i = 0; i < 10; ++i) nearest = std::min(nearest, std::abs(pixel[1] - H264Pictures::grayOf(i)));
  EXPECT_LE(nearest, 4) << pixel[1];
  EXPECT_TRUE(pixel[0] == pixel[1] && pixel[1] == pixel[2]);
}

TEST_F(PipeWireBuffersTest, SetsTheControlsOfANode) {
  connect();
  constexpr std::uint32_t kBase = SPA_PROP_START_CUSTOM;
  constexpr std::uint32_t kLens = kBase + 77;
  const PipeWireProducer webcam({.name = "webcam",
                                 .properties = {{kBase + V4L2_CID_FOCUS_AUTO, "Focus, Automatic Continuous", {}},
                                                {kBase + V4L2_CID_EXPOSURE_AUTO, "Auto Exposure", {1, 1, 3}},
                                                {kBase + V4L2_CID_ZOOM_ABSOLUTE, "Zoom, Absolute", {100, 500}},
                                                {SPA_PROP_brightness, "Brightness", {0, 255}}},
                                 .draw = drawQuarters});
  const PipeWireProducer phone({.name = "phone", .properties = {{kLens, "AfMode", {0, 1, 2}}}, .draw = drawQuarters});
  const auto device = awaited("pipewire:webcam");
  EXPECT_EQ(device->activeFormat()->videoMaxZoomFactor, 5);
  EXPECT_TRUE(device->isExposureModeSupported(CaptureExposureMode::locked));
  EXPECT_TRUE(device->isFocusPointOfInterestSupported());
  EXPECT_FALSE(device->isTorchModeSupported(CaptureTorchMode::on));
  CameraBench bench(device, "64x48");
  bench.session->startRunning();
  bench.configure([](CaptureDevice& set) {
    set.setVideoZoomFactor(2);
    set.setExposureMode(CaptureExposureMode::locked);
    set.setFocusMode(CaptureFocusMode::locked);
  });
  EXPECT_EQ(device->digitalZoomFactor(), 1);
  const std::vector<std::pair<std::uint32_t, int>> wanted = {
      {kBase + V4L2_CID_ZOOM_ABSOLUTE, 200}, {kBase + V4L2_CID_EXPOSURE_AUTO, 1}, {kBase + V4L2_CID_FOCUS_AUTO, 0}};
  const auto hasAll = [&] {
    const auto settings = webcam.settings();
    return std::ranges::all_of(wanted, [&](const auto& one) { return std::ranges::count(settings, one) > 0; });
  };
  EXPECT_TRUE(eventually(hasAll)) << ::testing::PrintToString(webcam.settings());

  const auto lens = awaited("pipewire:phone");
  EXPECT_EQ(lens->activeFormat()->videoMaxZoomFactor, 4) << "enlarged afterwards";
  CameraBench other(lens, "64x48");
  other.session->startRunning();
  EXPECT_TRUE(eventually([&] { return std::ranges::count(phone.settings(), std::pair(kLens, 2)) > 0; }));
}

/// The video node behind a node of PipeWire.
class FakePort : public CaptureControlPort {
 public:
  explicit FakePort(std::shared_ptr<std::atomic<double>> zoom) : zoom_(std::move(zoom)) {}
  CaptureCapabilities capabilities() const override { return {.torchModes = {true, true, false}, .zoom = true}; }
  double largestZoom() const override { return 3; }
  void apply(CaptureControl control, const CaptureControls& controls) override {
    if (control == CaptureControl::zoom) *zoom_ = controls.zoomFactor;
  }

 private:
  const std::shared_ptr<std::atomic<double>> zoom_;
};

TEST_F(PipeWireBuffersTest, PrefersTheVideoNodeBehindANode) {
  const PipeWireProducer producer({.name = "node",
                                   .properties = {{SPA_PROP_START_CUSTOM + V4L2_CID_ZOOM_ABSOLUTE, "Zoom", {100, 500}}},
                                   .nodeProperties = {{"api.v4l2.path", "/dev/video7"}},
                                   .draw = drawQuarters});
  const auto zoom = std::make_shared<std::atomic<double>>(0);
  std::string opened;
  PipeWireBackend::Reach reach;
  reach.openControls = [&](const std::string& path) {
    opened = path;
    return std::make_unique<FakePort>(zoom);
  };
  CaptureSystem::shared().restartWith({std::make_shared<PipeWireBackend>(std::move(reach))},
                                      CaptureSystem::Synthetic::never);
  const auto device = awaited("pipewire:node");
  EXPECT_EQ(opened, "/dev/video7");
  EXPECT_TRUE(device->isTorchModeSupported(CaptureTorchMode::on));
  CameraBench bench(device, "64x48");
  bench.configure([](CaptureDevice& set) { set.setVideoZoomFactor(9); });
  EXPECT_EQ(*zoom, 3);
}

}  // namespace
}  // namespace tavrel::test
