#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Effects/TavrelCaptureEffect.h"
#include "GPUImage/Destinations/TavrelGPUImageFillMode.h"
#include "Platform/Capture/CaptureDeviceModes.h"
#include "Platform/Capture/CaptureSession.h"
#include "Platform/Foundation/Geometry.h"

namespace tavrel {

/// What a tap on the preview does; bits.
enum TavrelCameraTapPreviewAction : unsigned {
  kTavrelCameraTapPreviewActionNone = 0,
  kTavrelCameraTapPreviewActionFocus = 1,          ///< sets the focus point there
  kTavrelCameraTapPreviewActionExposure = 2,       ///< sets the exposure point there
  kTavrelCameraTapPreviewActionShowFocusView = 4,  ///< shows the focus ring there
};

/// Initial settings of a camera. Each member is the camera's property of the same name. For NaN and infinity the
/// default is taken.
struct TavrelCameraConfiguration {
  Size size = {1280, 720};  ///< of the processed frames, in pixels
  TavrelGPUImageFillModeType previewScalingMode = kTavrelGPUImageFillModePreserveAspectRatio;
  /// By default the front preview is a mirror, and the recording is not.
  bool mirrorFrontPreview = true;
  bool mirrorBackPreview = false;
  bool mirrorFrontEncoded = false;
  bool mirrorBackEncoded = false;
  bool blurSwitch = true;
  CaptureTorchMode preferredTorchMode = CaptureTorchMode::off;
  CaptureFlashMode preferredFlashMode = CaptureFlashMode::off;
  double preferredMinFrameRate = 30;
  double preferredMaxFrameRate = 30;
  std::string preferredSessionPreset = kCaptureSessionPresetHigh;
  CaptureDevicePosition preferredDevicePosition = CaptureDevicePosition::front;
  /// The `CaptureDevice::uniqueID` to begin with; without that camera, the last one listed at the preferred position.
  std::string preferredDeviceID = {};
  /// By default the sensor's, which is upright on desktops. For a phone held upright, set `portrait` and a matching
  /// size.
  CaptureVideoOrientation preferredVideoOrientation = CaptureVideoOrientation::landscapeRight;
  double preferredVideoZoomFactor = 1;
  bool preferredContinuousAutoFocusEnable = true;
  Point preferredFocusPointOfInterest = {0.5, 0.5};
  bool preferredContinuousAutoExposureEnable = true;
  Point preferredExposurePointOfInterest = {0.5, 0.5};
  /// Bits of `TavrelCameraTapPreviewAction`.
  unsigned tapPreviewAction = kTavrelCameraTapPreviewActionFocus | kTavrelCameraTapPreviewActionExposure |
                              kTavrelCameraTapPreviewActionShowFocusView;
  std::vector<std::shared_ptr<TavrelCaptureEffect>> captureEffects = {};
};

}  // namespace tavrel
