#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "Platform/Capture/Virtual/FileScene.h"
#include "Platform/Capture/Virtual/FileSound.h"
#include "Platform/Capture/Virtual/Private/VirtualCaptureBackend.h"
#include "Platform/Capture/Virtual/SyntheticScene.h"
#include "Platform/Capture/Virtual/SyntheticSound.h"
#include "Platform/Foundation/FatalAssertion.h"

namespace tavrel {
namespace {

CaptureDeviceDescription describe(std::string uniqueID, std::string name, MediaType mediaType,
                                  CaptureDevicePosition position) {
  CaptureDeviceDescription description;
  description.uniqueID = std::move(uniqueID);
  description.localizedName = std::move(name);
  description.backendName = "virtual";
  description.mediaType = mediaType;
  description.position = position;
  return description;
}

std::shared_ptr<VirtualDriver> syntheticCamera(std::string_view uniqueID, std::string name,
                                               CaptureDevicePosition position) {
  const auto side =
      position == CaptureDevicePosition::front ? SyntheticScene::Position::front : SyntheticScene::Position::back;
  return makeVirtualCameraDriver(describe(std::string(uniqueID), std::move(name), MediaType::video, position),
                                 std::make_shared<SyntheticScene>(side));
}

}  // namespace

VirtualCaptureBackend::VirtualCaptureBackend() {
  drivers_.push_back(
      syntheticCamera(VirtualCaptureSystem::kBackCamera, "Virtual back camera", CaptureDevicePosition::back));
  drivers_.push_back(
      syntheticCamera(VirtualCaptureSystem::kFrontCamera, "Virtual front camera", CaptureDevicePosition::front));
  auto microphone = describe(std::string(VirtualCaptureSystem::kMicrophone), "Virtual microphone", MediaType::audio,
                             CaptureDevicePosition::unspecified);
  microphone.isSystemDefault = true;
  drivers_.push_back(
      makeVirtualMicrophoneDriver(std::move(microphone), [](int sampleRate) -> Expected<std::shared_ptr<VirtualSound>> {
        return std::make_shared<SyntheticSound>(sampleRate);
      }));
}

VirtualCaptureBackend::~VirtualCaptureBackend() = default;

void VirtualCaptureBackend::start(CaptureBackendObserver& observer) {
  {
    const std::lock_guard lock(mutex_);
    observer_ = &observer;
  }
  for (const auto& driver : drivers_) {
    if (!driver->faults().isDisconnected) observer.deviceAppeared(driver);
  }
}

void VirtualCaptureBackend::stop() {
  const std::lock_guard lock(mutex_);
  observer_ = nullptr;
}

CaptureAuthorizationStatus VirtualCaptureBackend::authorizationStatus(MediaType) {
  return isAccessGranted_ ? CaptureAuthorizationStatus::authorized : CaptureAuthorizationStatus::denied;
}

Expected<std::shared_ptr<CaptureDriver>> VirtualCaptureBackend::makeFileDriver(const std::filesystem::path& path,
                                                                               MediaType mediaType,
                                                                               CaptureDevicePosition position) const {
  auto description = describe(fmt::format("file:{}", path.string()), path.filename().string(), mediaType, position);
  if (mediaType == MediaType::video) {
    return FileScene::create(path).map(
        [&](const auto& scene) { return makeVirtualCameraDriver(std::move(description), scene); });
  }
  const auto makeSound = [path](int sampleRate) -> Expected<std::shared_ptr<VirtualSound>> {
    return FileSound::create(path, sampleRate);
  };
  const auto tried = makeSound(48000);
  if (!tried) return tl::unexpected(tried.error());
  return makeVirtualMicrophoneDriver(std::move(description), makeSound, (*tried)->channelCount());
}

std::shared_ptr<VirtualDriver> VirtualCaptureBackend::driver(std::string_view uniqueID) const {
  const auto found = std::find_if(drivers_.begin(), drivers_.end(),
                                  [&](const auto& driver) { return driver->description().uniqueID == uniqueID; });
  if (found == drivers_.end()) fatalAssertion("there is no virtual device named {}", uniqueID);
  return *found;
}

void VirtualCaptureBackend::setConnected(std::string_view uniqueID, bool connected) {
  const auto changed = driver(uniqueID);
  bool wasConnected = true;
  changed->change(
      [&](VirtualDriver::Faults& faults) { wasConnected = !std::exchange(faults.isDisconnected, !connected); });
  CaptureBackendObserver* observer = nullptr;
  {
    const std::lock_guard lock(mutex_);
    observer = observer_;
  }
  if (!observer || wasConnected == connected) return;
  if (connected) {
    observer->deviceAppeared(changed);
  } else {
    observer->deviceDisappeared(changed);
  }
}

}  // namespace tavrel
