#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "Platform/Capture/CaptureDevice.h"
#include "Platform/Capture/Private/CaptureDriver.h"

namespace tavrel {

class CaptureSessionCore;

/// The state of a device, plugged in or not.
struct CaptureDevice::Implementation {
  Implementation(std::shared_ptr<CaptureDriver> usedDriver, CaptureDevicePosition usedPosition);

  // Fixed.
  const std::string uniqueID;
  const std::string localizedName;
  const std::string backendName;
  const MediaType mediaType;

  mutable std::mutex mutex;
  CaptureDevicePosition position;
  bool isConnected = true;
  bool isListed = true;
  int lockCount = 0;
  std::shared_ptr<CaptureDriver> driver;  // the latest one
  std::vector<std::shared_ptr<const CaptureDeviceFormat>> formats;
  std::shared_ptr<const CaptureDeviceFormat> activeFormat;
  MediaTime minFrameDuration;
  MediaTime maxFrameDuration;
  CaptureControls controls;
  std::weak_ptr<CaptureSessionCore> user;  // the session that has it open or wants it

  /// With the mutex held:
  void resetSettings();
  void useFormat(std::shared_ptr<const CaptureDeviceFormat> format);
  void replaceDriver(std::shared_ptr<CaptureDriver> newDriver);
  double frameRate() const;
  /// The format for a session's preset; nullptr when nothing there is to choose.
  std::shared_ptr<const CaptureDeviceFormat> formatForPreset(std::string_view preset, bool exactly);
  std::shared_ptr<const CaptureDeviceFormat> nearestFormat(CaptureVideoDimensions wanted) const;
};

/// The size that a preset names; {0, 0} for "photo", which has none; nothing for what is no preset with a size.
std::optional<CaptureVideoDimensions> dimensionsOfPreset(std::string_view preset);

}  // namespace tavrel
