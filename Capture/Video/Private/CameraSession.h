#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "Capture/Video/TavrelCameraConfiguration.h"
#include "Platform/Capture/CaptureSession.h"
#include "Platform/Capture/CaptureStillImageOutput.h"
#include "Platform/Capture/CaptureVideoDataOutput.h"
#include "TavrelBase/Log/TavrelLogger.h"

namespace tavrel {

inline constexpr const char* kCameraLogTag = "TavrelCamera";

/// The devices of a camera and what comes from them: the capture session with a front and a back input, one of which
/// or that of any other camera is in use, an output for frames and one for stills. Any thread, once it is set up;
/// `exchangeInput` by one at a time.
class CameraSession {
 public:
  /// Frames go to `delegate` on a queue of their own. Fails with code -4002 when the session refuses an output.
  Expected<void> setUp(const TavrelCameraConfiguration& wishes,
                       const std::shared_ptr<CaptureVideoDataOutputSampleBufferDelegate>& delegate);

  /// The one in use; nullptr for none.
  std::shared_ptr<CaptureDevice> device() const;
  CaptureDevicePosition devicePosition() const;
  bool hasBothCameras() const { return frontInput && backInput; }
  /// Uses the camera at `position`, or else the other one, and prepares the connections for it.
  void exchangeInput(CaptureDevicePosition position, CaptureVideoOrientation orientation);
  /// The same with the camera of this identity, which takes the place of the front or back one where it has that
  /// position. The one in use stays, and false comes, when it cannot be used.
  bool exchangeInput(const std::string& deviceID, CaptureVideoOrientation orientation);

  const std::shared_ptr<CaptureSession>& platformSession() const { return captureSession; }
  /// Where the session can.
  void setSessionPreset(const std::string& preset);

  /// nullptr without a device.
  std::shared_ptr<CaptureConnection> frameConnection() const;
  std::shared_ptr<CaptureConnection> stillImageConnection() const;
  CaptureStillImageOutput& stillImages() const { return *stillImageOutput; }
  std::uint64_t lateFrames() const { return dataOutput->droppedFrames(); }
  /// Of the frames; `landscapeRight` without a device.
  CaptureVideoOrientation videoOrientation() const;
  void setVideoOrientation(CaptureVideoOrientation orientation);

 private:
  Expected<void> addOutput(const std::shared_ptr<CaptureOutput>& output, const char* failureDescription);
  void makeInputs();
  void use(std::shared_ptr<CaptureDeviceInput> input, CaptureVideoOrientation orientation);

  std::shared_ptr<CaptureDeviceInput> frontInput;
  std::shared_ptr<CaptureDeviceInput> backInput;
  mutable std::mutex currentInputMutex_;
  std::shared_ptr<CaptureDeviceInput> currentInput;
  std::shared_ptr<CaptureSession> captureSession;
  std::shared_ptr<CaptureVideoDataOutput> dataOutput;
  std::shared_ptr<CaptureStillImageOutput> stillImageOutput;
};

}  // namespace tavrel
