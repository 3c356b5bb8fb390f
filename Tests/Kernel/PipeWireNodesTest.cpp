// The nodes that PipeWire and its session manager make of the kernel's cameras.
#include "KernelTestSupport.h"
#include "Support/CapturePeers.h"

namespace tavrel::test {
namespace {

class PipeWireNodesTest : public KernelTest {
 protected:
  void SetUp() override {
    ASSERT_TRUE(service_.start()) << "no service";
    use("pipewire");
  }
  PipeWireService service_;
};

TEST_F(PipeWireNodesTest, ShowAVideoNodesPictures) {
  setNodeControl("/dev/video0", "Test Pattern", 1);
  setNodeControl("/dev/video0", "OSD Text Mode", 2);
  const auto camera = awaited("v4l2_input.platform-vivid");
  EXPECT_THAT(camera->localizedName(), ::testing::HasSubstr("vivid"));
  CameraBench bench(camera, "320x180");
  bench.configure([](CaptureDevice& device) {
    device.setActiveVideoMinFrameDuration(MediaTime::make(1, 10));
    device.setActiveVideoMaxFrameDuration(MediaTime::make(1, 10));
  });
  bench.session->startRunning();
  ASSERT_TRUE(delivers(bench)) << bench.session->runtimeError().value_or(Error()).description;
  const VirtualPicture picture(bench.frames->latest()->imageBuffer());
  ASSERT_EQ(picture.width(), 320);
  ASSERT_EQ(picture.height(), 180);
  // Of the bars: white, yellow, green, red, blue.
  for (const auto& [bar, b, g, r] : {std::tuple(0, 255, 255, 255), std::tuple(1, 0, 255, 255), std::tuple(3, 0, 255, 0),
                                     std::tuple(5, 0, 0, 255), std::tuple(6, 255, 0, 0)}) {
    const auto* pixel = picture.pixel(320 * (2 * bar + 1) / 16, 135);
    EXPECT_NEAR(pixel[0], b, 8) << bar;
    EXPECT_NEAR(pixel[1], g, 8) << bar;
    EXPECT_NEAR(pixel[2], r, 8) << bar;
  }
  const auto delivery = *camera->delivery();
  EXPECT_EQ(delivery.framesPerSecond, 10);
  if (!HasFailure()) recordCamera({"PipeWire's V4L2 nodes, vivid", delivery.format, delivery.memory, "10"});
}

}  // namespace
}  // namespace tavrel::test
