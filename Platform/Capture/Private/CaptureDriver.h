#pragma once

#include <array>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "Platform/Capture/CaptureDelivery.h"
#include "Platform/Capture/CaptureDeviceFormat.h"
#include "Platform/Capture/CaptureDeviceModes.h"
#include "Platform/Capture/CaptureError.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

/// How a camera's controls are to stand.
struct CaptureControls {
  CaptureTorchMode torchMode = CaptureTorchMode::off;
  CaptureFlashMode flashMode = CaptureFlashMode::off;
  CaptureFocusMode focusMode = CaptureFocusMode::continuousAutoFocus;
  CaptureExposureMode exposureMode = CaptureExposureMode::continuousAutoExposure;
  Point focusPoint = {0.5, 0.5};
  Point exposurePoint = {0.5, 0.5};
  double zoomFactor = 1;

  friend bool operator==(const CaptureControls&, const CaptureControls&) = default;
};

/// Which of them is to be carried out. The points belong to their modes.
enum class CaptureControl { torch, focus, exposure, zoom };
inline constexpr CaptureControl kCaptureControls[] = {CaptureControl::torch, CaptureControl::focus,
                                                      CaptureControl::exposure, CaptureControl::zoom};

/// What a camera can do, by the modes' numbers.
struct CaptureCapabilities {
  std::array<bool, 3> torchModes = {};
  std::array<bool, 3> flashModes = {};
  std::array<bool, 3> focusModes = {};
  std::array<bool, 3> exposureModes = {};
  bool focusPoint = false;
  bool exposurePoint = false;
  bool zoom = false;  ///< without it pictures are enlarged after they have come
};

/// What a device is; fixed while it stays plugged in.
struct CaptureDeviceDescription {
  std::string uniqueID;
  std::string localizedName;
  std::string backendName;
  MediaType mediaType = MediaType::video;
  CaptureDevicePosition position = CaptureDevicePosition::unspecified;
  /// By how many degrees clockwise the sensor's picture must be turned to be what `landscapeRight` shows: 0, 90, 180 or
  /// 270.
  int mountRotation = 0;
  bool isSystemDefault = false;
  /// Hears what the machine plays; never taken for a microphone unless somebody names it.
  bool isMonitor = false;
  /// Shows what this very process makes; never taken for a camera unless somebody names it.
  bool isOwnFeed = false;
  std::vector<std::shared_ptr<const CaptureDeviceFormat>> formats;  ///< at least one
};

/// What is said of a device that was unplugged, whether its driver or the session notices first.
inline Error unpluggedError(const std::string& localizedName) {
  return makeError(CaptureErrorCode::unplugged, localizedName + " was unplugged");
}

/// What is said of a camera that has none of the formats that we can read, only `formats`, as it names them.
inline Error unreadableError(const std::string& localizedName, const std::string& formats) {
  return makeError(CaptureErrorCode::unsupportedFormat, localizedName + " has only pictures that cannot be read (" +
                                                            formats + "); Y Cb Cr, RGB, gray, MJPEG and H.264 can");
}

/// Takes what a driver captures.
class CaptureSink {
 public:
  virtual ~CaptureSink() = default;

  /// A BGRA picture or PCM, on the driver's capture thread. May block on a clock that is not real time, until the sink
  /// is cancelled by who made it.
  virtual void didCapture(std::shared_ptr<SampleBuffer> sample) = 0;
  /// A picture was lost; same thread.
  virtual void didDrop(const SampleTiming& timing) = 0;
  /// Nothing more will come; any thread. The driver must still be closed, by who opened it.
  virtual void didFail(Error error) = 0;
};

/// How a driver is to run.
struct CaptureRun {
  std::shared_ptr<const CaptureDeviceFormat> format;
  double frameRate = 30;  ///< cameras
  CaptureControls controls;
  std::shared_ptr<CaptureSink> sink;
  /// Asks `open` to give up: nobody wants the device any more.
  std::stop_token cancellation;
};

/// The hardware's side of one device while it is plugged in. Any thread; calls into the sink are made without a lock
/// that any of these functions takes.
class CaptureDriver {
 public:
  virtual ~CaptureDriver() = default;

  virtual const CaptureDeviceDescription& description() const = 0;
  virtual CaptureCapabilities capabilities() const { return {}; }
  /// A format of that size for devices that can have any; nullptr for all others.
  virtual std::shared_ptr<const CaptureDeviceFormat> formatOfSize(CaptureVideoDimensions) { return nullptr; }

  /// Whether it is the one that the system's settings choose.
  virtual bool isSystemDefault() const { return description().isSystemDefault; }

  /// Whether an input can be made of it, and whether its settings may be changed.
  virtual Expected<void> checkAvailable() { return {}; }
  virtual Expected<void> checkConfigurable() { return {}; }

  /// Begins capturing; fails when it runs already. Returns within a few seconds, sooner when cancelled.
  virtual Expected<void> open(CaptureRun run) = 0;
  /// Ends it; afterwards the sink is not called any more. Not from the sink. Does nothing when closed.
  virtual void close() = 0;
  /// Changes a running camera.
  virtual void setFrameRate(double framesPerSecond) = 0;
  virtual void apply(CaptureControl control, const CaptureControls& controls) = 0;
  /// What it delivers, or delivered when it was open last; nothing before.
  virtual std::optional<CaptureDelivery> delivery() const { return std::nullopt; }
  /// Whether time passes while the sink does not take anything.
  virtual bool isRealTime() const { return true; }
};

}  // namespace tavrel
