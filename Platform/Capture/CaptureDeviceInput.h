#pragma once

#include <memory>

#include "Platform/Capture/CaptureDevice.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// A device on its way into a session. Immutable; any thread.
class TAVREL_API CaptureDeviceInput {
 public:
  /// Fails (`CaptureErrorCode`) without a device, when it is unplugged, and when the process may not open it. The
  /// device itself is opened by a running session only.
  static Expected<std::shared_ptr<CaptureDeviceInput>> create(std::shared_ptr<CaptureDevice> device);

  const std::shared_ptr<CaptureDevice>& device() const { return device_; }

 private:
  explicit CaptureDeviceInput(std::shared_ptr<CaptureDevice> device) : device_(std::move(device)) {}

  std::shared_ptr<CaptureDevice> device_;
};

}  // namespace tavrel
