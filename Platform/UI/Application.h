#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// How the device is held.
enum class DeviceOrientation { unknown, portrait, portraitUpsideDown, landscapeLeft, landscapeRight, faceUp, faceDown };

/// How visible the application is.
enum class ApplicationState {
  active,      ///< a window has the keyboard, or there is no window at all
  inactive,    ///< windows can be seen, but another program has the keyboard
  background,  ///< every window is minimised or hidden
};

/// The state of the running application, from SDL's events, SIGTERM and the kernel's memory pressure
/// (`/proc/pressure/memory`). Any thread unless stated otherwise.
///
///     active ◀──▶ inactive ◀──▶ background
class TAVREL_API Application {
 public:
  /// Never destroyed.
  static Application& shared();

  /// Makes GL use the window system's display; opening a window does so too. Call it before the graph is first used,
  /// which may bind GL to a headless display. Fails (`UIStatus`) in that case, without a display, and with
  /// `TAVREL_DISPLAY=headless`. Main thread.
  Expected<void> startUserInterface();
  /// Watches for memory pressure and, unless the program handles it, SIGTERM, on its own thread ("tavrel.system").
  /// Called by `startUserInterface`; programs without a window may call it directly.
  void observeSystem();

  ApplicationState state() const { return state_; }
  /// For the owner of the windows. Posts the notifications between the old state and the new one, in order. Main
  /// thread.
  void setState(ApplicationState state);
  /// Posts `kApplicationDidReceiveMemoryWarningNotification` on the main thread.
  void receiveMemoryWarning();
  /// Posts `kApplicationWillTerminateNotification` on the main thread, then stops the main run loop. Further calls have
  /// no effect.
  void terminate();
  bool isTerminating() const { return isTerminating_; }

  /// `unknown` until set, for example by a sensor service.
  DeviceOrientation deviceOrientation() const { return deviceOrientation_; }
  void setDeviceOrientation(DeviceOrientation orientation) { deviceOrientation_ = orientation; }

 private:
  Application() = default;

  std::atomic<DeviceOrientation> deviceOrientation_ = DeviceOrientation::unknown;
  std::atomic<ApplicationState> state_ = ApplicationState::active;
  std::atomic<bool> isTerminating_ = false;
  std::once_flag systemObserved_;
};

}  // namespace tavrel
