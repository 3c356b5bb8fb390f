#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <numbers>

#include "PipeWireFixture.h"
#include "Platform/Capture/CaptureDelivery.h"
#include "Platform/Capture/CaptureError.h"
#include "Platform/Foundation/Notifications.h"
#include "Platform/Media/AudioSession.h"
#include "Support/CameraMatrix.h"
#include "Support/ToneTestSupport.h"
#include "Support/VirtualFrames.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;

/// A camera and a microphone that other programs play.
class PipeWireTest : public PipeWireServiceTest {
 protected:
  static bool delivers(const CameraBench& camera) {
    camera.queue->sync([&] { camera.frames->clear(); });
    return eventually([&] { return camera.frames->count() >= 3; });
  }
  /// Colour bars: white, yellow, cyan, green, magenta, red, blue from left to right.
  static void expectBars(const FrameCollector& frames, int width, int height) {
    const VirtualPicture picture(frames.latest()->imageBuffer());
    ASSERT_EQ(picture.width(), width);
    ASSERT_EQ(picture.height(), height);
    const auto bar = [&](int number) { return picture.pixel(width * (2 * number + 1) / 14, height / 4); };
    const std::array<std::array<int, 3>, 7> colors = {
        {{1, 1, 1}, {0, 1, 1}, {1, 1, 0}, {0, 1, 0}, {1, 0, 1}, {0, 0, 1}, {1, 0, 0}}};
    for (int number = 0; number < 7; ++number) {
      for (int i = 0; i < 3; ++i) {
        const int wanted = colors[static_cast<std::size_t>(number)][static_cast<std::size_t>(i)] * 255;
        EXPECT_NEAR(bar(number)[i], wanted, 12) << "bar " << number << " component " << i;
      }
    }
  }
  std::filesystem::path toneFile(double frequency, double seconds) const {
    auto path = service_.folder() / "tone.wav";
    const auto count = static_cast<std::uint32_t>(48000 * seconds);
    std::ofstream file(path, std::ios::binary);
    const auto put = [&](auto value) { file.write(reinterpret_cast<const char*>(&value), sizeof value); };
    file << "RIFF";
    put(36 + count * 2);
    file << "WAVEfmt ";
    put(std::uint32_t{16});
    put(std::uint16_t{1});
    put(std::uint16_t{1});
    put(std::uint32_t{48000});
    put(std::uint32_t{96000});
    put(std::uint16_t{2});
    put(std::uint16_t{16});
    file << "data";
    put(count * 2);
    for (std::uint32_t i = 0; i < count; ++i) {
      put(static_cast<std::int16_t>(std::lround(16384 * std::sin(2 * std::numbers::pi * frequency * i / 48000))));
    }
    return path;
  }
};

