#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Capture/CaptureDeviceInput.h"
#include "Platform/Capture/CaptureOutput.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Presets select the camera's format: one of these five, or a size such as "1280x720".
inline constexpr const char* kCaptureSessionPresetPhoto = "photo";    ///< the largest picture
inline constexpr const char* kCaptureSessionPresetHigh = "high";      ///< 1280x720 or the nearest
inline constexpr const char* kCaptureSessionPresetMedium = "medium";  ///< 640x480 or the nearest
inline constexpr const char* kCaptureSessionPresetLow = "low";        ///< 320x240 or the nearest
/// The device keeps its active format.
inline constexpr const char* kCaptureSessionPresetInputPriority = "inputPriority";

/// Routes media from devices to outputs.
///
///     stopped ──startRunning──▶ running ──stopRunning──▶ stopped
///                                │    ▲
///           device fails or goes │    │ the device is there again
///                                ▼    │
///                        running without that device
///
/// A running session opens the devices for whose media type it has an output. It has at most one input of each media
/// type. Several sessions may run at once, each with its own devices. If a device fails,
/// `kCaptureSessionRuntimeErrorNotification` is posted and the session keeps running with its other inputs; it reopens
/// the device once that is connected, trying at most once a second.
///
/// Any thread, including delegate callbacks; calls are serialised. No member waits for a delegate.
class TAVREL_API CaptureSession {
 public:
  /// The session stops when it is destroyed.
  static std::shared_ptr<CaptureSession> create();

  CaptureSession(const CaptureSession&) = delete;
  CaptureSession& operator=(const CaptureSession&) = delete;
  virtual ~CaptureSession() = default;

  /// Initially `kCaptureSessionPresetHigh`.
  virtual std::string sessionPreset() const = 0;
  /// Whether the input camera has a format for the preset; without a camera, whether the preset is valid.
  virtual bool canSetSessionPreset(std::string_view preset) const = 0;
  /// Has no effect unless `canSetSessionPreset`. A camera added later that lacks the size runs at the nearest one.
  virtual void setSessionPreset(std::string_view preset) = 0;

  /// Changes between the two take effect together at the commit; pairs nest. Other changes take effect at once. A
  /// commit without a begin stops the program.
  virtual void beginConfiguration() = 0;
  virtual void commitConfiguration() = 0;

  /// False if `input` is nullptr or the session has an input of its media type.
  virtual bool canAddInput(const std::shared_ptr<CaptureDeviceInput>& input) const = 0;
  /// Stops the program unless `canAddInput`.
  virtual void addInput(const std::shared_ptr<CaptureDeviceInput>& input) = 0;
  /// Has no effect on an input that was not added.
  virtual void removeInput(const std::shared_ptr<CaptureDeviceInput>& input) = 0;
  virtual std::vector<std::shared_ptr<CaptureDeviceInput>> inputs() const = 0;

  /// False if `output` is nullptr or belongs to a session.
  virtual bool canAddOutput(const std::shared_ptr<CaptureOutput>& output) const = 0;
  /// Stops the program unless `canAddOutput`.
  virtual void addOutput(const std::shared_ptr<CaptureOutput>& output) = 0;
  virtual void removeOutput(const std::shared_ptr<CaptureOutput>& output) = 0;
  virtual std::vector<std::shared_ptr<CaptureOutput>> outputs() const = 0;

  /// Opens the devices; returns when each delivers or has failed, which takes at most about five seconds for each.
  /// Failures are reported as runtime errors; the session runs nevertheless.
  virtual void startRunning() = 0;
  /// Closes the devices; returns when nothing more is captured. No delegate call begins afterwards, but one in progress
  /// may still be running.
  virtual void stopRunning() = 0;
  virtual bool isRunning() const = 0;

  /// The latest failure; nothing once the device has recovered.
  virtual std::optional<Error> runtimeError() const = 0;

 protected:
  CaptureSession() = default;
};

}  // namespace tavrel
