#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Capture/CaptureClock.h"
#include "Platform/Capture/CaptureDevice.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

class CaptureOutput;

/// Makes the virtual devices fail on demand, for tests of capturing programs. Each setting holds until it is changed or
/// `reset`. Any thread.
///
/// The devices share one scene time: flashes and beeps coincide whenever each device was started.
class TAVREL_API VirtualCaptureSystem {
 public:
  static constexpr std::string_view kBackCamera = "virtual:back";
  static constexpr std::string_view kFrontCamera = "virtual:front";
  static constexpr std::string_view kMicrophone = "virtual:microphone";

  static VirtualCaptureSystem& shared();

  /// Restores the initial state: every device connected with its initial settings, no failures, real time. Added files
  /// stay.
  void reset();
  /// Removes the devices added by `CaptureDevice::addFile`.
  void removeFiles();

  /// Sets `CaptureClock::current()`, the clock of devices opened from now on.
  void setClock(std::shared_ptr<CaptureClock> clock);

  /// Unplugs or replugs a device, with notifications and an error in the session that uses it.
  void setConnected(std::string_view uniqueID, bool connected);
  /// Lists a device or leaves it out, without a notification. A session that uses it is not affected.
  void setPresent(std::string_view uniqueID, bool present);
  /// The user's answer to `requestAccess`.
  void setAccessGranted(bool granted);
  /// The error of the device's `lockForConfiguration`; nothing for none.
  void setLockError(std::string_view uniqueID, std::optional<Error> error);
  /// The error of `CaptureDeviceInput::create`.
  void setInputError(std::string_view uniqueID, std::optional<Error> error);
  /// The error of opening the device in a session.
  void setOpenError(std::string_view uniqueID, std::optional<Error> error);
  /// The error of still captures.
  void setStillImageError(std::optional<Error> error);
  /// Makes sessions refuse inputs and outputs for which the function returns true. It is called with the session's lock
  /// held.
  void setInputRefusal(std::function<bool(const CaptureDevice& device)> refuses);
  void setOutputRefusal(std::function<bool(const CaptureOutput& output)> refuses);

  /// What the device supports; everything by default.
  struct Support {
    bool torch = true;
    bool flash = true;
    bool focusModes[3] = {true, true, true};     ///< indexed by `CaptureFocusMode`
    bool exposureModes[3] = {true, true, true};  ///< indexed by `CaptureExposureMode`
    bool focusPoint = true;
    bool exposurePoint = true;
    bool zoom = true;
  };
  void setSupport(std::string_view uniqueID, const Support& support);

  /// The error of `AudioSession::setCategory`.
  void setAudioCategoryError(std::optional<Error> error);

  /// Makes the running device fail as if its driver had; it stays connected.
  void failDevice(std::string_view uniqueID, Error error);
  /// Makes the device, when it is opened next, deliver each sample so many seconds after the time it is stamped with.
  void setLatency(std::string_view uniqueID, double seconds);
  /// While true, the device delivers nothing and reports no error.
  void setStalled(std::string_view uniqueID, bool stalled);

 private:
  VirtualCaptureSystem() = default;
};

}  // namespace tavrel