TEST_F(PipeWireTest, ShowsCamerasAndTheirPicturesInEveryLayout) {
  const auto front =
      service_.startCamera("one", "format=BGRA,width=320,height=240,framerate=30/1", ",api.libcamera.location=front");
  const auto back = service_.startCamera("two", "format=YUY2,width=640,height=480,framerate=15/1",
                                         ",api.libcamera.location=back,api.libcamera.rotation=180");
  const auto third = service_.startCamera("three", "format=NV12,width=320,height=240,framerate=30/1");
  const auto fourth = service_.startCamera("four", "format=I420,width=320,height=240,framerate=30/1");
  connect();
  const auto camera = awaited("pipewire:one");
  EXPECT_EQ(camera->localizedName(), "Bars-one");
  EXPECT_EQ(camera->position(), CaptureDevicePosition::front);
  EXPECT_EQ(camera->backendName(), "pipewire");
  ASSERT_EQ(camera->formats().size(), 1U);
  EXPECT_EQ(camera->formats()[0]->dimensions, (CaptureVideoDimensions{320, 240}));
  const auto other = awaited("pipewire:two");
  EXPECT_EQ(other->position(), CaptureDevicePosition::back);
  EXPECT_DOUBLE_EQ(other->activeFormat()->videoSupportedFrameRateRanges[0].maxFrameRate, 15);
  ASSERT_EQ((awaited("pipewire:three"), awaited("pipewire:four"),
             CaptureDevice::devicesWithMediaType(MediaType::video).size()),
            4U);
  for (const char* name : {"one", "three", "four"}) {
    SCOPED_TRACE(name);
    CameraBench bench(device(std::string("pipewire:") + name));
    bench.session->startRunning();
    ASSERT_FALSE(bench.session->runtimeError().has_value()) << bench.session->runtimeError()->description;
    ASSERT_TRUE(delivers(bench));
    ASSERT_TRUE(eventually([&] { return bench.frames->count() >= 10; }));
    bench.session->stopRunning();
    expectBars(*bench.frames, 320, 240);
    const auto times = bench.frames->times();
    EXPECT_GT((times[9] - times[0]).seconds(), 0.15);
    EXPECT_LT((times[9] - times[0]).seconds(), 1.5);
    EXPECT_LT(std::abs((CaptureClock::realTime()->now() - times.back()).seconds()), 5);
  }
  // The second is mounted upside down, and stands upright in what it delivers: turned by half.
  CameraBench bench(other);
  bench.session->startRunning();
  ASSERT_TRUE(delivers(bench));
  const VirtualPicture picture(bench.frames->latest()->imageBuffer());
  ASSERT_EQ(picture.width(), 640);
  EXPECT_GT(picture.pixel(60, 400)[0], 170) << "blue, the last bar, has become the first";
  EXPECT_LT(picture.pixel(60, 400)[1], 30);
}

TEST_F(PipeWireTest, ReadsTheRarerLayouts) {
  constexpr std::array kLayouts = {"RGB",       "BGR",   "YV12",      "NV21", "NV16", "YVYU", "P010_10LE",
                                   "I420",      "GRAY8", "NV61",      "NV24", "Y42B", "Y444", "ARGB",
                                   "I420_10LE", "RGB16", "GRAY16_LE", "AYUV", "UYVY"};
  // Of odd sides, which leave rows of most of them padded.
  std::vector<std::unique_ptr<PeerProcess>> programs;
  for (const char* layout : kLayouts) {
    programs.push_back(
        service_.startCamera(layout, std::string("format=") + layout + ",width=163,height=121,framerate=15/1"));
  }
  connect();
  // A GStreamer that is opened while it starts never does.
  for (const char* layout : kLayouts) ASSERT_NE(awaited(std::string("pipewire:") + layout), nullptr);
  for (const char* layout : kLayouts) {
    SCOPED_TRACE(layout);
    CameraBench bench(device(std::string("pipewire:") + layout), "163x121");
    bench.session->startRunning();
    ASSERT_TRUE(delivers(bench)) << bench.session->runtimeError().value_or(Error()).description;
    bench.session->stopRunning();
    EXPECT_EQ(bench.device->delivery()->format, layout);
    if (!std::string_view(layout).starts_with("GRAY")) {
      expectBars(*bench.frames, 163, 121);
      if (!HasFailure()) recordCamera({"PipeWire, GStreamer", layout, bench.device->delivery()->memory, "15"});
      continue;
    }
    const VirtualPicture gray(bench.frames->latest()->imageBuffer());
    for (int bar = 1; bar < 7; ++bar) {
      const auto before = gray.pixel(163 * (2 * bar - 1) / 14, 30);
      const auto pixel = gray.pixel(163 * (2 * bar + 1) / 14, 30);
      EXPECT_LT(pixel[1], before[1]) << "each bar is darker";
      EXPECT_TRUE(pixel[0] == pixel[1] && pixel[1] == pixel[2]);
    }
    // GStreamer calls that full range, and draws white of 235.
    EXPECT_NEAR(gray.pixel(5, 30)[1], 235, 1);
    if (!HasFailure()) recordCamera({"PipeWire, GStreamer", layout, bench.device->delivery()->memory, "15"});
  }
}

