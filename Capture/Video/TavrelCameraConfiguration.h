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

/// What a tap on the preview does: bits.
enum TavrelCameraTapPreviewAction : unsigned {
  kTavrelCameraTapPreviewActionNone = 0,
  kTavrelCameraTapPreviewActionFocus = 1,          ///< the focus point is set there
  kTavrelCameraTapPreviewActionExposure = 2,       ///< the exposure point is set there
  kTavrelCameraTapPreviewActionShowFocusView = 4,  ///< the focus ring appears there
};

/// Initial settings of a camera. Each member is the camera's property of the same name.
struct TavrelCameraConfiguration {
  /// Of the frames that come out, in pixels.
  Size size = {1280, 720};
  TavrelGPUImageFillModeType previewScalingMode = kTavrelGPUImageFillModePreserveAspectRatio;
  /// People expect to see themselves as in a mirror, and to be recorded as others see them.
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
  /// The `uniqueID` of the camera to take where several have its position; empty: the last one listed.
  std::string preferredDeviceID = {};
  /// The sensor's own, which is upright on desktops; phones that are held upright take `portrait`, with a size to
  /// match.
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
