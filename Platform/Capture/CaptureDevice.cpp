#include "Platform/Capture/CaptureDevice.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Private/CaptureDeviceImplementation.h"
#include "Platform/Capture/Private/CaptureSessionCore.h"
#include "Platform/Capture/Private/CaptureSystem.h"
#include "Platform/Foundation/FatalAssertion.h"

namespace tavrel {
std::vector<std::shared_ptr<CaptureDevice>> CaptureDevice::devicesWithMediaType(MediaType mediaType) {
  return CaptureSystem::shared().devices(mediaType);
}

std::shared_ptr<CaptureDevice> CaptureDevice::defaultDeviceWithMediaType(MediaType mediaType) {
  return CaptureSystem::shared().defaultDevice(mediaType);
}

std::shared_ptr<CaptureDevice> CaptureDevice::deviceWithUniqueID(std::string_view uniqueID) {
  return CaptureSystem::shared().deviceWithUniqueID(uniqueID);
}

Expected<std::shared_ptr<CaptureDevice>> CaptureDevice::deviceNamed(std::string_view name, MediaType mediaType,
                                                                    CaptureDevicePosition filePosition) {
  return CaptureSystem::shared().deviceNamed(name, mediaType, filePosition);
}

Expected<std::shared_ptr<CaptureDevice>> CaptureDevice::addFile(const std::filesystem::path& path, MediaType mediaType,
                                                                CaptureDevicePosition position) {
  return CaptureSystem::shared().addFile(path, mediaType, position);
}

CaptureAuthorizationStatus CaptureDevice::authorizationStatus(MediaType mediaType) {
  return CaptureSystem::shared().authorizationStatus(mediaType);
}

void CaptureDevice::requestAccess(MediaType mediaType, std::function<void(bool)> completion) {
  DispatchQueue::global()->async([mediaType, completion = std::move(completion)] {
    const bool granted = CaptureSystem::shared().requestAccess(mediaType);
    if (completion) completion(granted);
  });
}

CaptureDevice::CaptureDevice(std::unique_ptr<Implementation> implementation)
    : implementation_(std::move(implementation)) {}

CaptureDevice::~CaptureDevice() = default;

const std::string& CaptureDevice::uniqueID() const {
  return implementation_->uniqueID;
}

const std::string& CaptureDevice::localizedName() const {
  return implementation_->localizedName;
}

MediaType CaptureDevice::mediaType() const {
  return implementation_->mediaType;
}

const std::string& CaptureDevice::backendName() const {
  return implementation_->backendName;
}

CaptureDevicePosition CaptureDevice::position() const {
  return implementation_->get(&Implementation::position);
}

bool CaptureDevice::isConnected() const {
  return implementation_->get(&Implementation::isConnected);
}

Expected<void> CaptureDevice::lockForConfiguration() {
  Implementation& device = *implementation_;
  const std::lock_guard lock(device.mutex);
  if (!device.isConnected) {
    return failure(CaptureErrorCode::notConnected,
                   fmt::format("{} is not connected; plug it in again", device.localizedName));
  }
  if (auto allowed = device.driver->checkConfigurable(); !allowed) return allowed;
  ++device.lockCount;
  return {};
}

void CaptureDevice::unlockForConfiguration() {
  const std::lock_guard lock(implementation_->mutex);
  if (implementation_->lockCount == 0) {
    fatalAssertion("unlockForConfiguration was called on {} without lockForConfiguration", localizedName());
  }
  --implementation_->lockCount;
}

std::vector<std::shared_ptr<const CaptureDeviceFormat>> CaptureDevice::formats() const {
  return implementation_->get(&Implementation::formats);
}

std::shared_ptr<const CaptureDeviceFormat> CaptureDevice::activeFormat() const {
  return implementation_->get(&Implementation::activeFormat);
}

void CaptureDevice::setActiveFormat(const std::shared_ptr<const CaptureDeviceFormat>& format) {
  std::shared_ptr<CaptureSessionCore> user;
  {
    Implementation& device = *implementation_;
    const auto lock = device.lockToSet("setActiveFormat");
    if (std::find(device.formats.begin(), device.formats.end(), format) == device.formats.end()) {
      fatalAssertion("setActiveFormat was given a format that {} does not offer", device.localizedName);
    }
    device.useFormat(format);
    user = device.user.lock();
  }
  if (user) user->deviceFormatWasSet();
}

MediaTime CaptureDevice::activeVideoMinFrameDuration() const {
  return implementation_->get(&Implementation::minFrameDuration);
}

MediaTime CaptureDevice::activeVideoMaxFrameDuration() const {
  return implementation_->get(&Implementation::maxFrameDuration);
}

void CaptureDevice::setActiveVideoMinFrameDuration(MediaTime duration) {
  implementation_->set("setActiveVideoMinFrameDuration", &Implementation::minFrameDuration, duration);
}

void CaptureDevice::setActiveVideoMaxFrameDuration(MediaTime duration) {
  implementation_->set("setActiveVideoMaxFrameDuration", &Implementation::maxFrameDuration, duration);
}

bool CaptureDevice::isTorchModeSupported(CaptureTorchMode mode) const {
  return implementation_->supports(&CaptureCapabilities::torchModes, mode);
}

CaptureTorchMode CaptureDevice::torchMode() const {
  return implementation_->get(&CaptureControls::torchMode);
}

void CaptureDevice::setTorchMode(CaptureTorchMode mode) {
  implementation_->set("setTorchMode", &CaptureControls::torchMode, &CaptureCapabilities::torchModes, mode,
                       CaptureControl::torch);
}

bool CaptureDevice::isFlashModeSupported(CaptureFlashMode mode) const {
  return implementation_->supports(&CaptureCapabilities::flashModes, mode);
}

CaptureFlashMode CaptureDevice::flashMode() const {
  return implementation_->get(&CaptureControls::flashMode);
}

void CaptureDevice::setFlashMode(CaptureFlashMode mode) {
  implementation_->set("setFlashMode", &CaptureControls::flashMode, &CaptureCapabilities::flashModes, mode,
                       std::nullopt);
}

bool CaptureDevice::isFocusModeSupported(CaptureFocusMode mode) const {
  return implementation_->supports(&CaptureCapabilities::focusModes, mode);
}

CaptureFocusMode CaptureDevice::focusMode() const {
  return implementation_->get(&CaptureControls::focusMode);
}

void CaptureDevice::setFocusMode(CaptureFocusMode mode) {
  implementation_->set("setFocusMode", &CaptureControls::focusMode, &CaptureCapabilities::focusModes, mode,
                       CaptureControl::focus);
}

bool CaptureDevice::isFocusPointOfInterestSupported() const {
  return implementation_->supports(&CaptureCapabilities::focusPoint);
}

Point CaptureDevice::focusPointOfInterest() const {
  return implementation_->get(&CaptureControls::focusPoint);
}

void CaptureDevice::setFocusPointOfInterest(Point point) {
  implementation_->set("setFocusPointOfInterest", &CaptureControls::focusPoint, &CaptureCapabilities::focusPoint,
                       point);
}

bool CaptureDevice::isExposureModeSupported(CaptureExposureMode mode) const {
  return implementation_->supports(&CaptureCapabilities::exposureModes, mode);
}

CaptureExposureMode CaptureDevice::exposureMode() const {
  return implementation_->get(&CaptureControls::exposureMode);
}

void CaptureDevice::setExposureMode(CaptureExposureMode mode) {
  implementation_->set("setExposureMode", &CaptureControls::exposureMode, &CaptureCapabilities::exposureModes, mode,
                       CaptureControl::exposure);
}

bool CaptureDevice::isExposurePointOfInterestSupported() const {
  return implementation_->supports(&CaptureCapabilities::exposurePoint);
}

Point CaptureDevice::exposurePointOfInterest() const {
  return implementation_->get(&CaptureControls::exposurePoint);
}

void CaptureDevice::setExposurePointOfInterest(Point point) {
  implementation_->set("setExposurePointOfInterest", &CaptureControls::exposurePoint,
                       &CaptureCapabilities::exposurePoint, point);
}

double CaptureDevice::videoZoomFactor() const {
  return implementation_->get(&CaptureControls::zoomFactor);
}

void CaptureDevice::setVideoZoomFactor(double factor) {
  Implementation& device = *implementation_;
  const auto lock = device.lockToSet("setVideoZoomFactor");
  const double most = std::max(1.0, device.activeFormat->videoMaxZoomFactor);
  device.controls.zoomFactor = std::fmin(most, std::fmax(1, factor));
  device.driver->apply(CaptureControl::zoom, device.controls);
}

}  // namespace tavrel
