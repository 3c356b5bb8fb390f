#pragma once

#include <mutex>

#include "Capture/Video/Private/CameraSession.h"
#include "Capture/Video/Private/CameraWishes.h"

namespace tavrel {

/// What of a device can be wished for, in the order in which a new device is asked for it.
enum class CameraControl {
  torchMode,
  flashMode,
  minFrameRate,
  maxFrameRate,
  videoZoomFactor,
  continuousAutoFocus,
  focusPointOfInterest,
  continuousAutoExposure,
  exposurePointOfInterest,
};

/// Has the device in use do what is wished for. Any thread; the latest wish wins.
class CameraControls {
 public:
  CameraControls(const CameraWishes& wishes, const CameraSession& session) : wishes_(wishes), session_(session) {}

  /// Applies one wish. Nothing happens while the session does not run, and for what the device cannot do.
  void apply(CameraControl control) const;
  /// Applies all of them.
  void refreshForNewDevice() const;

 private:
  const CameraWishes& wishes_;
  const CameraSession& session_;
  mutable std::mutex mutex_;
};

}  // namespace tavrel
