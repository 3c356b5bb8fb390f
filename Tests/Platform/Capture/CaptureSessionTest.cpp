#include "Platform/Capture/CaptureSession.h"

#include <atomic>
#include <thread>

#include "CaptureSessionTestSupport.h"
#include "Platform/Capture/CaptureError.h"
#include "Platform/Foundation/Notifications.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;

TEST_F(CaptureSessionTest, GoesOnWhenItsCameraIsUnpluggedFailsOrFreezes) {
  CameraBench camera(device(Virtual::kBackCamera));
  const NotificationCounter errors(kCaptureSessionRuntimeErrorNotification, camera.session.get());
  const NotificationCounter recoveries(kCaptureSessionDidRecoverNotification, camera.session.get());
  const NotificationCounter gone(kCaptureDeviceWasDisconnectedNotification, camera.device.get());
  const NotificationCounter back(kCaptureDeviceWasConnectedNotification, camera.device.get());
  const auto delivers = [&] {
    camera.queue->sync([&] { camera.frames->clear(); });
    return eventually([&] { return camera.frames->count() > 2; });
  };
  camera.configure([](CaptureDevice& device) { device.setTorchMode(CaptureTorchMode::on); });
  camera.session->startRunning();
  ASSERT_TRUE(delivers());
  const int lit = brightness(*camera.frames);

  bench().setConnected(Virtual::kBackCamera, false);
  ASSERT_TRUE(eventually([&] { return errors.count() == 1 && gone.count() == 1; }));
  EXPECT_THAT(camera.session->runtimeError()->description, ::testing::HasSubstr("unplugged"));
  EXPECT_EQ(*camera.session->runtimeError(), CaptureErrorCode::unplugged);
  EXPECT_TRUE(camera.session->isRunning());
  EXPECT_FALSE(camera.device->isConnected());
  EXPECT_FALSE(camera.device->lockForConfiguration().has_value());
  EXPECT_FALSE(CaptureDeviceInput::create(camera.device).has_value());
  EXPECT_EQ(CaptureDevice::devicesWithMediaType(MediaType::video).size(), 1U);
  bench().setConnected(Virtual::kBackCamera, true);
  ASSERT_TRUE(eventually([&] { return recoveries.count() == 1 && back.count() == 1; }));
  EXPECT_EQ(device(Virtual::kBackCamera), camera.device) << "the same object under the same identity";
  ASSERT_TRUE(delivers());
  EXPECT_NEAR(brightness(*camera.frames), lit, 3) << "settings are applied again";
  EXPECT_FALSE(camera.session->runtimeError().has_value());

  bench().setOpenError(Virtual::kBackCamera, makeError(CaptureErrorCode::busy, "the device is busy"));
  bench().failDevice(Virtual::kBackCamera, makeError(CaptureErrorCode::deviceFailed, "input/output error"));
  ASSERT_TRUE(eventually([&] { return errors.count() == 2; }));
  ASSERT_TRUE(eventually([&] { return camera.session->runtimeError()->description == "the device is busy"; }));
  bench().setOpenError(Virtual::kBackCamera, std::nullopt);
  ASSERT_TRUE(eventually([&] { return recoveries.count() == 2; }));

  bench().setStalled(Virtual::kBackCamera, true);
  ASSERT_TRUE(eventually([&] { return errors.count() == 3; }));
  EXPECT_THAT(camera.session->runtimeError()->description, ::testing::HasSubstr("no picture for 4 seconds"));
  EXPECT_EQ(*camera.session->runtimeError(), CaptureErrorCode::deviceSilent);
  bench().setStalled(Virtual::kBackCamera, false);
  ASSERT_TRUE(eventually([&] { return recoveries.count() == 3; }));
  EXPECT_EQ(errors.count(), 3);
}

