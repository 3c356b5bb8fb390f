#include "Platform/Capture/Virtual/VirtualCaptureSystem.h"

#include <utility>

#include "Platform/Capture/Private/CaptureSystem.h"
#include "Platform/Media/AudioSession.h"

namespace tavrel {
namespace {

VirtualCaptureBackend& backend() { return CaptureSystem::shared().virtualBackend(); }

}  // namespace

VirtualCaptureSystem& VirtualCaptureSystem::shared() {
  static VirtualCaptureSystem system;
  return system;
}

void VirtualCaptureSystem::reset() {
  for (const auto& driver : backend().drivers()) {
    const std::string& uniqueID = driver->description().uniqueID;
    setConnected(uniqueID, true);
    setPresent(uniqueID, true);
    driver->change([](VirtualDriver::Faults& faults) { faults = {}; });
  }
  CaptureSystem::shared().resetSettings();
  backend().setAccessGranted(true);
  setInputRefusal(nullptr);
  setOutputRefusal(nullptr);
  setStillImageError(std::nullopt);
  setAudioCategoryError(std::nullopt);
  setClock(nullptr);
}

void VirtualCaptureSystem::removeFiles() { CaptureSystem::shared().removeFiles(); }

void VirtualCaptureSystem::setClock(std::shared_ptr<CaptureClock> clock) { CaptureClock::setCurrent(std::move(clock)); }

void VirtualCaptureSystem::setConnected(std::string_view uniqueID, bool connected) {
  backend().setConnected(uniqueID, connected);
}

void VirtualCaptureSystem::setPresent(std::string_view uniqueID, bool present) {
  CaptureSystem::shared().setListed(uniqueID, present);
}

void VirtualCaptureSystem::setAccessGranted(bool granted) { backend().setAccessGranted(granted); }

void VirtualCaptureSystem::setLockError(std::string_view uniqueID, std::optional<Error> error) {
  backend().driver(uniqueID)->change([&](VirtualDriver::Faults& faults) { faults.lockError = std::move(error); });
}

void VirtualCaptureSystem::setInputError(std::string_view uniqueID, std::optional<Error> error) {
  backend().driver(uniqueID)->change([&](VirtualDriver::Faults& faults) { faults.inputError = std::move(error); });
}

void VirtualCaptureSystem::setOpenError(std::string_view uniqueID, std::optional<Error> error) {
  backend().driver(uniqueID)->change([&](VirtualDriver::Faults& faults) { faults.openError = std::move(error); });
}

void VirtualCaptureSystem::setStillImageError(std::optional<Error> error) {
  backend().refuse(&VirtualCaptureBackend::Refusals::stillImage, std::move(error));
}

void VirtualCaptureSystem::setInputRefusal(std::function<bool(const CaptureDevice&)> refuses) {
  backend().refuse(&VirtualCaptureBackend::Refusals::input, std::move(refuses));
}

void VirtualCaptureSystem::setOutputRefusal(std::function<bool(const CaptureOutput&)> refuses) {
  backend().refuse(&VirtualCaptureBackend::Refusals::output, std::move(refuses));
}

void VirtualCaptureSystem::setSupport(std::string_view uniqueID, const Support& support) {
  backend().driver(uniqueID)->change([&](VirtualDriver::Faults& faults) { faults.support = support; });
}

void VirtualCaptureSystem::setAudioCategoryError(std::optional<Error> error) {
  AudioSession::CategoryHandler handler;
  if (error) {
    handler = [error = std::move(*error)](AudioSessionCategory, unsigned) -> Expected<void> {
      return tl::unexpected(error);
    };
  }
  AudioSession::shared().setCategoryHandler(std::move(handler));
}

void VirtualCaptureSystem::failDevice(std::string_view uniqueID, Error error) {
  backend().driver(uniqueID)->fail(std::move(error));
}

void VirtualCaptureSystem::setLatency(std::string_view uniqueID, double seconds) {
  backend().driver(uniqueID)->change([&](VirtualDriver::Faults& faults) { faults.latency = seconds; });
}

void VirtualCaptureSystem::setStalled(std::string_view uniqueID, bool stalled) {
  backend().driver(uniqueID)->change([&](VirtualDriver::Faults& faults) { faults.isStalled = stalled; });
}

}  // namespace tavrel
