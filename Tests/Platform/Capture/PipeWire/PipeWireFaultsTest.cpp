// Cameras of PipeWire that do what they should not: with their buffers, their stamps and their time.
#include <gmock/gmock.h>

#include <cmath>

#include "PipeWireFixture.h"
#include "PipeWireProducer.h"
#include "Platform/Capture/CaptureDelivery.h"
#include "Platform/Foundation/Notifications.h"
#include "Support/CameraMatrix.h"
#include "Support/VirtualFrames.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;
using Kind = PipeWireProducer::Kind;
using ::testing::HasSubstr;

/// BGRx: black above, white below.
void paintGround(std::uint8_t* bytes, int width, int height, std::size_t stride) {
  for (int y = 0; y < height; ++y) {
    std::fill_n(bytes + static_cast<std::size_t>(y) * stride, width * 4, y < height / 2 ? 0 : 255);
  }
}

std::int64_t monotonicNow() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

class PipeWireFaultsTest : public PipeWireServiceTest {
 protected:
  static Kind kind(const char* name, decltype(Kind::spoil) spoil) {
    return {.name = name, .paint = paintGround, .spoil = std::move(spoil)};
  }
  static void expectUpright(const CameraBench& camera) {
    const VirtualPicture picture(camera.frames->latest()->imageBuffer());
    EXPECT_EQ(picture.pixel(5, 5)[1], 0);
    EXPECT_EQ(picture.pixel(5, picture.height() - 5)[1], 255);
  }
};

TEST_F(PipeWireFaultsTest, SaysWhyBuffersAreLostAndGoesOn) {
  connect();
  struct Case {
    const char* name;
    const char* fault;
    const char* said;
    std::function<void(spa_data& data, spa_meta_header& header)> spoil;
  };
  const Case cases[] = {
      {"empty", "empty buffers", "a buffer came empty", [](spa_data& data, auto&) { data.chunk->size = 0; }},
      {"short", "short buffers", "a picture is cut short: 100 bytes of 12288",
       [](spa_data& data, auto&) { data.chunk->size = 100; }},
      {"wide", "a stride beyond the buffer", "a picture is cut short: 12288 bytes of",
       [](spa_data& data, auto&) { data.chunk->stride = 1 << 20; }},
      {"widest", "the greatest stride", "a picture is cut short: 12288 bytes of",
       [](spa_data& data, auto&) { data.chunk->stride = INT32_MIN; }},
      {"beyond", "an offset beyond the buffer", "a buffer came empty",
       [](spa_data& data, auto&) { data.chunk->offset = UINT32_MAX; }},
      {"marked", "chunks marked as corrupted", "a picture came damaged",
       [](spa_data& data, auto&) { data.chunk->flags = SPA_CHUNK_FLAG_CORRUPTED; }},
      {"headed", "headers marked as corrupted", "a picture came damaged",
       [](spa_data&, spa_meta_header& header) { header.flags = SPA_META_HEADER_FLAG_CORRUPTED; }},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    // Two of three are right.
    PipeWireProducer producer(kind(one.name, [&](spa_buffer& buffer, spa_meta_header& header, std::uint32_t sequence) {
      if (sequence % 3 == 0) one.spoil(buffer.datas[0], header);
    }));
    CameraBench camera(awaited(std::string("pipewire:") + one.name), "64x48");
    camera.session->startRunning();
    EXPECT_TRUE(eventually([&] { return camera.frames->count() >= 6 && camera.data->droppedFrames() >= 2; }))
        << camera.session->runtimeError().value_or(Error()).description;
    EXPECT_THAT(camera.device->delivery()->loss, HasSubstr(one.said));
    expectUpright(camera);
    if (!HasFailure()) {
      recordCamera(
          {"PipeWire, played", "BGRx", "MemFd", "30", one.fault, std::string("\"") + one.said + "\", goes on"});
    }
  }
}

TEST_F(PipeWireFaultsTest, ShowsRowsFromTheBottomUpTheRightWayUp) {
  connect();
  // By where the block begins, and by where the picture's first row does.
  for (const bool beginsAtLast : {false, true}) {
    const std::string name = beginsAtLast ? "last" : "first";
    const PipeWireProducer producer({.name = name,
                                     .paint =
                                         [](std::uint8_t* bytes, int width, int height, std::size_t stride) {
                                           for (int y = 0; y < height; ++y) {
                                             std::fill_n(bytes + static_cast<std::size_t>(y) * stride, width * 4,
                                                         y < height / 2 ? 255 : 0);
                                           }
                                         },
                                     .spoil =
                                         [=](spa_buffer& buffer, auto&, auto) {
                                           auto& chunk = *buffer.datas[0].chunk;
                                           chunk.stride = -chunk.stride;
                                           if (!beginsAtLast) return;
                                           chunk.offset = 47 * 256;
                                           chunk.size = 256;
                                         }});
    CameraBench camera(awaited("pipewire:" + name), "64x48");
    camera.session->startRunning();
    ASSERT_TRUE(eventually([&] { return camera.frames->count() >= 2; })) << camera.device->delivery()->description();
    expectUpright(camera);
  }
  recordCamera({"PipeWire, played", "BGRx", "MemFd", "30", "a negative stride", "upright"});
}

