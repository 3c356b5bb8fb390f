// Every layout of pictures that cameras of PipeWire may have, and cameras that change theirs, or have a range of sizes.
#include <gmock/gmock.h>
#include <spa/debug/types.h>
#include <spa/param/video/type-info.h>

#include <algorithm>

#include "PipeWireFixture.h"
#include "PipeWireProducer.h"
#include "Platform/Capture/CaptureDelivery.h"
#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/PipeWire/Private/PipeWireKnownFormats.h"
#include "Platform/Foundation/Notifications.h"
#include "Support/CameraLayouts.h"
#include "Support/CameraMatrix.h"
#include "Support/VirtualFrames.h"

namespace tavrel::test {
namespace {

using Kind = PipeWireProducer::Kind;

spa_video_format formatNamed(const std::string& name) {
  for (const spa_type_info* type = spa_type_video_format; type->name; ++type) {
    if (name == spa_debug_type_short_name(type->name)) return static_cast<spa_video_format>(type->type);
  }
  return SPA_VIDEO_FORMAT_UNKNOWN;
}

/// BGRx: the left half is red, the right one green.
void paintHalves(std::uint8_t* bytes, int width, int height, std::size_t stride) {
  for (int y = 0; y < height; ++y) {
    auto* row = bytes + static_cast<std::size_t>(y) * stride;
    for (int x = 0; x < width; ++x, row += 4) {
      row[0] = 0;
      row[1] = x < width / 2 ? 0 : 255;
      row[2] = x < width / 2 ? 255 : 0;
    }
  }
}

class PipeWireLayoutsTest : public PipeWireServiceTest {
 protected:
  static bool delivers(const CameraBench& camera) {
    camera.queue->sync([&] { camera.frames->clear(); });
    return eventually([&] { return camera.frames->count() >= 3; });
  }
  /// Whether the latest picture has the size, and both halves, where it has two.
  static bool shows(const CameraBench& camera, int width, int height) {
    const auto sample = camera.frames->latest();
    if (!sample) return false;
    const VirtualPicture picture(sample->imageBuffer());
    if (picture.width() != width || picture.height() != height) return false;
    const auto* left = picture.pixel(0, height - 1);
    const auto* right = picture.pixel(width - 1, 0);
    return (width == 1 || (left[2] == 255 && left[1] == 0)) && right[2] == 0 && right[1] == 255;
  }
};

TEST_F(PipeWireLayoutsTest, ReadsEveryLayoutAndRangeWithPaddedRows) {
  connect();
  for (const CameraLayout& layout : cameraLayouts()) {
    if (!layout.isInPipeWire) continue;
    const spa_video_format format = formatNamed(layout.name);
    const PipeWireKnownFormat* known = knownPipeWireFormat(SPA_MEDIA_SUBTYPE_raw, format);
    ASSERT_NE(known, nullptr) << layout.name;
    EXPECT_EQ(faultOfConversion(layout, {.layout = known->layout, .packed = known->packed}), "") << layout.name;
    for (const bool isLimited : {false, true}) {
      if (isLimited && layout.name != "BGRx" && layout.name != "GRAY8") continue;
      SCOPED_TRACE(layout.name + (isLimited ? ", limited" : ""));
      const LayoutPicture drawn(layout, 66, 46, FrameMatrix::bt601,
                                isLimited ? FrameRange::limited : FrameRange::unsaid, 16);
      const auto block = drawn.block();
      const PipeWireProducer producer(
          {.name = layout.name + (isLimited ? "-limited" : ""),
           .format = format,
           .width = 66,
           .height = 46,
           .rowBytes = drawn.planes()[0].bytesPerRow,
           .blockBytes = block.size(),
           .range = isLimited ? SPA_VIDEO_COLOR_RANGE_16_235 : SPA_VIDEO_COLOR_RANGE_UNKNOWN,
           .paint = [&](std::uint8_t* bytes, int, int, std::size_t) { std::ranges::copy(block, bytes); }});
      CameraBench camera(awaited("pipewire:" + layout.name + (isLimited ? "-limited" : "")), "66x46");
      camera.session->startRunning();
      ASSERT_TRUE(eventually([&] { return camera.frames->count() > 0; }))
          << camera.session->runtimeError().value_or(Error()).description
          << camera.device->delivery().value_or(CaptureDelivery()).description();
      camera.session->stopRunning();
      EXPECT_EQ(drawn.differenceOf(camera.frames->latest()->imageBuffer()), "");
      EXPECT_EQ(camera.device->delivery()->format, layout.name);
      if (HasFailure()) continue;
      recordCamera(
          {"PipeWire, played", layout.name + (isLimited ? ", limited range" : ""), "MemFd", "30", "padded rows"});
    }
  }
}

TEST_F(PipeWireLayoutsTest, FollowsACameraThatChangesItsPictures) {
  connect();
  PipeWireProducer producer({.name = "changing", .paint = paintHalves});
  CameraBench camera(awaited("pipewire:changing"), "64x48");
  const NotificationCounter errors(kCaptureSessionRuntimeErrorNotification, camera.session.get());
  camera.session->startRunning();
  ASSERT_TRUE(eventually([&] { return shows(camera, 64, 48); }))
      << camera.session->runtimeError().value_or(Error()).description;
  producer.change(SPA_VIDEO_FORMAT_BGRx, 96, 32);
  EXPECT_TRUE(eventually([&] { return shows(camera, 96, 32); }))
      << camera.session->runtimeError().value_or(Error()).description << camera.device->delivery()->description();
  EXPECT_EQ(camera.device->delivery()->dimensions, (CaptureVideoDimensions{96, 32}));
  recordCamera({"PipeWire, played", "BGRx", "MemFd", "30", "another size while it runs", "followed"});
  producer.change(SPA_VIDEO_FORMAT_BGRA, 32, 64);
  EXPECT_TRUE(eventually([&] { return shows(camera, 32, 64); }));
  EXPECT_EQ(camera.device->delivery()->format, "BGRA");
  EXPECT_EQ(errors.count(), 0);
  recordCamera({"PipeWire, played", "BGRx, then BGRA", "MemFd", "30", "another format while it runs", "followed"});
}

TEST_F(PipeWireLayoutsTest, OpensAnySizeOfARangeAndCamerasWithoutASteadyRate) {
  connect();
  struct Case {
    Kind kind;
    const char* preset;
    int width;
    int height;
    const char* what;
  };
  const std::vector<Case> cases = {
      {{.name = "range",
        .sizes = {{{16, 16}, {1000, 1000}, {0, 0}}},
        .rates = {{{0, 1}, {60, 1}}},
        .paint = paintHalves},
       "100x70",
       100,
       70,
       "BGRx, ranges of sizes and rates"},
      {{.name = "steps", .sizes = {{{16, 16}, {1024, 1024}, {16, 8}}}, .paint = paintHalves},
       "100x70",
       112,
       72,
       "BGRx, stepwise sizes"},
      {{.name = "variable", .framesPerSecond = 0, .mostPerSecond = 60, .paint = paintHalves},
       "64x48",
       64,
       48,
       "BGRx, no steady rate"},
      {{.name = "unsaid", .framesPerSecond = 0, .paint = paintHalves}, "64x48", 64, 48, "BGRx, no rate"},
      {{.name = "dot", .width = 1, .height = 1, .paint = paintHalves}, "64x48", 1, 1, "BGRx, 1x1"},
      {{.name = "wall", .width = 8192, .height = 4320, .framesPerSecond = 5, .paint = paintHalves},
       "64x48",
       8192,
       4320,
       "BGRx, 8192x4320"},
      {{.name = "fast", .framesPerSecond = 240, .paint = paintHalves}, "64x48", 64, 48, "BGRx, 240 a second"},
  };
  for (const Case& one : cases) {
    // A sanitizer takes longer for it than a camera may take to start.
    if (one.width > 4096 && patienceFactor() > 1) continue;
    SCOPED_TRACE(one.kind.name);
    const PipeWireProducer producer(one.kind);
    CameraBench camera(awaited("pipewire:" + one.kind.name), one.preset);
    camera.session->startRunning();
    ASSERT_TRUE(delivers(camera)) << camera.session->runtimeError().value_or(Error()).description;
    EXPECT_TRUE(shows(camera, one.width, one.height)) << camera.device->delivery()->description();
    const double rate = one.kind.framesPerSecond > 0 ? one.kind.framesPerSecond : 30;
    EXPECT_EQ(camera.device->delivery()->framesPerSecond, rate);
    if (!HasFailure()) recordCamera({"PipeWire, played", one.what, "MemFd", std::to_string(static_cast<int>(rate))});
  }
}

TEST_F(PipeWireLayoutsTest, SaysWhichPicturesItCannotRead) {
  connect();
  const auto said = [] {
    const auto found = CaptureDevice::deviceNamed("front", MediaType::video);
    return found ? "" : found.error().description;
  };
  {
    // GStreamer's name for it is unknown to PipeWire.
    const auto nameless = service_.startCamera("nameless", "format=GRAY10_LE32,width=64,height=48,framerate=30/1");
    EXPECT_TRUE(eventually([&] { return said().find("Bars-nameless has only pictures") == 0; })) << said();
    EXPECT_THAT(said(), ::testing::HasSubstr("(one without a name)"));
  }
  const PipeWireProducer raw({.name = "raw",
                              .format = SPA_VIDEO_FORMAT_v210,
                              .nodeProperties = {{"node.description", "Raw sensor"}},
                              .paint = paintHalves});
  constexpr const char* kWanted =
      "Raw sensor has only pictures that cannot be read (v210); Y Cb Cr, RGB, gray, MJPEG and H.264 can";
  EXPECT_TRUE(eventually([&] { return said() == kWanted; })) << said();
  EXPECT_EQ(CaptureDevice::deviceNamed("front", MediaType::video).error(), CaptureErrorCode::unsupportedFormat);
  recordCamera({"PipeWire, played", "v210", "-", "-", "no format that is read", "said, with its name"});
  const PipeWireProducer good({.name = "good", .paint = paintHalves});
  awaited("pipewire:good");
  EXPECT_TRUE(CaptureDevice::deviceNamed("front", MediaType::video).has_value());
}

}  // namespace
}  // namespace tavrel::test
