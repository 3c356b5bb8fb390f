#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Capture/CaptureDeviceFormat.h"
#include "Platform/Capture/CaptureDeviceModes.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Foundation/Pimpl.h"
#include "Platform/Media/MediaTime.h"
#include "Platform/Media/MediaType.h"

namespace tavrel {

struct CaptureDelivery;

/// A camera or microphone of PipeWire or V4L2, or a virtual one. The environment variable
/// `TAVREL_CAPTURE=pipewire|v4l2|portal|virtual|auto` selects the backend. `auto`, the default, takes PipeWire's
/// devices, V4L2 cameras if PipeWire has none, and virtual ones if there is no real camera or microphone at all; in a
/// sandbox (Flatpak, Snap) it is `portal`: the desktop's camera portal asks the person, and sound is PipeWire's.
///
/// There is one object for each device. It lives until the process ends: a device that is plugged in again under the
/// same `uniqueID` is the same object, with its settings.
///
/// Call setters between `lockForConfiguration` and `unlockForConfiguration`; outside they stop the program. A setting
/// that the device does not support (see the is…Supported functions) is ignored. Settings are applied again whenever
/// the device is opened. Any thread.
class TAVREL_API CaptureDevice {
 public:
  /// The connected devices, in the backend's order, files last. The first call discovers devices and may take up to
  /// three seconds if a service does not answer.
  static std::vector<std::shared_ptr<CaptureDevice>> devicesWithMediaType(MediaType mediaType);
  /// The file added last if there is one; else the system's default microphone, or the back camera, or the first
  /// device. nullptr if there is none.
  static std::shared_ptr<CaptureDevice> defaultDeviceWithMediaType(MediaType mediaType);
  /// The device with this identity, connected or not; nullptr if it was never seen.
  static std::shared_ptr<CaptureDevice> deviceWithUniqueID(std::string_view uniqueID);
  /// The connected device called `name`: a `uniqueID`, a `localizedName`, "front" or "back" (or else the first camera),
  /// "default"; "file:PATH" adds the file. Virtual devices are found although they are not listed. Fails with
  /// `noSuchDevice`, listing the names, with `permissionDenied` or `deviceSilent` if that may be why, and as `addFile`.
  static Expected<std::shared_ptr<CaptureDevice>> deviceNamed(
      std::string_view name, MediaType mediaType,
      CaptureDevicePosition filePosition = CaptureDevicePosition::unspecified);
  /// Adds a movie or picture as a camera, or an audio file as a microphone. It is listed after the other devices and
  /// becomes the default. Its identity is "file:PATH"; adding a file again only changes its position. Fails with
  /// `noSuchFile`, `badScene` or `badSound`.
  static Expected<std::shared_ptr<CaptureDevice>> addFile(
      const std::filesystem::path& path, MediaType mediaType,
      CaptureDevicePosition position = CaptureDevicePosition::unspecified);

  /// Whether the virtual devices are listed because no real one was found, and nobody asked for them.
  static bool hasStandIns();
  /// Whether the process may use devices of this type: by the permissions of the device nodes, PipeWire's, and the
  /// portal's answer, which is `restricted` where there is no portal. Virtual devices are allowed. `notDetermined`
  /// until access was requested.
  static CaptureAuthorizationStatus authorizationStatus(MediaType mediaType);
  /// Requests access. `completion` is called once, on the global queue, after a minute at most if a person is asked.
  /// Having no device does not count as refusal.
  static void requestAccess(MediaType mediaType, std::function<void(bool granted)> completion);

  CaptureDevice(const CaptureDevice&) = delete;
  CaptureDevice& operator=(const CaptureDevice&) = delete;
  ~CaptureDevice();

  /// Identifies the device by serial number or port; it stays the same after replugging and rebooting.
  const std::string& uniqueID() const;
  const std::string& localizedName() const;  ///< human-readable
  MediaType mediaType() const;
  /// If the system does not say, the first such camera counts as front and the second as back.
  CaptureDevicePosition position() const;
  const std::string& backendName() const;  ///< "virtual", "pipewire", "portal" or "v4l2"
  bool isConnected() const;                ///< false while unplugged
  /// Whether it captures what this machine plays or shows: a loudspeaker's monitor, or this process's own camera
  /// output. Such a device is used only if named.
  bool isLoopback() const;

  /// Begins a configuration; locks nest. Fails with `notConnected` while the device is unplugged.
  Expected<void> lockForConfiguration();
  /// Ends a configuration. Without a lock it stops the program.
  void unlockForConfiguration();

  /// What it delivers, or delivered when it was open last; nothing before.
  std::optional<CaptureDelivery> delivery() const;
  /// Empty if the device could not be queried.
  std::vector<std::shared_ptr<const CaptureDeviceFormat>> formats() const;
  /// The format the device runs in when opened, chosen by the session's preset. Never nullptr.
  std::shared_ptr<const CaptureDeviceFormat> activeFormat() const;
  /// Must be one of `formats()`, else the program stops. The preset of the device's session becomes
  /// `kCaptureSessionPresetInputPriority`, and frame durations return to the format's default.
  void setActiveFormat(const std::shared_ptr<const CaptureDeviceFormat>& format);

  /// Limits of the time between frames. The device runs as close to the minimum as it can. Durations outside the
  /// format's ranges are clamped to them. An invalid time restores the default: 30 frames per second or the nearest
  /// rate available.
  MediaTime activeVideoMinFrameDuration() const;
  MediaTime activeVideoMaxFrameDuration() const;
  void setActiveVideoMinFrameDuration(MediaTime duration);
  void setActiveVideoMaxFrameDuration(MediaTime duration);

  bool isTorchModeSupported(CaptureTorchMode mode) const;
  CaptureTorchMode torchMode() const;
  void setTorchMode(CaptureTorchMode mode);

  bool isFlashModeSupported(CaptureFlashMode mode) const;
  CaptureFlashMode flashMode() const;
  void setFlashMode(CaptureFlashMode mode);

  bool isFocusModeSupported(CaptureFocusMode mode) const;
  CaptureFocusMode focusMode() const;
  void setFocusMode(CaptureFocusMode mode);
  /// (0, 0) is the top left of the sensor's picture and (1, 1) the bottom right; initially (0.5, 0.5). The point takes
  /// effect at the next `setFocusMode`, where a camera without regions focuses anew. Points outside are clamped.
  bool isFocusPointOfInterestSupported() const;
  Point focusPointOfInterest() const;
  void setFocusPointOfInterest(Point point);

  bool isExposureModeSupported(CaptureExposureMode mode) const;
  CaptureExposureMode exposureMode() const;
  void setExposureMode(CaptureExposureMode mode);
  /// See `focusPointOfInterest`.
  bool isExposurePointOfInterestSupported() const;
  Point exposurePointOfInterest() const;
  void setExposurePointOfInterest(Point point);

  /// 1 shows the whole picture. Factors are clamped to 1 … the active format's `videoMaxZoomFactor` and take effect at
  /// once.
  double videoZoomFactor() const;
  void setVideoZoomFactor(double factor);
  /// The zoom that the device leaves to others: `videoZoomFactor`, or 1 if the device zooms itself. `TavrelCamera`
  /// enlarges the middle of its pictures by it.
  double digitalZoomFactor() const;

 private:
  friend class CaptureSystem;
  friend class CaptureSessionCore;
  struct Implementation;

  explicit CaptureDevice(std::unique_ptr<Implementation> implementation);

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
