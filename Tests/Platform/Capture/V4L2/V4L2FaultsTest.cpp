// Cameras that may not be opened, do not start, go away or freeze, and those that stand in for them.
#include <thread>

#include "Platform/Capture/CaptureDelivery.h"
#include "Platform/Capture/CaptureError.h"
#include "Platform/Foundation/Notifications.h"
#include "Support/CameraMatrix.h"
#include "Support/VirtualFrames.h"
#include "V4L2TestSupport.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;
using V4L2FaultsTest = V4L2Test;
using ::testing::HasSubstr;

TEST_F(V4L2FaultsTest, SaysWhyACameraCannotBeOpened) {
  const auto node = addNode(0);
  start();
  const auto device = cameras().at(0);
  CameraBench camera(device, "64x48");
  const auto reason = [&](int openErrno, int formatErrno) {
    node->setBusy(openErrno, formatErrno);
    camera.session->startRunning();
    const auto error = camera.session->runtimeError();
    camera.session->stopRunning();
    return error ? error->description : std::string();
  };
  EXPECT_THAT(reason(EACCES, 0), HasSubstr("permission denied, join group video"));
  const auto refused = CaptureDeviceInput::create(device);
  ASSERT_FALSE(refused.has_value());
  EXPECT_EQ(refused.error(), CaptureErrorCode::permissionDenied);
  EXPECT_EQ(reason(0, EBUSY), "Fake camera is used by another program");
  EXPECT_EQ(reason(0, 0), "");
}

TEST_F(V4L2FaultsTest, SurvivesUnpluggingStallsAndLastingErrorsAndFindsTheCameraAgain) {
  const auto node = addNode(0);
  node->draw = drawNumber;
  start();
  const auto device = cameras().at(0);
  CameraBench camera(device, "64x48");
  const NotificationCounter errors(kCaptureSessionRuntimeErrorNotification, camera.session.get());
  const NotificationCounter recoveries(kCaptureSessionDidRecoverNotification, camera.session.get());
  camera.session->startRunning();
  ASSERT_TRUE(eventually([&] { return camera.frames->count() > 2; }));

  node->unplug();
  ASSERT_TRUE(eventually([&] { return errors.count() == 1; }));
  std::filesystem::remove(pathOf(0));
  ASSERT_TRUE(eventually([&] { return !device->isConnected(); }));
  EXPECT_TRUE(cameras().empty());
  node->plugIn();
  createFile(0);
  ASSERT_TRUE(eventually([&] { return recoveries.count() == 1; }));
  EXPECT_EQ(cameras(), std::vector{device});

  node->failDequeues(100, EIO);
  ASSERT_TRUE(eventually([&] { return errors.count() == 2; }));
  ASSERT_TRUE(eventually([&] { return node->failDequeues(0, 0), recoveries.count() == 2; }));

  node->setStalled(true);
  ASSERT_TRUE(eventually([&] { return errors.count() == 3; }));
  node->setStalled(false);
  ASSERT_TRUE(eventually([&] { return recoveries.count() == 3; }));
  // Stopping does not wait for a camera that gives nothing.
  node->setStalled(true);
  const auto began = std::chrono::steady_clock::now();
  camera.session->stopRunning();
  EXPECT_LT(std::chrono::steady_clock::now() - began, 1s);
}

