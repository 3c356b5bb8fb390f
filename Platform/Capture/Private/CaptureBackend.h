#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "Platform/Capture/CaptureDeviceModes.h"
#include "Platform/Capture/Private/CaptureDriver.h"

namespace tavrel {

/// Is told by a backend what is plugged in. Any thread, without locks held.
class CaptureBackendObserver {
 public:
  virtual ~CaptureBackendObserver() = default;

  virtual void deviceAppeared(std::shared_ptr<CaptureDriver> driver) = 0;
  /// The device of this driver is gone.
  virtual void deviceDisappeared(const std::shared_ptr<CaptureDriver>& driver) = 0;
  /// The service behind the backend went away and came back.
  virtual void servicesWereReset() = 0;
};

/// A source of devices.
class CaptureBackend {
 public:
  virtual ~CaptureBackend() = default;

  virtual const char* name() const = 0;
  /// Reports the devices there are, and goes on reporting. Returns after the first look, at most after three seconds.
  virtual void start(CaptureBackendObserver& observer) = 0;
  /// Ends reporting; devices stay as they are. The observer is not called any more.
  virtual void stop() = 0;
  virtual CaptureAuthorizationStatus authorizationStatus(MediaType mediaType) = 0;
  /// Waits for the person who decides on access, where one is asked; a minute at most, and not after `stop`.
  virtual void awaitAccess(MediaType) {}
  /// Why there may be devices that it cannot show; nothing when it sees what there is.
  virtual std::optional<Error> problem() const { return std::nullopt; }
};

}  // namespace tavrel
