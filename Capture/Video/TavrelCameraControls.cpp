#include <limits>

#include "Capture/Video/Private/CameraImplementation.h"
#include "Platform/Capture/CaptureDevice.h"

// The members of a camera that speak of the device in use.

namespace tavrel {

std::vector<CaptureFrameRateRange> TavrelCamera::videoSupportedFrameRateRanges() const {
  return implementation_->ofDevice(
      [](const CaptureDevice& device) { return device.activeFormat()->videoSupportedFrameRateRanges; },
      std::vector<CaptureFrameRateRange>());
}

double TavrelCamera::minFrameRate() const {
  return implementation_->ofDevice(
      [](const CaptureDevice& device) { return 1 / device.activeVideoMaxFrameDuration().seconds(); },
      std::numeric_limits<double>::infinity());
}

double TavrelCamera::maxFrameRate() const {
  return implementation_->ofDevice(
      [](const CaptureDevice& device) { return 1 / device.activeVideoMinFrameDuration().seconds(); },
      std::numeric_limits<double>::infinity());
}

double TavrelCamera::preferredMinFrameRate() const {
  return implementation_->wishes.get(&TavrelCameraConfiguration::preferredMinFrameRate);
}

void TavrelCamera::setPreferredMinFrameRate(double rate) {
  implementation_->set(&TavrelCameraConfiguration::preferredMinFrameRate, rate, CameraControl::minFrameRate);
}

double TavrelCamera::preferredMaxFrameRate() const {
  return implementation_->wishes.get(&TavrelCameraConfiguration::preferredMaxFrameRate);
}

void TavrelCamera::setPreferredMaxFrameRate(double rate) {
  implementation_->set(&TavrelCameraConfiguration::preferredMaxFrameRate, rate, CameraControl::maxFrameRate);
}

CaptureTorchMode TavrelCamera::torchMode() const {
  return implementation_->ofDevice([](const CaptureDevice& device) { return device.torchMode(); },
                                   CaptureTorchMode::off);
}

CaptureTorchMode TavrelCamera::preferredTorchMode() const {
  return implementation_->wishes.get(&TavrelCameraConfiguration::preferredTorchMode);
}

void TavrelCamera::setPreferredTorchMode(CaptureTorchMode mode) {
  implementation_->set(&TavrelCameraConfiguration::preferredTorchMode, mode, CameraControl::torchMode);
}

CaptureFlashMode TavrelCamera::flashMode() const {
  return implementation_->ofDevice([](const CaptureDevice& device) { return device.flashMode(); },
                                   CaptureFlashMode::off);
}

CaptureFlashMode TavrelCamera::preferredFlashMode() const {
  return implementation_->wishes.get(&TavrelCameraConfiguration::preferredFlashMode);
}

void TavrelCamera::setPreferredFlashMode(CaptureFlashMode mode) {
  implementation_->set(&TavrelCameraConfiguration::preferredFlashMode, mode, CameraControl::flashMode);
}

double TavrelCamera::videoMaxZoomFactor() const {
  return implementation_->ofDevice(
      [](const CaptureDevice& device) { return device.activeFormat()->videoMaxZoomFactor; }, 1.0);
}

double TavrelCamera::videoZoomFactor() const {
  return implementation_->ofDevice([](const CaptureDevice& device) { return device.videoZoomFactor(); }, 1.0);
}

double TavrelCamera::preferredVideoZoomFactor() const {
  return implementation_->wishes.get(&TavrelCameraConfiguration::preferredVideoZoomFactor);
}

void TavrelCamera::setPreferredVideoZoomFactor(double factor) {
  implementation_->set(&TavrelCameraConfiguration::preferredVideoZoomFactor, factor, CameraControl::videoZoomFactor);
}

bool TavrelCamera::continuousAutoFocusEnable() const {
  return implementation_->ofDevice(
      [](const CaptureDevice& device) { return device.focusMode() == CaptureFocusMode::continuousAutoFocus; }, false);
}

bool TavrelCamera::preferredContinuousAutoFocusEnable() const {
  return implementation_->wishes.get(&TavrelCameraConfiguration::preferredContinuousAutoFocusEnable);
}

void TavrelCamera::setPreferredContinuousAutoFocusEnable(bool isEnabled) {
  implementation_->set(&TavrelCameraConfiguration::preferredContinuousAutoFocusEnable, isEnabled,
                       CameraControl::continuousAutoFocus);
}

bool TavrelCamera::continuousAutoExposureEnable() const {
  return implementation_->ofDevice(
      [](const CaptureDevice& device) { return device.exposureMode() == CaptureExposureMode::continuousAutoExposure; },
      false);
}

bool TavrelCamera::preferredContinuousAutoExposureEnable() const {
  return implementation_->wishes.get(&TavrelCameraConfiguration::preferredContinuousAutoExposureEnable);
}

void TavrelCamera::setPreferredContinuousAutoExposureEnable(bool isEnabled) {
  implementation_->set(&TavrelCameraConfiguration::preferredContinuousAutoExposureEnable, isEnabled,
                       CameraControl::continuousAutoExposure);
}

Point TavrelCamera::focusPointOfInterest() const {
  return implementation_->ofDevice([](const CaptureDevice& device) { return device.focusPointOfInterest(); },
                                   Point{0.5, 0.5});
}

Point TavrelCamera::preferredFocusPointOfInterest() const {
  return implementation_->wishes.get(&TavrelCameraConfiguration::preferredFocusPointOfInterest);
}

void TavrelCamera::setPreferredFocusPointOfInterest(Point point) {
  implementation_->set(&TavrelCameraConfiguration::preferredFocusPointOfInterest, point,
                       CameraControl::focusPointOfInterest);
}

Point TavrelCamera::exposurePointOfInterest() const {
  return implementation_->ofDevice([](const CaptureDevice& device) { return device.exposurePointOfInterest(); },
                                   Point{0.5, 0.5});
}

Point TavrelCamera::preferredExposurePointOfInterest() const {
  return implementation_->wishes.get(&TavrelCameraConfiguration::preferredExposurePointOfInterest);
}

void TavrelCamera::setPreferredExposurePointOfInterest(Point point) {
  implementation_->set(&TavrelCameraConfiguration::preferredExposurePointOfInterest, point,
                       CameraControl::exposurePointOfInterest);
}

}  // namespace tavrel
