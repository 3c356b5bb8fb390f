#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

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
  std::atomic<double> digitalZoom = 1;     // read for each frame, while a setting may take its time
  std::weak_ptr<CaptureSessionCore> user;  // the session that has it open or wants it

  template <typename Value>
  Value get(Value Implementation::*member) const {
    const std::lock_guard lock(mutex);
    return this->*member;
  }
  template <typename Value>
  Value get(Value CaptureControls::*control) const {
    const std::lock_guard lock(mutex);
    return controls.*control;
  }
  bool supports(bool CaptureCapabilities::*feature) const;
  template <typename Mode>
  bool supports(std::array<bool, 3> CaptureCapabilities::*modes, Mode mode) const {
    const std::lock_guard lock(mutex);
    return offers(modes, static_cast<std::size_t>(mode));
  }

  /// The mutex of a device whose configuration lock is held; `setter` is what the program stops with otherwise.
  std::unique_lock<std::mutex> lockToSet(std::string_view setter) const;
  /// Sets a mode that the device offers, and lets the driver carry it out when there is something to do at once.
  template <typename Mode>
  void set(std::string_view setter, Mode CaptureControls::*control, std::array<bool, 3> CaptureCapabilities::*modes,
           Mode mode, std::optional<CaptureControl> carriedOut) {
    const auto lock = lockToSet(setter);
    if (!offers(modes, static_cast<std::size_t>(mode))) return;
    controls.*control = mode;
    if (carriedOut) driver->apply(*carriedOut, controls);
  }
  void set(std::string_view setter, Point CaptureControls::*control, bool CaptureCapabilities::*feature, Point point);
  void set(std::string_view setter, MediaTime Implementation::*member, MediaTime duration);

  /// With the mutex held:
  Expected<void> checkConnected() const;
  bool offers(std::array<bool, 3> CaptureCapabilities::*modes, std::size_t mode) const;
  void resetSettings();
  void setZoom(double factor);
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