TEST_F(V4L2FaultsTest, SyntheticDevicesStandInOnlyWhereThereIsNoRealOneAtAll) {
  const auto namesOf = [](MediaType mediaType) {
    std::string names;
    for (const auto& device : CaptureDevice::devicesWithMediaType(mediaType)) names += device->uniqueID() + " ";
    return names;
  };
  constexpr auto kWithoutRealOnes = CaptureSystem::Synthetic::withoutRealOnes;
  start(kWithoutRealOnes);
  EXPECT_TRUE(CaptureDevice::hasStandIns());
  EXPECT_EQ(namesOf(MediaType::video), "virtual:back virtual:front ");
  EXPECT_EQ(namesOf(MediaType::audio), "virtual:microphone ");

  // A camera without a microphone hears nothing; who names the synthetic one has it.
  const auto node = addNode(0);
  start(kWithoutRealOnes);
  const auto camera = cameras().at(0);
  EXPECT_FALSE(CaptureDevice::hasStandIns());
  EXPECT_EQ(namesOf(MediaType::video), camera->uniqueID() + " ");
  EXPECT_EQ(namesOf(MediaType::audio), "");
  EXPECT_EQ(CaptureDevice::defaultDeviceWithMediaType(MediaType::audio), nullptr);
  EXPECT_EQ(CaptureDevice::deviceNamed("default", MediaType::audio).error(), CaptureErrorCode::noSuchDevice);
  EXPECT_TRUE(CaptureDevice::deviceNamed("virtual:microphone", MediaType::audio).has_value());
  EXPECT_EQ(CaptureDevice::deviceNamed("back", MediaType::video).value(), camera) << "where it stands is a hint";

  // Nor is one drawn that may not be opened, or was unplugged.
  node->setBusy(EACCES, 0);
  start(kWithoutRealOnes);
  EXPECT_EQ(namesOf(MediaType::video) + namesOf(MediaType::audio), "");
  const auto denied = CaptureDevice::deviceNamed("front", MediaType::video);
  ASSERT_FALSE(denied.has_value());
  EXPECT_EQ(denied.error(), CaptureErrorCode::permissionDenied);
  EXPECT_THAT(denied.error().description, HasSubstr("video0: permission denied, join group video"));
  CaptureDevice::requestAccess(MediaType::video, [](bool) {});
  EXPECT_TRUE(eventually(
      [] { return CaptureDevice::authorizationStatus(MediaType::video) == CaptureAuthorizationStatus::denied; }));
  node->setBusy(0, 0);
  start(kWithoutRealOnes);
  ASSERT_EQ(cameras().size(), 1U);
  std::filesystem::remove(pathOf(0));
  ASSERT_TRUE(eventually([] { return cameras().empty(); }));
  EXPECT_FALSE(CaptureDevice::hasStandIns());
}

// What a driver does with STREAMON nobody can call off.
TEST_F(V4L2FaultsTest, NobodyWaitsForACameraThatDoesNotStart) {
  const auto stuck = addNode(0);
  const auto good = addNode(1);
  good->card = "Good";
  good->draw = drawNumber;
  start();
  stuck->setHeld(true);
  CameraBench camera(cameras().at(0), "64x48");
  std::jthread starter([&] { camera.session->startRunning(); });
  ASSERT_TRUE(eventually([&] { return stuck->openCount() > 0; }));
  const auto exchangeFor = [&](const std::shared_ptr<CaptureDevice>& device) {
    camera.session->beginConfiguration();
    camera.session->removeInput(camera.session->inputs().at(0));
    camera.session->addInput(CaptureDeviceInput::create(device).value());
    camera.session->commitConfiguration();
  };
  // Each of these would stand still until the camera is released, which is at the end.
  exchangeFor(cameras().at(1));
  EXPECT_EQ(camera.session->inputs().at(0)->device(), cameras().at(1));
  camera.session->stopRunning();
  starter.join();
  EXPECT_FALSE(camera.session->isRunning());
  EXPECT_EQ(camera.frames->count(), 0U);

  stuck->setHeld(false);
  ASSERT_TRUE(eventually([&] { return stuck->openCount() == 0; })) << "what opened too late is closed";
  EXPECT_EQ(camera.frames->count(), 0U);
  camera.session->startRunning();
  EXPECT_TRUE(eventually([&] { return camera.frames->count() > 2; }));
  EXPECT_FALSE(camera.session->runtimeError().has_value());
}