TEST_F(PipeWireTest, TellsTwinsApartAndTakesOnlyCameras) {
  constexpr const char* kSmall = "format=BGRA,width=320,height=240,framerate=30/1";
  const auto first = service_.startCamera("twin", kSmall);
  const auto screen = service_.startCamera("screen", kSmall, "", "Screen");
  connect();
  const auto camera = awaited("pipewire:twin");
  const auto second = service_.startCamera("twin", "format=I420,width=640,height=480,framerate=30/1");
  const auto twin = awaited("pipewire:twin#2");
  EXPECT_EQ(camera->localizedName(), twin->localizedName());
  EXPECT_EQ(CaptureDevice::deviceNamed("pipewire:twin#2", MediaType::video).value(), twin);
  // Its node was there before that of the twin.
  EXPECT_EQ(CaptureDevice::devicesWithMediaType(MediaType::video), (std::vector{camera, twin}));
  for (const auto& [device, width, height] : {std::tuple(camera, 320, 240), std::tuple(twin, 640, 480)}) {
    CameraBench bench(device, "640x480");
    bench.session->startRunning();
    ASSERT_TRUE(delivers(bench)) << bench.session->runtimeError().value_or(Error()).description;
    expectBars(*bench.frames, width, height);
  }
  const auto delivery = twin->delivery();
  ASSERT_TRUE(delivery.has_value());
  EXPECT_THAT(delivery->description(), ::testing::StartsWith("I420 640x480, 30 frames a second, Mem"));
}

TEST_F(PipeWireTest, SaysThatTheServiceHangs) {
  service_.suspend(true);
  connect();
  const auto camera = CaptureDevice::deviceNamed("front", MediaType::video);
  const auto microphone = CaptureDevice::deviceNamed("default", MediaType::audio);
  service_.suspend(false);
  for (const auto& device : {camera, microphone}) {
    ASSERT_FALSE(device.has_value()) << (*device)->uniqueID();
    EXPECT_EQ(device.error(), CaptureErrorCode::deviceSilent);
    EXPECT_THAT(device.error().description, ::testing::HasSubstr("the PipeWire service does not answer"));
  }
  EXPECT_TRUE(eventually([] {
    return CaptureDevice::deviceNamed("front", MediaType::video).error() == CaptureErrorCode::noSuchDevice;
  })) << "it answers again";
}

TEST_F(PipeWireTest, GoesOnWhenTheCameraDiesAndFindsItAgain) {
  auto program = service_.startCamera("cam", "format=BGRA,width=320,height=240,framerate=30/1");
  connect();
  const auto camera = awaited("pipewire:cam");
  CameraBench bench(camera);
  const NotificationCounter errors(kCaptureSessionRuntimeErrorNotification, bench.session.get());
  const NotificationCounter recoveries(kCaptureSessionDidRecoverNotification, bench.session.get());
  bench.session->startRunning();
  ASSERT_TRUE(delivers(bench));
  program->kill();
  ASSERT_TRUE(eventually([&] { return errors.count() == 1 && !camera->isConnected(); }));
  EXPECT_TRUE(bench.session->isRunning());
  EXPECT_TRUE(CaptureDevice::devicesWithMediaType(MediaType::video).empty());
  program = service_.startCamera("cam", "format=BGRA,width=320,height=240,framerate=30/1");
  ASSERT_TRUE(eventually([&] { return recoveries.count() > 0; }, 60s));
  EXPECT_EQ(device("pipewire:cam"), camera);
  ASSERT_TRUE(delivers(bench));
  expectBars(*bench.frames, 320, 240);
  // One each; on a busy machine the other program may pause for so long that it counts as frozen in between.
  EXPECT_TRUE(eventually([&] { return errors.count() == recoveries.count(); }));
}