TEST_F(CaptureSessionTest, StartsWithWhatCannotBeOpenedAndSaysSo) {
  bench().setOpenError(Virtual::kFrontCamera, makeError(CaptureErrorCode::busy, "the device is busy"));
  CameraBench camera(device(Virtual::kFrontCamera));
  camera.session->startRunning();
  EXPECT_TRUE(camera.session->isRunning());
  EXPECT_EQ(camera.session->runtimeError()->description, "the device is busy");
  camera.session->stopRunning();
  bench().setOpenError(Virtual::kFrontCamera, std::nullopt);
  camera.session->startRunning();
  EXPECT_FALSE(camera.session->runtimeError().has_value());
  CameraBench second(device(Virtual::kFrontCamera));
  second.session->startRunning();
  EXPECT_THAT(second.session->runtimeError()->description, ::testing::HasSubstr("another session"));
  EXPECT_EQ(*second.session->runtimeError(), CaptureErrorCode::busy);
  // Without an input it runs, too.
  const auto empty = CaptureSession::create();
  empty->addOutput(CaptureVideoDataOutput::create());
  empty->startRunning();
  EXPECT_TRUE(empty->isRunning());
}

TEST_F(CaptureSessionTest, StopsAndLetsGoOfEverythingWithItsLastOwner) {
  auto session = CaptureSession::create();
  auto output = CaptureVideoDataOutput::create();
  const std::weak_ptr<CaptureVideoDataOutput> held = output;
  const auto input = CaptureDeviceInput::create(device(Virtual::kBackCamera)).value();
  session->addOutput(std::move(output));
  session->addInput(input);
  session->startRunning();
  ASSERT_FALSE(session->runtimeError().has_value());
  session = nullptr;
  EXPECT_TRUE(eventually([&] { return held.expired(); }));
  CameraBench next(input->device());
  next.session->startRunning();
  EXPECT_FALSE(next.session->runtimeError().has_value()) << "the camera is free again";
}

TEST_F(CaptureSessionTest, ChangesAndStopsFromDelegatesAndOtherThreads) {
  CameraBench camera(device(Virtual::kBackCamera));
  const auto back = camera.input;
  const auto front = CaptureDeviceInput::create(device(Virtual::kFrontCamera)).value();
  std::atomic<int> stops = 0;
  camera.frames->onFrame = [&](const auto&) {
    if (camera.frames->count() % 5 != 0) return;
    camera.session->stopRunning();
    ++stops;
    camera.session->startRunning();
  };
  camera.session->startRunning();
  auto current = back;
  for (int i = 0; i < 20; ++i) {
    camera.session->beginConfiguration();
    camera.session->removeInput(current);
    current = current == back ? front : back;
    camera.session->addInput(current);
    camera.session->commitConfiguration();
    std::this_thread::sleep_for(20ms);
  }
  EXPECT_TRUE(eventually([&] { return stops > 1; }));
  camera.queue->sync([&] { camera.frames->onFrame = nullptr; });
  camera.session->stopRunning();
  camera.queue->sync([&] { camera.frames->clear(); });
  std::this_thread::sleep_for(80ms);
  EXPECT_EQ(camera.frames->count(), 0U);
}

TEST_F(CaptureSessionTest, RefusesWhatItIsToldToRefuse) {
  CameraBench camera(device(Virtual::kBackCamera));
  const auto front = CaptureDeviceInput::create(device(Virtual::kFrontCamera)).value();
  EXPECT_FALSE(camera.session->canAddInput(front)) << "there is a camera already";
  EXPECT_FALSE(camera.session->canAddInput(nullptr));
  EXPECT_FALSE(CaptureSession::create()->canAddOutput(camera.data)) << "it belongs to another session";
  camera.session->removeInput(camera.input);
  EXPECT_TRUE(camera.session->canAddInput(front));
  bench().setInputRefusal(
      [](const CaptureDevice& device) { return device.position() == CaptureDevicePosition::front; });
  EXPECT_FALSE(camera.session->canAddInput(front));
  EXPECT_TRUE(camera.session->canAddInput(camera.input));
  bench().setOutputRefusal(
      [](const CaptureOutput& output) { return dynamic_cast<const CaptureStillImageOutput*>(&output) != nullptr; });
  EXPECT_FALSE(camera.session->canAddOutput(CaptureStillImageOutput::create()));
  EXPECT_TRUE(camera.session->canAddOutput(CaptureVideoDataOutput::create()));
  EXPECT_DEATH(camera.session->addInput(front), "addInput was called with an input that canAddInput refuses");
  EXPECT_DEATH(camera.session->commitConfiguration(), "without beginConfiguration");
  camera.session->removeOutput(camera.data);
  EXPECT_EQ(camera.data->connectionWithMediaType(MediaType::video), nullptr);
  EXPECT_TRUE(CaptureSession::create()->canAddOutput(camera.data));
}

}  // namespace
}  // namespace tavrel::test
