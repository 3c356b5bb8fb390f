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

/// The bench on which programs that use the virtual devices are tested: what can go wrong goes wrong on demand. Each
/// setting holds until it is changed or `reset`. Any thread.
///
/// The virtual devices are "virtual:back" and "virtual:front", cameras, and "virtual:microphone". Their scene time is
/// common: flashes and beeps fall on the same instants of their clock, whenever each was started.
class TAVREL_API VirtualCaptureSystem {
 public:
  static constexpr std::string_view kBackCamera = "virtual:back";
  static constexpr std::string_view kFrontCamera = "virtual:front";
  static constexpr std::string_view kMicrophone = "virtual:microphone";

  static VirtualCaptureSystem& shared();

  /// Everything as at the start: all devices connected, their settings as they were, nothing fails, real time. Files
  /// that were added stay unless `removeFiles`.
  void reset();
  /// The devices that `CaptureDevice::addFile` added go.
  void removeFiles();

  /// The clock of devices that are opened from now on, and `CaptureClock::current()`.
  void setClock(std::shared_ptr<CaptureClock> clock);

  /// Unplugs and replugs a virtual device, with notifications; a session that runs on it is told.
  void setConnected(std::string_view uniqueID, bool connected);
  /// A device that is left out from the start: not listed, no notification. Sessions go on with one they have.
  void setPresent(std::string_view uniqueID, bool present);
  /// The user's answer to `requestAccess`.
  void setAccessGranted(bool granted);
  /// What `lockForConfiguration` of the device fails with; nothing: it does not.
  void setLockError(std::string_view uniqueID, std::optional<Error> error);
  /// What `CaptureDeviceInput::create` fails with.
  void setInputError(std::string_view uniqueID, std::optional<Error> error);
  /// What opening the device in a session fails with.
  void setOpenError(std::string_view uniqueID, std::optional<Error> error);
  /// What still captures fail with.
  void setStillImageError(std::optional<Error> error);
  /// Sessions refuse these inputs and outputs while the function says so; it is called with the session's lock held.
  void setInputRefusal(std::function<bool(const CaptureDevice& device)> refuses);
  void setOutputRefusal(std::function<bool(const CaptureOutput& output)> refuses);

  /// What the device says that it supports; everything at first.
  struct Support {
    bool torch = true;
    bool flash = true;
    bool focusModes[3] = {true, true, true};     ///< by `CaptureFocusMode`
    bool exposureModes[3] = {true, true, true};  ///< by `CaptureExposureMode`
    bool focusPoint = true;
    bool exposurePoint = true;
  };
  void setSupport(std::string_view uniqueID, const Support& support);

  /// What `AudioSession::setCategory` fails with.
  void setAudioCategoryError(std::optional<Error> error);

  /// The running device fails now, as if its driver did, and stays connected.
  void failDevice(std::string_view uniqueID, Error error);
  /// Frames stop coming without an error until it is called with false.
  void setStalled(std::string_view uniqueID, bool stalled);

 private:
  VirtualCaptureSystem() = default;
};

}  // namespace tavrel