TEST_F(V4L2FaultsTest, BelievesNoStampThatCannotBeTrue) {
  struct Case {
    const char* fault;
    bool isStamped;
    std::uint32_t flags;
    std::function<std::int64_t(std::int64_t captured, std::uint32_t sequence)> stamp;
  };
  constexpr std::uint32_t kMonotonic = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
  const std::int64_t began = std::chrono::steady_clock::now().time_since_epoch().count();
  const Case cases[] = {
      {"none", true, kMonotonic, [](std::int64_t captured, auto) { return captured; }},
      {"stamps of an unknown clock", false, V4L2_BUF_FLAG_TIMESTAMP_UNKNOWN,
       [](std::int64_t captured, auto) { return captured; }},
      {"no stamps", false, kMonotonic, [](auto, auto) { return 0; }},
      {"stamps in the future", false, kMonotonic,
       [](std::int64_t captured, auto) { return captured + 3'600'000'000'000; }},
      {"stamps that stand still", false, kMonotonic, [=](auto, auto) { return began; }},
      {"stamps that go backwards", false, kMonotonic,
       [=](auto, std::uint32_t sequence) { return began - sequence * 33'000'000LL; }},
  };
  for (int number = 0; const Case& one : cases) {
    const auto node = addNode(number++);
    node->card = one.fault;
    node->draw = drawNumber;
    node->stampFlags = one.flags;
    node->stamp = one.stamp;
  }
  start();
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(cases[i].fault);
    CameraBench camera(cameras().at(i), "64x48");
    camera.session->startRunning();
    ASSERT_TRUE(eventually([&] { return camera.frames->count() >= 10; }));
    EXPECT_EQ(camera.device->delivery()->isStamped, cases[i].isStamped);
    camera.session->stopRunning();
    camera.queue->sync([] {});
    const auto times = camera.frames->times();
    for (std::size_t each = 2; each < times.size(); ++each) EXPECT_GT(times[each], times[each - 1]);
    EXPECT_LT(std::abs((CaptureClock::realTime()->now() - times.back()).seconds()), 3);
    if (HasFailure()) continue;
    recordCamera({"V4L2, played", "YUYV", "mmap", "30", cases[i].fault,
                  cases[i].isStamped ? "its picture, at its stamps" : "its picture, at the time that it comes"});
  }
}

TEST_F(V4L2FaultsTest, LivesWithShortFramesStrangeNamesAndSizes) {
  struct Case {
    std::string card;
    std::uint32_t width = 64;
    std::uint32_t height = 48;
    std::uint32_t rate = 30;
  };
  const std::vector<Case> cases = {{"Dot", 2, 1}, {"Wall", 8192, 4320, 5}, {"Fast", 64, 48, 240},
                                   {"Short"},     {"Caf\xE9 \x1B[31m"},    {"Twin"},
                                   {"Twin"}};
  for (int number = 0; const Case& one : cases) {
    const auto node = addNode(number++);
    node->card = one.card;
    node->formats = {{V4L2_PIX_FMT_YUYV, {{one.width, one.height}}, {one.rate}}};
    node->draw = [isShort = one.card == "Short"](std::uint8_t* bytes, std::size_t capacity, std::uint32_t sequence) {
      std::fill_n(bytes, capacity, 128);
      return isShort && sequence % 2 == 0 ? std::size_t{100} : capacity;
    };
  }
  start();
  const auto devices = cameras();
  ASSERT_EQ(devices.size(), cases.size());
  EXPECT_EQ(devices[4]->localizedName(), "Caf\xEF\xBF\xBD  [31m");
  EXPECT_NE(devices[5]->uniqueID(), devices[6]->uniqueID());
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const Case& one = cases[i];
    SCOPED_TRACE(one.card);
    CameraBench camera(devices[i], "64x48");
    camera.session->startRunning();
    ASSERT_TRUE(eventually([&] { return camera.frames->count() >= 4; }))
        << camera.session->runtimeError().value_or(Error()).description;
    const auto picture = camera.frames->latest()->imageBuffer();
    EXPECT_EQ(picture->width(), one.width);
    EXPECT_EQ(picture->height(), one.height);
    const VirtualPicture seen(picture);
    EXPECT_NEAR(seen.pixel(seen.width() - 1, seen.height() - 1)[1], (128 - 16) * 255 / 219, 2);
    const auto delivery = *devices[i]->delivery();
    EXPECT_EQ(delivery.framesPerSecond, one.rate);
    EXPECT_EQ(delivery.loss, one.card == "Short" ? "a picture is cut short: 100 bytes of 6144" : "");
  }
  if (HasFailure()) return;
  recordCamera({"V4L2, played", "YUYV, 2x1 and 8192x4320", "mmap", "5, 30"});
  recordCamera({"V4L2, played", "YUYV", "mmap", "240"});
  recordCamera({"V4L2, played", "YUYV", "mmap", "30", "short frames", "said, goes on"});
  recordCamera({"V4L2, played", "YUYV", "mmap", "30", "a name that is no text; two of one name", "its picture"});
}

}  // namespace
}  // namespace tavrel::test
