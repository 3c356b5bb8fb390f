#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Capture/CaptureDeviceFormat.h"
#include "Platform/Capture/CaptureDeviceModes.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Media/MediaTime.h"
#include "Platform/Media/MediaType.h"

namespace tavrel {

/// A camera or a microphone, on PipeWire, V4L2 or without hardware; `TAVREL_CAPTURE=pipewire|v4l2|virtual|auto` chooses
/// where they come from. `auto`, the default, takes PipeWire's devices and V4L2's cameras where PipeWire has none, and
/// virtual ones when there is no real camera, or no real microphone.
///
/// There is one object for each device. It lives as long as the process, also while the device is unplugged: what comes
/// back under the same `uniqueID` is the same object, with its settings.
///
/// Settings are made between `lockForConfiguration` and `unlockForConfiguration`; a setter outside stops the program. A
/// setting that the device does not support is ignored; the is…Supported functions tell. Everything that was set is
/// applied again when the device is opened. All members may be called from any thread.
class TAVREL_API CaptureDevice {
 public:
  /// The devices that are connected now, in the backend's order, files last. The first call looks for devices and may
  /// take a moment (at most three seconds, where a sound or camera service does not answer).
  static std::vector<std::shared_ptr<CaptureDevice>> devicesWithMediaType(MediaType mediaType);
  /// The one that people expect: the system's default microphone, the back camera (else the first one); a file when one
  /// was added. nullptr when there is none.
  static std::shared_ptr<CaptureDevice> defaultDeviceWithMediaType(MediaType mediaType);
  /// The device of that identity, connected or not; nullptr when none such was ever seen.
  static std::shared_ptr<CaptureDevice> deviceWithUniqueID(std::string_view uniqueID);
  /// The connected device that people mean by `name`: a `uniqueID`, a `localizedName`, "front", "back" or "default";
  /// "file:PATH" adds the file. Fails with `noSuchDevice` and the names there are, and as `addFile` does.
  static Expected<std::shared_ptr<CaptureDevice>> deviceNamed(
      std::string_view name, MediaType mediaType,
      CaptureDevicePosition filePosition = CaptureDevicePosition::unspecified);
  /// Makes a movie or a picture (video), or a sound file (audio), a device from now on, after the others in
  /// `devicesWithMediaType`, and the default one. Its identity is "file:PATH". The same file again is the same device,
  /// with the new position. Fails with `noSuchFile`, `badScene` or `badSound` when the file cannot be a device.
  static Expected<std::shared_ptr<CaptureDevice>> addFile(
      const std::filesystem::path& path, MediaType mediaType,
      CaptureDevicePosition position = CaptureDevicePosition::unspecified);

  /// Whether the process may use devices of this type; looks at the rights on the device nodes, and at what PipeWire
  /// grants. Virtual devices may always be used.
  static CaptureAuthorizationStatus authorizationStatus(MediaType mediaType);
  /// Asks for the right to use them; `completion` is called once, on the global queue, with whether it is granted. Not
  /// having a device is no refusal.
  static void requestAccess(MediaType mediaType, std::function<void(bool granted)> completion);

  CaptureDevice(const CaptureDevice&) = delete;
  CaptureDevice& operator=(const CaptureDevice&) = delete;
  ~CaptureDevice();

  /// Names the device itself, by its serial number or the place it is plugged into; the same after replug and reboot.
  const std::string& uniqueID() const;
  /// For people.
  const std::string& localizedName() const;
  MediaType mediaType() const;
  /// A camera whose system does not tell is taken for the front one, a second such for the back one.
  CaptureDevicePosition position() const;
  /// "virtual", "pipewire" or "v4l2".
  const std::string& backendName() const;
  /// False while it is unplugged.
  bool isConnected() const;

  /// Begins making settings. Locks nest. Fails with `notConnected` while the device is unplugged.
  Expected<void> lockForConfiguration();
  /// Ends it; without a lock the program stops.
  void unlockForConfiguration();

  /// At least one where the device could be asked.
  std::vector<std::shared_ptr<const CaptureDeviceFormat>> formats() const;
  /// How it runs, or would run; chosen by the session's preset. Never nullptr.
  std::shared_ptr<const CaptureDeviceFormat> activeFormat() const;
  /// One of `formats()`; anything else stops the program. The preset of a session that uses the device becomes
  /// `kCaptureSessionPresetInputPriority`. Frame durations return to the format's default.
  void setActiveFormat(const std::shared_ptr<const CaptureDeviceFormat>& format);

  /// The shortest and longest time between frames. The device runs at the shortest, as nearly as it can; durations
  /// outside the format's ranges move to the nearest one inside. An invalid time restores the default: 30 frames a
  /// second, or the nearest rate there is.
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
  /// (0, 0) the top left, (1, 1) the bottom right of the sensor's picture; (0.5, 0.5) at first. Setting the point does
  /// nothing by itself: the next `setFocusMode` uses it. Points outside move to the edge.
  bool isFocusPointOfInterestSupported() const;
  Point focusPointOfInterest() const;
  void setFocusPointOfInterest(Point point);

  bool isExposureModeSupported(CaptureExposureMode mode) const;
  CaptureExposureMode exposureMode() const;
  void setExposureMode(CaptureExposureMode mode);
  /// As for the focus.
  bool isExposurePointOfInterestSupported() const;
  Point exposurePointOfInterest() const;
  void setExposurePointOfInterest(Point point);

  /// 1 shows everything; factors outside 1 … the active format's maximum move to the nearest end. At once, no ramp.
  double videoZoomFactor() const;
  void setVideoZoomFactor(double factor);

 private:
  friend class CaptureSystem;
  friend class CaptureSessionCore;
  struct Implementation;

  explicit CaptureDevice(std::unique_ptr<Implementation> implementation);

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
