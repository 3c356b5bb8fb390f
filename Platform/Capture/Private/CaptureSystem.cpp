#include <algorithm>
#include <utility>

#include "Platform/Capture/Private/CaptureBackends.h"
#include "Platform/Capture/Private/CaptureDeviceImplementation.h"
#include "Platform/Capture/Private/CaptureSessionCore.h"
#include "Platform/Capture/Private/CaptureSystem.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/Environment.h"
#include "Platform/Foundation/NotificationCenter.h"
#include "Platform/Foundation/Notifications.h"
#include "Platform/Foundation/ProcessEnd.h"
#include "Platform/Media/AudioSession.h"

namespace tavrel {
namespace {

constexpr std::string_view kVirtualName = "virtual";

/// What `TAVREL_CAPTURE` asks for.
std::string_view wantedBackend() {
  const std::string_view value = environmentVariable("TAVREL_CAPTURE").value_or("");
  return value.empty() ? "auto" : value;
}

void postLater(const char* name, const std::shared_ptr<const void>& object) {
  DispatchQueue::global()->async([name, object] { NotificationCenter::defaultCenter().post(name, object.get()); });
}

}  // namespace

CaptureSystem& CaptureSystem::shared() {
  // Never destroyed: devices and queues are used by whatever else ends late.
  static auto* system = [] {
    auto* created = new CaptureSystem;
    ProcessEnd::at(ProcessEnd::Stage::sources, [created] { created->windUp(); });
    return created;
  }();
  return *system;
}

CaptureSystem::CaptureSystem()
    : queue_(DispatchQueue::create("tavrel.capture")), virtual_(std::make_unique<VirtualCaptureBackend>()) {}

void CaptureSystem::windUp() {
  const std::lock_guard start(startMutex_);
  stopBackends();
  std::vector<std::shared_ptr<CaptureDevice>> devices;
  {
    const std::lock_guard lock(mutex_);
    devices = devices_;
  }
  for (const auto& device : devices) device->implementation_->driver->close();
  queue_->shutDown();
}

void CaptureSystem::ensureStarted() {
  const std::lock_guard start(startMutex_);
  if (isStarted_) return;
  const std::string_view wanted = wantedBackend();
  synthetic_ = wanted == "auto"         ? Synthetic::withoutRealOnes
               : wanted == kVirtualName ? Synthetic::always
                                        : Synthetic::never;
  backends_ = makeCaptureBackends(wanted);
  if (backends_.empty() && synthetic_ == Synthetic::never) {
    ConsoleLog::write(
        "TAVREL_CAPTURE={} is not known or was not built in; choose pipewire, v4l2, portal, virtual or auto", wanted);
  }
  startBackends();
}

void CaptureSystem::startBackends() {
  isStarted_ = true;
  virtual_->start(*this);
  for (const auto& backend : backends_) backend->start(*this);
}

void CaptureSystem::stopBackends() {
  for (const auto& backend : backends_) backend->stop();
  virtual_->stop();
  backends_.clear();
  isStarted_ = false;
}

void CaptureSystem::forget() {
  stopBackends();
  const std::lock_guard lock(mutex_);
  devices_.clear();
  accessWasAsked_ = false;
}

void CaptureSystem::restart() {
  {
    const std::lock_guard start(startMutex_);
    forget();
  }
  ensureStarted();
}

void CaptureSystem::restartWith(std::vector<std::shared_ptr<CaptureBackend>> backends, Synthetic synthetic) {
  const std::lock_guard start(startMutex_);
  forget();
  synthetic_ = synthetic;
  backends_ = std::move(backends);
  startBackends();
}

CaptureControls CaptureSystem::controlsOf(const CaptureDevice& device) {
  const std::lock_guard lock(device.implementation_->mutex);
  return device.implementation_->controls;
}

Expected<void> CaptureSystem::checkAvailable(const CaptureDevice& device) {
  const std::lock_guard lock(device.implementation_->mutex);
  if (auto connected = device.implementation_->checkConnected(); !connected) return connected;
  return device.implementation_->driver->checkAvailable();
}

void CaptureSystem::removeFiles() {
  const std::lock_guard lock(mutex_);
  std::erase_if(devices_, [](const auto& device) { return isFile(*device); });
}

void CaptureSystem::resetSettings() {
  const std::lock_guard lock(mutex_);
  for (const auto& device : devices_) {
    const std::lock_guard deviceLock(device->implementation_->mutex);
    device->implementation_->resetSettings();
  }
}

void CaptureSystem::setListed(std::string_view uniqueID, bool listed) {
  if (const auto device = deviceWithUniqueID(uniqueID)) {
    const std::lock_guard lock(device->implementation_->mutex);
    device->implementation_->isListed = listed;
  }
}

CaptureAuthorizationStatus CaptureSystem::authorizationStatus(MediaType mediaType) {
  ensureStarted();
  {
    const std::lock_guard lock(mutex_);
    if (!accessWasAsked_) return CaptureAuthorizationStatus::notDetermined;
  }
  const bool hasDevice = !devices(mediaType).empty();
  const std::lock_guard start(startMutex_);
  const bool mayBeSynthetic = synthetic_ != Synthetic::never;
  if (mayBeSynthetic && virtual_->authorizationStatus(mediaType) == CaptureAuthorizationStatus::denied) {
    return CaptureAuthorizationStatus::denied;
  }
  if (mayBeSynthetic && hasDevice) return CaptureAuthorizationStatus::authorized;
  // Where there are devices, one backend whose devices may be used is enough.
  auto status = CaptureAuthorizationStatus::authorized;
  for (const auto& backend : backends_) {
    const CaptureAuthorizationStatus its = backend->authorizationStatus(mediaType);
    const bool isAllowed = its == CaptureAuthorizationStatus::authorized;
    if (!isAllowed || hasDevice) status = its;
    if (isAllowed && hasDevice) break;
  }
  return status;
}

bool CaptureSystem::requestAccess(MediaType mediaType) {
  {
    const std::lock_guard lock(mutex_);
    accessWasAsked_ = true;
  }
  ensureStarted();
  const auto backends = [this] {
    const std::lock_guard start(startMutex_);
    return backends_;
  }();
  for (const auto& backend : backends) backend->awaitAccess(mediaType);
  return authorizationStatus(mediaType) == CaptureAuthorizationStatus::authorized;
}

CaptureDevicePosition CaptureSystem::positionFor(const CaptureDeviceDescription& description) const {
  if (description.position != CaptureDevicePosition::unspecified || description.mediaType != MediaType::video ||
      description.isOwnFeed) {
    return description.position;
  }
  const auto isTaken = [&](CaptureDevicePosition position) {
    return std::any_of(devices_.begin(), devices_.end(), [&](const auto& device) {
      return device->backendName() == description.backendName && device->mediaType() == MediaType::video &&
             device->position() == position;
    });
  };
  for (const auto position : {CaptureDevicePosition::front, CaptureDevicePosition::back}) {
    if (!isTaken(position)) return position;
  }
  return CaptureDevicePosition::unspecified;
}

void CaptureSystem::deviceAppeared(std::shared_ptr<CaptureDriver> driver) {
  std::shared_ptr<CaptureDevice> device;
  {
    const std::lock_guard lock(mutex_);
    device = find(driver->description().uniqueID);
    if (!device) {
      const CaptureDevicePosition position = positionFor(driver->description());
      device.reset(new CaptureDevice(std::make_unique<CaptureDevice::Implementation>(std::move(driver), position)));
      devices_.push_back(device);
    } else {
      const std::lock_guard deviceLock(device->implementation_->mutex);
      device->implementation_->replaceDriver(std::move(driver));
      device->implementation_->isConnected = true;
    }
  }
  postLater(kCaptureDeviceWasConnectedNotification, device);
  if (const auto user = [&] {
        const std::lock_guard lock(device->implementation_->mutex);
        return device->implementation_->user.lock();
      }()) {
    user->deviceCameBack();
  }
}

void CaptureSystem::deviceDisappeared(const std::shared_ptr<CaptureDriver>& driver) {
  std::shared_ptr<CaptureDevice> device;
  std::shared_ptr<CaptureSessionCore> user;
  {
    const std::lock_guard lock(mutex_);
    device = find(driver->description().uniqueID);
    if (!device) return;
    const std::lock_guard deviceLock(device->implementation_->mutex);
    // It may have come back as another driver before its end was noticed.
    if (device->implementation_->driver != driver) return;
    device->implementation_->isConnected = false;
    user = device->implementation_->user.lock();
  }
  postLater(kCaptureDeviceWasDisconnectedNotification, device);
  if (user) user->deviceWentAway(device);
}

void CaptureSystem::servicesWereReset() {
  DispatchQueue::global()->async([] {
    NotificationCenter::defaultCenter().post(kAudioSessionMediaServicesWereResetNotification, &AudioSession::shared());
  });
}

}  // namespace tavrel
