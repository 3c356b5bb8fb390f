#include "Platform/Capture/CaptureDevice.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "Platform/Capture/Private/CaptureDeviceImplementation.h"
#include "Platform/Capture/Private/CaptureSessionCore.h"
#include "Platform/Capture/Private/CaptureSystem.h"
#include "Platform/Capture/Private/FrameRates.h"
#include "Platform/Foundation/FatalAssertion.h"

namespace tavrel {
namespace {

template <typename Mode>
bool isSupported(const std::array<bool, 3>& modes, Mode mode) {
  const auto index = static_cast<std::size_t>(mode);
  return index < modes.size() && modes[index];
}

double inUnit(double value) {
  return std::fmin(1, std::fmax(0, value));
}

Point inUnitSquare(Point point) {
  return {inUnit(point.x), inUnit(point.y)};
}

}  // namespace

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
  const std::lock_guard lock(implementation_->mutex);
  return implementation_->position;
}

bool CaptureDevice::isConnected() const {
  const std::lock_guard lock(implementation_->mutex);
  return implementation_->isConnected;
}

Expected<void> CaptureDevice::lockForConfiguration() {
  Implementation& device = *implementation_;
  const std::lock_guard lock(device.mutex);
  if (!device.isConnected) {
    return failure("capture", 1, fmt::format("{} is not connected; plug it in again", device.localizedName));
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

/// The mutex of a device whose configuration lock is held.
class CaptureDevice::Setting {
 public:
  Setting(Implementation& device, std::string_view setter) : lock_(device.mutex) {
    if (device.lockCount == 0) fatalAssertion("{} needs lockForConfiguration on {}", setter, device.localizedName);
  }

 private:
  std::lock_guard<std::mutex> lock_;
};

std::vector<std::shared_ptr<const CaptureDeviceFormat>> CaptureDevice::formats() const {
  const std::lock_guard lock(implementation_->mutex);
  return implementation_->formats;
}

std::shared_ptr<const CaptureDeviceFormat> CaptureDevice::activeFormat() const {
  const std::lock_guard lock(implementation_->mutex);
  return implementation_->activeFormat;
}

void CaptureDevice::setActiveFormat(const std::shared_ptr<const CaptureDeviceFormat>& format) {
  std::shared_ptr<CaptureSessionCore> user;
  {
    Implementation& device = *implementation_;
    const Setting setting(device, "setActiveFormat");
    if (std::find(device.formats.begin(), device.formats.end(), format) == device.formats.end()) {
      fatalAssertion("setActiveFormat was given a format that {} does not offer", device.localizedName);
    }
    device.useFormat(format);
    user = device.user.lock();
  }
  if (user) user->deviceFormatWasSet();
}

MediaTime CaptureDevice::activeVideoMinFrameDuration() const {
  const std::lock_guard lock(implementation_->mutex);
  return implementation_->minFrameDuration;
}

MediaTime CaptureDevice::activeVideoMaxFrameDuration() const {
  const std::lock_guard lock(implementation_->mutex);
  return implementation_->maxFrameDuration;
}

void CaptureDevice::setActiveVideoMinFrameDuration(MediaTime duration) {
  Implementation& device = *implementation_;
  const Setting setting(device, "setActiveVideoMinFrameDuration");
  const auto& ranges = device.activeFormat->videoSupportedFrameRateRanges;
  const bool isUsable = duration.isNumeric() && duration.value > 0;
  device.minFrameDuration = isUsable ? nearestFrameDuration(ranges, duration) : defaultFrameDuration(ranges);
  device.driver->setFrameRate(device.frameRate());
}

void CaptureDevice::setActiveVideoMaxFrameDuration(MediaTime duration) {
  Implementation& device = *implementation_;
  const Setting setting(device, "setActiveVideoMaxFrameDuration");
  const auto& ranges = device.activeFormat->videoSupportedFrameRateRanges;
  const bool isUsable = duration.isNumeric() && duration.value > 0;
  device.maxFrameDuration = isUsable ? nearestFrameDuration(ranges, duration) : defaultFrameDuration(ranges);
}

bool CaptureDevice::isTorchModeSupported(CaptureTorchMode mode) const {
  const std::lock_guard lock(implementation_->mutex);
  return isSupported(implementation_->driver->capabilities().torchModes, mode);
}

CaptureTorchMode CaptureDevice::torchMode() const {
  const std::lock_guard lock(implementation_->mutex);
  return implementation_->controls.torchMode;
}

void CaptureDevice::setTorchMode(CaptureTorchMode mode) {
  Implementation& device = *implementation_;
  const Setting setting(device, "setTorchMode");
  if (!isSupported(device.driver->capabilities().torchModes, mode)) return;
  device.controls.torchMode = mode;
  device.driver->apply(CaptureControl::torch, device.controls);
}

bool CaptureDevice::isFlashModeSupported(CaptureFlashMode mode) const {
  const std::lock_guard lock(implementation_->mutex);
  return isSupported(implementation_->driver->capabilities().flashModes, mode);
}

CaptureFlashMode CaptureDevice::flashMode() const {
  const std::lock_guard lock(implementation_->mutex);
  return implementation_->controls.flashMode;
}

void CaptureDevice::setFlashMode(CaptureFlashMode mode) {
  Implementation& device = *implementation_;
  const Setting setting(device, "setFlashMode");
  if (isSupported(device.driver->capabilities().flashModes, mode)) device.controls.flashMode = mode;
}

bool CaptureDevice::isFocusModeSupported(CaptureFocusMode mode) const {
  const std::lock_guard lock(implementation_->mutex);
  return isSupported(implementation_->driver->capabilities().focusModes, mode);
}

CaptureFocusMode CaptureDevice::focusMode() const {
  const std::lock_guard lock(implementation_->mutex);
  return implementation_->controls.focusMode;
}

void CaptureDevice::setFocusMode(CaptureFocusMode mode) {
  Implementation& device = *implementation_;
  const Setting setting(device, "setFocusMode");
  if (!isSupported(device.driver->capabilities().focusModes, mode)) return;
  device.controls.focusMode = mode;
  device.driver->apply(CaptureControl::focus, device.controls);
}

bool CaptureDevice::isFocusPointOfInterestSupported() const {
  const std::lock_guard lock(implementation_->mutex);
  return implementation_->driver->capabilities().focusPoint;
}

Point CaptureDevice::focusPointOfInterest() const {
  const std::lock_guard lock(implementation_->mutex);
  return implementation_->controls.focusPoint;
}

void CaptureDevice::setFocusPointOfInterest(Point point) {
  Implementation& device = *implementation_;
  const Setting setting(device, "setFocusPointOfInterest");
  if (device.driver->capabilities().focusPoint) device.controls.focusPoint = inUnitSquare(point);
}

bool CaptureDevice::isExposureModeSupported(CaptureExposureMode mode) const {
  const std::lock_guard lock(implementation_->mutex);
  return isSupported(implementation_->driver->capabilities().exposureModes, mode);
}

CaptureExposureMode CaptureDevice::exposureMode() const {
  const std::lock_guard lock(implementation_->mutex);
  return implementation_->controls.exposureMode;
}

void CaptureDevice::setExposureMode(CaptureExposureMode mode) {
  Implementation& device = *implementation_;
  const Setting setting(device, "setExposureMode");
  if (!isSupported(device.driver->capabilities().exposureModes, mode)) return;
  device.controls.exposureMode = mode;
  device.driver->apply(CaptureControl::exposure, device.controls);
}

bool CaptureDevice::isExposurePointOfInterestSupported() const {
  const std::lock_guard lock(implementation_->mutex);
  return implementation_->driver->capabilities().exposurePoint;
}

Point CaptureDevice::exposurePointOfInterest() const {
  const std::lock_guard lock(implementation_->mutex);
  return implementation_->controls.exposurePoint;
}

void CaptureDevice::setExposurePointOfInterest(Point point) {
  Implementation& device = *implementation_;
  const Setting setting(device, "setExposurePointOfInterest");
  if (device.driver->capabilities().exposurePoint) device.controls.exposurePoint = inUnitSquare(point);
}

double CaptureDevice::videoZoomFactor() const {
  const std::lock_guard lock(implementation_->mutex);
  return implementation_->controls.zoomFactor;
}

void CaptureDevice::setVideoZoomFactor(double factor) {
  Implementation& device = *implementation_;
  const Setting setting(device, "setVideoZoomFactor");
  const double most = std::max(1.0, device.activeFormat->videoMaxZoomFactor);
  device.controls.zoomFactor = std::fmin(most, std::fmax(1, factor));
  device.driver->apply(CaptureControl::zoom, device.controls);
}

}  // namespace tavrel
