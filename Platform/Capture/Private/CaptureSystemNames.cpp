// Which devices people see, in which order, and which one they mean by a name.
#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Private/CaptureDeviceImplementation.h"
#include "Platform/Capture/Private/CaptureSystem.h"
#include "Platform/Capture/Virtual/VirtualCaptureSystem.h"

namespace tavrel {
namespace {

constexpr std::string_view kFilePrefix = "file:";

}  // namespace

bool CaptureSystem::isTakenOnlyByName(const CaptureDevice& device) {
  const std::lock_guard lock(device.implementation_->mutex);
  const CaptureDeviceDescription& description = device.implementation_->driver->description();
  return description.isMonitor || description.isOwnFeed;
}

bool CaptureSystem::isFile(const CaptureDevice& device) { return device.uniqueID().starts_with(kFilePrefix); }

bool CaptureSystem::listsSynthetic() {
  if (synthetic_ != Synthetic::withoutRealOnes) return synthetic_ == Synthetic::always;
  if (problem()) return false;
  const std::lock_guard lock(mutex_);
  // One that was unplugged is not replaced by a drawing either.
  return std::none_of(devices_.begin(), devices_.end(), [&](const auto& device) {
    return device->backendName() != virtual_->name() && !isTakenOnlyByName(*device);
  });
}

std::optional<Error> CaptureSystem::problem() {
  for (const auto& backend : backends_) {
    if (auto found = backend->problem()) return found;
  }
  return std::nullopt;
}

bool CaptureSystem::hasStandIns() {
  ensureStarted();
  const std::lock_guard start(startMutex_);
  return synthetic_ == Synthetic::withoutRealOnes && listsSynthetic();
}

Error CaptureSystem::noDevice(MediaType mediaType) {
  {
    const std::lock_guard start(startMutex_);
    if (auto found = problem()) return *found;
  }
  const bool isVideo = mediaType == MediaType::video;
  return makeError(CaptureErrorCode::noSuchDevice,
                   fmt::format("no {} is connected; file:PATH can stand in, or {}", isVideo ? "camera" : "microphone",
                               isVideo ? VirtualCaptureSystem::kFrontCamera : VirtualCaptureSystem::kMicrophone));
}

bool CaptureSystem::isListed(const CaptureDevice& device) {
  const std::lock_guard lock(device.implementation_->mutex);
  return device.implementation_->isConnected && device.implementation_->isListed;
}

bool CaptureSystem::isDefault(const CaptureDevice& device) {
  const std::lock_guard lock(device.implementation_->mutex);
  return device.implementation_->driver->isSystemDefault();
}

std::vector<std::shared_ptr<CaptureDevice>> CaptureSystem::devices(MediaType mediaType) {
  ensureStarted();
  std::vector<std::string> ranking;
  {
    const std::lock_guard start(startMutex_);
    for (const auto& backend : backends_) ranking.emplace_back(backend->name());
    if (listsSynthetic()) ranking.emplace_back(virtual_->name());
  }
  const std::lock_guard lock(mutex_);
  std::vector<std::shared_ptr<CaptureDevice>> found;
  for (const std::string& backend : ranking) {
    std::copy_if(devices_.begin(), devices_.end(), std::back_inserter(found), [&](const auto& device) {
      return device->mediaType() == mediaType && device->backendName() == backend && !isFile(*device) &&
             !isTakenOnlyByName(*device) && isListed(*device);
    });
    if (!found.empty()) break;
  }
  std::copy_if(devices_.begin(), devices_.end(), std::back_inserter(found), [&](const auto& device) {
    return device->mediaType() == mediaType && isTakenOnlyByName(*device) && isListed(*device);
  });
  std::copy_if(devices_.begin(), devices_.end(), std::back_inserter(found), [&](const auto& device) {
    return device->mediaType() == mediaType && isFile(*device) && isListed(*device);
  });
  return found;
}

std::shared_ptr<CaptureDevice> CaptureSystem::defaultDevice(MediaType mediaType) {
  auto all = devices(mediaType);
  std::erase_if(all, [](const auto& device) { return isTakenOnlyByName(*device); });
  if (all.empty()) return nullptr;
  if (isFile(*all.back())) return all.back();
  const auto preferred = std::find_if(all.begin(), all.end(), [&](const auto& device) {
    return mediaType == MediaType::audio ? isDefault(*device) : device->position() == CaptureDevicePosition::back;
  });
  return preferred != all.end() ? *preferred : all.front();
}

std::shared_ptr<CaptureDevice> CaptureSystem::find(std::string_view uniqueID) const {
  const auto found = std::find_if(devices_.begin(), devices_.end(),
                                  [&](const auto& device) { return device->uniqueID() == uniqueID; });
  return found != devices_.end() ? *found : nullptr;
}

std::shared_ptr<CaptureDevice> CaptureSystem::deviceWithUniqueID(std::string_view uniqueID) {
  ensureStarted();
  const std::lock_guard lock(mutex_);
  return find(uniqueID);
}

std::shared_ptr<CaptureDevice> CaptureSystem::syntheticNamed(std::string_view name, MediaType mediaType) const {
  const std::lock_guard lock(mutex_);
  const auto found = std::find_if(devices_.begin(), devices_.end(), [&](const auto& device) {
    return device->backendName() == virtual_->name() && device->mediaType() == mediaType && isListed(*device) &&
           (device->uniqueID() == name || device->localizedName() == name);
  });
  return found != devices_.end() ? *found : nullptr;
}

Expected<std::shared_ptr<CaptureDevice>> CaptureSystem::deviceNamed(std::string_view name, MediaType mediaType,
                                                                    CaptureDevicePosition filePosition) {
  if (name.starts_with(kFilePrefix)) return addFile(name.substr(kFilePrefix.size()), mediaType, filePosition);
  if (name == "default") {
    if (auto device = defaultDevice(mediaType)) return device;
  }
  const std::string wanted(name);
  std::string choices;
  const auto all = devices(mediaType);
  for (const auto& device : all) {
    if (device->uniqueID() == name || strcasecmp(device->localizedName().c_str(), wanted.c_str()) == 0) return device;
    choices += fmt::format("{}\"{}\"", choices.empty() ? "" : ", ", device->localizedName());
  }
  const auto wantedPosition = name == "front"  ? CaptureDevicePosition::front
                              : name == "back" ? CaptureDevicePosition::back
                                               : CaptureDevicePosition::unspecified;
  if (wantedPosition != CaptureDevicePosition::unspecified) {
    for (const auto& device : all) {
      if (device->position() == wantedPosition) return device;
    }
    // Many a camera does not say where it stands, and many a machine has one only.
    for (const auto& device : all) {
      if (!isTakenOnlyByName(*device)) return device;
    }
  }
  if (auto unlisted = syntheticNamed(name, mediaType)) return unlisted;
  if (all.empty()) return tl::unexpected(noDevice(mediaType));
  const char* kind = mediaType == MediaType::video ? "camera" : "microphone";
  return failure(CaptureErrorCode::noSuchDevice,
                 fmt::format("there is no {} named \"{}\"; choose {} or file:PATH", kind, name, choices));
}

Expected<std::shared_ptr<CaptureDevice>> CaptureSystem::addFile(const std::filesystem::path& path, MediaType mediaType,
                                                                CaptureDevicePosition position) {
  ensureStarted();
  const std::string uniqueID = fmt::format("{}{}", kFilePrefix, path.string());
  std::shared_ptr<CaptureDevice> device;
  {
    const std::lock_guard lock(mutex_);
    device = find(uniqueID);
  }
  if (!device || device->mediaType() != mediaType) {
    auto driver = virtual_->makeFileDriver(path, mediaType, position);
    if (!driver) return tl::unexpected(driver.error());
    device.reset(new CaptureDevice(std::make_unique<CaptureDevice::Implementation>(std::move(*driver), position)));
  }
  {
    const std::lock_guard deviceLock(device->implementation_->mutex);
    device->implementation_->position = position;
    device->implementation_->isListed = true;
  }
  const std::lock_guard lock(mutex_);
  // The one added last comes last.
  std::erase(devices_, device);
  devices_.push_back(device);
  return device;
}

}  // namespace tavrel
