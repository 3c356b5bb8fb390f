#pragma once

#include <memory>

#include "Platform/Capture/CaptureDevice.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// A device as an input of a session. Immutable; any thread.
class TAVREL_API CaptureDeviceInput {
 public:
  /// Fails (`CaptureErrorCode`) if `device` is nullptr or unplugged, or the process may not open it. Only a running
  /// session opens the device.
  static Expected<std::shared_ptr<CaptureDeviceInput>> create(std::shared_ptr<CaptureDevice> device);

  const std::shared_ptr<CaptureDevice>& device() const { return device_; }

 private:
  explicit CaptureDeviceInput(std::shared_ptr<CaptureDevice> device) : device_(std::move(device)) {}

  std::shared_ptr<CaptureDevice> device_;
};

}  // namespace tavrel
