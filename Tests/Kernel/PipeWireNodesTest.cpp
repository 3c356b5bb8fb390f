// The nodes that PipeWire and its session manager make of the kernel's cameras and sound cards.
#include <algorithm>
#include <thread>

#include "KernelTestSupport.h"
#include "Support/CapturePeers.h"
#include "Support/ToneTestSupport.h"

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

// What is played into one side of the loopback card (snd-aloop) is heard at the other.
TEST_F(PipeWireNodesTest, HearASoundCardsTone) {
  // WirePlumber 0.4.13 on a slow machine now and then shows a card without its profiles, and so without its nodes, for
  // good; begun anew it finds them.
  const auto isSwitchedOn = [] {
    return runCommand(
        "for i in {1..40}; do pactl set-card-profile alsa_card.platform-snd_aloop.0 "
        "output:analog-stereo+input:analog-stereo && exit; sleep 0.5; done; exit 1");
  };
  for (int tries = 3; !isSwitchedOn(); --tries) {
    ASSERT_GT(tries, 0) << "the card has no profiles";
    service_.stop();
    ASSERT_TRUE(service_.start());
  }
  const auto microphone = awaited("alsa_input");
  const PeerProcess player(
      "exec ffmpeg -v error -re -f lavfi -i sine=frequency=440:sample_rate=48000 -ac 2 -f alsa plughw:Loopback,1");
  const auto session = CaptureSession::create();
  const auto output = CaptureAudioDataOutput::create();
  const auto sound = std::make_shared<SoundCollector>();
  const auto queue = DispatchQueue::create("test.sound");
  output->setSampleBufferDelegate(sound, queue);
  session->addInput(CaptureDeviceInput::create(microphone).value());
  session->addOutput(output);
  session->startRunning();
  ASSERT_FALSE(session->runtimeError().has_value()) << session->runtimeError()->description;
  // 100 ms without a break are enough: translated code may leave holes. How loud is the session manager's affair.
  float greatest = 0;
  const bool isHeard = eventually([&] {
    sound->clear();
    std::this_thread::sleep_for(std::chrono::seconds(2));
    auto samples = sound->samples();
    greatest = samples.empty() ? 0 : *std::ranges::max_element(samples);
    for (float& sample : samples) sample *= greatest > 0.003F ? 0.5F / greatest : 0;
    return longestTone(samples, 440) >= 4800;
  });
  session->stopRunning();
  queue->sync([] {});
  EXPECT_TRUE(isHeard) << "samples up to " << greatest;
  if (!HasFailure()) recordCamera({"PipeWire's ALSA nodes, snd-aloop", "F32, sound", "-", "-", "none", "its tone"});
}

}  // namespace
}  // namespace tavrel::test
