#include <thread>

#include "Support/CameraTestSupport.h"

namespace tavrel {
namespace {

using test::CameraTest;

TEST_F(CameraTest, EverySetterMayBeCalledFromAnyThreadWhileFramesRun) {
  auto configuration = smallPictures();
  configuration.size = {64, 48};
  configuration.blurSwitch = false;
  makeAndStart(configuration);
  const auto beauty = std::make_shared<TavrelFaceBeautyCaptureEffect>();
  const auto another = std::make_shared<test::FrameRecorder>();
  using Setter = std::function<void(TavrelCamera&, int)>;
  const std::vector<Setter> setters = {
      [&](TavrelCamera& camera, int i) { camera.setDelegate(i % 2 == 0 ? another : recorder_); },
      [](TavrelCamera& camera, int i) { camera.setBlurSwitch(i % 3 == 0); },
      [](TavrelCamera& camera, int i) { camera.setPreferredSessionPreset(i % 2 == 0 ? "640x480" : "320x240"); },
      [](TavrelCamera& camera, int i) {
        camera.setPreferredVideoOrientation(i % 2 == 0 ? CaptureVideoOrientation::landscapeLeft
                                                       : CaptureVideoOrientation::landscapeRight);
      },
      [](TavrelCamera& camera, int i) {
        camera.setSize({64.0 + i % 2, 48});
      },
      [](TavrelCamera& camera, int i) {
        camera.setPreviewScalingMode(i % 2 == 0 ? kTavrelGPUImageFillModeStretch
                                                : kTavrelGPUImageFillModePreserveAspectRatio);
      },
      [](TavrelCamera& camera, int i) { camera.setMirrorFrontPreview(i % 2 == 0); },
      [](TavrelCamera& camera, int i) { camera.setMirrorBackPreview(i % 2 == 0); },
      [](TavrelCamera& camera, int i) { camera.setMirrorFrontEncoded(i % 2 == 0); },
      [](TavrelCamera& camera, int i) { camera.setMirrorBackEncoded(i % 2 == 0); },
      [&](TavrelCamera& camera, int i) {
        camera.setCaptureEffects(i % 2 == 0 ? TavrelCamera::CaptureEffects{beauty} : TavrelCamera::CaptureEffects{});
      },
      [](TavrelCamera& camera, int) { camera.switchCamera(); },
      [devices = CaptureDevice::devicesWithMediaType(MediaType::video)](TavrelCamera& camera, int i) {
        camera.setPreferredDeviceID(devices.at(static_cast<std::size_t>(i) % devices.size())->uniqueID());
      },
      [](TavrelCamera& camera, int i) {
        camera.setPreferredDevicePosition(i % 2 == 0 ? CaptureDevicePosition::front : CaptureDevicePosition::back);
      },
      [](TavrelCamera& camera, int i) { camera.setPreferredMinFrameRate(5 + i % 5); },
      [](TavrelCamera& camera, int i) { camera.setPreferredMaxFrameRate(25 + i % 5); },
      [](TavrelCamera& camera, int i) {
        camera.setPreferredTorchMode(i % 2 == 0 ? CaptureTorchMode::on : CaptureTorchMode::off);
      },
      [](TavrelCamera& camera, int i) {
        camera.setPreferredFlashMode(i % 2 == 0 ? CaptureFlashMode::on : CaptureFlashMode::off);
      },
      [](TavrelCamera& camera, int i) { camera.setPreferredVideoZoomFactor(1 + i % 2); },
      [](TavrelCamera& camera, int i) { camera.setPreferredContinuousAutoFocusEnable(i % 2 == 0); },
      [](TavrelCamera& camera, int i) { camera.setPreferredContinuousAutoExposureEnable(i % 2 == 0); },
      [](TavrelCamera& camera, int i) {
        camera.setPreferredFocusPointOfInterest({i % 10 / 10.0, 0.5});
      },
      [](TavrelCamera& camera, int i) {
        camera.setPreferredExposurePointOfInterest({0.5, i % 10 / 10.0});
      },
      [](TavrelCamera& camera, int i) { camera.setTapPreviewAction(static_cast<unsigned>(i % 8)); },
      [](TavrelCamera& camera, int) { camera.snapshotWithCompletion([](const auto&, const auto&) {}); },
      [](TavrelCamera& camera, int i) { i % 2 == 0 ? camera.stop() : camera.startWithCompletion({}); },
  };
  std::atomic<int> calls = 0;
  {
    // Each thread begins elsewhere, so that all setters meet all others.
    std::vector<std::jthread> threads;
    for (std::size_t offset = 0; offset < 4; ++offset) {
      threads.emplace_back([&, offset](const std::stop_token& stop) {
        for (std::size_t i = offset * 6; !stop.stop_requested(); ++i, ++calls) {
          setters[i % setters.size()](*camera_, static_cast<int>(i / setters.size() + offset));
        }
      });
    }
    EXPECT_TRUE(runUntil([&] { return calls > 1000; }, std::chrono::seconds(60)));
    for (auto& thread : threads) thread.request_stop();
  }
  runFor(std::chrono::milliseconds(400));  // a blur is lifted

  // All wishes are as if somebody had made them one after the other, and frames come.
  camera_->stop();
  camera_->setDelegate(recorder_);
  camera_->setSize({64, 48});
  camera_->setPreferredVideoOrientation(CaptureVideoOrientation::landscapeRight);
  camera_->setPreferredTorchMode(CaptureTorchMode::on);
  camera_->setPreferredMaxFrameRate(20);
  start();
  EXPECT_EQ(camera_->torchMode(), CaptureTorchMode::on);
  EXPECT_NEAR(camera_->maxFrameRate(), 20, 0.01);
  // The first frame may still be one that was on its way.
  EXPECT_TRUE(runUntil([&] { return recorder_->picture().width == 64; }, std::chrono::seconds(5)));
}

}  // namespace
}  // namespace tavrel
