#include "Platform/UI/TapGestureRecognizer.h"
#include "Support/CameraTestSupport.h"

namespace tavrel {
namespace {

using test::CameraTest;
using Bench = VirtualCaptureSystem;
using Device = CaptureDevice;

const Error kBusy{"capture", 16, "busy"};

class CameraControlsTest : public CameraTest {
 protected:
  void SetUp() override {
    auto configuration = smallPictures();
    configuration.blurSwitch = false;
    // Nothing that the set-up itself would change.
    configuration.preferredContinuousAutoFocusEnable = false;
    configuration.preferredContinuousAutoExposureEnable = false;
    makeAndStart(configuration);
    device_ = device(Bench::kFrontCamera);
  }
  void lockFails(bool fails) {
    Bench::shared().setLockError(Bench::kFrontCamera, fails ? std::optional<Error>(kBusy) : std::nullopt);
  }

  std::shared_ptr<Device> device_;
};

TEST_F(CameraControlsTest, WishesReachTheDevice) {
  camera_->setPreferredTorchMode(CaptureTorchMode::on);
  EXPECT_EQ(device_->torchMode(), CaptureTorchMode::on);
  EXPECT_EQ(camera_->torchMode(), CaptureTorchMode::on);
  camera_->setPreferredFlashMode(CaptureFlashMode::automatic);
  EXPECT_EQ(camera_->flashMode(), CaptureFlashMode::automatic);
  camera_->setPreferredVideoZoomFactor(1.5);
  EXPECT_EQ(camera_->videoZoomFactor(), 1.5);
  // Outside the range: kept, and ignored.
  camera_->setPreferredVideoZoomFactor(0.5);
  EXPECT_EQ(camera_->preferredVideoZoomFactor(), 0.5);
  camera_->setPreferredVideoZoomFactor(camera_->videoMaxZoomFactor() + 1);
  EXPECT_EQ(camera_->videoZoomFactor(), 1.5);
}

TEST_F(CameraControlsTest, ContinuousFocusIsComparedWithTheExposure) {
  camera_->setPreferredContinuousAutoExposureEnable(true);
  ASSERT_TRUE(camera_->continuousAutoExposureEnable());
  ASSERT_FALSE(camera_->continuousAutoFocusEnable());
  // The exposure is in that state already.
  camera_->setPreferredContinuousAutoFocusEnable(true);
  EXPECT_FALSE(camera_->continuousAutoFocusEnable());
  EXPECT_TRUE(camera_->preferredContinuousAutoFocusEnable());
  camera_->setPreferredContinuousAutoExposureEnable(false);
  EXPECT_EQ(device_->exposureMode(), CaptureExposureMode::locked);
  camera_->setPreferredContinuousAutoFocusEnable(true);
  EXPECT_TRUE(camera_->continuousAutoFocusEnable());
}

TEST_F(CameraControlsTest, PointsFocusContinuouslyOrOnce) {
  camera_->setPreferredFocusPointOfInterest({0.25, 0.75});
  EXPECT_EQ(camera_->focusPointOfInterest(), (Point{0.25, 0.75}));
  EXPECT_EQ(device_->focusMode(), CaptureFocusMode::autoFocus);
  camera_->setPreferredExposurePointOfInterest({0.1, 0.2});
  EXPECT_EQ(camera_->exposurePointOfInterest(), (Point{0.1, 0.2}));
  EXPECT_EQ(device_->exposureMode(), CaptureExposureMode::autoExpose);
  camera_->setPreferredContinuousAutoFocusEnable(true);
  camera_->setPreferredFocusPointOfInterest({0.5, 0.1});
  EXPECT_EQ(device_->focusMode(), CaptureFocusMode::continuousAutoFocus);
  camera_->setPreferredContinuousAutoExposureEnable(true);
  camera_->setPreferredExposurePointOfInterest({0.9, 0.1});
  EXPECT_EQ(device_->exposureMode(), CaptureExposureMode::continuousAutoExposure);
}

TEST_F(CameraControlsTest, WhatIsUnsupportedIsSkipped) {
  Bench::Support support;
  support.torch = support.flash = support.focusPoint = false;
  support.focusModes[2] = support.exposureModes[2] = false;
  Bench::shared().setSupport(Bench::kFrontCamera, support);
  camera_->setPreferredTorchMode(CaptureTorchMode::on);
  camera_->setPreferredFlashMode(CaptureFlashMode::on);
  EXPECT_EQ(camera_->torchMode(), CaptureTorchMode::off);
  EXPECT_EQ(camera_->flashMode(), CaptureFlashMode::off);
  EXPECT_EQ(camera_->preferredTorchMode(), CaptureTorchMode::on);
  const auto focusMode = device_->focusMode();
  camera_->setPreferredContinuousAutoFocusEnable(true);
  camera_->setPreferredContinuousAutoExposureEnable(true);
  EXPECT_EQ(device_->focusMode(), focusMode);
  EXPECT_FALSE(camera_->continuousAutoExposureEnable());
  camera_->setPreferredFocusPointOfInterest({0.2, 0.2});
  EXPECT_EQ(camera_->focusPointOfInterest(), (Point{0.5, 0.5}));
  // The exposure point stands and falls with the focus point.
  camera_->setPreferredExposurePointOfInterest({0.2, 0.2});
  EXPECT_EQ(camera_->exposurePointOfInterest(), (Point{0.5, 0.5}));
  support.focusPoint = true;
  support.exposurePoint = false;
  Bench::shared().setSupport(Bench::kFrontCamera, support);
  camera_->setPreferredFocusPointOfInterest({0.3, 0.2});
  EXPECT_EQ(device_->focusMode(), CaptureFocusMode::autoFocus);
}

TEST_F(CameraControlsTest, ALockThatFailsIsLoggedAndTheWishKept) {
  struct Case {
    std::function<void(TavrelCamera&)> set;
    std::string text;
  };
  camera_->setPreferredContinuousAutoExposureEnable(true);
  const Case cases[] = {
      {[](auto& camera) { camera.setPreferredTorchMode(CaptureTorchMode::on); }, "setPreferredTorchMode"},
      {[](auto& camera) { camera.setPreferredFlashMode(CaptureFlashMode::on); }, "setPreferredTorchMode"},
      {[](auto& camera) { camera.setPreferredVideoZoomFactor(2); }, "setPreferredMaxFrameRate"},
      {[](auto& camera) { camera.setPreferredContinuousAutoFocusEnable(false); }, "setPreferredMaxFrameRate"},
      {[](auto& camera) { camera.setPreferredContinuousAutoExposureEnable(false); }, "setPreferredMaxFrameRate"},
      {[](auto& camera) {
         camera.setPreferredFocusPointOfInterest({0, 0});
       },
       "setPreferredFocusPointOfInterest"},
      {[](auto& camera) {
         camera.setPreferredExposurePointOfInterest({0, 0});
       },
       "setPreferredFocusPointOfInterest"},
  };
  lockFails(true);
  for (const auto& [set, text] : cases) {
    const std::string message = text + " error when lockForConfiguration for: busy";
    const std::size_t before = logged(message);
    set(*camera_);
    EXPECT_EQ(logged(message), before + 1) << text;
  }
  lockFails(false);
  camera_->setPreferredContinuousAutoExposureEnable(false);
  lockFails(true);
  const std::string message = "setPreferredContinuousAutoFocusEnable error when lockForConfiguration for: busy";
  camera_->setPreferredContinuousAutoFocusEnable(true);
  camera_->setPreferredContinuousAutoExposureEnable(true);
  EXPECT_EQ(logged(message), 2U);
  EXPECT_EQ(camera_->torchMode(), CaptureTorchMode::off);
  lockFails(false);
  camera_->stop();
  start();
  EXPECT_EQ(camera_->torchMode(), CaptureTorchMode::on);
  EXPECT_EQ(camera_->videoZoomFactor(), 2);
}

TEST_F(CameraControlsTest, WishesWaitForTheStartAndForTheOtherCamera) {
  camera_->stop();
  camera_->setPreferredTorchMode(CaptureTorchMode::on);
  EXPECT_EQ(device_->torchMode(), CaptureTorchMode::off);
  start();
  EXPECT_EQ(device_->torchMode(), CaptureTorchMode::on);
  camera_->switchCamera();
  EXPECT_EQ(device(Bench::kBackCamera)->torchMode(), CaptureTorchMode::on);
}

TEST_F(CameraControlsTest, PreviewPointsBecomeDevicePoints) {
  struct Case {
    CaptureVideoOrientation orientation;
    Point plain, mirrored;
  };
  const Case cases[] = {
      {CaptureVideoOrientation::portrait, {0.7, 0.8}, {0.7, 0.2}},
      {CaptureVideoOrientation::portraitUpsideDown, {0.3, 0.2}, {0.3, 0.8}},
      {CaptureVideoOrientation::landscapeRight, {0.2, 0.7}, {0.8, 0.7}},
      {CaptureVideoOrientation::landscapeLeft, {0.8, 0.3}, {0.2, 0.3}},
  };
  const auto expectNear = [](Point point, Point expected) {
    EXPECT_NEAR(point.x, expected.x, 1e-9);
    EXPECT_NEAR(point.y, expected.y, 1e-9);
  };
  for (const Case& each : cases) {
    camera_->setPreferredVideoOrientation(each.orientation);
    camera_->setMirrorFrontPreview(false);
    expectNear(camera_->covertPreviewPointToFocusPoint({0.2, 0.7}), each.plain);
    camera_->setMirrorFrontPreview(true);
    expectNear(camera_->covertPreviewPointToFocusPoint({0.2, 0.7}), each.mirrored);
  }
}

TEST_F(CameraControlsTest, TapsActOnTheDevice) {
  const auto& view = camera_->previewView();
  view->setFrame({{0, 0}, {200, 100}});
  ASSERT_EQ(view->gestureRecognizers().size(), 1U);
  const auto tap = [&] { view->gestureRecognizers().front()->receiveTap({50, 75}, 1); };
  const auto ring = view->subviews().front();
  EXPECT_TRUE(ring->isHidden());
  tap();
  ASSERT_EQ(recorder_->taps.size(), 1U);
  EXPECT_EQ(recorder_->taps[0].first, (Point{0.25, 0.75}));
  EXPECT_EQ(recorder_->taps[0].second, 7U);
  EXPECT_EQ(camera_->focusPointOfInterest(), (Point{0.25, 0.75}));
  EXPECT_EQ(camera_->exposurePointOfInterest(), (Point{0.25, 0.75}));
  EXPECT_FALSE(ring->isHidden());
  EXPECT_EQ(ring->center(), (Point{50, 75}));

  camera_->setPreferredExposurePointOfInterest({0.5, 0.5});
  camera_->setTapPreviewAction(kTavrelCameraTapPreviewActionFocus);
  tap();
  EXPECT_EQ(recorder_->taps.size(), 2U);
  EXPECT_EQ(camera_->exposurePointOfInterest(), (Point{0.5, 0.5}));
  camera_->setTapPreviewAction(kTavrelCameraTapPreviewActionNone);
  EXPECT_EQ(view->gestureRecognizers().size(), 1U);
  tap();
  EXPECT_EQ(recorder_->taps.size(), 2U);
}

}  // namespace
}  // namespace tavrel