TEST_F(PipeWireFaultsTest, BelievesNoStampThatCannotBeTrue) {
  connect();
  struct Case {
    const char* name;
    const char* fault;
    bool isStamped;
    std::function<std::int64_t(std::uint32_t sequence)> stamp;
  };
  const std::int64_t start = monotonicNow();
  const Case cases[] = {
      {"good", "none", true, [](auto) { return monotonicNow() - 40'000'000; }},
      {"none", "no stamps", false, [](auto) { return 0; }},
      {"negative", "stamps of -1", false, [](auto) { return -1; }},
      {"calendar", "stamps of the calendar's clock", false,
       [](auto) { return std::chrono::system_clock::now().time_since_epoch().count(); }},
      {"own", "stamps from the stream's start on", false, [](std::uint32_t n) { return 1'000'000 + n * 33'333'333LL; }},
      {"standing", "stamps that stand still", false, [=](auto) { return start; }},
      {"leaping", "stamps that leap forwards", false,
       [](std::uint32_t n) { return monotonicNow() - (n % 2 == 0 ? 8'000'000'000 : 0); }},
      {"falling", "stamps that leap backwards", false,
       [](std::uint32_t n) { return monotonicNow() - (n % 2 == 0 ? 0 : 8'000'000'000); }},
      {"backward", "stamps that go backwards", false, [=](std::uint32_t n) { return start - n * 33'333'333LL; }},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    PipeWireProducer producer(kind(
        one.name, [&](auto&, spa_meta_header& header, std::uint32_t sequence) { header.pts = one.stamp(sequence); }));
    CameraBench camera(awaited(std::string("pipewire:") + one.name), "64x48");
    camera.session->startRunning();
    ASSERT_TRUE(eventually([&] { return camera.frames->count() >= 12; }));
    EXPECT_EQ(camera.device->delivery()->isStamped, one.isStamped);
    camera.session->stopRunning();
    camera.queue->sync([] {});
    const auto times = camera.frames->times();
    EXPECT_LT(std::abs((CaptureClock::realTime()->now() - times.back()).seconds()), 2);
    EXPECT_LT((times.back() - times.front()).seconds(), 7);
    // The first one may have been believed.
    for (std::size_t i = 2; i < times.size(); ++i) EXPECT_GT(times[i], times[i - 1]) << i;
    if (!HasFailure()) {
      recordCamera({"PipeWire, played", "BGRx", "MemFd", "30", one.fault,
                    one.isStamped ? "its picture, at its stamps" : "its picture, at the time that it comes"});
    }
  }
}

TEST_F(PipeWireFaultsTest, OutlastsAPauseOfTenSeconds) {
  connect();
  PipeWireProducer producer({.name = "pausing", .paint = paintGround});
  CameraBench camera(awaited("pipewire:pausing"), "64x48");
  const NotificationCounter errors(kCaptureSessionRuntimeErrorNotification, camera.session.get());
  const NotificationCounter recoveries(kCaptureSessionDidRecoverNotification, camera.session.get());
  camera.session->startRunning();
  ASSERT_TRUE(eventually([&] { return camera.frames->count() >= 3; }));
  producer.pause(true);
  const auto paused = std::chrono::steady_clock::now();
  ASSERT_TRUE(eventually([&] { return errors.count() > 0; }));
  EXPECT_EQ(camera.session->runtimeError()->description, "pausing has delivered no picture for 4 seconds");
  EXPECT_TRUE(camera.session->isRunning());
  std::this_thread::sleep_until(paused + 10s);
  const auto before = camera.frames->count();
  producer.pause(false);
  EXPECT_TRUE(eventually([&] { return camera.frames->count() >= before + 3; }));
  EXPECT_TRUE(eventually([&] { return recoveries.count() > 0 && !camera.session->runtimeError(); }));
  expectUpright(camera);
  recordCamera({"PipeWire, played", "BGRx", "MemFd", "30", "a pause of 10 seconds", "said, and goes on"});
}

TEST_F(PipeWireFaultsTest, KeepsNamesThatAreLongOrNoText) {
  connect();
  const std::string longName(300, 'n');
  const PipeWireProducer first({.name = longName, .paint = paintGround});
  const PipeWireProducer second(
      {.name = "no-text", .nodeProperties = {{"node.description", "Caf\xE9 \x1B[31m\n"}}, .paint = paintGround});
  for (const std::string& name : {longName, std::string("no-text")}) {
    const auto device = awaited("pipewire:" + name);
    CameraBench camera(device, "64x48");
    camera.session->startRunning();
    ASSERT_TRUE(eventually([&] { return camera.frames->count() >= 2; }))
        << camera.session->runtimeError().value_or(Error()).description;
  }
  EXPECT_EQ(device("pipewire:" + longName)->localizedName(), longName);
  EXPECT_EQ(device("pipewire:no-text")->localizedName(), "Caf\xEF\xBF\xBD  [31m ");
  recordCamera({"PipeWire, played", "BGRx", "MemFd", "30", "a name of 300 bytes; one that is no text", "its picture"});
}

}  // namespace
}  // namespace tavrel::test
