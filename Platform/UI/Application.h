#pragma once

#include <atomic>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// How the device is held.
enum class DeviceOrientation { unknown, portrait, portraitUpsideDown, landscapeLeft, landscapeRight, faceUp, faceDown };

/// Posted when the system runs short of memory; caches are emptied then. The poster's thread calls the observers.
inline constexpr const char* kApplicationDidReceiveMemoryWarningNotification =
    "ApplicationDidReceiveMemoryWarningNotification";

/// The running application as the library sees it. Any thread.
class TAVREL_API Application {
 public:
  /// Lives until the process ends.
  static Application& shared();

  /// `unknown` until somebody who knows, such as a sensor service, sets it.
  DeviceOrientation deviceOrientation() const { return deviceOrientation_; }
  void setDeviceOrientation(DeviceOrientation orientation) { deviceOrientation_ = orientation; }

 private:
  Application() = default;
  std::atomic<DeviceOrientation> deviceOrientation_ = DeviceOrientation::unknown;
};

}  // namespace tavrel
