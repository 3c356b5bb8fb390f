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

/// Presets choose the camera's format. These five, and any size written as "1280x720".
inline constexpr const char* kCaptureSessionPresetPhoto = "photo";    ///< the largest picture
inline constexpr const char* kCaptureSessionPresetHigh = "high";      ///< 1280x720 or the nearest
inline constexpr const char* kCaptureSessionPresetMedium = "medium";  ///< 640x480 or the nearest
inline constexpr const char* kCaptureSessionPresetLow = "low";        ///< 320x240 or the nearest
/// The device keeps the active format that was set on it.
inline constexpr const char* kCaptureSessionPresetInputPriority = "inputPriority";

/// Leads media from devices to outputs.
///
///     stopped ──startRunning──▶ running ──stopRunning──▶ stopped
///                                │    ▲
///           device fails or goes │    │ the device is there again
///                                ▼    │
///                        running without that device
///
/// A running session opens its inputs' devices as long as it has an output for their media type; several sessions may
/// run at once, each with devices of its own. A device that fails is reported by
/// `kCaptureSessionRuntimeErrorNotification`, the session goes on running with its other inputs, and opens it again
/// when it is connected, at most once a second. One input of a media type at a time.
///
/// All members may be called from any thread, also from delegates; they wait for each other. No member waits for a
/// delegate.
class TAVREL_API CaptureSession {
 public:
  /// It stops when its last owner lets go of it.
  static std::shared_ptr<CaptureSession> create();

  CaptureSession(const CaptureSession&) = delete;
  CaptureSession& operator=(const CaptureSession&) = delete;
  virtual ~CaptureSession() = default;

  /// `kCaptureSessionPresetHigh` at first.
  virtual std::string sessionPreset() const = 0;
  /// Whether each camera among the inputs has such a format; without one, whether the preset is one at all.
  virtual bool canSetSessionPreset(std::string_view preset) const = 0;
  /// Nothing changes unless `canSetSessionPreset`. An input that joins later and cannot do it runs at the nearest size.
  virtual void setSessionPreset(std::string_view preset) = 0;

  /// Gathers changes until the matching commit, so that devices are opened and closed once; pairs nest. Each change
  /// outside a pair takes effect at once. A commit without a begin stops the program.
  virtual void beginConfiguration() = 0;
  virtual void commitConfiguration() = 0;

  /// False without an input, when it is in already, and when there is one of its media type.
  virtual bool canAddInput(const std::shared_ptr<CaptureDeviceInput>& input) const = 0;
  /// Stops the program unless `canAddInput`.
  virtual void addInput(const std::shared_ptr<CaptureDeviceInput>& input) = 0;
  /// Nothing happens when it is not in.
  virtual void removeInput(const std::shared_ptr<CaptureDeviceInput>& input) = 0;
  virtual std::vector<std::shared_ptr<CaptureDeviceInput>> inputs() const = 0;

  /// False without an output, and when it is in a session already.
  virtual bool canAddOutput(const std::shared_ptr<CaptureOutput>& output) const = 0;
  /// Stops the program unless `canAddOutput`.
  virtual void addOutput(const std::shared_ptr<CaptureOutput>& output) = 0;
  virtual void removeOutput(const std::shared_ptr<CaptureOutput>& output) = 0;
  virtual std::vector<std::shared_ptr<CaptureOutput>> outputs() const = 0;

  /// Opens the devices and returns when they deliver or have failed (at most about five seconds each); failures are
  /// reported as runtime errors, and the session runs nevertheless.
  virtual void startRunning() = 0;
  /// Closes the devices and returns when nothing more is captured. No delegate call begins afterwards; one that runs
  /// already may end later.
  virtual void stopRunning() = 0;
  virtual bool isRunning() const = 0;

  /// What went wrong last since the session was started; nothing while all is well.
  virtual std::optional<Error> runtimeError() const = 0;

 protected:
  CaptureSession() = default;
};

}  // namespace tavrel
