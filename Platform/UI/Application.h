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

/// The running application as the library sees it. Stands on SDL's events, on SIGTERM and on the kernel's
/// memory-pressure file (`/proc/pressure/memory`). Any thread, unless said otherwise.
///
///     active ◀──▶ inactive ◀──▶ background
class TAVREL_API Application {
 public:
  /// Lives until the process ends.
  static Application& shared();

  /// Makes the window system's display the one that GL uses, without a window yet; windows do so by themselves. To be
  /// called before the graph is first used: afterwards GL may be bound to a headless display. Fails (`UIStatus`) then,
  /// when there is no display to be had, and under `TAVREL_DISPLAY=headless`. Main thread.
  Expected<void> startUserInterface();
  /// Watches for SIGTERM, unless the program handles it itself, and for memory pressure, on a thread of its own
  /// ("tavrel.system"). Done by `startUserInterface` too; programs without a window may call it alone.
  void observeSystem();

  ApplicationState state() const { return state_; }
  /// Whoever sees windows says so here; posts the notifications between the earlier state and this one, in order. Main
  /// thread.
  void setState(ApplicationState state);
  /// Posts the memory warning on the main thread.
  void receiveMemoryWarning();
  /// Posts that the application will terminate, on the main thread, and stops the main run loop. Once.
  void terminate();
  bool isTerminating() const { return isTerminating_; }

  /// `unknown` until somebody who knows, such as a sensor service, sets it.
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
