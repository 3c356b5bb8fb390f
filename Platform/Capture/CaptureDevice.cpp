#include "Platform/Capture/CaptureDevice.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Platform/Capture/CaptureDelivery.h"
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

bool CaptureDevice::hasStandIns() { return CaptureSystem::shared().hasStandIns(); }

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

const std::string& CaptureDevice::uniqueID() const { return implementation_->uniqueID; }

const std::string& CaptureDevice::localizedName() const { return implementation_->localizedName; }

MediaType CaptureDevice::mediaType() const { return implementation_->mediaType; }

const std::string& CaptureDevice::backendName() const { return implementation_->backendName; }

CaptureDevicePosition CaptureDevice::position() const { return implementation_->get(&Implementation::position); }

bool CaptureDevice::isConnected() const { return implementation_->get(&Implementation::isConnected); }

bool CaptureDevice::isLoopback() const { return CaptureSystem::isTakenOnlyByName(*this); }

std::optional<CaptureDelivery> CaptureDevice::delivery() const {
  return implementation_->get(&Implementation::driver)->delivery();
}

Expected<void> CaptureDevice::lockForConfiguration() {
  Implementation& device = *implementation_;
  const std::lock_guard lock(device.mutex);
  if (auto connected = device.checkConnected(); !connected) return connected;
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

/// A mode that the driver offers or not, and what the driver carries out at once when it is set.
#define TAVREL_MODE(Name, name, carriedOut)                                                                            \
  bool CaptureDevice::is##Name##ModeSupported(Capture##Name##Mode mode) const {                                        \
    return implementation_->supports(&CaptureCapabilities::name##Modes, mode);                                         \
  }                                                                                                                    \
  Capture##Name##Mode CaptureDevice::name##Mode() const { return implementation_->get(&CaptureControls::name##Mode); } \
  void CaptureDevice::set##Name##Mode(Capture##Name##Mode mode) {                                                      \
    implementation_->set("set" #Name "Mode", &CaptureControls::name##Mode, &CaptureCapabilities::name##Modes, mode,    \
                         carriedOut);                                                                                  \
  }

TAVREL_MODE(Torch, torch, CaptureControl::torch)
TAVREL_MODE(Flash, flash, std::nullopt)
TAVREL_MODE(Focus, focus, CaptureControl::focus)
TAVREL_MODE(Exposure, exposure, CaptureControl::exposure)

#define TAVREL_POINT_OF_INTEREST(Name, name)                                                                         \
  bool CaptureDevice::is##Name##PointOfInterestSupported() const {                                                   \
    return implementation_->supports(&CaptureCapabilities::name##Point);                                             \
  }                                                                                                                  \
  Point CaptureDevice::name##PointOfInterest() const { return implementation_->get(&CaptureControls::name##Point); } \
  void CaptureDevice::set##Name##PointOfInterest(Point point) {                                                      \
    implementation_->set("set" #Name "PointOfInterest", &CaptureControls::name##Point,                               \
                         &CaptureCapabilities::name##Point, point);                                                  \
  }

TAVREL_POINT_OF_INTEREST(Focus, focus)
TAVREL_POINT_OF_INTEREST(Exposure, exposure)

double CaptureDevice::videoZoomFactor() const { return implementation_->get(&CaptureControls::zoomFactor); }

double CaptureDevice::digitalZoomFactor() const { return implementation_->digitalZoom; }

void CaptureDevice::setVideoZoomFactor(double factor) {
  Implementation& device = *implementation_;
  const auto lock = device.lockToSet("setVideoZoomFactor");
  const double most = std::max(1.0, device.activeFormat->videoMaxZoomFactor);
  device.setZoom(std::fmin(most, std::fmax(1, factor)));
  device.driver->apply(CaptureControl::zoom, device.controls);
}

}  // namespace tavrel
