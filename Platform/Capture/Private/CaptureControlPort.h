#pragma once

#include "Platform/Capture/Private/CaptureDriver.h"

namespace tavrel {

/// The way to a camera's controls, where it is another than that of its pictures. Any thread.
class CaptureControlPort {
 public:
  virtual ~CaptureControlPort() = default;

  virtual CaptureCapabilities capabilities() const = 0;
  /// 1 without zoom.
  virtual double largestZoom() const = 0;
  virtual void apply(CaptureControl control, const CaptureControls& controls) = 0;
};

}  // namespace tavrel
