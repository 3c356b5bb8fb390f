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
  static std::shared_ptr<CaptureSession> create();

  CaptureSession(const CaptureSession&) = delete;
  CaptureSession& operator=(const CaptureSession&) = delete;
  /// Stops.
  ~CaptureSession();

  /// `kCaptureSessionPresetHigh` at first.
  std::string sessionPreset() const;
  /// Whether each camera among the inputs has such a format; without one, whether the preset is one at all.
  bool canSetSessionPreset(std::string_view preset) const;
  /// Nothing changes unless `canSetSessionPreset`. An input that joins later and cannot do it runs at the nearest size.
  void setSessionPreset(std::string_view preset);

  /// Gathers changes until the matching commit, so that devices are opened and closed once; pairs nest. Each change
  /// outside a pair takes effect at once. A commit without a begin stops the program.
  void beginConfiguration();
  void commitConfiguration();

  /// False without an input, when it is in already, and when there is one of its media type.
  bool canAddInput(const std::shared_ptr<CaptureDeviceInput>& input) const;
  /// Stops the program unless `canAddInput`.
  void addInput(const std::shared_ptr<CaptureDeviceInput>& input);
  /// Nothing happens when it is not in.
  void removeInput(const std::shared_ptr<CaptureDeviceInput>& input);
  std::vector<std::shared_ptr<CaptureDeviceInput>> inputs() const;

  /// False without an output, and when it is in a session already.
  bool canAddOutput(const std::shared_ptr<CaptureOutput>& output) const;
  /// Stops the program unless `canAddOutput`.
  void addOutput(const std::shared_ptr<CaptureOutput>& output);
  void removeOutput(const std::shared_ptr<CaptureOutput>& output);
  std::vector<std::shared_ptr<CaptureOutput>> outputs() const;

  /// Opens the devices and returns when they deliver or have failed (at most about five seconds each); failures are
  /// reported as runtime errors, and the session runs nevertheless.
  void startRunning();
  /// Closes the devices and returns when nothing more is captured. No delegate call begins afterwards; one that runs
  /// already may end later.
  void stopRunning();
  bool isRunning() const;

  /// What went wrong last since the session was started; nothing while all is well.
  std::optional<Error> runtimeError() const;

 private:
  explicit CaptureSession(std::shared_ptr<class CaptureSessionCore> core);

  std::shared_ptr<CaptureSessionCore> core_;
};

}  // namespace tavrel
