#include <limits>

#include "Capture/Video/Private/CameraImplementation.h"
#include "Platform/Capture/CaptureDevice.h"

// The members of a camera that speak of the device in use: what it does, and what is wished for.

namespace tavrel {
namespace {

constexpr double kInfinite = std::numeric_limits<double>::infinity();

}  // namespace

/// What `reading` says of the device in use, or `otherwise` without one.
#define TAVREL_READING(Type, getter, reading, otherwise)                                                        \
  Type TavrelCamera::getter() const {                                                                           \
    return implementation_->ofDevice([](const CaptureDevice& device) -> Type { return reading; }, (otherwise)); \
  }

TAVREL_READING(std::vector<CaptureFrameRateRange>, videoSupportedFrameRateRanges,
               device.activeFormat()->videoSupportedFrameRateRanges, std::vector<CaptureFrameRateRange>())
TAVREL_READING(double, minFrameRate, 1 / device.activeVideoMaxFrameDuration().seconds(), kInfinite)
TAVREL_READING(double, maxFrameRate, 1 / device.activeVideoMinFrameDuration().seconds(), kInfinite)
TAVREL_READING(CaptureTorchMode, torchMode, device.torchMode(), CaptureTorchMode::off)
TAVREL_READING(CaptureFlashMode, flashMode, device.flashMode(), CaptureFlashMode::off)
TAVREL_READING(double, videoMaxZoomFactor, device.activeFormat()->videoMaxZoomFactor, 1.0)
TAVREL_READING(double, videoZoomFactor, device.videoZoomFactor(), 1.0)
TAVREL_READING(bool, continuousAutoFocusEnable, device.focusMode() == CaptureFocusMode::continuousAutoFocus, false)
TAVREL_READING(bool, continuousAutoExposureEnable, device.exposureMode() == CaptureExposureMode::continuousAutoExposure,
               false)
TAVREL_READING(Point, focusPointOfInterest, device.focusPointOfInterest(), (Point{0.5, 0.5}))
TAVREL_READING(Point, exposurePointOfInterest, device.exposurePointOfInterest(), (Point{0.5, 0.5}))

/// A wish `preferred` + `Name`, which is kept and has the control applied.
#define TAVREL_CONTROL(Type, Name, control)                                          \
  Type TavrelCamera::preferred##Name() const {                                       \
    return implementation_->wishes.get(&TavrelCameraConfiguration::preferred##Name); \
  }                                                                                  \
  void TavrelCamera::setPreferred##Name(Type value) {                                \
    implementation_->wishes.set(&TavrelCameraConfiguration::preferred##Name, value); \
    implementation_->controls.apply(CameraControl::control);                         \
  }

TAVREL_CONTROL(double, MinFrameRate, minFrameRate)
TAVREL_CONTROL(double, MaxFrameRate, maxFrameRate)
TAVREL_CONTROL(CaptureTorchMode, TorchMode, torchMode)
TAVREL_CONTROL(CaptureFlashMode, FlashMode, flashMode)
TAVREL_CONTROL(double, VideoZoomFactor, videoZoomFactor)
TAVREL_CONTROL(bool, ContinuousAutoFocusEnable, continuousAutoFocus)
TAVREL_CONTROL(bool, ContinuousAutoExposureEnable, continuousAutoExposure)
TAVREL_CONTROL(Point, FocusPointOfInterest, focusPointOfInterest)
TAVREL_CONTROL(Point, ExposurePointOfInterest, exposurePointOfInterest)

/// A wish that something else applies, or nothing.
#define TAVREL_WISH(Type, wish) \
  Type TavrelCamera::wish() const { return implementation_->wishes.get(&TavrelCameraConfiguration::wish); }

TAVREL_WISH(CaptureDevicePosition, preferredDevicePosition)
TAVREL_WISH(bool, blurSwitch)
TAVREL_WISH(std::string, preferredSessionPreset)
TAVREL_WISH(std::string, preferredDeviceID)
TAVREL_WISH(CaptureVideoOrientation, preferredVideoOrientation)
TAVREL_WISH(Size, size)
TAVREL_WISH(TavrelGPUImageFillModeType, previewScalingMode)
TAVREL_WISH(unsigned, tapPreviewAction)

/// A wish `mirror` + `Name`, which turns a branch of the chain round.
#define TAVREL_MIRROR(Name)                                                        \
  bool TavrelCamera::mirror##Name() const {                                        \
    return implementation_->wishes.get(&TavrelCameraConfiguration::mirror##Name);  \
  }                                                                                \
  void TavrelCamera::setMirror##Name(bool mirrors) {                               \
    implementation_->setMirror(&TavrelCameraConfiguration::mirror##Name, mirrors); \
  }

TAVREL_MIRROR(FrontPreview)
TAVREL_MIRROR(BackPreview)
TAVREL_MIRROR(FrontEncoded)
TAVREL_MIRROR(BackEncoded)

}  // namespace tavrel