TEST_F(PipeWireTest, HearsMicrophonesAndMonitors) {
  ASSERT_TRUE(runCommand("pactl load-module module-null-sink sink_name=hall rate=48000"));
  ASSERT_TRUE(runCommand("pactl load-module module-remap-source master=hall.monitor source_name=desk"));
  ASSERT_TRUE(eventually([] { return runCommand("pactl set-default-source desk"); }));
  connect();
  const auto monitor = awaited("pipewire:hall.monitor");
  const auto microphone = awaited("pipewire:desk");
  ASSERT_TRUE(eventually([&] { return CaptureDevice::defaultDeviceWithMediaType(MediaType::audio) == microphone; }))
      << "a monitor is nobody's default";
  const auto tone = toneFile(440, 60);
  const PeerProcess player("exec paplay --device=hall " + tone.string());
  for (const auto& source : {monitor, microphone}) {
    SCOPED_TRACE(source->uniqueID());
    const auto session = CaptureSession::create();
    const auto output = CaptureAudioDataOutput::create();
    const auto sound = std::make_shared<SoundCollector>();
    const auto queue = DispatchQueue::create("test.sound");
    output->setSampleBufferDelegate(sound, queue);
    session->addInput(CaptureDeviceInput::create(source).value());
    session->addOutput(output);
    session->startRunning();
    ASSERT_FALSE(session->runtimeError().has_value()) << session->runtimeError()->description;
    const auto isLoud = [&] {
      const auto channels = output->connectionWithMediaType(MediaType::audio)->audioChannels();
      return !channels.empty() && channels[0]->averagePowerLevel() > -12;
    };
    ASSERT_TRUE(eventually(isLoud));
    // A dozen of the service's buffers with nothing missing. Breaks before are its own: a loaded machine wakes it late.
    ASSERT_TRUE(eventually([&] { return sound->count() >= 48000 && longestTone(sound->samples(), 440) >= 12000; }));
    session->stopRunning();
    queue->sync([] {});
    const auto samples = sound->samples();
    const float greatest = *std::ranges::max_element(samples);
    EXPECT_NEAR(greatest, 0.5, 0.05);
    EXPECT_EQ(AudioSession::shared().sampleRate(), 48000);
    EXPECT_LT(std::abs((CaptureClock::realTime()->now() - sound->start()).seconds()), 60);
  }
}

TEST_F(PipeWireTest, SurvivesTheEndOfTheService) {
  auto program = service_.startCamera("cam", "format=BGRA,width=320,height=240,framerate=30/1");
  connect();
  const auto camera = awaited("pipewire:cam");
  CameraBench bench(camera);
  const NotificationCounter resets(kAudioSessionMediaServicesWereResetNotification);
  const NotificationCounter recoveries(kCaptureSessionDidRecoverNotification, bench.session.get());
  bench.session->startRunning();
  ASSERT_TRUE(delivers(bench));
  service_.stop();
  program->kill();
  ASSERT_TRUE(eventually([&] { return !camera->isConnected() && bench.session->runtimeError(); }));
  ASSERT_TRUE(service_.start());
  program = service_.startCamera("cam", "format=BGRA,width=320,height=240,framerate=30/1");
  ASSERT_TRUE(eventually([&] { return resets.count() >= 1; })) << resets.count();
  ASSERT_TRUE(eventually([&] { return recoveries.count() >= 1; }))
      << recoveries.count() << bench.session->runtimeError()->description;
  ASSERT_TRUE(delivers(bench));

  // Without any service everything answers at once.
  bench.session->stopRunning();
  service_.stop();
  const auto began = std::chrono::steady_clock::now();
  connect();
  EXPECT_TRUE(CaptureDevice::devicesWithMediaType(MediaType::video).empty());
  EXPECT_EQ(CaptureDevice::defaultDeviceWithMediaType(MediaType::audio), nullptr);
  EXPECT_LT(std::chrono::steady_clock::now() - began, 3s);
}

}  // namespace
}  // namespace tavrel::test
