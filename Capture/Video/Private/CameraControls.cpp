#include "Capture/Video/Private/CameraControls.h"

#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <utility>

#include "Platform/Capture/CaptureDevice.h"

namespace tavrel {
namespace {

// Several settings share one text: programs that watch the log know them like this.
constexpr const char* kTorchMode = "setPreferredTorchMode";
constexpr const char* kMinFrameRate = "setPreferredMinFrameRate";
constexpr const char* kMaxFrameRate = "setPreferredMaxFrameRate";
constexpr const char* kContinuousAutoFocus = "setPreferredContinuousAutoFocusEnable";
constexpr const char* kFocusPoint = "setPreferredFocusPointOfInterest";

/// What is to be done with a locked device; nothing to do when `apply` is empty.
struct Change {
  const char* what = "";
  std::function<void(CaptureDevice&)> apply;
};

bool differs(double first, double second) { return std::abs(first - second) > std::numeric_limits<double>::epsilon(); }

Change torchMode(const TavrelCameraConfiguration& wishes, const CaptureDevice& device) {
  const CaptureTorchMode mode = wishes.preferredTorchMode;
  if (device.torchMode() == mode || !device.isTorchModeSupported(mode)) return {};
  return {kTorchMode, [mode](CaptureDevice& locked) { locked.setTorchMode(mode); }};
}

Change flashMode(const TavrelCameraConfiguration& wishes, const CaptureDevice& device) {
  const CaptureFlashMode mode = wishes.preferredFlashMode;
  if (device.flashMode() == mode || !device.isFlashModeSupported(mode)) return {};
  return {kTorchMode, [mode](CaptureDevice& locked) { locked.setFlashMode(mode); }};
}

Change frameRate(double rate, MediaTime currentDuration, const CaptureDevice& device, const char* what,
                 void (CaptureDevice::*setDuration)(MediaTime)) {
  if (!differs(rate, 1 / currentDuration.seconds())) return {};
  for (const CaptureFrameRateRange& range : device.activeFormat()->videoSupportedFrameRateRanges) {
    if (rate < range.minFrameRate || rate > range.maxFrameRate) continue;
    return {what, [=](CaptureDevice& locked) { (locked.*setDuration)(MediaTime::fromSeconds(1 / rate, 1000)); }};
  }
  return {};
}

Change minFrameRate(const TavrelCameraConfiguration& wishes, const CaptureDevice& device) {
  return frameRate(wishes.preferredMinFrameRate, device.activeVideoMaxFrameDuration(), device, kMinFrameRate,
                   &CaptureDevice::setActiveVideoMaxFrameDuration);
}

Change maxFrameRate(const TavrelCameraConfiguration& wishes, const CaptureDevice& device) {
  return frameRate(wishes.preferredMaxFrameRate, device.activeVideoMinFrameDuration(), device, kMaxFrameRate,
                   &CaptureDevice::setActiveVideoMinFrameDuration);
}

Change videoZoomFactor(const TavrelCameraConfiguration& wishes, const CaptureDevice& device) {
  const double factor = wishes.preferredVideoZoomFactor;
  if (!differs(factor, device.videoZoomFactor())) return {};
  if (factor < 1 || factor > device.activeFormat()->videoMaxZoomFactor) return {};
  return {kMaxFrameRate, [factor](CaptureDevice& locked) { locked.setVideoZoomFactor(factor); }};
}

Change continuousAutoFocus(const TavrelCameraConfiguration& wishes, const CaptureDevice& device) {
  const bool isEnabled = wishes.preferredContinuousAutoFocusEnable;
  // It is the exposure's state that is compared, as applications have come to expect.
  if (isEnabled == (device.exposureMode() == CaptureExposureMode::continuousAutoExposure)) return {};
  const auto mode = isEnabled ? CaptureFocusMode::continuousAutoFocus : CaptureFocusMode::locked;
  if (!device.isFocusModeSupported(mode)) return {};
  return {isEnabled ? kContinuousAutoFocus : kMaxFrameRate,
          [mode](CaptureDevice& locked) { locked.setFocusMode(mode); }};
}

Change continuousAutoExposure(const TavrelCameraConfiguration& wishes, const CaptureDevice& device) {
  const bool isEnabled = wishes.preferredContinuousAutoExposureEnable;
  if (isEnabled == (device.exposureMode() == CaptureExposureMode::continuousAutoExposure)) return {};
  const auto mode = isEnabled ? CaptureExposureMode::continuousAutoExposure : CaptureExposureMode::locked;
  if (!device.isExposureModeSupported(mode)) return {};
  return {isEnabled ? kContinuousAutoFocus : kMaxFrameRate,
          [mode](CaptureDevice& locked) { locked.setExposureMode(mode); }};
}

Change focusPointOfInterest(const TavrelCameraConfiguration& wishes, const CaptureDevice& device) {
  const Point point = wishes.preferredFocusPointOfInterest;
  if (point == device.focusPointOfInterest() || !device.isFocusPointOfInterestSupported()) return {};
  return {kFocusPoint, [point, isContinuous = wishes.preferredContinuousAutoFocusEnable](CaptureDevice& locked) {
            locked.setFocusPointOfInterest(point);
            if (isContinuous && locked.isFocusModeSupported(CaptureFocusMode::continuousAutoFocus)) {
              locked.setFocusMode(CaptureFocusMode::continuousAutoFocus);
            } else if (locked.isFocusModeSupported(CaptureFocusMode::autoFocus)) {
              locked.setFocusMode(CaptureFocusMode::autoFocus);
            }
          }};
}

Change exposurePointOfInterest(const TavrelCameraConfiguration& wishes, const CaptureDevice& device) {
  const Point point = wishes.preferredExposurePointOfInterest;
  // The focus capability decides, here too.
  if (point == device.exposurePointOfInterest() || !device.isFocusPointOfInterestSupported()) return {};
  return {kFocusPoint, [point, isContinuous = wishes.preferredContinuousAutoExposureEnable](CaptureDevice& locked) {
            locked.setExposurePointOfInterest(point);
            if (isContinuous && locked.isExposureModeSupported(CaptureExposureMode::continuousAutoExposure)) {
              locked.setExposureMode(CaptureExposureMode::continuousAutoExposure);
            } else if (locked.isExposureModeSupported(CaptureExposureMode::autoExpose)) {
              locked.setExposureMode(CaptureExposureMode::autoExpose);
            }
          }};
}

// By `CameraControl`.
constexpr std::array kChanges = {torchMode,
                                 flashMode,
                                 minFrameRate,
                                 maxFrameRate,
                                 videoZoomFactor,
                                 continuousAutoFocus,
                                 focusPointOfInterest,
                                 continuousAutoExposure,
                                 exposurePointOfInterest};

}  // namespace

void CameraControls::apply(CameraControl control) const {
  const std::lock_guard lock(mutex_);
  const auto device = session_.device();
  if (!device || !session_.platformSession()->isRunning()) return;
  const Change change = kChanges.at(static_cast<std::size_t>(control))(wishes_.all(), *device);
  if (!change.apply) return;
  if (const auto locked = device->lockForConfiguration(); !locked) {
    TAVREL_LOG_ERROR(kCameraLogTag, "{} error when lockForConfiguration for: {}", change.what,
                     locked.error().description);
    return;
  }
  change.apply(*device);
  device->unlockForConfiguration();
}

void CameraControls::refreshForNewDevice() const {
  for (std::size_t i = 0; i < kChanges.size(); ++i) apply(static_cast<CameraControl>(i));
}

}  // namespace tavrel
